// Grouped integers (%D %U %T %t %_) and repetition (%n).
#include <string>

#include "format_expect.h"

namespace portwren {
namespace {

TEST(FormatGrouping, DecimalGroupsOfThreeWithABlank) {
  EXPECT_FORMAT("1 234 567", "%D", 1234567);
  EXPECT_FORMAT("-1 234 567", "%D", -1234567);
  EXPECT_FORMAT("+1 234", "%+D", 1234);
  EXPECT_FORMAT("0 12 123 1 234 123 456", "%D %D %D %D %D", 0, 12, 123, 1234, 123456);
  EXPECT_FORMAT("4 294 967 295", "%U", 0xFFFFFFFFu);
  EXPECT_FORMAT("1 234 567 890 123", "%llD", 1234567890123ll);
  EXPECT_FORMAT("18 446 744 073 709 551 615", "%llU", ~0ull);
}

TEST(FormatGrouping, SeparatorForDecimalGroupsIsSetByT) {
  EXPECT_FORMAT("1,234,567", "%T%D", ",", 1234567);
  EXPECT_FORMAT("1::234", "%T%D", "::", 1234);
  EXPECT_FORMAT("1234567", "%T%D", "", 1234567);
  EXPECT_FORMAT("1 234|1.234", "%D|%T%D", 1234, ".", 1234);
  EXPECT_FORMAT("1234567", "%T%d", ",", 1234567);  // %T is for %D and %U only
}

TEST(FormatGrouping, WidthAndPrecisionCountTheSeparators) {
  EXPECT_FORMAT("   1 234 567", "%12D", 1234567);
  EXPECT_FORMAT("1 234 567   |", "%-12D|", 1234567);
  EXPECT_FORMAT("0001 234 567", "%012D", 1234567);
  EXPECT_FORMAT("00 012", "%.5D", 12);  // precision zeros are grouped with the digits
}

TEST(FormatGrouping, OtherIntegersUseTheTSeparatorAndGroupSize) {
  EXPECT_FORMAT("1234567", "%d", 1234567);  // no separator unless set
  EXPECT_FORMAT("1,234,567", "%t%d", ",", 1234567);
  EXPECT_FORMAT("-1,234,567", "%t%d", ",", -1234567);
  EXPECT_FORMAT("12'345'678", "%t%x", "'", 0x12345678u);
  EXPECT_FORMAT("1234:5678", "%_%t%x", 4, ":", 0x12345678u);
  EXPECT_FORMAT("1_0000_0000", "%_%t%o", 4, "_", 0100000000u);
  EXPECT_FORMAT("1 234 567", "%t%D", ",", 1234567);  // %D keeps its own separator
  EXPECT_FORMAT("1234", "%_%t%d", 0, ",", 1234);     // group size 0: no groups
  EXPECT_FORMAT("1234", "%_%t%d", -3, ",", 1234);
  EXPECT_FORMAT("1,2,3,4", "%_%t%d", 1, ",", 1234);
  EXPECT_FORMAT("0x12,345", "%t%#x", ",", 0x12345u);
}

TEST(FormatGrouping, AddressFormOfTheDumps) {
  EXPECT_FORMAT("1234:ABCD", "%_%t%0.*llX", 4, ":", 8, 0x1234ABCDull);
  EXPECT_FORMAT("0000:0010", "%_%t%0.*llX", 4, ":", 8, 0x10ull);
  EXPECT_FORMAT("00000010", "%_%t%0.*llX", 4, "", 8, 0x10ull);
}

TEST(FormatGrouping, PointersAreGroupedLikeIntegers) {
  const void* pointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0x1234ABCDu));
  EXPECT_FORMAT("0000.0000.1234.abcd", "%_%t%p", 4, ".", pointer);
}

TEST(FormatGrouping, StateLastsOneCallOnly) {
  char buffer[32];
  FormatToBuffer(buffer, sizeof buffer, "%T%_%t", ",", 2, ".");
  EXPECT_FORMAT("1 234 567|1234567", "%D|%d", 1234567, 1234567);
}

TEST(FormatGrouping, LongSeparatorsStayInsideTheWorkArea) {
  const std::string separator(40, '=');
  char buffer[512];
  const int32_t count = FormatToBuffer(buffer, sizeof buffer, "%_%t%.80d", 1, separator.c_str(), 7);
  EXPECT_GT(count, 0);
  EXPECT_LE(count, 128);
  EXPECT_EQ('7', buffer[count - 1]);
}

TEST(FormatRepeat, StringRepeatedWidthTimes) {
  EXPECT_FORMAT("ababab", "%3n", "ab");
  EXPECT_FORMAT("[        ]", "[%*n]", 4, "  ");
  EXPECT_FORMAT("[]", "[%*n]", 0, "ab");
  EXPECT_FORMAT("[]", "[%*n]", -2, "ab");  // below 1: nothing
  EXPECT_FORMAT("[]", "[%n]", "ab");       // no width: nothing
  EXPECT_FORMAT("[]", "[%5n]", "");
  EXPECT_FORMAT("[]", "[%5n]", static_cast<const char*>(nullptr));
  EXPECT_FORMAT("[x]", "[%*n%s]", 3, "", "x");  // the string is consumed even when empty
}

TEST(FormatRepeat, ManyAndLongRepeats) {
  const std::string long_text(70, 'L');
  EXPECT_FORMAT((long_text + long_text + long_text).c_str(), "%3n", long_text.c_str());
  EXPECT_FORMAT(std::string(1000, '-').c_str(), "%1000n", "-");
  std::string abc;
  for (int i = 0; i < 333; ++i) abc += "abc";
  EXPECT_FORMAT(abc.c_str(), "%333n", "abc");
}

}  // namespace
}  // namespace portwren
