// Threads, created as with CreateThread. A thread handle is signalled when the thread ends.
#pragma once

#include "platform/os_handle.h"

namespace portwren::os {

using ThreadProc = Dword (*)(void* argument);

inline constexpr Dword kStillActive = 259;

// stack_size 0 takes the default; any size is only a starting size, as on Windows, where the
// stack can grow to the executable's reserve (1 MB or more). nullptr on failure. The id is the
// one GetCurrentThreadId reports inside the thread.
Handle CreateThread(ThreadProc procedure, void* argument, Dword stack_size, Dword* thread_id);

// kStillActive while the thread runs, then the procedure's result.
bool GetExitCodeThread(Handle thread, Dword* exit_code);

}  // namespace portwren::os
