// Conversions between the narrow text of the program (the ANSI code page) and the UTF-16 of
// the driver and SetupDi boundaries. On POSIX the narrow text is UTF-8.
#pragma once

#include "platform/os_file.h"

namespace portwren::os {

// As MultiByteToWideChar(CP_ACP, 0, ...) / WideCharToMultiByte(CP_ACP, 0, ...): length -1
// converts up to and with the NUL; capacity 0 returns the size needed and writes nothing;
// a result that does not fit gives 0 + kErrInsufficientBuffer; length 0 gives 0 +
// kErrInvalidParameter. What cannot be converted becomes a replacement character.
int MultiByteToWideChar(const char* text, int length, WChar* out, int capacity);
int WideCharToMultiByte(const WChar* text, int length, char* out, int capacity);

}  // namespace portwren::os
