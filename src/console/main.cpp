#include "console/startup.h"
#include "platform/os_console.h"

int main(int argc, char** argv) {
  // Before anything is opened: a port must not land on a closed standard stream.
  if (!portwren::os::OccupyClosedStandardStreams()) return 1;
  return portwren::RunProgram(argc, argv);
}
