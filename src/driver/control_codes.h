// The control requests the tool sends to the driver package: codes, the names it prints, and the
// interface classes it looks its devices up by.
#pragma once

#include "platform/os_device_control.h"
#include "platform/os_device_enum.h"

namespace portwren {

inline constexpr os::Dword kTrellisDeviceType = 0x1612;

constexpr os::Dword TrellisCode(os::Dword function, os::Dword access) {
  return os::CtlCode(kTrellisDeviceType, function, os::kMethodBuffered, access);
}

inline constexpr os::Dword IOCTL_TRELLIS_GetKernelVersion = TrellisCode(0xC01, os::kFileAnyAccess);
inline constexpr os::Dword IOCTL_TRELLIS_UnplugAllVcoms = TrellisCode(0xC08, os::kFileWriteAccess);
inline constexpr os::Dword IOCTL_TRELLIS_VbusReinstall = TrellisCode(0xC09, os::kFileWriteAccess);
inline constexpr os::Dword IOCTL_TRELLIS_GetUsbdDevinstPath = TrellisCode(0xC15, os::kFileAnyAccess);
inline constexpr os::Dword IOCTL_TRELLIS_QueryVcomFdoPdo = TrellisCode(0xC1B, os::kFileReadAccess);
inline constexpr os::Dword IOCTL_TRELLIS_VbusWriteTest = TrellisCode(0xC1E, os::kFileWriteAccess);
inline constexpr os::Dword IOCTL_TRELLIS_VbusReadTest = TrellisCode(0xC1F, os::kFileReadAccess);
inline constexpr os::Dword IOCTL_VCOM_OneTimeTemporalLifemode_Disable =
    TrellisCode(0xD00, os::kFileWriteAccess);
inline constexpr os::Dword IOCTL_VCOM_OneTimeTemporalLifemode_Enable =
    TrellisCode(0xD01, os::kFileWriteAccess);
inline constexpr os::Dword IOCTL_VCOM_OneTimeTemporalLifemode_Query = TrellisCode(0xD02, os::kFileReadAccess);
inline constexpr os::Dword IOCTL_VCOM_GetDeviceState = TrellisCode(0xD04, os::kFileReadAccess);

// The codes as the driver defines them: a slip in a function number or access field shows here.
static_assert(IOCTL_TRELLIS_GetKernelVersion == 0x16123004);
static_assert(IOCTL_TRELLIS_UnplugAllVcoms == 0x1612B020);
static_assert(IOCTL_TRELLIS_VbusReinstall == 0x1612B024);
static_assert(IOCTL_TRELLIS_GetUsbdDevinstPath == 0x16123054);
static_assert(IOCTL_TRELLIS_QueryVcomFdoPdo == 0x1612706C);
static_assert(IOCTL_TRELLIS_VbusWriteTest == 0x1612B078);
static_assert(IOCTL_TRELLIS_VbusReadTest == 0x1612707C);
static_assert(IOCTL_VCOM_OneTimeTemporalLifemode_Disable == 0x1612B400);
static_assert(IOCTL_VCOM_OneTimeTemporalLifemode_Enable == 0x1612B404);
static_assert(IOCTL_VCOM_OneTimeTemporalLifemode_Query == 0x16127408);
static_assert(IOCTL_VCOM_GetDeviceState == 0x16127410);

// The access field of a code: what the target's handle must have been opened with.
constexpr os::Dword RequiredAccess(os::Dword code) {
  return (code >> 14) & 3;
}

// The bus is opened read-only exactly for the requests that need read access only; a
// non-administrator can still send those.
constexpr bool BusOpensReadOnly(os::Dword code) {
  return RequiredAccess(code) == os::kFileReadAccess;
}

// {20161207-6A0C-11D2-B841-00C04FAD5171}
inline constexpr os::Guid TRELLIS_CONTROL_INTERFACE_GUID = {
    0x20161207, 0x6A0C, 0x11D2, {0xB8, 0x41, 0x00, 0xC0, 0x4F, 0xAD, 0x51, 0x71}};

inline constexpr char kVbusPath[] = "\\\\.\\QDX_TRELLIS_VBUS";

// A VCOM request the tool relies on, with the value the driver was built with.
struct RequestDefinition {
  const char* name;
  os::Dword code;      // as this build makes it
  os::Dword expected;  // as the driver defines it
};

inline constexpr RequestDefinition kVcomRequestDefinitions[] = {
    {"IOCTL_VCOM_OneTimeTemporalLifemode_Disable", IOCTL_VCOM_OneTimeTemporalLifemode_Disable, 0x1612B400},
    {"IOCTL_VCOM_OneTimeTemporalLifemode_Enable", IOCTL_VCOM_OneTimeTemporalLifemode_Enable, 0x1612B404},
    {"IOCTL_VCOM_OneTimeTemporalLifemode_Query", IOCTL_VCOM_OneTimeTemporalLifemode_Query, 0x16127408},
    {"IOCTL_VCOM_GetDeviceState", IOCTL_VCOM_GetDeviceState, 0x16127410},
};

}  // namespace portwren
