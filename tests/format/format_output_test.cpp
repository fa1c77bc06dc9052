// Where the text goes: bounded buffers, the sink's advance, piece writers, the heap forms,
// advancing and appending, standard output.
#include <cstring>
#include <string>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::CollectPiece;
using testing_format::Pieces;

TEST(FormatBuffer, TruncationIsSilentAndCountsEverything) {
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(11, FormatToBuffer(buffer, 6, "hello %s", "world"));
  EXPECT_STREQ("hello", buffer);
  EXPECT_EQ('#', buffer[6]);  // nothing written past the capacity
}

TEST(FormatBuffer, CapacityOneGetsOnlyTheTerminator) {
  char buffer[4] = {'x', 'y', 'z', 'w'};
  EXPECT_EQ(5, FormatToBuffer(buffer, 1, "%d", 12345));
  EXPECT_EQ('\0', buffer[0]);
  EXPECT_EQ('y', buffer[1]);
}

TEST(FormatBuffer, CapacityZeroOrNoBufferOnlyMeasures) {
  char buffer[2] = {'x', 'y'};
  EXPECT_EQ(3, FormatToBuffer(buffer, 0, "abc"));
  EXPECT_EQ('x', buffer[0]);
  EXPECT_EQ(3, FormatToBuffer(buffer, -5, "abc"));
  EXPECT_EQ('x', buffer[0]);
  EXPECT_EQ(7, FormatToBuffer(nullptr, 100, "%s", "measure"));
}

TEST(FormatBuffer, ExactFitAndOneShort) {
  char buffer[8];
  EXPECT_EQ(4, FormatToBuffer(buffer, 5, "%04d", 7));
  EXPECT_STREQ("0007", buffer);
  EXPECT_EQ(4, FormatToBuffer(buffer, 4, "%04d", 7));
  EXPECT_STREQ("000", buffer);
}

TEST(FormatBuffer, CutInsidePaddingAndDigits) {
  char buffer[16];
  EXPECT_EQ(10, FormatToBuffer(buffer, 4, "%10d", 5));
  EXPECT_STREQ("   ", buffer);
  EXPECT_EQ(12, FormatToBuffer(buffer, 9, "ab%-10d", 123456));
  EXPECT_STREQ("ab123456", buffer);
}

TEST(FormatBuffer, HugePaddingIsCountedNotWritten) {
  char buffer[8];
  EXPECT_EQ(1000000000, FormatToBuffer(buffer, sizeof buffer, "%1000000000d", 7));
  EXPECT_STREQ("       ", buffer);
  EXPECT_EQ(2000000000, FormatToBuffer(buffer, sizeof buffer, "%*n", 1000000000, "ab"));
  EXPECT_STREQ("abababa", buffer);
}

TEST(FormatSinkState, CoreAdvancesBufferRoomAndBase) {
  char buffer[32];
  FormatSink sink;
  sink.buffer = buffer;
  sink.room = sizeof buffer;
  sink.base_pos = 5;
  EXPECT_EQ(3, FormatToSink(&sink, "%d", 123));
  EXPECT_EQ(buffer + 3, sink.buffer);
  EXPECT_EQ(29, sink.room);
  EXPECT_EQ(8, sink.base_pos);
  EXPECT_EQ(2, FormatToSink(&sink, "-%c", 'x'));
  EXPECT_STREQ("123-x", buffer);
  EXPECT_EQ(27, sink.room);
  EXPECT_EQ(10, sink.base_pos);
}

TEST(FormatSinkState, AdvanceAfterOverflowLeavesNoRoom) {
  char buffer[8];
  FormatSink sink;
  sink.buffer = buffer;
  sink.room = 4;
  EXPECT_EQ(6, FormatToSink(&sink, "abcdef"));
  EXPECT_EQ(-2, sink.room);
  EXPECT_STREQ("abc", buffer);
  // A sink without room takes nothing more, but still counts.
  EXPECT_EQ(2, FormatToSink(&sink, "gh"));
  EXPECT_STREQ("abc", buffer);
}

TEST(FormatPieces, ConcatenateToTheBufferText) {
  char buffer[128];
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  sink.buffer = buffer;
  sink.room = sizeof buffer;
  const int32_t count = FormatToSink(&sink, "id=%05d name=%-6s|%#x%%", -42, "ab", 255u);
  EXPECT_EQ("id=-0042 name=ab    |0xff%", pieces.text);
  EXPECT_EQ(pieces.text, buffer);
  EXPECT_EQ(static_cast<int32_t>(pieces.text.size()), count);
  EXPECT_EQ(0, pieces.traced);  // no trace record without a trace writer
}

TEST(FormatPieces, StreamingContinuesPastAFullBuffer) {
  char buffer[4];
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  sink.buffer = buffer;
  sink.room = sizeof buffer;
  EXPECT_EQ(11, FormatToSink(&sink, "%s %s", "hello", "world"));
  EXPECT_EQ("hello world", pieces.text);
  EXPECT_STREQ("hel", buffer);
}

TEST(FormatPieces, PaddingGoesOutInPiecesOfAtMostOneHundred) {
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  EXPECT_EQ(250, FormatToSink(&sink, "%250s", "x"));
  ASSERT_EQ(4u, pieces.list.size());
  EXPECT_EQ(std::string(100, ' '), pieces.list[0]);
  EXPECT_EQ(std::string(100, ' '), pieces.list[1]);
  EXPECT_EQ(std::string(49, ' '), pieces.list[2]);
  EXPECT_EQ("x", pieces.list[3]);

  Pieces<char> zeros;
  sink.context = &zeros;
  EXPECT_EQ(205, FormatToSink(&sink, "%-+205d|", 7) - 1);
  for (const std::string& piece : zeros.list) EXPECT_LE(piece.size(), 100u);
  EXPECT_EQ("+7" + std::string(203, ' ') + "|", zeros.text);
}

TEST(FormatPieces, LiteralRunsAndConversionsArePiecesOfTheirOwn) {
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  FormatToSink(&sink, "ab%dcd%5s", 12, "xy");
  const std::vector<std::string> expected{"ab", "12", "cd", "   ", "xy"};
  EXPECT_EQ(expected, pieces.list);
}

TEST(FormatPieces, ZeroPaddingSitsBetweenSignAndDigits) {
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  FormatToSink(&sink, "%#08x", 0xabu);
  const std::vector<std::string> expected{"0x", "0000", "ab"};
  EXPECT_EQ(expected, pieces.list);
}

TEST(FormatHeap, AllocReturnsTheWholeText) {
  char* text = nullptr;
  EXPECT_EQ(13, FormatAlloc(&text, "%s, %s!", "hello", "world"));
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("hello, world!", text);
  std::free(text);

  const std::string long_text(5000, 'q');
  EXPECT_EQ(5002, FormatAlloc(&text, "<%s>", long_text.c_str()));
  ASSERT_NE(nullptr, text);
  EXPECT_EQ("<" + long_text + ">", text);
  std::free(text);
}

TEST(FormatHeap, AllocMaxBoundsTheAllocation) {
  char* text = nullptr;
  EXPECT_EQ(10, FormatAllocMax(&text, 5, "%s", "0123456789"));
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("0123", text);
  std::free(text);

  EXPECT_EQ(3, FormatAllocMax(&text, 100, "%d", 123));
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("123", text);
  std::free(text);

  text = reinterpret_cast<char*>(&text);  // must be overwritten
  EXPECT_EQ(10, FormatAllocMax(&text, 0, "%s", "0123456789"));
  EXPECT_EQ(nullptr, text);
}

TEST(FormatHeap, NegativeMeasureIsMinusTwo) {
  char* text = reinterpret_cast<char*>(&text);
  // Two fields of 2^30 + 2^30 characters overflow the signed 32-bit count.
  EXPECT_EQ(-2, FormatAlloc(&text, "%*d%*d", 1 << 30, 1, 1 << 30, 2));
  EXPECT_EQ(nullptr, text);
}

int32_t AllocVia(char** out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t count = FormatAllocV(out, format, args);
  va_end(args);
  return count;
}

TEST(FormatHeap, VaListFormUsesItsArgumentsForBothPasses) {
  char* text = nullptr;
  EXPECT_EQ(9, AllocVia(&text, "%d-%s-%c", 1234, "ab", 'z'));
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("1234-ab-z", text);
  std::free(text);
}

TEST(FormatAdvance, MovesCursorAndRoom) {
  char buffer[16];
  char* cursor = buffer;
  int32_t room = sizeof buffer;
  EXPECT_EQ(4, FormatAdvance(&cursor, &room, "%s=", "key"));
  EXPECT_EQ(3, FormatAdvance(&cursor, &room, "%d;", 42));
  EXPECT_EQ(buffer + 7, cursor);
  EXPECT_EQ(9, room);
  EXPECT_STREQ("key=42;", buffer);
  // The next one does not fit: it is cut, and room goes below zero.
  EXPECT_EQ(10, FormatAdvance(&cursor, &room, "0123456789"));
  EXPECT_STREQ("key=42;01234567", buffer);
  EXPECT_EQ(-1, room);
  EXPECT_EQ(1, FormatAdvance(&cursor, &room, "z"));
  EXPECT_STREQ("key=42;01234567", buffer);
  EXPECT_EQ(-2, room);
}

TEST(FormatAppend, AddsToTheTextInTheBuffer) {
  char buffer[16] = "count:";
  EXPECT_EQ(9, FormatAppend(buffer, sizeof buffer, " %d", 12));
  EXPECT_STREQ("count: 12", buffer);
  EXPECT_EQ(15, FormatAppend(buffer, sizeof buffer, ", %s", "more"));
  EXPECT_STREQ("count: 12, more", buffer);
  EXPECT_EQ(18, FormatAppend(buffer, sizeof buffer, "abc"));
  EXPECT_STREQ("count: 12, more", buffer);
}

TEST(FormatAppend, UnterminatedBufferIsReadOnlyUpToItsCapacity) {
  char buffer[6] = {'a', 'b', 'c', 'd', 'e', 'f'};
  EXPECT_EQ(6, FormatAppend(buffer, sizeof buffer, "%s", "x"));
  EXPECT_STREQ("abcde", buffer);
}

TEST(FormatPrint, PrintsPieceByPieceToStandardOutput) {
  ::testing::internal::CaptureStdout();
  const int32_t count = FormatPrint("[%5s|%-3d|%c]\n", "ab", 7, 'z');
  const std::string printed = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ("[   ab|7  |z]\n", printed);
  EXPECT_EQ(static_cast<int32_t>(printed.size()), count);
}

}  // namespace
}  // namespace portwren
