#include "platform/posix/text_utf.h"

namespace portwren::os::posix {

namespace {

char32_t Malformed(size_t* i, size_t step, bool* malformed) {
  *i += step;
  if (malformed != nullptr) *malformed = true;
  return kReplacementChar;
}

}  // namespace

char32_t DecodeUtf8(const unsigned char* text, size_t size, size_t* i, bool* malformed) {
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
    return Malformed(i, 1, malformed);
  }
  if (*i + static_cast<size_t>(extra) >= size) return Malformed(i, 1, malformed);  // cut short
  for (int k = 1; k <= extra; ++k) {
    const unsigned char next = text[*i + k];
    if ((next & 0xC0) != 0x80) return Malformed(i, 1, malformed);
    code = (code << 6) | (next & 0x3F);
  }
  if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
    return Malformed(i, static_cast<size_t>(extra) + 1, malformed);
  }
  *i += static_cast<size_t>(extra) + 1;
  return code;
}

char32_t DecodeUtf16(const WChar* text, size_t size, size_t* i, bool* malformed) {
  const char32_t unit = text[*i];
  if (unit >= 0xD800 && unit <= 0xDBFF && *i + 1 < size && text[*i + 1] >= 0xDC00 && text[*i + 1] <= 0xDFFF) {
    const char32_t code = 0x10000 + ((unit - 0xD800) << 10) + (text[*i + 1] - 0xDC00);
    *i += 2;
    return code;
  }
  if (unit >= 0xD800 && unit <= 0xDFFF) return Malformed(i, 1, malformed);
  ++*i;
  return unit;
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

void AppendUtf16(char32_t code, std::u16string* out) {
  if (code >= 0x10000) {
    out->push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
    out->push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
  } else {
    out->push_back(static_cast<char16_t>(code));
  }
}

bool Utf16ToUtf8(const WChar* text, std::string* out) {
  out->clear();
  size_t size = 0;
  while (text[size] != 0) ++size;
  bool malformed = false;
  for (size_t i = 0; i < size && !malformed;) AppendUtf8(DecodeUtf16(text, size, &i, &malformed), out);
  return !malformed;
}

bool Utf8ToUtf16(const std::string& text, std::u16string* out) {
  out->clear();
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  bool malformed = false;
  for (size_t i = 0; i < text.size() && !malformed;)
    AppendUtf16(DecodeUtf8(bytes, text.size(), &i, &malformed), out);
  return !malformed;
}

}  // namespace portwren::os::posix
