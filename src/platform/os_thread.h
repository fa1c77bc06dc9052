// Threads, created as with CreateThread. A thread handle is signalled when the thread ends.
#pragma once

#include "platform/os_handle.h"

namespace portwren::os {

using ThreadProc = Dword (*)(void* argument);

inline constexpr Dword kStillActive = 259;

// stack_size 0 takes the default. As on Windows, where a stack grows up to the executable's
// reserve, a small size never makes a stack smaller than the default one. nullptr on failure.
// The id is the one GetCurrentThreadId reports inside the thread.
Handle CreateThread(ThreadProc procedure, void* argument, Dword stack_size, Dword* thread_id);

// kStillActive while the thread runs, then the procedure's result.
bool GetExitCodeThread(Handle thread, Dword* exit_code);

}  // namespace portwren::os
