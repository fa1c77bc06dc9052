// The objects behind handles, and the handle table that names them.
//
// A Handle is a small number (a multiple of 4, like Windows handles) that indexes a table of
// shared objects, never a raw pointer: a stale or made-up handle finds nothing (error 6)
// instead of crashing, and an object stays alive while a call that found it still uses it.
#pragma once

#include <memory>
#include <vector>

#include "platform/os_handle.h"

namespace portwren::os::posix {

struct WaitBlock;  // sync_core.h

class KernelObject {
 public:
  virtual ~KernelObject() = default;
  // Called once, when the handle naming the object is closed.
  virtual void OnClose() {}
};

// Something a wait can be satisfied by. IsSignalledFor and Acquire run with SyncMutex held.
class Waitable : public KernelObject {
 public:
  virtual bool IsSignalledFor(Dword thread_id) const = 0;
  // What a satisfied wait takes: an auto-reset event's signal, a mutex's ownership.
  virtual void Acquire(Dword /*thread_id*/) {}

  // The waits parked on this object, oldest first; guarded by SyncMutex, kept by sync_posix.cpp.
  std::vector<WaitBlock*>& waiters() { return waiters_; }

 private:
  std::vector<WaitBlock*> waiters_;
};

Handle InsertObject(std::shared_ptr<KernelObject> object);  // nullptr if it cannot be stored
std::shared_ptr<KernelObject> LookupObject(Handle handle);
std::shared_ptr<KernelObject> RemoveObject(Handle handle);

template <typename T>
std::shared_ptr<T> Lookup(Handle handle) {
  return std::dynamic_pointer_cast<T>(LookupObject(handle));
}

}  // namespace portwren::os::posix
