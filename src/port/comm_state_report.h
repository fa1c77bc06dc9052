// The i key's report of the port: every DCB field by name and the modem lines, with the
// small tables that turn DCB values into names.
#pragma once

#include <cstdint>

#include "platform/os_handle.h"

namespace portwren {

// The DCB and the modem lines, each whatever happened to the other; the device state follows.
void PrintCommState(os::Handle port);
// The modem-line part of that report: the lines, or the failure of GetCommModemStatus.
void PrintModemLines(os::Handle port);

// "CTS on,DSR off" and, when full, " DCD off,RING off" after it. The text lives in a buffer
// of the calling thread, rewritten by its next call.
const char* ModemLinesText(uint32_t status, bool full);

// Each gives "WrongValue" for a value it has no name for.
const char* YesNo(uint32_t value);
const char* DtrControlName(uint32_t value);
const char* RtsControlName(uint32_t value);
// Even parity (2) has no name here and shows as WrongValue.
const char* ParityName(uint32_t value);
const char* StopBitsName(uint32_t value);
const char* LifemodeName(uint32_t index);

}  // namespace portwren
