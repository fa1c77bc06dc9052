// Key S: the echo server on the open port, with its logs when asked for.
#pragma once

#include "console/main_line.h"

namespace portwren {

// False when the server did not run and the loop goes on without a prompt.
bool EchoServerKey(MainLine& line);

}  // namespace portwren
