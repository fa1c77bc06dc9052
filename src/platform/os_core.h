// The platform seam's basics: Windows error numbers, ticks, local time, thread ids.
// Both backends report errors as Windows error numbers, so every message reads the same.
#pragma once

#include <cstdint>

namespace portwren::os {

using Dword = uint32_t;

// Windows error numbers the program meets (named after their Windows meaning).
inline constexpr Dword kErrSuccess = 0;
inline constexpr Dword kErrInvalidFunction = 1;
inline constexpr Dword kErrFileNotFound = 2;
inline constexpr Dword kErrPathNotFound = 3;
inline constexpr Dword kErrTooManyOpenFiles = 4;
inline constexpr Dword kErrAccessDenied = 5;
inline constexpr Dword kErrInvalidHandle = 6;
inline constexpr Dword kErrNotEnoughMemory = 8;
inline constexpr Dword kErrInvalidData = 13;
inline constexpr Dword kErrOutOfMemory = 14;
inline constexpr Dword kErrWriteProtect = 19;
inline constexpr Dword kErrNotReady = 21;
inline constexpr Dword kErrBadCommand = 22;
inline constexpr Dword kErrGenFailure = 31;
inline constexpr Dword kErrSharingViolation = 32;
inline constexpr Dword kErrHandleEof = 38;
inline constexpr Dword kErrNotSupported = 50;
inline constexpr Dword kErrDevNotExist = 55;
inline constexpr Dword kErrFileExists = 80;
inline constexpr Dword kErrInvalidParameter = 87;
inline constexpr Dword kErrBrokenPipe = 109;
inline constexpr Dword kErrDiskFull = 112;
inline constexpr Dword kErrSemTimeout = 121;
inline constexpr Dword kErrInsufficientBuffer = 122;
inline constexpr Dword kErrInvalidName = 123;
inline constexpr Dword kErrAlreadyExists = 183;
inline constexpr Dword kErrFilenameExcedRange = 206;
inline constexpr Dword kErrMoreData = 234;
inline constexpr Dword kErrNoMoreItems = 259;
inline constexpr Dword kErrNotOwner = 288;
inline constexpr Dword kErrOperationAborted = 995;
inline constexpr Dword kErrIoIncomplete = 996;
inline constexpr Dword kErrIoPending = 997;
inline constexpr Dword kErrNoAccess = 998;
inline constexpr Dword kErrDeviceNotConnected = 1167;
inline constexpr Dword kErrNotFound = 1168;
inline constexpr Dword kErrTimeout = 1460;

// The calling thread's last error, as GetLastError/SetLastError.
Dword GetLastError();
void SetLastError(Dword code);

// Milliseconds since system start, 32-bit, wrapping like GetTickCount.
Dword GetTickCount();

void Sleep(Dword milliseconds);

Dword GetCurrentThreadId();

struct LocalTime {
  uint16_t year = 0;
  uint16_t month = 0;  // 1..12
  uint16_t day_of_week = 0;
  uint16_t day = 0;
  uint16_t hour = 0;
  uint16_t minute = 0;
  uint16_t second = 0;
  uint16_t milliseconds = 0;
};

LocalTime GetLocalTime();

// The last millisecond a Windows FILETIME holds (30828-09-14 02:48:05.477 UTC): no later time
// converts, on either platform.
inline constexpr int64_t kLastEpochMs = (INT64_MAX - 116444736000000000) / 10000;

// Local time of a count of milliseconds since 1970-01-01 UTC; false when it cannot be converted
// (before 1970 or after kLastEpochMs).
bool LocalTimeFromEpochMs(int64_t epoch_ms, LocalTime* out);

// As GetEnvironmentVariableA: the length copied (without NUL), the size needed when the
// buffer is too small, 0 when the variable does not exist (last error 203).
Dword GetEnvironmentVariableA(const char* name, char* buffer, Dword size);

}  // namespace portwren::os
