#include "console/startup.h"

#include <cstdio>
#include <cstring>

#include "console/command_line.h"
#include "console/usage.h"
#include "format/format.h"
#include "format/thread_mark.h"

namespace portwren {

namespace {
constexpr int kVersionMajor = 1;
constexpr int kVersionMinor = 7;
constexpr int kVersionPatch = 8;

bool WantsUsage(int argc, char** argv) {
  return argc < 2 || (argc == 2 && std::strcmp(argv[1], "-h") == 0);
}
}  // namespace

int RunProgram(int argc, char** argv) {
  std::printf("Portwren version %d.%d.%d, compiled on %s %s\n", kVersionMajor, kVersionMinor, kVersionPatch,
              __DATE__, __TIME__);
  // Driver kernel version; the request-definition check ends the program with 2 when it fails.
  // CRC-32 table of the echo chunks.
  SetFormatLineEnd(1);                // CR LF between dump rows, as on the console
  RegisterThread(ThreadRole::kMain);  // main-thread mark

  if (WantsUsage(argc, argv)) {
    PrintUsage();
    return 1;
  }
  if (!ParseCommandLine(argc, argv)) {
    std::printf("\nUse option -h to display parameter help.\n");
    return 1;
  }

  // Enumerate the VCOMs (printed only when listing was asked for).
  // Unplug all VCOMs, reinstall the VBUS.
  // Without a port: end here.
  // Open the port (read-only retry), settings summary, read log.
  // Timeouts, baud rate and framing, queue sizes; then the key loop.
  return 0;
}

}  // namespace portwren
