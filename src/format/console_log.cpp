#include "format/console_log.h"

#include <atomic>
#include <cstdio>

#include "platform/os_core.h"

namespace portwren {

namespace {

uint32_t SystemTick() {
  return os::GetTickCount();
}
void SystemSleep(uint32_t ms) {
  os::Sleep(ms);
}

constexpr LogClock kSystemClock{&SystemTick, &SystemSleep};
std::atomic<const LogClock*> g_clock{&kSystemClock};

std::atomic<bool> g_start_tick_taken{false};
std::atomic<uint32_t> g_start_tick{0};

void TakeStartTick() {
  bool expected = false;
  if (g_start_tick_taken.compare_exchange_strong(expected, true)) {
    g_start_tick.store(g_clock.load()->tick());
  }
}

// One printf call per line keeps lines of different threads whole.
void PrintLine(const char* line) {
  std::printf("%s\n", line);
}

void StampV(bool with_ms, const char* format, va_list args) {
  TakeStartTick();
  va_list copy;
  va_copy(copy, args);
  NestedFormat nested;
  FormatCallback stamp;
  char line[kLogLineChars];
  FormatToBuffer(line, kLogLineChars, "%c[%F] %w", ThreadMark(),
                 MakeFormatCallback(&stamp, &RenderLocalNow, with_ms ? &stamp : nullptr),
                 MakeNestedFormat(&nested, format, &copy));
  va_end(copy);
  PrintLine(line);
}

enum class LineForm { kPlain, kTick, kStamp, kStampMs };

void WinErrV(LineForm form, uint32_t code, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  NestedFormat nested;
  MakeNestedFormat(&nested, format, &copy);
  switch (form) {
    case LineForm::kPlain:
      LogPrint("%w WinErr=%u(%s)", &nested, code, WinErrName(code));
      break;
    case LineForm::kTick:
      LogTickNow("%w WinErr=%u(%s)", &nested, code, WinErrName(code));
      break;
    case LineForm::kStamp:
      LogStamp("%w WinErr=%u(%s)", &nested, code, WinErrName(code));
      break;
    case LineForm::kStampMs:
      LogStampMs("%w WinErr=%u(%s)", &nested, code, WinErrName(code));
      break;
  }
  va_end(copy);
}

}  // namespace

void SetLogClock(const LogClock* clock) {
  g_clock.store(clock != nullptr ? clock : &kSystemClock);
}

void LogPrint(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char line[kLogLineChars];
  FormatToBufferV(line, kLogLineChars, format, args);
  va_end(args);
  PrintLine(line);
}

void LogTickV(uint32_t period_ms, const char* format, va_list args) {
  const LogClock* clock = g_clock.load();
  uint32_t tick = clock->tick();
  if (period_ms > 0) {
    const uint64_t target = (static_cast<uint64_t>(tick) + period_ms - 1) / period_ms * period_ms;
    while (tick < target) {
      clock->sleep(1);
      const uint32_t next = clock->tick();
      if (next < tick) break;  // the 32-bit tick wrapped: no boundary left to wait for
      tick = next;
    }
  }
  va_list copy;
  va_copy(copy, args);
  NestedFormat nested;
  char line[kLogLineChars];
  FormatToBuffer(line, kLogLineChars, "%c[%u.%03u] %w", ThreadMark(), tick / 1000, tick % 1000,
                 MakeNestedFormat(&nested, format, &copy));
  va_end(copy);
  PrintLine(line);
}

void LogTick(uint32_t period_ms, const char* format, ...) {
  va_list args;
  va_start(args, format);
  LogTickV(period_ms, format, args);
  va_end(args);
}

void LogTickNow(const char* format, ...) {
  va_list args;
  va_start(args, format);
  LogTickV(0, format, args);
  va_end(args);
}

void LogTick100(const char* format, ...) {
  va_list args;
  va_start(args, format);
  LogTickV(100, format, args);
  va_end(args);
}

void LogStamp(const char* format, ...) {
  va_list args;
  va_start(args, format);
  StampV(false, format, args);
  va_end(args);
}

void LogStampMs(const char* format, ...) {
  va_list args;
  va_start(args, format);
  StampV(true, format, args);
  va_end(args);
}

int32_t StampToBuffer(bool with_ms, char* buffer, int32_t capacity, const char* format, ...) {
  va_list args;
  va_start(args, format);
  NestedFormat nested;
  FormatCallback stamp;
  const int32_t count = FormatToBuffer(
      buffer, capacity, "[%F] %w", MakeFormatCallback(&stamp, &RenderLocalNow, with_ms ? &stamp : nullptr),
      MakeNestedFormat(&nested, format, &args));
  va_end(args);
  return count;
}

// The last error is read before anything else runs, so formatting cannot change it.
#define PW_WINERR_BODY(form)                \
  if (ok != 0) return;                      \
  const uint32_t code = os::GetLastError(); \
  va_list args;                             \
  va_start(args, format);                   \
  WinErrV(form, code, format, args);        \
  va_end(args)

void WinErrPrint(int ok, const char* format, ...) {
  PW_WINERR_BODY(LineForm::kPlain);
}
void WinErrTick(int ok, const char* format, ...) {
  PW_WINERR_BODY(LineForm::kTick);
}
void WinErrStamp(int ok, const char* format, ...) {
  PW_WINERR_BODY(LineForm::kStamp);
}
void WinErrStampMs(int ok, const char* format, ...) {
  PW_WINERR_BODY(LineForm::kStampMs);
}

#undef PW_WINERR_BODY

namespace {

int32_t RenderTime(FormatSink* sink, const os::LocalTime& t, const char* ms_text) {
  return FormatToSink(sink, "%04d-%02d-%02d_%02d:%02d:%02d%s", t.year, t.month, t.day, t.hour, t.minute,
                      t.second, ms_text);
}
}  // namespace

int32_t RenderLocalNow(void* with_ms, FormatSink* sink) {
  const os::LocalTime t = os::GetLocalTime();
  char ms_text[8] = "";
  if (with_ms != nullptr) FormatQuiet(ms_text, sizeof ms_text, ".%03d", t.milliseconds);
  return RenderTime(sink, t, ms_text);
}

int32_t RenderEpochMs(void* epoch_ms, FormatSink* sink) {
  const int64_t ms = *static_cast<const int64_t*>(epoch_ms);
  if (ms == 0) return FormatToSink(sink, "(none)");
  os::LocalTime t;
  if (!os::LocalTimeFromEpochMs(ms, &t)) return 0;
  return FormatToSink(sink, "%04d-%02d-%02d_%02d:%02d:%02d.%03d", t.year, t.month, t.day, t.hour, t.minute,
                      t.second, t.milliseconds);
}

}  // namespace portwren
