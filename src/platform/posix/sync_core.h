// Waits as the Windows dispatcher does them. Events, mutexes, threads, request states and the
// per-thread queues of completion routines all change under SyncMutex. A waiting thread parks
// its WaitBlock (sync_posix.cpp) on each object it waits for; whoever signals an object
// satisfies the parked waits it can, oldest first, on the waiters' behalf (an auto-reset event
// or a free mutex lets exactly one through), and wakes only those threads, after letting go of
// SyncMutex. A woken thread finds its result made.
#pragma once

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

// The threads to wake for changes made under SyncMutex: filled under it, woken when it is
// destroyed, so declare it before the lock. With a WakeBatch alive on the thread, the
// wake-ups wait for the batch.
class WakeList {
 public:
  WakeList() = default;
  WakeList(const WakeList&) = delete;
  WakeList& operator=(const WakeList&) = delete;
  ~WakeList();
  void Add(WaitBlock* block) {
    if (count_ < kInline) {
      inline_[count_++] = block;
    } else {
      more_.push_back(block);
    }
  }

 private:
  static constexpr size_t kInline = 4;  // a wake-up rarely has more threads to wake
  WaitBlock* inline_[kInline];
  size_t count_ = 0;
  std::vector<WaitBlock*> more_;
};

// Holds back the wake-ups this thread makes until it ends or Flush: made before a device lock
// is taken, it wakes the threads that a completion is for once the lock is let go, so they do
// not run at once into it. Never alive across a wait.
class WakeBatch {
 public:
  WakeBatch();
  WakeBatch(const WakeBatch&) = delete;
  WakeBatch& operator=(const WakeBatch&) = delete;
  ~WakeBatch();
  void Flush();  // the wake-ups held so far, now
};

// Under SyncMutex, after `object` became signalled: satisfies the waits parked on it that it
// now lets through, oldest first, and adds their threads to `wakes`.
void SatisfyWaiters(Waitable& object, WakeList& wakes);

// Under SyncMutex: wakes the threads in WaitUntil, to look at their state again.
void WakeStateWaiters(WakeList& wakes);
// The same, taking SyncMutex itself.
void NotifyWaiters();

class Event : public Waitable {
 public:
  Event(bool manual_reset, bool initial_state) : manual_reset_(manual_reset), signalled_(initial_state) {}
  void Set();
  void SetLocked(WakeList& wakes);  // under SyncMutex
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
  void Push(std::function<void()> routine);                         // takes SyncMutex, wakes the thread
  void PushLocked(std::function<void()> routine, WakeList& wakes);  // under SyncMutex
  // Under SyncMutex: takes everything queued so far.
  std::deque<std::function<void()>> TakeAll() { return std::exchange(items_, {}); }
  bool Empty() const { return items_.empty(); }
  // Under SyncMutex: the block of the thread's alertable wait, while it is in one.
  void set_waiter(WaitBlock* block) { waiter_ = block; }

 private:
  std::deque<std::function<void()>> items_;  // guarded by SyncMutex
  WaitBlock* waiter_ = nullptr;
};

// The calling thread's queue (made on first use, dropped when the thread ends).
std::shared_ptr<ApcQueue> CurrentApcQueue();

// The wait behind every WaitFor*: kWaitObject0 + i, kWaitTimeout, kWaitIoCompletion.
Dword WaitObjects(const std::vector<std::shared_ptr<Waitable>>& objects, bool wait_all, Dword milliseconds,
                  bool alertable);

// Waits until done() (checked under SyncMutex) is true; woken by WakeStateWaiters. For states
// that are not objects, e.g. a request whose event handle was closed.
void WaitUntil(const std::function<bool()>& done);

}  // namespace portwren::os::posix
