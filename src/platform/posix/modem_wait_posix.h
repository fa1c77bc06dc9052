// Modem-line changes as comm events: which events a change of the lines (and of the driver's
// transition counters) means, and a thread that sleeps in the terminal's modem-line wait
// (TIOCMIWAIT) so that a change is seen when it happens rather than at the next sample.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "platform/os_core.h"

namespace portwren::os::posix {

// The driver's counts of line transitions (TIOCGICOUNT): a pulse that came and went between
// two looks at the lines still moved its count.
struct ModemCounts {
  int cts = 0, dsr = 0, dcd = 0, rng = 0;
};

// EV_CTS, EV_DSR, EV_RLSD for a line that changed either way; EV_RING for RI going off. Lines
// are TIOCM_* bits; counts may be null where the device keeps none.
Dword ModemLineEvents(int lines_before, int lines_now, const ModemCounts* counts_before,
                      const ModemCounts* counts_now);

class ModemLineWaiter {
 public:
  // wait: blocks until a line changes; 0 then, else an errno (EINTR when interrupted).
  // changed: runs on the waiter's thread after each change.
  ModemLineWaiter(std::function<int()> wait, std::function<void()> changed);
  ~ModemLineWaiter() { Stop(); }
  ModemLineWaiter(const ModemLineWaiter&) = delete;
  ModemLineWaiter& operator=(const ModemLineWaiter&) = delete;

  bool Start();  // false when no thread could be made
  // Interrupts the wait (a signal whose handler does nothing) and joins the thread.
  void Stop();
  // The wait said that the device has none: the lines can only be sampled.
  bool unsupported() const { return unsupported_.load(); }

 private:
  void Run();

  std::function<int()> wait_;
  std::function<void()> changed_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> ended_{false};
  std::atomic<bool> unsupported_{false};
  std::thread thread_;
};

}  // namespace portwren::os::posix
