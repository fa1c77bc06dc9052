#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/os_thread.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/sync_core.h"

namespace portwren::os::posix {

namespace {

class ThreadObject : public Waitable {
 public:
  bool IsSignalledFor(Dword) const override { return ended_; }

  // Under SyncMutex.
  bool ended_ = false;
  bool started_ = false;
  Dword thread_id_ = 0;
  Dword exit_code_ = kStillActive;
};

struct StartBlock {
  ThreadProc procedure;
  void* argument;
  std::shared_ptr<ThreadObject> thread;
};

void* ThreadEntry(void* raw) {
  std::unique_ptr<StartBlock> start(static_cast<StartBlock*>(raw));
  {
    WakeList wakes;
    std::lock_guard lock(SyncMutex());
    start->thread->thread_id_ = GetCurrentThreadId();
    start->thread->started_ = true;
    WakeStateWaiters(wakes);
  }
  const Dword exit_code = start->procedure(start->argument);
  {
    WakeList wakes;
    std::lock_guard lock(SyncMutex());
    start->thread->exit_code_ = exit_code;
    start->thread->ended_ = true;
    SatisfyWaiters(*start->thread, wakes);
  }
  return nullptr;
}

// A Windows stack grows up to the executable's reserve (1 MB or more) whatever starting size
// is asked for, so a size here is only ever an enlargement of the system's default thread
// stack. (The default also leaves room for what lives at the top of a thread's stack, such
// as thread-local storage, which under ThreadSanitizer alone takes most of a megabyte.)
size_t StackSize(const pthread_attr_t& defaults, Dword requested) {
  size_t size = 0;
  pthread_attr_getstacksize(&defaults, &size);
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  size = std::max<size_t>(size, requested);
  return (size + page - 1) / page * page;
}

}  // namespace

}  // namespace portwren::os::posix

namespace portwren::os {

Handle CreateThread(ThreadProc procedure, void* argument, Dword stack_size, Dword* thread_id) {
  using namespace posix;
  if (procedure == nullptr) {
    SetLastError(kErrInvalidParameter);
    return nullptr;
  }
  auto thread = std::make_shared<ThreadObject>();
  Handle handle = InsertObject(thread);
  if (handle == nullptr) {
    SetLastError(kErrNotEnoughMemory);
    return nullptr;
  }
  auto* start = new StartBlock{procedure, argument, thread};

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, StackSize(attributes, stack_size));
  pthread_t pthread;
  const int error = pthread_create(&pthread, &attributes, ThreadEntry, start);
  pthread_attr_destroy(&attributes);
  if (error != 0) {
    delete start;
    RemoveObject(handle);
    SetLastError(error == EAGAIN ? kErrNotEnoughMemory : WinErrorFromErrno(error));
    return nullptr;
  }

  // The id is the one the thread itself reports, so wait until it has said it.
  Dword id;
  WaitUntil([&] { return thread->started_; });
  {
    std::lock_guard lock(SyncMutex());
    id = thread->thread_id_;
  }
  if (thread_id != nullptr) *thread_id = id;
  return handle;
}

bool GetExitCodeThread(Handle thread, Dword* exit_code) {
  auto object = posix::Lookup<posix::ThreadObject>(thread);
  if (object == nullptr) return posix::Fail(kErrInvalidHandle);
  if (exit_code == nullptr) return posix::Fail(kErrInvalidParameter);
  std::lock_guard lock(posix::SyncMutex());
  *exit_code = object->exit_code_;
  return true;
}

}  // namespace portwren::os
