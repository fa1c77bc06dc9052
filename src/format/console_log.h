// One-line console output for every part of the program: plain, tick-stamped and
// date-stamped lines, each formatted into a private buffer and printed with one call.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "format/error_names.h"
#include "format/format.h"
#include "format/size_text.h"
#include "format/thread_mark.h"

namespace portwren {

// Longer lines are cut silently.
inline constexpr int32_t kLogLineChars = 1000;

void LogPrint(const char* format, ...);
void LogTick(uint32_t period_ms, const char* format, ...);
void LogTickV(uint32_t period_ms, const char* format, va_list args);
void LogTickNow(const char* format, ...);
// Waits for the next 100 ms boundary first, so lines of different threads line up in time order.
void LogTick100(const char* format, ...);
void LogStamp(const char* format, ...);
void LogStampMs(const char* format, ...);
int32_t StampToBuffer(bool with_ms, char* buffer, int32_t capacity, const char* format, ...);

// With ok == 0 only: the caller's text followed by " WinErr=%u(%s)" with the thread's last error.
void WinErrPrint(int ok, const char* format, ...);
void WinErrTick(int ok, const char* format, ...);
void WinErrStamp(int ok, const char* format, ...);
void WinErrStampMs(int ok, const char* format, ...);

// %F render functions. The argument of RenderLocalNow is a with-milliseconds flag (non-null = on);
// that of RenderEpochMs points to an int64_t count of milliseconds since 1970-01-01 UTC.
int32_t RenderLocalNow(void* with_ms, FormatSink* sink);
int32_t RenderEpochMs(void* epoch_ms, FormatSink* sink);

// The clock behind tick-stamped lines; tests replace it to check the 100 ms alignment.
struct LogClock {
  uint32_t (*tick)();
  void (*sleep)(uint32_t milliseconds);
};
// Null restores the system clock.
void SetLogClock(const LogClock* clock);

}  // namespace portwren
