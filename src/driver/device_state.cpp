#include "driver/device_state.h"

#include <cstdint>

#include "format/console_log.h"
#include "platform/os_device_control.h"

namespace portwren {

namespace {
constexpr os::Dword kDeviceStateBytes = 1072;
}  // namespace

void PrintDeviceState(os::Handle vcom) {
  LogPrint("IOCTL_VCOM_GetDeviceState query result:");
  uint8_t state[kDeviceStateBytes] = {};
  os::Dword returned = 0;
  const bool ok = os::DeviceIoControl(vcom, kIoctlVcomGetDeviceState, nullptr, 0, state, sizeof state,
                                      &returned, nullptr);
  WinErrPrint(ok, "IOCTL_VCOM_GetDeviceState fails.");
  // The record's fields are printed by the driver interface once it decodes them.
}

}  // namespace portwren
