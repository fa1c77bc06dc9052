// Keys and lines from a scripted byte stream: the piped-input rules and the terminal rules
// (waits, line editing), without any real descriptor.
#include "platform/console_keys.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "platform/os_console.h"
#include "platform_test_util.h"

namespace portwren::os {
namespace {

using testing_util::Keys;
using testing_util::Line;
using Codes = std::vector<int>;
constexpr int kGap = ConsoleStream::kNothing;  // in a script: the wait runs out here

// Hands out a script of bytes and gaps, then the end; records every wait and the echo.
class ScriptedStream final : public ConsoleStream {
 public:
  explicit ScriptedStream(const std::string& bytes = "") { Add(bytes); }
  void Add(const std::string& bytes) {
    for (const char c : bytes) script_.push_back(static_cast<unsigned char>(c));
  }
  void AddGap() { script_.push_back(kGap); }
  // Without an end the stream reports nothing waiting, as an idle keyboard does.
  void KeepOpen() { open_ = true; }

  int Read(int wait_ms) override {
    waits.push_back(wait_ms);
    if (script_.empty()) {
      if (open_ && wait_ms >= 0) return kNothing;
      EXPECT_FALSE(open_) << "an unbounded wait on an idle stream would hang";
      return kEnd;  // ends such a reader too, so the test fails instead of looping
    }
    const int next = script_.front();
    if (next == kGap && wait_ms < 0) ADD_FAILURE() << "a gap reached an unbounded wait";
    script_.pop_front();
    return next;
  }
  void Echo(const char* text, size_t length) override { echo.append(text, length); }

  std::vector<int> waits;
  std::string echo;

 private:
  std::deque<int> script_;
  bool open_ = false;
};

// ---- piped input ----

TEST(StreamKeys, BytesPassLineEndsAreEnterAndTheEndIsEscForEver) {
  // No escape sequences here: ESC x is no Alt+X, two ESCs are two ESCs.
  ScriptedStream stream(std::string("\x1b[A\x1bx\x1b\x1b\x7f\0\xff", 10) + "a\nb\r\nc\rd\n\n\r\r\n");
  StreamKeys keys(stream);
  EXPECT_EQ(Keys(keys, 10), (Codes{27, '[', 'A', 27, 'x', 27, 27, 127, 0, 255}));
  EXPECT_EQ(Keys(keys, 11), (Codes{'a', 13, 'b', 13, 'c', 13, 'd', 13, 13, 13, 13}));
  EXPECT_TRUE(keys.KeyWaiting()) << "the end reads as ESC, so a key is waiting";
  EXPECT_EQ(Keys(keys, 3), (Codes{27, 27, 27}));
  EXPECT_TRUE(keys.KeyWaiting());
}

TEST(StreamKeys, KeyWaitingLooksWithoutWaitingOrConsumingAndSkipsTheLfOfCrLf) {
  ScriptedStream stream;
  stream.KeepOpen();
  StreamKeys keys(stream);
  EXPECT_FALSE(keys.KeyWaiting());
  EXPECT_EQ(stream.waits, (Codes{0}));
  stream.Add("x\r");
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_EQ(Keys(keys, 2), (Codes{'x', 13}));
  stream.Add("\n");
  EXPECT_FALSE(keys.KeyWaiting()) << "the LF belongs to the Enter already read";
  stream.Add("\n");
  EXPECT_TRUE(keys.KeyWaiting()) << "a second LF is a new Enter";
  EXPECT_EQ(keys.GetKey(), 13);
  EXPECT_FALSE(keys.KeyWaiting());
}

TEST(StreamKeys, ReadLineSharesTheStreamWithKeysCutsLongLinesAndEnds) {
  ScriptedStream stream("R123\r\nw\r\n0x10\n123456789\nkabc\nxy\n\n\r\n\rtail");
  StreamKeys keys(stream);
  EXPECT_EQ(keys.GetKey(), 'R');
  EXPECT_EQ(Line(keys), "123");
  EXPECT_EQ(keys.GetKey(), 'w') << "the LF of CR LF must not become a key";
  EXPECT_EQ(keys.GetKey(), 13);
  EXPECT_EQ(Line(keys), "0x10") << "the LF after the Enter key is not an empty line";
  EXPECT_EQ(Line(keys, 5), "1234");
  EXPECT_EQ(keys.GetKey(), 'k') << "the cut part must not turn into keys";
  char tiny[1];
  EXPECT_FALSE(keys.ReadLine(nullptr, 10));
  EXPECT_FALSE(keys.ReadLine(tiny, 0));
  EXPECT_EQ(Line(keys), "abc") << "the bad calls took nothing";
  EXPECT_EQ(Line(keys, 1), "") << "room for the NUL alone";
  for (const char* line : {"", "", "", "tail", "<end>", "<end>"}) EXPECT_EQ(Line(keys), line);
  EXPECT_TRUE(stream.echo.empty()) << "piped input is not echoed";
}

// ---- terminal ----

TEST(TerminalKeys, SequencesBecomeExtendedKeysAndTheEndIsEsc) {
  ScriptedStream stream("\x1b[A\x1bOP\x1b[1;5A\x1bx\x7f\r12");
  TerminalKeys keys(stream);
  EXPECT_EQ(Keys(keys, 10), (Codes{224, 72, 0, 59, 224, 141, 0, 45, 8, 13}));
  EXPECT_EQ(Line(keys, 10), "12") << "what was typed before the end counts";
  EXPECT_EQ(Line(keys), "<end>");
  EXPECT_FALSE(keys.ReadLine(nullptr, 10));
  EXPECT_TRUE(keys.KeyWaiting()) << "the end reads as ESC, so a key is waiting";
  EXPECT_EQ(Keys(keys, 3), (Codes{27, 27, 27}));
}

// Only the short wait after an ESC tells a lone ESC (then a) from Alt+A or a split sequence.
TEST(TerminalKeys, LoneEscAltKeyAndSplitSequenceAreToldApartByABoundedWait) {
  ScriptedStream stream("\x1b");
  stream.AddGap();
  stream.Add("a\x1b");
  TerminalKeys keys(stream);
  EXPECT_EQ(Keys(keys, 2), (Codes{27, 'a'}));
  stream.Add("a\x1b");
  EXPECT_EQ(Keys(keys, 2), (Codes{0, 30}));
  stream.Add("[24~");
  EXPECT_EQ(Keys(keys, 2), (Codes{224, 134}));
  const int k = kEscapeWaitMs;
  EXPECT_EQ(stream.waits, (Codes{-1, k, -1, -1, k, -1, k, k, k, k}));
}

TEST(TerminalKeys, KeyWaitingNeverBlocksAndSeesTheSecondCodeALoneEscButNoDroppedSequence) {
  ScriptedStream stream;
  stream.KeepOpen();
  TerminalKeys keys(stream);
  EXPECT_FALSE(keys.KeyWaiting());
  EXPECT_EQ(stream.waits, (Codes{0}));
  stream.Add("\x1b[B");
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_EQ(keys.GetKey(), 224);
  EXPECT_TRUE(keys.KeyWaiting()) << "the second code of an extended key is waiting";
  EXPECT_EQ(keys.GetKey(), 80);
  EXPECT_FALSE(keys.KeyWaiting());
  stream.Add("\x1b");
  EXPECT_TRUE(keys.KeyWaiting()) << "a lone ESC is a key once the short wait ran out";
  EXPECT_EQ(keys.GetKey(), 27);
  stream.Add("\x1b[99~");  // no key: a GetKey trusting KeyWaiting here would hang
  EXPECT_FALSE(keys.KeyWaiting());
  stream.Add("\x1b[1");  // nor from one cut short by the wait
  EXPECT_FALSE(keys.KeyWaiting());
  for (const int wait : stream.waits) EXPECT_GE(wait, 0);
}

// A line read with the short wait running out after before_gap (when there is more).
TEST(TerminalKeys, ReadLineEditsAndEchoes) {
  const struct {
    const char *before_gap, *after_gap;
    int capacity;
    const char *line, *echo;
    int next_key;
  } cases[] = {
      // clang-format off
      {"12x\x7f" "3\r", "", 100, "123", "12x\b \b3\r\n", 27},
      {"4\x1b[D\x1bOP\t\x01" "2\r", "", 100, "42", "42\r\n", 27},  // no extended keys, no control bytes
      {"99\x1b", "5\x15" "7\r", 100, "7", "99\b \b\b \b5\b \b7\r\n", 27},  // ESC and Ctrl+U clear the line
      // Backspace on an empty line does nothing; typing past the end is ignored until Backspace.
      {"\x7f" "abcdef\x7fZ\rq", "", 4, "abZ", "abc\b \bZ\r\n", 'q'},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before_gap);
    ScriptedStream stream(c.before_gap);
    if (*c.after_gap) stream.AddGap();
    stream.Add(c.after_gap);
    TerminalKeys keys(stream);
    EXPECT_EQ(Line(keys, c.capacity), c.line);
    EXPECT_EQ(stream.echo, c.echo);
    EXPECT_EQ(keys.GetKey(), c.next_key);
  }
}

}  // namespace
}  // namespace portwren::os
