#include "console/key_source.h"

#include <cstdio>

#include "platform/os_console.h"
#include "support/run_settings.h"

namespace portwren {

int KeySource::TypedKey() {
  const int key = os::GetKey();
  if (key == os::kKeyExtended) {
    // Arrows and the other grey keys: drop their code and do nothing.
    if (os::KeyWaiting()) os::GetKey();
    return kKeyNone;
  }
  if (key != os::kKeyEnter) std::printf("Got '%c'.\n", key);
  return key;
}

int KeySource::Next() {
  const unsigned char preset = static_cast<unsigned char>(keys_[auto_index_]);
  int key;
  if (preset == 0) {
    key = TypedKey();
  } else if (preset == static_cast<unsigned char>(kRepeatKeyMarker)) {
    if (os::KeyWaiting()) {
      const int typed = os::GetKey();
      if (typed == os::kKeyEnter || typed == os::kKeyEsc) {
        ++auto_index_;
        std::printf("(Repeat-key stops.)\n");
      }
      return -1;
    }
    key = last_key_;
    std::printf("Repeat-key auto input(#%d): '%c'\n", auto_count_, key);
    ++auto_count_;
  } else {
    key = preset;
    std::printf("First-key auto input(#%d): '%c'\n", auto_count_, key);
    ++auto_index_;
    ++auto_count_;
  }
  last_key_ = key;
  return key;
}

}  // namespace portwren
