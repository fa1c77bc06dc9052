// UTF-8 <-> UTF-16: the code-point steps shared by the Windows-shaped text calls (lenient, as
// Windows is) and by the wide path calls (strict: a path that does not convert is refused).
#pragma once

#include <cstddef>
#include <string>

#include "platform/os_file.h"

namespace portwren::os::posix {

constexpr char32_t kReplacementChar = 0xFFFD;

// One code point from UTF-8 at text[*i], moving *i past it. Malformed, overlong or surrogate
// sequences give U+FFFD one byte at a time (as Windows does) and set *malformed when given.
char32_t DecodeUtf8(const unsigned char* text, size_t size, size_t* i, bool* malformed = nullptr);
// One code point from UTF-16 at text[*i] (size units), moving *i past it. An unpaired surrogate
// gives U+FFFD and sets *malformed when given.
char32_t DecodeUtf16(const WChar* text, size_t size, size_t* i, bool* malformed = nullptr);

void AppendUtf8(char32_t code, std::string* out);
void AppendUtf16(char32_t code, std::u16string* out);

// NUL-terminated input. False for unpaired surrogates.
bool Utf16ToUtf8(const WChar* text, std::string* out);
// False for malformed UTF-8.
bool Utf8ToUtf16(const std::string& text, std::u16string* out);

}  // namespace portwren::os::posix
