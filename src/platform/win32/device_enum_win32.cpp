#include <cstddef>

#include "platform/os_device_enum.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

static_assert(sizeof(Guid) == sizeof(GUID));
static_assert(sizeof(DeviceInterfaceData) == sizeof(SP_DEVICE_INTERFACE_DATA));
static_assert(offsetof(DeviceInterfaceData, InterfaceClassGuid) ==
              offsetof(SP_DEVICE_INTERFACE_DATA, InterfaceClassGuid));
static_assert(offsetof(DeviceInterfaceData, Flags) == offsetof(SP_DEVICE_INTERFACE_DATA, Flags));
static_assert(offsetof(DeviceInterfaceData, Reserved) == offsetof(SP_DEVICE_INTERFACE_DATA, Reserved));
static_assert(sizeof(DevInfoData) == sizeof(SP_DEVINFO_DATA));
static_assert(offsetof(DevInfoData, ClassGuid) == offsetof(SP_DEVINFO_DATA, ClassGuid));
static_assert(offsetof(DevInfoData, DevInst) == offsetof(SP_DEVINFO_DATA, DevInst));
static_assert(offsetof(DevInfoData, Reserved) == offsetof(SP_DEVINFO_DATA, Reserved));
static_assert(sizeof(DeviceInterfaceDetailA) == sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A));
static_assert(offsetof(DeviceInterfaceDetailA, DevicePath) ==
              offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath));
static_assert(sizeof(DeviceInterfaceDetailW) == sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W));
static_assert(offsetof(DeviceInterfaceDetailW, DevicePath) ==
              offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath));
static_assert(sizeof(WChar) == sizeof(WCHAR));
static_assert(kDigcfPresent == DIGCF_PRESENT && kDigcfAllClasses == DIGCF_ALLCLASSES &&
              kDigcfDeviceInterface == DIGCF_DEVICEINTERFACE && kSpdrpDeviceDesc == SPDRP_DEVICEDESC &&
              kSpdrpService == SPDRP_SERVICE && kSpdrpFriendlyName == SPDRP_FRIENDLYNAME &&
              kDicsFlagGlobal == DICS_FLAG_GLOBAL && kDiregDev == DIREG_DEV && kKeyRead == KEY_READ &&
              kRegSz == REG_SZ);

namespace {

const GUID* Native(const Guid* guid) {
  return reinterpret_cast<const GUID*>(guid);
}
SP_DEVINFO_DATA* Native(DevInfoData* device) {
  return reinterpret_cast<SP_DEVINFO_DATA*>(device);
}
SP_DEVICE_INTERFACE_DATA* Native(DeviceInterfaceData* data) {
  return reinterpret_cast<SP_DEVICE_INTERFACE_DATA*>(data);
}

}  // namespace

DevInfoSet SetupDiGetClassDevsA(const Guid* class_guid, const char* enumerator, Dword flags) {
  return ::SetupDiGetClassDevsA(Native(class_guid), enumerator, nullptr, flags);
}

DevInfoSet SetupDiGetClassDevsW(const Guid* class_guid, const WChar* enumerator, Dword flags) {
  return ::SetupDiGetClassDevsW(Native(class_guid), reinterpret_cast<const wchar_t*>(enumerator), nullptr,
                                flags);
}

bool SetupDiEnumDeviceInterfaces(DevInfoSet set, DevInfoData* device, const Guid* interface_guid, Dword index,
                                 DeviceInterfaceData* interface_data) {
  return ::SetupDiEnumDeviceInterfaces(set, Native(device), Native(interface_guid), index,
                                       Native(interface_data)) != FALSE;
}

bool SetupDiGetDeviceInterfaceDetailA(DevInfoSet set, DeviceInterfaceData* interface_data,
                                      DeviceInterfaceDetailA* detail, Dword detail_size, Dword* required_size,
                                      DevInfoData* device) {
  DWORD required = 0;
  const BOOL ok = ::SetupDiGetDeviceInterfaceDetailA(
      set, Native(interface_data), reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(detail), detail_size,
      &required, Native(device));
  if (required_size != nullptr) *required_size = required;
  return ok != FALSE;
}

bool SetupDiGetDeviceInterfaceDetailW(DevInfoSet set, DeviceInterfaceData* interface_data,
                                      DeviceInterfaceDetailW* detail, Dword detail_size, Dword* required_size,
                                      DevInfoData* device) {
  DWORD required = 0;
  const BOOL ok = ::SetupDiGetDeviceInterfaceDetailW(
      set, Native(interface_data), reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(detail), detail_size,
      &required, Native(device));
  if (required_size != nullptr) *required_size = required;
  return ok != FALSE;
}

bool SetupDiGetDeviceRegistryPropertyA(DevInfoSet set, DevInfoData* device, Dword property, Dword* value_type,
                                       void* buffer, Dword buffer_size, Dword* required_size) {
  DWORD type = 0;
  DWORD required = 0;
  const BOOL ok = ::SetupDiGetDeviceRegistryPropertyA(set, Native(device), property, &type,
                                                      static_cast<BYTE*>(buffer), buffer_size, &required);
  if (value_type != nullptr) *value_type = type;
  if (required_size != nullptr) *required_size = required;
  return ok != FALSE;
}

bool SetupDiGetDeviceInstanceIdA(DevInfoSet set, DevInfoData* device, char* buffer, Dword buffer_size,
                                 Dword* required_size) {
  DWORD required = 0;
  const BOOL ok = ::SetupDiGetDeviceInstanceIdA(set, Native(device), buffer, buffer_size, &required);
  if (required_size != nullptr) *required_size = required;
  return ok != FALSE;
}

RegKey SetupDiOpenDevRegKey(DevInfoSet set, DevInfoData* device, Dword scope, Dword hw_profile,
                            Dword key_type, Dword desired_access) {
  return ::SetupDiOpenDevRegKey(set, Native(device), scope, hw_profile, key_type, desired_access);
}

bool SetupDiDestroyDeviceInfoList(DevInfoSet set) {
  return ::SetupDiDestroyDeviceInfoList(set) != FALSE;
}

Dword RegQueryValueExA(RegKey key, const char* value_name, Dword* value_type, void* data, Dword* data_size) {
  DWORD type = 0;
  DWORD size = data_size != nullptr ? *data_size : 0;
  const LONG status = ::RegQueryValueExA(static_cast<HKEY>(key), value_name, nullptr, &type,
                                         static_cast<BYTE*>(data), data_size != nullptr ? &size : nullptr);
  if (value_type != nullptr) *value_type = type;
  if (data_size != nullptr) *data_size = size;
  return static_cast<Dword>(status);
}

Dword RegCloseKey(RegKey key) {
  return static_cast<Dword>(::RegCloseKey(static_cast<HKEY>(key)));
}

Dword QueryDosDeviceA(const char* device_name, char* target, Dword target_size) {
  return ::QueryDosDeviceA(device_name, target, target_size);
}

bool GetDeviceExtras(DevInfoSet /*set*/, DevInfoData* /*device*/, DeviceExtras* /*extras*/) {
  ::SetLastError(ERROR_NOT_SUPPORTED);
  return false;
}

Module LoadLibraryA(const char* name) {
  return ::LoadLibraryA(name);
}

void* GetProcAddress(Module module, const char* name) {
  return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(module), name));
}

}  // namespace portwren::os
