// ReadFileEx / WriteFileEx: the routine runs in the issuing thread's alertable waits only.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

// Filled in by the routine; Overlapped comes first so the routine finds the record.
struct Record {
  Overlapped overlapped;
  int calls = 0;
  Dword error = 0xFFFF;
  Dword count = 0xFFFF;
  Dword thread = 0;
  char buffer[64] = {};
};

void Routine(Dword error, Dword count, Overlapped* overlapped) {
  auto* record = reinterpret_cast<Record*>(overlapped);
  ++record->calls;
  record->error = error;
  record->count = count;
  record->thread = GetCurrentThreadId();
}

class CompletionRoutineTest : public PortTest {};

TEST_F(CompletionRoutineTest, RunsOnlyInAnAlertableWaitEvenWhenDoneAtOnce) {
  SetTimeouts(kMaxDword, 0, 0);
  ASSERT_TRUE(Queue("now"));
  Record record;
  const Handle sentinel = reinterpret_cast<Handle>(0x1234);
  record.overlapped.hEvent = sentinel;  // free for the caller's use
  ASSERT_TRUE(ReadFileEx(port(), record.buffer, 10, &record.overlapped, Routine));
  EXPECT_EQ(record.calls, 0);
  Sleep(30);
  SleepEx(30, false);
  EventHolder never(CreateEventA(true, false));
  EXPECT_EQ(WaitForSingleObject(never.get(), 30), kWaitTimeout);
  EXPECT_EQ(record.calls, 0);

  EXPECT_EQ(SleepEx(2000, true), kWaitIoCompletion);
  EXPECT_EQ(record.calls, 1);
  EXPECT_EQ(record.error, 0u);
  EXPECT_EQ(record.count, 3u);
  EXPECT_EQ(std::string(record.buffer, 3), "now");
  EXPECT_EQ(record.thread, GetCurrentThreadId());
  EXPECT_EQ(record.overlapped.hEvent, sentinel);
  EXPECT_EQ(SleepEx(20, true), 0u);  // nothing more queued
}

TEST_F(CompletionRoutineTest, AnotherThreadsAlertableWaitDoesNotRunIt) {
  Record record;
  Dword issuer_wait = 0, issuer_thread = 0;
  IssuingThread issuer(
      [&] {
        issuer_thread = GetCurrentThreadId();
        ReadFileEx(port(), record.buffer, 2, &record.overlapped, Routine);
      },
      [&] { issuer_wait = SleepEx(3000, true); });
  ASSERT_TRUE(pty_.WriteFar("ab"));
  EXPECT_EQ(SleepEx(100, true), 0u);  // the routine is not this thread's
  issuer.Release();
  EXPECT_EQ(issuer_wait, kWaitIoCompletion);
  EXPECT_EQ(record.calls, 1);
  EXPECT_EQ(record.thread, issuer_thread);
}

// A cancelled read reports the bytes it had with the abort; a timeout is success, short.
TEST_F(CompletionRoutineTest, CancelAndTimeoutReachTheRoutine) {
  PORTWREN_SKIP_UNDER_WINE(wine::kAlertableWaitOrder);  // and wine::kReadFirstByteTimeout
  ASSERT_TRUE(Queue("pa"));
  Record cancelled, timed_out;
  ASSERT_TRUE(ReadFileEx(port(), cancelled.buffer, 10, &cancelled.overlapped, Routine));  // takes them
  ASSERT_TRUE(CancelIo(port()));
  EXPECT_EQ(WaitForSingleObjectEx(port(), 2000, true), kWaitIoCompletion);
  EXPECT_EQ(cancelled.calls, 1);
  EXPECT_EQ(cancelled.error, kErrOperationAborted);
  EXPECT_EQ(cancelled.count, 2u);

  SetTimeouts(kMaxDword, kMaxDword, 50);
  ASSERT_TRUE(ReadFileEx(port(), timed_out.buffer, 10, &timed_out.overlapped, Routine));
  EXPECT_EQ(SleepEx(3000, true), kWaitIoCompletion);
  EXPECT_EQ(timed_out.error, 0u);
  EXPECT_EQ(timed_out.count, 0u);
}

TEST_F(CompletionRoutineTest, WriteAndReadTogetherEachReportOnce) {
  Record read, write;
  std::memcpy(write.buffer, "echo", 4);
  ASSERT_TRUE(ReadFileEx(port(), read.buffer, 4, &read.overlapped, Routine));
  ASSERT_TRUE(WriteFileEx(port(), write.buffer, 4, &write.overlapped, Routine));
  EXPECT_EQ(pty_.ReadFar(4, 2000), "echo");
  ASSERT_TRUE(pty_.WriteFar("back"));
  const auto start = Clock::now();
  while ((read.calls == 0 || write.calls == 0) && MsSince(start) < 3000) SleepEx(100, true);
  EXPECT_EQ(read.calls, 1);
  EXPECT_EQ(write.calls, 1);
  EXPECT_EQ(write.count, 4u);
  EXPECT_EQ(std::string(read.buffer, read.count), "back");
}

TEST_F(CompletionRoutineTest, NeedsAnOverlappedHandleAndARoutine) {
  Record record;
  EXPECT_FALSE(ReadFileEx(port(), record.buffer, 1, &record.overlapped, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  if (UnderWine(wine::kSyncReadFileEx)) return;
  port_.reset();
  HandleHolder synchronous(OpenPort(kGenericRead | kGenericWrite, 0));
  ASSERT_TRUE(synchronous);
  EXPECT_FALSE(ReadFileEx(synchronous.get(), record.buffer, 1, &record.overlapped, Routine));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

}  // namespace
}  // namespace portwren::testing_util
