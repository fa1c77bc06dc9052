#include "platform/posix/io_object.h"

#include <atomic>
#include <mutex>

#include "platform/posix/errno_map.h"
#include "platform/posix/request_target.h"

namespace portwren::os::posix {

// A request's status is written by the thread that completes it and read by any other, so it
// is the one field of the caller's Overlapped that is accessed atomically; the count is
// written before it and read after it.
uintptr_t LoadStatus(const Overlapped* overlapped) {
  return std::atomic_ref<uintptr_t>(const_cast<Overlapped*>(overlapped)->Internal)
      .load(std::memory_order_acquire);
}

void StoreStatus(Overlapped* overlapped, uintptr_t status) {
  std::atomic_ref<uintptr_t>(overlapped->Internal).store(status, std::memory_order_release);
}

void CompletionTarget::Begin() const {
  if (overlapped != nullptr) {
    overlapped->InternalHigh = 0;
    StoreStatus(overlapped, kStatusPending);
  }
  if (routine != nullptr) return;
  if (event != nullptr) {
    event->Reset();
  } else if (signal_handle != nullptr) {
    signal_handle->SetSignalled(false);
  }
}

void CompletionTarget::Finish(uintptr_t status, Dword count, bool in_issuing_call) const {
  const bool queue_routine = routine != nullptr && !(in_issuing_call && !StatusIsSuccess(status));
  std::function<void()> queued;
  if (queue_routine) {
    const Dword error = ErrorFromStatus(status);
    CompletionRoutine run = routine;
    Overlapped* overlapped_copy = overlapped;
    queued = [run, error, count, overlapped_copy] { run(error, count, overlapped_copy); };
  }
  WakeList wakes;
  // Status and count, then the signal, in one step under SyncMutex: a waiter looks at the
  // status under it, so it either sees the new status or is already parked when the wake-up
  // comes.
  std::lock_guard lock(SyncMutex());
  if (overlapped != nullptr) {
    overlapped->InternalHigh = count;
    StoreStatus(overlapped, status);
    WakeStateWaiters(wakes);
  }
  if (routine != nullptr) {
    if (queue_routine) apc->PushLocked(std::move(queued), wakes);
  } else if (event != nullptr) {
    event->SetLocked(wakes);
  } else if (signal_handle != nullptr) {
    signal_handle->SetSignalledLocked(true, wakes);
  }
}

void IoObject::SetSignalled(bool signalled) {
  WakeList wakes;
  std::lock_guard lock(SyncMutex());
  SetSignalledLocked(signalled, wakes);
}

void IoObject::SetSignalledLocked(bool signalled, WakeList& wakes) {
  signalled_ = signalled;
  if (signalled) SatisfyWaiters(*this, wakes);
}

bool MakeTarget(IoObject* object, Overlapped* overlapped, CompletionTarget* target) {
  target->overlapped = overlapped;
  const uintptr_t event_value = reinterpret_cast<uintptr_t>(overlapped->hEvent) & ~uintptr_t{1};
  if (event_value == 0) {
    target->signal_handle = object;
    return true;
  }
  target->event = Lookup<Event>(reinterpret_cast<Handle>(event_value));
  return target->event != nullptr ? true : Fail(kErrInvalidHandle);
}

bool IoObject::CancelRequest(const Overlapped*) {
  return Fail(kErrNotFound);
}

bool IoObject::Seek(int64_t, Dword, int64_t*) {
  return Fail(kErrInvalidFunction);
}

bool IoObject::Truncate() {
  return Fail(kErrInvalidFunction);
}

}  // namespace portwren::os::posix
