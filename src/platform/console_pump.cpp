#include "platform/console_pump.h"

#include <algorithm>
#include <chrono>

namespace portwren::os {

PumpedStream::~PumpedStream() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  room_.notify_all();
  if (pump_.joinable()) pump_.join();
}

int PumpedStream::Read(int wait_ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!pump_.joinable() && !ended_) pump_ = std::thread([this] { Pump(); });
  const auto ready = [this] { return !bytes_.empty() || ended_; };
  if (wait_ms < 0) {
    arrived_.wait(lock, ready);
  } else if (!arrived_.wait_for(lock, std::chrono::milliseconds(wait_ms), ready)) {
    return kNothing;
  }
  if (bytes_.empty()) return kEnd;
  const int byte = bytes_.front();
  bytes_.pop_front();
  room_.notify_one();
  return byte;
}

void PumpedStream::Pump() {
  unsigned char chunk[256];
  for (;;) {
    const long got = read_(chunk, sizeof chunk);
    std::unique_lock<std::mutex> lock(mutex_);
    if (got <= 0) {
      // The end, a broken pipe or no input at all: ESC from now on.
      ended_ = true;
      arrived_.notify_all();
      return;
    }
    bytes_.insert(bytes_.end(), chunk, chunk + std::min(static_cast<size_t>(got), sizeof chunk));
    arrived_.notify_all();
    room_.wait(lock, [this] { return bytes_.size() < kMaxAhead || stopping_; });
    if (stopping_) return;
  }
}

}  // namespace portwren::os
