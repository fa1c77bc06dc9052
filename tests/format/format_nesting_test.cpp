// Nesting: %w (a format with its own arguments) and %F (a render callback), their child sinks,
// and the separation of state between parent and child.
#include <cstdarg>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "format_expect.h"

namespace portwren {
namespace {

using testing_format::Counted;
using testing_format::FormatsAs;
using testing_format::InBuffer;
using testing_format::Pieces;

// The usual shape of a logging wrapper: its caller's format and arguments go on through %w.
// A va_list received as a parameter must be copied into a local before its address is taken.
// `use` gets the record made of them, and the format and arguments for the plain form.
template <class Use>
::testing::AssertionResult PassOn(const Use& use, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  NestedFormat nested;
  const ::testing::AssertionResult result = use(MakeNestedFormat(&nested, format, &copy), format, &copy);
  va_end(copy);
  return result;
}
// `use` by reference: MinGW's GCC 12 starts the variable arguments one slot early after an
// empty class passed by value, as a lambda without captures is.
template <class Use>
::testing::AssertionResult WithArgs(const Use& use, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const ::testing::AssertionResult result = PassOn(use, format, args);
  va_end(args);
  return result;
}

// The record formatted by `outer` on its own.
auto Nests(const char* expected, const char* outer) {
  return [=](NestedFormat* nested, const char*, va_list*) { return FormatsAs(expected, outer, nested); };
}

TEST(FormatNested, RecordCarriesFormatAndArguments) {
  EXPECT_TRUE(WithArgs(Nests("<5-x>", "<%w>"), "%d-%s", 5, "x"));
  EXPECT_TRUE(WithArgs(Nests("<>", "<%w>"), ""));
  EXPECT_TRUE(WithArgs(Nests("<-12.50|00ff>", "<%w>"), "%.2f|%04x", -12.5, 255));
  // One record can be formatted again: FormatsAs formats three times (the heap form twice).
  const auto twice = [](NestedFormat* nested, const char*, va_list*) {
    return FormatsAs("a1 / a1", "%w / %w", nested, nested);
  };
  EXPECT_TRUE(WithArgs(twice, "%s%d", "a", 1));
  // The plain form of %w consumes two arguments: a format and a pointer to a va_list.
  const auto plain = [](NestedFormat*, const char* format, va_list* args) {
    return FormatsAs("[7:seven|99]", "[%w|%d]", format, args, 99);
  };
  EXPECT_TRUE(WithArgs(plain, "%d:%s", 7, "seven"));
  EXPECT_FORMAT("[7]", "[%w%d]", static_cast<const char*>(nullptr), static_cast<va_list*>(nullptr), 7);
  // A record without arguments reads zeros; records nest inside records.
  NestedFormat zeros;
  EXPECT_FORMAT("<0||0>", "<%w>", MakeNestedFormat(&zeros, "%d|%s|%x", nullptr));
  NestedFormat inner;
  MakeNestedFormat(&inner, "inner", nullptr);
  EXPECT_TRUE(WithArgs(Nests("{1[inner]2}", "{%w}"), "%d[%w]%d", 1, &inner, 2));
}

TEST(FormatNested, StateDoesNotLeakInOrOut) {
  // The parent sets all grouping state, then formats the child ...
  const auto parent_first = [](NestedFormat* child, const char*, va_list*) {
    return FormatsAs("1,234|5 678 5678|12.34", "%T%_%t%D|%w|%x", ",", 2, ".", 1234, child, 0x1234u);
  };
  EXPECT_TRUE(WithArgs(parent_first, "%D %d", 5678, 5678));
  // ... and the child sets all grouping state; the parent formats after it.
  const auto child_first = [](NestedFormat* child, const char*, va_list*) {
    return FormatsAs("9.876|1 234|1234|5,678", "%w|%D|%d|%t%d", child, 1234, 1234, ",", 5678);
  };
  EXPECT_TRUE(WithArgs(child_first, "%T%_%t%D", ".", 2, ":", 9876));
}

TEST(FormatNested, TruncatedInsideTheChildAndItsPiecesReachTheParentsWriter) {
  NestedFormat digits;
  MakeNestedFormat(&digits, "12345", nullptr);
  EXPECT_EQ(Counted(9, "ab123"), InBuffer(6, "ab%wcd", &digits));
  EXPECT_EQ(Counted(9, "ab"), InBuffer(3, "ab%wcd", &digits));

  NestedFormat nested;
  MakeNestedFormat(&nested, "<%s>", nullptr);  // null string: nothing
  char buffer[32];
  Pieces<char> pieces(buffer, sizeof buffer);
  EXPECT_EQ(5, FormatToSink(&pieces.sink, "a%wb%%", &nested));
  EXPECT_EQ((std::vector<std::string>{"a", "<", ">", "b", "%"}), pieces.list);
  EXPECT_STREQ("a<>b%", buffer);
}

// Fields wider than 2^31 characters in total left the room wrapped to a positive count, so a
// later child wrote far past the buffer (found by the format fuzzer).
TEST(FormatNested, ChildAfterHugeFieldsGetsNoRoom) {
  NestedFormat inner;
  MakeNestedFormat(&inner, "x", nullptr);
  NestedFormat outer;
  MakeNestedFormat(&outer, "%01500000000u%01500000000u%w", nullptr);  // the child reads a null record
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  FormatToBuffer(buffer, 2, "%w%w", &outer, &inner);
  EXPECT_EQ(0, buffer[1]);
  EXPECT_EQ(std::string(6, '#'), std::string(buffer + 2, 6)) << "nothing past the room";
}

// What a render function saw of its child sink: level, base position, room, quiet, whether it
// has a writer, and the parent's text read at the call.
using SinkSeen = std::tuple<uint32_t, int32_t, int32_t, bool, bool, std::string>;

struct Recorder {
  SinkSeen seen;
  const char* parent = nullptr;  // the parent's buffer, if any
  FormatCallback callback;
  Recorder() { MakeFormatCallback(&callback, &Record, this); }

  static int32_t Record(void* argument, FormatSink* sink) {
    auto* recorder = static_cast<Recorder*>(argument);
    recorder->seen = {
        sink->level, sink->base_pos,          sink->room,
        sink->quiet, sink->writer != nullptr, recorder->parent != nullptr ? recorder->parent : ""};
    return FormatToSink(sink, "<%d>", 42);
  }
};

// Renders "[%w]" whose nested format "(%F)" calls the innermost callback.
int32_t CoreNested(FormatSink* sink, const char* outer, const char* inner, ...) {
  va_list args;
  va_start(args, inner);
  NestedFormat nested;
  const int32_t count = FormatToSink(sink, outer, MakeNestedFormat(&nested, inner, &args));
  va_end(args);
  return count;
}
int32_t RenderDeeper(void* argument, FormatSink* sink) {
  return CoreNested(sink, "[%w]", "(%F)", static_cast<FormatCallback*>(argument));
}

TEST(FormatCallback, ChildSinkCarriesLevelBaseRoomAndQuiet) {
  Recorder top;
  char buffer[32];
  top.parent = buffer;
  EXPECT_EQ(9, FormatToBuffer(buffer, sizeof buffer, "abc%Fxy", &top.callback));
  EXPECT_STREQ("abc<42>xy", buffer);
  // The parent's text is terminated before the child runs.
  EXPECT_EQ((SinkSeen{1, 3, 29, false, false, "abc"}), top.seen);

  Recorder deeper;
  Pieces<char> pieces;
  pieces.sink.level = 2;
  pieces.sink.base_pos = 10;
  pieces.sink.quiet = true;
  EXPECT_EQ(5, FormatToSink(&pieces.sink, "%d%F", 7, &deeper.callback));
  EXPECT_EQ("7<42>", pieces.text);
  EXPECT_EQ((SinkSeen{3, 11, 0, true, true, ""}), deeper.seen);  // no buffer: no room

  // The child's room is what the parent has left: its own text already overflowed the buffer.
  Recorder cut;
  EXPECT_EQ(Counted(14, "01234"), InBuffer(6, "0123456789%F", &cut.callback));
  EXPECT_EQ(-4, std::get<2>(cut.seen));
  EXPECT_EQ(10, std::get<1>(cut.seen));

  // Levels count every nesting: %w, %F, %w, %F.
  Recorder innermost;
  FormatCallback middle;
  MakeFormatCallback(&middle, &RenderDeeper, &innermost.callback);
  EXPECT_TRUE(WithArgs(Nests("-[(<42>)]-", "%w"), "-%F-", &middle));
  EXPECT_EQ(4u, std::get<0>(innermost.seen));
  EXPECT_EQ(3, std::get<1>(innermost.seen));
}

int32_t RenderTwoCalls(void*, FormatSink* sink) {
  const int32_t first = FormatToSink(sink, "%s", "one");
  return first + FormatToSink(sink, "+%s", "two");
}
int32_t RenderNegative(void*, FormatSink*) {
  return -5;
}

TEST(FormatCallback, CountsCallsAndBadRecords) {
  FormatCallback two_calls;  // several calls on the child follow each other
  EXPECT_FORMAT("[one+two]", "[%F]", MakeFormatCallback(&two_calls, &RenderTwoCalls, nullptr));
  FormatCallback negative;  // a negative count is taken as zero
  EXPECT_FORMAT("ab", "a%Fb", MakeFormatCallback(&negative, &RenderNegative, nullptr));
  // A wrong tag or no function prints nothing.
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
