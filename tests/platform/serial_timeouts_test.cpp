// Every COMMTIMEOUTS combination, as a Windows serial driver applies it. Times are generous;
// what is checked is the order of things and the counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string_view>
#include <utility>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

constexpr Dword kMax = kMaxDword;

// One read under one set of read timeouts: what is queued before it is issued, what the far
// end sends right after, how long the read must then stay pending, what comes after that,
// the least time it takes, what it gives (always success: a timeout is a short count, never
// ERROR_TIMEOUT) and what stays queued for the next read.
struct ReadCase {
  const char* name;
  CommTimeouts timeouts;
  Dword count;
  const char* queued = "";
  bool in_call = false;  // completes inside ReadFile
  const char* early = "";
  int quiet_ms = 0;
  const char* late = "";
  long long min_ms = 0;
  const char* got = "";
  const char* left = "";
};
void PrintTo(const ReadCase& c, std::ostream* out) {
  *out << c.name;
}

// The total timer, where there is one, is at most 250 ms; the interval timer is 50 ms.
constexpr ReadCase kReadCases[] = {
    {.name = "AllZeroWaitsForEveryByteWithoutATimer",
     .timeouts = {0, 0, 0},
     .count = 5,
     .early = "abc",
     .quiet_ms = 200,
     .late = "de",
     .got = "abcde"},
    {.name = "AllZeroCompletesInTheCallWhenEverythingIsThere",
     .timeouts = {0, 0, 0},
     .count = 5,
     .queued = "hello",
     .in_call = true,
     .got = "hello"},
    {.name = "ZeroLengthReadSucceedsAtOnce", .timeouts = {0, 0, 0}, .count = 0, .in_call = true},
    {.name = "IntervalOnlyReturnsNothingAtOnce", .timeouts = {kMax, 0, 0}, .count = 8, .in_call = true},
    {.name = "IntervalOnlyReturnsWhatIsThereAtOnce",
     .timeouts = {kMax, 0, 0},
     .count = 8,
     .queued = "xy",
     .in_call = true,
     .got = "xy"},
    {.name = "MaxMaxZeroCompletesInTheCallWithNothing",
     .timeouts = {kMax, kMax, 0},
     .count = 8,
     .in_call = true},
    {.name = "MaxMaxConstantReturnsBufferedBytesAtOnce",
     .timeouts = {kMax, kMax, 5000},
     .count = 10,
     .queued = "abc",
     .in_call = true,
     .got = "abc"},
    {.name = "MaxMaxConstantShrinksToOneByteWhenNothingIsThere",
     .timeouts = {kMax, kMax, 5000},
     .count = 10,
     .early = "xyz",
     .got = "x",
     .left = "yz"},
    {.name = "MaxMaxConstantExpiresAsSuccessWithZeroBytes",
     .timeouts = {kMax, kMax, 100},
     .count = 10,
     .min_ms = 90},
    {.name = "MaxWithTotalTimerDoesNotShrink",
     .timeouts = {kMax, 10, 200},
     .count = 5,
     .early = "ab",
     .quiet_ms = 100,
     .min_ms = 240,
     .got = "ab"},
    {.name = "MaxWithTotalTimerReturnsBufferedBytesAtOnce",
     .timeouts = {kMax, 10, 200},
     .count = 5,
     .queued = "cde",
     .in_call = true,
     .got = "cde"},
    {.name = "MaxIntervalAndMaxConstantHaveNoTimerAtAll",
     .timeouts = {kMax, 0, kMax},
     .count = 3,
     .quiet_ms = 250,
     .late = "abc",
     .got = "abc"},
    {.name = "IntervalTimerWaitsForTheFirstByte",
     .timeouts = {50, 0, 0},
     .count = 10,
     .quiet_ms = 250,
     .late = "ab",
     .got = "ab"},
    {.name = "TotalTimeoutCompletesWithAShortCount",
     .timeouts = {0, 20, 100},
     .count = 5,
     .early = "ab",
     .min_ms = 190,
     .got = "ab"},
    // Finish waits 5 s: ending at all means the interval fired, not the 10 s total.
    {.name = "IntervalFiresBeforeTheTotal",
     .timeouts = {50, 0, 10000},
     .count = 10,
     .early = "ab",
     .got = "ab"},
    {.name = "TotalFiresWhenNoByteStartsTheInterval", .timeouts = {5000, 0, 100}, .count = 10, .min_ms = 90},
};

class ReadTimeoutCase : public PortTest, public ::testing::WithParamInterface<ReadCase> {};

// The rows Wine cannot follow, and why (measured row by row).
const char* WineDifference(std::string_view name) {
  static const std::pair<std::string_view, const char*> kRows[] = {
      {"AllZeroCompletesInTheCallWhenEverythingIsThere", wine::kReadsAlwaysPend},
      {"IntervalOnlyReturnsNothingAtOnce", wine::kReadReturnAtOnce},
      {"MaxMaxZeroCompletesInTheCallWithNothing", wine::kReadsAlwaysPend},
      {"MaxMaxConstantReturnsBufferedBytesAtOnce", wine::kReadsAlwaysPend},
      {"MaxWithTotalTimerReturnsBufferedBytesAtOnce", wine::kReadsAlwaysPend},
      {"MaxMaxConstantShrinksToOneByteWhenNothingIsThere", wine::kReadFirstByteTimeout},
      {"MaxMaxConstantExpiresAsSuccessWithZeroBytes", wine::kReadFirstByteTimeout},
      {"TotalFiresWhenNoByteStartsTheInterval", wine::kExpiredReadFails},
  };
  for (const auto& [row, reason] : kRows) {
    if (row == name) return reason;
  }
  return nullptr;
}

TEST_P(ReadTimeoutCase, Read) {
  const ReadCase& c = GetParam();
  if (const char* reason = WineDifference(c.name)) PORTWREN_SKIP_UNDER_WINE(reason);
  ASSERT_TRUE(SetCommTimeouts(port(), &c.timeouts));
  ASSERT_TRUE(Queue(c.queued));
  Io read(c.count);
  const auto start = Clock::now();
  if (c.in_call) {
    ASSERT_TRUE(read.Read(port(), c.count)) << read.issue_error;
    EXPECT_LT(MsSince(start), 1000);
    EXPECT_EQ(read.Text(read.issued_done), c.got);
    EXPECT_TRUE(read.Done(0)) << "the event is set for a completion in the call too";
  } else {
    ASSERT_FALSE(read.Read(port(), c.count));
    ASSERT_TRUE(read.pending()) << read.issue_error;
  }
  ASSERT_TRUE(pty_.WriteFar(c.early));
  EXPECT_FALSE(c.quiet_ms > 0 && read.Done(c.quiet_ms));
  ASSERT_TRUE(pty_.WriteFar(c.late));
  EXPECT_EQ(read.Finish(port(), 5000), Ok(c.got));
  EXPECT_GE(MsSince(start), c.min_ms);

  if (UnderWine(wine::kReadReturnAtOnce)) return;
  SetTimeouts(kMax, 0, 0);
  ASSERT_TRUE(WaitFor([&] { return InQueue() >= std::strlen(c.left); }));
  Io next(16);
  ASSERT_TRUE(next.Read(port(), 16));
  EXPECT_EQ(next.Text(next.issued_done), c.left);
}

INSTANTIATE_TEST_SUITE_P(Timeouts, ReadTimeoutCase, ::testing::ValuesIn(kReadCases),
                         [](const auto& param_info) { return std::string(param_info.param.name); });

class ReadTimeoutTest : public PortTest {};

TEST_F(ReadTimeoutTest, AllThreeMaxAreRefusedOthersReadBack) {
  PORTWREN_SKIP_UNDER_WINE(wine::kAllMaxTimeouts);
  const CommTimeouts refused{kMax, kMax, kMax, 0, 0};
  EXPECT_FALSE(SetCommTimeouts(port(), &refused));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  const CommTimeouts accepted{kMax, kMax, 7, 3, 9};
  ASSERT_TRUE(SetCommTimeouts(port(), &accepted));
  CommTimeouts back{1, 1, 1, 1, 1};
  ASSERT_TRUE(GetCommTimeouts(port(), &back));
  EXPECT_EQ(std::memcmp(&back, &accepted, sizeof back), 0);
}

// The bytes span several intervals: a timer armed by the first byte alone would end the read
// after the first few.
TEST_F(ReadTimeoutTest, IntervalTimerIsRestartedByEachByte) {
  constexpr int kIntervalMs = 150;
  constexpr int kGapMs = 50;
  const std::string sent = "abcdefghijkl";  // 550 ms from first to last
  SetTimeouts(kIntervalMs, 0, 0);
  Io read(32);
  ASSERT_FALSE(read.Read(port(), 32));
  std::jthread sender([&] {
    const auto start = Clock::now();
    for (size_t i = 0; i < sent.size(); ++i) {
      std::this_thread::sleep_until(start + std::chrono::milliseconds(kGapMs * static_cast<int>(i)));
      pty_.WriteFar(sent.substr(i, 1));
    }
  });
  EXPECT_EQ(read.Finish(port(), 5000), Ok(sent));
}

TEST_F(ReadTimeoutTest, TimeoutsAreTakenWhenTheReadBecomesCurrent) {
  PORTWREN_SKIP_UNDER_WINE(wine::kQueuedReadTimer);
  SetTimeouts(0, 0, 600);
  const auto start = Clock::now();
  Io first(1), second(1);
  ASSERT_FALSE(first.Read(port(), 1));
  ASSERT_FALSE(second.Read(port(), 1));  // queued behind the first: no timer yet
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_TRUE(pty_.WriteFar("a"));
  EXPECT_EQ(first.Finish(port()), Ok("a"));
  // Had its timer started when it was issued, it would end near 600 ms.
  EXPECT_FALSE(second.Done(static_cast<Dword>(std::max(0LL, 800 - MsSince(start)))));
  EXPECT_EQ(second.Finish(port()), Ok(""));
}

TEST_F(ReadTimeoutTest, LaterSetCommTimeoutsDoesNotReachTheCurrentRead) {
  PORTWREN_SKIP_UNDER_WINE(wine::kExpiredReadFails);
  SetTimeouts(0, 0, 150);
  Io read(4);
  ASSERT_FALSE(read.Read(port(), 4));
  SetTimeouts(0, 0, 0);  // would mean "wait forever" for a new read
  EXPECT_EQ(read.Finish(port()), Ok(""));
}

TEST_F(ReadTimeoutTest, ZeroLengthWriteSucceedsAndAnOverlappedPortNeedsAnOverlapped) {
  Io write;
  ASSERT_TRUE(write.Write(port(), ""));
  EXPECT_EQ(write.issued_done, 0u);
  char buffer[4];
  Dword done = 0;
  EXPECT_FALSE(ReadFile(port(), buffer, 4, &done, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  EXPECT_FALSE(WriteFile(port(), buffer, 4, &done, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

class WriteTimeoutTest : public PortTest {};

TEST_F(WriteTimeoutTest, TotalTimeoutEndsABlockedWriteWithWhatWasSent) {
  SetTimeouts(0, 0, 0, 0, 200);
  const std::string data(200000, 'w');  // far more than a pseudo-terminal holds
  Io write;
  const auto start = Clock::now();
  ASSERT_FALSE(write.Write(port(), data));
  ASSERT_TRUE(write.pending());
  ASSERT_TRUE(write.Done(3000));
  EXPECT_GE(MsSince(start), 190);
  const auto result = write.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_GT(result.count, 0u);
  EXPECT_LT(result.count, data.size());
  EXPECT_EQ(pty_.DrainFar(100), result.count);
}

TEST_F(WriteTimeoutTest, WithoutTimeoutsAWriteWaitsForTheFarEnd) {
  SetTimeouts(0, 0, 0, 0, 0);
  const std::string data(100000, 'z');
  Io write;
  ASSERT_FALSE(write.Write(port(), data));
  EXPECT_FALSE(write.Done(300));
  EXPECT_EQ(pty_.ReadFar(data.size(), 5000), data);
  EXPECT_EQ(write.Finish(port()), Ok(data));
}

}  // namespace
}  // namespace portwren::testing_util
