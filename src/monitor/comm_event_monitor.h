// The comm-event monitor: a thread that waits for the port's comm events and logs each one as
// it comes, with the queue counts on EV_RXCHAR and the modem lines on EV_CTS and EV_DSR, while
// the console thread goes on with other keys on the same port.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/os_handle.h"

namespace portwren {

class CommEventMonitor {
 public:
  explicit CommEventMonitor(os::Handle port) : port_(port) {}
  CommEventMonitor(const CommEventMonitor&) = delete;
  CommEventMonitor& operator=(const CommEventMonitor&) = delete;

  // What the thread watches; set before Start.
  uint8_t watch_cts_dsr = 1;      // EV_CTS and EV_DSR in the mask
  uint8_t discard_on_rxchar = 1;  // purge the input on each EV_RXCHAR (the key turns it off)
  uint32_t first_delay_ms = 0;    // sleep once before the first wait
  uint32_t resume_delay_ms = 0;   // sleep after each reported event, so events gather meanwhile
  uint8_t watch_tx_empty = 1;     // EV_TXEMPTY in the mask

  // False, with a "Bad action" line, when the thread was started already; false when it could
  // not be created.
  bool Start();
  // Asks the thread to quit and waits until it has. False, with a "Bad action" line, when it
  // was never started. A thread that ended by itself is collected all the same.
  bool Stop();

  bool started() const { return thread_ != nullptr; }

 private:
  static os::Dword ThreadProc(void* self);
  void Body();
  uint32_t WantedMask() const;

  const os::Handle port_;
  // Written by the console thread; the monitor looks at it between waits.
  std::atomic<uint8_t> quit_{0};
  os::Handle thread_ = nullptr;
};

// One round's report: the events, then the queue counts on EV_RXCHAR (after purging the input
// when discard_on_rxchar) and the modem lines on EV_CTS or EV_DSR (with the device state on
// EV_DSR when asked for). What the thread prints, with its mark, after each wait.
void LogCommEvents(os::Handle port, uint32_t events, bool discard_on_rxchar);

// The names of the set bits among EV_RXCHAR, EV_CTS, EV_DSR, EV_TXEMPTY and EV_RX80FULL, in
// that order, joined by "|". One static buffer: valid until the next call, for one thread.
const char* EventMaskNames(uint32_t mask);

}  // namespace portwren
