// The VCOM's own state as its driver keeps it: life mode, whether the USB device behind it is
// online and since when, and both device-instance paths.
#pragma once

#include "platform/os_handle.h"

namespace portwren {

// Console-log lines; the failure (on any port that is not a VCOM) as a WinErr report. Called by
// the i key and, from the comm-event monitor's thread, on DSR changes.
void PrintDeviceState(os::Handle port);

}  // namespace portwren
