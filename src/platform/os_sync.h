// Events, mutexes and the waits on them, with the Windows wait results.
#pragma once

#include "platform/os_handle.h"

namespace portwren::os {

inline constexpr Dword kInfinite = 0xFFFFFFFF;
inline constexpr Dword kWaitObject0 = 0;
inline constexpr Dword kWaitAbandoned0 = 0x80;
inline constexpr Dword kWaitIoCompletion = 0xC0;
inline constexpr Dword kWaitTimeout = 258;
inline constexpr Dword kWaitFailed = 0xFFFFFFFF;
inline constexpr Dword kMaximumWaitObjects = 64;

// Unnamed event; nullptr on failure.
Handle CreateEventA(bool manual_reset, bool initial_state);
bool SetEvent(Handle event);
bool ResetEvent(Handle event);

// Unnamed, recursive mutex owned by a thread; nullptr on failure.
Handle CreateMutexA(bool initial_owner);
bool ReleaseMutex(Handle mutex);  // false + kErrNotOwner from a thread that does not own it

// Events, mutexes, threads (signalled when they end) and files/ports (signalled by a request
// that completes without an event of its own).
Dword WaitForSingleObject(Handle handle, Dword milliseconds);
Dword WaitForMultipleObjects(Dword count, const Handle* handles, bool wait_all, Dword milliseconds);

// Alertable forms: queued completion routines of this thread run inside the wait, which
// then returns kWaitIoCompletion.
Dword WaitForSingleObjectEx(Handle handle, Dword milliseconds, bool alertable);
Dword WaitForMultipleObjectsEx(Dword count, const Handle* handles, bool wait_all, Dword milliseconds,
                               bool alertable);
Dword SleepEx(Dword milliseconds, bool alertable);  // 0, or kWaitIoCompletion

}  // namespace portwren::os
