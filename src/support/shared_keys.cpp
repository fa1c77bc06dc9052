#include "support/shared_keys.h"

#include <mutex>

#include "platform/os_console.h"

namespace portwren {

namespace {

// Guards the look-then-read of PollKey against a worker taking the keyboard in between.
std::mutex g_keys_mutex;
int g_holders = 0;  // under g_keys_mutex

bool IsPrefix(int key) {
  return key == os::kKeyExtended || key == os::kKeyFunction;
}

}  // namespace

KeyboardHold::KeyboardHold() {
  std::lock_guard<std::mutex> lock(g_keys_mutex);
  ++g_holders;
}

KeyboardHold::~KeyboardHold() {
  std::lock_guard<std::mutex> lock(g_keys_mutex);
  --g_holders;
}

int PollKey() {
  std::lock_guard<std::mutex> lock(g_keys_mutex);
  if (g_holders > 0 || !os::KeyWaiting()) return kNoKeyWaiting;
  const int key = os::GetKey();
  if (IsPrefix(key) && os::KeyWaiting()) os::GetKey();
  return key;
}

bool WaitForHeldKey(const KeyboardHold&, int wanted) {
  for (;;) {
    const int key = os::GetKey();
    if (key == wanted) return true;
    if (key == os::kKeyEsc && os::KeyInputEnded()) return false;
    if (IsPrefix(key) && os::KeyWaiting()) os::GetKey();
  }
}

}  // namespace portwren
