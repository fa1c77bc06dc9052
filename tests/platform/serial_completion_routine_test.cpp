// ReadFileEx / WriteFileEx: the routine runs in the issuing thread's alertable waits only.
#include <cstring>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

// Filled in by the routine; Overlapped comes first so the routine finds the record.
struct Record {
  Overlapped overlapped;
  int calls = 0;
  Dword error = 0xFFFF;
  Dword count = 0;
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

// What the routine was told: "<calls> <error> <the bytes it reported>".
std::string Seen(const Record& r) {
  return std::to_string(r.calls) + " " + std::to_string(r.error) + " " + std::string(r.buffer, r.count % 64);
}

class CompletionRoutineTest : public PortTest {};

TEST_F(CompletionRoutineTest, RunsOnlyInAnAlertableWaitOfTheIssuingThreadEvenWhenDoneAtOnce) {
  SetTimeouts(kMaxDword, 0, 0);
  ASSERT_TRUE(Queue("now"));
  Record record;
  const Handle sentinel = reinterpret_cast<Handle>(0x1234);
  record.overlapped.hEvent = sentinel;  // free for the caller's use
  ASSERT_TRUE(ReadFileEx(port(), record.buffer, 10, &record.overlapped, Routine));
  Sleep(30);
  SleepEx(30, false);
  EventHolder never(CreateEventA(true, false));
  EXPECT_EQ(WaitForSingleObject(never.get(), 30), kWaitTimeout);
  EXPECT_EQ(record.calls, 0);
  EXPECT_EQ(SleepEx(2000, true), kWaitIoCompletion);
  EXPECT_EQ(Seen(record), "1 0 now");
  EXPECT_EQ(record.thread, GetCurrentThreadId());
  EXPECT_EQ(record.overlapped.hEvent, sentinel);
  EXPECT_EQ(SleepEx(20, true), 0u);  // nothing more queued

  SetTimeouts(0, 0, 0);
  Record theirs;
  Dword issuer_wait = 0, issuer_thread = 0;
  IssuingThread issuer(
      [&] {
        issuer_thread = GetCurrentThreadId();
        ReadFileEx(port(), theirs.buffer, 2, &theirs.overlapped, Routine);
      },
      [&] { issuer_wait = SleepEx(3000, true); });
  ASSERT_TRUE(pty_.WriteFar("ab"));
  EXPECT_EQ(SleepEx(100, true), 0u);  // the routine is not this thread's
  issuer.Release();
  EXPECT_EQ(issuer_wait, kWaitIoCompletion);
  EXPECT_EQ(Seen(theirs), "1 0 ab");
  EXPECT_EQ(theirs.thread, issuer_thread);
}

// A cancelled read reports the bytes it had with the abort; a timeout is success, short.
TEST_F(CompletionRoutineTest, CancelAndTimeoutReachTheRoutine) {
  PORTWREN_SKIP_UNDER_WINE(wine::kAlertableWaitOrder);  // and wine::kReadFirstByteTimeout
  ASSERT_TRUE(Queue("pa"));
  Record cancelled, timed_out;
  ASSERT_TRUE(ReadFileEx(port(), cancelled.buffer, 10, &cancelled.overlapped, Routine));  // takes them
  ASSERT_TRUE(CancelIo(port()));
  EXPECT_EQ(WaitForSingleObjectEx(port(), 2000, true), kWaitIoCompletion);
  EXPECT_EQ(Seen(cancelled), "1 995 pa");
  SetTimeouts(kMaxDword, kMaxDword, 50);
  ASSERT_TRUE(ReadFileEx(port(), timed_out.buffer, 10, &timed_out.overlapped, Routine));
  EXPECT_EQ(SleepEx(3000, true), kWaitIoCompletion);
  EXPECT_EQ(Seen(timed_out), "1 0 ");
}

TEST_F(CompletionRoutineTest, WriteAndReadTogetherEachReportOnce) {
  Record read, write;
  std::memcpy(write.buffer, "echo", 4);
  ASSERT_TRUE(ReadFileEx(port(), read.buffer, 4, &read.overlapped, Routine));
  ASSERT_TRUE(WriteFileEx(port(), write.buffer, 4, &write.overlapped, Routine));
  EXPECT_EQ(pty_.ReadFar(4, 2000), "echo");
  ASSERT_TRUE(pty_.WriteFar("back"));
  for (const auto start = Clock::now(); (read.calls == 0 || write.calls == 0) && MsSince(start) < 3000;) {
    SleepEx(100, true);
  }
  EXPECT_EQ(Seen(read), "1 0 back");
  EXPECT_EQ(Seen(write), "1 0 echo");
}

TEST_F(CompletionRoutineTest, NeedsAnOverlappedHandleAndARoutine) {
  Record record;
  EXPECT_EQ(ErrorOf(ReadFileEx(port(), record.buffer, 1, &record.overlapped, nullptr)), kErrInvalidParameter);
  if (UnderWine(wine::kSyncReadFileEx)) return;
  port_.reset();
  HandleHolder synchronous(OpenPort(kGenericRead | kGenericWrite, 0));
  ASSERT_TRUE(synchronous);
  EXPECT_EQ(ErrorOf(ReadFileEx(synchronous.get(), record.buffer, 1, &record.overlapped, Routine)),
            kErrInvalidParameter);
}

}  // namespace
}  // namespace portwren::testing_util
