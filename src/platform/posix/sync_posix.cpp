#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <ctime>

#include "platform/os_sync.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/sync_core.h"

namespace portwren::os::posix {

namespace {

using Clock = std::chrono::steady_clock;  // CLOCK_MONOTONIC, as the futex deadline

// A thread's sleep and its wake-up, on a futex word: a wake-up costs a system call only while
// the thread really sleeps, and one that comes early makes the next sleep return at once.
class Parker {
 public:
  // Until Unpark or the deadline (nullptr: none); it may also return early.
  void Park(const timespec* deadline) {
    if (state_.fetch_sub(1, std::memory_order_acquire) == kNotified) return;  // now empty
    syscall(SYS_futex, &state_, FUTEX_WAIT_BITSET_PRIVATE, kParked, deadline, nullptr,
            FUTEX_BITSET_MATCH_ANY);
    state_.exchange(kEmpty, std::memory_order_acquire);
  }
  void Unpark() {
    if (state_.exchange(kNotified, std::memory_order_release) == kParked) {
      syscall(SYS_futex, &state_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
  }

 private:
  static constexpr int kParked = -1;
  static constexpr int kEmpty = 0;
  static constexpr int kNotified = 1;
  std::atomic<int> state_{kEmpty};
};

}  // namespace

// One per thread, reused for each of its waits; never freed, so that a wake-up that comes late
// only ever finds a block whose owner looks again and sleeps on.
struct WaitBlock {
  static constexpr Dword kNoResult = 0xFFFFFFFE;
  Parker parker;
  // Guarded by SyncMutex.
  const std::shared_ptr<Waitable>* objects = nullptr;
  size_t count = 0;
  bool wait_all = false;
  Dword thread_id = 0;
  Dword result = kNoResult;  // set by whoever satisfied the wait
};

namespace {

constexpr Dword kNoResult = WaitBlock::kNoResult;

thread_local std::shared_ptr<ApcQueue> t_apc_queue;

// Blocks of threads that ended, for the next ones; guarded by SyncMutex.
std::vector<WaitBlock*>& SpareBlocks() {
  static auto* blocks = new std::vector<WaitBlock*>;
  return *blocks;
}

struct BlockHolder {
  WaitBlock* block = nullptr;
  ~BlockHolder() {
    if (block == nullptr) return;
    std::lock_guard lock(SyncMutex());
    SpareBlocks().push_back(block);
  }
};
thread_local BlockHolder t_block;

// Under SyncMutex.
WaitBlock& ThisThreadBlock() {
  if (t_block.block == nullptr) {
    std::vector<WaitBlock*>& spare = SpareBlocks();
    if (spare.empty()) {
      t_block.block = new WaitBlock;
    } else {
      t_block.block = spare.back();
      spare.pop_back();
    }
  }
  return *t_block.block;
}

// Threads in WaitUntil; guarded by SyncMutex.
std::vector<WaitBlock*>& StateWaiters() {
  static auto* blocks = new std::vector<WaitBlock*>;
  return *blocks;
}

struct HeldWakes {
  int depth = 0;
  std::vector<WaitBlock*> blocks;
};
thread_local HeldWakes t_held;

void WakeOrHold(WaitBlock* const* blocks, size_t count) {
  if (t_held.depth > 0) {
    t_held.blocks.insert(t_held.blocks.end(), blocks, blocks + count);
    return;
  }
  for (size_t i = 0; i < count; ++i) blocks[i]->parker.Unpark();
}

// Also before any wait: a thread about to sleep must not keep back the wake-ups of the threads
// it may be waiting for.
void DeliverHeldWakes() {
  for (WaitBlock* block : t_held.blocks) block->parker.Unpark();
  t_held.blocks.clear();
}

// Under SyncMutex: the wait's result if it can be satisfied now (taking what it takes), else
// kNoResult. Wait-any takes the lowest signalled index; wait-all takes all or nothing.
Dword TrySatisfy(const std::shared_ptr<Waitable>* objects, size_t count, bool wait_all, Dword thread_id) {
  if (wait_all) {
    if (count == 0) return kNoResult;
    for (size_t i = 0; i < count; ++i) {
      if (!objects[i]->IsSignalledFor(thread_id)) return kNoResult;
    }
    for (size_t i = 0; i < count; ++i) objects[i]->Acquire(thread_id);
    return kWaitObject0;
  }
  for (size_t i = 0; i < count; ++i) {
    if (objects[i]->IsSignalledFor(thread_id)) {
      objects[i]->Acquire(thread_id);
      return kWaitObject0 + static_cast<Dword>(i);
    }
  }
  return kNoResult;
}

// Under SyncMutex: the block joins the end of each of its objects' lists, once per object.
void Park(WaitBlock& block) {
  for (size_t i = 0; i < block.count; ++i) {
    Waitable* object = block.objects[i].get();
    bool listed = false;
    for (size_t j = 0; j < i && !listed; ++j) listed = block.objects[j].get() == object;
    if (!listed) object->waiters().push_back(&block);
  }
}

void Unpark(WaitBlock& block) {
  for (size_t i = 0; i < block.count; ++i) {
    std::vector<WaitBlock*>& list = block.objects[i]->waiters();
    const auto found = std::find(list.begin(), list.end(), &block);
    if (found != list.end()) list.erase(found);
  }
}

Dword RunRoutines(std::unique_lock<std::mutex>& lock, ApcQueue& apc) {
  std::deque<std::function<void()>> routines = apc.TakeAll();
  lock.unlock();
  for (auto& routine : routines) routine();
  return kWaitIoCompletion;
}

// Lets go of SyncMutex while the thread sleeps (until `deadline`, if given).
void SleepUnlocked(std::unique_lock<std::mutex>& lock, WaitBlock& block, const Clock::time_point* deadline) {
  timespec until{};
  if (deadline != nullptr) {
    const auto since_epoch = deadline->time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since_epoch);
    until.tv_sec = static_cast<time_t>(seconds.count());
    until.tv_nsec = static_cast<long>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(since_epoch - seconds).count());
  }
  lock.unlock();
  block.parker.Park(deadline != nullptr ? &until : nullptr);
  lock.lock();
}

// Windows mutexes: owned by a thread, recursive.
class MutexObject : public Waitable {
 public:
  bool IsSignalledFor(Dword thread_id) const override { return count_ == 0 || owner_ == thread_id; }
  void Acquire(Dword thread_id) override {
    owner_ = thread_id;
    ++count_;
  }
  // True when released; a free mutex goes to the oldest waiter that it lets through.
  bool Release(Dword thread_id, WakeList& wakes) {
    if (count_ == 0 || owner_ != thread_id) return false;
    if (--count_ == 0) {
      owner_ = 0;
      SatisfyWaiters(*this, wakes);
    }
    return true;
  }

 private:
  Dword owner_ = 0;  // guarded by SyncMutex
  Dword count_ = 0;
};

Handle InsertOrFail(std::shared_ptr<KernelObject> object) {
  Handle handle = InsertObject(std::move(object));
  if (handle == nullptr) SetLastError(kErrNotEnoughMemory);
  return handle;
}

// Resolves the handles of a wait; false (last error set) for a bad list.
bool ResolveWaitables(Dword count, const Handle* handles, bool wait_all,
                      std::vector<std::shared_ptr<Waitable>>* objects) {
  if (count == 0 || count > kMaximumWaitObjects || handles == nullptr) return Fail(kErrInvalidParameter);
  for (Dword i = 0; i < count; ++i) {
    std::shared_ptr<Waitable> object = Lookup<Waitable>(handles[i]);
    if (object == nullptr) return Fail(kErrInvalidHandle);
    // Windows refuses to wait for all of a list that names one object twice.
    if (wait_all && std::find(objects->begin(), objects->end(), object) != objects->end()) {
      return Fail(kErrInvalidParameter);
    }
    objects->push_back(std::move(object));
  }
  return true;
}

}  // namespace

std::mutex& SyncMutex() {
  static auto* mutex = new std::mutex;
  return *mutex;
}

WakeList::~WakeList() {
  WakeOrHold(inline_, count_);
  WakeOrHold(more_.data(), more_.size());
}

WakeBatch::WakeBatch() {
  ++t_held.depth;
}

WakeBatch::~WakeBatch() {
  if (--t_held.depth == 0) DeliverHeldWakes();
}

void WakeBatch::Flush() {
  DeliverHeldWakes();
}

void SatisfyWaiters(Waitable& object, WakeList& wakes) {
  std::vector<WaitBlock*>& list = object.waiters();
  for (size_t i = 0; i < list.size();) {
    WaitBlock* block = list[i];
    const Dword result = TrySatisfy(block->objects, block->count, block->wait_all, block->thread_id);
    if (result == kNoResult) {
      ++i;
      continue;
    }
    block->result = result;
    Unpark(*block);  // also out of `list`, at i
    wakes.Add(block);
  }
}

void WakeStateWaiters(WakeList& wakes) {
  for (WaitBlock* block : StateWaiters()) wakes.Add(block);
}

void NotifyWaiters() {
  WakeList wakes;
  std::lock_guard lock(SyncMutex());
  WakeStateWaiters(wakes);
}

void Event::Set() {
  WakeList wakes;
  std::lock_guard lock(SyncMutex());
  SetLocked(wakes);
}

void Event::SetLocked(WakeList& wakes) {
  signalled_ = true;
  SatisfyWaiters(*this, wakes);
}

void Event::Reset() {
  std::lock_guard lock(SyncMutex());
  signalled_ = false;
}

void ApcQueue::Push(std::function<void()> routine) {
  WakeList wakes;
  std::lock_guard lock(SyncMutex());
  PushLocked(std::move(routine), wakes);
}

void ApcQueue::PushLocked(std::function<void()> routine, WakeList& wakes) {
  items_.push_back(std::move(routine));
  if (waiter_ != nullptr && waiter_->result == kNoResult) wakes.Add(waiter_);
}

std::shared_ptr<ApcQueue> CurrentApcQueue() {
  if (t_apc_queue == nullptr) t_apc_queue = std::make_shared<ApcQueue>();
  return t_apc_queue;
}

Dword WaitObjects(const std::vector<std::shared_ptr<Waitable>>& objects, bool wait_all, Dword milliseconds,
                  bool alertable) {
  const Dword thread_id = GetCurrentThreadId();
  const std::shared_ptr<ApcQueue> apc = alertable ? CurrentApcQueue() : nullptr;
  const bool forever = milliseconds == kInfinite;
  const Clock::time_point deadline = forever || milliseconds == 0
                                         ? Clock::time_point{}
                                         : Clock::now() + std::chrono::milliseconds(milliseconds);
  DeliverHeldWakes();
  std::unique_lock lock(SyncMutex());
  if (apc != nullptr && !apc->Empty()) return RunRoutines(lock, *apc);
  const Dword at_once = TrySatisfy(objects.data(), objects.size(), wait_all, thread_id);
  if (at_once != kNoResult) return at_once;
  if (milliseconds == 0) return kWaitTimeout;

  WaitBlock& block = ThisThreadBlock();
  block.objects = objects.data();
  block.count = objects.size();
  block.wait_all = wait_all;
  block.thread_id = thread_id;
  block.result = kNoResult;
  Park(block);
  if (apc != nullptr) apc->set_waiter(&block);
  for (;;) {
    SleepUnlocked(lock, block, forever ? nullptr : &deadline);
    // A wait already satisfied keeps it: its routines stay queued for the next alertable wait.
    if (block.result != kNoResult) break;
    if (apc != nullptr && !apc->Empty()) {
      Unpark(block);
      apc->set_waiter(nullptr);
      return RunRoutines(lock, *apc);
    }
    if (!forever && Clock::now() >= deadline) {
      Unpark(block);
      block.result = kWaitTimeout;
      break;
    }
  }
  if (apc != nullptr) apc->set_waiter(nullptr);
  return std::exchange(block.result, kNoResult);
}

void WaitUntil(const std::function<bool()>& done) {
  DeliverHeldWakes();
  std::unique_lock lock(SyncMutex());
  if (done()) return;
  WaitBlock& block = ThisThreadBlock();
  std::vector<WaitBlock*>& waiters = StateWaiters();
  waiters.push_back(&block);
  while (!done()) SleepUnlocked(lock, block, nullptr);
  waiters.erase(std::find(waiters.begin(), waiters.end(), &block));
}

}  // namespace portwren::os::posix

namespace portwren::os {

using posix::Fail;
using posix::Lookup;

Handle CreateEventA(bool manual_reset, bool initial_state) {
  return posix::InsertOrFail(std::make_shared<posix::Event>(manual_reset, initial_state));
}

bool SetEvent(Handle event) {
  auto object = Lookup<posix::Event>(event);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  object->Set();
  return true;
}

bool ResetEvent(Handle event) {
  auto object = Lookup<posix::Event>(event);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  object->Reset();
  return true;
}

Handle CreateMutexA(bool initial_owner) {
  auto mutex = std::make_shared<posix::MutexObject>();
  if (initial_owner) {
    std::lock_guard lock(posix::SyncMutex());
    mutex->Acquire(GetCurrentThreadId());
  }
  return posix::InsertOrFail(std::move(mutex));
}

bool ReleaseMutex(Handle mutex) {
  auto object = Lookup<posix::MutexObject>(mutex);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  bool released;
  {
    posix::WakeList wakes;
    std::lock_guard lock(posix::SyncMutex());
    released = object->Release(GetCurrentThreadId(), wakes);
  }
  return released ? true : Fail(kErrNotOwner);
}

Dword WaitForMultipleObjectsEx(Dword count, const Handle* handles, bool wait_all, Dword milliseconds,
                               bool alertable) {
  std::vector<std::shared_ptr<posix::Waitable>> objects;
  if (!posix::ResolveWaitables(count, handles, wait_all, &objects)) return kWaitFailed;
  return posix::WaitObjects(objects, wait_all, milliseconds, alertable);
}

Dword WaitForMultipleObjects(Dword count, const Handle* handles, bool wait_all, Dword milliseconds) {
  return WaitForMultipleObjectsEx(count, handles, wait_all, milliseconds, false);
}

Dword WaitForSingleObjectEx(Handle handle, Dword milliseconds, bool alertable) {
  return WaitForMultipleObjectsEx(1, &handle, false, milliseconds, alertable);
}

Dword WaitForSingleObject(Handle handle, Dword milliseconds) {
  return WaitForMultipleObjectsEx(1, &handle, false, milliseconds, false);
}

Dword SleepEx(Dword milliseconds, bool alertable) {
  if (!alertable) {
    Sleep(milliseconds);
    return 0;
  }
  const Dword result = posix::WaitObjects({}, false, milliseconds, true);
  return result == kWaitIoCompletion ? kWaitIoCompletion : 0;
}

}  // namespace portwren::os
