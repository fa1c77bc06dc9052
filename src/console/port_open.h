// Opening the one port at start-up, the settings summary and the read log.
#pragma once

#include "console/main_line.h"

namespace portwren {

// Opens g_dev_open_path for overlapped I/O (read-only when only that is allowed), prints the
// summary and opens the read log. False when the port could not be opened (already reported).
bool OpenPort(MainLine& line);

// Timeouts, baud rate and framing, queue sizes.
void ConfigurePort(MainLine& line);

}  // namespace portwren
