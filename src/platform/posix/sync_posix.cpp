#include <algorithm>
#include <chrono>

#include "platform/os_sync.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/sync_core.h"

namespace portwren::os::posix {

namespace {

std::condition_variable& SyncCondition() {
  static auto* condition = new std::condition_variable;
  return *condition;
}

thread_local std::shared_ptr<ApcQueue> t_apc_queue;

// Windows mutexes: owned by a thread, recursive.
class MutexObject : public Waitable {
 public:
  bool IsSignalledFor(Dword thread_id) const override { return count_ == 0 || owner_ == thread_id; }
  void Acquire(Dword thread_id) override {
    owner_ = thread_id;
    ++count_;
  }
  bool Release(Dword thread_id) {
    if (count_ == 0 || owner_ != thread_id) return false;
    if (--count_ == 0) owner_ = 0;
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

void NotifyWaiters() {
  SyncCondition().notify_all();
}

void Event::Set() {
  {
    std::lock_guard lock(SyncMutex());
    signalled_ = true;
  }
  NotifyWaiters();
}

void Event::Reset() {
  std::lock_guard lock(SyncMutex());
  signalled_ = false;
}

void ApcQueue::Push(std::function<void()> routine) {
  {
    std::lock_guard lock(SyncMutex());
    items_.push_back(std::move(routine));
  }
  NotifyWaiters();
}

std::shared_ptr<ApcQueue> CurrentApcQueue() {
  if (t_apc_queue == nullptr) t_apc_queue = std::make_shared<ApcQueue>();
  return t_apc_queue;
}

Dword WaitObjects(const std::vector<std::shared_ptr<Waitable>>& objects, bool wait_all, Dword milliseconds,
                  bool alertable) {
  const Dword thread_id = GetCurrentThreadId();
  const std::shared_ptr<ApcQueue> apc = alertable ? CurrentApcQueue() : nullptr;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  std::unique_lock lock(SyncMutex());
  for (;;) {
    if (apc != nullptr && !apc->Empty()) {
      std::deque<std::function<void()>> routines = apc->TakeAll();
      lock.unlock();
      for (auto& routine : routines) routine();
      return kWaitIoCompletion;
    }
    if (wait_all) {
      const bool all = !objects.empty() &&
                       std::all_of(objects.begin(), objects.end(),
                                   [&](const auto& object) { return object->IsSignalledFor(thread_id); });
      if (all) {
        for (const auto& object : objects) object->Acquire(thread_id);
        return kWaitObject0;
      }
    } else {
      for (size_t i = 0; i < objects.size(); ++i) {
        if (objects[i]->IsSignalledFor(thread_id)) {
          objects[i]->Acquire(thread_id);
          return kWaitObject0 + static_cast<Dword>(i);
        }
      }
    }
    if (milliseconds == kInfinite) {
      SyncCondition().wait(lock);
    } else {
      if (std::chrono::steady_clock::now() >= deadline) return kWaitTimeout;
      SyncCondition().wait_until(lock, deadline);
    }
  }
}

void WaitUntil(const std::function<bool()>& done) {
  std::unique_lock lock(SyncMutex());
  SyncCondition().wait(lock, done);
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
    std::lock_guard lock(posix::SyncMutex());
    released = object->Release(GetCurrentThreadId());
  }
  if (!released) return Fail(kErrNotOwner);
  posix::NotifyWaiters();
  return true;
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
