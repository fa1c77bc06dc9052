// Where the text goes: bounded buffers, the sink's advance, piece writers, the heap forms,
// advancing and appending, standard output.
#include <cstdarg>
#include <string>
#include <tuple>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::AllocMaxText;
using testing_format::AllocText;
using testing_format::Counted;
using testing_format::InBuffer;
using testing_format::Pieces;
using testing_format::Written;

// InBuffer also checks that nothing lands past the capacity and that the text is terminated.
TEST(FormatBuffer, TruncationIsSilentAndCountsEverything) {
  EXPECT_EQ(Counted(11, "hello"), InBuffer(6, "hello %s", "world"));
  EXPECT_EQ(Counted(5, ""), InBuffer(1, "%d", 12345));  // only the terminator
  EXPECT_EQ(Counted(3, ""), InBuffer(0, "abc"));        // no room: only measures
  EXPECT_EQ(Counted(3, ""), InBuffer(-5, "abc"));
  EXPECT_EQ(7, FormatToBuffer(nullptr, 100, "%s", "measure"));
  EXPECT_EQ(Counted(4, "0007"), InBuffer(5, "%04d", 7));  // exact fit
  EXPECT_EQ(Counted(4, "000"), InBuffer(4, "%04d", 7));   // one short
  EXPECT_EQ(Counted(10, "   "), InBuffer(4, "%10d", 5));  // cut in the padding
  EXPECT_EQ(Counted(12, "ab123456"), InBuffer(9, "ab%-10d", 123456));
  // Huge padding is counted, not written.
  EXPECT_EQ(Counted(1000000000, "       "), InBuffer(8, "%1000000000d", 7));
  EXPECT_EQ(Counted(2000000000, "abababa"), InBuffer(8, "%*n", 1000000000, "ab"));
}

TEST(FormatSinkState, CoreAdvancesBufferRoomAndBase) {
  char buffer[32];
  FormatSink sink;
  sink.buffer = buffer;
  sink.room = sizeof buffer;
  sink.base_pos = 5;
  const auto state = [&] { return std::tuple{sink.buffer - buffer, sink.room, sink.base_pos}; };
  EXPECT_EQ(3, FormatToSink(&sink, "%d", 123));
  EXPECT_EQ(std::tuple(3, 29, 8), state());
  EXPECT_EQ(2, FormatToSink(&sink, "-%c", 'x'));
  EXPECT_EQ(std::tuple(5, 27, 10), state());
  EXPECT_STREQ("123-x", buffer);
  // An overflow leaves no room; a sink without room takes nothing more, but still counts.
  sink.buffer = buffer;
  sink.room = 4;
  EXPECT_EQ(6, FormatToSink(&sink, "abcdef"));
  EXPECT_EQ(-2, sink.room);
  EXPECT_STREQ("abc", buffer);
  EXPECT_EQ(2, FormatToSink(&sink, "gh"));
  EXPECT_STREQ("abc", buffer);
}

// Pieces go on past a full buffer; padding goes out in pieces of at most a hundred. (Which
// pieces a directive makes shows in the trace, one line each.)
TEST(FormatPieces, GoOnPastTheBufferAndPadInBoundedPieces) {
  char buffer[4];
  Pieces<char> past(buffer, sizeof buffer);
  EXPECT_EQ(11, FormatToSink(&past.sink, "%s %s", "hello", "world"));
  EXPECT_EQ("hello world", past.text);
  EXPECT_STREQ("hel", buffer);
  EXPECT_EQ(0, past.traced);  // no trace record without a trace writer
  Pieces<char> pieces;
  EXPECT_EQ(250, FormatToSink(&pieces.sink, "%250s", "x"));
  EXPECT_EQ(
      (std::vector<std::string>{std::string(100, ' '), std::string(100, ' '), std::string(49, ' '), "x"}),
      pieces.list);
}

int32_t AllocVia(char** out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t count = FormatAllocV(out, format, args);
  va_end(args);
  return count;
}

TEST(FormatHeap, AllocFormsAndTheirBounds) {
  EXPECT_EQ(Counted(13, "hello, world!"), AllocText("%s, %s!", "hello", "world"));
  const std::string long_text(5000, 'q');
  EXPECT_EQ(Counted(5002, ("<" + long_text + ">").c_str()), AllocText("<%s>", long_text.c_str()));
  EXPECT_EQ(Counted(10, "0123"), AllocMaxText(5, "%s", "0123456789"));
  EXPECT_EQ(Counted(3, "123"), AllocMaxText(100, "%d", 123));
  EXPECT_EQ(Counted<char>(10, nullptr), AllocMaxText(0, "%s", "0123456789"));
  // Two fields of 2^30 + 2^30 characters overflow the signed 32-bit count: measuring fails.
  EXPECT_EQ(Counted<char>(-2, nullptr), AllocText("%*d%*d", 1 << 30, 1, 1 << 30, 2));
  // The va_list form uses its arguments for both passes, measure and write.
  char* text = nullptr;
  const int32_t count = AllocVia(&text, "%d-%s-%c", 1234, "ab", 'z');
  EXPECT_EQ(Counted(9, "1234-ab-z"), testing_format::TakeHeap(count, text));
}

TEST(FormatAdvance, MovesCursorAndRoom) {
  char buffer[16];
  char* cursor = buffer;
  int32_t room = sizeof buffer;
  const auto state = [&] { return std::tuple{std::string(buffer), cursor - buffer, room}; };
  EXPECT_EQ(4, FormatAdvance(&cursor, &room, "%s=", "key"));
  EXPECT_EQ(3, FormatAdvance(&cursor, &room, "%d;", 42));
  EXPECT_EQ(std::tuple("key=42;", 7, 9), state());
  // The next one does not fit: it is cut, and room goes below zero.
  EXPECT_EQ(10, FormatAdvance(&cursor, &room, "0123456789"));
  EXPECT_EQ(std::tuple("key=42;01234567", 17, -1), state());
  EXPECT_EQ(1, FormatAdvance(&cursor, &room, "z"));
  EXPECT_EQ(std::tuple("key=42;01234567", 18, -2), state());
}

TEST(FormatAppend, AddsToTheTextInTheBuffer) {
  char buffer[16] = "count:";
  const auto append = [&](const char* format, auto... args) {
    return Written<char>{FormatAppend(buffer, sizeof buffer, format, args...), buffer};
  };
  EXPECT_EQ(Counted(9, "count: 12"), append(" %d", 12));
  EXPECT_EQ(Counted(15, "count: 12, more"), append(", %s", "more"));
  EXPECT_EQ(Counted(18, "count: 12, more"), append("abc"));
  // An unterminated buffer is read only up to its capacity.
  char full[6] = {'a', 'b', 'c', 'd', 'e', 'f'};
  EXPECT_EQ(6, FormatAppend(full, sizeof full, "%s", "x"));
  EXPECT_STREQ("abcde", full);
}

TEST(FormatPrint, PrintsPieceByPieceToStandardOutput) {
  ::testing::internal::CaptureStdout();
  const int32_t count = FormatPrint("[%5s|%-3d|%c]\n", "ab", 7, 'z');
  EXPECT_EQ("[   ab|7  |z]\n", ::testing::internal::GetCapturedStdout());
  EXPECT_EQ(14, count);
}

}  // namespace
}  // namespace portwren
