// How a request's end reaches a thread that waits for it.
#include "platform/posix/io_object.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <chrono>
#include <thread>

#include "platform/posix/sync_core.h"

namespace portwren::os::posix {
namespace {

using Clock = std::chrono::steady_clock;

// One thread ends a request, another waits for its status alone (as GetOverlappedResult does
// once the event was set by something else), round after round. The request ends just while
// the waiter, having seen "pending", has not gone to sleep yet (as when it is preempted there):
// a status stored and announced outside SyncMutex is then never seen, the wake-up being lost.
TEST(CompletionTargetTest, AWaiterForTheStatusNeverMissesTheEnd) {
  constexpr int kRounds = 1000;
  Overlapped overlapped;
  CompletionTarget target;
  target.overlapped = &overlapped;
  std::barrier start(2);
  std::atomic<bool> stop{false};
  std::atomic<bool> looked{false};
  std::atomic<int> seen{-1};
  std::thread waiter([&] {
    for (int round = 0; round < kRounds && !stop; ++round) {
      start.arrive_and_wait();
      WaitUntil([&] {
        if (LoadStatus(&overlapped) != kStatusPending) return true;
        looked = true;
        for (const auto until = Clock::now() + std::chrono::microseconds(50); Clock::now() < until;) {
        }
        return false;
      });
      seen = round;
    }
  });
  int lost = -1;
  for (int round = 0; round < kRounds && lost < 0; ++round) {
    target.Begin();
    looked = false;
    start.arrive_and_wait();
    while (!looked) std::this_thread::yield();
    target.Finish(kStatusSuccess, static_cast<Dword>(round), false);
    const auto deadline = Clock::now() + std::chrono::seconds(2);
    while (seen != round && Clock::now() < deadline) std::this_thread::yield();
    if (seen != round) lost = round;
  }
  stop = true;
  NotifyWaiters();  // a waiter that missed its wake-up finds the status now
  waiter.join();
  EXPECT_EQ(lost, -1) << "the waiter slept through the end of round " << lost;
}

}  // namespace
}  // namespace portwren::os::posix
