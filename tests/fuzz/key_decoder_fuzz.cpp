// The terminal key decoder on byte sequences; 0xFF in the input stands for the wait running out.
// Every key it gives is a byte or a Windows extended-key prefix, and an expired wait leaves
// nothing pending.
#include <cstdlib>

#include "platform/console_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  portwren::os::EscapeDecoder decoder;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0xFF) {
      decoder.Expire();
      if (decoder.Pending()) std::abort();
    } else {
      decoder.Push(data[i]);
    }
    while (decoder.HasKey()) {
      const int key = decoder.PopKey();
      if (key < 0 || key > 0xFF) std::abort();
    }
    if (decoder.PopKey() != -1) std::abort();
  }
  return 0;
}
