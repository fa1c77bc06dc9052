// Round-trip figures: nearest-rank percentiles and power-of-two buckets.
#include "echo/latency_stats.h"

#include <gtest/gtest.h>

#include <numeric>

namespace portwren {
namespace {

TEST(LatencyStats, FiguresByNearestRank) {
  std::vector<uint32_t> hundred(100);
  std::iota(hundred.rbegin(), hundred.rend(), 1u);  // 100..1, unsorted on purpose
  const struct {
    std::vector<uint32_t> samples;
    uint32_t min, median, p90, p99, max;
  } cases[] = {
      {{}, 0, 0, 0, 0, 0},
      {{7}, 7, 7, 7, 7, 7},
      {{5, 1}, 1, 1, 5, 5, 5},
      {hundred, 1, 50, 90, 99, 100},
  };
  for (const auto& c : cases) {
    const LatencySummary s = SummarizeLatency(c.samples);
    EXPECT_EQ(c.samples.size(), s.count);
    EXPECT_EQ(c.min, s.min);
    EXPECT_EQ(c.median, s.median);
    EXPECT_EQ(c.p90, s.p90);
    EXPECT_EQ(c.p99, s.p99);
    EXPECT_EQ(c.max, s.max);
  }
}

TEST(LatencyStats, BucketsAndBars) {
  const struct {
    uint32_t us;
    int bucket;
  } edges[] = {{0, 0}, {1, 0}, {2, 1}, {3, 1}, {4, 2}, {127, 6}, {128, 7}, {0xFFFFFFFFu, 31}};
  for (const auto& e : edges) EXPECT_EQ(e.bucket, LatencyBucket(e.us)) << e.us;

  const LatencySummary s = SummarizeLatency({100, 100, 100, 100, 300});
  EXPECT_EQ(4u, s.buckets[6]);
  EXPECT_EQ(1u, s.buckets[8]);
  const std::vector<std::string> lines = LatencyLines(s);
  ASSERT_EQ(4u, lines.size());  // the figures, buckets 6 to 8 (7 empty)
  EXPECT_EQ("Round trip latency (us): count 5, min 100, median 100, p90 300, p99 300, max 300", lines[0]);
  EXPECT_EQ("        64-127        us |########################################| 4", lines[1]);
  EXPECT_EQ("       128-255        us |                                        | 0", lines[2]);
  EXPECT_EQ("       256-511        us |##########                              | 1", lines[3]);
}

}  // namespace
}  // namespace portwren
