// The directive trace: one header line per format, one line per piece, never of itself.
#include <string>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::CollectPiece;
using testing_format::Pieces;

void CollectLine(void* context, const char* text) { static_cast<std::vector<std::string>*>(context)->push_back(text); }

// A writer that formats the line itself, as a real one printing through the engine would.
void ReformatLine(void* context, const char* text) {
  char copy[256];
  FormatToBuffer(copy, sizeof copy, "%s", text);
  FormatPrint("%s", "");
  static_cast<std::vector<std::string>*>(context)->push_back(copy);
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
  std::vector<std::string> lines_;
};

TEST_F(FormatTrace, HeaderThenOneLinePerPiece) {
  char buffer[32];
  EXPECT_EQ(7, FormatToBuffer(buffer, sizeof buffer, "a%5db", 42));
  EXPECT_STREQ("a   42b", buffer);
  const std::vector<std::string> expected{
      "  <<fmtstring>>(@lv1): a%5db\n",
      "  <a> fmtpos:0+1 width:false preci:false stock:0(@lv1) outpos:0+1 (~0+1)\n",
      "  <%5d> fmtpos:1+3 width:true,5 preci:false stock:0(@lv1) outpos:1+3 (~1+3)\n",
      "  <%5d> fmtpos:1+3 width:true,5 preci:false stock:0(@lv1) outpos:4+2 (~4+2)\n",
      "  <b> fmtpos:4+1 width:false preci:false stock:0(@lv1) outpos:6+1 (~6+1)\n",
  };
  EXPECT_EQ(expected, lines_);
}

TEST_F(FormatTrace, NestedFormatIsIndentedOneLevelDeeper) {
  NestedFormat nested;
  MakeNestedFormat(&nested, "<%.2d>", nullptr);
  char buffer[32];
  EXPECT_EQ(6, FormatToBuffer(buffer, sizeof buffer, "x%wy", &nested));
  EXPECT_STREQ("x<00>y", buffer);
  const std::vector<std::string> expected{
      "  <<fmtstring>>(@lv1): x%wy\n",
      "  <x> fmtpos:0+1 width:false preci:false stock:0(@lv1) outpos:0+1 (~0+1)\n",
      "    <<fmtstring>>(@lv2): <%.2d>\n",
      "    <<> fmtpos:0+1 width:false preci:false stock:1(@lv2) outpos:0+1 (~1+1)\n",
      "    <%.2d> fmtpos:1+4 width:false preci:true,2 stock:1(@lv2) outpos:1+2 (~2+2)\n",
      "    <>> fmtpos:5+1 width:false preci:false stock:1(@lv2) outpos:3+1 (~4+1)\n",
      "  <y> fmtpos:3+1 width:false preci:false stock:0(@lv1) outpos:5+1 (~5+1)\n",
  };
  EXPECT_EQ(expected, lines_);
}

TEST_F(FormatTrace, StarValuesAndTheEngineLineEnd) {
  SetFormatLineEnd(1);
  char buffer[32];
  FormatToBuffer(buffer, sizeof buffer, "%-*.*s", -3, 1, "xyz");
  const std::vector<std::string> expected{
      "  <<fmtstring>>(@lv1): %-*.*s\r\n",
      "  <%-*.*s> fmtpos:0+6 width:true,3 preci:true,1 stock:0(@lv1) outpos:0+1 (~0+1)\r\n",
      "  <%-*.*s> fmtpos:0+6 width:true,3 preci:true,1 stock:0(@lv1) outpos:1+2 (~1+2)\r\n",
  };
  EXPECT_EQ(expected, lines_);
}

TEST_F(FormatTrace, BasePositionOfTheSinkIsTheStock) {
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  sink.base_pos = 100;
  sink.level = 1;
  FormatToSink(&sink, "ab");
  const std::vector<std::string> expected{
      "    <<fmtstring>>(@lv2): ab\n",
      "    <ab> fmtpos:0+2 width:false preci:false stock:100(@lv2) outpos:0+2 (~100+2)\n",
  };
  EXPECT_EQ(expected, lines_);
  EXPECT_EQ(1, pieces.traced);  // the piece writer was handed the trace record
}

TEST_F(FormatTrace, RecordHandedToThePieceWriter) {
  struct Seen {
    std::vector<FormatTraceRecord> records;
  } seen;
  FormatSink sink;
  sink.context = &seen;
  sink.writer = [](void* context, const char*, int32_t, const FormatTraceRecord* trace) {
    if (trace != nullptr) static_cast<Seen*>(context)->records.push_back(*trace);
  };
  sink.base_pos = 7;
  FormatToSink(&sink, "-%08.3f", 1.5);
  ASSERT_EQ(3u, seen.records.size());
  const FormatTraceRecord& zeros = seen.records[1];
  EXPECT_EQ(std::string("%08.3f"), std::string(zeros.directive, static_cast<std::size_t>(zeros.directive_length)));
  EXPECT_EQ(1, zeros.format_offset);
  EXPECT_TRUE(zeros.width_given);
  EXPECT_EQ(8, zeros.width);
  EXPECT_TRUE(zeros.precision_given);
  EXPECT_EQ(3, zeros.precision);
  EXPECT_EQ(1u, zeros.level);
  EXPECT_EQ(7, zeros.base_pos);
  EXPECT_EQ(1, zeros.count);
  EXPECT_EQ(4, seen.records[2].count);
}

TEST_F(FormatTrace, QuietFormattingIsNotTraced) {
  char buffer[32];
  EXPECT_EQ(3, FormatQuiet(buffer, sizeof buffer, "%d", 123));
  FormatSink sink;
  sink.buffer = buffer;
  sink.room = sizeof buffer;
  sink.quiet = true;
  NestedFormat nested;
  MakeNestedFormat(&nested, "inner", nullptr);
  FormatToSink(&sink, "x%wy", &nested);  // quiet reaches the child too
  EXPECT_STREQ("xinnery", buffer);
  EXPECT_TRUE(lines_.empty());
}

TEST_F(FormatTrace, AFormatWithoutPiecesHasNoHeader) {
  char buffer[8];
  FormatToBuffer(buffer, sizeof buffer, "%s%T", "", ",");
  EXPECT_TRUE(lines_.empty());
}

TEST_F(FormatTrace, LinesAreCutAt199Characters) {
  const std::string format(300, 'f');
  char buffer[8];
  FormatToBuffer(buffer, sizeof buffer, format.c_str());
  ASSERT_EQ(2u, lines_.size());
  EXPECT_EQ(199u, lines_[0].size());
  EXPECT_EQ("  <<fmtstring>>(@lv1): fff", lines_[0].substr(0, 26));
  EXPECT_EQ(199u, lines_[1].size());
}

TEST_F(FormatTrace, AWriterThatFormatsDoesNotTraceItself) {
  SetFormatTrace(&ReformatLine, &lines_);
  char buffer[8];
  FormatToBuffer(buffer, sizeof buffer, "ab");
  const std::vector<std::string> expected{
      "  <<fmtstring>>(@lv1): ab\n",
      "  <ab> fmtpos:0+2 width:false preci:false stock:0(@lv1) outpos:0+2 (~0+2)\n",
  };
  EXPECT_EQ(expected, lines_);
}

TEST_F(FormatTrace, SwitchedOffByANullWriter) {
  SetFormatTrace(nullptr, nullptr);
  char buffer[8];
  FormatToBuffer(buffer, sizeof buffer, "ab%d", 1);
  EXPECT_TRUE(lines_.empty());
}

TEST_F(FormatTrace, DumpPiecesAreTracedWithTheirDirective) {
  const unsigned char data[] = {1, 2};
  char buffer[32];
  FormatToBuffer(buffer, sizeof buffer, "%k%*m", " ", 2, data);
  const std::vector<std::string> expected{
      "  <<fmtstring>>(@lv1): %k%*m\n",
      "  <%*m> fmtpos:2+3 width:true,2 preci:false stock:0(@lv1) outpos:0+5 (~0+5)\n",
  };
  EXPECT_EQ(expected, lines_);
}

}  // namespace
}  // namespace portwren
