// The background reader: a thread that keeps one read pending on the port at all times and
// logs what each read brought, so the port is drained while the console does other things.
#pragma once

#include <cstdint>

#include "platform/os_handle.h"

namespace portwren {

// Starts the one reader, each read asking for read_size bytes. False, without a message, when
// a reader already runs or anything it needs cannot be made (nothing is then left behind).
bool StartReadComThread(os::Handle port, uint32_t read_size);

// Interrupts the pending read, waits for the thread and frees the reader. False when none runs.
// A reader whose thread ended by itself (a failed read) still runs until stopped.
bool StopReadComThread();

}  // namespace portwren
