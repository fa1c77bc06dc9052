// The interpreter: one pass over the format, literal runs and directives handed to small handlers.
#include "format/format_engine.h"

#include <climits>
#include <cstdio>
#include <type_traits>

namespace portwren::format_detail {

namespace {

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";
constexpr char kLowerHex[] = "0123456789abcdef";
constexpr char kUpperHex[] = "0123456789ABCDEF";

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

bool IsDigit(int c) { return c >= '0' && c <= '9'; }

// Characters that may follow "%" before the conversion: flags, width, precision, length.
constexpr auto kBeforeConversion = [] {
  std::array<bool, 128> table{};
  for (const char c : {'-', '0', '+', ' ', '#', '\'', '*', '.', 'l', 'h'}) table[static_cast<unsigned char>(c)] = true;
  for (char c = '1'; c <= '9'; ++c) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

constexpr uint32_t kPowersOfTen[] = {10u, 100u, 1000u, 10000u, 100000u, 1000000u, 10000000u, 100000000u,
                                     1000000000u};

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
bool ClassOf(Ch c) {
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

// Whether the first 32 bits at `pointer` are the tag. Compared one character at a time, so a
// short format string is never read past its terminator (no tag character is zero).
template <class Ch>
bool StartsWithTag(const void* pointer, uint32_t tag) {
  constexpr std::size_t kUnits = sizeof(uint32_t) / sizeof(Ch);
  Ch tag_units[kUnits];
  std::memcpy(tag_units, &tag, sizeof tag);
  const unsigned char* bytes = static_cast<const unsigned char*>(pointer);
  for (std::size_t i = 0; i < kUnits; ++i) {
    Ch unit;
    std::memcpy(&unit, bytes + i * sizeof(Ch), sizeof(Ch));
    if (unit != tag_units[i]) return false;
  }
  return true;
}

}  // namespace

namespace {

// The digits alone, ending just before `end`; at most kMaxDigits of them.
template <class Ch>
Ch* PlainDigits(Ch* end, uint64_t value, unsigned base, bool upper, int32_t min_digits, bool octal_alt) {
  Ch* p = end;
  if (base == 10) {
    if (value > 0xFFFFFFFFu) {
      while (value >= 100) {
        const unsigned pair = static_cast<unsigned>(value % 100) * 2;
        value /= 100;
        p -= 2;
        p[0] = Ch(kDigitPairs[pair]);
        p[1] = Ch(kDigitPairs[pair + 1]);
      }
    }
    uint32_t small = static_cast<uint32_t>(value);  // 32-bit division is the cheaper one
    while (small >= 100) {
      const unsigned pair = (small % 100) * 2;
      small /= 100;
      p -= 2;
      p[0] = Ch(kDigitPairs[pair]);
      p[1] = Ch(kDigitPairs[pair + 1]);
    }
    if (small >= 10) {
      const unsigned pair = small * 2;
      p -= 2;
      p[0] = Ch(kDigitPairs[pair]);
      p[1] = Ch(kDigitPairs[pair + 1]);
    } else if (small > 0) {
      *--p = Ch('0' + small);
    }
  } else {
    const char* digits = upper ? kUpperHex : kLowerHex;
    const unsigned shift = base == 16 ? 4 : 3;
    const unsigned mask = base - 1;
    while (value > 0) {
      *--p = Ch(digits[value & mask]);
      value >>= shift;
    }
  }
  int32_t count = static_cast<int32_t>(end - p);
  if (min_digits > kMaxDigits) min_digits = kMaxDigits;
  while (count < min_digits) {
    *--p = Ch('0');
    ++count;
  }
  if (octal_alt && (count == 0 || *p != Ch('0')) && count < kMaxDigits) *--p = Ch('0');
  return p;
}

}  // namespace

template <class Ch>
Ch* BuildDigits(Ch* end, Ch* limit, uint64_t value, unsigned base, bool upper, int32_t min_digits,
                bool octal_alt, const Ch* separator, int32_t separator_length, int32_t group) {
  if (separator_length <= 0 || group <= 0) return PlainDigits(end, value, base, upper, min_digits, octal_alt);

  Ch plain[kMaxDigits];
  const Ch* const digits_end = plain + kMaxDigits;
  const Ch* d = PlainDigits(plain + kMaxDigits, value, base, upper, min_digits, octal_alt);
  Ch* out = end;
  int32_t in_group = 0;
  for (const Ch* from = digits_end; from > d;) {
    if (in_group == group) {
      if (out - limit < separator_length + 1) break;  // the work area is full: keep the low digits
      out -= separator_length;
      std::memcpy(out, separator, static_cast<std::size_t>(separator_length) * sizeof(Ch));
      in_group = 0;
    }
    if (out == limit) break;
    *--out = *--from;
    ++in_group;
  }
  return out;
}

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
  if (ClassOf(*p) != 0) {  // most directives are a bare conversion letter
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
    case Ch('d'): case Ch('u'): case Ch('x'): case Ch('X'): case Ch('o'): case Ch('D'): case Ch('U'):
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
    case Ch('p'): case Ch('P'):
      Pointer(conversion);
      break;
    case Ch('e'): case Ch('E'): case Ch('f'): case Ch('g'): case Ch('G'):
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
    case Ch('k'): case Ch('K'): case Ch('R'): case Ch('r'): case Ch('v'):
      SetDumpState(conversion);
      break;
    case Ch('m'): case Ch('M'):
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
void Engine<Ch>::Integer(Ch conversion) {
  const bool is_signed = conversion == Ch('d') || conversion == Ch('D');
  uint64_t magnitude;
  bool negative = false;
  if (is_signed) {
    const int64_t value = spec_.long_long ? ArgLongLong() : ArgInt();
    negative = value < 0;
    magnitude = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
  } else {
    magnitude = spec_.long_long ? static_cast<uint64_t>(ArgLongLong()) : static_cast<uint32_t>(ArgInt());
  }
  const bool hex = conversion == Ch('x') || conversion == Ch('X');
  const unsigned base = hex ? 16 : conversion == Ch('o') ? 8 : 10;
  const bool decimal_grouping = conversion == Ch('D') || conversion == Ch('U');
  const bool alt = (spec_.flags & Spec::kAlt) != 0;

  Ch work[kWorkChars];
  Ch* const end = work + kWorkChars;
  Ch* body = BuildDigits(end, work + 4, magnitude, base, conversion == Ch('X'),
                         spec_.precision < 0 ? 1 : spec_.precision, alt && conversion == Ch('o'),
                         decimal_grouping ? decimal_separator_ : separator_,
                         decimal_grouping ? decimal_separator_length_ : separator_length_,
                         decimal_grouping ? 3 : group_);
  const int32_t body_length = static_cast<int32_t>(end - body);
  Ch* prefix = body;
  if (is_signed) {
    if (negative) {
      *--prefix = Ch('-');
    } else if ((spec_.flags & Spec::kPlus) != 0) {
      *--prefix = Ch('+');
    } else if ((spec_.flags & Spec::kSpace) != 0) {
      *--prefix = Ch(' ');
    }
  } else if (hex && alt && magnitude != 0) {
    *--prefix = conversion;
    *--prefix = Ch('0');
  }
  if (spec_.width <= 0) {  // the common case: no field to fill
    Put(prefix, static_cast<int32_t>(end - prefix));
    return;
  }
  Field(prefix, static_cast<int32_t>(body - prefix), body, body_length, spec_.precision < 0);
}

template <class Ch>
void Engine<Ch>::Pointer(Ch conversion) {
  const uint64_t value = reinterpret_cast<uintptr_t>(ArgPointer());
  const bool upper = conversion == Ch('P');
  Ch work[kWorkChars];
  Ch* const end = work + kWorkChars;
  const int32_t digits = spec_.precision > 16 ? spec_.precision : 16;
  Ch* body = BuildDigits(end, work + 4, value, 16, upper, digits, false, separator_, separator_length_, group_);
  Ch* prefix = body;
  if ((spec_.flags & Spec::kAlt) != 0 && value != 0) {
    *--prefix = upper ? Ch('X') : Ch('x');
    *--prefix = Ch('0');
  }
  Field(prefix, static_cast<int32_t>(body - prefix), body, static_cast<int32_t>(end - body),
        spec_.precision < 0);
}

// Only the digits come from the C library; sign and padding are ours.
template <class Ch>
void Engine<Ch>::Float(Ch conversion) {
  const double value = ArgDouble();
  int32_t precision = spec_.precision < 0 ? 6 : spec_.precision;
  if (precision > kWorkChars - 3) precision = kWorkChars - 3;  // more could not show in the area

  char directive[16];
  char* d = directive;
  *d++ = '%';
  *d++ = '.';
  char reversed[12];
  int32_t n = 0;
  do {
    reversed[n++] = static_cast<char>('0' + precision % 10);
    precision /= 10;
  } while (precision > 0);
  while (n > 0) *d++ = reversed[--n];
  *d++ = static_cast<char>(conversion);
  *d = 0;

  char text[kWorkChars];
  text[0] = 0;
  int length = std::snprintf(text, sizeof text, directive, value);
  if (length < 0) {
    length = static_cast<int>(TextLengthMax(text, kWorkChars - 1));  // keep what was produced
  } else if (length > kWorkChars - 1) {
    length = kWorkChars - 1;
  }

  Ch work[kWorkChars + 1];
  Ch* body = work + 1;
  const char* digits = text;
  bool negative = false;
  if (length > 0 && text[0] == '-') {
    negative = true;
    ++digits;
    --length;
  }
  for (int i = 0; i < length; ++i) body[i] = static_cast<Ch>(static_cast<unsigned char>(digits[i]));
  Ch* prefix = body;
  if (negative) {
    *--prefix = Ch('-');
  } else if ((spec_.flags & Spec::kPlus) != 0) {
    *--prefix = Ch('+');
  } else if ((spec_.flags & Spec::kSpace) != 0) {
    *--prefix = Ch(' ');
  }
  // inf and nan are padded with blanks, as the C library does
  Field(prefix, static_cast<int32_t>(body - prefix), body, length, length > 0 && IsDigit(digits[0]));
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

template <class Ch>
void Engine<Ch>::SetDumpState(Ch conversion) {
  const Spec& spec = spec_;
  DumpState<Ch>& dump = MutableDump();
  if (conversion == Ch('v')) {
    dump.address_base = static_cast<uint64_t>(ArgLongLong());
    dump.address_group = spec.width_given ? spec.width : 0;
    dump.address_digits = spec.precision;
    return;
  }
  if (conversion == Ch('R') || conversion == Ch('r')) {
    const int32_t per_row = ArgInt();
    dump.bytes_per_row = per_row < 0 ? 0 : per_row > kMaxRowBytes ? kMaxRowBytes : per_row;
    dump.indent = spec.width > kMaxIndent ? kMaxIndent : spec.width;
    dump.first_column =
        spec.precision > 0 && dump.bytes_per_row > 0 ? spec.precision % dump.bytes_per_row : 0;
    dump.ruler = conversion == Ch('R');
    return;
  }
  const Ch* text = static_cast<const Ch*>(ArgPointer());
  if (conversion == Ch('k')) {
    dump.between_length = text != nullptr ? TextLengthMax(text, kBetweenMax) : 0;
    if (dump.between_length > 0) std::memcpy(dump.between, text, sizeof(Ch) * dump.between_length);
    return;
  }
  // %K: the first half goes before each byte, the rest after it
  const int32_t length = text != nullptr ? TextLength(text) : 0;
  const int32_t half = length / 2;
  dump.before_length = half < kBeforeAfterMax ? half : kBeforeAfterMax;
  dump.after_length = length - half < kBeforeAfterMax ? length - half : kBeforeAfterMax;
  if (dump.before_length > 0) std::memcpy(dump.before, text, sizeof(Ch) * dump.before_length);
  if (dump.after_length > 0) std::memcpy(dump.after, text + half, sizeof(Ch) * dump.after_length);
}

template <class Ch>
void Engine<Ch>::Dump(bool upper) {
  const unsigned char* bytes = static_cast<const unsigned char*>(ArgPointer());
  if (bytes == nullptr) return;
  const int32_t count =
      spec_.width_given ? spec_.width_arg : static_cast<int32_t>(std::strlen(reinterpret_cast<const char*>(bytes)));
  if (count < 1) return;
  MutableDump();
  RenderDump(this, bytes, count, upper);
}

// The child starts where the parent stands: same writer, the rest of the buffer, one level
// deeper; it inherits nothing of the parent's directive state.
template <class Ch>
typename Engine<Ch>::Sink Engine<Ch>::ChildSink() {
  if (out_ != nullptr) *out_ = 0;
  Sink child;
  child.writer = writer_;
  child.context = context_;
  if (sink_->buffer != nullptr) {  // what is left of the parent's buffer (room < 1 once it is full)
    child.buffer = sink_->buffer + static_cast<int32_t>(count_);
    child.room = static_cast<int32_t>(static_cast<uint32_t>(sink_->room) - count_);
  }
  child.level = sink_->level + 1;
  child.base_pos = static_cast<int32_t>(static_cast<uint32_t>(sink_->base_pos) + count_);
  child.quiet = sink_->quiet;
  return child;
}

template <class Ch>
void Engine<Ch>::AfterChild(int32_t produced) {
  if (produced <= 0) return;
  if (out_ != nullptr) {
    const std::ptrdiff_t room = out_end_ - out_;
    out_ += produced < room ? produced : room;
  }
  count_ += static_cast<uint32_t>(produced);
}

template <class Ch>
void Engine<Ch>::Nested() {
  const void* pointer = ArgPointer();
  const Ch* format;
  va_list* source;
  if (pointer != nullptr && StartsWithTag<Ch>(pointer, kNestedFormatTag)) {
    BasicNestedFormat<Ch> record;
    std::memcpy(&record, pointer, sizeof record);
    format = record.format;
    source = record.args;
  } else {
    format = static_cast<const Ch*>(pointer);
    source = static_cast<va_list*>(const_cast<void*>(ArgPointer()));
  }
  Sink child = ChildSink();
  int32_t produced;
  if (source != nullptr) {
    va_list args;  // a copy, so the same record can be formatted again
    va_copy(args, *source);
    produced = RunFormat(&child, format, &args);
    va_end(args);
  } else {
    produced = RunFormat<Ch>(&child, format, nullptr);
  }
  AfterChild(produced);
}

template <class Ch>
void Engine<Ch>::Callback() {
  const void* pointer = ArgPointer();
  if (pointer == nullptr) return;
  uint32_t tag;
  std::memcpy(&tag, pointer, sizeof tag);
  if (tag != kFormatCallbackTag) return;
  BasicFormatCallback<Ch> record;
  std::memcpy(&record, pointer, sizeof record);
  if (record.render == nullptr) return;
  Sink child = ChildSink();
  AfterChild(record.render(record.argument, &child));
}

template <class Ch>
int32_t RunFormat(BasicFormatSink<Ch>* sink, const Ch* format, va_list* args) {
  Engine<Ch> engine(sink, format, args);
  return engine.Run();
}

template <class Ch>
int32_t QuietToBuffer(Ch* buffer, int32_t capacity, const Ch* format, ...) {
  BasicFormatSink<Ch> sink;
  sink.buffer = buffer;
  sink.room = capacity;
  sink.quiet = true;
  va_list args;
  va_start(args, format);
  const int32_t count = RunFormat(&sink, format, &args);
  va_end(args);
  return count;
}

template class Engine<char>;
template class Engine<char16_t>;
template int32_t RunFormat(BasicFormatSink<char>*, const char*, va_list*);
template int32_t RunFormat(BasicFormatSink<char16_t>*, const char16_t*, va_list*);
template int32_t QuietToBuffer(char*, int32_t, const char*, ...);
template int32_t QuietToBuffer(char16_t*, int32_t, const char16_t*, ...);
template char* BuildDigits(char*, char*, uint64_t, unsigned, bool, int32_t, bool, const char*, int32_t, int32_t);
template char16_t* BuildDigits(char16_t*, char16_t*, uint64_t, unsigned, bool, int32_t, bool, const char16_t*,
                               int32_t, int32_t);

}  // namespace portwren::format_detail
