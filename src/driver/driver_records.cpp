#include "driver/driver_records.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/os_text.h"

namespace portwren {

char* NarrowField(const char16_t* field, size_t units, char* out, size_t capacity) {
  if (capacity == 0) return out;
  out[0] = '\0';
  int length = 0;
  while (static_cast<size_t>(length) < units && field[length] != u'\0') ++length;
  // Whole characters only: drop units from the end until the text fits.
  for (; length > 0; --length) {
    const int needed = os::WideCharToMultiByte(field, length, nullptr, 0);
    if (needed > 0 && static_cast<size_t>(needed) < capacity) {
      const int written = os::WideCharToMultiByte(field, length, out, static_cast<int>(capacity));
      out[written > 0 ? written : 0] = '\0';
      return out;
    }
  }
  return out;
}

void WideField(const char* text, char16_t* field, size_t units) {
  std::memset(field, 0, units * sizeof(char16_t));
  if (units == 0 || text == nullptr || text[0] == '\0') return;
  const int needed = os::MultiByteToWideChar(text, -1, nullptr, 0);
  if (needed <= 0) return;
  std::vector<char16_t> wide(static_cast<size_t>(needed));
  if (os::MultiByteToWideChar(text, -1, wide.data(), needed) <= 0) return;
  const size_t keep = std::min(wide.size() - 1, units - 1);
  std::memcpy(field, wide.data(), keep * sizeof(char16_t));
}

}  // namespace portwren
