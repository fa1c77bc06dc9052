// Setting up the open port and the buffer reports: timeouts from the run settings, baud rate
// and framing, CTS output flow control, purges, emptying the input by dry reads, and the
// ClearCommError report.
#pragma once

#include <cstdint>

#include "platform/os_handle.h"

namespace portwren {

// The configured read and write timeouts (-1 settings go in as MAXDWORD).
void ApplyTimeouts(os::Handle port);
// The rate with 8 data bits, no parity, one stop bit; the rest of the settings as they were.
void MySetBaudrate(os::Handle port, int32_t rate);
void SetCtsFlow(os::Handle port, bool on);
// Clears both queues; with_abort also ends the running reads and writes.
void Purge(os::Handle port, bool with_abort);
// Reads until a read comes back empty, each waiting at most ms for its first byte, then puts
// the port's timeouts back. Report lines carry millisecond stamps when ms_stamps is on.
void MyClearCommData(os::Handle port, uint32_t ms, bool ms_stamps);
// Queue counts and any line errors, which the call clears.
void ReportClearCommError(os::Handle port);

}  // namespace portwren
