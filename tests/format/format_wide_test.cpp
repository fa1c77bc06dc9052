// The same engine built for 16-bit characters: each kind of directive and each output form once
// (the rules themselves are checked on the narrow build; its trace beside the narrow trace).
#include <cstdarg>
#include <string>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::AllocMaxText;
using testing_format::Counted;
using testing_format::InBuffer;

std::u16string WideWrapped(const char16_t* format, ...) {
  va_list args;
  va_start(args, format);
  WideNestedFormat nested;
  char16_t buffer[64];
  FormatToBuffer(buffer, 64, u"<%w>", MakeNestedFormat(&nested, format, &args));
  va_end(args);
  return buffer;
}

int32_t RenderWide(void* argument, WideFormatSink* sink) {
  return FormatToSink(sink, u"(%d@%u)", *static_cast<int*>(argument), sink->level);
}

TEST(FormatWide, DirectivesNestingCallbacksAndDump) {
  const void* pointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0xBEEFu));
  EXPECT_FORMAT(u"[  -42|ab   |z|0xff|007|\u00e9\u4e2d|%y|%|-01.50|1.5E+00|0X000000000000BEEF]",
                u"[%5d|%-5s|%c|%#x|%03u|%c%s|%y|%%|%06.2f|%.1E|%#P]", -42, u"ab", u'z', 255u, 7u, u'\u00e9',
                u"\u4e2d", -1.5, 1.5, pointer);
  EXPECT_FORMAT(u"-9223372036854775808|[]|ab|ababab", u"%lld|[%s]|%.2s|%3n", -9223372036854775807ll - 1,
                static_cast<const char16_t*>(nullptr), u"abc", u"ab");
  EXPECT_FORMAT(u"1 234 567|1,234,567|1234:ABCD", u"%D|%T%D|%_%t%0.*llX", 1234567, u",", 1234567, 4, u":", 8,
                0x1234ABCDull);
  EXPECT_EQ(u"<7-seven>", WideWrapped(u"%d-%s", 7, u"seven"));
  int value = 5;
  WideFormatCallback callback;
  MakeFormatCallback(&callback, &RenderWide, &value);
  EXPECT_FORMAT(u"x(5@1)y", u"x%Fy", &callback);
  EXPECT_EQ(u"<a(5@2)b>", WideWrapped(u"a%Fb", &callback));
  const unsigned char data[] = {0xA0, 0xA1, 0xA2, 0xA3};
  SetFormatLineEnd(1);
  EXPECT_FORMAT(u"-----00-01-02-03\r\n0FE:       A0 A1\r\n102: A2 A3", u"%k%.*R%v%*M", u" ", 2, 4, 0x100ull,
                4, data);
  SetFormatLineEnd(0);
  EXPECT_FORMAT(u"[a0][a1]", u"%K%*m", u"[]", 2, data);
}

TEST(FormatWide, BufferHeapAdvanceAppendQuietAndPrint) {
  EXPECT_EQ(Counted(9, u"tru"), InBuffer(4, u"truncated"));
  EXPECT_EQ(Counted(10, u"012"), AllocMaxText(4, u"%s", u"0123456789"));
  char16_t text[16] = u"ab";
  EXPECT_EQ(5, FormatAppend(text, 16, u"%d", 123));
  EXPECT_EQ(std::u16string(u"ab123"), text);
  char16_t* cursor = text;
  int32_t room = 16;
  FormatAdvance(&cursor, &room, u"%s", u"one");
  FormatAdvance(&cursor, &room, u"+%s", u"two");
  EXPECT_EQ(std::u16string(u"one+two"), text);
  EXPECT_EQ(9, room);
  EXPECT_EQ(3, FormatQuiet(text, 16, u"%x", 0xabcu));
  EXPECT_EQ(std::u16string(u"abc"), text);
  // Standard output goes through wide strings.
  ::testing::internal::CaptureStdout();
  const int32_t count = FormatPrint(u"[%4d|%s]\n", 42, u"wide");
  EXPECT_EQ("[  42|wide]\n", ::testing::internal::GetCapturedStdout());
  EXPECT_EQ(12, count);
}

}  // namespace
}  // namespace portwren
