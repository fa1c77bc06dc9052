// Every COMMTIMEOUTS combination, as a Windows serial driver applies it. Times are generous;
// what is checked is the order of things and the counts.
#include <gtest/gtest.h>

#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

constexpr Dword kMax = kMaxDword;

class ReadTimeoutTest : public PortTest {};

TEST_F(ReadTimeoutTest, AllZeroWaitsForEveryByteWithoutATimer) {
  SetTimeouts(0, 0, 0);
  Io read(8);
  ASSERT_FALSE(read.Read(port(), 5));
  ASSERT_TRUE(read.pending());
  ASSERT_TRUE(pty_.WriteFar("abc"));
  EXPECT_FALSE(read.Done(200));
  ASSERT_TRUE(pty_.WriteFar("de"));
  ASSERT_TRUE(read.Done(2000));
  const auto result = read.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(read.Text(result.count), "abcde");
}

TEST_F(ReadTimeoutTest, AllZeroCompletesInTheCallWhenEverythingIsThere) {
  SetTimeouts(0, 0, 0);
  ASSERT_TRUE(pty_.WriteFar("hello"));
  ASSERT_TRUE(WaitForInQueue(5));
  Io read(8);
  ASSERT_TRUE(read.Read(port(), 5));
  EXPECT_EQ(read.issued_done, 5u);
  EXPECT_EQ(read.Text(5), "hello");
  EXPECT_TRUE(read.Done(0));  // the event is set for a completion in the call too
  EXPECT_EQ(read.overlapped.InternalHigh, 5u);
}

TEST_F(ReadTimeoutTest, IntervalOnlyReturnsWhatIsThereAtOnceEvenNothing) {
  SetTimeouts(kMax, 0, 0);
  Io empty(8);
  ASSERT_TRUE(empty.Read(port(), 8));
  EXPECT_EQ(empty.issued_done, 0u);

  ASSERT_TRUE(pty_.WriteFar("xy"));
  ASSERT_TRUE(WaitForInQueue(2));
  Io some(8);
  ASSERT_TRUE(some.Read(port(), 8));
  EXPECT_EQ(some.Text(some.issued_done), "xy");
}

TEST_F(ReadTimeoutTest, MaxMaxZeroCompletesInTheCallWithNothing) {
  SetTimeouts(kMax, kMax, 0);
  Io read(8);
  const auto start = Clock::now();
  ASSERT_TRUE(read.Read(port(), 8));
  EXPECT_EQ(read.issued_done, 0u);
  EXPECT_LT(MsSince(start), 1000);
}

TEST_F(ReadTimeoutTest, MaxMaxConstantReturnsBufferedBytesAtOnce) {
  SetTimeouts(kMax, kMax, 5000);
  ASSERT_TRUE(pty_.WriteFar("abc"));
  ASSERT_TRUE(WaitForInQueue(3));
  Io read(10);
  ASSERT_TRUE(read.Read(port(), 10));
  EXPECT_EQ(read.Text(read.issued_done), "abc");
}

TEST_F(ReadTimeoutTest, MaxMaxConstantShrinksToOneByteWhenNothingIsThere) {
  SetTimeouts(kMax, kMax, 5000);
  Io read(10);
  ASSERT_FALSE(read.Read(port(), 10));
  ASSERT_TRUE(read.pending());
  ASSERT_TRUE(pty_.WriteFar("xyz"));
  ASSERT_TRUE(read.Done(2000));
  const auto result = read.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(read.Text(result.count), "x");
  // The rest stayed queued.
  SetTimeouts(kMax, 0, 0);
  ASSERT_TRUE(WaitForInQueue(2));
  Io rest(10);
  ASSERT_TRUE(rest.Read(port(), 10));
  EXPECT_EQ(rest.Text(rest.issued_done), "yz");
}

TEST_F(ReadTimeoutTest, MaxMaxConstantExpiresAsSuccessWithZeroBytes) {
  SetTimeouts(kMax, kMax, 100);
  Io read(10);
  const auto start = Clock::now();
  ASSERT_FALSE(read.Read(port(), 10));
  ASSERT_TRUE(read.pending());
  ASSERT_TRUE(read.Done(3000));
  EXPECT_GE(MsSince(start), 90);
  SetLastError(12345);
  const auto result = read.Collect(port());
  EXPECT_TRUE(result.ok);  // a timeout is success with a short count, never ERROR_TIMEOUT
  EXPECT_EQ(result.count, 0u);
}

TEST_F(ReadTimeoutTest, MaxWithTotalTimerDoesNotShrink) {
  SetTimeouts(kMax, 10, 200);  // total 10 * 5 + 200 ms
  Io read(5);
  const auto start = Clock::now();
  ASSERT_FALSE(read.Read(port(), 5));
  ASSERT_TRUE(pty_.WriteFar("ab"));
  EXPECT_FALSE(read.Done(100));  // a byte alone does not complete it
  ASSERT_TRUE(read.Done(3000));
  EXPECT_GE(MsSince(start), 240);
  const auto result = read.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(read.Text(result.count), "ab");

  ASSERT_TRUE(pty_.WriteFar("cde"));
  ASSERT_TRUE(WaitForInQueue(3));
  Io buffered(5);
  ASSERT_TRUE(buffered.Read(port(), 5));  // something there: at once
  EXPECT_EQ(buffered.Text(buffered.issued_done), "cde");
}

TEST_F(ReadTimeoutTest, MaxIntervalAndMaxConstantHaveNoTimerAtAll) {
  SetTimeouts(kMax, 0, kMax);
  Io read(3);
  ASSERT_FALSE(read.Read(port(), 3));
  EXPECT_FALSE(read.Done(250));
  ASSERT_TRUE(pty_.WriteFar("abc"));
  ASSERT_TRUE(read.Done(2000));
  EXPECT_EQ(read.Text(read.Collect(port()).count), "abc");
}

TEST_F(ReadTimeoutTest, AllThreeMaxAreRefusedOthersReadBack) {
  const CommTimeouts refused{kMax, kMax, kMax, 0, 0};
  EXPECT_FALSE(SetCommTimeouts(port(), &refused));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  const CommTimeouts accepted{kMax, kMax, 7, 3, 9};
  ASSERT_TRUE(SetCommTimeouts(port(), &accepted));
  CommTimeouts back{1, 1, 1, 1, 1};
  ASSERT_TRUE(GetCommTimeouts(port(), &back));
  EXPECT_EQ(back.ReadIntervalTimeout, kMax);
  EXPECT_EQ(back.ReadTotalTimeoutMultiplier, kMax);
  EXPECT_EQ(back.ReadTotalTimeoutConstant, 7u);
  EXPECT_EQ(back.WriteTotalTimeoutMultiplier, 3u);
  EXPECT_EQ(back.WriteTotalTimeoutConstant, 9u);
}

TEST_F(ReadTimeoutTest, IntervalTimerWaitsForTheFirstByte) {
  SetTimeouts(50, 0, 0);
  Io read(10);
  ASSERT_FALSE(read.Read(port(), 10));
  EXPECT_FALSE(read.Done(250));  // idle until a byte comes
  ASSERT_TRUE(pty_.WriteFar("ab"));
  ASSERT_TRUE(read.Done(2000));
  const auto result = read.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(read.Text(result.count), "ab");
}

TEST_F(ReadTimeoutTest, IntervalTimerIsRestartedByEachByte) {
  SetTimeouts(400, 0, 0);
  Io read(10);
  ASSERT_FALSE(read.Read(port(), 10));
  for (const char* piece : {"a", "b", "c"}) {
    ASSERT_TRUE(pty_.WriteFar(piece));
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_FALSE(read.Done(0)) << piece;
  }
  ASSERT_TRUE(read.Done(3000));
  EXPECT_EQ(read.Text(read.Collect(port()).count), "abc");
}

TEST_F(ReadTimeoutTest, TotalTimeoutCompletesWithAShortCount) {
  SetTimeouts(0, 20, 100);  // 20 * 5 + 100 ms
  Io read(5);
  const auto start = Clock::now();
  ASSERT_FALSE(read.Read(port(), 5));
  ASSERT_TRUE(pty_.WriteFar("ab"));
  ASSERT_TRUE(read.Done(3000));
  EXPECT_GE(MsSince(start), 190);
  const auto result = read.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(read.Text(result.count), "ab");
}

TEST_F(ReadTimeoutTest, IntervalAndTotalRunTogetherFirstToFireWins) {
  SetTimeouts(50, 0, 10000);
  Io read(10);
  const auto start = Clock::now();
  ASSERT_FALSE(read.Read(port(), 10));
  ASSERT_TRUE(pty_.WriteFar("ab"));
  ASSERT_TRUE(read.Done(5000));
  EXPECT_LT(MsSince(start), 5000);  // the interval fired, not the total
  EXPECT_EQ(read.Text(read.Collect(port()).count), "ab");

  SetTimeouts(5000, 0, 100);
  Io quiet(10);
  const auto again = Clock::now();
  ASSERT_FALSE(quiet.Read(port(), 10));
  ASSERT_TRUE(quiet.Done(3000));  // no byte: only the total can fire
  EXPECT_GE(MsSince(again), 90);
  EXPECT_EQ(quiet.Collect(port()).count, 0u);
}

TEST_F(ReadTimeoutTest, TimeoutsAreTakenWhenTheReadBecomesCurrent) {
  SetTimeouts(0, 0, 600);
  const auto start = Clock::now();
  Io first(1), second(1);
  ASSERT_FALSE(first.Read(port(), 1));
  ASSERT_FALSE(second.Read(port(), 1));  // queued behind the first: no timer yet
  // A change now reaches neither: the first has its timer, the second takes the
  // timeouts in force when it becomes current.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_TRUE(pty_.WriteFar("a"));
  ASSERT_TRUE(first.Done(2000));
  EXPECT_EQ(first.Text(first.Collect(port()).count), "a");
  // Had its timer started when it was issued, it would end near 600 ms.
  while (MsSince(start) < 800) {
    EXPECT_FALSE(second.Done(0)) << "at " << MsSince(start) << " ms";
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(second.Done(3000));
  EXPECT_EQ(second.Collect(port()).count, 0u);
}

TEST_F(ReadTimeoutTest, LaterSetCommTimeoutsDoesNotReachTheCurrentRead) {
  SetTimeouts(0, 0, 150);
  Io read(4);
  ASSERT_FALSE(read.Read(port(), 4));
  SetTimeouts(0, 0, 0);  // would mean "wait forever" for a new read
  ASSERT_TRUE(read.Done(3000));
  EXPECT_TRUE(read.Collect(port()).ok);
}

TEST_F(ReadTimeoutTest, ZeroLengthRequestsSucceedAtOnce) {
  SetTimeouts(0, 0, 0);
  Io read(1), write;
  ASSERT_TRUE(read.Read(port(), 0));
  EXPECT_EQ(read.issued_done, 0u);
  ASSERT_TRUE(write.Write(port(), ""));
  EXPECT_EQ(write.issued_done, 0u);
}

TEST_F(ReadTimeoutTest, OverlappedPortNeedsAnOverlapped) {
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
  std::string received = pty_.ReadFar(data.size(), 5000);
  ASSERT_TRUE(write.Done(3000));
  const auto result = write.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(result.count, data.size());
  EXPECT_EQ(received, data);
}

}  // namespace
}  // namespace portwren::testing_util
