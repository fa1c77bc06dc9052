// The same engine built for 16-bit characters.
#include <string>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::CollectPiece;
using testing_format::Pieces;

TEST(FormatWide, StandardDirectives) {
  EXPECT_FORMAT(u"plain", u"plain");
  EXPECT_FORMAT(u"[  -42|ab   |z|0xff|007]", u"[%5d|%-5s|%c|%#x|%03u]", -42, u"ab", u'z', 255u, 7u);
  EXPECT_FORMAT(u"\u00e9\u4e2d", u"%c%s", u'\u00e9', u"\u4e2d");
  EXPECT_FORMAT(u"-9223372036854775808", u"%lld", -9223372036854775807ll - 1);
  EXPECT_FORMAT(u"-01.50|1.5E+00", u"%06.2f|%.1E", -1.5, 1.5);
  EXPECT_FORMAT(u"%y|%", u"%y|%%");
  EXPECT_FORMAT(u"[]", u"[%s]", static_cast<const char16_t*>(nullptr));
  EXPECT_FORMAT(u"ab", u"%.2s", u"abc");
}

TEST(FormatWide, PointerAndGrouping) {
  const void* pointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0xBEEFu));
  EXPECT_FORMAT(u"0X000000000000BEEF", u"%#P", pointer);
  EXPECT_FORMAT(u"1 234 567|1,234,567", u"%D|%T%D", 1234567, u",", 1234567);
  EXPECT_FORMAT(u"1234:ABCD", u"%_%t%0.*llX", 4, u":", 8, 0x1234ABCDull);
  EXPECT_FORMAT(u"ababab", u"%3n", u"ab");
}

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

TEST(FormatWide, NestingAndCallbacks) {
  EXPECT_EQ(u"<7-seven>", WideWrapped(u"%d-%s", 7, u"seven"));
  int value = 5;
  WideFormatCallback callback;
  MakeFormatCallback(&callback, &RenderWide, &value);
  EXPECT_FORMAT(u"x(5@1)y", u"x%Fy", &callback);
  EXPECT_EQ(u"<a(5@2)b>", WideWrapped(u"a%Fb", &callback));
}

TEST(FormatWide, Dump) {
  const unsigned char data[] = {0xA0, 0xA1, 0xA2, 0xA3};
  SetFormatLineEnd(1);
  EXPECT_FORMAT(u"-----00-01-02-03\r\n0FE:       A0 A1\r\n102: A2 A3", u"%k%.*R%v%*M", u" ", 2, 4, 0x100ull, 4,
                data);
  EXPECT_FORMAT(u"[a0][a1]", u"%K%*m", u"[]", 2, data);
  SetFormatLineEnd(0);
}

TEST(FormatWide, BufferForms) {
  char16_t buffer[8] = {u'x', u'x', u'x'};
  EXPECT_EQ(5, FormatToBuffer(buffer, 1, u"%d", 12345));
  EXPECT_EQ(u'\0', buffer[0]);
  EXPECT_EQ(u'x', buffer[1]);

  EXPECT_EQ(9, FormatToBuffer(buffer, 4, u"truncated"));
  EXPECT_EQ(std::u16string(u"tru"), buffer);

  char16_t text[16] = u"ab";
  EXPECT_EQ(5, FormatAppend(text, 16, u"%d", 123));
  EXPECT_EQ(std::u16string(u"ab123"), text);

  char16_t* cursor = text;
  int32_t room = 16;
  FormatAdvance(&cursor, &room, u"%s", u"one");
  FormatAdvance(&cursor, &room, u"+%s", u"two");
  EXPECT_EQ(std::u16string(u"one+two"), text);
  EXPECT_EQ(9, room);

  char16_t* heap = nullptr;
  EXPECT_EQ(10, FormatAllocMax(&heap, 4, u"%s", u"0123456789"));
  ASSERT_NE(nullptr, heap);
  EXPECT_EQ(std::u16string(u"012"), heap);
  std::free(heap);

  EXPECT_EQ(3, FormatQuiet(buffer, 8, u"%x", 0xabcu));
  EXPECT_EQ(std::u16string(u"abc"), buffer);
}

TEST(FormatWide, PiecesAndPadding) {
  Pieces<char16_t> pieces;
  WideFormatSink sink;
  sink.writer = &CollectPiece<char16_t>;
  sink.context = &pieces;
  EXPECT_EQ(150, FormatToSink(&sink, u"%150s", u"w"));
  ASSERT_EQ(3u, pieces.list.size());
  EXPECT_EQ(std::u16string(100, u' '), pieces.list[0]);
  EXPECT_EQ(std::u16string(49, u' '), pieces.list[1]);
  EXPECT_EQ(u"w", pieces.list[2]);
}

TEST(FormatWide, PrintGoesThroughWideStrings) {
  ::testing::internal::CaptureStdout();
  const int32_t count = FormatPrint(u"[%4d|%s]\n", 42, u"wide");
  EXPECT_EQ("[  42|wide]\n", ::testing::internal::GetCapturedStdout());
  EXPECT_EQ(12, count);
}

std::vector<std::u16string> g_wide_lines;
void CollectWideLine(void*, const char16_t* text) { g_wide_lines.emplace_back(text); }
void CollectNarrowLine(void* context, const char*) { ++*static_cast<int*>(context); }

TEST(FormatWide, TraceHasItsOwnWriter) {
  g_wide_lines.clear();
  int narrow_lines = 0;
  SetFormatTrace(&CollectNarrowLine, &narrow_lines);
  SetWideFormatTrace(&CollectWideLine, nullptr);
  char16_t buffer[16];
  FormatToBuffer(buffer, 16, u"a%3s", u"b");
  SetWideFormatTrace(nullptr, nullptr);
  SetFormatTrace(nullptr, nullptr);
  const std::vector<std::u16string> expected{
      u"  <<fmtstring>>(@lv1): a%3s\n",
      u"  <a> fmtpos:0+1 width:false preci:false stock:0(@lv1) outpos:0+1 (~0+1)\n",
      u"  <%3s> fmtpos:1+3 width:true,3 preci:false stock:0(@lv1) outpos:1+2 (~1+2)\n",
      u"  <%3s> fmtpos:1+3 width:true,3 preci:false stock:0(@lv1) outpos:3+1 (~3+1)\n",
  };
  EXPECT_EQ(expected, g_wide_lines);
  EXPECT_EQ(0, narrow_lines);
}

}  // namespace
}  // namespace portwren
