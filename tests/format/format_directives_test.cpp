// The directives: the familiar flags, width, precision, length modifiers and conversions, then the
// program's own grouped integers (%D %U %T %t %_) and repetition (%n). Cases of one rule share a
// format, fields separated by "|".
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::Counted;
using testing_format::InBuffer;

const char* const kNull = nullptr;
const void* const kNoPointer = nullptr;
const void* const kPointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0x1234ABCDu));

TEST(FormatLiteral, TextPercentAndUnknownConversions) {
  EXPECT_FORMAT("", "");
  EXPECT_FORMAT("", kNull);
  EXPECT_FORMAT("a%", "a%");  // a lone "%", or a directive cut by the end, stands as written
  EXPECT_FORMAT("100% sure|%|x%-5", "100%% sure|%5%|x%-5");
  // An unknown conversion takes no argument; "hh", "z", "j", "L" and "I64" are not length
  // modifiers: the letter is the conversion.
  EXPECT_FORMAT("%y|<%-08.3y>|7|%hhd|%zu|%jd|%Lf|%I64d", "%y|<%-08.3y>|%d|%hhd|%zu|%jd|%Lf|%I64d", 7);
}

TEST(FormatText, CharactersAndStrings) {
  // Zero padding is for numbers; a negative precision is none; a null string is nothing at all.
  EXPECT_FORMAT("A|    A|A    |    A", "%c|%5c|%-5c|%05c", 'A', 'A', 'A', 'A');
  EXPECT_FORMAT("  abc|abc  |ab|abc||   ab|ab|abcdef", "%5s|%-5s|%.2s|%.10s|%.0s|%5.2s|%.*s|%.*s", "abc",
                "abc", "abc", "abc", "abc", "abc", 2, "abcdef", -1, "abcdef");
  EXPECT_FORMAT("[][]", "[%s][%10s]", kNull, kNull);
  const char unterminated[3] = {'x', 'y', 'z'};  // the precision stops the reading
  EXPECT_FORMAT("xyz", "%.3s", unterminated);
}

TEST(FormatInteger, ConversionsAndLengthModifiers) {
  EXPECT_FORMAT("0 -1 -2147483648 2147483647 4294967295", "%d %d %d %d %u", 0, -1,
                std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), -1);
  EXPECT_FORMAT("ff FF 377 deadbeef", "%x %X %o %x", 255, 255, 255, 0xDEADBEEFu);
  EXPECT_FORMAT("-9223372036854775808 18446744073709551615 123456789abcdef0 1777777777777777777777",
                "%lld %llu %llx %llo", std::numeric_limits<long long>::min(), ~0ull, 0x123456789ABCDEF0ull,
                ~0ull);
  // "l" and "h" read and print 32 bits, exactly as no modifier; "h" does not narrow.
  EXPECT_FORMAT("70000 70000 -5 4294967295", "%hd %ld %ld %lu", 70000, 70000, -5, -1);
}

TEST(FormatInteger, WidthAndPrecision) {
  // "-" wins over "0"; a precision switches zero padding off; a lone "." is precision 0.
  EXPECT_FORMAT("   42|42   |00042|  -42|-0042|123456|007|42   ", "%5d|%-5d|%05d|%5d|%05d|%3d|%03u|%-05d", 42,
                42, 42, -42, -42, 123456, 7, 42);
  EXPECT_FORMAT("00042|-00042|   00042|   00042|     ||1||000000ff",
                "%.5d|%.5d|%8.5d|%08.5d|%5.0d|%.0d|%.0d|%.d|%.8x", 42, -42, 42, 42, 0, 0, 1, 0, 255);
  // Star values; a negative width left-justifies, a negative precision is none.
  EXPECT_FORMAT("[  7][7   ][-7  ][  007][    7][0007]", "[%*d][%*d][%0*d][%5.*d][%5.*d][%0*.*d]", 3, 7, -4,
                7, -4, -7, 3, 7, -2, 7, 4, -1, 7);
  // At most eighty digits.
  EXPECT_FORMAT((std::string(80, '0') + "|" + std::string(79, '0') + "5").c_str(), "%.200u|%.90d", 0, 5);
}

TEST(FormatInteger, SignAlternateAndApostropheFlags) {
  // "+" wins over " "; unsigned conversions have no sign; "'" is taken and ignored.
  EXPECT_FORMAT("+5 +0 -5  5 -5 5 ff", "%+d %+d %+d % d % d %+u %+x", 5, 0, -5, 5, -5, 5, 255);
  EXPECT_FORMAT("+5|+5|+0042| 0042|  +42|1234567|  1234567|-0012",
                "%+ d|% +d|%+05d|% 05d|%+5d|%'d|%'9d|%0'5d", 5, 5, 42, 42, 42, 1234567, 1234567, -12);
  // No prefix for zero, nor a second zero for an octal that has one.
  EXPECT_FORMAT("0xff 0XFF 010 0 0 0017 0", "%#x %#X %#o %#o %#.0o %#.4o %#x", 255, 255, 8, 0, 0, 15, 0);
  EXPECT_FORMAT("0x00ff|  0xff|0xff  |0x000ff", "%#06x|%#6x|%#-6x|%#.5x", 255, 255, 255, 255);
}

TEST(FormatPointer, SixteenDigitsAtLeast) {
  EXPECT_FORMAT("000000001234abcd|000000001234ABCD|0x000000001234abcd|0X000000001234ABCD", "%p|%P|%#p|%#P",
                kPointer, kPointer, kPointer, kPointer);
  EXPECT_FORMAT("0000000000000000|0000000000000000", "%p|%#p", kNoPointer, kNoPointer);
  EXPECT_FORMAT("  000000001234abcd|000000001234abcd  |0x00000000001234abcd|000000000001234abcd",
                "%18p|%-18p|%#020p|%.19p", kPointer, kPointer, kPointer, kPointer);
}

TEST(FormatFloat, DigitsFromTheLibrarySignAndPaddingOurs) {
  EXPECT_FORMAT("3.141593|3.14|3|3|-1.500000|-01.50| 1.50", "%f|%.2f|%.0f|%.f|%f|%06.2f|% .2f", 3.14159265,
                3.14159265, 3.14159265, 3.14159265, -1.5, -1.5, 1.5);
  EXPECT_FORMAT("1.500000e+00 1.500000E+00 0.0001 1E-05", "%e %E %g %G", 1.5, 1.5, 0.0001, 0.00001);
  EXPECT_FORMAT("  1.50|1.50  |001.50|+1.50|+01.50|1.2346|1.234560",
                "%6.2f|%-6.2f|%06.2f|%+.2f|%+06.2f|%.*f|%.*f", 1.5, 1.5, 1.5, 1.5, 1.5, 4, 1.23456, -3,
                1.23456);
  // Special values are blank padded.
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_FORMAT("inf -inf   inf  -inf +inf", "%f %f %05f %05f %+f", inf, -inf, inf, -inf, inf);
}

// The library's text at the full precision, cut to 127 characters: rounding at a shorter one
// would show, as 2^-215 has 151 significant digits and each form here drops a 5 or more. Past
// 1074 decimals a double's text only grows zeros, so a huge precision reads as a large one.
TEST(FormatFloat, LongTextIsTheFullPrecisionCut) {
  const double tiny = std::ldexp(1.0, -215);
  const struct {
    const char* format;
    int32_t precision, library_precision;
    double value;
  } cases[] = {{"%.*e", 200, 200, tiny},
               {"%.*g", 150, 150, -tiny},
               {"%.*f", 1000, 1000, tiny},
               {"%.*e", std::numeric_limits<int32_t>::max(), 100000, tiny}};
  for (const auto& c : cases) {
    char library[128];
    std::snprintf(library, sizeof library, c.format, c.library_precision, c.value);
    EXPECT_FORMAT(library, c.format, c.precision, c.value);
  }
  EXPECT_EQ(Counted(127, ("1." + std::string(125, '0')).c_str()), InBuffer(256, "%.300f", 1.0));
  EXPECT_EQ(127, InBuffer(256, "%f", 1e200).count);
}

TEST(FormatArguments, ConsumedStrictlyInOrder) {
  EXPECT_FORMAT("a   1|b|2.5|x|9 8", "%s%*d|%c|%.1f|%s|%lld %d", "a", 4, 1, 'b', 2.5, "x", 9ll, 8);
}

// Width and precision count the separators; precision zeros are grouped with the digits; %T is
// for %D and %U only; no separator unless one is set.
TEST(FormatGrouping, DecimalGroupsOfThreeSeparatedAsTSays) {
  EXPECT_FORMAT("1 234 567|-1 234 567|+1 234|   1 234 567|1 234 567   |0001 234 567|00 012",
                "%D|%D|%+D|%12D|%-12D|%012D|%.5D", 1234567, -1234567, 1234, 1234567, 1234567, 1234567, 12);
  EXPECT_FORMAT("0 12 123 1 234 123 456 4 294 967 295", "%D %D %D %D %D %U", 0, 12, 123, 1234, 123456,
                0xFFFFFFFFu);
  EXPECT_FORMAT("1 234 567 890 123|18 446 744 073 709 551 615", "%llD|%llU", 1234567890123ll, ~0ull);
  EXPECT_FORMAT("1 234|1,234,567|1::234|1234567|1.234|1234567", "%D|%T%D|%T%D|%T%D|%T%D|%T%d", 1234, ",",
                1234567, "::", 1234, "", 1234567, ".", 1234, ",", 1234567);
}

// %D keeps its own separator; a group size below one makes no groups.
TEST(FormatGrouping, OtherIntegersAndPointersUseTheTSeparatorAndGroupSize) {
  EXPECT_FORMAT("1234567|1,234,567|-1,234,567|12'345'678|1 234 567", "%d|%t%d|%t%d|%t%x|%t%D", 1234567, ",",
                1234567, ",", -1234567, "'", 0x12345678u, ",", 1234567);
  EXPECT_FORMAT("0x12,345|1234:5678|1_0000_0000|1234|1234|1,2,3,4",
                "%t%#x|%_%t%x|%_%t%o|%_%t%d|%_%t%d|%_%t%d", ",", 0x12345u, 4, ":", 0x12345678u, 4, "_",
                0100000000u, 0, ",", 1234, -3, ",", 1234, 1, ",", 1234);
  EXPECT_FORMAT("0000.0000.1234.abcd", "%_%t%p", 4, ".", kPointer);
  // The address form of the dumps.
  EXPECT_FORMAT("1234:ABCD|0000:0010|00000010", "%_%t%0.*llX|%_%t%0.*llX|%_%t%0.*llX", 4, ":", 8,
                0x1234ABCDull, 4, ":", 8, 0x10ull, 4, "", 8, 0x10ull);
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

// Below one or no width: nothing; the string is consumed even when empty.
TEST(FormatRepeat, StringRepeatedWidthTimes) {
  EXPECT_FORMAT("ababab|        ||||||x", "%3n|%*n|%*n|%*n|%n|%5n|%5n|%*n%s", "ab", 4, "  ", 0, "ab", -2,
                "ab", "ab", "", kNull, 3, "", "x");
  const std::string long_text(70, 'L');
  EXPECT_FORMAT((long_text + long_text + long_text).c_str(), "%3n", long_text.c_str());
  EXPECT_FORMAT(std::string(1000, '-').c_str(), "%1000n", "-");
  std::string abc;
  for (int i = 0; i < 333; ++i) abc += "abc";
  EXPECT_FORMAT(abc.c_str(), "%333n", "abc");
}

}  // namespace
}  // namespace portwren
