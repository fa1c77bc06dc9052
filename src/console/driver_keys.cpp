#include "console/driver_keys.h"

#include "driver/key_requests.h"

namespace portwren {

bool RunDriverKey(os::Handle port, int key) {
  switch (key) {
    case '<':
      EnableOneTimeTemporalLifemode(port);
      return true;
    case '>':
      DisableOneTimeTemporalLifemode(port);
      return true;
    case '|':
      QueryOneTimeTemporalLifemode(port);
      return true;
    case '!':
      VbusReadTest();
      return true;
    case '@':
      VbusWriteTest();
      return true;
    default:
      return false;
  }
}

}  // namespace portwren
