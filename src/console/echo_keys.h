// The C and c keys: the echo client in urge or mild mode, with its logs.
#pragma once

#include "console/main_line.h"

namespace portwren {

// False when an echo log could not be opened: nothing ran and no prompt follows.
bool RunEchoClientKey(MainLine& line, bool mild);

}  // namespace portwren
