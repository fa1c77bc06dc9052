// Device enumeration in the shape of SetupDi, the device registry keys it opens, and DOS
// device names, and the device manager's property dialog. On Windows these are the system's;
// the POSIX backend lists the devices of its device source (see posix/device_source.h): the
// machine's serial devices as sysfs shows them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/os_file.h"

namespace portwren::os {

struct Guid {
  uint32_t Data1 = 0;
  uint16_t Data2 = 0;
  uint16_t Data3 = 0;
  uint8_t Data4[8] = {};
};

inline bool operator==(const Guid& a, const Guid& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) return false;
  }
  return true;
}

// GUID_DEVINTERFACE_COMPORT {86E0D1E0-8089-11D0-9CE4-08003E301F73}.
inline constexpr Guid kGuidDevInterfaceComPort = {
    0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};

using DevInfoSet = void*;  // HDEVINFO; kInvalidHandle when it could not be made
using RegKey = void*;      // HKEY; kInvalidHandle when it could not be opened

// SP_DEVICE_INTERFACE_DATA (cbSize must be set to its size).
struct DeviceInterfaceData {
  Dword cbSize = sizeof(DeviceInterfaceData);
  Guid InterfaceClassGuid;
  Dword Flags = 0;
  uintptr_t Reserved = 0;
};

// SP_DEVINFO_DATA (cbSize must be set to its size).
struct DevInfoData {
  Dword cbSize = sizeof(DevInfoData);
  Guid ClassGuid;
  Dword DevInst = 0;
  uintptr_t Reserved = 0;
};

// SP_DEVICE_INTERFACE_DETAIL_DATA_A/W: cbSize = sizeof the struct (8), the path follows.
struct DeviceInterfaceDetailA {
  Dword cbSize;
  char DevicePath[1];
};
struct DeviceInterfaceDetailW {
  Dword cbSize;
  WChar DevicePath[1];
};

inline constexpr Dword kDigcfPresent = 0x02;
inline constexpr Dword kDigcfAllClasses = 0x04;
inline constexpr Dword kDigcfDeviceInterface = 0x10;

inline constexpr Dword kSpdrpDeviceDesc = 0x00;
inline constexpr Dword kSpdrpService = 0x04;
inline constexpr Dword kSpdrpFriendlyName = 0x0C;

inline constexpr Dword kDicsFlagGlobal = 1;
inline constexpr Dword kDiregDev = 1;
inline constexpr Dword kKeyRead = 0x20019;
inline constexpr Dword kRegSz = 1;

// enumerator may be null. kInvalidHandle + last error on failure.
DevInfoSet SetupDiGetClassDevsA(const Guid* class_guid, const char* enumerator, Dword flags);
DevInfoSet SetupDiGetClassDevsW(const Guid* class_guid, const WChar* enumerator, Dword flags);
// false + kErrNoMoreItems past the last interface.
bool SetupDiEnumDeviceInterfaces(DevInfoSet set, DevInfoData* device, const Guid* interface_guid, Dword index,
                                 DeviceInterfaceData* interface_data);
// false + kErrInsufficientBuffer (with *required_size) when the detail does not fit.
bool SetupDiGetDeviceInterfaceDetailA(DevInfoSet set, DeviceInterfaceData* interface_data,
                                      DeviceInterfaceDetailA* detail, Dword detail_size, Dword* required_size,
                                      DevInfoData* device);
bool SetupDiGetDeviceInterfaceDetailW(DevInfoSet set, DeviceInterfaceData* interface_data,
                                      DeviceInterfaceDetailW* detail, Dword detail_size, Dword* required_size,
                                      DevInfoData* device);
bool SetupDiGetDeviceRegistryPropertyA(DevInfoSet set, DevInfoData* device, Dword property, Dword* value_type,
                                       void* buffer, Dword buffer_size, Dword* required_size);
bool SetupDiGetDeviceInstanceIdA(DevInfoSet set, DevInfoData* device, char* buffer, Dword buffer_size,
                                 Dword* required_size);
RegKey SetupDiOpenDevRegKey(DevInfoSet set, DevInfoData* device, Dword scope, Dword hw_profile,
                            Dword key_type, Dword desired_access);
bool SetupDiDestroyDeviceInfoList(DevInfoSet set);

// Registry calls return their error number (0 = success) instead of setting the last error.
// kErrMoreData with *data_size = the size needed when data does not fit.
Dword RegQueryValueExA(RegKey key, const char* value_name, Dword* value_type, void* data, Dword* data_size);
Dword RegCloseKey(RegKey key);

// The target of a DOS device name (COM7 -> \Device\...); 0 + last error when there is none.
Dword QueryDosDeviceA(const char* device_name, char* target, Dword target_size);

// What a system tells of a listed device beyond its SetupDi properties: the hardware (USB)
// device behind it and label/value lines of its own (VID:PID, manufacturer, serial number, a
// stable link). Windows has none (false): there the driver package tells a VCOM's USB device.
struct DeviceExtras {
  std::string hardware_path;
  std::vector<std::pair<std::string, std::string>> lines;
};
bool GetDeviceExtras(DevInfoSet set, DevInfoData* device, DeviceExtras* extras);

// LoadLibraryA and GetProcAddress; nullptr + last error when not found (always on POSIX).
using Module = void*;
Module LoadLibraryA(const char* name);
void* GetProcAddress(Module module, const char* name);

// devmgr.dll's DeviceProperties_RunDLLA (64-bit Windows has one calling convention).
using DevicePropertiesRunDll = void (*)(void* window, void* instance, const char* command_line, int show);

}  // namespace portwren::os
