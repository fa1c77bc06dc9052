// One overlapped read or write of the timeout check, timed from its issue to the moment the
// check saw it end, and the small helpers the rules share: spaced writes, waiting for the echo,
// emptying the input between rules.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "port/timeout_check_port.h"

namespace portwren {

using CheckClock = std::chrono::steady_clock;

int64_t MsBetween(CheckClock::time_point from, CheckClock::time_point to);

class CheckRequest {
 public:
  explicit CheckRequest(TimeoutCheckPort& port) : port_(port) {}
  // A request still running is ended first (see End).
  ~CheckRequest();
  CheckRequest(const CheckRequest&) = delete;
  CheckRequest& operator=(const CheckRequest&) = delete;

  // False when the call itself failed (error() says why); true when it completed or is pending.
  bool StartRead(uint32_t count);
  bool StartWrite(uint32_t count);  // a byte pattern the check makes up

  // Waits until the deadline (or for ms) for the end; true once it ended.
  bool WaitUntil(CheckClock::time_point deadline);
  bool WaitMs(uint32_t ms) { return WaitUntil(CheckClock::now() + std::chrono::milliseconds(ms)); }

  // Cancels a running request, then aborts it with PurgeComm. False when even that did not end
  // it: its buffer and event are then left to the driver for good.
  bool End();

  bool done() const { return done_; }
  bool in_call() const { return in_call_; }
  bool ok() const { return ok_; }
  os::Dword count() const { return count_; }
  os::Dword error() const { return error_; }
  const uint8_t* data() const { return io_ != nullptr ? io_->buffer.data() : nullptr; }
  CheckClock::time_point issued() const { return issued_; }
  CheckClock::time_point ended() const { return ended_; }
  // From issue to end.
  int64_t Ms() const { return MsBetween(issued_, ended_); }

 private:
  struct Io {
    std::vector<uint8_t> buffer;
    os::Overlapped overlapped;
    os::Handle event = nullptr;
    ~Io();
  };
  bool Begin(uint32_t count);
  bool AfterCall(bool called_ok, os::Dword done);
  void Collect();

  TimeoutCheckPort& port_;
  std::unique_ptr<Io> io_;
  bool started_ = false;
  bool done_ = false;
  bool in_call_ = false;
  bool ok_ = false;
  os::Dword count_ = 0;
  os::Dword error_ = 0;
  CheckClock::time_point issued_{};
  CheckClock::time_point ended_{};
};

// Writes count bytes and waits up to 1 s for the write; false when they did not all go. The
// moment the write was issued goes to *issued: the bytes cannot come back before it.
bool SendBytes(TimeoutCheckPort& port, uint32_t count, CheckClock::time_point* issued = nullptr);

// Waits until the input queue holds at least count bytes; false when that took over ms.
bool WaitForInput(TimeoutCheckPort& port, os::Dword count, uint32_t ms);

// Reads what comes until the line has been quiet for quiet_ms, at most a few seconds; returns
// the bytes read. Leaves the read timeouts changed.
uint64_t DrainInput(TimeoutCheckPort& port, uint32_t quiet_ms);

os::CommTimeouts MakeTimeouts(os::Dword interval, os::Dword multiplier, os::Dword constant,
                              os::Dword write_multiplier = 0, os::Dword write_constant = 0);

}  // namespace portwren
