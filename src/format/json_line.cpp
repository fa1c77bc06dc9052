#include "format/json_line.h"

#include <cmath>
#include <cstdio>

namespace portwren {

namespace {

// Length of the well-formed UTF-8 sequence at `at`, or 0.
size_t Utf8Length(std::string_view text, size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  size_t length = 0;
  uint32_t least = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    least = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    least = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    least = 0x10000;
  } else {
    return 0;
  }
  if (at + length > text.size()) return 0;
  uint32_t code = lead & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return 0;
    code = (code << 6) | (next & 0x3F);
  }
  if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return length;
}

}  // namespace

std::string JsonQuoted(std::string_view text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    char escape[8];
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      out += escape;
    } else if (c >= 0x80) {
      const size_t length = Utf8Length(text, i);
      if (length != 0) {
        out.append(text.substr(i, length));
        i += length;
        continue;
      }
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      out += escape;
    } else {
      out += static_cast<char>(c);
    }
    ++i;
  }
  out += '"';
  return out;
}

void JsonLine::Separate() {
  if (!first_) text_ += ',';
  first_ = false;
}

void JsonLine::Key(std::string_view key) {
  Separate();
  text_ += JsonQuoted(key);
  text_ += ':';
}

JsonLine& JsonLine::Text(std::string_view key, std::string_view value) {
  Key(key);
  text_ += JsonQuoted(value);
  return *this;
}

JsonLine& JsonLine::Int(std::string_view key, int64_t value) {
  Key(key);
  text_ += std::to_string(value);
  return *this;
}

JsonLine& JsonLine::Uint(std::string_view key, uint64_t value) {
  Key(key);
  text_ += std::to_string(value);
  return *this;
}

JsonLine& JsonLine::Real(std::string_view key, double value) {
  Key(key);
  if (!std::isfinite(value)) {
    text_ += "null";
    return *this;
  }
  char number[64];
  std::snprintf(number, sizeof number, "%.3f", value);
  text_ += number;
  return *this;
}

JsonLine& JsonLine::Bool(std::string_view key, bool value) {
  Key(key);
  text_ += value ? "true" : "false";
  return *this;
}

JsonLine& JsonLine::Null(std::string_view key) {
  Key(key);
  text_ += "null";
  return *this;
}

JsonLine& JsonLine::BeginObject(std::string_view key) {
  Key(key);
  text_ += '{';
  first_ = true;
  return *this;
}

JsonLine& JsonLine::EndObject() {
  text_ += '}';
  first_ = false;
  return *this;
}

JsonLine& JsonLine::BeginArray(std::string_view key) {
  Key(key);
  text_ += '[';
  first_ = true;
  return *this;
}

JsonLine& JsonLine::EndArray() {
  text_ += ']';
  first_ = false;
  return *this;
}

JsonLine& JsonLine::Item(uint64_t value) {
  Separate();
  text_ += std::to_string(value);
  return *this;
}

JsonLine& JsonLine::BeginItemObject() {
  Separate();
  text_ += '{';
  first_ = true;
  return *this;
}

std::string JsonLine::Finish() const {
  return text_ + '}';
}

}  // namespace portwren
