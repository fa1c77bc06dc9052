// Keys and lines from a scripted byte stream: the piped-input rules and the terminal rules
// (waits, line editing), without any real descriptor.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "platform/console_keys.h"
#include "platform/os_console.h"

namespace portwren::os {
namespace {

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
      if (!open_) return kEnd;
      EXPECT_GE(wait_ms, 0) << "an unbounded wait on an idle stream would hang";
      return kNothing;
    }
    const int next = script_.front();
    if (next == kGap && wait_ms < 0) {
      ADD_FAILURE() << "a gap reached an unbounded wait";
    }
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

template <typename Reader>
std::vector<int> KeysUntilEnd(Reader& reader, int count) {
  std::vector<int> keys;
  for (int i = 0; i < count; ++i) keys.push_back(reader.GetKey());
  return keys;
}

// ---- piped input ----

TEST(StreamKeys, LineEndsAreEnterAndTheEndIsEscForEver) {
  ScriptedStream stream("a\nb\r\nc\rd\n\n\r\r\n");
  StreamKeys keys(stream);
  EXPECT_EQ(KeysUntilEnd(keys, 14),
            (std::vector<int>{'a', 13, 'b', 13, 'c', 13, 'd', 13, 13, 13, 13, 27, 27, 27}));
}

TEST(StreamKeys, BytesPassUnchanged) {
  ScriptedStream stream(std::string("\x1b[A\x7f\0\xff", 6));
  StreamKeys keys(stream);
  EXPECT_EQ(KeysUntilEnd(keys, 6), (std::vector<int>{27, '[', 'A', 127, 0, 255}));
}

TEST(StreamKeys, KeyWaitingLooksWithoutWaitingOrConsuming) {
  ScriptedStream stream;
  stream.KeepOpen();
  StreamKeys keys(stream);
  EXPECT_FALSE(keys.KeyWaiting());
  EXPECT_EQ(stream.waits, (std::vector<int>{0}));

  stream.Add("x");
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_EQ(keys.GetKey(), 'x');
  EXPECT_FALSE(keys.KeyWaiting());
}

TEST(StreamKeys, KeyWaitingSkipsTheLfOfCrLf) {
  ScriptedStream stream("\r");
  stream.KeepOpen();
  StreamKeys keys(stream);
  EXPECT_EQ(keys.GetKey(), 13);
  stream.Add("\n");
  EXPECT_FALSE(keys.KeyWaiting()) << "the LF belongs to the Enter already read";
  stream.Add("\n");
  EXPECT_TRUE(keys.KeyWaiting()) << "a second LF is a new Enter";
  EXPECT_EQ(keys.GetKey(), 13);
}

TEST(StreamKeys, KeyWaitingIsTrueAtTheEnd) {
  ScriptedStream stream;
  StreamKeys keys(stream);
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_EQ(keys.GetKey(), 27);
  EXPECT_TRUE(keys.KeyWaiting());
}

TEST(StreamKeys, ReadLineSharesTheStreamWithKeys) {
  ScriptedStream stream("R123\r\nw\r\n0x10\nq");
  StreamKeys keys(stream);
  char line[100];
  EXPECT_EQ(keys.GetKey(), 'R');
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "123");
  EXPECT_EQ(keys.GetKey(), 'w') << "the LF of CR LF must not become a key";
  EXPECT_EQ(keys.GetKey(), 13);
  ASSERT_TRUE(keys.ReadLine(line, sizeof line)) << "the LF after the Enter key is not an empty line";
  EXPECT_STREQ(line, "0x10");
  EXPECT_EQ(keys.GetKey(), 'q');
  EXPECT_EQ(keys.GetKey(), 27);
  EXPECT_TRUE(stream.echo.empty()) << "piped input is not echoed";
}

TEST(StreamKeys, ReadLineEmptyLinesPartialLastLineAndEnd) {
  ScriptedStream stream("\n\r\n\rtail");
  StreamKeys keys(stream);
  char line[100] = "junk";
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "");
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "");
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "");
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "tail");
  EXPECT_FALSE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "");
  EXPECT_FALSE(keys.ReadLine(line, sizeof line));
}

TEST(StreamKeys, ReadLineCutsLongLinesAndDropsTheRest) {
  ScriptedStream stream("123456789\nk");
  StreamKeys keys(stream);
  char line[5];
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "1234");
  EXPECT_EQ(keys.GetKey(), 'k') << "the cut part must not turn into keys";

  char tiny[1] = {'x'};
  ScriptedStream other("abc\nd");
  StreamKeys keys2(other);
  ASSERT_TRUE(keys2.ReadLine(tiny, 1));
  EXPECT_EQ(tiny[0], '\0');
  EXPECT_EQ(keys2.GetKey(), 'd');
  EXPECT_FALSE(keys2.ReadLine(nullptr, 10));
  EXPECT_FALSE(keys2.ReadLine(tiny, 0));
}

// ---- terminal ----

TEST(TerminalKeys, SequencesBecomeExtendedKeysAndTheEndIsEsc) {
  ScriptedStream stream("\x1b[A\x1bOP\x7f\r");
  TerminalKeys keys(stream);
  EXPECT_EQ(KeysUntilEnd(keys, 9), (std::vector<int>{224, 72, 0, 59, 8, 13, 27, 27, 27}));
}

TEST(TerminalKeys, LoneEscIsToldApartByABoundedWait) {
  ScriptedStream stream("\x1b");
  stream.AddGap();
  stream.Add("a");
  TerminalKeys keys(stream);
  EXPECT_EQ(keys.GetKey(), 27);
  EXPECT_EQ(keys.GetKey(), 'a');
  EXPECT_EQ(stream.waits, (std::vector<int>{-1, kEscapeWaitMs, -1}));
}

TEST(TerminalKeys, SplitSequenceWithinTheWaitIsOneKey) {
  ScriptedStream stream("\x1b");
  TerminalKeys keys(stream);
  stream.Add("[");
  stream.Add("2");
  stream.Add("4~");
  EXPECT_EQ(keys.GetKey(), 224);
  EXPECT_EQ(keys.GetKey(), 134);
  EXPECT_EQ(stream.waits, (std::vector<int>{-1, kEscapeWaitMs, kEscapeWaitMs, kEscapeWaitMs, kEscapeWaitMs}));
}

TEST(TerminalKeys, KeyWaitingDoesNotBlockAndSeesTheSecondCode) {
  ScriptedStream stream;
  stream.KeepOpen();
  TerminalKeys keys(stream);
  EXPECT_FALSE(keys.KeyWaiting());
  EXPECT_EQ(stream.waits, (std::vector<int>{0}));

  stream.Add("\x1b[B");
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_EQ(keys.GetKey(), 224);
  EXPECT_TRUE(keys.KeyWaiting()) << "the second code of an extended key is waiting";
  EXPECT_EQ(keys.GetKey(), 80);
  EXPECT_FALSE(keys.KeyWaiting());
}

TEST(TerminalKeys, KeyWaitingAfterLoneEscAndAfterADroppedSequence) {
  ScriptedStream stream("\x1b");
  stream.KeepOpen();
  TerminalKeys keys(stream);
  EXPECT_TRUE(keys.KeyWaiting()) << "a lone ESC is a key once the short wait ran out";
  EXPECT_EQ(keys.GetKey(), 27);

  // An unknown sequence yields no key: KeyWaiting must say so, or a GetKey after it would hang.
  stream.Add("\x1b[99~");
  EXPECT_FALSE(keys.KeyWaiting());
  for (const int wait : stream.waits) EXPECT_GE(wait, 0);
}

TEST(TerminalKeys, KeyWaitingIsTrueAtTheEnd) {
  ScriptedStream stream;
  TerminalKeys keys(stream);
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_EQ(keys.GetKey(), 27);
}

TEST(TerminalKeys, ReadLineEditsAndEchoes) {
  ScriptedStream stream("12x\x7f" "3\r");
  TerminalKeys keys(stream);
  char line[100];
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "123");
  EXPECT_EQ(stream.echo, "12x\b \b3\r\n");
}

TEST(TerminalKeys, ReadLineIgnoresExtendedKeysAndControlBytes) {
  ScriptedStream stream("4\x1b[D\x1bOP\t\x01" "2\r");
  TerminalKeys keys(stream);
  char line[100];
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "42");
  EXPECT_EQ(stream.echo, "42\r\n");
}

TEST(TerminalKeys, ReadLineEscAndCtrlUClearTheLine) {
  ScriptedStream stream("99\x1b");
  stream.AddGap();
  stream.Add("5\x15" "7\r");
  TerminalKeys keys(stream);
  char line[100];
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "7");
  EXPECT_EQ(stream.echo, "99\b \b\b \b5\b \b7\r\n");
}

TEST(TerminalKeys, ReadLineBackspaceOnEmptyLineAndFullBuffer) {
  ScriptedStream stream("\x7f" "abcdef\x7fZ\rq");
  TerminalKeys keys(stream);
  char line[4];
  ASSERT_TRUE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "abZ") << "typing past the end is ignored; Backspace frees room again";
  EXPECT_EQ(stream.echo, "abc\b \bZ\r\n");
  EXPECT_EQ(keys.GetKey(), 'q');
}

TEST(TerminalKeys, ReadLineAtTheEnd) {
  ScriptedStream stream("12");
  TerminalKeys keys(stream);
  char line[10];
  ASSERT_TRUE(keys.ReadLine(line, sizeof line)) << "what was typed before the end counts";
  EXPECT_STREQ(line, "12");
  EXPECT_FALSE(keys.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "");
  EXPECT_FALSE(keys.ReadLine(nullptr, 10));
}

}  // namespace
}  // namespace portwren::os
