#include "platform/os_sync.h"
#include "platform/os_thread.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

static_assert(kInfinite == INFINITE && kWaitTimeout == WAIT_TIMEOUT && kWaitFailed == WAIT_FAILED &&
              kWaitIoCompletion == WAIT_IO_COMPLETION && kWaitAbandoned0 == WAIT_ABANDONED_0 &&
              kMaximumWaitObjects == MAXIMUM_WAIT_OBJECTS && kStillActive == STILL_ACTIVE);

bool CloseHandle(Handle handle) {
  return ::CloseHandle(handle) != FALSE;
}

Handle CreateEventA(bool manual_reset, bool initial_state) {
  return ::CreateEventA(nullptr, manual_reset, initial_state, nullptr);
}

bool SetEvent(Handle event) {
  return ::SetEvent(event) != FALSE;
}
bool ResetEvent(Handle event) {
  return ::ResetEvent(event) != FALSE;
}

Handle CreateMutexA(bool initial_owner) {
  return ::CreateMutexA(nullptr, initial_owner, nullptr);
}
bool ReleaseMutex(Handle mutex) {
  return ::ReleaseMutex(mutex) != FALSE;
}

Dword WaitForSingleObject(Handle handle, Dword milliseconds) {
  return ::WaitForSingleObject(handle, milliseconds);
}

Dword WaitForMultipleObjects(Dword count, const Handle* handles, bool wait_all, Dword milliseconds) {
  return ::WaitForMultipleObjects(count, handles, wait_all, milliseconds);
}

Dword WaitForSingleObjectEx(Handle handle, Dword milliseconds, bool alertable) {
  return ::WaitForSingleObjectEx(handle, milliseconds, alertable);
}

Dword WaitForMultipleObjectsEx(Dword count, const Handle* handles, bool wait_all, Dword milliseconds,
                               bool alertable) {
  return ::WaitForMultipleObjectsEx(count, handles, wait_all, milliseconds, alertable);
}

Dword SleepEx(Dword milliseconds, bool alertable) {
  return ::SleepEx(milliseconds, alertable);
}

// Through the C runtime's thread start, which sets the runtime up for the thread and creates
// it with CreateThread.
Handle CreateThread(ThreadProc procedure, void* argument, Dword stack_size, Dword* thread_id) {
  // The runtime refuses a missing procedure through errno only; say it the Windows way.
  if (procedure == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  unsigned id = 0;
  const uintptr_t thread = _beginthreadex(nullptr, stack_size, procedure, argument, 0, &id);
  if (thread == 0) return nullptr;
  if (thread_id != nullptr) *thread_id = id;
  return reinterpret_cast<Handle>(thread);
}

bool GetExitCodeThread(Handle thread, Dword* exit_code) {
  DWORD code = 0;
  if (!::GetExitCodeThread(thread, &code)) return false;
  if (exit_code != nullptr) *exit_code = code;
  return true;
}

}  // namespace portwren::os
