// The keys of the line itself: D and d raise and drop DTR, U and u raise and drop RTS, B sends a
// break of --hold-break milliseconds. Each shows the modem lines after it.
#pragma once

#include "platform/os_handle.h"

namespace portwren {

void SetDtrKey(os::Handle port);
void ClearDtrKey(os::Handle port);
void SetRtsKey(os::Handle port);
void ClearRtsKey(os::Handle port);
void BreakKey(os::Handle port);

// Their help lines, which follow the others.
void PrintLineKeyHelp();

}  // namespace portwren
