// The port under test is the slave side of a pseudo-terminal, opened as the program opens
// its port (overlapped, exclusive); the test holds the far end.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/pty_pair.h"
#include "platform/os_serial.h"
#include "platform/os_sync.h"
#include "support/handle_holder.h"

namespace portwren::testing_util {

using namespace os;

using Clock = std::chrono::steady_clock;

inline long long MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// One overlapped request with its own manual-reset event and buffer.
struct Io {
  explicit Io(size_t size = 0) : buffer(size, '\0'), event(CreateEventA(true, false)) {
    overlapped.hEvent = event.get();
  }

  bool Read(Handle port, Dword count) {
    if (buffer.size() < count) buffer.resize(count);
    issued_ok = ReadFile(port, buffer.data(), count, &issued_done, &overlapped);
    issue_error = issued_ok ? 0 : GetLastError();
    return issued_ok;
  }

  bool Write(Handle port, std::string_view data) {
    buffer.assign(data.begin(), data.end());
    issued_ok = WriteFile(port, buffer.data(), static_cast<Dword>(buffer.size()), &issued_done, &overlapped);
    issue_error = issued_ok ? 0 : GetLastError();
    return issued_ok;
  }

  bool pending() const { return !issued_ok && issue_error == kErrIoPending; }
  bool Done(Dword milliseconds) { return WaitForSingleObject(event.get(), milliseconds) == kWaitObject0; }

  struct Result {
    bool ok;
    Dword error;
    Dword count;
  };
  Result Collect(Handle port, bool wait = true) {
    Dword count = 0;
    const bool ok = GetOverlappedResult(port, &overlapped, &count, wait);
    return {ok, ok ? 0 : GetLastError(), count};
  }
  std::string Text(Dword count) const { return std::string(buffer.data(), count); }

  std::string buffer;
  EventHolder event;
  Overlapped overlapped;
  bool issued_ok = false;
  Dword issue_error = 0;
  Dword issued_done = 0;
};

class PortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(pty_.ok());
    port_.reset(CreateFileA(pty_.slave_path().c_str(), kGenericRead | kGenericWrite, 0, kOpenExisting,
                            kFileFlagOverlapped));
    ASSERT_TRUE(port_) << "CreateFileA failed: " << GetLastError();
  }

  Handle port() const { return port_.get(); }

  void SetTimeouts(Dword interval, Dword multiplier, Dword constant, Dword write_multiplier = 0,
                   Dword write_constant = 0) {
    const CommTimeouts timeouts{interval, multiplier, constant, write_multiplier, write_constant};
    ASSERT_TRUE(SetCommTimeouts(port(), &timeouts)) << GetLastError();
  }

  Dword InQueue() {
    ComStat stat;
    Dword errors = 0;
    return ClearCommError(port(), &errors, &stat) ? stat.cbInQue : 0;
  }

  // Waits until the port has received at least count bytes nobody has read yet.
  bool WaitForInQueue(Dword count, int timeout_ms = 2000) {
    const auto start = Clock::now();
    while (MsSince(start) < timeout_ms) {
      if (InQueue() >= count) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
  }

  testkit::PtyPair pty_;
  HandleHolder port_;
};

}  // namespace portwren::testing_util
