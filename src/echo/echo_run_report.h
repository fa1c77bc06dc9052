// What one echo run leaves behind for the results file: the counts, the first error and, in mild
// mode, the round-trip latency.
#pragma once

#include <atomic>
#include <cstdint>

#include "echo/latency_stats.h"

namespace portwren {

// kind names the check or call that failed; expected and received are its two values (ids,
// lengths, CRCs, byte counts; for a failed call the Windows error and 0).
struct EchoErrorNote {
  const char* kind = nullptr;
  uint32_t chunk_id = 0;
  int64_t expected = 0;
  int64_t received = 0;
};

// Any thread may note an error; the first one wins and is read once the threads have ended.
class FirstEchoError {
 public:
  void Note(const char* kind, uint32_t chunk_id, int64_t expected, int64_t received) {
    if (claimed_.exchange(true)) return;
    note_ = {kind, chunk_id, expected, received};
    ready_.store(true, std::memory_order_release);
  }
  bool Get(EchoErrorNote* out) const {
    if (!ready_.load(std::memory_order_acquire)) return false;
    *out = note_;
    return true;
  }

 private:
  std::atomic<bool> claimed_{false};
  std::atomic<bool> ready_{false};
  EchoErrorNote note_;
};

struct EchoClientReport {
  uint64_t chunks_sent = 0;
  uint64_t bytes_sent = 0;
  uint64_t chunks_received = 0;
  uint64_t bytes_received = 0;
  bool has_error = false;
  EchoErrorNote error;
  bool latency_measured = false;  // mild mode only
  LatencySummary latency;
  double transfer_seconds = 0;  // from the workers' start to their end, without the port's set-up
};

struct EchoServerReport {
  bool started = false;
  uint64_t chunks_received = 0;
  uint64_t bytes_received = 0;
  uint64_t chunks_echoed = 0;
  uint64_t bytes_echoed = 0;
  bool wrong_data = false;      // a bad CRC or length was reported
  bool ended_on_error = false;  // an error ended the chain of requests
  bool has_error = false;
  EchoErrorNote error;
  double echo_seconds = 0;  // from the first chunk head read to the last echo, without the wait before
};

}  // namespace portwren
