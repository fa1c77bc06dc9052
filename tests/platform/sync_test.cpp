// Events, mutexes and waits behave as their Windows namesakes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "common/wine_differences.h"
#include "platform/os_sync.h"
#include "platform/os_thread.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;
using testing_util::WaitFor;

TEST(EventTest, ManualResetStaysSignalledAutoResetReleasesOneWaiterPerSet) {
  EventHolder event(CreateEventA(true, false));
  ASSERT_TRUE(event);
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), kWaitTimeout);
  ASSERT_TRUE(SetEvent(event.get()));
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), kWaitObject0);
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), kWaitObject0);
  ASSERT_TRUE(ResetEvent(event.get()));
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), kWaitTimeout);

  EventHolder manual(CreateEventA(true, true));
  EventHolder automatic(CreateEventA(false, true));
  EXPECT_EQ(WaitForSingleObject(manual.get(), 0), kWaitObject0);
  EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), kWaitObject0);
  EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), kWaitTimeout);

  // An auto-reset event releases one waiter per set.
  EventHolder one(CreateEventA(false, false));
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 2; ++i) {
    waiters.emplace_back([&] {
      if (WaitForSingleObject(one.get(), 5000) == kWaitObject0) ++woken;
    });
  }
  SetEvent(one.get());
  EXPECT_TRUE(WaitFor([&] { return woken == 1; }));
  EXPECT_FALSE(WaitFor([&] { return woken > 1; }, 150));
  SetEvent(one.get());
  for (auto& waiter : waiters) waiter.join();
  EXPECT_EQ(woken.load(), 2);
  EXPECT_EQ(WaitForSingleObject(one.get(), 0), kWaitTimeout);
}

// Without a routine queued, SleepEx sleeps the whole time, alertable or not.
TEST(EventTest, TimedWaitsAndSleepsEndNotBefore) {
  EventHolder event(CreateEventA(true, false));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(WaitForSingleObject(event.get(), 60), kWaitTimeout);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(55));
  const auto slept = std::chrono::steady_clock::now();
  EXPECT_EQ(SleepEx(40, true), 0u);
  EXPECT_EQ(SleepEx(10, false), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - slept, std::chrono::milliseconds(45));
}

TEST(WaitMultipleTest, AnyGivesTheLowestSignalledIndexAllWaitsForEveryObjectAndOnlyThenConsumes) {
  EventHolder automatic(CreateEventA(false, false)), manual(CreateEventA(true, false));
  const Handle handles[] = {automatic.get(), manual.get()};
  EXPECT_EQ(WaitForMultipleObjects(2, handles, false, 0), kWaitTimeout);
  SetEvent(manual.get());
  EXPECT_EQ(WaitForMultipleObjects(2, handles, false, 0), kWaitObject0 + 1);
  SetEvent(automatic.get());
  EXPECT_EQ(WaitForMultipleObjects(2, handles, false, 0), kWaitObject0);  // the lowest, and taken
  ResetEvent(manual.get());
  SetEvent(automatic.get());
  EXPECT_EQ(WaitForMultipleObjects(2, handles, true, 0), kWaitTimeout);
  // A wait-all that is not satisfied takes nothing.
  EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), kWaitObject0);
  SetEvent(automatic.get());
  std::thread setter([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    SetEvent(manual.get());
  });
  EXPECT_EQ(WaitForMultipleObjects(2, handles, true, 5000), kWaitObject0);
  setter.join();
  EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), kWaitTimeout);
  EXPECT_EQ(WaitForSingleObject(manual.get(), 0), kWaitObject0);
}

TEST(WaitMultipleTest, BadListsFail) {
  EventHolder event(CreateEventA(true, true));
  const Handle twice[] = {event.get(), event.get()};
  if (!testing_util::UnderWine(wine::kDuplicateWaitAll)) {
    SetLastError(0);
    EXPECT_EQ(WaitForMultipleObjects(2, twice, true, 0), kWaitFailed);
    EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  }
  EXPECT_EQ(WaitForMultipleObjects(2, twice, false, 0), kWaitObject0);  // allowed for wait-any

  EXPECT_EQ(WaitForMultipleObjects(0, twice, false, 0), kWaitFailed);
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  std::vector<Handle> many(kMaximumWaitObjects + 1, event.get());
  EXPECT_EQ(WaitForMultipleObjects(static_cast<Dword>(many.size()), many.data(), false, 0), kWaitFailed);
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

// Not the all-ones value: on Windows that is the current process, which can be waited on and closed.
TEST(HandleTest, UnknownClosedAndWrongKindsOfHandlesAreRefused) {
  for (Handle bad : {static_cast<Handle>(nullptr), reinterpret_cast<Handle>(0x7FFF0000)}) {
    SetLastError(0);
    EXPECT_EQ(WaitForSingleObject(bad, 0), kWaitFailed);
    EXPECT_EQ(GetLastError(), kErrInvalidHandle);
    EXPECT_FALSE(SetEvent(bad));
    EXPECT_FALSE(CloseHandle(bad));
    EXPECT_EQ(GetLastError(), kErrInvalidHandle);
  }
  Handle event = CreateEventA(true, false);
  ASSERT_TRUE(CloseHandle(event));
  EXPECT_FALSE(SetEvent(event));
  EXPECT_EQ(GetLastError(), kErrInvalidHandle);
  EXPECT_FALSE(CloseHandle(event));

  HandleHolder mutex(CreateMutexA(false));
  EXPECT_FALSE(SetEvent(mutex.get()));
  EXPECT_EQ(GetLastError(), kErrInvalidHandle);
  EventHolder other(CreateEventA(true, false));
  EXPECT_FALSE(ReleaseMutex(other.get()));
  EXPECT_EQ(GetLastError(), kErrInvalidHandle);
}

TEST(MutexTest, OwnerMayTakeItAgainOthersWaitForTheLastRelease) {
  HandleHolder mutex(CreateMutexA(true));
  ASSERT_TRUE(mutex);
  EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), kWaitObject0);  // recursive: count 2

  std::atomic<bool> acquired{false};
  std::atomic<Dword> foreign_release_error{0};
  std::thread other([&] {
    if (!ReleaseMutex(mutex.get())) foreign_release_error = GetLastError();
    if (WaitForSingleObject(mutex.get(), 5000) == kWaitObject0) {
      acquired = true;
      ReleaseMutex(mutex.get());
    }
  });
  EXPECT_TRUE(WaitFor([&] { return foreign_release_error != 0; }));
  ASSERT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_FALSE(WaitFor([&] { return acquired.load(); }, 100));  // still held once
  ASSERT_TRUE(ReleaseMutex(mutex.get()));
  other.join();
  EXPECT_TRUE(acquired.load());
  EXPECT_EQ(foreign_release_error.load(), kErrNotOwner);
  EXPECT_FALSE(ReleaseMutex(mutex.get()));
  EXPECT_EQ(GetLastError(), kErrNotOwner);
}

}  // namespace
}  // namespace portwren
