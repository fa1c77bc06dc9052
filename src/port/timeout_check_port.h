// The few port calls the timeout check makes, behind one class: the check runs against the real
// driver through the defaults, and a test hands it a port that breaks a rule on purpose.
#pragma once

#include <cstdint>

#include "platform/os_file.h"
#include "platform/os_serial.h"

namespace portwren {

class TimeoutCheckPort {
 public:
  explicit TimeoutCheckPort(os::Handle port) : port_(port) {}
  virtual ~TimeoutCheckPort() = default;
  TimeoutCheckPort(const TimeoutCheckPort&) = delete;
  TimeoutCheckPort& operator=(const TimeoutCheckPort&) = delete;

  virtual bool GetTimeouts(os::CommTimeouts* timeouts);
  virtual bool SetTimeouts(const os::CommTimeouts& timeouts);
  virtual bool Read(void* buffer, os::Dword count, os::Dword* done, os::Overlapped* overlapped);
  virtual bool Write(const void* buffer, os::Dword count, os::Dword* done, os::Overlapped* overlapped);
  virtual bool Result(os::Overlapped* overlapped, os::Dword* done, bool wait);
  virtual bool Cancel();  // the calling thread's requests, as CancelIo
  virtual bool Purge(os::Dword flags);
  virtual bool InputQueue(os::Dword* bytes);  // ClearCommError's cbInQue

  os::Handle handle() const { return port_; }

 private:
  os::Handle port_;
};

}  // namespace portwren
