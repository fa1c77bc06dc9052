#include "platform/posix/serial_device.h"

#include <asm/termbits.h>
#include <linux/magic.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/posix/errno_map.h"
#include "platform/posix/termios_map.h"

namespace portwren::os::posix {

namespace {

// The slaves of /dev/pts (majors 136-143, on a devpts file system), the old BSD pairs (majors 2
// and 3), and major 5: /dev/tty, /dev/console and the masters of /dev/ptmx, none a line of its own.
bool IsPseudoTerminal(int fd) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return false;
  const unsigned int device_major = major(status.st_rdev);
  if ((device_major >= 136 && device_major <= 143) || (device_major >= 2 && device_major <= 3) ||
      device_major == 5) {
    return true;
  }
  struct statfs file_system {};
  return fstatfs(fd, &file_system) == 0 && file_system.f_type == DEVPTS_SUPER_MAGIC;
}

}  // namespace

std::shared_ptr<SerialDevice> SerialDevice::Open(int fd, bool overlapped, bool can_read, bool can_write,
                                                 Dword* error) {
  auto device = std::make_shared<SerialDevice>(fd, overlapped, can_read, can_write);
  if (!device->Init(error)) {
    device->OnClose();
    return nullptr;
  }
  return device;
}

SerialDevice::SerialDevice(int fd, bool overlapped, bool can_read, bool can_write)
    : IoObject(overlapped, can_read, can_write), fd_(fd) {}

SerialDevice::~SerialDevice() {
  OnClose();
  if (wake_fd_ >= 0) close(wake_fd_);
}

SerialDevice::DeviceLock::~DeviceLock() {
  const bool wake = std::exchange(device_.wake_due_, false);
  lock_.unlock();
  if (wake) device_.WriteWake();
}

bool SerialDevice::Init(Dword* error) {
  termios2 settings;
  if (ioctl(fd_, TCGETS2, &settings) != 0) {
    *error = WinErrorFromErrno(errno);
    return false;
  }
  MakeRaw(&settings);
  if (settings.c_ospeed == 0) {
    // B0 would mean "hang up"; a Windows port always has a rate.
    settings.c_cflag = (settings.c_cflag & ~static_cast<tcflag_t>(CBAUD | CIBAUD)) | BOTHER;
    settings.c_ospeed = settings.c_ispeed = 9600;
  }
  settings.c_cc[VSTART] = 0x11;
  settings.c_cc[VSTOP] = 0x13;
  if (ioctl(fd_, TCSETS2, &settings) != 0) {
    *error = WinErrorFromErrno(errno);
    return false;
  }
  shadow_ = InitialShadow(settings);
  real_line_ = !IsPseudoTerminal(fd_);

  int lines = 0;
  modem_ok_ = ioctl(fd_, TIOCMGET, &lines) == 0;
  modem_lines_ = modem_ok_ ? lines : 0;
  serial_icounter_struct counters{};
  icount_ok_ = ioctl(fd_, TIOCGICOUNT, &counters) == 0;
  if (icount_ok_) {
    counters_ = {counters.frame, counters.overrun, counters.parity, counters.brk, counters.buf_overrun};
    modem_counts_ = {counters.cts, counters.dsr, counters.dcd, counters.rng};
  }

  wake_fd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (wake_fd_ < 0) {
    *error = WinErrorFromErrno(errno);
    return false;
  }
  try {
    service_ = std::thread([this] { ServiceLoop(); });
  } catch (const std::system_error&) {
    *error = kErrNotEnoughMemory;  // out of threads
    return false;
  }
  return true;
}

void SerialDevice::OnClose() {
  {
    DeviceLock lock(*this);
    if (closing_) return;
    closing_ = true;
    // Closing the handle cancels what is still running, as on Windows.
    const uintptr_t aborted = StatusFromError(kErrOperationAborted);
    CompleteAll(&reads_, aborted);
    CompleteAll(&writes_, aborted);
    if (wait_ != nullptr) CompleteWait(0, aborted);
    Wake();
  }
  // Nothing makes a new waiter once closing_ is set; its change callback takes mu_.
  if (modem_waiter_ != nullptr) modem_waiter_->Stop();
  if (service_.joinable()) service_.join();
  int fd;
  {
    // Every other user of the number looks at closing_ first, under the lock: once it is
    // taken out here, nothing touches it again, even after the system hands it out anew.
    DeviceLock lock(*this);
    fd = std::exchange(fd_, -1);
  }
  // Closed without the lock: a UART whose output is held back (CTS low) may keep close()
  // waiting for the driver's closing wait (30 s), and no other call is to wait with it.
  if (fd >= 0) close(fd);  // also drops the exclusive lock
}

bool SerialDevice::Usable() {
  if (closing_) return Fail(kErrInvalidHandle);
  // Nothing may be watching the terminal (no request pending): look now.
  if (!gone_ && HungUp()) NoticeHangUp(Clock::now());
  return gone_ ? Fail(gone_error_) : true;
}

void SerialDevice::NoticeHangUp(Clock::time_point now) {
  // Pending reads still get what was received, then everything fails.
  PumpReads(now);
  if (!gone_) MarkGone(kErrDeviceNotConnected);
}

void SerialDevice::Wake() {
  wake_due_ = true;
  polling_ = false;  // its poll ends at once: it looks at everything again
}

void SerialDevice::WriteWake() {
  if (wake_fd_ < 0) return;
  const uint64_t one = 1;
  [[maybe_unused]] ssize_t ignored = write(wake_fd_, &one, sizeof one);
}

bool SerialDevice::StillReady(short events) {
  pollfd probe{fd_, events, 0};
  return poll(&probe, 1, 0) == 1 && (probe.revents & events) != 0;
}

bool SerialDevice::HungUp() {
  pollfd probe{fd_, 0, 0};
  return poll(&probe, 1, 0) == 1 && (probe.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

int SerialDevice::InputQueueBytes() {
  // Data can sit in the terminal's flip buffer, which FIONREAD does not count; a poll moves it.
  pollfd probe{fd_, POLLIN, 0};
  poll(&probe, 1, 0);
  int count = 0;
  return ioctl(fd_, FIONREAD, &count) == 0 ? count : -1;
}

int SerialDevice::OutputQueueBytes() {
  int count = 0;
  return ioctl(fd_, TIOCOUTQ, &count) == 0 ? count : 0;
}

short SerialDevice::WantedPollEvents(Clock::time_point now) const {
  if (gone_) return 0;
  short events = 0;
  if (now >= rx_backoff_until_) {
    if (!reads_.empty() && reads_.front()->started) events |= POLLIN;
    // With nothing to read and nothing queued, the first byte's arrival is what an EV_RXCHAR
    // waits for; later arrivals are seen by sampling the queue (POLLIN would not stop firing).
    if (reads_.empty() && (event_mask_ & (kEvRxChar | kEvRxFlag | kEvRx80Full)) != 0 && rx_seen_ == 0) {
      events |= POLLIN;
    }
  }
  if (now >= tx_backoff_until_ && !writes_.empty() && writes_.front()->started) events |= POLLOUT;
  return events;
}

std::optional<SerialDevice::Clock::time_point> SerialDevice::NextDeadline(Clock::time_point now) const {
  std::optional<Clock::time_point> next;
  auto consider = [&](const std::optional<Clock::time_point>& when) {
    if (when && (!next || *when < *next)) next = when;
  };
  if (!reads_.empty() && reads_.front()->started) {
    consider(reads_.front()->total_deadline);
    consider(reads_.front()->interval_deadline);
    if (now < rx_backoff_until_) consider(rx_backoff_until_);
  }
  if (!writes_.empty() && writes_.front()->started) {
    consider(writes_.front()->total_deadline);
    if (now < tx_backoff_until_) consider(tx_backoff_until_);
  }
  if (!gone_) {
    const bool watch_modem = modem_ok_ && (event_mask_ & (kEvCts | kEvDsr | kEvRlsd | kEvRing)) != 0;
    const bool watch_errors =
        icount_ok_ && ((event_mask_ & (kEvBreak | kEvErr)) != 0 || shadow_.fAbortOnError);
    const bool watch_input = (event_mask_ & (kEvRxChar | kEvRxFlag | kEvRx80Full)) != 0 &&
                             (rx_seen_ > 0 || !reads_.empty() || now < rx_backoff_until_);
    if (watch_modem || watch_errors || watch_input) consider(std::max(now, next_sample_));
    if (tx_draining_) consider(now + kDrainPeriod);
  }
  return next;
}

int SerialDevice::PollTimeout(Clock::time_point now) const {
  const std::optional<Clock::time_point> next = NextDeadline(now);
  if (!next) return -1;
  if (*next <= now) return 0;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*next - now).count();
  return static_cast<int>(std::min<long long>(wait, 1 << 30));
}

void SerialDevice::WakeIfStale(Clock::time_point now) {
  if (!polling_) return;  // it looks at everything before it polls again
  const std::optional<Clock::time_point> next = NextDeadline(now);
  const bool nearer = next && (!polled_until_ || *next < *polled_until_);
  if ((WantedPollEvents(now) & ~polled_events_) != 0 || nearer) Wake();
}

void SerialDevice::ServiceLoop() {
  WakeBatch batch;  // completions made here wake their threads once mu_ is let go
  std::unique_lock lock(mu_);
  bool in_fired = false;
  bool out_fired = false;
  while (!closing_) {
    Clock::time_point now = Clock::now();
    rx_progress_ = false;
    tx_progress_ = false;
    SampleLines(now, false);
    Pump(now);
    if (closing_) break;
    // A wake-up that led nowhere although the terminal still says ready is a stall.
    if (in_fired && !rx_progress_ && !reads_.empty() && StillReady(POLLIN))
      rx_backoff_until_ = now + kSamplePeriod;
    if (out_fired && !tx_progress_ && !writes_.empty() && StillReady(POLLOUT)) {
      tx_backoff_until_ = now + kSamplePeriod;
    }

    pollfd fds[2] = {{wake_fd_, POLLIN, 0}, {-1, 0, 0}};
    now = Clock::now();
    // Watched even when nothing is asked of it: poll reports a hang-up whatever the events, and
    // a wait that samples the input queue (bytes nobody takes) would not notice it otherwise.
    if (!gone_) {
      fds[1].fd = fd_;
      fds[1].events = WantedPollEvents(now);
    }
    const int timeout = PollTimeout(now);
    polling_ = true;
    polled_events_ = fds[1].events;
    polled_until_ = NextDeadline(now);
    lock.unlock();
    batch.Flush();
    const int ready = poll(fds, 2, timeout);
    lock.lock();
    polling_ = false;
    in_fired = false;
    out_fired = false;
    if (ready <= 0 || closing_) continue;
    if ((fds[0].revents & POLLIN) != 0) {
      uint64_t count;
      [[maybe_unused]] ssize_t ignored = read(wake_fd_, &count, sizeof count);
    }
    const short revents = fds[1].revents;
    if ((revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
      NoticeHangUp(Clock::now());
      continue;
    }
    out_fired = (revents & POLLOUT) != 0;
    if ((revents & POLLIN) != 0 && reads_.empty()) {
      const int seen_before = rx_seen_;
      SampleInput();
      if (rx_seen_ == seen_before && StillReady(POLLIN)) rx_backoff_until_ = Clock::now() + kSamplePeriod;
    } else {
      in_fired = (revents & POLLIN) != 0;
    }
  }
}

}  // namespace portwren::os::posix
