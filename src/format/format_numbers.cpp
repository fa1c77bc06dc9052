// Integers, pointers and floating point: digits built right to left in a small work area.
#include <cstdio>

#include "format/format_engine.h"

namespace portwren::format_detail {

namespace {

constexpr int32_t kExactDecimals = 1074;

// The digits alone, ending just before `end`; at most kMaxDigits of them.
template <class Ch>
Ch* PlainDigits(Ch* end, uint64_t value, unsigned base, bool upper, int32_t min_digits, bool octal_alt) {
  Ch* p = end;
  if (base == 10) {
    while (value > 0xFFFFFFFFu) {
      const unsigned pair = static_cast<unsigned>(value % 100) * 2;
      value /= 100;
      p -= 2;
      p[0] = Ch(kDigitPairs[pair]);
      p[1] = Ch(kDigitPairs[pair + 1]);
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
  Ch* body = BuildDigits(
      end, work + 4, magnitude, base, conversion == Ch('X'), spec_.precision < 0 ? 1 : spec_.precision,
      alt && conversion == Ch('o'), decimal_grouping ? decimal_separator_ : separator_,
      decimal_grouping ? decimal_separator_length_ : separator_length_, decimal_grouping ? 3 : group_);
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
  Ch* body =
      BuildDigits(end, work + 4, value, 16, upper, digits, false, separator_, separator_length_, group_);
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
  // Rounding at any precision can carry into the 127 characters kept, so a large one is not
  // cut to the area. A double is exact in 1074 decimals (767 significant digits); beyond that
  // the library only adds zeros, yet would build them all (gigabytes for a precision near 2^31).
  if (precision > kExactDecimals) precision = kExactDecimals;

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

template char* BuildDigits(char*, char*, uint64_t, unsigned, bool, int32_t, bool, const char*, int32_t,
                           int32_t);
template char16_t* BuildDigits(char16_t*, char16_t*, uint64_t, unsigned, bool, int32_t, bool, const char16_t*,
                               int32_t, int32_t);
template void Engine<char>::Integer(char);
template void Engine<char16_t>::Integer(char16_t);
template void Engine<char>::Pointer(char);
template void Engine<char16_t>::Pointer(char16_t);
template void Engine<char>::Float(char);
template void Engine<char16_t>::Float(char16_t);

}  // namespace portwren::format_detail
