// The program's own printf-like engine: every log line, record, report and dump goes through it.
//
// Beyond the familiar directives it knows grouped integers (%D %U, with %T %t %_), nesting
// (%w: a format with its own arguments, %F: a render callback), repetition (%n) and hex dumps
// (%k %K %R %r %v %m %M). The same engine is built for char and for char16_t.
#pragma once

#include <cstdarg>
#include <cstdint>

namespace portwren {

// What the trace knows of the directive behind a piece. Handed to piece writers only while a
// trace writer is installed and the sink is not quiet; null otherwise.
template <class Ch>
struct BasicFormatTraceRecord {
  const Ch* directive = nullptr;  // the directive's text (or the literal run) in the format
  int32_t directive_length = 0;
  int32_t format_offset = 0;  // where it starts in the format
  bool width_given = false;
  int32_t width = 0;
  bool precision_given = false;
  int32_t precision = 0;
  uint32_t level = 1;    // 1 for a top-level format, 2 for one nested in it, ...
  int32_t base_pos = 0;  // characters produced by the enclosing formats
  int32_t count = 0;     // characters produced by this format before the piece
};

// The output of one engine call: a fixed buffer, a streaming piece writer, or both.
template <class Ch>
struct BasicFormatSink {
  using PieceWriter = void (*)(void* context, const Ch* text, int32_t length,
                               const BasicFormatTraceRecord<Ch>* trace);
  PieceWriter writer = nullptr;
  void* context = nullptr;
  Ch* buffer = nullptr;  // next free character, or null
  int32_t room = 0;      // characters the buffer can still take, terminator included
  uint32_t level = 0;    // nesting level: 0 at top, parent + 1 in a child sink
  int32_t base_pos = 0;  // characters produced by the enclosing calls
  bool quiet = false;    // nothing formatted into this sink is traced
};

using FormatTraceRecord = BasicFormatTraceRecord<char>;
using WideFormatTraceRecord = BasicFormatTraceRecord<char16_t>;
using FormatSink = BasicFormatSink<char>;
using WideFormatSink = BasicFormatSink<char16_t>;

// The %w argument: a caller's format with its arguments. The va_list must be a real object
// (a local filled by va_start or va_copy), never a function parameter of type va_list, which
// decays to a pointer on some ABIs. The engine copies it for each use, so one record may be
// formatted more than once.
inline constexpr uint32_t kNestedFormatTag = 0xEF160913u;
template <class Ch>
struct BasicNestedFormat {
  uint32_t tag = 0;
  const Ch* format = nullptr;
  va_list* args = nullptr;  // null: every argument reads as zero
};
using NestedFormat = BasicNestedFormat<char>;
using WideNestedFormat = BasicNestedFormat<char16_t>;

// The %F argument: a render function called with (argument, child sink); it writes by calling
// FormatCore on the child sink and returns the number of characters it produced.
inline constexpr uint32_t kFormatCallbackTag = 0xEF170321u;
template <class Ch>
struct BasicFormatCallback {
  using Render = int32_t (*)(void* argument, BasicFormatSink<Ch>* sink);
  uint32_t tag = 0;
  Render render = nullptr;
  void* argument = nullptr;
};
using FormatCallback = BasicFormatCallback<char>;
using WideFormatCallback = BasicFormatCallback<char16_t>;

NestedFormat* MakeNestedFormat(NestedFormat* record, const char* format, va_list* args);
WideNestedFormat* MakeNestedFormat(WideNestedFormat* record, const char16_t* format, va_list* args);
FormatCallback* MakeFormatCallback(FormatCallback* record, FormatCallback::Render render, void* argument);
WideFormatCallback* MakeFormatCallback(WideFormatCallback* record, WideFormatCallback::Render render,
                                       void* argument);

// Every entry returns the length of the whole text, whether or not it fitted. On return the sink
// is advanced by that count (buffer, room and base position).
int32_t FormatCore(FormatSink* sink, const char* format, va_list args);
int32_t FormatCore(WideFormatSink* sink, const char16_t* format, va_list args);
// The same with the arguments in line: for the renderers of %F callbacks and record writers.
int32_t FormatToSink(FormatSink* sink, const char* format, ...);
int32_t FormatToSink(WideFormatSink* sink, const char16_t* format, ...);

// The buffer is always terminated when capacity >= 1; what does not fit is dropped silently.
int32_t FormatToBuffer(char* buffer, int32_t capacity, const char* format, ...);
int32_t FormatToBufferV(char* buffer, int32_t capacity, const char* format, va_list args);
// As FormatToBuffer, but never traced: the engine's own inner formatting uses it.
int32_t FormatQuiet(char* buffer, int32_t capacity, const char* format, ...);
// Heap result (release with std::free): the count, -2 when measuring failed, -1 when out of
// memory (*out is then null).
int32_t FormatAlloc(char** out, const char* format, ...);
int32_t FormatAllocV(char** out, const char* format, va_list args);
// As FormatAlloc, allocating at most `maximum` characters (terminator included); 0 allocates nothing.
int32_t FormatAllocMax(char** out, int32_t maximum, const char* format, ...);
int32_t FormatAllocMaxV(char** out, int32_t maximum, const char* format, va_list args);
// Formats at *cursor, then moves *cursor on and *room down by the count.
int32_t FormatAdvance(char** cursor, int32_t* room, const char* format, ...);
// Appends to the text already in the buffer; returns the length of old and new text together.
int32_t FormatAppend(char* buffer, int32_t capacity, const char* format, ...);
// Streams each piece to standard output as it is produced.
int32_t FormatPrint(const char* format, ...);

int32_t FormatToBuffer(char16_t* buffer, int32_t capacity, const char16_t* format, ...);
int32_t FormatToBufferV(char16_t* buffer, int32_t capacity, const char16_t* format, va_list args);
int32_t FormatQuiet(char16_t* buffer, int32_t capacity, const char16_t* format, ...);
int32_t FormatAlloc(char16_t** out, const char16_t* format, ...);
int32_t FormatAllocV(char16_t** out, const char16_t* format, va_list args);
int32_t FormatAllocMax(char16_t** out, int32_t maximum, const char16_t* format, ...);
int32_t FormatAllocMaxV(char16_t** out, int32_t maximum, const char16_t* format, va_list args);
int32_t FormatAdvance(char16_t** cursor, int32_t* room, const char16_t* format, ...);
int32_t FormatAppend(char16_t* buffer, int32_t capacity, const char16_t* format, ...);
// Pieces go to standard output through "%.*ls".
int32_t FormatPrint(const char16_t* format, ...);

// Trace writer: receives each finished trace line (at most 199 characters). The narrow and the
// wide engine each have their own; null switches tracing off (the default).
using FormatTraceWriter = void (*)(void* context, const char* text);
using WideFormatTraceWriter = void (*)(void* context, const char16_t* text);
void SetFormatTrace(FormatTraceWriter writer, void* context);
void SetWideFormatTrace(WideFormatTraceWriter writer, void* context);

// 1: CR LF, 2: CR, anything else: LF (the default). Used between dump rows and after trace lines.
void SetFormatLineEnd(int mode);

}  // namespace portwren
