// Files and devices: opening, synchronous and overlapped reads and writes, completion
// routines, cancellation, file pointer. Ports opened here are used through os_serial.h.
#pragma once

#include <cstdint>

#include "platform/os_handle.h"

namespace portwren::os {

using WChar = char16_t;  // UTF-16 text at the Windows boundaries

inline constexpr Dword kGenericRead = 0x80000000;
inline constexpr Dword kGenericWrite = 0x40000000;

inline constexpr Dword kFileShareRead = 0x1;
inline constexpr Dword kFileShareWrite = 0x2;

inline constexpr Dword kCreateNew = 1;
inline constexpr Dword kCreateAlways = 2;
inline constexpr Dword kOpenExisting = 3;
inline constexpr Dword kOpenAlways = 4;
inline constexpr Dword kTruncateExisting = 5;

inline constexpr Dword kFileAttributeNormal = 0x80;
inline constexpr Dword kFileFlagOverlapped = 0x40000000;

inline constexpr Dword kFileBegin = 0;
inline constexpr Dword kFileCurrent = 1;
inline constexpr Dword kFileEnd = 2;
inline constexpr Dword kInvalidSetFilePointer = 0xFFFFFFFF;

// Request state kept in Overlapped::Internal while a request runs.
inline constexpr uintptr_t kStatusPending = 0x103;

// Same layout as the Windows OVERLAPPED (checked in the Windows backend). Internal holds the
// request's status, InternalHigh its byte count; both are written before hEvent is set.
struct Overlapped {
  uintptr_t Internal = 0;
  uintptr_t InternalHigh = 0;
  Dword Offset = 0;
  Dword OffsetHigh = 0;
  Handle hEvent = nullptr;
};

// Run by ReadFileEx/WriteFileEx in the issuing thread's alertable wait. error_code is 0 for
// success (a timeout too: short count) or the failure, e.g. kErrOperationAborted.
using CompletionRoutine = void (*)(Dword error_code, Dword bytes_transferred, Overlapped* overlapped);

// kInvalidHandle on failure. Ports are always exclusive (share mode ignored for them);
// kFileFlagOverlapped makes every read, write and comm-event wait need an Overlapped.
Handle CreateFileA(const char* path, Dword desired_access, Dword share_mode, Dword creation_disposition,
                   Dword flags_and_attributes);
Handle CreateFileW(const WChar* path, Dword desired_access, Dword share_mode, Dword creation_disposition,
                   Dword flags_and_attributes);

// true: done in the call (count in *done and in the Overlapped, event set); false with
// kErrIoPending: running; false otherwise: failed. done may be null for overlapped calls.
bool ReadFile(Handle file, void* buffer, Dword bytes_to_read, Dword* done, Overlapped* overlapped);
bool WriteFile(Handle file, const void* buffer, Dword bytes_to_write, Dword* done, Overlapped* overlapped);

// Overlapped handles only. true: queued; the routine runs later, never inside these calls.
// hEvent is not used and stays the caller's.
bool ReadFileEx(Handle file, void* buffer, Dword bytes_to_read, Overlapped* overlapped,
                CompletionRoutine routine);
bool WriteFileEx(Handle file, const void* buffer, Dword bytes_to_write, Overlapped* overlapped,
                 CompletionRoutine routine);

// While the request runs: false + kErrIoIncomplete, or with wait, waits for it. Then
// *done = its byte count (also on failure) and the result is its outcome.
bool GetOverlappedResult(Handle file, Overlapped* overlapped, Dword* done, bool wait);
bool HasOverlappedIoCompleted(const Overlapped* overlapped);

// Cancels the calling thread's requests on the handle (they fail with kErrOperationAborted).
bool CancelIo(Handle file);
// Any thread's: one request (false + kErrNotFound if it is not running) or all (nullptr).
bool CancelIoEx(Handle file, Overlapped* overlapped);

// Returns the new position's low part, kInvalidSetFilePointer + last error on failure.
Dword SetFilePointer(Handle file, int32_t distance, int32_t* distance_high, Dword move_method);
bool SetEndOfFile(Handle file);

}  // namespace portwren::os
