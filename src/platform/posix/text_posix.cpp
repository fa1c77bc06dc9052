#include <cstring>
#include <string>

#include "platform/os_text.h"

namespace portwren::os {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// One code point from UTF-8 at text[*i], moving *i past it; malformed bytes become U+FFFD one
// at a time, as Windows does.
char32_t DecodeUtf8(const unsigned char* text, size_t size, size_t* i) {
  const unsigned char lead = text[*i];
  int extra;
  char32_t code;
  char32_t minimum;
  if (lead < 0x80) {
    ++*i;
    return lead;
  } else if ((lead & 0xE0) == 0xC0) {
    extra = 1, code = lead & 0x1F, minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    extra = 2, code = lead & 0x0F, minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    extra = 3, code = lead & 0x07, minimum = 0x10000;
  } else {
    ++*i;
    return kReplacement;
  }
  if (*i + static_cast<size_t>(extra) >= size) {  // cut short
    ++*i;
    return kReplacement;
  }
  for (int k = 1; k <= extra; ++k) {
    const unsigned char next = text[*i + k];
    if ((next & 0xC0) != 0x80) {
      ++*i;
      return kReplacement;
    }
    code = (code << 6) | (next & 0x3F);
  }
  *i += static_cast<size_t>(extra) + 1;
  if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return kReplacement;
  return code;
}

void AppendUtf8(char32_t code, std::string* out) {
  if (code < 0x80) {
    out->push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (code >> 6)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else if (code < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (code >> 12)));
    out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (code >> 18)));
    out->push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
}

// The caller's length: -1 means "to the NUL, with it".
bool InputLength(int length, size_t nul_terminated_size, size_t* size) {
  if (length == 0 || length < -1) return false;
  *size = length == -1 ? nul_terminated_size + 1 : static_cast<size_t>(length);
  return true;
}

template <typename Char, typename Converted>
int Deliver(const Converted& converted, Char* out, int capacity) {
  if (capacity < 0 || (capacity > 0 && out == nullptr)) {
    SetLastError(kErrInvalidParameter);
    return 0;
  }
  if (capacity == 0) return static_cast<int>(converted.size());
  if (converted.size() > static_cast<size_t>(capacity)) {
    SetLastError(kErrInsufficientBuffer);
    return 0;
  }
  std::memcpy(out, converted.data(), converted.size() * sizeof(Char));
  return static_cast<int>(converted.size());
}

}  // namespace

int MultiByteToWideChar(const char* text, int length, WChar* out, int capacity) {
  size_t size = 0;
  if (text == nullptr || !InputLength(length, length == -1 ? std::strlen(text) : 0, &size)) {
    SetLastError(kErrInvalidParameter);
    return 0;
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  std::u16string converted;
  for (size_t i = 0; i < size;) {
    const char32_t code = DecodeUtf8(bytes, size, &i);
    if (code >= 0x10000) {
      converted.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
      converted.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
    } else {
      converted.push_back(static_cast<char16_t>(code));
    }
  }
  return Deliver(converted, out, capacity);
}

int WideCharToMultiByte(const WChar* text, int length, char* out, int capacity) {
  if (text == nullptr) {
    SetLastError(kErrInvalidParameter);
    return 0;
  }
  size_t units = 0;
  while (length == -1 && text[units] != 0) ++units;
  size_t size = 0;
  if (!InputLength(length, units, &size)) {
    SetLastError(kErrInvalidParameter);
    return 0;
  }
  std::string converted;
  for (size_t i = 0; i < size; ++i) {
    char32_t code = text[i];
    if (code >= 0xD800 && code <= 0xDBFF && i + 1 < size && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      code = 0x10000 + ((code - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (code >= 0xD800 && code <= 0xDFFF) {
      code = kReplacement;
    }
    AppendUtf8(code, &converted);
  }
  return Deliver(converted, out, capacity);
}

}  // namespace portwren::os
