// Handles: what every platform object is named by, as on Windows.
#pragma once

#include <cstdint>

#include "platform/os_core.h"

namespace portwren::os {

using Handle = void*;

// INVALID_HANDLE_VALUE. Creation calls that fail return either this (CreateFileA and the
// device calls) or nullptr (events, mutexes, threads), exactly as their Windows namesakes.
inline const Handle kInvalidHandle = reinterpret_cast<Handle>(~static_cast<uintptr_t>(0));

// Closes any handle of this layer (file, port, event, mutex, thread). False + 6 when unknown.
bool CloseHandle(Handle handle);

}  // namespace portwren::os
