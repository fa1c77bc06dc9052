#include "console/startup.h"

#include <cstdio>
#include <cstring>

#include "console/command_line.h"
#include "console/run_settings.h"
#include "console/key_loop.h"
#include "console/main_line.h"
#include "console/port_open.h"
#include "console/usage.h"
#include "echo/crc32.h"
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
  BuildCrc32Table();  // echo chunks
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
  if (g_no_port_mode) return 0;

  MainLine line;
  if (!OpenPort(line)) return 1;
  ConfigurePort(line);
  std::printf("Choose action: 'R/r' read, 'W/w' write, '?' help. <ESC> quit.\n");
  RunKeyLoop(line);
  return 0;
}

}  // namespace portwren
