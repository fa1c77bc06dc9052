#include <cstddef>
#include <mutex>
#include <unordered_map>

#include "platform/os_file.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

static_assert(sizeof(Overlapped) == sizeof(OVERLAPPED));
static_assert(offsetof(Overlapped, Internal) == offsetof(OVERLAPPED, Internal));
static_assert(offsetof(Overlapped, InternalHigh) == offsetof(OVERLAPPED, InternalHigh));
static_assert(offsetof(Overlapped, Offset) == offsetof(OVERLAPPED, Offset));
static_assert(offsetof(Overlapped, OffsetHigh) == offsetof(OVERLAPPED, OffsetHigh));
static_assert(offsetof(Overlapped, hEvent) == offsetof(OVERLAPPED, hEvent));
static_assert(kStatusPending == STATUS_PENDING);
static_assert(kGenericRead == GENERIC_READ && kGenericWrite == GENERIC_WRITE &&
              kFileShareRead == FILE_SHARE_READ && kFileShareWrite == FILE_SHARE_WRITE &&
              kCreateNew == CREATE_NEW && kCreateAlways == CREATE_ALWAYS && kOpenExisting == OPEN_EXISTING &&
              kOpenAlways == OPEN_ALWAYS && kTruncateExisting == TRUNCATE_EXISTING &&
              kFileFlagOverlapped == FILE_FLAG_OVERLAPPED && kFileAttributeNormal == FILE_ATTRIBUTE_NORMAL &&
              kFileBegin == FILE_BEGIN && kFileCurrent == FILE_CURRENT && kFileEnd == FILE_END &&
              kInvalidSetFilePointer == INVALID_SET_FILE_POINTER);

namespace {

OVERLAPPED* Native(Overlapped* overlapped) {
  return reinterpret_cast<OVERLAPPED*>(overlapped);
}

// The routine of each ReadFileEx/WriteFileEx still running, by its Overlapped. The system
// calls a routine of its own shape back in the issuing thread, which finds ours here. One table
// for the process, not one per thread: MinGW frees a thread's thread_local storage before it
// runs the destructors of what lives there, so a thread_local table is used after being freed
// when a thread that issued requests ends.
struct RoutineTable {
  std::mutex mutex;
  std::unordered_map<Overlapped*, CompletionRoutine> routines;
};

// Never destroyed: a routine may still run while the process ends.
RoutineTable& Routines() {
  static RoutineTable* const table = new RoutineTable;
  return *table;
}

void AddRoutine(Overlapped* overlapped, CompletionRoutine routine) {
  RoutineTable& table = Routines();
  const std::lock_guard<std::mutex> lock(table.mutex);
  table.routines[overlapped] = routine;
}

CompletionRoutine TakeRoutine(Overlapped* overlapped) {
  RoutineTable& table = Routines();
  const std::lock_guard<std::mutex> lock(table.mutex);
  const auto found = table.routines.find(overlapped);
  if (found == table.routines.end()) return nullptr;
  const CompletionRoutine routine = found->second;
  table.routines.erase(found);
  return routine;
}

void WINAPI RunRoutine(DWORD error_code, DWORD bytes_transferred, OVERLAPPED* native) {
  auto* overlapped = reinterpret_cast<Overlapped*>(native);
  if (const CompletionRoutine routine = TakeRoutine(overlapped))
    routine(error_code, bytes_transferred, overlapped);
}

}  // namespace

Handle CreateFileA(const char* path, Dword desired_access, Dword share_mode, Dword creation_disposition,
                   Dword flags_and_attributes) {
  return ::CreateFileA(path, desired_access, share_mode, nullptr, creation_disposition, flags_and_attributes,
                       nullptr);
}

Handle CreateFileW(const WChar* path, Dword desired_access, Dword share_mode, Dword creation_disposition,
                   Dword flags_and_attributes) {
  return ::CreateFileW(reinterpret_cast<const wchar_t*>(path), desired_access, share_mode, nullptr,
                       creation_disposition, flags_and_attributes, nullptr);
}

bool ReadFile(Handle file, void* buffer, Dword bytes_to_read, Dword* done, Overlapped* overlapped) {
  DWORD count = 0;
  const BOOL ok = ::ReadFile(file, buffer, bytes_to_read, &count, Native(overlapped));
  if (done != nullptr) *done = count;
  return ok != FALSE;
}

bool WriteFile(Handle file, const void* buffer, Dword bytes_to_write, Dword* done, Overlapped* overlapped) {
  DWORD count = 0;
  const BOOL ok = ::WriteFile(file, buffer, bytes_to_write, &count, Native(overlapped));
  if (done != nullptr) *done = count;
  return ok != FALSE;
}

bool ReadFileEx(Handle file, void* buffer, Dword bytes_to_read, Overlapped* overlapped,
                CompletionRoutine routine) {
  if (overlapped == nullptr || routine == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  AddRoutine(overlapped, routine);
  if (::ReadFileEx(file, buffer, bytes_to_read, Native(overlapped), RunRoutine)) return true;
  TakeRoutine(overlapped);
  return false;
}

bool WriteFileEx(Handle file, const void* buffer, Dword bytes_to_write, Overlapped* overlapped,
                 CompletionRoutine routine) {
  if (overlapped == nullptr || routine == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  AddRoutine(overlapped, routine);
  if (::WriteFileEx(file, buffer, bytes_to_write, Native(overlapped), RunRoutine)) return true;
  TakeRoutine(overlapped);
  return false;
}

bool GetOverlappedResult(Handle file, Overlapped* overlapped, Dword* done, bool wait) {
  DWORD count = 0;
  const BOOL ok = ::GetOverlappedResult(file, Native(overlapped), &count, wait);
  if (done != nullptr) *done = count;
  return ok != FALSE;
}

bool HasOverlappedIoCompleted(const Overlapped* overlapped) {
  return *reinterpret_cast<const volatile uintptr_t*>(&overlapped->Internal) != STATUS_PENDING;
}

bool CancelIo(Handle file) {
  return ::CancelIo(file) != FALSE;
}

bool CancelIoEx(Handle file, Overlapped* overlapped) {
  return ::CancelIoEx(file, Native(overlapped)) != FALSE;
}

Dword SetFilePointer(Handle file, int32_t distance, int32_t* distance_high, Dword move_method) {
  LONG high = distance_high != nullptr ? *distance_high : 0;
  const DWORD low = ::SetFilePointer(file, distance, distance_high != nullptr ? &high : nullptr, move_method);
  if (distance_high != nullptr) *distance_high = high;
  return low;
}

bool SetEndOfFile(Handle file) {
  return ::SetEndOfFile(file) != FALSE;
}

}  // namespace portwren::os
