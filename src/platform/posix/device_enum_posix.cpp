#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstddef>
#include <cstring>
#include <map>

#include "platform/os_device_enum.h"
#include "platform/posix/device_source.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/kernel_object.h"
#include "platform/posix/text_utf.h"

namespace portwren::os::posix {

namespace {

constexpr Dword kErrInvalidUserBuffer = 1784;
constexpr Dword kErrModNotFound = 126;
constexpr Dword kInterfaceActive = 1;  // SPINT_ACTIVE
// GUID_DEVCLASS_PORTS {4D36E978-E325-11CE-BFC1-08002BE10318}.
constexpr Guid kPortsClass = {0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

std::atomic<DeviceSource> g_source{nullptr};

class DeviceSet : public KernelObject {
 public:
  explicit DeviceSet(std::vector<DeviceEntry> entries) : entries_(std::move(entries)) {}
  const std::vector<DeviceEntry>& entries() const { return entries_; }

 private:
  const std::vector<DeviceEntry> entries_;
};

class DeviceKey : public KernelObject {
 public:
  std::map<std::string, std::string> values;
};

bool StartsWithIgnoringCase(const std::string& text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) !=
        std::tolower(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

DevInfoSet MakeSet(const Guid* class_guid, const std::string* enumerator, Dword flags) {
  const DeviceSource source = g_source.load();
  std::vector<DeviceEntry> entries = source != nullptr ? source() : SystemDevices();
  const bool by_class = class_guid != nullptr && (flags & kDigcfAllClasses) == 0;
  std::erase_if(entries, [&](const DeviceEntry& entry) {
    if (by_class && !(entry.interface_class == *class_guid)) return true;
    return enumerator != nullptr && !StartsWithIgnoringCase(entry.instance_id, *enumerator + "\\");
  });
  Handle handle = InsertObject(std::make_shared<DeviceSet>(std::move(entries)));
  if (handle == nullptr) {
    SetLastError(kErrNotEnoughMemory);
    return kInvalidHandle;
  }
  return handle;
}

// The entry an interface or device record names (its Reserved word is the index + 1).
const DeviceEntry* EntryOf(const DeviceSet& set, uintptr_t reserved) {
  if (reserved == 0 || reserved > set.entries().size()) return nullptr;
  return &set.entries()[reserved - 1];
}

bool FillDevice(DevInfoData* device, uintptr_t reserved) {
  if (device == nullptr) return true;
  if (device->cbSize != sizeof(DevInfoData)) return Fail(kErrInvalidUserBuffer);
  device->ClassGuid = kPortsClass;
  device->DevInst = static_cast<Dword>(reserved);
  device->Reserved = reserved;
  return true;
}

// The set and the entry of a device record; false with the last error set.
bool Resolve(DevInfoSet set_handle, const DevInfoData* device, std::shared_ptr<DeviceSet>* set,
             const DeviceEntry** entry) {
  *set = Lookup<DeviceSet>(set_handle);
  if (*set == nullptr) return Fail(kErrInvalidHandle);
  if (device == nullptr || device->cbSize != sizeof(DevInfoData)) return Fail(kErrInvalidParameter);
  *entry = EntryOf(**set, device->Reserved);
  return *entry != nullptr ? true : Fail(kErrInvalidParameter);
}

// Copies text with its NUL into a caller's buffer of size bytes, SetupDi style.
bool CopyOut(const void* text, Dword bytes, void* buffer, Dword size, Dword* required) {
  if (required != nullptr) *required = bytes;
  if (buffer == nullptr || size < bytes) return Fail(kErrInsufficientBuffer);
  std::memcpy(buffer, text, bytes);
  return true;
}

template <typename Detail, typename Text>
bool InterfaceDetail(DeviceInterfaceData* interface_data, Detail* detail, Dword detail_size,
                     Dword* required_size, DevInfoData* device, const Text& path) {
  constexpr Dword kHead = offsetof(Detail, DevicePath);
  const Dword bytes = static_cast<Dword>((path.size() + 1) * sizeof(path[0]));
  if (required_size != nullptr) *required_size = kHead + bytes;
  if (detail != nullptr && detail->cbSize != sizeof(Detail)) return Fail(kErrInvalidUserBuffer);
  if (detail == nullptr || detail_size < kHead + bytes) return Fail(kErrInsufficientBuffer);
  std::memcpy(detail->DevicePath, path.c_str(), bytes);
  return FillDevice(device, interface_data->Reserved);
}

bool CheckInterface(DevInfoSet set_handle, DeviceInterfaceData* interface_data,
                    std::shared_ptr<DeviceSet>* set, const DeviceEntry** entry) {
  *set = Lookup<DeviceSet>(set_handle);
  if (*set == nullptr) return Fail(kErrInvalidHandle);
  if (interface_data == nullptr || interface_data->cbSize != sizeof(DeviceInterfaceData)) {
    return Fail(kErrInvalidUserBuffer);
  }
  *entry = EntryOf(**set, interface_data->Reserved);
  return *entry != nullptr ? true : Fail(kErrInvalidParameter);
}

}  // namespace

void SetDeviceSource(DeviceSource source) {
  g_source.store(source);
}

}  // namespace portwren::os::posix

namespace portwren::os {

using namespace posix;

DevInfoSet SetupDiGetClassDevsA(const Guid* class_guid, const char* enumerator, Dword flags) {
  if (enumerator == nullptr) return MakeSet(class_guid, nullptr, flags);
  const std::string text(enumerator);
  return MakeSet(class_guid, &text, flags);
}

DevInfoSet SetupDiGetClassDevsW(const Guid* class_guid, const WChar* enumerator, Dword flags) {
  if (enumerator == nullptr) return MakeSet(class_guid, nullptr, flags);
  std::string text;
  if (!Utf16ToUtf8(enumerator, &text)) {
    SetLastError(kErrInvalidParameter);
    return kInvalidHandle;
  }
  return MakeSet(class_guid, &text, flags);
}

bool SetupDiEnumDeviceInterfaces(DevInfoSet set_handle, DevInfoData* device, const Guid* interface_guid,
                                 Dword index, DeviceInterfaceData* interface_data) {
  auto set = Lookup<DeviceSet>(set_handle);
  if (set == nullptr) return Fail(kErrInvalidHandle);
  if (interface_guid == nullptr) return Fail(kErrInvalidParameter);
  if (interface_data == nullptr || interface_data->cbSize != sizeof(DeviceInterfaceData)) {
    return Fail(kErrInvalidUserBuffer);
  }
  Dword seen = 0;
  for (size_t i = 0; i < set->entries().size(); ++i) {
    const DeviceEntry& entry = set->entries()[i];
    if (!(entry.interface_class == *interface_guid)) continue;
    if (device != nullptr && device->Reserved != i + 1) continue;
    if (seen++ != index) continue;
    interface_data->InterfaceClassGuid = entry.interface_class;
    interface_data->Flags = kInterfaceActive;
    interface_data->Reserved = i + 1;
    return true;
  }
  return Fail(kErrNoMoreItems);
}

bool SetupDiGetDeviceInterfaceDetailA(DevInfoSet set_handle, DeviceInterfaceData* interface_data,
                                      DeviceInterfaceDetailA* detail, Dword detail_size, Dword* required_size,
                                      DevInfoData* device) {
  std::shared_ptr<DeviceSet> set;
  const DeviceEntry* entry = nullptr;
  if (!CheckInterface(set_handle, interface_data, &set, &entry)) return false;
  return InterfaceDetail(interface_data, detail, detail_size, required_size, device, entry->interface_path);
}

bool SetupDiGetDeviceInterfaceDetailW(DevInfoSet set_handle, DeviceInterfaceData* interface_data,
                                      DeviceInterfaceDetailW* detail, Dword detail_size, Dword* required_size,
                                      DevInfoData* device) {
  std::shared_ptr<DeviceSet> set;
  const DeviceEntry* entry = nullptr;
  if (!CheckInterface(set_handle, interface_data, &set, &entry)) return false;
  std::u16string path;
  if (!Utf8ToUtf16(entry->interface_path, &path)) return Fail(kErrInvalidData);
  return InterfaceDetail(interface_data, detail, detail_size, required_size, device, path);
}

bool SetupDiGetDeviceRegistryPropertyA(DevInfoSet set_handle, DevInfoData* device, Dword property,
                                       Dword* value_type, void* buffer, Dword buffer_size,
                                       Dword* required_size) {
  std::shared_ptr<DeviceSet> set;
  const DeviceEntry* entry = nullptr;
  if (!Resolve(set_handle, device, &set, &entry)) return false;
  const std::string* value;
  switch (property) {
    case kSpdrpFriendlyName:
      value = &entry->friendly_name;
      break;
    case kSpdrpDeviceDesc:
      value = &entry->description;
      break;
    case kSpdrpService:
      value = &entry->service;
      break;
    default:
      return Fail(kErrInvalidData);
  }
  if (value->empty()) return Fail(kErrInvalidData);  // what SetupDi says of a missing property
  if (value_type != nullptr) *value_type = kRegSz;
  return CopyOut(value->c_str(), static_cast<Dword>(value->size() + 1), buffer, buffer_size, required_size);
}

bool SetupDiGetDeviceInstanceIdA(DevInfoSet set_handle, DevInfoData* device, char* buffer, Dword buffer_size,
                                 Dword* required_size) {
  std::shared_ptr<DeviceSet> set;
  const DeviceEntry* entry = nullptr;
  if (!Resolve(set_handle, device, &set, &entry)) return false;
  return CopyOut(entry->instance_id.c_str(), static_cast<Dword>(entry->instance_id.size() + 1), buffer,
                 buffer_size, required_size);
}

RegKey SetupDiOpenDevRegKey(DevInfoSet set_handle, DevInfoData* device, Dword /*scope*/, Dword /*hw_profile*/,
                            Dword /*key_type*/, Dword /*desired_access*/) {
  std::shared_ptr<DeviceSet> set;
  const DeviceEntry* entry = nullptr;
  if (!Resolve(set_handle, device, &set, &entry)) return kInvalidHandle;
  auto key = std::make_shared<DeviceKey>();
  if (!entry->port_name.empty()) key->values["PortName"] = entry->port_name;
  Handle handle = InsertObject(std::move(key));
  if (handle == nullptr) {
    SetLastError(kErrNotEnoughMemory);
    return kInvalidHandle;
  }
  return handle;
}

bool SetupDiDestroyDeviceInfoList(DevInfoSet set) {
  if (Lookup<DeviceSet>(set) == nullptr) return Fail(kErrInvalidHandle);
  RemoveObject(set);
  return true;
}

Dword RegQueryValueExA(RegKey key_handle, const char* value_name, Dword* value_type, void* data,
                       Dword* data_size) {
  auto key = Lookup<DeviceKey>(key_handle);
  if (key == nullptr) return kErrInvalidHandle;
  const auto found = key->values.find(value_name != nullptr ? value_name : "");
  if (found == key->values.end()) return kErrFileNotFound;
  const Dword bytes = static_cast<Dword>(found->second.size() + 1);
  if (value_type != nullptr) *value_type = kRegSz;
  if (data == nullptr) {
    if (data_size != nullptr) *data_size = bytes;
    return kErrSuccess;
  }
  if (data_size == nullptr) return kErrInvalidParameter;
  if (*data_size < bytes) {
    *data_size = bytes;
    return kErrMoreData;
  }
  std::memcpy(data, found->second.c_str(), bytes);
  *data_size = bytes;
  return kErrSuccess;
}

Dword RegCloseKey(RegKey key) {
  if (Lookup<DeviceKey>(key) == nullptr) return kErrInvalidHandle;
  RemoveObject(key);
  return kErrSuccess;
}

Dword QueryDosDeviceA(const char* /*device_name*/, char* /*target*/, Dword /*target_size*/) {
  // No DOS device names here.
  SetLastError(kErrFileNotFound);
  return 0;
}

bool GetDeviceExtras(DevInfoSet set_handle, DevInfoData* device, DeviceExtras* extras) {
  std::shared_ptr<DeviceSet> set;
  const DeviceEntry* entry = nullptr;
  if (!Resolve(set_handle, device, &set, &entry)) return false;
  if (extras == nullptr) return Fail(kErrInvalidParameter);
  extras->hardware_path = entry->hardware_path;
  extras->lines = entry->extra_lines;
  return true;
}

// No Windows libraries here: the property dialog is never found.
Module LoadLibraryA(const char* /*name*/) {
  SetLastError(kErrModNotFound);
  return nullptr;
}

void* GetProcAddress(Module /*module*/, const char* /*name*/) {
  SetLastError(kErrInvalidHandle);
  return nullptr;
}

}  // namespace portwren::os
