// Threads: ids, exit codes, the signalled handle, stack room.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

#include "platform/os_sync.h"
#include "platform/os_thread.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;

// The thread reports its id, waits for release, then sets done and returns 42.
struct Probe {
  EventHolder release{CreateEventA(true, false)};
  EventHolder done{CreateEventA(true, false)};
  std::atomic<Dword> seen_id{0};
};

Dword ReportIdAndWait(void* argument) {
  auto* probe = static_cast<Probe*>(argument);
  probe->seen_id = GetCurrentThreadId();
  WaitForSingleObject(probe->release.get(), kInfinite);
  SetEvent(probe->done.get());
  return 42;
}

Dword ReturnArgument(void* argument) {
  return static_cast<Dword>(reinterpret_cast<uintptr_t>(argument));
}

TEST(ThreadTest, HandleIsSignalledWhenTheProcedureReturnsWithItsResult) {
  Probe probe;
  Dword id = 0;
  HandleHolder thread(CreateThread(ReportIdAndWait, &probe, 0, &id));
  ASSERT_TRUE(thread);
  EXPECT_NE(id, 0u);
  EXPECT_NE(id, GetCurrentThreadId());
  Dword code = 0;
  ASSERT_TRUE(GetExitCodeThread(thread.get(), &code));
  EXPECT_EQ(code, kStillActive);
  EXPECT_EQ(WaitForSingleObject(thread.get(), 30), kWaitTimeout);
  SetEvent(probe.release.get());
  ASSERT_EQ(WaitForSingleObject(thread.get(), 5000), kWaitObject0);
  EXPECT_EQ(probe.seen_id.load(), id) << "the id given out is the one the thread sees";
  ASSERT_TRUE(GetExitCodeThread(thread.get(), &code));
  EXPECT_EQ(code, 42u);
  EXPECT_EQ(WaitForSingleObject(thread.get(), 0), kWaitObject0) << "and stays signalled";

  HandleHolder a(CreateThread(ReturnArgument, reinterpret_cast<void*>(7), 0, nullptr));
  HandleHolder b(CreateThread(ReturnArgument, reinterpret_cast<void*>(8), 0, nullptr));
  const Handle both[] = {a.get(), b.get()};
  ASSERT_EQ(WaitForMultipleObjects(2, both, true, 5000), kWaitObject0);
  Dword code_b = 0;
  GetExitCodeThread(a.get(), &code);
  GetExitCodeThread(b.get(), &code_b);
  EXPECT_EQ(code, 7u);
  EXPECT_EQ(code_b, 8u);

  EXPECT_EQ(CreateThread(nullptr, nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

Dword UseDeepStack(void*) {
  // Far beyond the 64000 bytes asked for: on Windows the stack grows into its reserve.
  volatile char block[512 * 1024];
  for (size_t i = 0; i < sizeof block; i += 4096) block[i] = static_cast<char>(i);
  return static_cast<Dword>(block[4096]);
}

TEST(ThreadTest, SmallStackSizeIsOnlyAStartingSizeAndClosingTheHandleLeavesTheThreadRunning) {
  HandleHolder thread(CreateThread(UseDeepStack, nullptr, 64000, nullptr));
  ASSERT_TRUE(thread);
  ASSERT_EQ(WaitForSingleObject(thread.get(), 5000), kWaitObject0);
  Dword code = 99;
  GetExitCodeThread(thread.get(), &code);
  EXPECT_EQ(code, 0u);

  Probe probe;
  ASSERT_TRUE(CloseHandle(CreateThread(ReportIdAndWait, &probe, 0, nullptr)));
  SetEvent(probe.release.get());
  EXPECT_EQ(WaitForSingleObject(probe.done.get(), 5000), kWaitObject0);
}

}  // namespace
}  // namespace portwren
