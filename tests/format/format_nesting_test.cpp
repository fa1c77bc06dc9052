// Nesting: %w (a format with its own arguments) and %F (a render callback), their child sinks,
// and the separation of state between parent and child.
#include <cstring>
#include <string>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::CollectPiece;
using testing_format::Pieces;

// The usual shape of a logging wrapper: its caller's format and arguments go on through %w.
std::string Wrapped(const char* outer, const char* format, ...) {
  va_list args;
  va_start(args, format);
  NestedFormat nested;
  char buffer[256];
  FormatToBuffer(buffer, sizeof buffer, outer, MakeNestedFormat(&nested, format, &args));
  va_end(args);
  return buffer;
}

// A va_list received as a parameter must be copied into a local before its address is taken.
std::string WrappedV(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  NestedFormat nested;
  char buffer[256];
  FormatToBuffer(buffer, sizeof buffer, "(%w)", MakeNestedFormat(&nested, format, &copy));
  va_end(copy);
  return buffer;
}

std::string WrappedThroughParameter(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = WrappedV(format, args);
  va_end(args);
  return text;
}

// The plain form of %w: a format string followed by a pointer to a va_list.
std::string PlainNested(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char buffer[256];
  FormatToBuffer(buffer, sizeof buffer, "[%w|%d]", format, &args, 99);
  va_end(args);
  return buffer;
}

TEST(FormatNested, RecordCarriesFormatAndArguments) {
  EXPECT_EQ("<5-x>", Wrapped("<%w>", "%d-%s", 5, "x"));
  EXPECT_EQ("<>", Wrapped("<%w>", ""));
  EXPECT_EQ("(1 2 3)", WrappedThroughParameter("%d %d %d", 1, 2, 3));
  EXPECT_EQ("<-12.50|00ff>", Wrapped("<%w>", "%.2f|%04x", -12.5, 255));
}

TEST(FormatNested, PlainFormatConsumesTwoArguments) {
  EXPECT_EQ("[7:seven|99]", PlainNested("%d:%s", 7, "seven"));
}

TEST(FormatNested, NullPointerPrintsNothingAndConsumesTwo) {
  EXPECT_FORMAT("[7]", "[%w%d]", static_cast<const char*>(nullptr), static_cast<va_list*>(nullptr), 7);
}

TEST(FormatNested, RecordWithoutArgumentsReadsZeros) {
  NestedFormat nested;
  MakeNestedFormat(&nested, "%d|%s|%x", nullptr);
  EXPECT_FORMAT("<0||0>", "<%w>", &nested);
}

std::string Twice(const char* format, ...) {
  va_list args;
  va_start(args, format);
  NestedFormat nested;
  MakeNestedFormat(&nested, format, &args);
  char buffer[64];
  FormatToBuffer(buffer, sizeof buffer, "%w / %w", &nested, &nested);
  char* heap = nullptr;  // the heap form formats twice: measure, then write
  FormatAlloc(&heap, "%w", &nested);
  std::string text = std::string(buffer) + " / " + (heap != nullptr ? heap : "(null)");
  std::free(heap);
  va_end(args);
  return text;
}

TEST(FormatNested, OneRecordCanBeFormattedAgain) {
  EXPECT_EQ("a1 / a1 / a1", Twice("%s%d", "a", 1));
}

TEST(FormatNested, NestedInsideNested) {
  NestedFormat inner;
  MakeNestedFormat(&inner, "inner", nullptr);
  EXPECT_EQ("{1[inner]2}", Wrapped("{%w}", "%d[%w]%d", 1, &inner, 2));
}

// The parent sets all grouping state, then formats the child.
std::string ParentStateThenChild(const char* child_format, ...) {
  va_list args;
  va_start(args, child_format);
  NestedFormat child;
  MakeNestedFormat(&child, child_format, &args);
  char buffer[64];
  FormatToBuffer(buffer, sizeof buffer, "%T%_%t%D|%w|%x", ",", 2, ".", 1234, &child, 0x1234u);
  va_end(args);
  return buffer;
}

// The child sets all grouping state; the parent formats after it.
std::string ChildStateThenParent(const char* child_format, ...) {
  va_list args;
  va_start(args, child_format);
  NestedFormat child;
  MakeNestedFormat(&child, child_format, &args);
  char buffer[64];
  FormatToBuffer(buffer, sizeof buffer, "%w|%D|%d|%t%d", &child, 1234, 1234, ",", 5678);
  va_end(args);
  return buffer;
}

TEST(FormatNested, StateDoesNotLeakInOrOut) {
  EXPECT_EQ("1,234|5 678 5678|12.34", ParentStateThenChild("%D %d", 5678, 5678));
  EXPECT_EQ("9.876|1 234|1234|5,678", ChildStateThenParent("%T%_%t%D", ".", 2, ":", 9876));
}

TEST(FormatNested, TruncatedInsideTheChild) {
  NestedFormat nested;
  MakeNestedFormat(&nested, "12345", nullptr);
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(9, FormatToBuffer(buffer, 6, "ab%wcd", &nested));
  EXPECT_STREQ("ab123", buffer);
  EXPECT_EQ('#', buffer[6]);
  EXPECT_EQ(9, FormatToBuffer(buffer, 3, "ab%wcd", &nested));
  EXPECT_STREQ("ab", buffer);
}

TEST(FormatNested, PiecesOfTheChildReachTheParentsWriter) {
  NestedFormat nested;
  MakeNestedFormat(&nested, "<%s>", nullptr);  // null string: nothing
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  char buffer[32];
  sink.buffer = buffer;
  sink.room = sizeof buffer;
  EXPECT_EQ(5, FormatToSink(&sink, "a%wb%%", &nested));
  const std::vector<std::string> expected{"a", "<", ">", "b", "%"};
  EXPECT_EQ(expected, pieces.list);
  EXPECT_STREQ("a<>b%", buffer);
}

// What a render function saw of its child sink.
struct SinkSeen {
  uint32_t level = 99;
  int32_t base_pos = -1;
  int32_t room = -1;
  bool quiet = false;
  bool has_writer = false;
  std::string text_before;  // the parent's text, read at the call
  const char* parent = nullptr;
};

int32_t RecordSink(void* argument, FormatSink* sink) {
  auto* seen = static_cast<SinkSeen*>(argument);
  seen->level = sink->level;
  seen->base_pos = sink->base_pos;
  seen->room = sink->room;
  seen->quiet = sink->quiet;
  seen->has_writer = sink->writer != nullptr;
  if (seen->parent != nullptr) seen->text_before = seen->parent;
  return FormatToSink(sink, "<%d>", 42);
}

TEST(FormatCallback, RendersIntoTheChildSink) {
  SinkSeen seen;
  FormatCallback callback;
  MakeFormatCallback(&callback, &RecordSink, &seen);
  char buffer[32];
  seen.parent = buffer;
  EXPECT_EQ(9, FormatToBuffer(buffer, sizeof buffer, "abc%Fxy", &callback));
  EXPECT_STREQ("abc<42>xy", buffer);
  EXPECT_EQ(1u, seen.level);
  EXPECT_EQ(3, seen.base_pos);
  EXPECT_EQ(29, seen.room);
  EXPECT_FALSE(seen.quiet);
  EXPECT_FALSE(seen.has_writer);
  EXPECT_EQ("abc", seen.text_before);  // terminated before the child runs
}

TEST(FormatCallback, ChildOfADeeperSinkCarriesLevelBaseAndQuiet) {
  SinkSeen seen;
  FormatCallback callback;
  MakeFormatCallback(&callback, &RecordSink, &seen);
  Pieces<char> pieces;
  FormatSink sink;
  sink.writer = &CollectPiece<char>;
  sink.context = &pieces;
  sink.level = 2;
  sink.base_pos = 10;
  sink.quiet = true;
  EXPECT_EQ(5, FormatToSink(&sink, "%d%F", 7, &callback));
  EXPECT_EQ(3u, seen.level);
  EXPECT_EQ(11, seen.base_pos);
  EXPECT_EQ(0, seen.room);  // no buffer
  EXPECT_TRUE(seen.quiet);
  EXPECT_TRUE(seen.has_writer);
  EXPECT_EQ("7<42>", pieces.text);
}

TEST(FormatCallback, RoomOfTheChildIsWhatTheParentHasLeft) {
  SinkSeen seen;
  FormatCallback callback;
  MakeFormatCallback(&callback, &RecordSink, &seen);
  char buffer[8];
  EXPECT_EQ(14, FormatToBuffer(buffer, 6, "0123456789%F", &callback));
  EXPECT_EQ(-4, seen.room);  // the parent's own text already overflowed the buffer
  EXPECT_EQ(10, seen.base_pos);
  EXPECT_STREQ("01234", buffer);
}

int32_t CoreNested(FormatSink* sink, const char* outer, const char* inner, ...) {
  va_list args;
  va_start(args, inner);
  NestedFormat nested;
  const int32_t count = FormatToSink(sink, outer, MakeNestedFormat(&nested, inner, &args));
  va_end(args);
  return count;
}

// Renders "[%w]" whose nested format "(%F)" calls the innermost callback.
int32_t RenderDeeper(void* argument, FormatSink* sink) {
  return CoreNested(sink, "[%w]", "(%F)", static_cast<FormatCallback*>(argument));
}

TEST(FormatCallback, LevelsCountEveryNesting) {
  SinkSeen seen;
  FormatCallback innermost;
  MakeFormatCallback(&innermost, &RecordSink, &seen);
  FormatCallback middle;
  MakeFormatCallback(&middle, &RenderDeeper, &innermost);
  EXPECT_EQ("-[(<42>)]-", Wrapped("%w", "-%F-", &middle));
  EXPECT_EQ(4u, seen.level);  // %w, %F, %w, %F
  EXPECT_EQ(3, seen.base_pos);
}

int32_t RenderTwoCalls(void*, FormatSink* sink) {
  const int32_t first = FormatToSink(sink, "%s", "one");
  return first + FormatToSink(sink, "+%s", "two");
}

int32_t RenderNegative(void*, FormatSink*) { return -5; }

TEST(FormatCallback, SeveralCallsOnTheChildFollowEachOther) {
  FormatCallback callback;
  MakeFormatCallback(&callback, &RenderTwoCalls, nullptr);
  EXPECT_FORMAT("[one+two]", "[%F]", &callback);
}

TEST(FormatCallback, NegativeCountIsTakenAsZero) {
  FormatCallback callback;
  MakeFormatCallback(&callback, &RenderNegative, nullptr);
  EXPECT_FORMAT("ab", "a%Fb", &callback);
}

TEST(FormatCallback, WrongTagOrNoFunctionPrintsNothing) {
  FormatCallback wrong_tag;
  MakeFormatCallback(&wrong_tag, &RenderTwoCalls, nullptr);
  wrong_tag.tag = kNestedFormatTag;
  FormatCallback no_function;
  MakeFormatCallback(&no_function, nullptr, nullptr);
  EXPECT_FORMAT("[5|6|7]", "[%F%d|%F%d|%F%d]", &wrong_tag, 5, &no_function, 6,
                static_cast<FormatCallback*>(nullptr), 7);
}

}  // namespace
}  // namespace portwren
