// The one includer of <windows.h> and the system headers that build on it.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// These need <windows.h> before them.
#include <process.h>
#include <setupapi.h>
#include <winioctl.h>

// Macros that would rewrite functions of the same name in the platform layer.
#undef HasOverlappedIoCompleted
