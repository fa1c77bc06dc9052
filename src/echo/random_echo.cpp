#include "echo/random_echo.h"

namespace portwren {

EchoRandom& ThreadEchoRandom() {
  // Per thread, so the pulling thread's read-delay draws never disturb the pushing
  // thread's seeded sequence.
  thread_local EchoRandom random;
  return random;
}

}  // namespace portwren
