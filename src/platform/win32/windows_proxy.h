// The one includer of <windows.h>.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

// Macros that would rewrite functions of the same name in the platform layer.
#undef HasOverlappedIoCompleted
