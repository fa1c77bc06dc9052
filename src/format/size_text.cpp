#include "format/size_text.h"

#include <cstdio>

namespace portwren {

const char* SizeText(uint64_t count, const char* unit, char* buffer, int32_t capacity) {
  if (buffer == nullptr || capacity < 1) return "";
  const size_t room = static_cast<size_t>(capacity);
  if (count >= 1000000000ULL) {
    std::snprintf(buffer, room, "%.2f G%s", static_cast<double>(count) / 1e9, unit);
  } else if (count >= 1000000ULL) {
    std::snprintf(buffer, room, "%.2f M%s", static_cast<double>(count) / 1e6, unit);
  } else if (count >= 1000ULL) {
    std::snprintf(buffer, room, "%.2f K%s", static_cast<double>(count) / 1000.0, unit);
  } else {
    std::snprintf(buffer, room, "%d %s", static_cast<int>(count), unit);
  }
  return buffer;
}

const char* RateText(uint64_t bytes, uint32_t milliseconds, char* buffer, int32_t capacity) {
  return SizeText(bytes * 1000 / milliseconds, "B/s", buffer, capacity);
}

const char* DwordText(uint32_t value, char* buffer, int32_t capacity) {
  switch (value) {
    case 0xFFFFFFFFu:
      return "MAXDWORD";
    case 0xFFFFFFFEu:
      return "MAXDWORD-1";
    case 0xFFFFFFFDu:
      return "MAXDWORD-2";
    default:
      break;
  }
  if (buffer == nullptr || capacity < 1) return "";
  std::snprintf(buffer, static_cast<size_t>(capacity), "%u", value);
  return buffer;
}

}  // namespace portwren
