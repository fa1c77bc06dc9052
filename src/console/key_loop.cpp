#include "console/key_loop.h"

#include <cstdio>
#include <span>

#include "console/driver_keys.h"
#include "console/echo_keys.h"
#include "console/echo_server_key.h"
#include "console/key_source.h"
#include "console/line_keys.h"
#include "console/monitor_keys.h"
#include "console/timeout_check_key.h"
#include "driver/device_state.h"
#include "format/console_log.h"
#include "platform/os_console.h"
#include "platform/os_file.h"
#include "port/comm_state_report.h"
#include "port/port_config.h"
#include "port/timed_io.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

enum class After { kPrompt, kNextPass, kQuit };

using KeyAction = After (*)(MainLine& line);

struct KeyBinding {
  int key;
  KeyAction action;
};

void ClosePort(MainLine& line) {
  LogTickNow("Calling CloseHandle(0x%p)...", line.port);
  os::CloseHandle(line.port);
  LogTickNow("Done    CloseHandle(0x%p).", line.port);
  line.port = os::kInvalidHandle;
}

After Quit(MainLine& line) {
  ClosePort(line);
  return After::kQuit;
}

// Quits, then opens the port once more on purpose: shows whether the driver let it go.
After QuitAndReopen(MainLine& line) {
  ClosePort(line);
  const os::Handle again = os::CreateFileA(g_dev_open_path, os::kGenericRead | os::kGenericWrite, 0,
                                           os::kOpenExisting, os::kFileFlagOverlapped);
  if (again != os::kInvalidHandle) {
    LogTickNow("CreateFile() again success. Handle=0x%p", again);
    os::CloseHandle(again);
  } else {
    WinErrTick(0, "CreateFile() again in vain.");
  }
  return After::kQuit;
}

After Help(MainLine&) {
  PrintKeyHelp();
  return After::kPrompt;
}

After ReadPreset(MainLine& line) {
  TimedRead(line.port, g_bytes_to_rw);
  return After::kPrompt;
}

After ReadCustom(MainLine& line) {
  TimedRead(line.port, AskCount(true));
  return After::kPrompt;
}

After WritePreset(MainLine& line) {
  TimedWrite(line.port, g_bytes_to_rw);
  return After::kPrompt;
}

After WriteCustom(MainLine& line) {
  TimedWrite(line.port, AskCount(false));
  return After::kPrompt;
}

After ReportState(MainLine& line) {
  PrintCommState(line.port);
  PrintDeviceState(line.port);
  return After::kPrompt;
}

After PurgeWithAbort(MainLine& line) {
  Purge(line.port, true);
  return After::kPrompt;
}

After PurgeClearOnly(MainLine& line) {
  Purge(line.port, false);
  return After::kPrompt;
}

After CtsFlowOn(MainLine& line) {
  SetCtsFlow(line.port, true);
  return After::kPrompt;
}

After CtsFlowOff(MainLine& line) {
  SetCtsFlow(line.port, false);
  return After::kPrompt;
}

After ClearPort(MainLine& line) {
  LogStampMs("Clearing COM port(dry read timeout %dms)...", g_clear_comport_msec);
  MyClearCommData(line.port, static_cast<uint32_t>(g_clear_comport_msec), true);
  LogStampMs("COM port cleared.");
  return After::kPrompt;
}

After BufferCounts(MainLine& line) {
  ReportClearCommError(line.port);
  return After::kPrompt;
}

After MonitorStart(MainLine& line) {
  return StartMonitorKey(line, false) ? After::kPrompt : After::kNextPass;
}
After MonitorStartAsking(MainLine& line) {
  return StartMonitorKey(line, true) ? After::kPrompt : After::kNextPass;
}
After MonitorStop(MainLine& line) {
  return StopMonitorKey(line) ? After::kPrompt : After::kNextPass;
}
After ReaderToggle(MainLine& line) {
  return ReaderKey(line) ? After::kPrompt : After::kNextPass;
}
After EchoServer(MainLine& line) {
  return EchoServerKey(line) ? After::kPrompt : After::kNextPass;
}

After TimeoutCheck(MainLine& line) {
  RunTimeoutCheckKey(line);
  return After::kPrompt;
}

template <bool kMild>
After EchoClient(MainLine& line) {
  return RunEchoClientKey(line, kMild) ? After::kPrompt : After::kNextPass;
}

// A key that acts on the port alone and always brings the prompt.
template <void (*kRun)(os::Handle)>
After PortKey(MainLine& line) {
  kRun(line.port);
  return After::kPrompt;
}

constexpr KeyBinding kKeyTable[] = {
    {os::kKeyEsc, &Quit},      {'X', &QuitAndReopen},      {'?', &Help},        {'r', &ReadPreset},
    {'R', &ReadCustom},        {'w', &WritePreset},        {'W', &WriteCustom}, {'i', &ReportState},
    {'P', &PurgeWithAbort},    {'p', &PurgeClearOnly},     {'F', &CtsFlowOn},   {'f', &CtsFlowOff},
    {'C', &EchoClient<false>}, {'c', &EchoClient<true>},   {'0', &ClearPort},   {'q', &BufferCounts},
    {'E', &MonitorStart},      {'$', &MonitorStartAsking}, {'e', &MonitorStop}, {'#', &ReaderToggle},
    {'S', &EchoServer},
};

// Later additions: keys the table above leaves free.
constexpr KeyBinding kAddedKeyTable[] = {
    {'D', &PortKey<&SetDtrKey>},   {'d', &PortKey<&ClearDtrKey>}, {'U', &PortKey<&SetRtsKey>},
    {'u', &PortKey<&ClearRtsKey>}, {'B', &PortKey<&BreakKey>},    {'T', &TimeoutCheck},
};

After Dispatch(MainLine& line, int key) {
  using Table = std::span<const KeyBinding>;
  for (const Table table : {Table(kKeyTable), Table(kAddedKeyTable)}) {
    for (const KeyBinding& binding : table) {
      if (binding.key == key) return binding.action(line);
    }
  }
  RunDriverKey(line.port, key);  // any other key only brings the prompt
  return After::kPrompt;
}

}  // namespace

void PrintKeyHelp() {
  static const char* const kLines[] = {
      "Single-char op help:",
      " 0 : Clear VCOM input buffer with actual VCOM read.",
      " q : Check VCOM input/output buffer bytes with ClearCommError().",
      " r : Do a ReadFile() with preset bytes(-b xxx).",
      " w : Do a WriteFile() with preset bytes(-b xxx).",
      " W : Do a WriteFile() with custom bytes.",
      " P : PurgeComm() with PURGE_RXCLEAR|PURGE_TXCLEAR|PURGE_TXABORT|PURGE_RXABORT",
      " p : PurgeComm() with PURGE_RXCLEAR|PURGE_TXCLEAR",
      " F : Enable CTS output-flow control.",
      " f : Disable CTS output-flow control.",
      " i : Print GetCommState() and GetCommModemStatus() information.",
      " E : Start background WaitCommEvent() thread. ($ do verbose)",
      " e : Stop background WaitCommEvent() thread.",
      " C : Start echo client(Urge mode).",
      " c : Start echo client(Mild mode).",
      " S : Start echo server.",
      " @ : Vbus write test. Expect to fail with non-Administrator. (! for read test)",
      " # : Start/Stop background read-COM thread, so you can do R/W simultaneously.",
      " < > | : Enable/Disable/Query VCOM one-time temporal lifemode.",
      " X : Quit portwren and do a deliberate CreateFile().",
  };
  for (const char* text : kLines) std::printf("%s\n", text);
  // Later additions, after every line above.
  PrintLineKeyHelp();
  std::printf(" T : Timeout conformance check on a loopback (each read/write timeout rule, PASS/FAIL).\n");
}

void RunKeyLoop(MainLine& line) {
  KeySource keys(g_first_keys);
  for (;;) {
    const int key = keys.Next();
    if (key < 0) continue;
    const After after = Dispatch(line, key);
    if (after == After::kQuit) break;
    if (after == After::kNextPass) continue;
    ++line.prompt_count;
    std::printf("\n{%d}Again? 'R/r' read, 'W/r' write. More: 0,X,i,P,p,F,f,E,e,C,c,S,#,?\n",
                line.prompt_count);
  }
  if (g_pause_before_quit) {
    std::printf("\n====== PROGRAM DONE. PRESS A KEY TO QUIT ======\n");
    os::GetKey();
  }
}

}  // namespace portwren
