// The program's main line: start-up in its fixed order, then the work the command line asks for.
#pragma once

namespace portwren {

// Returns the process exit code: 0 normal end, 1 usage shown, command line refused or port not
// opened, 2 the driver's request codes disagree with this build's.
int RunProgram(int argc, char** argv);

}  // namespace portwren
