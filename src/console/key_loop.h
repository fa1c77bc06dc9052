// The loop that reads one key at a time and runs the action bound to it, until ESC or X.
#pragma once

#include "console/main_line.h"

namespace portwren {

// Returns when ESC or X closed the port (and after the optional pause before quitting).
void RunKeyLoop(MainLine& line);

void PrintKeyHelp();

}  // namespace portwren
