// Hex dumps: byte cells and their texts, rows, first column, ruler, address column, line ends.
#include <string>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::CollectPiece;
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

// Cells "xx" of bytes first..first+count-1 joined by one blank.
std::string Cells(int first, int count) {
  static const char* const kHex = "0123456789abcdef";
  std::string text;
  for (int i = first; i < first + count; ++i) {
    if (i > first) text += ' ';
    text += kHex[(i >> 4) & 15];
    text += kHex[i & 15];
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

TEST_F(FormatDump, OneRowWhenBytesPerRowIsZero) {
  const unsigned char data[] = {0x00, 0x01, 0xAB, 0xFF, 0x10};
  EXPECT_FORMAT("00 01 ab ff 10", "%k%r%*m", " ", 0, 5, data);
  EXPECT_FORMAT("00 01 AB FF 10", "%k%r%*M", " ", 0, 5, data);
  // %R does not bring ruler or address without a row width.
  EXPECT_FORMAT("00 01 ab ff 10", "%k%R%v%*m", " ", 0, 0x100ull, 5, data);
  EXPECT_FORMAT("0001abff10", "%*m", 5, data);
  EXPECT_FORMAT(Cells(0, 40).c_str(), "%k%r%*m", " ", 0, 40, bytes_);
}

TEST_F(FormatDump, TwentyBytesInRowsOfSixteen) {
  const std::string expected = Cells(0, 16) + "\n" + Cells(16, 4);
  EXPECT_FORMAT(expected.c_str(), "%k%r%*m", " ", 16, 20, bytes_);
  EXPECT_FORMAT((Cells(0, 16) + "\n" + Cells(16, 16)).c_str(), "%k%r%*m", " ", 16, 32, bytes_);
}

TEST_F(FormatDump, CountBelowOneOrNoBytesPrintNothing) {
  EXPECT_FORMAT("[]", "[%k%R%*m]", " ", 16, 0, bytes_);
  EXPECT_FORMAT("[]", "[%k%R%*m]", " ", 16, -3, bytes_);
  EXPECT_FORMAT("[]", "[%k%R%*m]", " ", 16, 4, static_cast<const unsigned char*>(nullptr));
}

TEST_F(FormatDump, WithoutWidthTheBytesAreAString) {
  EXPECT_FORMAT("41 42 43", "%k%m", " ", "ABC");
  EXPECT_FORMAT("[]", "[%m]", "");
}

TEST_F(FormatDump, BetweenTextKeepsEightCharacters) {
  const unsigned char data[] = {1, 2};
  EXPECT_FORMAT("010123456702", "%k%*m", "0123456789", 2, data);
  EXPECT_FORMAT("01, 02", "%k%*m", ", ", 2, data);
  EXPECT_FORMAT("0102", "%k%*m", static_cast<const char*>(nullptr), 2, data);
}

TEST_F(FormatDump, BeforeAndAfterTextsSplitFromOne) {
  const unsigned char data[] = {1, 2, 3};
  // Three characters: the first goes before each byte, the other two after it.
  EXPECT_FORMAT("<01=><02=><03=>", "%K%*m", "<=>", 3, data);
  EXPECT_FORMAT("(01) (02) (03)", "%K%k%*m", "()", " ", 3, data);
  EXPECT_FORMAT("01'02'03'", "%K%*m", "'", 3, data);  // one character: all of it after
  const unsigned char ff[] = {0xFF};
  EXPECT_FORMAT("abcdfffghi", "%K%*m", "abcdefghij", 1, ff);  // four of each half kept
}

TEST_F(FormatDump, IndentationPrecedesEveryLine) {
  EXPECT_FORMAT("    01 02\n    03", "%k%4r%*m", " ", 2, 3, bytes_ + 1);
  EXPECT_FORMAT("  ---00-01\n  0: 01 02\n  2: 03", "%k%2R%v%*m", " ", 2, 0ull, 3, bytes_ + 1);
  EXPECT_FORMAT("[   ab]", "[%k%*r%*m]", " ", -3, 0, 1, bytes_ + 0xAB);  // "*" width, negative
  const std::string sixty_four(64, ' ');
  EXPECT_FORMAT((sixty_four + "07").c_str(), "%100r%*m", 0, 1, bytes_ + 7);  // cut to 64
}

TEST_F(FormatDump, FirstColumnLeavesBlankCells) {
  // 4 bytes at column 14 of 16: the first row shows 14 blank cells and two bytes, its address
  // being the base minus 14; the second shows two bytes at column 0.
  const unsigned char data[] = {0xA0, 0xA1, 0xA2, 0xA3};
  const std::string ruler = "-----" + Labels(16);
  const std::string expected = ruler + "\n0F2: " + std::string(14 * 3, ' ') + "a0 a1\n102: a2 a3";
  EXPECT_FORMAT(expected.c_str(), "%k%.*R%v%*m", " ", 14, 16, 0x100ull, 4, data);
  // Without the ruler, the same layout with no address.
  EXPECT_FORMAT((std::string(42, ' ') + "a0 a1\na2 a3").c_str(), "%k%.*r%*m", " ", 14, 16, 4, data);
}

TEST_F(FormatDump, FirstColumnIsTakenWithinTheRow) {
  const unsigned char data[] = {1, 2, 3};
  EXPECT_FORMAT("   01 02\n03", "%k%.*r%*m", " ", 4, 3, 3, data);  // 4 mod 3: column 1
  EXPECT_FORMAT("01 02 03", "%k%.*r%*m", " ", 6, 3, 3, data);
}

TEST_F(FormatDump, RulerMarksEveryColumn) {
  const unsigned char data[] = {0x10, 0x20};
  // Address of 1 digit: "-" x 3, then per column before (1), label, after (1), between (2).
  EXPECT_FORMAT("----00---01-\n0: <10> <20>", "%K%k%R%v%*m", "<>", " ", 2, 0ull, 2, data);
  EXPECT_FORMAT("---00-01\n0: 10 20", "%k%R%v%*m", " ", 2, 0ull, 2, data);
}

TEST_F(FormatDump, EchoFormWithGroupedAddresses) {
  // Stream offset 0x12345678: first column 8, address digits from the last byte, 0x1234568B.
  const std::string ruler = "-----------" + Labels(16);
  const std::string expected = ruler + "\n1234.5670: " + std::string(8 * 3, ' ') + Cells(0, 8) +
                               "\n1234.5680: " + Cells(8, 12);
  EXPECT_FORMAT(expected.c_str(), "%k%0.*R%t%4.0v%*m", " ", 8, 16, ".", 0x12345678ull, 20, bytes_);
}

TEST_F(FormatDump, AddressDigitsRoundToWholeGroups) {
  const unsigned char data[] = {0xEE};
  // 0x10000 has five digits: precision 0 rounds up to two groups of four ...
  EXPECT_FORMAT("-----------00\n0001.0000: ee", "%R%t%4.0v%*m", 1, ".", 0x10000ull, 1, data);
  // ... no precision keeps five digits ...
  EXPECT_FORMAT("--------00\n1.0000: ee", "%R%t%4v%*m", 1, ".", 0x10000ull, 1, data);
  // ... a larger precision wins ...
  EXPECT_FORMAT("---------00\n01.0000: ee", "%R%t%4.6v%*m", 1, ".", 0x10000ull, 1, data);
  // ... and without a group size the separator is not used.
  EXPECT_FORMAT("-------00\n10000: ee", "%R%t%v%*m", 1, ".", 0x10000ull, 1, data);
  EXPECT_FORMAT("---------00\n0010000: ee", "%R%.7v%*m", 1, 0x10000ull, 1, data);
  // The last byte's address decides: from 0xFFFF one byte has four digits, two have five.
  EXPECT_FORMAT("------00\nFFFF: ee", "%R%4.0v%*m", 1, 0xFFFFull, 1, data);
  const unsigned char two[] = {1, 2};
  EXPECT_FORMAT("-----------00\n0000.FFFF: 01\n0001.0000: 02", "%R%t%4.0v%*m", 1, ".", 0xFFFFull, 2, two);
}

TEST_F(FormatDump, AddressOfTheLastByteMayOverflow) {
  const unsigned char data[] = {1, 2, 3};
  const std::string text = "------------------00-01\nFFFFFFFFFFFFFFFE: 01 02\n0000000000000000: 03";
  EXPECT_FORMAT(text.c_str(), "%k%R%v%*m", " ", 2, 0xFFFFFFFFFFFFFFFEull, 3, data);
}

TEST_F(FormatDump, RowsAreSeparatedByTheEngineLineEnd) {
  const unsigned char data[] = {1, 2, 3};
  SetFormatLineEnd(1);
  EXPECT_FORMAT("---00\r\n0: 01\r\n1: 02\r\n2: 03", "%R%v%*m", 1, 0ull, 3, data);
  SetFormatLineEnd(2);
  EXPECT_FORMAT("01\r02\r03", "%r%*m", 1, 3, data);
  SetFormatLineEnd(7);
  EXPECT_FORMAT("01\n02\n03", "%r%*m", 1, 3, data);
}

TEST_F(FormatDump, RowWidthIsCutTo256) {
  std::vector<unsigned char> data(300, 0x5A);
  char* text = nullptr;
  ASSERT_GT(FormatAlloc(&text, "%r%*m", 1000, 300, data.data()), 0);
  const std::string dump(text);
  std::free(text);
  EXPECT_EQ(std::string(512, '5').size(), dump.find('\n'));
  EXPECT_EQ(512u + 1 + 88, dump.size());
}

TEST_F(FormatDump, StateLastsOneCall) {
  char buffer[64];
  FormatToBuffer(buffer, sizeof buffer, "%k%K%R%t%4v", "-", "<>", 4, ".", 100ull);
  EXPECT_FORMAT("0102", "%*m", 2, bytes_ + 1);
}

TEST_F(FormatDump, TextAroundTheDump) {
  const unsigned char data[] = {0xDE, 0xAD};
  EXPECT_FORMAT("dump: de ad.", "dump: %k%*m.", " ", 2, data);
}

// Large dumps: rows leave the engine in big pieces; the pieces must still add up to the text.
TEST_F(FormatDump, LargeDumpStreamsTheSameTextAsTheBuffer) {
  std::vector<unsigned char> data(16000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i * 7 + 3);
  std::string expected;
  static const char* const kHex = "0123456789abcdef";
  expected = "------" + Labels(16);
  for (std::size_t row = 0; row < 1000; ++row) {
    char address[8];
    std::snprintf(address, sizeof address, "%04zX", row * 16);
    expected += "\n" + std::string(address) + ": ";
    for (std::size_t i = 0; i < 16; ++i) {
      if (i > 0) expected += ' ';
      expected += kHex[data[row * 16 + i] >> 4];
      expected += kHex[data[row * 16 + i] & 15];
    }
  }
  std::vector<char> buffer(expected.size() + 1);
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  sink.buffer = buffer.data();
  sink.room = static_cast<int32_t>(buffer.size());
  const int32_t count = FormatToSink(&sink, "%k%0.*R%t%4.0v%*m", " ", 0, 16, ".", 0ull, 16000, data.data());
  EXPECT_EQ(static_cast<int32_t>(expected.size()), count);
  EXPECT_EQ(expected, std::string(buffer.data()));
  EXPECT_EQ(expected, pieces.text);
  EXPECT_LT(pieces.calls, 100);
}

TEST_F(FormatDump, OneLongRowStreamsInPieces) {
  std::vector<unsigned char> data(5000, 0x11);
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  std::string expected;
  for (int i = 0; i < 5000; ++i) expected += "11 ";
  expected.pop_back();
  EXPECT_EQ(5000 * 3 - 1, FormatToSink(&sink, "%k%*m", " ", 5000, data.data()));
  EXPECT_EQ(expected, pieces.text);
  EXPECT_GT(pieces.calls, 1);
}

}  // namespace
}  // namespace portwren
