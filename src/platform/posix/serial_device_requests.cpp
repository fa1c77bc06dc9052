// The request queues of a serial device: issuing, advancing, completing, cancelling.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/posix/errno_map.h"
#include "platform/posix/serial_device.h"

namespace portwren::os::posix {

namespace {

// Timers this far out are as good as none (and would not fit in a time point).
constexpr uint64_t kFarMilliseconds = uint64_t{1} << 40;

// multiplier * count + constant milliseconds from now, computed without overflow.
std::optional<SerialDevice::Clock::time_point> Deadline(SerialDevice::Clock::time_point now, Dword multiplier,
                                                        Dword count, Dword constant) {
  const uint64_t total = uint64_t{multiplier} * count + constant;
  if (total >= kFarMilliseconds) return std::nullopt;
  return now + std::chrono::milliseconds(total);
}

}  // namespace

bool SerialDevice::Read(void* buffer, Dword size, Dword* done, const CompletionTarget& target) {
  if (!can_read()) return Fail(kErrAccessDenied);
  auto request = std::make_unique<Request>();
  request->kind = Kind::kRead;
  request->read_buffer = static_cast<uint8_t*>(buffer);
  return Start(std::move(request), size, done, target, &reads_);
}

bool SerialDevice::Write(const void* buffer, Dword size, Dword* done, const CompletionTarget& target) {
  if (!can_write()) return Fail(kErrAccessDenied);
  auto request = std::make_unique<Request>();
  request->kind = Kind::kWrite;
  request->write_buffer = static_cast<const uint8_t*>(buffer);
  return Start(std::move(request), size, done, target, &writes_);
}

// A zero-byte transfer succeeds at once and never joins the queue, as on Windows.
bool SerialDevice::Start(RequestPtr request, Dword size, Dword* done, const CompletionTarget& target,
                         std::deque<RequestPtr>* queue) {
  DeviceLock lock(*this);
  if (!Usable()) return false;
  if (abort_latched_) return Fail(kErrOperationAborted);
  target.Begin();
  if (size == 0) {
    if (done != nullptr) *done = 0;
    target.Finish(kStatusSuccess, 0, true);
    return true;
  }
  request->target = target;
  request->issuer = GetCurrentThreadId();
  request->length = size;
  return Issue(std::move(request), queue, done);
}

bool SerialDevice::Issue(RequestPtr request, std::deque<RequestPtr>* queue, Dword* done) {
  InCallResult result;
  request->in_call = &result;
  Request* issued = request.get();
  queue->push_back(std::move(request));
  const Clock::time_point now = Clock::now();
  Pump(now);
  // Most requests that end here leave nothing for the service thread to watch.
  WakeIfStale(now);
  if (!result.completed) {
    issued->in_call = nullptr;
    return Fail(kErrIoPending);
  }
  if (done != nullptr) *done = result.count;
  if (!StatusIsSuccess(result.status)) return Fail(ErrorFromStatus(result.status));
  return true;
}

void SerialDevice::Pump(Clock::time_point now) {
  PumpReads(now);
  PumpWrites(now);
  CheckTxEmpty();
}

void SerialDevice::StartReadTiming(Request& request, Clock::time_point now) {
  // Sampled now, when the read becomes current; later SetCommTimeouts calls do not reach it.
  const Dword interval = timeouts_.ReadIntervalTimeout;
  const Dword multiplier = timeouts_.ReadTotalTimeoutMultiplier;
  const Dword constant = timeouts_.ReadTotalTimeoutConstant;
  request.started = true;
  request.need = request.length;
  if (interval == kMaxDword) {
    if (multiplier == 0 && constant == 0) {
      request.immediate = true;  // whatever is there, possibly nothing
    } else if (multiplier == kMaxDword) {
      if (constant == 0) {
        request.immediate = true;
      } else {
        // What is there at once; else the first byte alone, waiting at most the constant.
        request.return_if_any = true;
        request.shrink = true;
        request.total_deadline = Deadline(now, 0, 0, constant);
      }
    } else {
      // What is there at once; else all of it, within the total timeout if there is one.
      request.return_if_any = true;
      if (constant != kMaxDword) request.total_deadline = Deadline(now, multiplier, request.length, constant);
    }
    return;
  }
  if (interval != 0) request.interval_ms = interval;  // armed by each byte
  if (multiplier != 0 || constant != 0) {
    request.total_deadline = Deadline(now, multiplier, request.length, constant);
  }
}

Dword SerialDevice::FillRead(Request& request, Clock::time_point now) {
  while (request.done < request.need) {
    uint8_t* fresh = request.read_buffer + request.done;
    const ssize_t got = ::read(fd_, fresh, request.need - request.done);
    if (got > 0) {
      rx_progress_ = true;
      request.done += static_cast<Dword>(got);
      // Bytes already seen in the queue were reported as they came; only the rest are news.
      const int seen = std::min(rx_seen_, static_cast<int>(got));
      rx_seen_ -= seen;
      const uint8_t* news = fresh + seen;
      const size_t news_count = static_cast<size_t>(got - seen);
      Dword events = news_count > 0 ? kEvRxChar : 0;
      if ((event_mask_ & kEvRxFlag) != 0 &&
          std::memchr(news, static_cast<uint8_t>(shadow_.EvtChar), news_count) != nullptr) {
        events |= kEvRxFlag;
      }
      if (request.interval_ms != 0)
        request.interval_deadline = now + std::chrono::milliseconds(request.interval_ms);
      RaiseEvents(events);
      continue;
    }
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return kErrSuccess;
    if (got == 0) return HungUp() ? kErrDeviceNotConnected : kErrSuccess;
    return IoFailure(errno);
  }
  return kErrSuccess;
}

Dword SerialDevice::IoFailure(int error_number) {
  return HungUp() ? kErrDeviceNotConnected : WinErrorFromErrno(error_number);
}

void SerialDevice::PumpReads(Clock::time_point now) {
  while (!reads_.empty() && !gone_) {
    Request& request = *reads_.front();
    if (!request.started) StartReadTiming(request, now);
    if (const Dword failure = FillRead(request, now); failure != kErrSuccess) {
      if (failure == kErrDeviceNotConnected) {
        MarkGone(failure);
      } else {
        CompleteFront(&reads_, StatusFromError(failure));
      }
      continue;
    }
    if (request.return_if_any) {
      request.return_if_any = false;
      if (request.done > 0) {
        CompleteFront(&reads_, kStatusSuccess);
        continue;
      }
      if (request.shrink) request.need = 1;
    }
    if (request.immediate || request.done >= request.need) {
      CompleteFront(&reads_, kStatusSuccess);
      continue;
    }
    const bool total_expired = request.total_deadline && now >= *request.total_deadline;
    const bool interval_expired = request.interval_deadline && now >= *request.interval_deadline;
    if (total_expired || interval_expired) {
      CompleteFront(&reads_, kStatusTimeout);
      continue;
    }
    break;
  }
}

void SerialDevice::StartWriteTiming(Request& request, Clock::time_point now) {
  request.started = true;
  const Dword multiplier = timeouts_.WriteTotalTimeoutMultiplier;
  const Dword constant = timeouts_.WriteTotalTimeoutConstant;
  if (multiplier != 0 || constant != 0) {
    request.total_deadline = Deadline(now, multiplier, request.length, constant);
  }
}

Dword SerialDevice::FillWrite(Request& request) {
  while (request.done < request.length) {
    const ssize_t put = ::write(fd_, request.write_buffer + request.done, request.length - request.done);
    if (put > 0) {
      tx_progress_ = true;
      request.done += static_cast<Dword>(put);
      tx_since_empty_ = true;
      continue;
    }
    if (put < 0 && errno == EINTR) continue;
    if (put == 0 || (put < 0 && errno == EAGAIN)) return kErrSuccess;
    return IoFailure(errno);
  }
  return kErrSuccess;
}

void SerialDevice::PumpWrites(Clock::time_point now) {
  while (!writes_.empty() && !gone_) {
    Request& request = *writes_.front();
    if (!request.started) StartWriteTiming(request, now);
    if (const Dword failure = FillWrite(request); failure != kErrSuccess) {
      if (failure == kErrDeviceNotConnected) {
        MarkGone(failure);
      } else {
        CompleteFront(&writes_, StatusFromError(failure));
      }
      continue;
    }
    if (request.done >= request.length) {
      CompleteFront(&writes_, kStatusSuccess);
      continue;
    }
    if (request.total_deadline && now >= *request.total_deadline) {
      CompleteFront(&writes_, kStatusTimeout);
      continue;
    }
    break;
  }
}

void SerialDevice::CheckTxEmpty() {
  tx_draining_ = false;
  if (!writes_.empty() || !tx_since_empty_ || gone_) return;
  if (OutputQueueBytes() > 0) {
    tx_draining_ = true;
    return;
  }
  tx_since_empty_ = false;
  RaiseEvents(kEvTxEmpty);
}

void SerialDevice::Complete(RequestPtr request, uintptr_t status) {
  const Dword count = request->kind == Kind::kWait ? static_cast<Dword>(sizeof(Dword)) : request->done;
  const bool in_call = request->in_call != nullptr;
  if (in_call) {
    request->in_call->completed = true;
    request->in_call->status = status;
    request->in_call->count = count;
  }
  request->target.Finish(status, count, in_call);
}

void SerialDevice::CompleteFront(std::deque<RequestPtr>* queue, uintptr_t status) {
  RequestPtr request = std::move(queue->front());
  queue->pop_front();
  Complete(std::move(request), status);
}

void SerialDevice::CompleteAll(std::deque<RequestPtr>* queue, uintptr_t status) {
  std::deque<RequestPtr> requests = std::exchange(*queue, {});
  for (RequestPtr& request : requests) Complete(std::move(request), status);
}

void SerialDevice::CompleteWait(Dword events, uintptr_t status) {
  RequestPtr request = std::move(wait_);
  *request->event_mask = events;
  Complete(std::move(request), status);
}

void SerialDevice::MarkGone(Dword error) {
  gone_ = true;
  gone_error_ = error;
  const uintptr_t status = StatusFromError(error);
  CompleteAll(&reads_, status);
  CompleteAll(&writes_, status);
  if (wait_ != nullptr) CompleteWait(0, status);
}

void SerialDevice::CancelMatching(std::deque<RequestPtr>* queue, Dword thread_id) {
  std::deque<RequestPtr> kept;
  std::vector<RequestPtr> cancelled;
  for (RequestPtr& request : *queue) {
    if (request->issuer == thread_id) {
      cancelled.push_back(std::move(request));
    } else {
      kept.push_back(std::move(request));
    }
  }
  *queue = std::move(kept);
  // The bytes a cancelled read already received stay in its buffer and are reported.
  for (RequestPtr& request : cancelled) Complete(std::move(request), StatusFromError(kErrOperationAborted));
}

bool SerialDevice::CancelThreadRequests(Dword thread_id) {
  DeviceLock lock(*this);
  if (closing_) return Fail(kErrInvalidHandle);
  CancelMatching(&reads_, thread_id);
  CancelMatching(&writes_, thread_id);
  if (wait_ != nullptr && wait_->issuer == thread_id) CompleteWait(0, StatusFromError(kErrOperationAborted));
  Pump(Clock::now());  // the next read or write is current now: its timers start
  Wake();
  return true;
}

bool SerialDevice::CancelRequest(const Overlapped* overlapped) {
  DeviceLock lock(*this);
  if (closing_) return Fail(kErrInvalidHandle);
  const uintptr_t aborted = StatusFromError(kErrOperationAborted);
  bool found = false;
  for (std::deque<RequestPtr>* queue : {&reads_, &writes_}) {
    for (auto it = queue->begin(); it != queue->end();) {
      if (overlapped == nullptr || (*it)->target.overlapped == overlapped) {
        RequestPtr request = std::move(*it);
        it = queue->erase(it);
        Complete(std::move(request), aborted);
        found = true;
      } else {
        ++it;
      }
    }
  }
  if (wait_ != nullptr && (overlapped == nullptr || wait_->target.overlapped == overlapped)) {
    CompleteWait(0, aborted);
    found = true;
  }
  Pump(Clock::now());
  Wake();
  return found ? true : Fail(kErrNotFound);
}

}  // namespace portwren::os::posix
