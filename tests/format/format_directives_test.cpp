// The directives: the familiar flags, width, precision, length modifiers and conversions, then the
// program's own grouped integers (%D %U %T %t %_) and repetition (%n).
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::Counted;
using testing_format::ExpectEach;
using testing_format::InBuffer;

TEST(FormatLiteral, TextPercentAndUnknownConversions) {
  EXPECT_FORMAT("", "");
  EXPECT_FORMAT("", static_cast<const char*>(nullptr));
  EXPECT_FORMAT("plain text", "plain text");
  EXPECT_FORMAT("100% sure", "100%% sure");
  EXPECT_FORMAT("%", "%5%");
  EXPECT_FORMAT("a%", "a%");  // a lone "%" at the end stands as written
  EXPECT_FORMAT("x%-5", "x%-5");
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

TEST(FormatText, CharactersAndStrings) {
  EXPECT_FORMAT("A", "%c", 'A');
  EXPECT_FORMAT("    A|A    ", "%5c|%-5c", 'A', 'A');
  EXPECT_FORMAT("    A", "%05c", 'A');  // zero padding is for numbers
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
  const char unterminated[3] = {'x', 'y', 'z'};                      // the precision stops the reading
  EXPECT_FORMAT("xyz", "%.3s", unterminated);
}

TEST(FormatInteger, ConversionsAndLengthModifiers) {
  EXPECT_FORMAT("0 -1 42", "%d %d %d", 0, -1, 42);
  EXPECT_FORMAT("-2147483648 2147483647", "%d %d", std::numeric_limits<int32_t>::min(),
                std::numeric_limits<int32_t>::max());
  EXPECT_FORMAT("4294967295", "%u", -1);
  EXPECT_FORMAT("ff FF 377", "%x %X %o", 255, 255, 255);
  EXPECT_FORMAT("deadbeef", "%x", 0xDEADBEEFu);
  EXPECT_FORMAT("-9223372036854775808", "%lld", std::numeric_limits<long long>::min());
  EXPECT_FORMAT("18446744073709551615", "%llu", ~0ull);
  EXPECT_FORMAT("123456789abcdef0", "%llx", 0x123456789ABCDEF0ull);
  EXPECT_FORMAT("1777777777777777777777", "%llo", ~0ull);
  // "l" and "h" read and print 32 bits, exactly as no modifier; "h" does not narrow.
  EXPECT_FORMAT("70000 70000 -5", "%hd %ld %ld", 70000, 70000, -5);
  EXPECT_FORMAT("4294967295", "%lu", -1);
}

TEST(FormatInteger, WidthAndPrecision) {
  EXPECT_FORMAT("   42|42   |00042", "%5d|%-5d|%05d", 42, 42, 42);
  EXPECT_FORMAT("  -42|-42  |-0042", "%5d|%-5d|%05d", -42, -42, -42);
  ExpectEach<int>({{"123456", "%3d", 123456},
                   {"007", "%03u", 7},
                   {"123", "%03u", 123},
                   {"42   ", "%-05d", 42},  // "-" wins over "0"
                   {"00042", "%.5d", 42},
                   {"-00042", "%.5d", -42},
                   {"   00042", "%8.5d", 42},
                   {"   00042", "%08.5d", 42},  // a precision switches zero padding off
                   {"     ", "%5.0d", 0},
                   {"[]", "[%.0d]", 0},
                   {"[1]", "[%.0d]", 1},
                   {"[]", "[%.d]", 0},  // a lone "." is precision 0
                   {"000000ff", "%.8x", 255}});
  EXPECT_FORMAT("[  7]", "[%*d]", 3, 7);
  EXPECT_FORMAT("[7   ]", "[%*d]", -4, 7);  // negative width left-justifies
  EXPECT_FORMAT("[-7  ]", "[%0*d]", -4, -7);
  EXPECT_FORMAT("[  007]", "[%5.*d]", 3, 7);
  EXPECT_FORMAT("[    7]", "[%5.*d]", -2, 7);  // negative precision: none given
  EXPECT_FORMAT("[0007]", "[%0*.*d]", 4, -1, 7);
  // At most eighty digits.
  EXPECT_FORMAT(std::string(80, '0').c_str(), "%.200u", 0);
  EXPECT_FORMAT((std::string(79, '0') + "5").c_str(), "%.90d", 5);
}

TEST(FormatInteger, SignAlternateAndApostropheFlags) {
  EXPECT_FORMAT("+5 +0 -5", "%+d %+d %+d", 5, 0, -5);
  EXPECT_FORMAT(" 5 -5", "% d % d", 5, -5);
  EXPECT_FORMAT("5 ff", "%+u %+x", 5, 255);  // unsigned conversions have no sign
  EXPECT_FORMAT("0xff 0XFF", "%#x %#X", 255, 255);
  ExpectEach<int>({{"+5", "%+ d", 5},
                   {"+5", "% +d", 5},  // "+" wins over " "
                   {"+0042", "%+05d", 42},
                   {" 0042", "% 05d", 42},
                   {"  +42", "%+5d", 42},
                   {"010", "%#o", 8},
                   {"0", "%#o", 0},
                   {"0", "%#.0o", 0},
                   {"0017", "%#.4o", 15},  // already starts with a zero
                   {"0", "%#x", 0},        // no prefix for zero
                   {"0x00ff", "%#06x", 255},
                   {"  0xff", "%#6x", 255},
                   {"0xff  ", "%#-6x", 255},
                   {"0x000ff", "%#.5x", 255},
                   // "'" is taken and ignored.
                   {"1234567", "%'d", 1234567},
                   {"  1234567", "%'9d", 1234567},
                   {"-0012", "%0'5d", -12}});
}

TEST(FormatPointer, SixteenDigitsAtLeast) {
  const void* pointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0x1234ABCDu));
  ExpectEach<const void*>({{"000000001234abcd", "%p", pointer},
                           {"000000001234ABCD", "%P", pointer},
                           {"0x000000001234abcd", "%#p", pointer},
                           {"0X000000001234ABCD", "%#P", pointer},
                           {"0000000000000000", "%p", nullptr},
                           {"0000000000000000", "%#p", nullptr},
                           {"  000000001234abcd", "%18p", pointer},
                           {"000000001234abcd  ", "%-18p", pointer},
                           {"0x00000000001234abcd", "%#020p", pointer},
                           {"000000000001234abcd", "%.19p", pointer}});
}

TEST(FormatFloat, DigitsFromTheLibrarySignAndPaddingOurs) {
  ExpectEach<double>({{"3.141593", "%f", 3.14159265},
                      {"3.14", "%.2f", 3.14159265},
                      {"3", "%.0f", 3.14159265},
                      {"3", "%.f", 3.14159265},
                      {"-1.500000", "%f", -1.5},
                      {"-01.50", "%06.2f", -1.5},
                      {" 1.50", "% .2f", 1.5}});
  EXPECT_FORMAT("1.500000e+00 1.500000E+00", "%e %E", 1.5, 1.5);
  EXPECT_FORMAT("0.0001 1E-05", "%g %G", 0.0001, 0.00001);
  EXPECT_FORMAT("  1.50|1.50  |001.50", "%6.2f|%-6.2f|%06.2f", 1.5, 1.5, 1.5);
  EXPECT_FORMAT("+1.50 +01.50", "%+.2f %+06.2f", 1.5, 1.5);
  EXPECT_FORMAT("1.2346", "%.*f", 4, 1.23456);
  EXPECT_FORMAT("1.234560", "%.*f", -3, 1.23456);
  // Special values are blank padded.
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_FORMAT("inf -inf", "%f %f", inf, -inf);
  ExpectEach<double>({{"  inf", "%05f", inf}, {" -inf", "%05f", -inf}, {"+inf", "%+f", inf}});
}

// The library's text at the full precision, cut to 127 characters: rounding at a shorter one
// would show, as 2^-215 has 151 significant digits and each form here drops a 5 or more. Past
// 1074 decimals a double's text only grows zeros, so a huge precision reads as a large one.
TEST(FormatFloat, LongTextIsTheFullPrecisionCut) {
  const double tiny = std::ldexp(1.0, -215);
  const struct {
    const char* format;
    int32_t precision;
    double value;
    int32_t library_precision;
  } cases[] = {{"%.*e", 200, tiny, 200},
               {"%.*g", 150, -tiny, 150},
               {"%.*f", 1000, tiny, 1000},
               {"%.*e", std::numeric_limits<int32_t>::max(), tiny, 100000}};
  for (const auto& c : cases) {
    char library[128];
    std::snprintf(library, sizeof library, c.format, c.library_precision, c.value);
    EXPECT_FORMAT(library, c.format, c.precision, c.value);
  }
  EXPECT_EQ(Counted(127, ("1." + std::string(125, '0')).c_str()), InBuffer(256, "%.300f", 1.0));
  EXPECT_EQ(127, InBuffer(256, "%f", 1e200).count);
}

TEST(FormatArguments, ConsumedStrictlyInOrder) {
  EXPECT_FORMAT("a   1|b|2.5|x", "%s%*d|%c|%.1f|%s", "a", 4, 1, 'b', 2.5, "x");
  EXPECT_FORMAT("9 8", "%lld %d", 9ll, 8);
}

TEST(FormatGrouping, DecimalGroupsOfThreeSeparatedAsTSays) {
  // Width and precision count the separators; precision zeros are grouped with the digits.
  ExpectEach<int>({{"1 234 567", "%D", 1234567},
                   {"-1 234 567", "%D", -1234567},
                   {"+1 234", "%+D", 1234},
                   {"   1 234 567", "%12D", 1234567},
                   {"1 234 567   |", "%-12D|", 1234567},
                   {"0001 234 567", "%012D", 1234567},
                   {"00 012", "%.5D", 12}});
  EXPECT_FORMAT("0 12 123 1 234 123 456", "%D %D %D %D %D", 0, 12, 123, 1234, 123456);
  EXPECT_FORMAT("4 294 967 295", "%U", 0xFFFFFFFFu);
  EXPECT_FORMAT("1 234 567 890 123", "%llD", 1234567890123ll);
  EXPECT_FORMAT("18 446 744 073 709 551 615", "%llU", ~0ull);
  EXPECT_FORMAT("1,234,567", "%T%D", ",", 1234567);
  EXPECT_FORMAT("1::234", "%T%D", "::", 1234);
  EXPECT_FORMAT("1234567", "%T%D", "", 1234567);
  EXPECT_FORMAT("1 234|1.234", "%D|%T%D", 1234, ".", 1234);
  EXPECT_FORMAT("1234567", "%T%d", ",", 1234567);  // %T is for %D and %U only
}

TEST(FormatGrouping, OtherIntegersAndPointersUseTheTSeparatorAndGroupSize) {
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
  const void* pointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0x1234ABCDu));
  EXPECT_FORMAT("0000.0000.1234.abcd", "%_%t%p", 4, ".", pointer);
  // The address form of the dumps.
  EXPECT_FORMAT("1234:ABCD", "%_%t%0.*llX", 4, ":", 8, 0x1234ABCDull);
  EXPECT_FORMAT("0000:0010", "%_%t%0.*llX", 4, ":", 8, 0x10ull);
  EXPECT_FORMAT("00000010", "%_%t%0.*llX", 4, "", 8, 0x10ull);
}

TEST(FormatGrouping, StateLastsOneCallAndLongSeparatorsStayInTheWorkArea) {
  EXPECT_EQ(Counted(0, ""), InBuffer(32, "%T%_%t", ",", 2, "."));  // settings print nothing
  EXPECT_FORMAT("1 234 567|1234567", "%D|%d", 1234567, 1234567);

  const std::string separator(40, '=');
  const auto cut = InBuffer(512, "%_%t%.80d", 1, separator.c_str(), 7);
  EXPECT_GT(cut.count, 0);
  EXPECT_LE(cut.count, 128);
  EXPECT_EQ(static_cast<std::size_t>(cut.count), cut.text.size());
  EXPECT_EQ('7', cut.text.back());
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
  const std::string long_text(70, 'L');
  EXPECT_FORMAT((long_text + long_text + long_text).c_str(), "%3n", long_text.c_str());
  EXPECT_FORMAT(std::string(1000, '-').c_str(), "%1000n", "-");
  std::string abc;
  for (int i = 0; i < 333; ++i) abc += "abc";
  EXPECT_FORMAT(abc.c_str(), "%333n", "abc");
}

}  // namespace
}  // namespace portwren
