#include "console/startup.h"

#include <cstdio>
#include <cstring>

#include "console/command_line.h"
#include "console/key_loop.h"
#include "console/main_line.h"
#include "console/port_open.h"
#include "console/session_results.h"
#include "console/timeout_check_key.h"
#include "console/usage.h"
#include "driver/driver_startup.h"
#include "driver/vcom_enum.h"
#include "echo/crc32.h"
#include "format/format.h"
#include "format/thread_mark.h"
#include "support/run_settings.h"

namespace portwren {

namespace {
bool WantsUsage(int argc, char** argv) {
  return argc < 2 || (argc == 2 && std::strcmp(argv[1], "-h") == 0);
}
}  // namespace

int RunProgram(int argc, char** argv) {
  std::printf("Portwren version %s, compiled on %s %s\n", PORTWREN_VERSION_STRING, __DATE__, __TIME__);
  PrintKernelVersion();
  if (!CheckRequestDefinitions()) return 2;
  BuildCrc32Table();                  // echo chunks
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

  // Every start checks the VCOMs' links; the listing itself only when asked for.
  VcomRecordList vcoms;
  EnumerateVcoms(vcoms, g_list_vcoms, g_list_offer_dialog);
  if (g_unplug_vcoms) UnplugAllVcoms();
  if (g_vbus_reinstall) ReinstallVbus();
  if (g_no_port_mode) return 0;

  MainLine line;
  if (!OpenPort(line)) return 1;
  BeginSession();
  ConfigurePort(line);
  std::printf("Choose action: 'R/r' read, 'W/w' write, '?' help. <ESC> quit.\n");
  if (g_timeout_check) RunTimeoutCheckKey(line);
  RunKeyLoop(line);
  return EndSession(0);
}

}  // namespace portwren
