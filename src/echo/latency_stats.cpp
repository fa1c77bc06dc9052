#include "echo/latency_stats.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace portwren {

namespace {

constexpr int kBarWidth = 40;

uint32_t NearestRank(const std::vector<uint32_t>& sorted, uint32_t percent) {
  const uint64_t rank = (static_cast<uint64_t>(sorted.size()) * percent + 99) / 100;  // 1-based
  return sorted[rank == 0 ? 0 : rank - 1];
}

}  // namespace

int64_t LatencyClockUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

int LatencyBucket(uint32_t us) {
  int bucket = 0;
  while (bucket + 1 < kLatencyBuckets && (us >> (bucket + 1)) != 0) ++bucket;
  return bucket;
}

LatencySummary SummarizeLatency(std::vector<uint32_t> samples_us) {
  LatencySummary summary;
  if (samples_us.empty()) return summary;
  std::sort(samples_us.begin(), samples_us.end());
  summary.count = samples_us.size();
  summary.min = samples_us.front();
  summary.max = samples_us.back();
  summary.median = NearestRank(samples_us, 50);
  summary.p90 = NearestRank(samples_us, 90);
  summary.p99 = NearestRank(samples_us, 99);
  for (const uint32_t us : samples_us) ++summary.buckets[LatencyBucket(us)];
  return summary;
}

std::vector<std::string> LatencyLines(const LatencySummary& s) {
  std::vector<std::string> lines;
  char line[160];
  std::snprintf(line, sizeof line,
                "Round trip latency (us): count %llu, min %u, median %u, p90 %u, p99 %u, max %u",
                static_cast<unsigned long long>(s.count), s.min, s.median, s.p90, s.p99, s.max);
  lines.emplace_back(line);
  if (s.count == 0) return lines;
  const int first = LatencyBucket(s.min);
  const int last = LatencyBucket(s.max);
  const uint64_t most = *std::max_element(s.buckets + first, s.buckets + last + 1);
  for (int k = first; k <= last; ++k) {
    const uint32_t low = k == 0 ? 0 : 1u << k;
    const uint32_t high = k == 31 ? 0xFFFFFFFFu : (2u << k) - 1;
    // A used bucket shows at least one mark, however small its share.
    int bar = static_cast<int>((s.buckets[k] * kBarWidth + most - 1) / most);
    if (s.buckets[k] == 0) bar = 0;
    std::snprintf(line, sizeof line, "%10u-%-10u us |%-*.*s| %llu", low, high, kBarWidth, bar,
                  "########################################", static_cast<unsigned long long>(s.buckets[k]));
    lines.emplace_back(line);
  }
  return lines;
}

}  // namespace portwren
