// Where the key loop's next key comes from: the --first-key text, the repeating final key,
// or the keyboard.
#pragma once

#include <cstdint>

namespace portwren {

inline constexpr int kKeyNone = 0;  // does nothing but bring the prompt

class KeySource {
 public:
  // keys: the first keys, possibly ending in the repeat marker; read by index only.
  explicit KeySource(const char* keys) : keys_(keys) {}

  // The next key to act on, or -1 when this pass has none (repeating just stopped, or a
  // stray key was dropped); prints the "Got", "First-key" and "Repeat-key" lines.
  int Next();

 private:
  int TypedKey();

  const char* keys_;
  int32_t auto_index_ = 0;
  int32_t auto_count_ = 0;
  int last_key_ = kKeyNone;
};

}  // namespace portwren
