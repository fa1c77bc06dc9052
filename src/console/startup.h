// The program's main line: start-up in its fixed order, then the work the command line asks for.
#pragma once

namespace portwren {

// Returns the process exit code: 0 normal end, 1 usage shown or command line refused.
int RunProgram(int argc, char** argv);

}  // namespace portwren
