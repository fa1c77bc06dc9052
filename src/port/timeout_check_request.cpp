#include "port/timeout_check_request.h"

#include "platform/os_sync.h"

namespace portwren {

namespace {
// How long End gives a cancel, then an abort, to end a request.
constexpr uint32_t kEndWaitMs = 2000;
// A drain stops after this long even when the far end keeps sending.
constexpr int64_t kDrainMostMs = 3000;
constexpr uint32_t kDrainChunk = 65536;
}  // namespace

int64_t MsBetween(CheckClock::time_point from, CheckClock::time_point to) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(to - from).count();
}

CheckRequest::Io::~Io() {
  if (event != nullptr) os::CloseHandle(event);
}

CheckRequest::~CheckRequest() {
  End();
}

bool CheckRequest::Begin(uint32_t count) {
  io_ = std::make_unique<Io>();
  io_->buffer.assign(count, 0);
  io_->event = os::CreateEventA(true, false);
  started_ = true;
  issued_ = CheckClock::now();
  if (io_->event == nullptr) {
    done_ = true;
    error_ = os::GetLastError();
    ended_ = issued_;
    return false;
  }
  io_->overlapped.hEvent = io_->event;
  return true;
}

bool CheckRequest::StartRead(uint32_t count) {
  if (!Begin(count)) return false;
  os::Dword done = 0;
  const bool called_ok = port_.Read(io_->buffer.data(), count, &done, &io_->overlapped);
  return AfterCall(called_ok, done);
}

bool CheckRequest::StartWrite(uint32_t count) {
  if (!Begin(count)) return false;
  for (uint32_t i = 0; i < count; ++i) io_->buffer[i] = static_cast<uint8_t>('A' + i % 26);
  os::Dword done = 0;
  const bool called_ok = port_.Write(io_->buffer.data(), count, &done, &io_->overlapped);
  return AfterCall(called_ok, done);
}

bool CheckRequest::AfterCall(bool called_ok, os::Dword done) {
  ended_ = CheckClock::now();
  if (called_ok) {
    done_ = in_call_ = ok_ = true;
    count_ = done;
    return true;
  }
  const os::Dword error = os::GetLastError();
  if (error == os::kErrIoPending) return true;
  done_ = true;
  error_ = error;
  return false;
}

void CheckRequest::Collect() {
  os::Dword count = 0;
  const bool result = port_.Result(&io_->overlapped, &count, false);
  const os::Dword error = result ? 0 : os::GetLastError();
  if (error == os::kErrIoIncomplete) return;
  ended_ = CheckClock::now();
  done_ = true;
  ok_ = result;
  count_ = count;
  error_ = error;
}

bool CheckRequest::WaitUntil(CheckClock::time_point deadline) {
  while (started_ && !done_) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - CheckClock::now()).count();
    const os::Dword ms = left > 0 ? static_cast<os::Dword>(left) : 0;
    if (os::WaitForSingleObject(io_->event, ms) != os::kWaitObject0) return false;
    Collect();
    if (!done_ && ms == 0) return false;
  }
  return done_;
}

bool CheckRequest::End() {
  if (!started_ || done_) return true;
  port_.Cancel();
  if (WaitMs(kEndWaitMs)) return true;
  port_.Purge(os::kPurgeTxAbort | os::kPurgeRxAbort);
  if (WaitMs(kEndWaitMs)) return true;
  // The driver may still write into the buffer or set the event: both stay allocated.
  static_cast<void>(io_.release());
  done_ = true;
  ok_ = false;
  error_ = os::kErrIoPending;
  return false;
}

bool SendBytes(TimeoutCheckPort& port, uint32_t count, CheckClock::time_point* issued) {
  CheckRequest write(port);
  const bool started = write.StartWrite(count);
  if (issued != nullptr) *issued = write.issued();
  if (!started || !write.WaitMs(1000)) return false;
  return write.ok() && write.count() == count;
}

bool WaitForInput(TimeoutCheckPort& port, os::Dword count, uint32_t ms) {
  const auto deadline = CheckClock::now() + std::chrono::milliseconds(ms);
  for (;;) {
    os::Dword queued = 0;
    if (port.InputQueue(&queued) && queued >= count) return true;
    if (CheckClock::now() >= deadline) return false;
    os::Sleep(2);
  }
}

uint64_t DrainInput(TimeoutCheckPort& port, uint32_t quiet_ms) {
  if (!port.SetTimeouts(MakeTimeouts(os::kMaxDword, os::kMaxDword, quiet_ms))) return 0;
  const auto start = CheckClock::now();
  uint64_t total = 0;
  while (MsBetween(start, CheckClock::now()) < kDrainMostMs) {
    CheckRequest read(port);
    if (!read.StartRead(kDrainChunk) || !read.WaitMs(quiet_ms + 500)) break;
    if (!read.ok() || read.count() == 0) break;
    total += read.count();
  }
  return total;
}

os::CommTimeouts MakeTimeouts(os::Dword interval, os::Dword multiplier, os::Dword constant,
                              os::Dword write_multiplier, os::Dword write_constant) {
  os::CommTimeouts timeouts;
  timeouts.ReadIntervalTimeout = interval;
  timeouts.ReadTotalTimeoutMultiplier = multiplier;
  timeouts.ReadTotalTimeoutConstant = constant;
  timeouts.WriteTotalTimeoutMultiplier = write_multiplier;
  timeouts.WriteTotalTimeoutConstant = write_constant;
  return timeouts;
}

}  // namespace portwren
