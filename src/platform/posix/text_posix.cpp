#include <cstring>
#include <string>

#include "platform/os_text.h"
#include "platform/posix/text_utf.h"

namespace portwren::os {

namespace {

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
  for (size_t i = 0; i < size;) posix::AppendUtf16(posix::DecodeUtf8(bytes, size, &i), &converted);
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
  for (size_t i = 0; i < size;) posix::AppendUtf8(posix::DecodeUtf16(text, size, &i), &converted);
  return Deliver(converted, out, capacity);
}

}  // namespace portwren::os
