// The one lock and condition behind every wait: events, mutexes, threads, request states and
// the per-thread queues of completion routines all change under SyncMutex, and every change
// wakes all waiters, who look again. Few threads ever wait at once here, so one condition is
// cheaper to get right than one per object.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/os_sync.h"
#include "platform/posix/kernel_object.h"

namespace portwren::os::posix {

std::mutex& SyncMutex();
// Wakes every waiter; call after a state change made under SyncMutex.
void NotifyWaiters();

class Event : public Waitable {
 public:
  Event(bool manual_reset, bool initial_state) : manual_reset_(manual_reset), signalled_(initial_state) {}
  void Set();
  void Reset();
  bool IsSignalledFor(Dword) const override { return signalled_; }
  void Acquire(Dword) override {
    if (!manual_reset_) signalled_ = false;
  }

 private:
  const bool manual_reset_;
  bool signalled_;  // guarded by SyncMutex
};

// Completion routines waiting for their thread's next alertable wait.
class ApcQueue {
 public:
  void Push(std::function<void()> routine);  // takes SyncMutex, wakes the thread
  // Under SyncMutex: takes everything queued so far.
  std::deque<std::function<void()>> TakeAll() { return std::exchange(items_, {}); }
  bool Empty() const { return items_.empty(); }

 private:
  std::deque<std::function<void()>> items_;  // guarded by SyncMutex
};

// The calling thread's queue (made on first use, dropped when the thread ends).
std::shared_ptr<ApcQueue> CurrentApcQueue();

// The wait behind every WaitFor*: kWaitObject0 + i, kWaitTimeout, kWaitIoCompletion.
Dword WaitObjects(const std::vector<std::shared_ptr<Waitable>>& objects, bool wait_all, Dword milliseconds,
                  bool alertable);

// Waits until done() (checked under SyncMutex) is true. For request states that are not
// objects, e.g. a request whose event handle was closed.
void WaitUntil(const std::function<bool()>& done);

}  // namespace portwren::os::posix
