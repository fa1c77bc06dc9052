// The program's own printf-like engine: every log line, record, report and dump goes through it.
#pragma once

#include <cstdarg>
#include <cstdint>

namespace portwren {

struct FormatTraceRecord;  // what the trace knows of the directive behind a piece (null when not tracing)

// The output of one engine call: a fixed buffer, a streaming piece writer, or both.
template <class Ch>
struct BasicFormatSink {
  using PieceWriter = void (*)(void* context, const Ch* text, int32_t length, const FormatTraceRecord* trace);
  PieceWriter writer = nullptr;
  void* context = nullptr;
  Ch* buffer = nullptr;   // next free character, or null
  int32_t room = 0;       // characters the buffer can still take, terminator included
  uint32_t level = 0;     // nesting level: 0 at top, parent + 1 in a child sink
  int32_t base_pos = 0;   // characters produced by the enclosing calls
  bool quiet = false;     // nothing formatted into this sink is traced
};

using FormatSink = BasicFormatSink<char>;
using WideFormatSink = BasicFormatSink<char16_t>;

int32_t FormatCore(FormatSink* sink, const char* format, va_list args);
int32_t FormatCore(WideFormatSink* sink, const char16_t* format, va_list args);

int32_t FormatToBuffer(char* buffer, int32_t capacity, const char* format, ...);
int32_t FormatToBufferV(char* buffer, int32_t capacity, const char* format, va_list args);
int32_t FormatQuiet(char* buffer, int32_t capacity, const char* format, ...);
int32_t FormatAlloc(char** out, const char* format, ...);
int32_t FormatAllocV(char** out, const char* format, va_list args);
int32_t FormatAllocMax(char** out, int32_t maximum, const char* format, ...);
int32_t FormatAllocMaxV(char** out, int32_t maximum, const char* format, va_list args);
int32_t FormatAdvance(char** cursor, int32_t* room, const char* format, ...);
int32_t FormatAppend(char* buffer, int32_t capacity, const char* format, ...);
int32_t FormatPrint(const char* format, ...);

// Trace writer: receives each finished trace line.
using FormatTraceWriter = void (*)(void* context, const char* text);
void SetFormatTrace(FormatTraceWriter writer, void* context);

// 1: CR LF, 2: CR, anything else: LF (the default).
void SetFormatLineEnd(int mode);

}  // namespace portwren
