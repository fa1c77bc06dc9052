#include "monitor/comm_event_monitor.h"

#include <cstdio>
#include <cstring>

#include "driver/device_state.h"
#include "format/console_log.h"
#include "platform/os_serial.h"
#include "platform/os_sync.h"
#include "port/comm_state_report.h"
#include "support/handle_holder.h"
#include "support/run_settings.h"
#include "support/thread_start.h"

namespace portwren {

namespace {

// How long Stop waits before waking the thread once more: a SetCommMask(0) that lands between
// the thread's quit check and its next SetCommMask would otherwise leave it waiting for good.
constexpr os::Dword kStopRewakeMs = 500;

// Gives the input to the other readers of the port for a moment before the counts are taken.
constexpr os::Dword kRxCharSettleMs = 10;

constexpr struct {
  uint32_t bit;
  const char* name;
} kEventNames[] = {
    {os::kEvRxChar, "EV_RXCHAR"},   {os::kEvCts, "EV_CTS"},           {os::kEvDsr, "EV_DSR"},
    {os::kEvTxEmpty, "EV_TXEMPTY"}, {os::kEvRx80Full, "EV_RX80FULL"},
};

}  // namespace

const char* EventMaskNames(uint32_t mask) {
  static char names[100];
  names[0] = '\0';
  for (const auto& event : kEventNames) {
    if ((mask & event.bit) == 0) continue;
    std::strncat(names, event.name, sizeof names - std::strlen(names) - 1);
    std::strncat(names, "|", sizeof names - std::strlen(names) - 1);
  }
  if (const size_t length = std::strlen(names); length > 0) names[length - 1] = '\0';
  return names;
}

bool CommEventMonitor::Start() {
  if (thread_ != nullptr) {
    std::printf("Bad action: WaitCommEvent thread already created.\n");
    return false;
  }
  quit_.store(0);
  thread_ = StartThread(&CommEventMonitor::ThreadProc, this, 0, nullptr);
  WinErrTick(thread_ != nullptr, "WaitCommEvent thread creation fail.");
  return thread_ != nullptr;
}

bool CommEventMonitor::Stop() {
  if (thread_ == nullptr) {
    std::printf("Bad action: WaitCommEvent thread not started yet.\n");
    return false;
  }
  quit_.store(1);
  LogTick100("Main thread calls SetCommMask(h,0); to tell quit WaitCommEvent thread.");
  os::SetCommMask(port_, 0);
  while (os::WaitForSingleObject(thread_, kStopRewakeMs) == os::kWaitTimeout) os::SetCommMask(port_, 0);
  os::CloseHandle(thread_);
  thread_ = nullptr;
  LogTickNow("WaitCommEvent thread quitting confirmed.");
  return true;
}

os::Dword CommEventMonitor::ThreadProc(void* self) {
  RegisterThread(ThreadRole::kCommMonitor);
  LogTickNow("WaitCommEvent thread starting.");
  static_cast<CommEventMonitor*>(self)->Body();
  LogTickNow("WaitCommEvent thread quitting.");
  UnregisterThread(ThreadRole::kCommMonitor);
  return 0;
}

uint32_t CommEventMonitor::WantedMask() const {
  uint32_t mask = os::kEvRxChar;
  if (watch_cts_dsr) mask |= os::kEvCts | os::kEvDsr;
  if (watch_tx_empty) mask |= os::kEvTxEmpty;
  return mask;
}

void CommEventMonitor::Body() {
  if (first_delay_ms != 0) {
    LogTickNow("====Delaying %dms before first WaitCommEvent.", first_delay_ms);
    os::Sleep(first_delay_ms);
  }
  EventHolder event(os::CreateEventA(true, false));
  uint32_t current_mask = 0;
  for (;;) {
    if (quit_.load() != 0) {
      LogTickNow("====WaitCommEvent thread receives quit signal. Now quit this thread.");
      return;
    }
    const uint32_t mask = WantedMask();
    if (mask != current_mask) {
      if (!os::SetCommMask(port_, mask)) {
        WinErrTick(0, "====SetCommMask() fail.");
        return;
      }
      LogTickNow("====SetCommMask(h, %s) Success.", EventMaskNames(mask));
      current_mask = mask;
    }
    LogTickNow("====Starting WaitCommEvent(mask=0x%02X)...", mask);
    os::Overlapped overlapped;
    overlapped.hEvent = event.get();
    os::Dword events = 0;
    bool ok = os::WaitCommEvent(port_, &events, &overlapped);
    if (!ok && os::GetLastError() == os::kErrIoPending) {
      os::Dword ignored = 0;
      ok = os::GetOverlappedResult(port_, &overlapped, &ignored, true);
    }
    if (!ok) {
      WinErrTick(0, "====WaitCommEvent() fail!");
      return;
    }
    if (events == 0) {
      LogTickNow("====WaitCommEvent() completes, 0 event reported.");
      current_mask = 0;  // set it again: whoever emptied it may want it back
      continue;
    }
    LogCommEvents(port_, events, discard_on_rxchar != 0);
    if (resume_delay_ms != 0) {
      LogTickNow("Will resume WaitCommMask in %dms", resume_delay_ms);
      os::Sleep(resume_delay_ms);
    }
  }
}

void LogCommEvents(os::Handle port, uint32_t events, bool discard_on_rxchar) {
  LogTickNow("====New events: %s", EventMaskNames(events));
  if ((events & os::kEvRxChar) != 0) {
    os::Dword errors = 0;
    os::ComStat stat;
    WinErrTick(os::ClearCommError(port, &errors, &stat), "ClearCommError fail.");
    bool cleared = false;
    if (discard_on_rxchar) {
      cleared = os::PurgeComm(port, os::kPurgeRxClear);
      WinErrTick(cleared, "PurgeComm fail.");
    } else {
      os::Sleep(kRxCharSettleMs);
    }
    LogTickNow("    cbInQue=%d(%s) , cbOutQue=%d", stat.cbInQue, cleared ? "cleared now" : "not cleared",
               stat.cbOutQue);
  }
  if ((events & (os::kEvCts | os::kEvDsr)) != 0) {
    os::Dword lines = 0;
    if (os::GetCommModemStatus(port, &lines)) {
      LogTickNow("    Modem lines: %s", ModemLinesText(lines, false));
    } else {
      WinErrTick(0, "GetCommModemStatus() fail.");
    }
    if (g_print_devstate_on_dsr && (events & os::kEvDsr) != 0) PrintDeviceState(port);
  }
}

}  // namespace portwren
