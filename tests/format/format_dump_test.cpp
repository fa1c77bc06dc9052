// Hex dumps: byte cells and their texts, rows, first column, ruler, address column, line ends.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::Counted;
using testing_format::InBuffer;
using testing_format::Pieces;

class FormatDump : public ::testing::Test {
 protected:
  void SetUp() override {
    SetFormatLineEnd(0);
    for (int i = 0; i < 256; ++i) bytes_[i] = static_cast<unsigned char>(i);
  }
  void TearDown() override { SetFormatLineEnd(0); }

  unsigned char bytes_[256];
};

// Lower-case cells "xx" of the bytes, joined by `between`.
std::string Cells(const unsigned char* data, std::size_t count, const char* between = " ") {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) text += between;
    text += "0123456789abcdef"[data[i] >> 4];
    text += "0123456789abcdef"[data[i] & 15];
  }
  return text;
}

// Column labels of a ruler with one "-" between columns: "00-01-...".
std::string Labels(int columns) {
  std::string text;
  for (int i = 0; i < columns; ++i) {
    if (i > 0) text += '-';
    text += "0123456789ABCDEF"[i >> 4];
    text += "0123456789ABCDEF"[i & 15];
  }
  return text;
}

// Zero bytes per row: all in one row, and %R brings neither ruler nor address. A count below
// one or no bytes: nothing; no width: the bytes are a string. The text between cells keeps eight
// characters; %K splits one text: its first character before each byte, the rest after it (four
// of each half kept).
TEST_F(FormatDump, CellsAndTheTextsAroundThem) {
  const unsigned char data[] = {0x00, 0x01, 0xAB, 0xFF, 0x10};
  EXPECT_FORMAT("00 01 ab ff 10|00 01 AB FF 10", "%k%r%*m|%*M", " ", 0, 5, data, 5, data);
  EXPECT_FORMAT("00 01 ab ff 10", "%k%R%v%*m", " ", 0, 0x100ull, 5, data);
  EXPECT_FORMAT("dump: 0001abff10.", "dump: %*m.", 5, data);
  EXPECT_FORMAT("41 42 43|[||]", "%k%m|%m[%R%*m|%*m|%*m]", " ", "ABC", "", 16, 0, bytes_, -3, bytes_, 4,
                static_cast<const unsigned char*>(nullptr));
  EXPECT_FORMAT("000123456701|00, 01|0001", "%k%*m|%k%*m|%k%*m", "0123456789", 2, data, ", ", 2, data,
                static_cast<const char*>(nullptr), 2, data);
  EXPECT_FORMAT("<00=><01=><ab=>|00'01'ab'|abcdfffghi|(00) (01) (ab)", "%K%*m|%K%*m|%K%*m|%K%k%*m", "<=>", 3,
                data, "'", 3, data, "abcdefghij", 1, data + 3, "()", " ", 3, data);
  // The settings print nothing and last one call.
  EXPECT_EQ(Counted(0, ""), InBuffer(64, "%k%K%R%t%4v", "-", "<>", 4, ".", 100ull));
  EXPECT_FORMAT("0001", "%*m", 2, data);
}

TEST_F(FormatDump, RowsIndentationFirstColumnAndLineEnd) {
  EXPECT_FORMAT((Cells(bytes_, 16) + "\n" + Cells(bytes_ + 16, 4)).c_str(), "%k%r%*m", " ", 16, 20, bytes_);
  EXPECT_FORMAT((Cells(bytes_, 16) + "\n" + Cells(bytes_ + 16, 16)).c_str(), "%k%r%*m", " ", 16, 32, bytes_);
  // Indentation precedes every line, ruler included; "*" takes it from the arguments, and
  // it is cut to 64.
  EXPECT_FORMAT("    01 02\n    03", "%k%4r%*m", " ", 2, 3, bytes_ + 1);
  EXPECT_FORMAT("  ---00-01\n  0: 01 02\n  2: 03", "%k%2R%v%*m", " ", 2, 0ull, 3, bytes_ + 1);
  EXPECT_FORMAT("[   ab]", "[%k%*r%*m]", " ", -3, 0, 1, bytes_ + 0xAB);
  EXPECT_FORMAT((std::string(64, ' ') + "07").c_str(), "%100r%*m", 0, 1, bytes_ + 7);
  // 4 bytes at column 14 of 16: the first row shows 14 blank cells and two bytes, its address
  // being the base minus 14; the second shows two bytes at column 0.
  const unsigned char data[] = {0xA0, 0xA1, 0xA2, 0xA3};
  const std::string ruler = "-----" + Labels(16);
  const std::string expected = ruler + "\n0F2: " + std::string(14 * 3, ' ') + "a0 a1\n102: a2 a3";
  EXPECT_FORMAT(expected.c_str(), "%k%.*R%v%*m", " ", 14, 16, 0x100ull, 4, data);
  EXPECT_FORMAT((std::string(42, ' ') + "a0 a1\na2 a3").c_str(), "%k%.*r%*m", " ", 14, 16, 4, data);
  // The first column is taken within the row.
  EXPECT_FORMAT("   a0 a1\na2", "%k%.*r%*m", " ", 4, 3, 3, data);  // 4 mod 3: column 1
  EXPECT_FORMAT("a0 a1 a2", "%k%.*r%*m", " ", 6, 3, 3, data);
  // Rows are cut to 256 bytes.
  const std::vector<unsigned char> many(300, 0x5A);
  EXPECT_FORMAT((Cells(many.data(), 256, "") + "\n" + Cells(many.data(), 44, "")).c_str(), "%r%*m", 1000, 300,
                many.data());
  // Rows are separated by the engine's line end.
  SetFormatLineEnd(1);
  EXPECT_FORMAT("---00\r\n0: 01\r\n1: 02\r\n2: 03", "%R%v%*m", 1, 0ull, 3, bytes_ + 1);
  SetFormatLineEnd(2);
  EXPECT_FORMAT("01\r02\r03", "%r%*m", 1, 3, bytes_ + 1);
  SetFormatLineEnd(7);
  EXPECT_FORMAT("01\n02\n03", "%r%*m", 1, 3, bytes_ + 1);
}

TEST_F(FormatDump, RulerAndAddressColumn) {
  const unsigned char data[] = {0x10, 0x20};
  // Address of 1 digit: "-" x 3, then per column before (1), label, after (1), between (2).
  EXPECT_FORMAT("----00---01-\n0: <10> <20>", "%K%k%R%v%*m", "<>", " ", 2, 0ull, 2, data);
  EXPECT_FORMAT("---00-01\n0: 10 20", "%k%R%v%*m", " ", 2, 0ull, 2, data);
  // The echo form: stream offset 0x12345678, first column 8, address digits from the last byte.
  const std::string echo = "-----------" + Labels(16) + "\n1234.5670: " + std::string(8 * 3, ' ') +
                           Cells(bytes_, 8) + "\n1234.5680: " + Cells(bytes_ + 8, 12);
  EXPECT_FORMAT(echo.c_str(), "%k%0.*R%t%4.0v%*m", " ", 8, 16, ".", 0x12345678ull, 20, bytes_);
  // Address digits round to whole groups: 0x10000 has five digits, precision 0 makes two groups
  // of four, no precision keeps five, a larger precision wins, and without a group size the
  // separator is not used.
  EXPECT_FORMAT("-----------00\n0001.0000: ee", "%R%t%4.0v%*m", 1, ".", 0x10000ull, 1, bytes_ + 0xEE);
  EXPECT_FORMAT("--------00\n1.0000: ee", "%R%t%4v%*m", 1, ".", 0x10000ull, 1, bytes_ + 0xEE);
  EXPECT_FORMAT("---------00\n01.0000: ee", "%R%t%4.6v%*m", 1, ".", 0x10000ull, 1, bytes_ + 0xEE);
  EXPECT_FORMAT("-------00\n10000: ee", "%R%t%v%*m", 1, ".", 0x10000ull, 1, bytes_ + 0xEE);
  EXPECT_FORMAT("---------00\n0010000: ee", "%R%.7v%*m", 1, 0x10000ull, 1, bytes_ + 0xEE);
  // A group near the int maximum is still one group: its 80 digits are cut to the 39 of the area.
  const std::string zeros(39, '0');
  for (const int32_t group : {INT32_MAX, INT32_MAX - 1}) {
    EXPECT_FORMAT((std::string(41, '-') + "00\n" + zeros + ": 01\n" + zeros + ": 02").c_str(), "%R%*.0v%*m",
                  1, group, 0x100ull, 2, bytes_ + 1);
  }
  // The last byte's address decides: from 0xFFFF one byte has four digits, two have five.
  EXPECT_FORMAT("------00\nFFFF: ee", "%R%4.0v%*m", 1, 0xFFFFull, 1, bytes_ + 0xEE);
  EXPECT_FORMAT("-----------00\n0000.FFFF: 01\n0001.0000: 02", "%R%t%4.0v%*m", 1, ".", 0xFFFFull, 2,
                bytes_ + 1);
  // That address may overflow.
  EXPECT_FORMAT("------------------00-01\nFFFFFFFFFFFFFFFE: 01 02\n0000000000000000: 03", "%k%R%v%*m", " ", 2,
                0xFFFFFFFFFFFFFFFEull, 3, bytes_ + 1);
}

// Rows leave the engine in big pieces, and one long row in several; they must add up to the text.
TEST_F(FormatDump, LargeDumpsStreamTheSameTextAsTheBuffer) {
  std::vector<unsigned char> data(16000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + 3);
  // From 0: four digits. From 0xFF09 (column 9): the addresses run past 0xFFFF into a second group
  // of four, the carry crossing the separator.
  for (const uint64_t base : {uint64_t{0}, uint64_t{0xFF09}}) {
    const int column = static_cast<int>(base % 16);
    const bool two_groups = base + data.size() > 0x10000;
    std::string expected = (two_groups ? "-----------" : "------") + Labels(16);
    for (uint64_t at = base - column, done = 0; done < data.size(); at += 16) {
      char address[16];
      std::snprintf(address, sizeof address, "%04X.%04X", static_cast<unsigned>(at >> 16),
                    static_cast<unsigned>(at & 0xFFFF));
      const std::size_t n = std::min<std::size_t>(16 - (done == 0 ? column : 0), data.size() - done);
      expected += "\n" + std::string(two_groups ? address : address + 5) + ": " +
                  std::string(done == 0 ? column * 3 : 0, ' ') + Cells(data.data() + done, n);
      done += n;
    }
    std::vector<char> buffer(expected.size() + 1);
    Pieces<char> pieces(buffer.data(), static_cast<int32_t>(buffer.size()));
    const int32_t count =
        FormatToSink(&pieces.sink, "%k%0.*R%t%4.0v%*m", " ", column, 16, ".", base, 16000, data.data());
    EXPECT_EQ(static_cast<int32_t>(expected.size()), count);
    EXPECT_EQ(expected, std::string(buffer.data()));
    EXPECT_EQ(expected, pieces.text);
    EXPECT_LT(pieces.list.size(), 100u);
  }

  const std::vector<unsigned char> row(5000, 0x11);
  Pieces<char> long_row;
  EXPECT_EQ(5000 * 3 - 1, FormatToSink(&long_row.sink, "%k%*m", " ", 5000, row.data()));
  EXPECT_EQ(Cells(row.data(), 5000), long_row.text);
  EXPECT_GT(long_row.list.size(), 1u);
}

}  // namespace
}  // namespace portwren
