// CreateFileA and the file calls: the handle decides (regular file or serial device), the
// Overlapped decides where completion goes.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/os_file.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/regular_file.h"
#include "platform/posix/request_target.h"
#include "platform/posix/serial_device.h"
#include "platform/posix/text_utf.h"

namespace portwren::os::posix {

namespace {

bool EqualsIgnoringCase(const char* text, const char* lower) {
  for (; *lower != '\0'; ++text, ++lower) {
    if (*text == '\0' || (*text | 0x20) != *lower) return false;
  }
  return true;
}

// "\\.\COM12", "\\?\...", bare "COM3", "\\.\QDX_Datapipe": Windows device names, which name
// nothing here (not even a file of that name in the working directory).
bool IsWindowsDeviceName(const char* path) {
  if (path[0] == '\\' && path[1] == '\\' && (path[2] == '.' || path[2] == '?') && path[3] == '\\')
    return true;
  if (!EqualsIgnoringCase(path, "com")) return false;
  const char* digits = path + 3;
  if (*digits == '\0') return false;
  for (; *digits != '\0'; ++digits) {
    if (*digits < '0' || *digits > '9') return false;
  }
  return true;
}

// Windows tells a missing file (2) from a missing folder on the way to it (3).
Dword MissingPathError(const char* path) {
  const std::string text(path);
  const size_t slash = text.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return kErrFileNotFound;
  struct stat info;
  return stat(text.substr(0, slash).c_str(), &info) == 0 ? kErrFileNotFound : kErrPathNotFound;
}

Dword OpenError(int error_number, const char* path) {
  return error_number == ENOENT ? MissingPathError(path) : WinErrorFromErrno(error_number);
}

Handle Failed(Dword error) {
  SetLastError(error);
  return kInvalidHandle;
}

Handle Install(std::shared_ptr<KernelObject> object, Dword last_error) {
  Handle handle = InsertObject(std::move(object));
  if (handle == nullptr) return Failed(kErrNotEnoughMemory);
  SetLastError(last_error);
  return handle;
}

template <typename Issue>
bool Dispatch(Handle file, Dword* done, Overlapped* overlapped, Issue issue) {
  if (done != nullptr) *done = 0;
  auto object = Lookup<IoObject>(file);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  if (!object->overlapped())
    return RunSynchronously(
        object.get(), overlapped, done,
        [&](const CompletionTarget& target, Dword* count) { return issue(*object, target, count); });
  if (overlapped == nullptr) return Fail(kErrInvalidParameter);
  CompletionTarget target;
  if (!MakeTarget(object.get(), overlapped, &target)) return false;
  return issue(*object, target, done);
}

template <typename Issue>
bool DispatchEx(Handle file, Overlapped* overlapped, CompletionRoutine routine, Issue issue) {
  auto object = Lookup<IoObject>(file);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  if (!object->overlapped() || overlapped == nullptr || routine == nullptr) return Fail(kErrInvalidParameter);
  CompletionTarget target;
  target.overlapped = overlapped;
  target.routine = routine;
  target.apc = CurrentApcQueue();
  if (issue(*object, target)) return true;
  if (GetLastError() != kErrIoPending) return false;
  SetLastError(kErrSuccess);
  return true;
}

}  // namespace

}  // namespace portwren::os::posix

namespace portwren::os {

using namespace posix;

Handle CreateFileA(const char* path, Dword desired_access, Dword /*share_mode*/, Dword creation_disposition,
                   Dword flags_and_attributes) {
  if (path == nullptr) return Failed(kErrInvalidParameter);
  if (path[0] == '\0') return Failed(kErrPathNotFound);
  if (IsWindowsDeviceName(path)) return Failed(kErrFileNotFound);

  const bool can_read = (desired_access & kGenericRead) != 0;
  const bool can_write = (desired_access & kGenericWrite) != 0;
  int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  flags |= can_write ? (can_read ? O_RDWR : O_WRONLY) : O_RDONLY;
  switch (creation_disposition) {
    case kCreateNew:
      flags |= O_CREAT | O_EXCL;
      break;
    case kCreateAlways:
    case kOpenAlways:
      flags |= O_CREAT;
      break;
    case kOpenExisting:
      break;
    case kTruncateExisting:
      if (!can_write) return Failed(kErrInvalidParameter);
      flags |= O_TRUNC;
      break;
    default:
      return Failed(kErrInvalidParameter);
  }

  // CREATE_ALWAYS and OPEN_ALWAYS report 183 when the file was already there.
  bool existed = false;
  int fd;
  if ((flags & O_CREAT) != 0 && (flags & O_EXCL) == 0) {
    fd = open(path, flags | O_EXCL, 0666);
    if (fd < 0 && errno == EEXIST) {
      existed = true;
      fd = open(path, flags & ~O_CREAT, 0666);
    }
  } else {
    fd = open(path, flags, 0666);
  }
  if (fd < 0) return Failed(OpenError(errno, path));

  struct stat info;
  if (fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    close(fd);
    return Failed(kErrAccessDenied);
  }
  const bool overlapped = (flags_and_attributes & kFileFlagOverlapped) != 0;

  if (isatty(fd)) {
    // A port is exclusive whatever the share mode, against every process (TIOCEXCL is not:
    // it does not stop root).
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      close(fd);
      return Failed(error == EWOULDBLOCK ? kErrAccessDenied : WinErrorFromErrno(error));
    }
    Dword error = kErrSuccess;
    auto device = SerialDevice::Open(fd, overlapped, can_read, can_write, &error);
    if (device == nullptr) return Failed(error);
    return Install(std::move(device), kErrSuccess);
  }

  // Everything else is used with blocking calls.
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (creation_disposition == kCreateAlways && existed && ftruncate(fd, 0) != 0) {
    const int error = errno;
    close(fd);
    return Failed(WinErrorFromErrno(error));
  }
  return Install(MakeRegularFile(fd, overlapped, can_read, can_write),
                 existed ? kErrAlreadyExists : kErrSuccess);
}

Handle CreateFileW(const WChar* path, Dword desired_access, Dword share_mode, Dword creation_disposition,
                   Dword flags_and_attributes) {
  if (path == nullptr) return Failed(kErrInvalidParameter);
  std::string narrow;
  if (!Utf16ToUtf8(path, &narrow)) return Failed(kErrInvalidName);
  return CreateFileA(narrow.c_str(), desired_access, share_mode, creation_disposition, flags_and_attributes);
}

bool ReadFile(Handle file, void* buffer, Dword bytes_to_read, Dword* done, Overlapped* overlapped) {
  if (buffer == nullptr && bytes_to_read > 0) return Fail(kErrInvalidParameter);
  return Dispatch(file, done, overlapped,
                  [&](IoObject& object, const CompletionTarget& target, Dword* count) {
                    return object.Read(buffer, bytes_to_read, count, target);
                  });
}

bool WriteFile(Handle file, const void* buffer, Dword bytes_to_write, Dword* done, Overlapped* overlapped) {
  if (buffer == nullptr && bytes_to_write > 0) return Fail(kErrInvalidParameter);
  return Dispatch(file, done, overlapped,
                  [&](IoObject& object, const CompletionTarget& target, Dword* count) {
                    return object.Write(buffer, bytes_to_write, count, target);
                  });
}

bool ReadFileEx(Handle file, void* buffer, Dword bytes_to_read, Overlapped* overlapped,
                CompletionRoutine routine) {
  if (buffer == nullptr && bytes_to_read > 0) return Fail(kErrInvalidParameter);
  return DispatchEx(file, overlapped, routine, [&](IoObject& object, const CompletionTarget& target) {
    return object.Read(buffer, bytes_to_read, nullptr, target);
  });
}

bool WriteFileEx(Handle file, const void* buffer, Dword bytes_to_write, Overlapped* overlapped,
                 CompletionRoutine routine) {
  if (buffer == nullptr && bytes_to_write > 0) return Fail(kErrInvalidParameter);
  return DispatchEx(file, overlapped, routine, [&](IoObject& object, const CompletionTarget& target) {
    return object.Write(buffer, bytes_to_write, nullptr, target);
  });
}

bool GetOverlappedResult(Handle file, Overlapped* overlapped, Dword* done, bool wait) {
  if (overlapped == nullptr) return Fail(kErrInvalidParameter);
  if (LoadStatus(overlapped) == kStatusPending) {
    if (!wait) return Fail(kErrIoIncomplete);
    // Wait as Windows does, on the event or else the handle; then, should that have been
    // signalled by something else, on the request itself.
    const uintptr_t event_value = reinterpret_cast<uintptr_t>(overlapped->hEvent) & ~uintptr_t{1};
    auto waitable = Lookup<Waitable>(event_value != 0 ? reinterpret_cast<Handle>(event_value) : file);
    if (waitable != nullptr) WaitObjects({waitable}, false, kInfinite, false);
    WaitUntil([&] { return LoadStatus(overlapped) != kStatusPending; });
  }
  const uintptr_t status = LoadStatus(overlapped);
  if (done != nullptr) *done = static_cast<Dword>(overlapped->InternalHigh);
  if (!StatusIsSuccess(status)) return Fail(ErrorFromStatus(status));
  return true;
}

bool HasOverlappedIoCompleted(const Overlapped* overlapped) {
  return LoadStatus(overlapped) != kStatusPending;
}

bool CancelIo(Handle file) {
  auto object = Lookup<IoObject>(file);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  return object->CancelThreadRequests(GetCurrentThreadId());
}

bool CancelIoEx(Handle file, Overlapped* overlapped) {
  auto object = Lookup<IoObject>(file);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  return object->CancelRequest(overlapped);
}

Dword SetFilePointer(Handle file, int32_t distance, int32_t* distance_high, Dword move_method) {
  auto object = Lookup<IoObject>(file);
  if (object == nullptr) {
    SetLastError(kErrInvalidHandle);
    return kInvalidSetFilePointer;
  }
  const int64_t move =
      distance_high != nullptr
          ? static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(*distance_high)) << 32) |
                                 static_cast<uint32_t>(distance))
          : distance;
  int64_t position = 0;
  if (!object->Seek(move, move_method, &position)) return kInvalidSetFilePointer;
  if (distance_high != nullptr) *distance_high = static_cast<int32_t>(position >> 32);
  // A low part that looks like the failure value is told apart by a last error of 0.
  SetLastError(kErrSuccess);
  return static_cast<Dword>(position);
}

bool SetEndOfFile(Handle file) {
  auto object = Lookup<IoObject>(file);
  if (object == nullptr) return Fail(kErrInvalidHandle);
  return object->Truncate();
}

}  // namespace portwren::os
