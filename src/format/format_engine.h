// Inside the format engine: the per-call interpreter state shared by its source files.
// Not for use outside src/format/.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "format/format.h"

namespace portwren::format_detail {

inline constexpr int32_t kWorkChars = 128;  // number and float text area
inline constexpr int32_t kMaxDigits = 80;   // digits kept of one integer (precision included)
inline constexpr int32_t kFillChunk = 100;  // padding goes out in pieces of at most this
inline constexpr int32_t kTraceLineChars = 200;
inline constexpr int32_t kAddressChars = 40;  // one dump address, terminator included
inline constexpr int32_t kBetweenMax = 8;
inline constexpr int32_t kBeforeAfterMax = 4;
inline constexpr int32_t kMaxRowBytes = 256;
inline constexpr int32_t kMaxIndent = 64;

inline constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";
inline constexpr char kLowerHex[] = "0123456789abcdef";
inline constexpr char kUpperHex[] = "0123456789ABCDEF";

inline bool IsDigit(int c) {
  return c >= '0' && c <= '9';
}

// A narrow literal as an array of either character type (the engine's own formats are ASCII).
template <class Ch, std::size_t N>
constexpr std::array<Ch, N> Widen(const char (&text)[N]) {
  std::array<Ch, N> out{};
  for (std::size_t i = 0; i < N; ++i) out[i] = static_cast<Ch>(static_cast<unsigned char>(text[i]));
  return out;
}

// Copies n characters; short runs (most pieces) without a library call. Every source byte is
// read before any is written, so the copy may overlap (appending copies a buffer onto itself).
template <class Ch>
inline void CopyChars(Ch* to, const Ch* from, std::size_t n) {
  const std::size_t bytes = n * sizeof(Ch);
  auto* d = reinterpret_cast<unsigned char*>(to);
  const auto* s = reinterpret_cast<const unsigned char*>(from);
  if (bytes >= 8 && bytes <= 16) {
    uint64_t head, tail;
    std::memcpy(&head, s, 8);
    std::memcpy(&tail, s + bytes - 8, 8);
    std::memcpy(d, &head, 8);
    std::memcpy(d + bytes - 8, &tail, 8);
  } else if (bytes >= 4 && bytes < 8) {
    uint32_t head, tail;
    std::memcpy(&head, s, 4);
    std::memcpy(&tail, s + bytes - 4, 4);
    std::memcpy(d, &head, 4);
    std::memcpy(d + bytes - 4, &tail, 4);
  } else if (bytes < 4) {
    for (std::size_t i = 0; i < bytes; ++i) d[i] = s[i];
  } else {
    std::memmove(d, s, bytes);
  }
}

template <class Ch>
int32_t TextLength(const Ch* text) {
  if constexpr (sizeof(Ch) == 1) {
    return static_cast<int32_t>(std::strlen(text));
  } else {
    const Ch* p = text;
    while (*p != 0) ++p;
    return static_cast<int32_t>(p - text);
  }
}

// Length of text, looking at no more than `limit` characters.
template <class Ch>
int32_t TextLengthMax(const Ch* text, int32_t limit) {
  if constexpr (sizeof(Ch) == 1) {
    const void* nul = std::memchr(text, 0, static_cast<std::size_t>(limit));
    return nul != nullptr ? static_cast<int32_t>(static_cast<const char*>(nul) - text) : limit;
  } else {
    int32_t n = 0;
    while (n < limit && text[n] != 0) ++n;
    return n;
  }
}

// Process-wide settings, one copy per character type; set once at start-up.
template <class Ch>
struct Settings {
  using TraceWriter = void (*)(void* context, const Ch* text);
  static inline TraceWriter trace_writer = nullptr;
  static inline void* trace_context = nullptr;
  static inline Ch line_end[3] = {Ch('\n'), 0, 0};
  static inline int32_t line_end_length = 1;
};

// Set while a trace line is handed to its writer, so that a writer which formats does not
// trace its own output.
bool InTraceWriter();

// One parsed directive.
//   flags: bit 0 '-'  bit 1 '0'  bit 2 '+'  bit 3 ' '  bit 4 '#'
struct Spec {
  enum : uint32_t { kLeft = 1u, kZero = 2u, kPlus = 4u, kSpace = 8u, kAlt = 16u };
  uint32_t flags = 0;
  int32_t width = 0;       // field width, never negative
  int32_t width_arg = 0;   // the width as given ("*" may be negative): a count for %n and %m
  int32_t precision = -1;  // -1: none given
  bool width_given = false;
  bool long_long = false;
};

// Left uninitialised until a call first uses a dump directive: most calls never do.
template <class Ch>
struct DumpState {
  Ch between[kBetweenMax];
  Ch before[kBeforeAfterMax];
  Ch after[kBeforeAfterMax];
  int32_t between_length;
  int32_t before_length;
  int32_t after_length;
  int32_t bytes_per_row;  // 0: all bytes in one row
  int32_t indent;
  int32_t first_column;
  bool ruler;
  uint64_t address_base;
  int32_t address_group;
  int32_t address_digits;  // -1: none given

  void Reset() {
    between_length = before_length = after_length = 0;
    bytes_per_row = indent = first_column = 0;
    ruler = false;
    address_base = 0;
    address_group = 0;
    address_digits = -1;
  }
};

// Writes the digits of value so that they end just before `end`: at least min_digits of them
// (at most kMaxDigits), with `separator` between groups of `group` digits counted from the
// right when both are set, and an extra leading zero for the octal alternate form. Never
// writes before `limit`. Returns the first character written.
template <class Ch>
Ch* BuildDigits(Ch* end, Ch* limit, uint64_t value, unsigned base, bool upper, int32_t min_digits,
                bool octal_alt, const Ch* separator, int32_t separator_length, int32_t group);

template <class Ch>
class Engine {
 public:
  using Sink = BasicFormatSink<Ch>;

  Engine(Sink* sink, const Ch* format, va_list* args);
  int32_t Run();

  // Emits one piece: trace line, piece writer, then the buffer as far as it fits.
  void Put(const Ch* text, int32_t length) {
    if (length <= 0) return;
    if (slow_) {
      PutSlow(text, length);
      return;
    }
    CopyOut(text, length);
    count_ += static_cast<uint32_t>(length);
  }
  void PutFill(Ch fill, int32_t count);
  const Ch* GroupSeparator(int32_t* length) const {
    *length = separator_length_;
    return separator_;
  }
  const DumpState<Ch>& dump() const { return dump_; }
  bool streaming() const { return slow_; }

 private:
  void CopyOut(const Ch* text, int32_t length) {
    if (out_ < out_end_) {
      const std::ptrdiff_t room = out_end_ - out_;
      const std::ptrdiff_t take = length < room ? length : room;
      CopyChars(out_, text, static_cast<std::size_t>(take));
      out_ += take;
    }
  }
  // Text already written in place (direct) only needs counting; elsewhere it is put as usual.
  void Emit(const Ch* text, int32_t length, bool direct) {
    if (direct) {
      out_ += length;
      count_ += static_cast<uint32_t>(length);
    } else {
      Put(text, length);
    }
  }
  void PutSlow(const Ch* text, int32_t length);
  void TracePiece(int32_t length, BasicFormatTraceRecord<Ch>* record);

  bool QuickDirective(const Ch*& p);
  const Ch* Directive(const Ch* start);
  void Integer(Ch conversion);
  void Pointer(Ch conversion);
  void Float(Ch conversion);
  void String();
  void Repeat();
  void Field(const Ch* prefix, int32_t prefix_length, const Ch* body, int32_t body_length, bool zero_ok);
  void Nested();
  void Callback();
  void SetDumpState(Ch conversion);
  void Dump(bool upper);

  Sink ChildSink();
  void AfterChild(int32_t produced);

  int32_t ArgInt();
  int64_t ArgLongLong();
  const void* ArgPointer();
  double ArgDouble();

  Sink* sink_;
  const Ch* format_;
  va_list* args_;
  typename Sink::PieceWriter writer_;
  void* context_;
  Ch* out_;      // next free character, null without a buffer
  Ch* out_end_;  // the place kept for the terminator
  uint32_t count_ = 0;
  bool slow_;
  bool tracing_;
  bool traced_header_ = false;

  const Ch* directive_ = nullptr;  // for the trace: the directive (or literal run) under way
  int32_t directive_length_ = 0;
  Spec spec_;

  const Ch* separator_ = nullptr;  // %t
  int32_t separator_length_ = 0;
  int32_t group_ = 3;            // %_
  const Ch* decimal_separator_;  // %T, for %D and %U
  int32_t decimal_separator_length_ = 1;
  DumpState<Ch> dump_;
  bool dump_ready_ = false;
  DumpState<Ch>& MutableDump() {
    if (!dump_ready_) {
      dump_.Reset();
      dump_ready_ = true;
    }
    return dump_;
  }
};

// The whole engine on a sink whose argument list may be null (then every argument reads as 0).
template <class Ch>
int32_t RunFormat(BasicFormatSink<Ch>* sink, const Ch* format, va_list* args);

// Quiet formatting into a buffer, for the engine's own use.
template <class Ch>
int32_t QuietToBuffer(Ch* buffer, int32_t capacity, const Ch* format, ...);

// Renders the hex dump of count bytes with the engine's dump state.
template <class Ch>
void RenderDump(Engine<Ch>* engine, const unsigned char* bytes, int32_t count, bool upper);

}  // namespace portwren::format_detail
