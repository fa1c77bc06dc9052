// Closed standard streams get /dev/null before the program opens anything.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/os_console.h"

namespace portwren::os {

bool OccupyClosedStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
    // Not close-on-exec: a standard stream is meant to be handed on.
    const int null_fd = open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
    if (null_fd < 0) {
      static const char kMessage[] = "portwren: no /dev/null for a closed standard stream\n";
      // Reaches no one when standard error is the closed one, and harms nothing then.
      [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
      return false;
    }
    // The lowest free descriptor is this one already, unless another thread raced us.
    if (null_fd != fd) {
      const bool moved = dup2(null_fd, fd) == fd;
      close(null_fd);
      if (!moved) return false;
    }
  }
  return true;
}

}  // namespace portwren::os
