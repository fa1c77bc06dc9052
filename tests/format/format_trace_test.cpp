// The directive trace: one header line per format, one line per piece, never of itself.
#include <cstdio>
#include <string>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::Counted;
using testing_format::InBuffer;
using testing_format::Pieces;
using Lines = std::vector<std::string>;

void CollectLine(void* context, const char* text) {
  static_cast<Lines*>(context)->push_back(text);
}

void ReformatLine(void* context, const char* text) {
  char copy[256];
  FormatToBuffer(copy, sizeof copy, "%s", text);
  FormatPrint("%s", "");
  static_cast<Lines*>(context)->push_back(copy);
}

class FormatTrace : public ::testing::Test {
 protected:
  void SetUp() override {
    SetFormatLineEnd(0);
    SetFormatTrace(&CollectLine, &lines_);
  }
  void TearDown() override {
    SetFormatTrace(nullptr, nullptr);
    SetFormatLineEnd(0);
  }
  Lines lines_;
};

// A header line per format, a line per piece; a nested format one level deeper, with the stock
// of its parent; star values; the engine's line end; a sink's base position is the stock.
TEST_F(FormatTrace, HeaderThenOneLinePerPiece) {
  EXPECT_EQ(Counted(7, "a   42b"), InBuffer(32, "a%5db", 42));
  NestedFormat nested;
  EXPECT_EQ(Counted(6, "x<00>y"), InBuffer(32, "x%wy", MakeNestedFormat(&nested, "<%.2d>", nullptr)));
  const unsigned char data[] = {1, 2};
  InBuffer(32, "%k%*m", " ", 2, data);
  Pieces<char> pieces;
  pieces.sink.base_pos = 100;
  pieces.sink.level = 1;
  FormatToSink(&pieces.sink, "ab");
  EXPECT_EQ(1, pieces.traced);  // the piece writer was handed the trace record
  SetFormatLineEnd(1);
  InBuffer(32, "%-*.*s", -3, 1, "xyz");
  const Lines expected{
      "  <<fmtstring>>(@lv1): a%5db\n",
      "  <a> fmtpos:0+1 width:false preci:false stock:0(@lv1) outpos:0+1 (~0+1)\n",
      "  <%5d> fmtpos:1+3 width:true,5 preci:false stock:0(@lv1) outpos:1+3 (~1+3)\n",
      "  <%5d> fmtpos:1+3 width:true,5 preci:false stock:0(@lv1) outpos:4+2 (~4+2)\n",
      "  <b> fmtpos:4+1 width:false preci:false stock:0(@lv1) outpos:6+1 (~6+1)\n",
      "  <<fmtstring>>(@lv1): x%wy\n",
      "  <x> fmtpos:0+1 width:false preci:false stock:0(@lv1) outpos:0+1 (~0+1)\n",
      "    <<fmtstring>>(@lv2): <%.2d>\n",
      "    <<> fmtpos:0+1 width:false preci:false stock:1(@lv2) outpos:0+1 (~1+1)\n",
      "    <%.2d> fmtpos:1+4 width:false preci:true,2 stock:1(@lv2) outpos:1+2 (~2+2)\n",
      "    <>> fmtpos:5+1 width:false preci:false stock:1(@lv2) outpos:3+1 (~4+1)\n",
      "  <y> fmtpos:3+1 width:false preci:false stock:0(@lv1) outpos:5+1 (~5+1)\n",
      "  <<fmtstring>>(@lv1): %k%*m\n",
      "  <%*m> fmtpos:2+3 width:true,2 preci:false stock:0(@lv1) outpos:0+5 (~0+5)\n",
      "    <<fmtstring>>(@lv2): ab\n",
      "    <ab> fmtpos:0+2 width:false preci:false stock:100(@lv2) outpos:0+2 (~100+2)\n",
      "  <<fmtstring>>(@lv1): %-*.*s\r\n",
      "  <%-*.*s> fmtpos:0+6 width:true,3 preci:true,1 stock:0(@lv1) outpos:0+1 (~0+1)\r\n",
      "  <%-*.*s> fmtpos:0+6 width:true,3 preci:true,1 stock:0(@lv1) outpos:1+2 (~1+2)\r\n",
  };
  EXPECT_EQ(expected, lines_);
}

TEST_F(FormatTrace, RecordHandedToThePieceWriter) {
  std::vector<FormatTraceRecord> records;
  FormatSink sink;
  sink.context = &records;
  sink.writer = [](void* context, const char*, int32_t, const FormatTraceRecord* trace) {
    if (trace != nullptr) static_cast<std::vector<FormatTraceRecord>*>(context)->push_back(*trace);
  };
  sink.base_pos = 7;
  FormatToSink(&sink, "-%08.3f", 1.5);
  ASSERT_EQ(3u, records.size());
  const FormatTraceRecord& r = records[1];  // the zeros of the padding
  char fields[128];
  std::snprintf(fields, sizeof fields, "%.*s at %d width %d,%d precision %d,%d level %u base %d count %d",
                r.directive_length, r.directive, r.format_offset, r.width_given, r.width, r.precision_given,
                r.precision, r.level, r.base_pos, r.count);
  EXPECT_STREQ("%08.3f at 1 width 1,8 precision 1,3 level 1 base 7 count 1", fields);
  EXPECT_EQ(4, records[2].count);
}

TEST_F(FormatTrace, NothingTracedWhenQuietSwitchedOffOrWithoutPieces) {
  char buffer[8];
  EXPECT_EQ(3, FormatQuiet(buffer, sizeof buffer, "%d", 123));
  EXPECT_STREQ("123", buffer);
  NestedFormat nested;
  MakeNestedFormat(&nested, "inner", nullptr);
  Pieces<char> quiet;
  quiet.sink.quiet = true;
  FormatToSink(&quiet.sink, "x%wy", &nested);  // quiet reaches the child too
  EXPECT_EQ("xinnery", quiet.text);
  EXPECT_EQ(0, quiet.traced);
  InBuffer(8, "%s%T", "", ",");  // a format without pieces has no header
  EXPECT_TRUE(lines_.empty());
  SetFormatTrace(nullptr, nullptr);
  InBuffer(8, "ab%d", 1);
  EXPECT_TRUE(lines_.empty());
}

// The writer formats the line itself, as a real one printing through the engine does: that is
// not traced (there would be more lines).
TEST_F(FormatTrace, LinesAreCutAt199CharactersAndAWriterThatFormatsIsNotTraced) {
  SetFormatTrace(&ReformatLine, &lines_);
  InBuffer(8, std::string(300, 'f').c_str());
  ASSERT_EQ(2u, lines_.size());
  EXPECT_EQ(199u, lines_[0].size());
  EXPECT_EQ("  <<fmtstring>>(@lv1): fff", lines_[0].substr(0, 26));
  EXPECT_EQ(199u, lines_[1].size());
}

TEST_F(FormatTrace, TheWideEngineHasItsOwnWriter) {
  std::vector<std::u16string> wide;
  SetWideFormatTrace(
      [](void* context, const char16_t* text) {
        static_cast<std::vector<std::u16string>*>(context)->emplace_back(text);
      },
      &wide);
  InBuffer(16, u"a%3s", u"b");
  SetWideFormatTrace(nullptr, nullptr);
  const std::vector<std::u16string> expected{
      u"  <<fmtstring>>(@lv1): a%3s\n",
      u"  <a> fmtpos:0+1 width:false preci:false stock:0(@lv1) outpos:0+1 (~0+1)\n",
      u"  <%3s> fmtpos:1+3 width:true,3 preci:false stock:0(@lv1) outpos:1+2 (~1+2)\n",
      u"  <%3s> fmtpos:1+3 width:true,3 preci:false stock:0(@lv1) outpos:3+1 (~3+1)\n",
  };
  EXPECT_EQ(expected, wide);
  EXPECT_TRUE(lines_.empty());  // nothing on the narrow writer
}

}  // namespace
}  // namespace portwren
