// The driver requests behind the keys < > | (to the open VCOM) and ! @ (to the bus), each
// reported on a console-log line: success, or the failure with its WinErr.
#pragma once

#include "platform/os_handle.h"

namespace portwren {

void EnableOneTimeTemporalLifemode(os::Handle vcom);
void DisableOneTimeTemporalLifemode(os::Handle vcom);
// Also prints whether the one-time temporal life mode is on.
void QueryOneTimeTemporalLifemode(os::Handle vcom);

// The read test opens the bus read-only; the write test needs it writable (administrators).
void VbusReadTest();
void VbusWriteTest();

}  // namespace portwren
