// Requests on one port: FIFO order, cancellation by thread, purge, the two directions being
// independent, status reports, the device going away.
#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <thread>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

class RequestTest : public PortTest {};

TEST_F(RequestTest, PendingReadsOfTwoThreadsAreServedInIssueOrder) {
  Io first(3), second(3);
  IssuingThread a([&] { first.Read(port(), 3); });
  IssuingThread b([&] { second.Read(port(), 3); });
  ASSERT_TRUE(first.pending() && second.pending());
  ASSERT_TRUE(pty_.WriteFar("abcdef"));
  EXPECT_EQ(first.Finish(port()), Ok("abc"));
  EXPECT_EQ(second.Finish(port()), Ok("def"));
}

TEST_F(RequestTest, CancelIoReachesOnlyTheCallingThreadsRequestsWhichKeepTheirBytes) {
  Io theirs(4), mine(4);
  std::atomic<bool> cancelled_ok{false};
  IssuingThread other([&] { theirs.Read(port(), 4); }, [&] { cancelled_ok = CancelIo(port()); });
  ASSERT_TRUE(theirs.pending());
  ASSERT_FALSE(mine.Read(port(), 4));
  ASSERT_TRUE(CancelIo(port()));
  EXPECT_EQ(mine.Finish(port()), Failed(kErrOperationAborted));

  ASSERT_TRUE(pty_.WriteFar("abc"));
  EXPECT_FALSE(theirs.Done(150));
  EXPECT_EQ(InQueue(), 0u) << "the pending read has taken them";
  other.Release();
  EXPECT_TRUE(cancelled_ok.load());
  EXPECT_EQ(theirs.Finish(port()), Failed(kErrOperationAborted, "abc"));
}

TEST_F(RequestTest, CancellingTheCurrentReadMakesTheNextOneCurrent) {
  Io doomed(4), next(2);
  IssuingThread other([&] { doomed.Read(port(), 4); });
  ASSERT_FALSE(next.Read(port(), 2));
  ASSERT_TRUE(CancelIoEx(port(), &doomed.overlapped));  // another thread's: only CancelIoEx reaches it
  EXPECT_EQ(doomed.Finish(port()), Failed(kErrOperationAborted));
  ASSERT_TRUE(pty_.WriteFar("xy"));
  EXPECT_EQ(next.Finish(port()), Ok("xy"));
  EXPECT_FALSE(CancelIoEx(port(), &doomed.overlapped));
  EXPECT_EQ(GetLastError(), kErrNotFound);
}

TEST_F(RequestTest, TheEventOrWithoutOneThePortHandleFollowsTheRequest) {
  Io bare(2);
  bare.overlapped.hEvent = nullptr;
  ASSERT_FALSE(bare.Read(port(), 2));
  EXPECT_EQ(WaitForSingleObject(port(), 50), kWaitTimeout);
  ASSERT_TRUE(pty_.WriteFar("hi"));
  ASSERT_EQ(WaitForSingleObject(port(), 2000), kWaitObject0);
  EXPECT_EQ(bare.Text(bare.Collect(port()).count), "hi");

  Io read(2);
  SetEvent(read.event.get());
  ASSERT_FALSE(read.Read(port(), 2));
  EXPECT_FALSE(read.Done(0)) << "the event is reset when a request starts";
  EXPECT_FALSE(HasOverlappedIoCompleted(&read.overlapped));
  EXPECT_EQ(read.Collect(port(), false).error, kErrIoIncomplete);
  {
    const auto writer = WriteFarAfter(50, "ok");
    EXPECT_EQ(read.Collect(port()).count, 2u);  // waits
  }
  EXPECT_TRUE(HasOverlappedIoCompleted(&read.overlapped));
  EXPECT_TRUE(read.Done(0));

  Io bad(2);
  bad.overlapped.hEvent = reinterpret_cast<Handle>(0x7FFFFFF0);
  EXPECT_FALSE(bad.Read(port(), 2));
  EXPECT_EQ(bad.issue_error, kErrInvalidHandle);
}

// The far end echoes everything back: a port that served the write before the read (or the
// reverse) would stall with both buffers full.
TEST_F(RequestTest, ReadAndWriteOfMoreThanAPseudoTerminalHoldsDoNotWaitForEachOther) {
  PORTWREN_SKIP_UNDER_WINE(wine::kBulkBothWays);
  constexpr size_t kSize = 96 * 1024;
  std::string data(kSize, '\0');
  for (size_t i = 0; i < kSize; ++i) data[i] = static_cast<char>('a' + i % 23);
  std::atomic<bool> echo_ok{true};
  std::thread echo([&] {
    for (size_t echoed = 0; echoed < kSize && echo_ok;) {
      const std::string piece = pty_.ReadFar(std::min<size_t>(4096, kSize - echoed), 5000);
      echo_ok = !piece.empty() && pty_.WriteFar(piece);
      echoed += piece.size();
    }
  });
  Io write, read(kSize);
  ASSERT_FALSE(write.Write(port(), data));
  ASSERT_FALSE(read.Read(port(), kSize));
  const bool written = write.Done(10000), read_all = read.Done(10000);
  echo.join();
  ASSERT_TRUE(written && read_all) << "write done " << written << ", read done " << read_all;
  EXPECT_TRUE(echo_ok.load());
  EXPECT_EQ(write.Collect(port()).count, kSize);
  EXPECT_EQ(read.Collect(port()).count, kSize);
  EXPECT_TRUE(read.buffer == data);
}

TEST_F(RequestTest, PurgeAbortsPendingRequestsAndClearsTheInput) {
  PORTWREN_SKIP_UNDER_WINE(wine::kPurgeAbort);
  ASSERT_TRUE(Queue("ab"));
  Io read(10), write;
  ASSERT_FALSE(read.Read(port(), 10));  // takes them and waits for more
  ASSERT_FALSE(write.Write(port(), std::string(200000, 'q')));
  ASSERT_TRUE(PurgeComm(port(), kPurgeRxAbort | kPurgeTxAbort));
  EXPECT_EQ(read.Finish(port()), Failed(kErrOperationAborted, "ab"));  // nothing received is lost
  ASSERT_TRUE(write.Done(2000));
  EXPECT_EQ(write.Collect(port()).error, kErrOperationAborted);
  pty_.DrainFar(50);

  ASSERT_TRUE(Queue("stale"));
  ASSERT_TRUE(PurgeComm(port(), kPurgeRxClear));
  EXPECT_EQ(InQueue(), 0u);
  SetTimeouts(kMaxDword, 0, 0);
  Io after(10);
  ASSERT_TRUE(after.Read(port(), 10));  // new requests are accepted; the queue is empty
  EXPECT_EQ(after.issued_done, 0u);

  for (Dword flags : {0u, 0x10u, 0x1Fu}) {
    EXPECT_FALSE(PurgeComm(port(), flags)) << flags;
    EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  }
  EXPECT_TRUE(PurgeComm(port(), kPurgeTxClear | kPurgeRxClear));
}

TEST_F(RequestTest, ClearCommErrorCountsQueuedInputAndUnsentOutput) {
  PORTWREN_SKIP_UNDER_WINE(wine::kOutQueueOnPty);
  ASSERT_TRUE(Queue(std::string(100, 'i')));
  Io write;
  ASSERT_FALSE(write.Write(port(), std::string(150000, 'o')));
  Dword errors = 0xFFFF;
  ComStat stat;
  ASSERT_TRUE(ClearCommError(port(), &errors, &stat));
  EXPECT_EQ(errors, 0u);
  EXPECT_EQ(stat.cbInQue, 100u);
  EXPECT_GT(stat.cbOutQue, 0u);
  EXPECT_LE(stat.cbOutQue, 150000u);
  Io read(100);  // a read claims what it takes: it is no longer counted
  ASSERT_TRUE(read.Read(port(), 100));
  ASSERT_TRUE(ClearCommError(port(), nullptr, &stat));
  EXPECT_EQ(stat.cbInQue, 0u);
  pty_.DrainFar(50);
  ASSERT_TRUE(write.Done(3000));
}

// Wine also fails to notice a hang-up (wine::kNoHangUp).
TEST_F(RequestTest, ClosingThePortAbortsWhatIsPendingAHangUpFailsIt) {
  PORTWREN_SKIP_UNDER_WINE(wine::kCloseAbort);
  Io closed(4);
  ASSERT_FALSE(closed.Read(port(), 4));
  const Handle raw = port_.release();
  ASSERT_TRUE(CloseHandle(raw));
  EXPECT_EQ(closed.Finish(raw), Failed(kErrOperationAborted));

  port_.reset(OpenPort());
  Io hung_up(4);
  ASSERT_FALSE(hung_up.Read(port(), 4));
  pty_.CloseFar();
  EXPECT_EQ(hung_up.Finish(port()), Failed(kErrDeviceNotConnected));
}

// Once the device went away, every serial call fails with 1167, each row's call being the first
// to find out; closing still succeeds.
struct GoneCase {
  const char* name;
  Dword (*call)(Handle port);  // 0 on success, else the last error
  Dword mask_before = 0;       // SetCommMask while the device is still there
};
void PrintTo(const GoneCase& c, std::ostream* out) {
  *out << c.name;
}

Dword LastErrorUnless(bool ok) {
  return ok ? 0 : GetLastError();
}
void Ignore(Dword, Dword, Overlapped*) {}

// Outlives every port, so a request that pends against expectation ends harmlessly.
struct Arguments {
  Dcb dcb{.BaudRate = 9600, .fBinary = 1, .ByteSize = 8, .XonChar = 0x11, .XoffChar = 0x13};
  CommTimeouts timeouts{kMaxDword, 0, 0, 0, 0};
  ComStat stat;
  Dword word = 0;
  char buffer[4] = {};
  Overlapped overlapped;
} g_args;

// clang-format off
const GoneCase kGoneCases[] = {
  {"ReadFile", [](Handle p) { return LastErrorUnless(Io(4).Read(p, 4)); }},
  {"WriteFile", [](Handle p) { return LastErrorUnless(Io().Write(p, "x")); }},
  {"ReadFileEx", [](Handle p) { return LastErrorUnless(ReadFileEx(p, g_args.buffer, 4, &g_args.overlapped, Ignore)); }},
  {"WriteFileEx", [](Handle p) { return LastErrorUnless(WriteFileEx(p, "x", 1, &g_args.overlapped, Ignore)); }},
  {"GetCommState", [](Handle p) { return LastErrorUnless(GetCommState(p, &g_args.dcb)); }},
  {"SetCommState", [](Handle p) { return LastErrorUnless(SetCommState(p, &g_args.dcb)); }},
  {"GetCommTimeouts", [](Handle p) { return LastErrorUnless(GetCommTimeouts(p, &g_args.timeouts)); }},
  {"SetCommTimeouts", [](Handle p) { return LastErrorUnless(SetCommTimeouts(p, &g_args.timeouts)); }},
  {"SetupComm", [](Handle p) { return LastErrorUnless(SetupComm(p, 4096, 4096)); }},
  {"PurgeComm", [](Handle p) { return LastErrorUnless(PurgeComm(p, kPurgeRxClear | kPurgeTxClear)); }},
  {"PurgeCommAbort", [](Handle p) { return LastErrorUnless(PurgeComm(p, kPurgeRxAbort | kPurgeTxAbort)); }},
  {"ClearCommError", [](Handle p) { return LastErrorUnless(ClearCommError(p, &g_args.word, &g_args.stat)); }},
  {"GetCommModemStatus", [](Handle p) { return LastErrorUnless(GetCommModemStatus(p, &g_args.word)); }},
  {"SetCommMask", [](Handle p) { return LastErrorUnless(SetCommMask(p, kEvRxChar)); }},
  {"GetCommMask", [](Handle p) { return LastErrorUnless(GetCommMask(p, &g_args.word)); }},
  {"WaitCommEvent", [](Handle p) { return LastErrorUnless(WaitCommEvent(p, &g_args.word, &g_args.overlapped)); },
   kEvCts},
  {"EscapeCommFunction", [](Handle p) { return LastErrorUnless(EscapeCommFunction(p, kSetDtr)); }},
  {"SetCommBreak", [](Handle p) { return LastErrorUnless(SetCommBreak(p)); }},
};
// clang-format on

class GoneDevice : public PortTest, public ::testing::WithParamInterface<GoneCase> {};

TEST_P(GoneDevice, EveryCallFailsWithDeviceNotConnectedAndClosingSucceeds) {
  PORTWREN_SKIP_UNDER_WINE(wine::kNoHangUp);
  ASSERT_TRUE(GetParam().mask_before == 0 || SetCommMask(port(), GetParam().mask_before));
  pty_.CloseFar();
  EXPECT_EQ(GetParam().call(port()), kErrDeviceNotConnected);
  EXPECT_EQ(GetParam().call(port()), kErrDeviceNotConnected) << "and so it stays";
  EXPECT_TRUE(CloseHandle(port_.release()));
}

INSTANTIATE_TEST_SUITE_P(Calls, GoneDevice, ::testing::ValuesIn(kGoneCases),
                         [](const auto& param_info) { return std::string(param_info.param.name); });

}  // namespace
}  // namespace portwren::testing_util
