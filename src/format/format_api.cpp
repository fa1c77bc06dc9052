// The public entries of the engine, for char and char16_t alike.
#include <cstdio>
#include <cstdlib>

#include "format/format.h"
#include "format/format_engine.h"

namespace portwren {

using format_detail::RunFormat;
using format_detail::Settings;
using format_detail::TextLengthMax;
using format_detail::Widen;

namespace {

template <class Ch>
int32_t CoreV(BasicFormatSink<Ch>* sink, const Ch* format, va_list args) {
  va_list copy;  // a local, so that its address is a real va_list* on every ABI
  va_copy(copy, args);
  const int32_t count = RunFormat(sink, format, &copy);
  va_end(copy);
  return count;
}

// The variadic entries hand over the address of their own va_list: copying it right after
// va_start would read back fresh stores (a stall that costs a tenth of a short line).
template <class Ch>
int32_t ToBufferP(Ch* buffer, int32_t capacity, bool quiet, const Ch* format, va_list* args) {
  BasicFormatSink<Ch> sink;
  sink.buffer = buffer;
  sink.room = buffer != nullptr ? capacity : 0;
  sink.quiet = quiet;
  return RunFormat(&sink, format, args);
}

template <class Ch>
int32_t ToBufferV(Ch* buffer, int32_t capacity, bool quiet, const Ch* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int32_t count = ToBufferP(buffer, capacity, quiet, format, &copy);
  va_end(copy);
  return count;
}

template <class Ch>
int32_t AllocMaxV(Ch** out, int32_t maximum, bool bounded, const Ch* format, va_list args) {
  *out = nullptr;
  BasicFormatSink<Ch> measure;
  const int32_t count = CoreV(&measure, format, args);
  if (count < 0) return -2;
  int64_t size = static_cast<int64_t>(count) + 1;
  if (bounded) {
    if (maximum <= 0) return count;
    if (size > maximum) size = maximum;
  }
  Ch* memory = static_cast<Ch*>(std::malloc(static_cast<std::size_t>(size) * sizeof(Ch)));
  if (memory == nullptr) return -1;
  ToBufferV(memory, static_cast<int32_t>(size), false, format, args);
  *out = memory;
  return count;
}

template <class Ch>
int32_t AdvanceP(Ch** cursor, int32_t* room, const Ch* format, va_list* args) {
  BasicFormatSink<Ch> sink;
  sink.buffer = *cursor;
  sink.room = *cursor != nullptr ? *room : 0;
  const int32_t count = RunFormat(&sink, format, args);
  if (*cursor != nullptr) *cursor += count;
  *room = static_cast<int32_t>(static_cast<uint32_t>(*room) - static_cast<uint32_t>(count));
  return count;
}

template <class Ch>
int32_t ToBufferArgs(Ch* buffer, int32_t capacity, const Ch* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t count = ToBufferP(buffer, capacity, false, format, &args);
  va_end(args);
  return count;
}

// "%.*s%w": the text already in the buffer (never read past the capacity), then the new format.
template <class Ch>
int32_t AppendTo(Ch* buffer, int32_t capacity, const Ch* format, va_list* args) {
  static constexpr auto kAppend = Widen<Ch>("%.*s%w");
  const int32_t kept = buffer != nullptr && capacity > 0 ? TextLengthMax(buffer, capacity - 1) : 0;
  BasicNestedFormat<Ch> nested;
  nested.tag = kNestedFormatTag;
  nested.format = format;
  nested.args = args;
  return ToBufferArgs(buffer, capacity, kAppend.data(), kept, buffer, &nested);
}

void PrintPiece(void*, const char* text, int32_t length, const FormatTraceRecord*) {
  std::printf("%.*s", static_cast<int>(length), text);
}

// wchar_t is 32 bits on Linux and 16 on Windows: pieces are copied over in either case.
void PrintWidePiece(void*, const char16_t* text, int32_t length, const WideFormatTraceRecord*) {
  wchar_t chunk[128];
  int32_t done = 0;
  while (done < length) {
    int n = 0;
    while (done < length && n < 126) {
      char32_t unit = text[done++];
      if constexpr (sizeof(wchar_t) >= 4) {
        if (unit >= 0xD800 && unit < 0xDC00 && done < length && text[done] >= 0xDC00 && text[done] < 0xE000) {
          unit = 0x10000 + ((unit - 0xD800) << 10) + (text[done++] - 0xDC00);
        }
      }
      chunk[n++] = static_cast<wchar_t>(unit);
    }
    std::printf("%.*ls", n, chunk);
  }
}

template <class Ch>
int32_t PrintP(typename BasicFormatSink<Ch>::PieceWriter writer, const Ch* format, va_list* args) {
  BasicFormatSink<Ch> sink;
  sink.writer = writer;
  return RunFormat(&sink, format, args);
}

}  // namespace

NestedFormat* MakeNestedFormat(NestedFormat* record, const char* format, va_list* args) {
  record->tag = kNestedFormatTag;
  record->format = format;
  record->args = args;
  return record;
}

WideNestedFormat* MakeNestedFormat(WideNestedFormat* record, const char16_t* format, va_list* args) {
  record->tag = kNestedFormatTag;
  record->format = format;
  record->args = args;
  return record;
}

FormatCallback* MakeFormatCallback(FormatCallback* record, FormatCallback::Render render, void* argument) {
  record->tag = kFormatCallbackTag;
  record->render = render;
  record->argument = argument;
  return record;
}

WideFormatCallback* MakeFormatCallback(WideFormatCallback* record, WideFormatCallback::Render render,
                                       void* argument) {
  record->tag = kFormatCallbackTag;
  record->render = render;
  record->argument = argument;
  return record;
}

void SetFormatTrace(FormatTraceWriter writer, void* context) {
  Settings<char>::trace_writer = writer;
  Settings<char>::trace_context = context;
}

void SetWideFormatTrace(WideFormatTraceWriter writer, void* context) {
  Settings<char16_t>::trace_writer = writer;
  Settings<char16_t>::trace_context = context;
}

void SetFormatLineEnd(int mode) {
  const char* text = mode == 1 ? "\r\n" : mode == 2 ? "\r" : "\n";
  const int32_t length = mode == 1 ? 2 : 1;
  for (int32_t i = 0; i < 3; ++i) {
    const char c = i < length ? text[i] : 0;
    Settings<char>::line_end[i] = c;
    Settings<char16_t>::line_end[i] = static_cast<char16_t>(c);
  }
  Settings<char>::line_end_length = length;
  Settings<char16_t>::line_end_length = length;
}

// The same set of entries for both character types.
#define PW_FORMAT_ENTRIES(Ch, print_piece)                                                \
  int32_t FormatCore(BasicFormatSink<Ch>* sink, const Ch* format, va_list args) {         \
    return CoreV(sink, format, args);                                                     \
  }                                                                                       \
  int32_t FormatToSink(BasicFormatSink<Ch>* sink, const Ch* format, ...) {                \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = CoreV(sink, format, args);                                      \
    va_end(args);                                                                         \
    return count;                                                                         \
  }                                                                                       \
  int32_t FormatToBufferV(Ch* buffer, int32_t capacity, const Ch* format, va_list args) { \
    return ToBufferV(buffer, capacity, false, format, args);                              \
  }                                                                                       \
  int32_t FormatToBuffer(Ch* buffer, int32_t capacity, const Ch* format, ...) {           \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = ToBufferP(buffer, capacity, false, format, &args);              \
    va_end(args);                                                                         \
    return count;                                                                         \
  }                                                                                       \
  int32_t FormatQuiet(Ch* buffer, int32_t capacity, const Ch* format, ...) {              \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = ToBufferP(buffer, capacity, true, format, &args);               \
    va_end(args);                                                                         \
    return count;                                                                         \
  }                                                                                       \
  int32_t FormatAllocV(Ch** out, const Ch* format, va_list args) {                        \
    return AllocMaxV(out, 0, false, format, args);                                        \
  }                                                                                       \
  int32_t FormatAlloc(Ch** out, const Ch* format, ...) {                                  \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = AllocMaxV(out, 0, false, format, args);                         \
    va_end(args);                                                                         \
    return count;                                                                         \
  }                                                                                       \
  int32_t FormatAllocMaxV(Ch** out, int32_t maximum, const Ch* format, va_list args) {    \
    return AllocMaxV(out, maximum, true, format, args);                                   \
  }                                                                                       \
  int32_t FormatAllocMax(Ch** out, int32_t maximum, const Ch* format, ...) {              \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = AllocMaxV(out, maximum, true, format, args);                    \
    va_end(args);                                                                         \
    return count;                                                                         \
  }                                                                                       \
  int32_t FormatAdvance(Ch** cursor, int32_t* room, const Ch* format, ...) {              \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = AdvanceP(cursor, room, format, &args);                          \
    va_end(args);                                                                         \
    return count;                                                                         \
  }                                                                                       \
  int32_t FormatAppend(Ch* buffer, int32_t capacity, const Ch* format, ...) {             \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = AppendTo(buffer, capacity, format, &args);                      \
    va_end(args);                                                                         \
    return count;                                                                         \
  }                                                                                       \
  int32_t FormatPrint(const Ch* format, ...) {                                            \
    va_list args;                                                                         \
    va_start(args, format);                                                               \
    const int32_t count = PrintP<Ch>(&print_piece, format, &args);                        \
    va_end(args);                                                                         \
    return count;                                                                         \
  }

PW_FORMAT_ENTRIES(char, PrintPiece)
PW_FORMAT_ENTRIES(char16_t, PrintWidePiece)

#undef PW_FORMAT_ENTRIES

}  // namespace portwren
