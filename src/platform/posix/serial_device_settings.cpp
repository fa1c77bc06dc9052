// Settings and status of a serial device: Dcb, timeouts, queues, purge, errors, modem lines.
#include <asm/termbits.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "platform/posix/errno_map.h"
#include "platform/posix/serial_device.h"
#include "platform/posix/termios_map.h"

namespace portwren::os::posix {

namespace {

Dcb Normalized(const Dcb& dcb) {
  Dcb out = dcb;
  for (Dword* flag :
       {&out.fBinary, &out.fParity, &out.fOutxCtsFlow, &out.fOutxDsrFlow, &out.fDsrSensitivity,
        &out.fTXContinueOnXoff, &out.fOutX, &out.fInX, &out.fErrorChar, &out.fNull, &out.fAbortOnError}) {
    *flag = *flag != 0 ? 1 : 0;
  }
  return out;
}

// A UART reaches a rate through a divisor; a rate it misses by more than this is refused.
bool BaudReached(Dword actual, Dword wanted) {
  const uint64_t difference = actual > wanted ? actual - wanted : wanted - actual;
  return difference * 100 <= uint64_t{wanted} * 3;
}

constexpr tcflag_t kFramingFlags = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB;

// A device without modem lines (a pty) answers ENOTTY or EINVAL: "not supported".
Dword ModemLineError(int error_number) {
  return error_number == ENOTTY || error_number == EINVAL ? kErrNotSupported
                                                          : WinErrorFromErrno(error_number);
}

}  // namespace

bool SerialDevice::GetState(Dcb* dcb) {
  if (dcb == nullptr) return Fail(kErrInvalidParameter);
  DeviceLock lock(*this);
  if (!Usable()) return false;
  termios2 settings;
  if (ioctl(fd_, TCGETS2, &settings) != 0) return FailWithErrno(errno);
  *dcb = TermiosToDcb(settings, shadow_);
  if (framing_known_ && (settings.c_cflag & kFramingFlags) == framing_cflag_ &&
      settings.c_ospeed == framing_speed_) {
    dcb->BaudRate = shadow_.BaudRate;
    dcb->ByteSize = shadow_.ByteSize;
    dcb->Parity = shadow_.Parity;
    dcb->StopBits = shadow_.StopBits;
  }
  return true;
}

bool SerialDevice::SetState(const Dcb& requested) {
  const Dcb dcb = Normalized(requested);
  DeviceLock lock(*this);
  if (!Usable()) return false;
  if (ValidateDcb(dcb, in_queue_size_) != kErrSuccess) return Fail(kErrInvalidParameter);
  termios2 before;
  if (ioctl(fd_, TCGETS2, &before) != 0) return FailWithErrno(errno);
  termios2 after = before;
  DcbToTermios(dcb, &after);
  if (ioctl(fd_, TCSETS2, &after) != 0) {
    const int error = errno;
    return Fail(error == EINVAL ? kErrInvalidParameter : WinErrorFromErrno(error));
  }
  termios2 applied;
  if (ioctl(fd_, TCGETS2, &applied) != 0) applied = after;
  if (!BaudReached(applied.c_ospeed, dcb.BaudRate)) {
    ioctl(fd_, TCSETS2, &before);
    return Fail(kErrInvalidParameter);
  }
  shadow_ = dcb;
  framing_known_ = true;
  framing_cflag_ = applied.c_cflag & kFramingFlags;
  framing_speed_ = applied.c_ospeed;
  if (modem_ok_) {
    // Lines the Dcb drives by hand; handshake modes are the terminal's business.
    int dtr = TIOCM_DTR;
    ioctl(fd_, dcb.fDtrControl == kDtrControlDisable ? TIOCMBIC : TIOCMBIS, &dtr);
    if ((after.c_cflag & CRTSCTS) == 0) {
      int rts = TIOCM_RTS;
      ioctl(fd_, dcb.fRtsControl == kRtsControlEnable ? TIOCMBIS : TIOCMBIC, &rts);
    }
  }
  return true;
}

bool SerialDevice::GetTimeouts(CommTimeouts* timeouts) {
  if (timeouts == nullptr) return Fail(kErrInvalidParameter);
  DeviceLock lock(*this);
  if (!Usable()) return false;
  *timeouts = timeouts_;
  return true;
}

bool SerialDevice::SetTimeouts(const CommTimeouts& timeouts) {
  DeviceLock lock(*this);
  if (!Usable()) return false;
  if (timeouts.ReadIntervalTimeout == kMaxDword && timeouts.ReadTotalTimeoutMultiplier == kMaxDword &&
      timeouts.ReadTotalTimeoutConstant == kMaxDword) {
    return Fail(kErrInvalidParameter);
  }
  timeouts_ = timeouts;
  return true;
}

bool SerialDevice::Setup(Dword in_queue, Dword out_queue) {
  DeviceLock lock(*this);
  if (!Usable()) return false;
  // A recommendation: the input queue only ever grows, the output size is noted.
  in_queue_size_ = std::max(in_queue_size_, in_queue);
  out_queue_size_ = out_queue;
  return true;
}

bool SerialDevice::Purge(Dword flags) {
  DeviceLock lock(*this);
  if (!Usable()) return false;
  if (flags == 0 || (flags & ~(kPurgeTxAbort | kPurgeRxAbort | kPurgeTxClear | kPurgeRxClear)) != 0) {
    return Fail(kErrInvalidParameter);
  }
  const uintptr_t aborted = StatusFromError(kErrOperationAborted);
  if ((flags & kPurgeTxAbort) != 0) CompleteAll(&writes_, aborted);
  if ((flags & kPurgeRxAbort) != 0) CompleteAll(&reads_, aborted);
  if ((flags & kPurgeTxClear) != 0 && ioctl(fd_, TCFLSH, TCOFLUSH) != 0) return FailWithErrno(errno);
  if ((flags & kPurgeRxClear) != 0) {
    if (ioctl(fd_, TCFLSH, TCIFLUSH) != 0) return FailWithErrno(errno);
    rx_seen_ = 0;
    rx80_raised_ = false;
  }
  Wake();
  return true;
}

bool SerialDevice::ClearError(Dword* errors, ComStat* stat) {
  DeviceLock lock(*this);
  if (!Usable()) return false;
  if (icount_ok_) SampleErrors();
  if (stat != nullptr) {
    const int in_queue = InputQueueBytes();
    if (in_queue < 0) return FailWithErrno(errno);
    ComStat status;
    status.cbInQue = static_cast<Dword>(in_queue);
    Dword unsent = 0;
    for (const RequestPtr& request : writes_) unsent += request->length - request->done;
    status.cbOutQue = static_cast<Dword>(OutputQueueBytes()) + unsent;
    if (modem_ok_ && shadow_.fOutxCtsFlow != 0 && !writes_.empty()) {
      int lines = 0;
      if (ioctl(fd_, TIOCMGET, &lines) == 0 && (lines & TIOCM_CTS) == 0) status.fCtsHold = 1;
    }
    *stat = status;
  }
  if (errors != nullptr) *errors = errors_;
  errors_ = 0;
  abort_latched_ = false;
  return true;
}

bool SerialDevice::GetModemStatus(Dword* modem_status) {
  if (modem_status == nullptr) return Fail(kErrInvalidParameter);
  DeviceLock lock(*this);
  if (!Usable()) return false;
  int lines = 0;
  if (ioctl(fd_, TIOCMGET, &lines) != 0) return Fail(ModemLineError(errno));
  Dword status = 0;
  if ((lines & TIOCM_CTS) != 0) status |= kMsCtsOn;
  if ((lines & TIOCM_DSR) != 0) status |= kMsDsrOn;
  if ((lines & TIOCM_RI) != 0) status |= kMsRingOn;
  if ((lines & TIOCM_CD) != 0) status |= kMsRlsdOn;
  *modem_status = status;
  return true;
}

bool SerialDevice::Escape(Dword function) {
  switch (function) {
    case kSetDtr:
    case kClrDtr:
      return SetModemLine(TIOCM_DTR, function == kSetDtr);
    case kSetRts:
    case kClrRts:
      return SetModemLine(TIOCM_RTS, function == kSetRts);
    case kSetBreak:
    case kClrBreak:
      return SetBreak(function == kSetBreak);
    default:
      return Fail(kErrInvalidParameter);
  }
}

bool SerialDevice::SetModemLine(int line, bool on) {
  DeviceLock lock(*this);
  if (!Usable()) return false;
  // A line that its handshake mode drives is not the caller's to set, as in the Windows driver.
  const bool handshake = line == TIOCM_DTR ? shadow_.fDtrControl == kDtrControlHandshake
                                           : shadow_.fRtsControl == kRtsControlHandshake ||
                                                 shadow_.fRtsControl == kRtsControlToggle;
  if (handshake) return Fail(kErrInvalidParameter);
  if (ioctl(fd_, on ? TIOCMBIS : TIOCMBIC, &line) != 0) return Fail(ModemLineError(errno));
  return true;
}

// TIOCSBRK first waits in the kernel until the output has drained, for ever if flow control
// holds it back; so the wait happens here, by the clock and without the lock, and the break
// starts under the lock once nothing is left that the service thread could add to.
bool SerialDevice::SetBreak(bool on) {
  const Clock::time_point deadline = Clock::now() + kBreakDrainLimit;
  for (;;) {
    {
      DeviceLock lock(*this);
      if (!Usable()) return false;
      if (!on || OutputQueueBytes() == 0) {
        if (ioctl(fd_, on ? TIOCSBRK : TIOCCBRK) != 0) return Fail(ModemLineError(errno));
        return true;
      }
    }
    if (Clock::now() >= deadline) return Fail(kErrSemTimeout);
    std::this_thread::sleep_for(kDrainPeriod);
  }
}

}  // namespace portwren::os::posix
