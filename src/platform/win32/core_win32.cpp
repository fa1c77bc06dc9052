#include <ctime>

#include "platform/os_core.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

Dword GetLastError() {
  return ::GetLastError();
}
void SetLastError(Dword code) {
  ::SetLastError(code);
}
Dword GetTickCount() {
  return ::GetTickCount();
}
void Sleep(Dword milliseconds) {
  ::Sleep(milliseconds);
}
Dword GetCurrentThreadId() {
  return ::GetCurrentThreadId();
}

static LocalTime FromSystemTime(const SYSTEMTIME& st) {
  LocalTime t;
  t.year = st.wYear;
  t.month = st.wMonth;
  t.day_of_week = st.wDayOfWeek;
  t.day = st.wDay;
  t.hour = st.wHour;
  t.minute = st.wMinute;
  t.second = st.wSecond;
  t.milliseconds = st.wMilliseconds;
  return t;
}

LocalTime GetLocalTime() {
  SYSTEMTIME st;
  ::GetLocalTime(&st);
  return FromSystemTime(st);
}

bool LocalTimeFromEpochMs(int64_t epoch_ms, LocalTime* out) {
  if (epoch_ms < 0 || epoch_ms > kLastEpochMs) return false;  // the ticks below would wrap
  // FILETIME counts 100 ns units since 1601-01-01.
  const uint64_t ticks = static_cast<uint64_t>(epoch_ms) * 10000ULL + 116444736000000000ULL;
  FILETIME utc{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME utc_st, local_st;
  if (!::FileTimeToSystemTime(&utc, &utc_st)) return false;
  if (!::SystemTimeToTzSpecificLocalTime(nullptr, &utc_st, &local_st)) return false;
  *out = FromSystemTime(local_st);
  return true;
}

Dword GetEnvironmentVariableA(const char* name, char* buffer, Dword size) {
  return ::GetEnvironmentVariableA(name, buffer, size);
}

}  // namespace portwren::os
