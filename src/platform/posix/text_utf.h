// UTF-16 <-> UTF-8, for the wide-character calls (the narrow text of this system is UTF-8).
#pragma once

#include <string>

#include "platform/os_file.h"

namespace portwren::os::posix {

// NUL-terminated input. False for unpaired surrogates.
bool Utf16ToUtf8(const WChar* text, std::string* out);
// False for malformed UTF-8.
bool Utf8ToUtf16(const std::string& text, std::u16string* out);

}  // namespace portwren::os::posix
