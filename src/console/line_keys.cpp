#include "console/line_keys.h"

#include <cstdio>

#include "format/console_log.h"
#include "platform/os_core.h"
#include "platform/os_serial.h"
#include "port/comm_state_report.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

void Escape(os::Handle port, os::Dword function, const char* name) {
  if (os::EscapeCommFunction(port, function)) {
    LogPrint("EscapeCommFunction(%s) Success.", name);
  } else {
    WinErrTick(0, "EscapeCommFunction(%s) fails.", name);
  }
  PrintModemLines(port);
}

}  // namespace

void SetDtrKey(os::Handle port) {
  Escape(port, os::kSetDtr, "SETDTR");
}
void ClearDtrKey(os::Handle port) {
  Escape(port, os::kClrDtr, "CLRDTR");
}
void SetRtsKey(os::Handle port) {
  Escape(port, os::kSetRts, "SETRTS");
}
void ClearRtsKey(os::Handle port) {
  Escape(port, os::kClrRts, "CLRRTS");
}

// Millisecond stamps: the two lines show how long the break really lasted.
void BreakKey(os::Handle port) {
  if (os::SetCommBreak(port)) {
    LogStampMs("SetCommBreak() Success. Holding BREAK %d ms...", g_hold_break);
    os::Sleep(static_cast<os::Dword>(g_hold_break));
    if (os::ClearCommBreak(port)) {
      LogStampMs("ClearCommBreak() Success.");
    } else {
      WinErrStampMs(0, "ClearCommBreak() fails.");
    }
  } else {
    WinErrStampMs(0, "SetCommBreak() fails.");
  }
  PrintModemLines(port);
}

void PrintLineKeyHelp() {
  static const char* const kLines[] = {
      " D d : Set/Clear DTR with EscapeCommFunction().",
      " U u : Set/Clear RTS with EscapeCommFunction().",
      " B : Send a BREAK of --hold-break ms with SetCommBreak()/ClearCommBreak().",
  };
  for (const char* text : kLines) std::printf("%s\n", text);
}

}  // namespace portwren
