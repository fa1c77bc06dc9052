// Everything CreateFileA opens that is not a terminal: regular files, /dev/null, /dev/full,
// pipes. Requests complete in the call, as Windows does for cached file I/O.
#pragma once

#include <memory>

#include "platform/posix/io_object.h"

namespace portwren::os::posix {

// Takes ownership of fd (a blocking descriptor).
std::shared_ptr<IoObject> MakeRegularFile(int fd, bool overlapped, bool can_read, bool can_write);

}  // namespace portwren::os::posix
