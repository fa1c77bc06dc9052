#include "driver/driver_requests.h"

#include <cstring>
#include <vector>

#include "driver/control_codes.h"
#include "driver/driver_link.h"
#include "platform/os_text.h"

namespace portwren {

uint32_t SendBusRequest(bool read_only, uint32_t code, const void* in, uint32_t in_size, void* out,
                        uint32_t out_size, uint32_t* bytes_returned) {
  os::Dword local = 0;
  const ControlRequest request{code, in,       in_size,
                               out,  out_size, bytes_returned != nullptr ? bytes_returned : &local};
  bool opened = false;
  if (Driver().Send(read_only ? DriverTarget::kBusReadOnly : DriverTarget::kBusReadWrite, request, &opened)) {
    return 0;
  }
  return opened ? os::GetLastError() : os::kErrDeviceNotConnected;
}

uint32_t GetKernelVersion(uint32_t* error) {
  KernelVersionInfo info;
  std::memset(&info, 0, sizeof info);
  os::Dword returned = 0;
  const ControlRequest request{IOCTL_TRELLIS_GetKernelVersion, nullptr, 0, &info, sizeof info, &returned};
  bool opened = false;
  const bool ok = Driver().Send(DriverTarget::kControl, request, &opened);
  if (error != nullptr) *error = ok ? 0 : os::GetLastError();
  return ok ? PackKernelVersion(info) : 0;
}

UsbdPathStatus GetUsbdDevinstPath(const char16_t* vcom_instance_id, char16_t* out, int32_t capacity,
                                  uint32_t* out_chars) {
  const size_t length = std::char_traits<char16_t>::length(vcom_instance_id);
  os::Dword returned = 0;
  const ControlRequest request{IOCTL_TRELLIS_GetUsbdDevinstPath,
                               vcom_instance_id,
                               static_cast<os::Dword>((length + 1) * 2),
                               out,
                               static_cast<os::Dword>(capacity > 0 ? capacity : 0) * 2,
                               &returned};
  bool opened = false;
  if (Driver().Send(DriverTarget::kControl, request, &opened)) {
    if (out_chars != nullptr) *out_chars = returned / 2;
    return kUsbdPathOk;
  }
  if (!opened) return kUsbdPathNoControl;
  const os::Dword error = os::GetLastError();
  if (out_chars != nullptr) *out_chars = 1000;
  if (error == os::kErrDeviceNotConnected) return kUsbdPathOffline;
  if (error == os::kErrInsufficientBuffer) return kUsbdPathTooSmall;
  return kUsbdPathFailed;
}

UsbdPathStatus GetUsbdDevinstPathA(const char* vcom_instance_id, char* out, uint32_t capacity,
                                   uint32_t* out_chars) {
  const char* id = vcom_instance_id != nullptr ? vcom_instance_id : "";
  const int id_units = os::MultiByteToWideChar(id, -1, nullptr, 0);
  std::vector<char16_t> wide_id(static_cast<size_t>(id_units > 0 ? id_units : 1), u'\0');
  if (id_units > 0) os::MultiByteToWideChar(id, -1, wide_id.data(), id_units);
  const size_t units = capacity > 0 ? capacity : 1;
  std::vector<char16_t> wide_out(units, u'\0');
  const UsbdPathStatus status =
      GetUsbdDevinstPath(wide_id.data(), wide_out.data(), static_cast<int32_t>(units), out_chars);
  if (capacity > 0) NarrowField(wide_out.data(), units, out, capacity);
  return status;
}

uint32_t QueryVcomFdoPdo(const VcomFdoPdoQuery& query, VcomFdoPdoInfo* info, uint32_t* bytes_returned) {
  return SendBusRequest(BusOpensReadOnly(IOCTL_TRELLIS_QueryVcomFdoPdo), IOCTL_TRELLIS_QueryVcomFdoPdo,
                        &query, sizeof query, info, sizeof *info, bytes_returned);
}

}  // namespace portwren
