// Round-trip times of the mild echo run: the figures a driver's latency is judged by, and a
// histogram in power-of-two microsecond buckets that a person reads at a glance.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace portwren {

inline constexpr int kLatencyBuckets = 32;

struct LatencySummary {
  uint64_t count = 0;
  uint32_t min = 0;
  uint32_t median = 0;
  uint32_t p90 = 0;
  uint32_t p99 = 0;
  uint32_t max = 0;
  // buckets[0] counts 0..1 us, buckets[k] counts 2^k .. 2^(k+1)-1 us.
  uint64_t buckets[kLatencyBuckets] = {};
};

// Percentiles by nearest rank: the smallest sample that at least p% of the samples do not exceed.
LatencySummary SummarizeLatency(std::vector<uint32_t> samples_us);

// A steady clock in microseconds, for round trips.
int64_t LatencyClockUs();

// The bucket that holds `us`.
int LatencyBucket(uint32_t us);

// "Round trip latency (us): count ..." and one bar per bucket from the first to the last used one.
std::vector<std::string> LatencyLines(const LatencySummary& summary);

}  // namespace portwren
