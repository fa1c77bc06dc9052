// errno -> Windows error number, so that both backends report the same numbers.
#pragma once

#include "platform/os_core.h"

namespace portwren::os::posix {

Dword WinErrorFromErrno(int error_number);

// Sets the calling thread's last error from errno's value and returns false, for the common
// "report and fail" path: `return FailWithErrno(errno);`.
bool FailWithErrno(int error_number);

inline bool Fail(Dword win_error) {
  SetLastError(win_error);
  return false;
}

}  // namespace portwren::os::posix
