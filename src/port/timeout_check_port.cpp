#include "port/timeout_check_port.h"

namespace portwren {

bool TimeoutCheckPort::GetTimeouts(os::CommTimeouts* timeouts) {
  return os::GetCommTimeouts(port_, timeouts);
}

bool TimeoutCheckPort::SetTimeouts(const os::CommTimeouts& timeouts) {
  return os::SetCommTimeouts(port_, &timeouts);
}

bool TimeoutCheckPort::Read(void* buffer, os::Dword count, os::Dword* done, os::Overlapped* overlapped) {
  return os::ReadFile(port_, buffer, count, done, overlapped);
}

bool TimeoutCheckPort::Write(const void* buffer, os::Dword count, os::Dword* done,
                             os::Overlapped* overlapped) {
  return os::WriteFile(port_, buffer, count, done, overlapped);
}

bool TimeoutCheckPort::Result(os::Overlapped* overlapped, os::Dword* done, bool wait) {
  return os::GetOverlappedResult(port_, overlapped, done, wait);
}

bool TimeoutCheckPort::Cancel() {
  return os::CancelIo(port_);
}

bool TimeoutCheckPort::Purge(os::Dword flags) {
  return os::PurgeComm(port_, flags);
}

bool TimeoutCheckPort::InputQueue(os::Dword* bytes) {
  os::ComStat stat;
  if (!os::ClearCommError(port_, nullptr, &stat)) return false;
  *bytes = stat.cbInQue;
  return true;
}

}  // namespace portwren
