// The keys of the two background threads: E and $ start the comm-event monitor ($ asks what it
// watches first), e stops it, # starts or stops the background reader.
#pragma once

#include "console/main_line.h"

namespace portwren {

// Each returns false when the key brings no prompt.
bool StartMonitorKey(MainLine& line, bool ask);
bool StopMonitorKey(MainLine& line);
bool ReaderKey(MainLine& line);

}  // namespace portwren
