#include "driver/device_state.h"

#include <cstring>

#include "driver/control_codes.h"
#include "driver/driver_link.h"
#include "driver/driver_records.h"
#include "format/console_log.h"
#include "port/comm_state_report.h"

namespace portwren {

void PrintDeviceState(os::Handle port) {
  LogPrint("IOCTL_VCOM_GetDeviceState query result:");
  VcomDeviceState state;
  std::memset(&state, 0, sizeof state);
  os::Dword returned = 0;
  if (!Driver().SendTo(port, {IOCTL_VCOM_GetDeviceState, nullptr, 0, &state, sizeof state, &returned})) {
    WinErrPrint(0, "IOCTL_VCOM_GetDeviceState fails.");
    return;
  }
  LogPrint("  .lifemode : %s(%d)", LifemodeName(static_cast<uint32_t>(state.lifemode)), state.lifemode);
  LogPrint("  .isUsbdOnline: %s", state.isUsbdOnline != 0 ? "yes" : "no");
  int64_t online = static_cast<int64_t>(state.uemsecUsbdLastOnline);
  int64_t offline = static_cast<int64_t>(state.uemsecUsbdLastOffline);
  FormatCallback stamp;
  LogPrint("  .uemsecUsbdLastOnline : %F", MakeFormatCallback(&stamp, &RenderEpochMs, &online));
  LogPrint("  .uemsecUsbdLastOffline: %F", MakeFormatCallback(&stamp, &RenderEpochMs, &offline));
  char path[260];
  LogPrint("  .szVcomDevinstpath: %s", NarrowField(state.szVcomDevinstpath, 260, path, sizeof path));
  LogPrint("  .szUsbdDevinstpath: %s", NarrowField(state.szUsbdDevinstpath, 260, path, sizeof path));
}

}  // namespace portwren
