// The familiar directives: flags, width, precision, length modifiers and the standard conversions.
#include <cstdint>
#include <limits>

#include "format_expect.h"

namespace portwren {
namespace {

TEST(FormatLiteral, TextAndPercent) {
  EXPECT_FORMAT("", "");
  EXPECT_FORMAT("plain text", "plain text");
  EXPECT_FORMAT("100% sure", "100%% sure");
  EXPECT_FORMAT("%", "%5%");
  EXPECT_FORMAT("a%", "a%");  // a lone "%" at the end stands as written
  EXPECT_FORMAT("x%-5", "x%-5");
}

TEST(FormatLiteral, NullFormatIsEmpty) {
  char buffer[8] = "junk";
  EXPECT_EQ(0, FormatToBuffer(buffer, sizeof buffer, nullptr));
  EXPECT_STREQ("", buffer);
}

TEST(FormatLiteral, UnknownConversionsAreCopied) {
  EXPECT_FORMAT("%y", "%y");
  EXPECT_FORMAT("<%-08.3y>", "<%-08.3y>");
  EXPECT_FORMAT("%y 7", "%y %d", 7);  // an unknown conversion takes no argument
  // "hh", "z", "j", "L" and "I64" are not length modifiers: the letter is the conversion.
  EXPECT_FORMAT("%hhd", "%hhd", 5);
  EXPECT_FORMAT("%zu", "%zu", 5);
  EXPECT_FORMAT("%jd", "%jd", 5);
  EXPECT_FORMAT("%Lf", "%Lf", 1.0);
  EXPECT_FORMAT("%I64d", "%I64d", 5);
}

TEST(FormatChar, CharacterAndPadding) {
  EXPECT_FORMAT("A", "%c", 'A');
  EXPECT_FORMAT("    A|A    ", "%5c|%-5c", 'A', 'A');
  EXPECT_FORMAT("    A", "%05c", 'A');  // zero padding is for numbers
}

TEST(FormatString, WidthPrecisionAndNull) {
  EXPECT_FORMAT("abc", "%s", "abc");
  EXPECT_FORMAT("  abc|abc  ", "%5s|%-5s", "abc", "abc");
  EXPECT_FORMAT("ab", "%.2s", "abc");
  EXPECT_FORMAT("abc", "%.10s", "abc");
  EXPECT_FORMAT("", "%.0s", "abc");
  EXPECT_FORMAT("   ab", "%5.2s", "abc");
  EXPECT_FORMAT("ab", "%.*s", 2, "abcdef");
  EXPECT_FORMAT("abcdef", "%.*s", -1, "abcdef");  // negative: no precision
  EXPECT_FORMAT("[]", "[%s]", static_cast<const char*>(nullptr));
  EXPECT_FORMAT("[]", "[%10s]", static_cast<const char*>(nullptr));  // nothing at all
}

TEST(FormatString, PrecisionStopsAtTheLimitWithoutReadingFurther) {
  const char unterminated[3] = {'x', 'y', 'z'};
  EXPECT_FORMAT("xyz", "%.3s", unterminated);
}

TEST(FormatInteger, SignedAndUnsigned) {
  EXPECT_FORMAT("0 -1 42", "%d %d %d", 0, -1, 42);
  EXPECT_FORMAT("-2147483648 2147483647", "%d %d", std::numeric_limits<int32_t>::min(),
                std::numeric_limits<int32_t>::max());
  EXPECT_FORMAT("4294967295", "%u", 0xFFFFFFFFu);
  EXPECT_FORMAT("4294967295", "%u", -1);
  EXPECT_FORMAT("ff FF 377", "%x %X %o", 255, 255, 255);
  EXPECT_FORMAT("deadbeef", "%x", 0xDEADBEEFu);
}

TEST(FormatInteger, LengthModifiers) {
  EXPECT_FORMAT("-9223372036854775808", "%lld", std::numeric_limits<long long>::min());
  EXPECT_FORMAT("18446744073709551615", "%llu", ~0ull);
  EXPECT_FORMAT("123456789abcdef0", "%llx", 0x123456789ABCDEF0ull);
  EXPECT_FORMAT("1777777777777777777777", "%llo", ~0ull);
  // "l" and "h" read and print 32 bits, exactly as no modifier; "h" does not narrow.
  EXPECT_FORMAT("70000 70000 -5", "%hd %ld %ld", 70000, 70000, -5);
  EXPECT_FORMAT("4294967295", "%lu", -1);
}

TEST(FormatInteger, WidthAndJustification) {
  EXPECT_FORMAT("   42|42   |00042", "%5d|%-5d|%05d", 42, 42, 42);
  EXPECT_FORMAT("  -42|-42  |-0042", "%5d|%-5d|%05d", -42, -42, -42);
  EXPECT_FORMAT("123456", "%3d", 123456);
  EXPECT_FORMAT("42   ", "%-05d", 42);  // "-" wins over "0"
  EXPECT_FORMAT("007", "%03u", 7);
  EXPECT_FORMAT("123", "%03u", 123);
}

TEST(FormatInteger, StarWidthAndPrecision) {
  EXPECT_FORMAT("[  7]", "[%*d]", 3, 7);
  EXPECT_FORMAT("[7   ]", "[%*d]", -4, 7);  // negative width left-justifies
  EXPECT_FORMAT("[-7  ]", "[%0*d]", -4, -7);
  EXPECT_FORMAT("[  007]", "[%5.*d]", 3, 7);
  EXPECT_FORMAT("[    7]", "[%5.*d]", -2, 7);  // negative precision: none given
  EXPECT_FORMAT("[0007]", "[%0*.*d]", 4, -1, 7);
}

TEST(FormatInteger, Precision) {
  EXPECT_FORMAT("00042", "%.5d", 42);
  EXPECT_FORMAT("-00042", "%.5d", -42);
  EXPECT_FORMAT("   00042", "%8.5d", 42);
  EXPECT_FORMAT("   00042", "%08.5d", 42);  // a precision switches zero padding off
  EXPECT_FORMAT("     ", "%5.0d", 0);
  EXPECT_FORMAT("[]", "[%.0d]", 0);
  EXPECT_FORMAT("[]", "[%.d]", 0);  // a lone "." is precision 0
  EXPECT_FORMAT("[1]", "[%.0d]", 1);
  EXPECT_FORMAT("000000ff", "%.8x", 255);
}

TEST(FormatInteger, PrecisionKeepsAtMostEightyDigits) {
  const std::string eighty(80, '0');
  EXPECT_FORMAT(eighty.c_str(), "%.200u", 0);
  EXPECT_FORMAT((std::string(79, '0') + "5").c_str(), "%.90d", 5);
}

TEST(FormatInteger, SignFlags) {
  EXPECT_FORMAT("+5 +0 -5", "%+d %+d %+d", 5, 0, -5);
  EXPECT_FORMAT(" 5 -5", "% d % d", 5, -5);
  EXPECT_FORMAT("+5", "%+ d", 5);  // "+" wins over " "
  EXPECT_FORMAT("+5", "% +d", 5);
  EXPECT_FORMAT("5 ff", "%+u %+x", 5, 255);  // unsigned conversions have no sign
  EXPECT_FORMAT("+0042", "%+05d", 42);
  EXPECT_FORMAT(" 0042", "% 05d", 42);
  EXPECT_FORMAT("  +42", "%+5d", 42);
}

TEST(FormatInteger, AlternateForms) {
  EXPECT_FORMAT("010", "%#o", 8);
  EXPECT_FORMAT("0", "%#o", 0);
  EXPECT_FORMAT("0", "%#.0o", 0);
  EXPECT_FORMAT("0017", "%#.4o", 15);  // already starts with a zero
  EXPECT_FORMAT("0xff 0XFF", "%#x %#X", 255, 255);
  EXPECT_FORMAT("0", "%#x", 0);  // no prefix for zero
  EXPECT_FORMAT("0x00ff", "%#06x", 255);
  EXPECT_FORMAT("  0xff", "%#6x", 255);
  EXPECT_FORMAT("0xff  ", "%#-6x", 255);
  EXPECT_FORMAT("0x000ff", "%#.5x", 255);
}

TEST(FormatInteger, ApostropheIsIgnored) {
  EXPECT_FORMAT("1234567", "%'d", 1234567);
  EXPECT_FORMAT("  1234567", "%'9d", 1234567);
  EXPECT_FORMAT("-0012", "%0'5d", -12);
}

TEST(FormatPointer, SixteenDigitsAtLeast) {
  const void* pointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0x1234ABCDu));
  EXPECT_FORMAT("000000001234abcd", "%p", pointer);
  EXPECT_FORMAT("000000001234ABCD", "%P", pointer);
  EXPECT_FORMAT("0x000000001234abcd", "%#p", pointer);
  EXPECT_FORMAT("0X000000001234ABCD", "%#P", pointer);
  EXPECT_FORMAT("0000000000000000", "%p", static_cast<const void*>(nullptr));
  EXPECT_FORMAT("0000000000000000", "%#p", static_cast<const void*>(nullptr));
  EXPECT_FORMAT("  000000001234abcd", "%18p", pointer);
  EXPECT_FORMAT("000000001234abcd  ", "%-18p", pointer);
  EXPECT_FORMAT("0x00000000001234abcd", "%#020p", pointer);
  EXPECT_FORMAT("000000000001234abcd", "%.19p", pointer);
}

TEST(FormatFloat, DigitsFromTheLibrarySignAndPaddingOurs) {
  EXPECT_FORMAT("3.141593", "%f", 3.14159265);
  EXPECT_FORMAT("3.14", "%.2f", 3.14159265);
  EXPECT_FORMAT("3", "%.0f", 3.14159265);
  EXPECT_FORMAT("3", "%.f", 3.14159265);
  EXPECT_FORMAT("-1.500000", "%f", -1.5);
  EXPECT_FORMAT("1.500000e+00 1.500000E+00", "%e %E", 1.5, 1.5);
  EXPECT_FORMAT("0.0001 1E-05", "%g %G", 0.0001, 0.00001);
  EXPECT_FORMAT("  1.50|1.50  |001.50", "%6.2f|%-6.2f|%06.2f", 1.5, 1.5, 1.5);
  EXPECT_FORMAT("-01.50", "%06.2f", -1.5);
  EXPECT_FORMAT("+1.50 +01.50", "%+.2f %+06.2f", 1.5, 1.5);
  EXPECT_FORMAT(" 1.50", "% .2f", 1.5);
  EXPECT_FORMAT("1.2346", "%.*f", 4, 1.23456);
  EXPECT_FORMAT("1.234560", "%.*f", -3, 1.23456);
}

TEST(FormatFloat, SpecialValuesAreBlankPadded) {
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_FORMAT("inf -inf", "%f %f", inf, -inf);
  EXPECT_FORMAT("  inf", "%05f", inf);
  EXPECT_FORMAT(" -inf", "%05f", -inf);
  EXPECT_FORMAT("+inf", "%+f", inf);
}

TEST(FormatFloat, LongTextIsCutToTheWorkArea) {
  char buffer[256];
  const int32_t count = FormatToBuffer(buffer, sizeof buffer, "%.300f", 1.0);
  EXPECT_EQ(127, count);
  EXPECT_EQ("1." + std::string(125, '0'), buffer);
  EXPECT_EQ(127, FormatToBuffer(buffer, sizeof buffer, "%f", 1e200));
}

TEST(FormatArguments, ConsumedStrictlyInOrder) {
  EXPECT_FORMAT("a   1|b|2.5|x", "%s%*d|%c|%.1f|%s", "a", 4, 1, 'b', 2.5, "x");
  EXPECT_FORMAT("9 8", "%lld %d", 9ll, 8);
}

}  // namespace
}  // namespace portwren
