#include "platform/os_text.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

int MultiByteToWideChar(const char* text, int length, WChar* out, int capacity) {
  return ::MultiByteToWideChar(CP_ACP, 0, text, length, reinterpret_cast<wchar_t*>(out), capacity);
}

int WideCharToMultiByte(const WChar* text, int length, char* out, int capacity) {
  return ::WideCharToMultiByte(CP_ACP, 0, reinterpret_cast<const wchar_t*>(text), length, out, capacity,
                               nullptr, nullptr);
}

}  // namespace portwren::os
