// Every COMMTIMEOUTS combination, as a Windows serial driver applies it. Times are generous;
// what is checked is the order of things and the counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

constexpr Dword kMax = kMaxDword;

// One read: what is queued before it is issued, whether it ends inside ReadFile, what the far end
// sends right after, how long it must then stay pending, what comes after that, the least time it
// takes, what it gives (always success: a timeout is a short count) and what stays queued.
struct ReadCase {
  const char* name;
  CommTimeouts timeouts;
  Dword count;
  const char* queued;
  bool in_call;
  const char* early;
  int quiet_ms;
  const char* late;
  long long min_ms;
  const char* got;
  const char* left;
  const char* wine;                // why Wine cannot follow the row
  bool reset_after_issue = false;  // SetCommTimeouts(0/0/0) once the read is current
};
void PrintTo(const ReadCase& c, std::ostream* out) {
  *out << c.name;
}

// clang-format off
const ReadCase kReadCases[] = {
  {"AllZeroWaitsForEveryByteWithoutATimer", {0, 0, 0}, 5, "", false, "abc", 200, "de", 0, "abcde", "", nullptr},
  {"AllZeroCompletesInTheCallWhenEverythingIsThere", {0, 0, 0}, 5, "hello", true, "", 0, "", 0, "hello", "",
   wine::kReadsAlwaysPend},
  {"ZeroLengthReadSucceedsAtOnce", {0, 0, 0}, 0, "", true, "", 0, "", 0, "", "", nullptr},
  {"IntervalOnlyReturnsNothingAtOnce", {kMax, 0, 0}, 8, "", true, "", 0, "", 0, "", "", wine::kReadReturnAtOnce},
  {"IntervalOnlyReturnsWhatIsThereAtOnce", {kMax, 0, 0}, 8, "xy", true, "", 0, "", 0, "xy", "", nullptr},
  {"MaxMaxZeroCompletesInTheCallWithNothing", {kMax, kMax, 0}, 8, "", true, "", 0, "", 0, "", "",
   wine::kReadsAlwaysPend},
  {"MaxMaxConstantReturnsBufferedBytesAtOnce", {kMax, kMax, 5000}, 10, "abc", true, "", 0, "", 0, "abc", "",
   wine::kReadsAlwaysPend},
  {"MaxMaxConstantShrinksToOneByteWhenNothingIsThere", {kMax, kMax, 5000}, 10, "", false, "xyz", 0, "", 0, "x",
   "yz", wine::kReadFirstByteTimeout},
  {"MaxMaxConstantExpiresAsSuccessWithZeroBytes", {kMax, kMax, 100}, 10, "", false, "", 0, "", 90, "", "",
   wine::kReadFirstByteTimeout},
  {"MaxWithTotalTimerDoesNotShrink", {kMax, 10, 200}, 5, "", false, "ab", 100, "", 240, "ab", "", nullptr},
  {"MaxWithTotalTimerReturnsBufferedBytesAtOnce", {kMax, 10, 200}, 5, "cde", true, "", 0, "", 0, "cde", "",
   wine::kReadsAlwaysPend},
  {"MaxIntervalAndMaxConstantHaveNoTimerAtAll", {kMax, 0, kMax}, 3, "", false, "", 250, "abc", 0, "abc", "",
   nullptr},
  {"IntervalTimerWaitsForTheFirstByte", {50, 0, 0}, 10, "", false, "", 250, "ab", 0, "ab", "", nullptr},
  {"TotalTimeoutCompletesWithAShortCount", {0, 20, 100}, 5, "", false, "ab", 0, "", 190, "ab", "", nullptr},
  // Finish waits 5 s: ending at all means the interval fired, not the 10 s total.
  {"IntervalFiresBeforeTheTotal", {50, 0, 10000}, 10, "", false, "ab", 0, "", 0, "ab", "", nullptr},
  {"TotalFiresWhenNoByteStartsTheInterval", {5000, 0, 100}, 10, "", false, "", 0, "", 90, "", "",
   wine::kExpiredReadFails},
  // 0/0/0 would mean "wait forever" for a new read; the current one keeps its 150 ms.
  {"LaterSetCommTimeoutsDoesNotReachTheCurrentRead", {0, 0, 150}, 4, "", false, "", 0, "", 140, "", "",
   wine::kExpiredReadFails, true},
};
// clang-format on

class ReadTimeoutCase : public PortTest, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(ReadTimeoutCase, Read) {
  const ReadCase& c = GetParam();
  if (c.wine != nullptr) PORTWREN_SKIP_UNDER_WINE(c.wine);
  ASSERT_TRUE(SetCommTimeouts(port(), &c.timeouts));
  ASSERT_TRUE(Queue(c.queued));
  Io read(c.count);
  const auto start = Clock::now();
  ASSERT_EQ(read.Read(port(), c.count), c.in_call) << read.issue_error;
  if (c.in_call) {
    EXPECT_LT(MsSince(start), 1000);
    EXPECT_EQ(read.Text(read.issued_done), c.got);
    EXPECT_TRUE(read.Done(0)) << "the event is set for a completion in the call too";
  }
  ASSERT_TRUE(c.in_call || read.pending()) << read.issue_error;
  if (c.reset_after_issue) SetTimeouts(0, 0, 0);
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

// A byte every 50 ms for 550 ms under a 150 ms interval: a timer armed by the first byte alone
// would end the read after the first few.
TEST_F(ReadTimeoutTest, IntervalTimerIsRestartedByEachByte) {
  const std::string sent = "abcdefghijkl";
  SetTimeouts(150, 0, 0);
  Io read(32);
  ASSERT_FALSE(read.Read(port(), 32));
  std::jthread sender([&] {
    const auto start = Clock::now();
    for (size_t i = 0; i < sent.size(); ++i) {
      std::this_thread::sleep_until(start + std::chrono::milliseconds(50 * static_cast<int>(i)));
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

// Both writes are far more than a pseudo-terminal holds.
TEST_F(WriteTimeoutTest, WithoutTimeoutsAWriteWaitsTheTotalTimeoutEndsItWithWhatWasSent) {
  const std::string data(100000, 'z');
  Io waits;
  ASSERT_FALSE(waits.Write(port(), data));
  EXPECT_FALSE(waits.Done(300));
  EXPECT_EQ(pty_.ReadFar(data.size(), 5000), data);
  EXPECT_EQ(waits.Finish(port()), Ok(data));

  SetTimeouts(0, 0, 0, 0, 200);
  Io write;
  const auto start = Clock::now();
  ASSERT_FALSE(write.Write(port(), std::string(200000, 'w')));
  ASSERT_TRUE(write.pending());
  ASSERT_TRUE(write.Done(3000));
  EXPECT_GE(MsSince(start), 190);
  const auto result = write.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_GT(result.count, 0u);
  EXPECT_LT(result.count, 200000u);
  EXPECT_EQ(pty_.DrainFar(100), result.count);
}

}  // namespace
}  // namespace portwren::testing_util
