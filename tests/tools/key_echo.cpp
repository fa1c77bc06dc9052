// Prints the code of every key the console layer reads, one line each, until 'q'.
// 'l' reads a line instead and prints it. Driven by tests/scripts/console_keys_test.sh.
#include <cstdio>

#include "platform/os_console.h"

int main() {
  using namespace portwren::os;
  std::printf("key_echo ready\n");
  // A bound, so a terminal that went away (ESC for ever) cannot keep it running.
  for (int count = 0; count < 1000; ++count) {
    const int key = GetKey();
    if (key == kKeyExtended || key == kKeyFunction) {
      // Both codes of an extended key must be there at once, as _kbhit tells on Windows.
      if (KeyWaiting()) {
        const int code = GetKey();
        std::printf("key %d %d\n", key, code);
      } else {
        std::printf("key %d (no code waiting)\n", key);
      }
    } else if (key == 'l') {
      char line[100];
      if (ReadLine(line, sizeof line)) {
        std::printf("line <%s>\n", line);
      } else {
        std::printf("line end\n");
      }
    } else {
      std::printf("key %d\n", key);
      if (key == 'q') return 0;
    }
  }
  return 1;
}
