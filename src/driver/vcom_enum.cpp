#include "driver/vcom_enum.h"

#include <cstdio>
#include <cstring>

#include "driver/driver_link.h"
#include "driver/driver_requests.h"
#include "driver/vcom_listing.h"
#include "driver/vcom_symlink.h"
#include "format/format.h"
#include "platform/os_console.h"
#include "platform/os_device_enum.h"
#include "support/handle_holder.h"

namespace portwren {

namespace {

std::optional<std::string> Property(os::DevInfoSet set, os::DevInfoData* device, os::Dword property,
                                    os::Dword size) {
  char buffer[260] = {};
  if (!os::SetupDiGetDeviceRegistryPropertyA(set, device, property, nullptr, buffer, size, nullptr)) {
    return std::nullopt;
  }
  buffer[size - 1] = '\0';
  return std::string(buffer);
}

// The "PortName" value of the device's hardware key, grown until it fits.
bool HasPortName(os::DevInfoSet set, os::DevInfoData* device) {
  const RegKeyHolder key(
      os::SetupDiOpenDevRegKey(set, device, os::kDicsFlagGlobal, 0, os::kDiregDev, os::kKeyRead));
  if (!key) return false;
  std::vector<char> value(8);
  for (;;) {
    os::Dword type = 0;
    os::Dword size = static_cast<os::Dword>(value.size());
    const os::Dword status = os::RegQueryValueExA(key.get(), "PortName", &type, value.data(), &size);
    if (status == os::kErrMoreData && size > value.size()) {
      value.resize(size);
      continue;
    }
    return status == os::kErrSuccess && type == os::kRegSz;
  }
}

// Everything the listing says about one interface; fills the record's ID and ownership.
PortFacts FetchPortFacts(os::DevInfoSet set, os::DeviceInterfaceData* data, VcomRecord* record) {
  PortFacts facts;
  alignas(8) unsigned char storage[260] = {};
  auto* detail = reinterpret_cast<os::DeviceInterfaceDetailA*>(storage);
  detail->cbSize = sizeof(os::DeviceInterfaceDetailA);
  os::DevInfoData device;
  if (!os::SetupDiGetDeviceInterfaceDetailA(set, data, detail, sizeof storage, nullptr, &device))
    return facts;
  facts.detail_ok = true;
  storage[sizeof storage - 1] = 0;
  facts.open_path = detail->DevicePath;

  facts.friendly_name = Property(set, &device, os::kSpdrpFriendlyName, 260);
  facts.description = Property(set, &device, os::kSpdrpDeviceDesc, 260);
  facts.has_port_name = HasPortName(set, &device);
  facts.service = Property(set, &device, os::kSpdrpService, 40);
  record->isOurs = facts.service && IsOurService(*facts.service) ? 1 : 0;

  if (os::SetupDiGetDeviceInstanceIdA(set, &device, record->devinstId, sizeof record->devinstId, nullptr)) {
    record->devinstId[sizeof record->devinstId - 1] = '\0';
    facts.instance_id = record->devinstId;
  }
  char usbd[260] = {};
  if (GetUsbdDevinstPathA(record->devinstId, usbd, sizeof usbd, nullptr) == kUsbdPathOk) {
    facts.hardware_path = usbd;
  }
  // Where no driver package answers for the device, the system may know its hardware itself.
  os::DeviceExtras extras;
  if (os::GetDeviceExtras(set, &device, &extras)) {
    if (!facts.hardware_path && !extras.hardware_path.empty()) facts.hardware_path = extras.hardware_path;
    facts.extra_lines = std::move(extras.lines);
  }
  return facts;
}

void OfferPropertyDialog(VcomRecordList& list, AnswerReader read_answer) {
  std::printf("%s", DialogQuestion(list.count()).c_str());
  std::fflush(stdout);
  char answer[8] = {};
  if (!read_answer(answer, sizeof answer)) return;
  if (const int chosen = DialogChoice(answer, list.count()); chosen > 0) {
    ShowDeviceProperties(list.At(chosen - 1)->devinstId);
  }
}

}  // namespace

void EnumerateVcoms(VcomRecordList& list, bool print, bool offer_dialog, AnswerReader read_answer) {
  SetListingPrinted(print);
  const DevInfoSetHolder set(os::SetupDiGetClassDevsA(&os::kGuidDevInterfaceComPort, nullptr,
                                                      os::kDigcfPresent | os::kDigcfDeviceInterface));
  int32_t found = 0;
  for (os::Dword index = 0; set; ++index) {
    os::DeviceInterfaceData data;
    if (!os::SetupDiEnumDeviceInterfaces(set.get(), nullptr, &os::kGuidDevInterfaceComPort, index, &data))
      break;
    found = static_cast<int32_t>(index) + 1;
    list.Resize(found, true);
    VcomRecord* record = list.At(found - 1);
    PrintPortBlock(found, FetchPortFacts(set.get(), &data, record));
    if (record->isOurs != 0) CheckVcomSymlink(record);
  }
  PrintListingTotal(found);
  if (found >= 1 && print && offer_dialog)
    OfferPropertyDialog(list, read_answer != nullptr ? read_answer : &os::ReadLine);
}

bool ShowDeviceProperties(const char* devinst_id) {
  char command_line[260];
  FormatToBuffer(command_line, sizeof command_line, "/DeviceID %s", devinst_id);
  return Driver().RunDevicePropertiesDialog(command_line);
}

}  // namespace portwren
