#include "console/monitor_keys.h"

#include <cstdio>
#include <optional>
#include <type_traits>

#include "format/console_log.h"
#include "monitor/comm_event_monitor.h"
#include "monitor/read_com_thread.h"
#include "platform/os_console.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

// The monitor's context lives in static storage: one still running at quit ends with the
// process, and nothing frees its context under it on the way out.
std::optional<CommEventMonitor> g_monitor_slot;
static_assert(std::is_trivially_destructible_v<std::optional<CommEventMonitor>>,
              "the exit must leave a running monitor's context alone");

bool AskYes(const char* question, bool yes_by_default) {
  std::printf("%s", question);
  const int key = os::GetKey();
  return yes_by_default ? key != 'n' && key != 'N' : key == 'y' || key == 'Y';
}

const char* YesNoText(bool yes) {
  return yes ? "yes" : "no";
}

}  // namespace

bool StartMonitorKey(MainLine& line, bool ask) {
  if (line.monitor != nullptr) {
    std::printf("Already monitoring CommEvents.\n");
    return false;
  }
  CommEventMonitor& monitor = g_monitor_slot.emplace(line.port);
  monitor.watch_cts_dsr = 1;
  monitor.discard_on_rxchar = 0;
  if (ask) {
    monitor.watch_cts_dsr = AskYes("Monitor CTS and DSR? (Y/n)", true);
    std::printf("\nMonitor CTS and DSR: %s\n", YesNoText(monitor.watch_cts_dsr));
    monitor.discard_on_rxchar = AskYes("Read and discard all chars on EV_RXCHAR? (y/N)", false);
    std::printf("\nRead and discard all chars on EV_RXCHAR: %s\n", YesNoText(monitor.discard_on_rxchar));
  }
  monitor.first_delay_ms = g_waitcommevent_delay0;
  monitor.resume_delay_ms = g_waitcommevent_delay;
  if (monitor.Start()) {
    line.monitor = &monitor;
  } else {
    g_monitor_slot.reset();
  }
  return true;
}

bool StopMonitorKey(MainLine& line) {
  if (line.monitor == nullptr) return true;
  line.monitor->Stop();
  line.monitor = nullptr;
  g_monitor_slot.reset();
  return true;
}

bool ReaderKey(MainLine& line) {
  if (line.reader_running) {
    std::printf("Stop ReadCom thread?(y/N)");
    const int key = os::GetKey();
    std::printf("%c\n", key);
    if (key == 'y' || key == 'Y') {
      StopReadComThread();
      line.reader_running = false;
    }
    return true;
  }
  if (StartReadComThread(line.port, static_cast<uint32_t>(g_bytes_to_rw))) {
    LogStampMs("ReadCom-thread created success.");
    line.reader_running = true;
  } else {
    LogStampMs("ReadCom-thread creation fail.");
  }
  return true;
}

}  // namespace portwren
