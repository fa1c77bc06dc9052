// The interpreter: one pass over the format, literal runs and directives handed to small handlers.
#include "format/format_engine.h"

#include <climits>
#include <type_traits>

namespace portwren::format_detail {

namespace {

template <class Ch>
struct Fills {
  static constexpr auto blanks = [] {
    std::array<Ch, kFillChunk> a{};
    for (Ch& c : a) c = Ch(' ');
    return a;
  }();
  static constexpr auto zeros = [] {
    std::array<Ch, kFillChunk> a{};
    for (Ch& c : a) c = Ch('0');
    return a;
  }();
};

template <class Ch>
constexpr Ch kEmpty[1] = {0};
template <class Ch>
constexpr Ch kOneBlank[2] = {Ch(' '), 0};

// Characters that may follow "%" before the conversion: flags, width, precision, length.
constexpr auto kBeforeConversion = [] {
  std::array<bool, 128> table{};
  for (const char c : {'-', '0', '+', ' ', '#', '\'', '*', '.', 'l', 'h'})
    table[static_cast<unsigned char>(c)] = true;
  for (char c = '1'; c <= '9'; ++c) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

constexpr uint32_t kPowersOfTen[] = {10u,      100u,      1000u,      10000u,     100000u,
                                     1000000u, 10000000u, 100000000u, 1000000000u};

int32_t DecimalCount(uint32_t value) {
  int32_t n = 1;
  while (n < 10 && value >= kPowersOfTen[n - 1]) ++n;
  return n;
}

// The decimal digits of value (at least one), ending just before `end`.
template <class Ch>
void WriteDecimal(Ch* end, uint32_t value) {
  while (value >= 100) {
    const unsigned pair = (value % 100) * 2;
    value /= 100;
    end -= 2;
    end[0] = Ch(kDigitPairs[pair]);
    end[1] = Ch(kDigitPairs[pair + 1]);
  }
  if (value >= 10) {
    end[-2] = Ch(kDigitPairs[value * 2]);
    end[-1] = Ch(kDigitPairs[value * 2 + 1]);
  } else {
    end[-1] = Ch('0' + value);
  }
}

template <class Ch>
bool MayPrecedeConversion(Ch c) {
  const auto u = static_cast<std::make_unsigned_t<Ch>>(c);
  return u < 128 && kBeforeConversion[u];
}

// A run of decimal digits, held below INT32_MAX.
template <class Ch>
int32_t ParseCount(const Ch*& p) {
  int32_t value = 0;
  while (IsDigit(*p)) {
    const int32_t digit = static_cast<int32_t>(*p - Ch('0'));
    value = value < (INT32_MAX - 9) / 10 ? value * 10 + digit : INT32_MAX;
    ++p;
  }
  return value;
}

}  // namespace

template <class Ch>
Engine<Ch>::Engine(Sink* sink, const Ch* format, va_list* args)
    : sink_(sink),
      format_(format != nullptr ? format : kEmpty<Ch>),
      args_(args),
      writer_(sink->writer),
      context_(sink->context),
      decimal_separator_(kOneBlank<Ch>) {
  if (sink->buffer != nullptr && sink->room >= 1) {
    out_ = sink->buffer;
    out_end_ = sink->buffer + (sink->room - 1);
  } else {
    out_ = nullptr;
    out_end_ = nullptr;
  }
  tracing_ = Settings<Ch>::trace_writer != nullptr && !sink->quiet && !InTraceWriter();
  slow_ = writer_ != nullptr || tracing_;
}

template <class Ch>
int32_t Engine<Ch>::Run() {
  const Ch* p = format_;
  for (;;) {
    const Ch* run = p;
    while (*p != 0 && *p != Ch('%')) ++p;
    if (p != run) {
      if (slow_) {
        directive_ = run;
        directive_length_ = static_cast<int32_t>(p - run);
        spec_ = Spec{};
      }
      Put(run, static_cast<int32_t>(p - run));
    }
    if (*p == 0) break;
    if (slow_ || !QuickDirective(p)) p = Directive(p);
  }
  if (out_ != nullptr) *out_ = 0;
  const int32_t count = static_cast<int32_t>(count_);
  if (sink_->buffer != nullptr) sink_->buffer += count;
  sink_->room = static_cast<int32_t>(static_cast<uint32_t>(sink_->room) - count_);
  sink_->base_pos = static_cast<int32_t>(static_cast<uint32_t>(sink_->base_pos) + count_);
  return count;
}

template <class Ch>
void Engine<Ch>::PutFill(Ch fill, int32_t count) {
  if (count <= 0) return;
  if (!slow_) {
    if (out_ < out_end_) {
      const std::ptrdiff_t room = out_end_ - out_;
      const std::ptrdiff_t take = count < room ? count : room;
      for (std::ptrdiff_t i = 0; i < take; ++i) out_[i] = fill;
      out_ += take;
    }
    count_ += static_cast<uint32_t>(count);
    return;
  }
  const Ch* chunk = fill == Ch('0') ? Fills<Ch>::zeros.data() : Fills<Ch>::blanks.data();
  while (count > 0) {
    const int32_t n = count < kFillChunk ? count : kFillChunk;
    PutSlow(chunk, n);
    count -= n;
  }
}

template <class Ch>
int32_t Engine<Ch>::ArgInt() {
  return args_ != nullptr ? va_arg(*args_, int) : 0;
}

template <class Ch>
int64_t Engine<Ch>::ArgLongLong() {
  return args_ != nullptr ? va_arg(*args_, long long) : 0;
}

template <class Ch>
const void* Engine<Ch>::ArgPointer() {
  return args_ != nullptr ? va_arg(*args_, const void*) : nullptr;
}

template <class Ch>
double Engine<Ch>::ArgDouble() {
  return args_ != nullptr ? va_arg(*args_, double) : 0.0;
}

// The directives of nearly every log line (%s %d %u %c %p and %0Nd %0Nu with one width digit),
// taken without the general parse when the buffer is the only output. With a piece writer or
// a trace the general path runs, as it cuts zero padding into a piece of its own.
template <class Ch>
bool Engine<Ch>::QuickDirective(const Ch*& p) {
  Ch conversion = p[1];
  const Ch* next = p + 2;
  int32_t zero_width = 0;
  if (conversion == Ch('0') && p[2] >= Ch('1') && p[2] <= Ch('9') && (p[3] == Ch('u') || p[3] == Ch('d'))) {
    zero_width = static_cast<int32_t>(p[2] - Ch('0'));
    conversion = p[3];
    next = p + 4;
  }
  // Digits are written straight into the buffer when it has room: copying them from a scratch
  // area would read back fresh byte stores with wide loads, which stalls.
  Ch work[24];
  if (conversion == Ch('u') || conversion == Ch('d')) {
    if (separator_length_ > 0) return false;
    const int32_t value = ArgInt();
    const bool negative = conversion == Ch('d') && value < 0;
    const uint32_t magnitude = negative ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    const int32_t digits = DecimalCount(magnitude);
    const int32_t sign = negative ? 1 : 0;
    const int32_t zeros = zero_width - sign > digits ? zero_width - sign - digits : 0;
    const int32_t length = sign + zeros + digits;
    const bool direct = out_end_ - out_ >= length;
    Ch* const to = direct ? out_ : work;
    WriteDecimal(to + length, magnitude);
    for (int32_t i = sign; i < sign + zeros; ++i) to[i] = Ch('0');
    if (negative) to[0] = Ch('-');
    Emit(to, length, direct);
  } else if (conversion == Ch('s')) {
    const Ch* string = static_cast<const Ch*>(ArgPointer());
    if (string != nullptr) Put(string, TextLength(string));
  } else if (conversion == Ch('c')) {
    work[0] = static_cast<Ch>(ArgInt());
    Put(work, 1);
  } else if (conversion == Ch('p')) {
    if (separator_length_ > 0) return false;
    uint64_t value = reinterpret_cast<uintptr_t>(ArgPointer());
    const bool direct = out_end_ - out_ >= 16;
    Ch* const to = direct ? out_ : work;
    for (Ch* d = to + 16; d > to; value >>= 8) {
      d -= 2;
      d[0] = Ch(kLowerHex[(value >> 4) & 15]);
      d[1] = Ch(kLowerHex[value & 15]);
    }
    Emit(to, 16, direct);
  } else {
    return false;
  }
  p = next;
  return true;
}

template <class Ch>
const Ch* Engine<Ch>::Directive(const Ch* start) {
  const Ch* p = start + 1;
  Spec spec;
  if (MayPrecedeConversion(*p) != 0) {  // most directives are a bare conversion letter
    for (;; ++p) {
      if (*p == Ch('-')) {
        spec.flags |= Spec::kLeft;
      } else if (*p == Ch('0')) {
        spec.flags |= Spec::kZero;
      } else if (*p == Ch('+')) {
        spec.flags |= Spec::kPlus;
      } else if (*p == Ch(' ')) {
        spec.flags |= Spec::kSpace;
      } else if (*p == Ch('#')) {
        spec.flags |= Spec::kAlt;
      } else if (*p != Ch('\'')) {  // accepted and ignored
        break;
      }
    }
    if (*p == Ch('*')) {
      ++p;
      const int32_t width = ArgInt();
      spec.width_given = true;
      spec.width_arg = width;
      if (width < 0) {
        spec.flags |= Spec::kLeft;
        spec.width = width == INT32_MIN ? INT32_MAX : -width;
      } else {
        spec.width = width;
      }
    } else if (IsDigit(*p)) {
      spec.width_given = true;
      spec.width = ParseCount(p);
      spec.width_arg = spec.width;
    }
    if (*p == Ch('.')) {
      ++p;
      if (*p == Ch('*')) {
        ++p;
        const int32_t precision = ArgInt();
        spec.precision = precision < 0 ? -1 : precision;
      } else {
        spec.precision = ParseCount(p);
      }
    }
    if (*p == Ch('l')) {
      ++p;
      if (*p == Ch('l')) {
        spec.long_long = true;
        ++p;
      }
    } else if (*p == Ch('h')) {
      ++p;
    }
  }
  const Ch conversion = *p;
  if (conversion != 0) ++p;
  directive_ = start;
  directive_length_ = static_cast<int32_t>(p - start);
  spec_ = spec;

  switch (conversion) {
    case Ch('d'):
    case Ch('u'):
    case Ch('x'):
    case Ch('X'):
    case Ch('o'):
    case Ch('D'):
    case Ch('U'):
      Integer(conversion);
      break;
    case Ch('s'):
      String();
      break;
    case Ch('c'): {
      const Ch c = static_cast<Ch>(ArgInt());
      Field(nullptr, 0, &c, 1, false);
      break;
    }
    case Ch('%'):
      Put(p - 1, 1);
      break;
    case Ch('p'):
    case Ch('P'):
      Pointer(conversion);
      break;
    case Ch('e'):
    case Ch('E'):
    case Ch('f'):
    case Ch('g'):
    case Ch('G'):
      Float(conversion);
      break;
    case Ch('w'):
      Nested();
      break;
    case Ch('F'):
      Callback();
      break;
    case Ch('n'):
      Repeat();
      break;
    case Ch('T'): {
      const Ch* text = static_cast<const Ch*>(ArgPointer());
      decimal_separator_ = text != nullptr ? text : kEmpty<Ch>;
      decimal_separator_length_ = TextLength(decimal_separator_);
      break;
    }
    case Ch('t'): {
      const Ch* text = static_cast<const Ch*>(ArgPointer());
      separator_ = text;
      separator_length_ = text != nullptr ? TextLength(text) : 0;
      break;
    }
    case Ch('_'):
      group_ = ArgInt();
      break;
    case Ch('k'):
    case Ch('K'):
    case Ch('R'):
    case Ch('r'):
    case Ch('v'):
      SetDumpState(conversion);
      break;
    case Ch('m'):
    case Ch('M'):
      Dump(conversion == Ch('M'));
      break;
    default:  // unknown (or missing) conversion: the directive stands as written
      Put(start, directive_length_);
      break;
  }
  return p;
}

// Prefix (sign or "0x") and body lie next to each other; padding goes around or between them.
template <class Ch>
void Engine<Ch>::Field(const Ch* prefix, int32_t prefix_length, const Ch* body, int32_t body_length,
                       bool zero_ok) {
  const int32_t pad = spec_.width - prefix_length - body_length;
  if (pad <= 0) {
    if (prefix_length > 0) Put(prefix, prefix_length);
    Put(body, body_length);
  } else if ((spec_.flags & Spec::kLeft) != 0) {
    if (prefix_length > 0) Put(prefix, prefix_length);
    Put(body, body_length);
    PutFill(Ch(' '), pad);
  } else if (zero_ok && (spec_.flags & Spec::kZero) != 0) {
    if (prefix_length > 0) Put(prefix, prefix_length);
    PutFill(Ch('0'), pad);
    Put(body, body_length);
  } else {
    PutFill(Ch(' '), pad);
    if (prefix_length > 0) Put(prefix, prefix_length);
    Put(body, body_length);
  }
}

template <class Ch>
void Engine<Ch>::String() {
  const Ch* text = static_cast<const Ch*>(ArgPointer());
  if (text == nullptr) return;  // nothing at all, not even padding
  const int32_t length = spec_.precision >= 0 ? TextLengthMax(text, spec_.precision) : TextLength(text);
  if (spec_.width <= 0) {
    Put(text, length);
    return;
  }
  Field(nullptr, 0, text, length, false);
}

template <class Ch>
void Engine<Ch>::Repeat() {
  const Ch* text = static_cast<const Ch*>(ArgPointer());
  int32_t times = spec_.width_given ? spec_.width_arg : 0;
  if (text == nullptr || times < 1) return;
  const int32_t length = TextLength(text);
  if (length == 0) return;
  if (length > kFillChunk / 2) {
    for (; times > 0; --times) Put(text, length);
    return;
  }
  Ch area[kFillChunk];
  const int32_t per_piece = kFillChunk / length;
  for (int32_t i = 0; i < per_piece; ++i) std::memcpy(area + i * length, text, sizeof(Ch) * length);
  while (times > 0) {
    if (!slow_ && out_ == out_end_) {  // the buffer is full: only the count is left to do
      count_ += static_cast<uint32_t>(times) * static_cast<uint32_t>(length);
      return;
    }
    const int32_t n = times < per_piece ? times : per_piece;
    Put(area, n * length);
    times -= n;
  }
}

template class Engine<char>;
template class Engine<char16_t>;

}  // namespace portwren::format_detail
