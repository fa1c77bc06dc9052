#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/os_core.h"

namespace portwren::os {

namespace {
thread_local Dword t_last_error = 0;
thread_local Dword t_thread_id = 0;
constexpr Dword kErrEnvVarNotFound = 203;

LocalTime FromTm(const struct tm& tm, int milliseconds) {
  LocalTime t;
  t.year = static_cast<uint16_t>(tm.tm_year + 1900);
  t.month = static_cast<uint16_t>(tm.tm_mon + 1);
  t.day_of_week = static_cast<uint16_t>(tm.tm_wday);
  t.day = static_cast<uint16_t>(tm.tm_mday);
  t.hour = static_cast<uint16_t>(tm.tm_hour);
  t.minute = static_cast<uint16_t>(tm.tm_min);
  t.second = static_cast<uint16_t>(tm.tm_sec);
  t.milliseconds = static_cast<uint16_t>(milliseconds);
  return t;
}
}  // namespace

Dword GetLastError() {
  return t_last_error;
}
void SetLastError(Dword code) {
  t_last_error = code;
}

Dword GetTickCount() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  const uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
  return static_cast<Dword>(ms);
}

void Sleep(Dword milliseconds) {
  struct timespec ts;
  ts.tv_sec = milliseconds / 1000;
  ts.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

// Asked for on every request and wait, so kept after the first system call; a child made by
// fork is a new thread and asks again.
Dword GetCurrentThreadId() {
  if (t_thread_id == 0) {
    static const bool forget_in_child = pthread_atfork(nullptr, nullptr, [] { t_thread_id = 0; }) == 0;
    (void)forget_in_child;
    t_thread_id = static_cast<Dword>(syscall(SYS_gettid));
  }
  return t_thread_id;
}

LocalTime GetLocalTime() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  localtime_r(&ts.tv_sec, &tm);
  return FromTm(tm, static_cast<int>(ts.tv_nsec / 1000000L));
}

bool LocalTimeFromEpochMs(int64_t epoch_ms, LocalTime* out) {
  if (epoch_ms < 0 || epoch_ms > kLastEpochMs) return false;  // the range of the Windows build
  const time_t seconds = static_cast<time_t>(epoch_ms / 1000);
  struct tm tm;
  if (localtime_r(&seconds, &tm) == nullptr) return false;
  *out = FromTm(tm, static_cast<int>(epoch_ms % 1000));
  return true;
}

Dword GetEnvironmentVariableA(const char* name, char* buffer, Dword size) {
  const char* value = std::getenv(name);
  if (value == nullptr) {
    SetLastError(kErrEnvVarNotFound);
    return 0;
  }
  const size_t length = std::strlen(value);
  if (length + 1 > size) return static_cast<Dword>(length + 1);
  std::memcpy(buffer, value, length + 1);
  return static_cast<Dword>(length);
}

}  // namespace portwren::os
