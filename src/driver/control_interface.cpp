#include "driver/control_interface.h"

#include <cstring>

#include "driver/control_codes.h"
#include "support/handle_holder.h"

namespace portwren {

bool FindInterfacePath(uint32_t index, const os::Guid& guid, const os::WChar* enumerator, bool present_only,
                       os::WChar* path, int32_t capacity, uint32_t* required_chars) {
  if (required_chars != nullptr) *required_chars = 0;
  const DevInfoSetHolder set(os::SetupDiGetClassDevsW(
      &guid, enumerator, os::kDigcfDeviceInterface | (present_only ? os::kDigcfPresent : 0)));
  if (!set) return false;
  os::DeviceInterfaceData data;
  if (!os::SetupDiEnumDeviceInterfaces(set.get(), nullptr, &guid, index, &data)) return false;

  alignas(8) unsigned char storage[260] = {};
  auto* detail = reinterpret_cast<os::DeviceInterfaceDetailW*>(storage);
  detail->cbSize = sizeof(os::DeviceInterfaceDetailW);
  os::Dword required = 0;
  const bool ok =
      os::SetupDiGetDeviceInterfaceDetailW(set.get(), &data, detail, sizeof storage, &required, nullptr);
  if (ok || os::GetLastError() == os::kErrInsufficientBuffer) {
    if (required_chars != nullptr) *required_chars = required / 2;
  }
  if (!ok) return false;
  if (path != nullptr && capacity >= 1) {
    int32_t i = 0;
    for (; i < capacity - 1 && detail->DevicePath[i] != u'\0'; ++i) path[i] = detail->DevicePath[i];
    path[i] = u'\0';
  }
  return true;
}

os::Handle OpenControlInterface(bool writable) {
  os::WChar path[260] = {};
  if (!FindInterfacePath(0, TRELLIS_CONTROL_INTERFACE_GUID, nullptr, true, path, 260, nullptr)) {
    os::SetLastError(os::kErrNotReady);
    return os::kInvalidHandle;
  }
  return os::CreateFileW(path, os::kGenericRead | (writable ? os::kGenericWrite : 0),
                         os::kFileShareRead | os::kFileShareWrite, os::kOpenExisting, 0);
}

}  // namespace portwren
