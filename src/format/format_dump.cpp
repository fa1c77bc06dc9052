// Hex dumps: the state directives (%k %K %R %r %v) and the dump itself (%m %M) with ruler,
// address column and byte cells. Rows are built in a stack area and leave the engine in large
// pieces, so a streaming sink sees few calls.
//
// The write cursor is kept in a local variable throughout: held in a structure, every byte
// stored through it might alias the cursor itself, and the compiler would reload it each time.
#include <optional>

#include "format/format_engine.h"

namespace portwren::format_detail {

namespace {

constexpr int32_t kAreaChars = 2048;
constexpr int32_t kSlack = 64;               // room past the area for whole-block copies
constexpr int32_t kRowTemplateChars = 1024;  // rows up to this long are copied whole
constexpr int32_t kCellChars = 32;           // a cell is at most 4 + 2 + 4 + 8 = 18 characters
constexpr int32_t kBlock = 16;               // bytes copied at once
constexpr int32_t kWordCellsFrom = 96;       // bytes from which a table of whole cells pays

template <class Ch>
struct HexPairs {
  static constexpr std::array<Ch, 512> Make(const char* digits) {
    std::array<Ch, 512> pairs{};
    for (int i = 0; i < 256; ++i) {
      pairs[2 * i] = Ch(digits[i >> 4]);
      pairs[2 * i + 1] = Ch(digits[i & 15]);
    }
    return pairs;
  }
  static constexpr std::array<Ch, 512> lower = Make("0123456789abcdef");
  static constexpr std::array<Ch, 512> upper = Make("0123456789ABCDEF");
};

// Copies n characters in whole blocks; may write up to one block past the end (into the slack).
template <class Ch>
inline void CopyBlocks(Ch* to, const Ch* from, int32_t n) {
  auto* d = reinterpret_cast<unsigned char*>(to);
  const auto* s = reinterpret_cast<const unsigned char*>(from);
  const std::ptrdiff_t bytes = static_cast<std::ptrdiff_t>(n) * static_cast<std::ptrdiff_t>(sizeof(Ch));
  for (std::ptrdiff_t i = 0; i < bytes; i += kBlock) std::memcpy(d + i, s + i, kBlock);
}

int32_t HexDigitCount(uint64_t value) {
  int32_t n = 1;
  while (value >= 16) {
    value >>= 4;
    ++n;
  }
  return n;
}

// An address of `digits` digits as AddressText writes it in the usual case, right to left
// ending at `end`.
template <class Ch>
void WriteDigits(Ch* end, uint64_t address, int32_t digits, int32_t group, int32_t separator_length,
                 const Ch* separator) {
  const bool grouped = group > 0 && separator_length > 0;
  Ch* d = end;
  int32_t in_group = 0;
  for (int32_t i = 0; i < digits; ++i) {
    if (grouped && in_group == group) {
      d -= separator_length;
      for (int32_t k = 0; k < separator_length; ++k) d[k] = separator[k];
      in_group = 0;
    }
    *--d = HexPairs<Ch>::upper[2 * (address & 15) + 1];
    address >>= 4;
    ++in_group;
  }
}

// The length of an address of `digits` digits in the usual case, or -1 if it is not one: the
// address does not fit in 16 digits, or its text would be cut.
int32_t UsualAddressLength(int32_t digits, int32_t group, int32_t separator_length) {
  if (digits > 16) return -1;
  const bool grouped = group > 0 && separator_length > 0;
  const int32_t length = digits + (grouped ? (digits - 1) / group * separator_length : 0);
  return length <= kAddressChars - 1 ? length : -1;
}

// One address as "%_%t%0.*llX" would print it, cut to the 40-character area. Returns its length.
template <class Ch>
int32_t AddressText(Ch* text, uint64_t address, int32_t digits, int32_t group, const Ch* separator,
                    int32_t separator_length) {
  const int32_t usual = UsualAddressLength(digits, group, separator_length);
  if (usual >= 0 && (digits >= 16 || (address >> (4 * digits)) == 0)) {  // written directly, right to left
    WriteDigits(text + usual, address, digits, group, separator_length, separator);
    return usual;
  }
  Ch work[kWorkChars];
  Ch* const end = work + kWorkChars;
  const Ch* first =
      BuildDigits(end, work, address, 16, true, digits, false, separator, separator_length, group);
  int32_t length = static_cast<int32_t>(end - first);
  if (length > kAddressChars - 1) length = kAddressChars - 1;
  std::memcpy(text, first, sizeof(Ch) * static_cast<std::size_t>(length));
  return length;
}

// The address column of a dump's rows. Consecutive rows differ in their low digits only, so the
// last text is kept and only the digits that changed are written again, each at the place that
// AddressText gives it.
template <class Ch>
class AddressColumn {
 public:
  AddressColumn(int32_t digits, int32_t group, const Ch* separator, int32_t separator_length)
      : digits_(digits),
        group_(group),
        separator_(separator),
        separator_length_(separator_length),
        usual_(UsualAddressLength(digits, group, separator_length)),
        high_(digits >= 16 ? 0 : ~uint64_t{0} << (4 * (digits > 0 ? digits : 0))) {
    if (usual_ < 0) return;
    const bool grouped = group > 0 && separator_length > 0;
    int32_t d = usual_;
    int32_t in_group = 0;
    for (int32_t i = 0; i < digits; ++i) {
      if (grouped && in_group == group) {
        d -= separator_length;
        in_group = 0;
      }
      place_[i] = --d;
      ++in_group;
    }
  }

  // The text of `address`; valid until the next call. Reading up to a block past its end is safe.
  const Ch* Text(uint64_t address, int32_t* length) {
    if (kept_ && (address & high_) == 0) {
      int32_t k = 0;  // both fit in digits_: at most that many changed
      for (uint64_t changed = address ^ address_, digit = address; changed != 0; changed >>= 4, digit >>= 4) {
        text_[place_[k++]] = HexPairs<Ch>::upper[2 * (digit & 15) + 1];
      }
    } else {
      length_ = AddressText(text_, address, digits_, group_, separator_, separator_length_);
      kept_ = usual_ >= 0 && (address & high_) == 0;
    }
    address_ = address;
    *length = length_;
    return text_;
  }

 private:
  const int32_t digits_;
  const int32_t group_;
  const Ch* const separator_;
  const int32_t separator_length_;
  const int32_t usual_;
  const uint64_t high_;     // bits that do not fit in digits_
  int32_t place_[16] = {};  // where each digit sits in text_, lowest first
  bool kept_ = false;       // text_ holds address_ in the usual layout
  uint64_t address_ = 0;
  int32_t length_ = 0;
  Ch text_[kAddressChars + kBlock] = {};
};

// Every byte's cell when it is at most four characters with the digits first: each cell is
// stored in one piece, four characters at a time, its spill overwritten by the next cell's.
template <class Ch>
struct CellWords {
  Ch cells[256][4];

  CellWords(const Ch* pairs, const Ch* cell_template) {
    for (int b = 0; b < 256; ++b) {
      cells[b][0] = pairs[2 * b];
      cells[b][1] = pairs[2 * b + 1];
      cells[b][2] = cell_template[2];
      cells[b][3] = cell_template[3];
    }
  }

  // n cells of `cell` characters at q; writes up to 4 - cell characters past the last one.
  void Put(Ch* q, const unsigned char* row, int32_t n, int32_t cell) const {
    int32_t i = 0;
    for (; i + 4 <= n; i += 4, q += 4 * cell) {
      std::memcpy(q, cells[row[i]], 4 * sizeof(Ch));
      std::memcpy(q + cell, cells[row[i + 1]], 4 * sizeof(Ch));
      std::memcpy(q + 2 * cell, cells[row[i + 2]], 4 * sizeof(Ch));
      std::memcpy(q + 3 * cell, cells[row[i + 3]], 4 * sizeof(Ch));
    }
    for (; i < n; ++i, q += cell) std::memcpy(q, cells[row[i]], 4 * sizeof(Ch));
  }
};

// The stack area and its way out to the engine.
template <class Ch>
struct DumpArea {
  Engine<Ch>* engine;
  Ch chars[kAreaChars + kSlack];

  // Returns where to write n more characters (n <= kAreaChars), emptying the area first if needed.
  Ch* Reserve(Ch* at, int32_t n) {
    if (chars + kAreaChars - at >= n) return at;
    return Flush(at);
  }
  Ch* Flush(Ch* at) {
    engine->Put(chars, static_cast<int32_t>(at - chars));
    return chars;
  }
  Ch* Fill(Ch* at, Ch c, int32_t n) {
    while (n > 0) {
      const int32_t k = n < kAreaChars ? n : kAreaChars;
      at = Reserve(at, k);
      for (int32_t i = 0; i < k; ++i) at[i] = c;
      at += k;
      n -= k;
    }
    return at;
  }
};

}  // namespace

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
  const int32_t count = spec_.width_given
                            ? spec_.width_arg
                            : static_cast<int32_t>(std::strlen(reinterpret_cast<const char*>(bytes)));
  if (count < 1) return;
  MutableDump();
  RenderDump(this, bytes, count, upper);
}

template <class Ch>
void RenderDump(Engine<Ch>* engine, const unsigned char* bytes, int32_t count, bool upper) {
  const DumpState<Ch>& state = engine->dump();
  const int32_t per_row = state.bytes_per_row;
  const int32_t between = state.between_length;
  const int32_t cell = state.before_length + 2 + state.after_length + between;
  const int32_t hex_at = state.before_length;
  const Ch* const pairs = upper ? HexPairs<Ch>::upper.data() : HexPairs<Ch>::lower.data();
  const Ch* const line_end = Settings<Ch>::line_end;
  const int32_t line_end_length = Settings<Ch>::line_end_length;

  // One cell; and a table of whole cells, or else as many cells as make a row when that is short
  // enough to copy whole.
  Ch cell_template[kCellChars];
  {
    Ch* t = cell_template;
    for (int32_t i = 0; i < state.before_length; ++i) *t++ = state.before[i];
    *t++ = Ch('0');
    *t++ = Ch('0');
    for (int32_t i = 0; i < state.after_length; ++i) *t++ = state.after[i];
    for (int32_t i = 0; i < between; ++i) *t++ = state.between[i];
    while (t < cell_template + kCellChars) *t++ = Ch(' ');
  }
  std::optional<CellWords<Ch>> words;
  if (state.before_length == 0 && cell >= 2 && cell <= 4 && count >= kWordCellsFrom)
    words.emplace(pairs, cell_template);
  const bool whole_rows = !words && per_row > 0 && per_row * cell <= kRowTemplateChars;
  Ch row_template[kRowTemplateChars + kBlock];
  if (whole_rows) {
    for (int32_t i = 0; i < per_row; ++i)
      std::memcpy(row_template + i * cell, cell_template, sizeof(Ch) * cell);
    for (int32_t i = per_row * cell; i < per_row * cell + kBlock; ++i) row_template[i] = Ch(' ');
  }

  const bool with_address = state.ruler && per_row > 0;
  const int32_t first_column = per_row > 0 ? state.first_column : 0;
  int32_t separator_length = 0;
  const Ch* const separator = engine->GroupSeparator(&separator_length);
  int32_t digits = 0;
  int32_t address_width = 0;
  if (with_address) {
    const uint64_t base = state.address_base;
    const uint64_t span = static_cast<uint64_t>(count) - 1;
    const uint64_t last = base > UINT64_MAX - span ? UINT64_MAX : base + span;
    digits = HexDigitCount(last);
    if (state.address_group > 0 && state.address_digits == 0) {
      digits += (state.address_group - digits % state.address_group) % state.address_group;  // no overflow
    } else {
      const int32_t asked = state.address_digits < 0 ? 1 : state.address_digits;
      if (asked > digits) digits = asked;
    }
    Ch address[kAddressChars];
    address_width = AddressText(address, last, digits, state.address_group, separator, separator_length);
  }
  AddressColumn<Ch> addresses(digits, state.address_group, separator, separator_length);

  DumpArea<Ch> area;
  area.engine = engine;
  Ch* q = area.chars;

  if (with_address) {  // the ruler
    q = area.Fill(q, Ch(' '), state.indent);
    q = area.Fill(q, Ch('-'), address_width + 2);
    for (int32_t column = 0; column < per_row; ++column) {
      q = area.Fill(q, Ch('-'), state.before_length);
      q = area.Reserve(q, 2);
      q[0] = HexPairs<Ch>::upper[2 * column];
      q[1] = HexPairs<Ch>::upper[2 * column + 1];
      q += 2;
      q = area.Fill(q, Ch('-'), state.after_length);
      if (column + 1 < per_row) q = area.Fill(q, Ch('-'), between);
    }
    q = area.Reserve(q, line_end_length);
    for (int32_t i = 0; i < line_end_length; ++i) *q++ = line_end[i];
  }

  uint64_t row_address = state.address_base - static_cast<uint64_t>(first_column);
  int32_t column = first_column;
  int32_t done = 0;
  while (done < count) {
    const int32_t left = count - done;
    const int32_t n = per_row > 0 && per_row - column < left ? per_row - column : left;
    const int32_t cells_length = n * cell - between;  // none after the row's last byte
    const bool row_fits = whole_rows && column == 0;

    // Everything before the bytes: line end, indentation, address, blank cells.
    q = area.Reserve(q, line_end_length + state.indent + kAddressChars + 2);
    if (done > 0) {  // two characters whatever its length: the area has room past the end
      std::memcpy(q, line_end, 2 * sizeof(Ch));
      q += line_end_length;
    }
    for (int32_t i = 0; i < state.indent; ++i) *q++ = Ch(' ');
    if (with_address) {
      int32_t length = 0;
      const Ch* text = addresses.Text(row_address, &length);
      if (length <= kBlock) {
        std::memcpy(q, text, kBlock * sizeof(Ch));
      } else {
        CopyBlocks(q, text, length);
      }
      q += length;
      q[0] = Ch(':');
      q[1] = Ch(' ');
      q += 2;
      row_address += static_cast<uint64_t>(per_row);
    }
    if (column > 0) q = area.Fill(q, Ch(' '), column * cell);

    const unsigned char* row = bytes + done;
    if (words) {  // whole cells from the table, at most a row's worth at a time
      int32_t i = 0;
      for (int32_t k = n; k > kMaxRowBytes; k -= kMaxRowBytes, i += kMaxRowBytes) {  // no row size
        q = area.Reserve(q, kMaxRowBytes * cell + 4);
        words->Put(q, row + i, kMaxRowBytes, cell);
        q += kMaxRowBytes * cell;
      }
      q = area.Reserve(q, (n - i) * cell + 4);
      words->Put(q, row + i, n - i, cell);
      q += (n - i) * cell - between;
    } else if (row_fits) {  // the whole row at once, then its digits
      q = area.Reserve(q, cells_length);
      CopyBlocks(q, row_template, cells_length);
      for (int32_t i = 0; i < n; ++i) std::memcpy(q + i * cell + hex_at, pairs + 2 * row[i], 2 * sizeof(Ch));
      q += cells_length;
    } else {  // cell by cell
      for (int32_t i = 0; i < n; ++i) {
        q = area.Reserve(q, cell);
        CopyBlocks(q, cell_template, cell);
        std::memcpy(q + hex_at, pairs + 2 * row[i], 2 * sizeof(Ch));
        q += cell;
      }
      q -= between;
    }
    done += n;
    column = 0;
  }
  area.Flush(q);
}

template void RenderDump(Engine<char>*, const unsigned char*, int32_t, bool);
template void RenderDump(Engine<char16_t>*, const unsigned char*, int32_t, bool);
template void Engine<char>::SetDumpState(char);
template void Engine<char16_t>::SetDumpState(char16_t);
template void Engine<char>::Dump(bool);
template void Engine<char16_t>::Dump(bool);

}  // namespace portwren::format_detail
