// Starting a worker thread with one procedure and one argument.
#pragma once

#include "platform/os_thread.h"

namespace portwren {

// Starts procedure(argument) on a new thread with a stack of stack_size bytes (64000 when
// below 1) and stores its id in *thread_id when given. The thread's exit code is the
// procedure's result. nullptr when the thread could not be started.
os::Handle StartThread(os::ThreadProc procedure, void* argument, int stack_size, os::Dword* thread_id);

}  // namespace portwren
