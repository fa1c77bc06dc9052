#include "platform/posix/text_utf.h"

namespace portwren::os::posix {

bool Utf16ToUtf8(const WChar* text, std::string* out) {
  out->clear();
  for (size_t i = 0; text[i] != 0; ++i) {
    uint32_t code = text[i];
    if (code >= 0xD800 && code <= 0xDBFF) {
      const uint32_t low = text[i + 1];
      if (low < 0xDC00 || low > 0xDFFF) return false;
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
      ++i;
    } else if (code >= 0xDC00 && code <= 0xDFFF) {
      return false;
    }
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
  return true;
}

bool Utf8ToUtf16(const std::string& text, std::u16string* out) {
  out->clear();
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    int extra;
    uint32_t code;
    if (lead < 0x80) {
      extra = 0;
      code = lead;
    } else if ((lead & 0xE0) == 0xC0) {
      extra = 1;
      code = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
      extra = 2;
      code = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
      extra = 3;
      code = lead & 0x07;
    } else {
      return false;
    }
    if (i + static_cast<size_t>(extra) >= text.size()) return false;
    for (int k = 1; k <= extra; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = (code << 6) | (next & 0x3F);
    }
    if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    if (code >= 0x10000) {
      code -= 0x10000;
      out->push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
      out->push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
    } else {
      out->push_back(static_cast<char16_t>(code));
    }
    i += static_cast<size_t>(extra) + 1;
  }
  return true;
}

}  // namespace portwren::os::posix
