// Events, mutexes and waits behave as their Windows namesakes.
#include <atomic>
#include <thread>

#include "common/wine_differences.h"
#include "platform/os_sync.h"
#include "platform/os_thread.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;
using testing_util::ErrorOf;
using testing_util::WaitFor;

bool Signalled(Handle object) {
  return WaitForSingleObject(object, 0) == kWaitObject0;
}

TEST(EventTest, ManualResetStaysSignalledAutoResetReleasesOneWaiterPerSet) {
  EventHolder manual(CreateEventA(true, false)), set(CreateEventA(true, true)),
      automatic(CreateEventA(false, true));
  ASSERT_TRUE(manual);
  EXPECT_FALSE(Signalled(manual.get()));
  ASSERT_TRUE(SetEvent(manual.get()));
  EXPECT_TRUE(Signalled(manual.get()) && Signalled(manual.get()));
  ASSERT_TRUE(ResetEvent(manual.get()));
  EXPECT_FALSE(Signalled(manual.get()));
  EXPECT_TRUE(Signalled(set.get()));
  EXPECT_TRUE(Signalled(automatic.get()));
  EXPECT_FALSE(Signalled(automatic.get()));

  std::atomic<int> woken{0};
  std::vector<std::jthread> waiters;
  for (int i = 0; i < 2; ++i) {
    waiters.emplace_back([&] { woken += WaitForSingleObject(automatic.get(), 5000) == kWaitObject0; });
  }
  SetEvent(automatic.get());
  EXPECT_TRUE(WaitFor([&] { return woken == 1; }));
  EXPECT_FALSE(WaitFor([&] { return woken > 1; }, 150));
  SetEvent(automatic.get());
  waiters.clear();
  EXPECT_EQ(woken.load(), 2);
  EXPECT_FALSE(Signalled(automatic.get()));
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
  EXPECT_TRUE(Signalled(automatic.get())) << "a wait-all that is not satisfied takes nothing";
  SetEvent(automatic.get());
  std::jthread setter([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    SetEvent(manual.get());
  });
  EXPECT_EQ(WaitForMultipleObjects(2, handles, true, 5000), kWaitObject0);
  EXPECT_FALSE(Signalled(automatic.get()));
  EXPECT_TRUE(Signalled(manual.get()));

  const Handle twice[] = {manual.get(), manual.get()};
  EXPECT_EQ(WaitForMultipleObjects(2, twice, false, 0), kWaitObject0);  // allowed for wait-any
  if (!testing_util::UnderWine(wine::kDuplicateWaitAll)) {
    EXPECT_EQ(ErrorOf(WaitForMultipleObjects(2, twice, true, 0) != kWaitFailed), kErrInvalidParameter);
  }
  EXPECT_EQ(ErrorOf(WaitForMultipleObjects(0, twice, false, 0) != kWaitFailed), kErrInvalidParameter);
  std::vector<Handle> many(kMaximumWaitObjects + 1, manual.get());
  EXPECT_EQ(
      ErrorOf(WaitForMultipleObjects(static_cast<Dword>(many.size()), many.data(), false, 0) != kWaitFailed),
      kErrInvalidParameter);
}

// Not the all-ones value: on Windows that is the current process, which can be waited on and closed.
TEST(HandleTest, UnknownClosedAndWrongKindsOfHandlesAreRefused) {
  const Handle closed = CreateEventA(true, false);
  ASSERT_TRUE(CloseHandle(closed));
  for (Handle bad : {Handle{nullptr}, reinterpret_cast<Handle>(0x7FFF0000), closed}) {
    EXPECT_EQ(ErrorOf(WaitForSingleObject(bad, 0) != kWaitFailed), kErrInvalidHandle);
    EXPECT_EQ(ErrorOf(SetEvent(bad)), kErrInvalidHandle);
    EXPECT_EQ(ErrorOf(CloseHandle(bad)), kErrInvalidHandle);
  }
  HandleHolder mutex(CreateMutexA(false));
  EXPECT_EQ(ErrorOf(SetEvent(mutex.get())), kErrInvalidHandle);
  EventHolder event(CreateEventA(true, false));
  EXPECT_EQ(ErrorOf(ReleaseMutex(event.get())), kErrInvalidHandle);
}

TEST(MutexTest, OwnerMayTakeItAgainOthersWaitForTheLastRelease) {
  HandleHolder mutex(CreateMutexA(true));
  ASSERT_TRUE(mutex);
  EXPECT_TRUE(Signalled(mutex.get()));  // recursive: count 2
  std::atomic<bool> acquired{false};
  std::atomic<Dword> foreign_release_error{0};
  std::jthread other([&] {
    foreign_release_error = ErrorOf(ReleaseMutex(mutex.get()));
    acquired = WaitForSingleObject(mutex.get(), 5000) == kWaitObject0 && ReleaseMutex(mutex.get());
  });
  EXPECT_TRUE(WaitFor([&] { return foreign_release_error != 0; }));
  ASSERT_TRUE(ReleaseMutex(mutex.get()));
  EXPECT_FALSE(WaitFor([&] { return acquired.load(); }, 100));  // still held once
  ASSERT_TRUE(ReleaseMutex(mutex.get()));
  other.join();
  EXPECT_TRUE(acquired.load());
  EXPECT_EQ(foreign_release_error.load(), kErrNotOwner);
  EXPECT_EQ(ErrorOf(ReleaseMutex(mutex.get())), kErrNotOwner);
}

}  // namespace
}  // namespace portwren
