#include "platform/posix/modem_wait_posix.h"

#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <system_error>

#include "platform/os_serial.h"

namespace portwren::os::posix {

namespace {

// Interrupts a blocking call of one thread; the handler does nothing, and without SA_RESTART
// the call returns EINTR instead of going on.
int WakeSignal() {
  static std::once_flag installed;
  static int signal_number = 0;
  std::call_once(installed, [] {
    signal_number = SIGRTMIN + 3;
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    sigaction(signal_number, &action, nullptr);
  });
  return signal_number;
}

}  // namespace

Dword ModemLineEvents(int lines_before, int lines_now, const ModemCounts* counts_before,
                      const ModemCounts* counts_now) {
  const int changed = lines_before ^ lines_now;
  const bool counted = counts_before != nullptr && counts_now != nullptr;
  const auto moved = [&](int bit, int ModemCounts::*count) {
    return (changed & bit) != 0 || (counted && counts_before->*count != counts_now->*count);
  };
  Dword events = 0;
  if (moved(TIOCM_CTS, &ModemCounts::cts)) events |= kEvCts;
  if (moved(TIOCM_DSR, &ModemCounts::dsr)) events |= kEvDsr;
  if (moved(TIOCM_CD, &ModemCounts::dcd)) events |= kEvRlsd;
  // The trailing edge only: RI is off now and was on, or rang between the looks.
  if ((lines_now & TIOCM_RI) == 0 && moved(TIOCM_RI, &ModemCounts::rng)) events |= kEvRing;
  return events;
}

ModemLineWaiter::ModemLineWaiter(std::function<int()> wait, std::function<void()> changed)
    : wait_(std::move(wait)), changed_(std::move(changed)) {}

bool ModemLineWaiter::Start() {
  WakeSignal();
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    return false;
  }
  return true;
}

void ModemLineWaiter::Run() {
  while (!stopping_.load()) {
    const int error = wait_();
    if (error == 0) {
      changed_();
    } else if (error != EINTR) {
      unsupported_.store(error == ENOTTY || error == EINVAL || error == ENOSYS);
      break;  // no wait (the lines are sampled instead), or the device is gone
    }
  }
  ended_.store(true);
}

void ModemLineWaiter::Stop() {
  stopping_.store(true);
  if (!thread_.joinable()) return;
  // Again and again: the first signal may come just before the thread enters the wait.
  while (!ended_.load()) {
    pthread_kill(thread_.native_handle(), WakeSignal());
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  thread_.join();
}

}  // namespace portwren::os::posix
