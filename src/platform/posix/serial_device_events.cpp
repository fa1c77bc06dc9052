// Comm events of a serial device: the mask, the history, the one pending wait, and the
// sampling that notices modem-line changes, line errors and arriving input.
#include <asm/termbits.h>
#include <linux/serial.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/errno_map.h"
#include "platform/posix/serial_device.h"

namespace portwren::os::posix {

namespace {
constexpr Dword kRxEvents = kEvRxChar | kEvRxFlag | kEvRx80Full;
constexpr Dword kModemEvents = kEvCts | kEvDsr | kEvRlsd | kEvRing;
// The terminal's own input buffer: FIONREAD never reports more than this.
constexpr Dword kTerminalInputBuffer = 4095;
}  // namespace

void SerialDevice::RaiseEvents(Dword events) {
  events &= event_mask_;
  if (events == 0) return;
  history_ |= events;
  if (wait_ != nullptr) CompleteWait(std::exchange(history_, 0), kStatusSuccess);
}

bool SerialDevice::WaitEvent(Dword* event_mask, const CompletionTarget& target) {
  if (event_mask == nullptr) return Fail(kErrInvalidParameter);
  DeviceLock lock(*this);
  if (!Usable()) return false;
  if (event_mask_ == 0 || wait_ != nullptr) return Fail(kErrInvalidParameter);
  SampleLines(Clock::now(), true);
  target.Begin();
  if (history_ != 0) {
    *event_mask = std::exchange(history_, 0);
    target.Finish(kStatusSuccess, sizeof(Dword), true);
    return true;
  }
  // EV_TXEMPTY now needs bytes sent from here on: output still draining from before is no event.
  tx_since_empty_ = false;
  wait_ = std::make_unique<Request>();
  wait_->kind = Kind::kWait;
  wait_->target = target;
  wait_->issuer = GetCurrentThreadId();
  wait_->event_mask = event_mask;
  Wake();
  return Fail(kErrIoPending);
}

bool SerialDevice::SetMask(Dword event_mask) {
  DeviceLock lock(*this);
  if (!Usable()) return false;
  if ((event_mask & ~kEvAllValid) != 0) return Fail(kErrInvalidParameter);
  // A pending wait ends successfully with no events.
  if (wait_ != nullptr) CompleteWait(0, kStatusSuccess);
  // Only what happens from now on is an event: take the present state as the baseline.
  if ((event_mask & kRxEvents) != 0 && (event_mask_ & kRxEvents) == 0) {
    rx_seen_ = std::max(0, InputQueueBytes());
    rx80_raised_ = static_cast<Dword>(rx_seen_) >= RxThreshold();
  }
  if ((event_mask & kModemEvents) != 0 && (event_mask_ & kModemEvents) == 0 && modem_ok_ && !gone_) {
    WatchModemLines();
  }
  history_ &= event_mask;
  event_mask_ = event_mask;
  Wake();
  return true;
}

bool SerialDevice::GetMask(Dword* event_mask) {
  if (event_mask == nullptr) return Fail(kErrInvalidParameter);
  DeviceLock lock(*this);
  if (!Usable()) return false;
  *event_mask = event_mask_;
  return true;
}

bool SerialDevice::ReadModemCounts(ModemCounts* counts) {
  serial_icounter_struct now{};
  if (!icount_ok_ || ioctl(fd_, TIOCGICOUNT, &now) != 0) return false;
  *counts = {now.cts, now.dsr, now.dcd, now.rng};
  return true;
}

void SerialDevice::WatchModemLines() {
  int lines = 0;
  if (ioctl(fd_, TIOCMGET, &lines) == 0) modem_lines_ = lines;
  ReadModemCounts(&modem_counts_);
  if (modem_waiter_ != nullptr) return;
  // Sampling goes on beside it: a change between two waits would wait for the next one.
  const int fd = fd_;
  modem_waiter_ = std::make_unique<ModemLineWaiter>(
      [fd] { return ioctl(fd, TIOCMIWAIT, TIOCM_CTS | TIOCM_DSR | TIOCM_CD | TIOCM_RNG) == 0 ? 0 : errno; },
      [this] {
        DeviceLock lock(*this);
        if (!closing_) SampleLines(Clock::now(), true);
      });
  if (!modem_waiter_->Start()) modem_waiter_.reset();
}

Dword SerialDevice::RxThreshold() const {
  // EV_RX80FULL: the input queue reaches 3/4 + 1/16 of its size.
  return std::min(in_queue_size_, kTerminalInputBuffer) * 13 / 16;
}

void SerialDevice::SampleLines(Clock::time_point now, bool force) {
  if (gone_ || fd_ < 0) return;
  if (!force && now < next_sample_) return;
  next_sample_ = now + kSamplePeriod;
  if (modem_ok_ && (event_mask_ & kModemEvents) != 0) {
    int lines = 0;
    if (ioctl(fd_, TIOCMGET, &lines) == 0) {
      ModemCounts counts;
      const bool counted = ReadModemCounts(&counts);
      const Dword events = ModemLineEvents(modem_lines_, lines, counted ? &modem_counts_ : nullptr,
                                           counted ? &counts : nullptr);
      modem_lines_ = lines;
      if (counted) modem_counts_ = counts;
      RaiseEvents(events);
    }
  }
  if (icount_ok_ && ((event_mask_ & (kEvBreak | kEvErr)) != 0 || shadow_.fAbortOnError != 0)) SampleErrors();
  if ((event_mask_ & kRxEvents) != 0) SampleInput();
}

void SerialDevice::SampleInput() {
  const int queued = InputQueueBytes();
  if (queued < 0) return;
  Dword events = 0;
  if (queued > rx_seen_) events |= kEvRxChar;
  if (static_cast<Dword>(queued) >= RxThreshold()) {
    if (!rx80_raised_) events |= kEvRx80Full;
    rx80_raised_ = true;
  } else {
    rx80_raised_ = false;
  }
  rx_seen_ = queued;
  RaiseEvents(events);
}

void SerialDevice::SampleErrors() {
  serial_icounter_struct now{};
  if (ioctl(fd_, TIOCGICOUNT, &now) != 0) return;
  Dword errors = 0;
  Dword events = 0;
  if (now.frame != counters_.frame) errors |= kCeFrame;
  if (now.overrun != counters_.overrun) errors |= kCeOverrun;
  if (now.parity != counters_.parity) errors |= kCeRxParity;
  if (errors != 0) events |= kEvErr;
  if (now.buf_overrun != counters_.buf_overrun) errors |= kCeRxOver;
  if (now.brk != counters_.brk) {
    errors |= kCeBreak;
    events |= kEvBreak;
  }
  counters_ = {now.frame, now.overrun, now.parity, now.brk, now.buf_overrun};
  errors_ |= errors;
  if (errors != 0 && shadow_.fAbortOnError != 0) {
    // Until ClearCommError, every request fails.
    abort_latched_ = true;
    const uintptr_t aborted = StatusFromError(kErrOperationAborted);
    CompleteAll(&reads_, aborted);
    CompleteAll(&writes_, aborted);
  }
  RaiseEvents(events);
}

}  // namespace portwren::os::posix
