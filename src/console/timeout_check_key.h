// The T key and --timeout-check: the timeout conformance check on the open port. Each rule's
// result is a JSON line for --json-results, and a FAIL is a failed run for --nonzero-on-fail.
#pragma once

#include "console/main_line.h"

namespace portwren {

// A port the check cannot use (Datapipe, read-only, its input taken by a background thread) is
// refused with a line saying why, and that counts as a failed run.
void RunTimeoutCheckKey(MainLine& line);

}  // namespace portwren
