#include "platform/posix/errno_map.h"

#include <cerrno>

namespace portwren::os::posix {

Dword WinErrorFromErrno(int error_number) {
  switch (error_number) {
    case 0:
      return kErrSuccess;
    case ENOENT:
      return kErrFileNotFound;
    case ENOTDIR:
      return kErrPathNotFound;
    case EMFILE:
    case ENFILE:
      return kErrTooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EBUSY:
    case EWOULDBLOCK:  // a lock held elsewhere, the one place where it reaches us
    case EISDIR:
      return kErrAccessDenied;
    case EBADF:
      return kErrInvalidHandle;
    case ENOMEM:
      return kErrNotEnoughMemory;
    case EROFS:
      return kErrWriteProtect;
    case EIO:
      return kErrGenFailure;
    case ETXTBSY:
      return kErrSharingViolation;
    case ENOTTY:
    case EOPNOTSUPP:
    case ENOSYS:
      return kErrNotSupported;
    case EEXIST:
      return kErrFileExists;
    case EINVAL:
    case ERANGE:
      return kErrInvalidParameter;
    case EPIPE:
      return kErrBrokenPipe;
    case ENOSPC:
    case EFBIG:
    case EDQUOT:
      return kErrDiskFull;
    case ENAMETOOLONG:
      return kErrFilenameExcedRange;
    case ELOOP:
      return kErrInvalidName;
    case ENXIO:
    case ENODEV:
      return kErrDeviceNotConnected;  // the device went away
    default:
      return kErrGenFailure;
  }
}

bool FailWithErrno(int error_number) {
  return Fail(WinErrorFromErrno(error_number));
}

}  // namespace portwren::os::posix
