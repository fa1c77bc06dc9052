// Requests on one port: FIFO order, cancellation by thread, purge, the two directions being
// independent, status reports.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <atomic>
#include <thread>

#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

class RequestTest : public PortTest {};

// Runs issue() on a thread of its own that stays alive until release(): Windows cancels a
// thread's requests when it ends, so the tests never let an issuing thread end early.
class IssuingThread {
 public:
  template <typename Issue>
  explicit IssuingThread(Issue issue)
      : thread_([this, issue] {
          issue();
          issued_ = true;
          while (!released_) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }) {
    while (!issued_) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ~IssuingThread() {
    released_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> issued_{false};
  std::atomic<bool> released_{false};
  std::thread thread_;
};

TEST_F(RequestTest, PendingReadsOfTwoThreadsAreServedInIssueOrder) {
  SetTimeouts(0, 0, 0);
  Io first(3), second(3);
  IssuingThread a([&] { first.Read(port(), 3); });
  IssuingThread b([&] { second.Read(port(), 3); });
  ASSERT_TRUE(first.pending());
  ASSERT_TRUE(second.pending());
  ASSERT_TRUE(pty_.WriteFar("abcdef"));
  ASSERT_TRUE(first.Done(2000));
  ASSERT_TRUE(second.Done(2000));
  EXPECT_EQ(first.Text(first.Collect(port()).count), "abc");
  EXPECT_EQ(second.Text(second.Collect(port()).count), "def");
}

TEST_F(RequestTest, CancelIoReachesOnlyTheCallingThreadsRequests) {
  SetTimeouts(0, 0, 0);
  Io theirs(4), mine(4);
  std::atomic<bool> cancel{false};
  std::atomic<bool> cancelled_ok{false};
  std::atomic<bool> issued{false};
  std::thread other([&] {
    theirs.Read(port(), 4);
    issued = true;
    while (!cancel) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    cancelled_ok = CancelIo(port());
  });
  while (!issued) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  ASSERT_TRUE(theirs.pending());
  ASSERT_FALSE(mine.Read(port(), 4));

  ASSERT_TRUE(CancelIo(port()));  // this thread's read only
  ASSERT_TRUE(mine.Done(2000));
  const auto mine_result = mine.Collect(port());
  EXPECT_FALSE(mine_result.ok);
  EXPECT_EQ(mine_result.error, kErrOperationAborted);
  EXPECT_FALSE(theirs.Done(150));

  cancel = true;
  other.join();
  EXPECT_TRUE(cancelled_ok.load());
  ASSERT_TRUE(theirs.Done(2000));
  EXPECT_EQ(theirs.Collect(port()).error, kErrOperationAborted);
}

TEST_F(RequestTest, ACancelledReadKeepsAndReportsTheBytesItReceived) {
  SetTimeouts(0, 0, 0);
  Io read(10);
  ASSERT_FALSE(read.Read(port(), 10));
  ASSERT_TRUE(pty_.WriteFar("abc"));
  // Wait until the read has taken them: nothing left queued.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(InQueue(), 0u);
  ASSERT_TRUE(CancelIo(port()));
  ASSERT_TRUE(read.Done(2000));
  const auto result = read.Collect(port());
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.error, kErrOperationAborted);
  EXPECT_EQ(result.count, 3u);
  EXPECT_EQ(read.Text(3), "abc");
}

TEST_F(RequestTest, CancellingTheCurrentReadMakesTheNextOneCurrent) {
  SetTimeouts(0, 0, 0);
  Io doomed(4), next(2);
  IssuingThread other([&] { doomed.Read(port(), 4); });
  ASSERT_FALSE(next.Read(port(), 2));
  // Another thread's request: only CancelIoEx reaches it from here.
  ASSERT_TRUE(CancelIoEx(port(), &doomed.overlapped));
  ASSERT_TRUE(doomed.Done(2000));
  EXPECT_EQ(doomed.Collect(port()).error, kErrOperationAborted);
  ASSERT_TRUE(pty_.WriteFar("xy"));
  ASSERT_TRUE(next.Done(2000));
  EXPECT_EQ(next.Text(next.Collect(port()).count), "xy");

  EXPECT_FALSE(CancelIoEx(port(), &doomed.overlapped));
  EXPECT_EQ(GetLastError(), kErrNotFound);
}

TEST_F(RequestTest, OverlappedResultWhilePendingAndAfter) {
  SetTimeouts(0, 0, 0);
  Io read(2);
  ASSERT_FALSE(read.Read(port(), 2));
  EXPECT_FALSE(HasOverlappedIoCompleted(&read.overlapped));
  Dword count = 99;
  EXPECT_FALSE(GetOverlappedResult(port(), &read.overlapped, &count, false));
  EXPECT_EQ(GetLastError(), kErrIoIncomplete);

  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pty_.WriteFar("ok");
  });
  ASSERT_TRUE(GetOverlappedResult(port(), &read.overlapped, &count, true));  // waits
  writer.join();
  EXPECT_EQ(count, 2u);
  EXPECT_TRUE(HasOverlappedIoCompleted(&read.overlapped));
}

TEST_F(RequestTest, TheEventIsResetWhenARequestStarts) {
  SetTimeouts(0, 0, 0);
  Io read(1);
  SetEvent(read.event.get());
  ASSERT_FALSE(read.Read(port(), 1));
  EXPECT_FALSE(read.Done(0));
  CancelIo(port());
  EXPECT_TRUE(read.Done(2000));
}

TEST_F(RequestTest, WithoutAnEventThePortHandleIsSignalled) {
  SetTimeouts(0, 0, 0);
  Io read(2);
  read.overlapped.hEvent = nullptr;
  ASSERT_FALSE(read.Read(port(), 2));
  EXPECT_EQ(WaitForSingleObject(port(), 50), kWaitTimeout);
  ASSERT_TRUE(pty_.WriteFar("hi"));
  ASSERT_EQ(WaitForSingleObject(port(), 2000), kWaitObject0);
  const auto result = read.Collect(port());
  EXPECT_TRUE(result.ok);
  EXPECT_EQ(read.Text(result.count), "hi");
}

TEST_F(RequestTest, AnEventThatIsNotAnEventIsRefused) {
  Io read(2);
  read.overlapped.hEvent = reinterpret_cast<Handle>(0x7FFFFFF0);
  EXPECT_FALSE(read.Read(port(), 2));
  EXPECT_EQ(read.issue_error, kErrInvalidHandle);
}

TEST_F(RequestTest, ReadAndWriteOfMoreThanAPseudoTerminalHoldsDoNotWaitForEachOther) {
  // The far end echoes everything back, as the echo server does: a port that handled the
  // write before the read (or the reverse) would stall with both buffers full.
  SetTimeouts(0, 0, 0);
  constexpr size_t kSize = 96 * 1024;
  std::string data(kSize, '\0');
  for (size_t i = 0; i < kSize; ++i) data[i] = static_cast<char>('a' + i % 23);
  std::atomic<bool> echo_ok{true};
  std::thread echo([&] {
    size_t echoed = 0;
    while (echoed < kSize) {
      const std::string piece = pty_.ReadFar(std::min<size_t>(4096, kSize - echoed), 5000);
      if (piece.empty() || !pty_.WriteFar(piece)) {
        echo_ok = false;
        return;
      }
      echoed += piece.size();
    }
  });
  Io write, read(kSize);
  ASSERT_FALSE(write.Write(port(), data));
  ASSERT_FALSE(read.Read(port(), kSize));
  EXPECT_TRUE(write.Done(10000));
  EXPECT_TRUE(read.Done(10000));
  echo.join();
  EXPECT_TRUE(echo_ok.load());
  EXPECT_EQ(write.Collect(port()).count, kSize);
  const auto result = read.Collect(port());
  EXPECT_EQ(result.count, kSize);
  EXPECT_TRUE(read.buffer == data);
}

TEST_F(RequestTest, PurgeAbortsPendingRequestsAndClearsTheInput) {
  SetTimeouts(0, 0, 0);
  Io read(10), write;
  ASSERT_FALSE(read.Read(port(), 10));
  ASSERT_TRUE(pty_.WriteFar("ab"));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_FALSE(write.Write(port(), std::string(200000, 'q')));
  ASSERT_TRUE(PurgeComm(port(), kPurgeRxAbort | kPurgeTxAbort));
  ASSERT_TRUE(read.Done(2000));
  ASSERT_TRUE(write.Done(2000));
  const auto read_result = read.Collect(port());
  EXPECT_EQ(read_result.error, kErrOperationAborted);
  EXPECT_EQ(read.Text(read_result.count), "ab");  // nothing received is lost
  EXPECT_EQ(write.Collect(port()).error, kErrOperationAborted);
  pty_.DrainFar(50);

  ASSERT_TRUE(pty_.WriteFar("stale"));
  ASSERT_TRUE(WaitForInQueue(5));
  ASSERT_TRUE(PurgeComm(port(), kPurgeRxClear));
  EXPECT_EQ(InQueue(), 0u);
  SetTimeouts(kMaxDword, 0, 0);
  Io after(10);
  ASSERT_TRUE(after.Read(port(), 10));  // new requests are accepted; the queue is empty
  EXPECT_EQ(after.issued_done, 0u);
}

TEST_F(RequestTest, PurgeRefusesBadFlags) {
  for (Dword flags : {0u, 0x10u, 0x1Fu}) {
    EXPECT_FALSE(PurgeComm(port(), flags)) << flags;
    EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  }
  EXPECT_TRUE(PurgeComm(port(), kPurgeTxClear | kPurgeRxClear));
}

TEST_F(RequestTest, ClearCommErrorCountsQueuedInputAndUnsentOutput) {
  SetTimeouts(0, 0, 0);
  ASSERT_TRUE(pty_.WriteFar(std::string(100, 'i')));
  ASSERT_TRUE(WaitForInQueue(100));
  Io write;
  const std::string data(150000, 'o');
  ASSERT_FALSE(write.Write(port(), data));
  Dword errors = 0xFFFF;
  ComStat stat;
  ASSERT_TRUE(ClearCommError(port(), &errors, &stat));
  EXPECT_EQ(errors, 0u);
  EXPECT_EQ(stat.cbInQue, 100u);
  EXPECT_GT(stat.cbOutQue, 0u);
  EXPECT_LE(stat.cbOutQue, data.size());
  // A pending read claims what it takes: it is no longer counted.
  Io read(100);
  ASSERT_TRUE(read.Read(port(), 100));
  ASSERT_TRUE(ClearCommError(port(), nullptr, &stat));
  EXPECT_EQ(stat.cbInQue, 0u);
  pty_.DrainFar(50);
  ASSERT_TRUE(write.Done(3000));
}

long long CpuMs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000LL +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

TEST_F(RequestTest, XoffHoldsAWriteWithoutBusyWaitingAndXonReleasesIt) {
  SetTimeouts(0, 0, 0);
  Dcb dcb;
  ASSERT_TRUE(GetCommState(port(), &dcb));
  dcb.fOutX = 1;
  ASSERT_TRUE(SetCommState(port(), &dcb));
  ASSERT_TRUE(pty_.WriteFar("\x13"));  // XOFF
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  Io write;
  const long long cpu_before = CpuMs();
  ASSERT_FALSE(write.Write(port(), "held"));  // stopped: it cannot complete
  EXPECT_FALSE(write.Done(500));
  EXPECT_LT(CpuMs() - cpu_before, 250);  // waiting, not spinning
  EXPECT_EQ(pty_.ReadFar(4, 50), "");
  ASSERT_TRUE(pty_.WriteFar("\x11"));  // XON
  ASSERT_TRUE(write.Done(2000));
  EXPECT_EQ(write.Collect(port()).count, 4u);
  EXPECT_EQ(pty_.ReadFar(4, 2000), "held");
}

TEST_F(RequestTest, HangUpOfTheFarEndFailsPendingAndNewRequests) {
  SetTimeouts(0, 0, 0);
  Io read(4);
  ASSERT_FALSE(read.Read(port(), 4));
  pty_.CloseFar();
  ASSERT_TRUE(read.Done(3000));
  EXPECT_EQ(read.Collect(port()).error, kErrDeviceNotConnected);
  Io again(4);
  EXPECT_FALSE(again.Read(port(), 4));
  EXPECT_EQ(again.issue_error, kErrDeviceNotConnected);
}

TEST_F(RequestTest, ClosingThePortAbortsWhatIsPending) {
  SetTimeouts(0, 0, 0);
  Io read(4);
  ASSERT_FALSE(read.Read(port(), 4));
  Handle raw = port_.release();
  ASSERT_TRUE(CloseHandle(raw));
  ASSERT_TRUE(read.Done(2000));
  EXPECT_EQ(read.Collect(raw).error, kErrOperationAborted);
}

}  // namespace
}  // namespace portwren::testing_util
