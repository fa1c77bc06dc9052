// The port under test is one end of a serial line (common/line_pair.h), opened as the program
// opens its port (overlapped, exclusive); the test holds the far end.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "common/line_pair.h"
#include "platform/os_serial.h"
#include "platform/os_sync.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren::testing_util {

using namespace os;

using Clock = std::chrono::steady_clock;

inline long long MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// What Io::Finish gives for a request that succeeded or failed with the given bytes.
inline std::string Ok(std::string_view bytes) {
  return "ok " + std::string(bytes);
}
inline std::string Failed(Dword error, std::string_view bytes = "") {
  return "error " + std::to_string(error) + " " + std::string(bytes);
}

// One overlapped request with its own manual-reset event and buffer.
struct Io {
  explicit Io(size_t size = 0) : buffer(size, '\0'), event(CreateEventA(true, false)) {
    overlapped.hEvent = event.get();
  }
  // A failed test may leave the request pending; it must not outlive its Overlapped.
  ~Io() {
    if (pending() && !HasOverlappedIoCompleted(&overlapped) && CancelIoEx(port, &overlapped)) Collect(port);
  }

  bool Read(Handle target, Dword count) {
    if (buffer.size() < count) buffer.resize(count);
    return Issued(target, ReadFile(target, buffer.data(), count, &issued_done, &overlapped));
  }
  bool Write(Handle target, std::string_view data) {
    buffer.assign(data.begin(), data.end());
    return Issued(target, WriteFile(target, buffer.data(), static_cast<Dword>(buffer.size()), &issued_done,
                                    &overlapped));
  }

  bool pending() const { return !issued_ok && issue_error == kErrIoPending; }
  bool Done(Dword milliseconds) { return WaitForSingleObject(event.get(), milliseconds) == kWaitObject0; }

  struct Result {
    bool ok;
    Dword error;
    Dword count;
  };
  Result Collect(Handle target, bool wait = true) {
    Dword count = 0;
    const bool ok = GetOverlappedResult(target, &overlapped, &count, wait);
    return {ok, ok ? 0 : GetLastError(), count};
  }
  // How the request ended within milliseconds: Ok(bytes) or Failed(error, bytes), the bytes
  // being those it reports; "pending" if it did not end.
  std::string Finish(Handle target, Dword milliseconds = 3000) {
    if (!Done(milliseconds)) return "pending";
    const Result result = Collect(target);
    return result.ok ? Ok(Text(result.count)) : Failed(result.error, Text(result.count));
  }
  std::string Text(Dword count) const { return buffer.substr(0, count); }

  std::string buffer;
  EventHolder event;
  Overlapped overlapped;
  Handle port = kInvalidHandle;
  bool issued_ok = false;
  Dword issue_error = 0;
  Dword issued_done = 0;

 private:
  bool Issued(Handle target, bool ok) {
    issue_error = ok ? 0 : GetLastError();
    port = target;
    issued_ok = ok;
    return ok;
  }
};

// A one-shot gate. Not std::latch: MinGW's libstdc++ 12 waits for atomics through a shared
// condition variable notified without its mutex, and loses wake-ups (measured: a thread waiting
// on a latch that was counted down hangs within a hundred rounds under Wine).
class Gate {
 public:
  void Open() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      open_ = true;
    }
    opened_.notify_all();
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

// Runs issue() on a thread of its own that stays alive until Release(), then runs last()
// there: Windows cancels a thread's requests when it ends, so no issuing thread ends early.
class IssuingThread {
 public:
  explicit IssuingThread(
      const std::function<void()>& issue, const std::function<void()>& last = [] {})
      : thread_([this, issue, last] {
          issue();
          issued_.Open();
          released_.Wait();
          last();
        }) {
    issued_.Wait();
  }
  ~IssuingThread() { Release(); }
  void Release() {
    if (!thread_.joinable()) return;
    released_.Open();
    thread_.join();
  }

 private:
  Gate issued_;
  Gate released_;
  std::thread thread_;
};

class PortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(pty_.ok()) << pty_.error();
    port_.reset(OpenPort());
    ASSERT_TRUE(port_) << "CreateFileA failed: " << GetLastError();
    SetTimeouts(0, 0, 0);  // each test starts from reads that wait for every byte
  }

  Handle port() const { return port_.get(); }
  Handle OpenPort(Dword access = kGenericRead | kGenericWrite, Dword flags = kFileFlagOverlapped) {
    return CreateFileA(pty_.port_path().c_str(), access, 0, kOpenExisting, flags);
  }

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
  // Sends bytes from the far end and waits until the port holds them unread.
  bool Queue(std::string_view bytes) {
    const Dword before = InQueue();
    return pty_.WriteFar(bytes) && WaitFor([&] { return InQueue() >= before + bytes.size(); });
  }
  // Sends bytes from the far end after ms, from a thread joined when the result goes.
  std::jthread WriteFarAfter(int ms, std::string bytes) {
    return std::jthread([this, ms, bytes] {
      std::this_thread::sleep_for(std::chrono::milliseconds(ms));
      pty_.WriteFar(bytes);
    });
  }

  testkit::LinePair pty_;  // the line; natively a pseudo-terminal pair
  HandleHolder port_;
};

}  // namespace portwren::testing_util
