// Hex dumps (%m, %M): ruler, address column, byte cells. Rows are built in a stack area and
// leave the engine in large pieces, so a streaming sink sees few calls.
#include "format/format_engine.h"

namespace portwren::format_detail {

namespace {

constexpr int32_t kAreaChars = 2048;
constexpr int32_t kMaxItem = 64;   // the most one step writes before the next room check
constexpr int32_t kCellCopy = 32;  // a cell is copied whole from its template: at most 18 used

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

template <class Ch>
class DumpWriter {
 public:
  explicit DumpWriter(Engine<Ch>* engine) : engine_(engine) {}
  ~DumpWriter() { Flush(); }
  DumpWriter(const DumpWriter&) = delete;
  DumpWriter& operator=(const DumpWriter&) = delete;

  Ch*& cursor() { return p_; }
  // Makes room for n more characters (n <= kAreaChars).
  void Reserve(int32_t n = kMaxItem) {
    if (area_ + kAreaChars - p_ < n) Flush();
  }
  void Flush() {
    engine_->Put(area_, static_cast<int32_t>(p_ - area_));
    p_ = area_;
  }
  void Fill(Ch c, int32_t n) {
    while (n > 0) {
      Reserve();
      const int32_t k = n < kMaxItem ? n : kMaxItem;
      for (int32_t i = 0; i < k; ++i) p_[i] = c;
      p_ += k;
      n -= k;
    }
  }
  void Text(const Ch* text, int32_t n) {  // n <= kMaxItem
    Reserve();
    std::memcpy(p_, text, sizeof(Ch) * static_cast<std::size_t>(n));
    p_ += n;
  }

 private:
  Engine<Ch>* engine_;
  Ch area_[kAreaChars + kCellCopy];  // the slack takes the overrun of the last cell's copy
  Ch* p_ = area_;
};

int32_t HexDigitCount(uint64_t value) {
  int32_t n = 1;
  while (value >= 16) {
    value >>= 4;
    ++n;
  }
  return n;
}

// "%_%t%0.*llX" into a 40-character area.
template <class Ch>
int32_t FormatAddress(Ch* text, uint64_t address, int32_t digits, int32_t group, const Ch* separator,
                      int32_t separator_length) {
  Ch work[kWorkChars];
  Ch* const end = work + kWorkChars;
  const Ch* first = BuildDigits(end, work, address, 16, true, digits, false, separator, separator_length, group);
  int32_t length = static_cast<int32_t>(end - first);
  if (length > kAddressChars - 1) length = kAddressChars - 1;
  std::memcpy(text, first, sizeof(Ch) * static_cast<std::size_t>(length));
  return length;
}

}  // namespace

template <class Ch>
void RenderDump(Engine<Ch>* engine, const unsigned char* bytes, int32_t count, bool upper) {
  const DumpState<Ch>& state = engine->dump();
  const int32_t per_row = state.bytes_per_row;
  const int32_t between = state.between_length;
  const int32_t cell = state.before_length + 2 + state.after_length + between;
  const int32_t hex_at = state.before_length;
  const Ch* pairs = upper ? HexPairs<Ch>::upper.data() : HexPairs<Ch>::lower.data();
  const Ch* line_end = Settings<Ch>::line_end;
  const int32_t line_end_length = Settings<Ch>::line_end_length;

  Ch cell_template[kCellCopy];
  for (Ch& c : cell_template) c = Ch(' ');
  {
    Ch* t = cell_template;
    for (int32_t i = 0; i < state.before_length; ++i) *t++ = state.before[i];
    t += 2;
    for (int32_t i = 0; i < state.after_length; ++i) *t++ = state.after[i];
    for (int32_t i = 0; i < between; ++i) *t++ = state.between[i];
  }

  const bool with_address = state.ruler && per_row > 0;
  const int32_t first_column = per_row > 0 ? state.first_column : 0;
  int32_t separator_length = 0;
  const Ch* separator = engine->GroupSeparator(&separator_length);
  int32_t digits = 0;
  int32_t address_width = 0;
  Ch address[kAddressChars];
  if (with_address) {
    const uint64_t base = state.address_base;
    const uint64_t span = static_cast<uint64_t>(count) - 1;
    const uint64_t last = base > UINT64_MAX - span ? UINT64_MAX : base + span;
    digits = HexDigitCount(last);
    if (state.address_group > 0 && state.address_digits == 0) {
      digits = (digits + state.address_group - 1) / state.address_group * state.address_group;
    } else {
      const int32_t asked = state.address_digits < 0 ? 1 : state.address_digits;
      if (asked > digits) digits = asked;
    }
    address_width =
        FormatAddress(address, last, digits, state.address_group, separator, separator_length);
  }

  DumpWriter<Ch> out(engine);
  Ch*& p = out.cursor();

  if (with_address) {  // the ruler
    out.Fill(Ch(' '), state.indent);
    out.Fill(Ch('-'), address_width + 2);
    for (int32_t column = 0; column < per_row; ++column) {
      out.Fill(Ch('-'), state.before_length);
      out.Reserve();
      p[0] = HexPairs<Ch>::upper[2 * column];
      p[1] = HexPairs<Ch>::upper[2 * column + 1];
      p += 2;
      out.Fill(Ch('-'), state.after_length);
      if (column + 1 < per_row) out.Fill(Ch('-'), between);
    }
    out.Text(line_end, line_end_length);
  }

  uint64_t row_address = state.address_base - static_cast<uint64_t>(first_column);
  int32_t column = first_column;
  int32_t done = 0;
  while (done < count) {
    if (done > 0) out.Text(line_end, line_end_length);
    out.Fill(Ch(' '), state.indent);
    if (with_address) {
      out.Reserve();
      p += FormatAddress(p, row_address, digits, state.address_group, separator, separator_length);
      p[0] = Ch(':');
      p[1] = Ch(' ');
      p += 2;
      row_address += static_cast<uint64_t>(per_row);
    }
    if (column > 0) out.Fill(Ch(' '), column * cell);

    const int32_t left = count - done;
    const int32_t n = per_row > 0 && per_row - column < left ? per_row - column : left;
    const unsigned char* row = bytes + done;
    // The cells of a row usually fit at once; very wide rows are checked cell by cell.
    const bool check_each_cell = static_cast<int64_t>(n) * cell > kAreaChars;
    if (!check_each_cell) out.Reserve(n * cell);
    for (int32_t i = 0; i < n; ++i) {
      if (check_each_cell) out.Reserve(cell);
      std::memcpy(p, cell_template, sizeof cell_template);
      const Ch* hex = pairs + 2 * row[i];
      p[hex_at] = hex[0];
      p[hex_at + 1] = hex[1];
      p += cell;
    }
    p -= between;  // none after the row's last byte
    done += n;
    column = 0;
  }
}

template void RenderDump(Engine<char>*, const unsigned char*, int32_t, bool);
template void RenderDump(Engine<char16_t>*, const unsigned char*, int32_t, bool);

}  // namespace portwren::format_detail
