// The byte layouts of the driver's input and output records (little-endian, UTF-16LE text),
// and the conversions of their text fields to the program's narrow text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/os_file.h"

namespace portwren {

// Output of IOCTL_TRELLIS_GetKernelVersion.
struct KernelVersionInfo {
  uint32_t major;
  uint32_t minor;
  uint32_t patch;
  uint8_t reserved[168];
};
static_assert(sizeof(KernelVersionInfo) == 180);
static_assert(offsetof(KernelVersionInfo, minor) == 4 && offsetof(KernelVersionInfo, patch) == 8);

// Output of IOCTL_VCOM_GetDeviceState.
struct VcomDeviceState {
  uint32_t reserved0;
  int32_t lifemode;  // 0 Temporal, 1 Friendly, 2 Persistent
  uint32_t isUsbdOnline;
  uint32_t reserved12;
  uint64_t uemsecUsbdLastOnline;  // ms since 1970-01-01 UTC; 0 = never
  uint64_t uemsecUsbdLastOffline;
  char16_t szVcomDevinstpath[260];
  char16_t szUsbdDevinstpath[260];
};
static_assert(sizeof(VcomDeviceState) == 1072);
static_assert(offsetof(VcomDeviceState, lifemode) == 4 && offsetof(VcomDeviceState, isUsbdOnline) == 8);
static_assert(offsetof(VcomDeviceState, uemsecUsbdLastOnline) == 16);
static_assert(offsetof(VcomDeviceState, uemsecUsbdLastOffline) == 24);
static_assert(offsetof(VcomDeviceState, szVcomDevinstpath) == 32);
static_assert(offsetof(VcomDeviceState, szUsbdDevinstpath) == 552);

// Input of IOCTL_TRELLIS_QueryVcomFdoPdo: the VCOM's instance suffix; all 256 bytes are sent.
struct VcomFdoPdoQuery {
  char16_t szInstanceSuffix[128];
};
static_assert(sizeof(VcomFdoPdoQuery) == 256);

// Output of IOCTL_TRELLIS_QueryVcomFdoPdo, every field zero-padded.
struct VcomFdoPdoInfo {
  char16_t szPortName[16];  // the DOS name, e.g. COM7
  char16_t szFdoName[40];   // the correct target of its symbolic link
  char16_t szPdoName[40];
  char16_t szKernelLinkTarget[40];  // the link's target in the kernel's global name space
};
static_assert(sizeof(VcomFdoPdoInfo) == 272);
static_assert(offsetof(VcomFdoPdoInfo, szFdoName) == 32 && offsetof(VcomFdoPdoInfo, szPdoName) == 112);
static_assert(offsetof(VcomFdoPdoInfo, szKernelLinkTarget) == 192);

// (major << 24) | (minor << 16) | (patch << 8), the parts not masked first, as the driver's
// tools pack it; 0 stands for no version.
constexpr uint32_t PackKernelVersion(const KernelVersionInfo& info) {
  return (info.major << 24) | (info.minor << 16) | (info.patch << 8);
}

// A UTF-16 field of at most `units` units (ending at its first NUL) in the narrow text, cut to
// fit `capacity` bytes with its NUL. Returns out.
char* NarrowField(const char16_t* field, size_t units, char* out, size_t capacity);

// The narrow text in a UTF-16 field of `units` units, zero-padded; cut to leave room for a NUL.
void WideField(const char* text, char16_t* field, size_t units);

}  // namespace portwren
