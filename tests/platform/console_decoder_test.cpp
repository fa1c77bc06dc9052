// The terminal byte decoder: every key sequence we map, and what must never leak out as keys.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/console_decoder.h"
#include "platform/os_console.h"

namespace portwren::os {
namespace {

using Keys = std::vector<int>;

Keys Drain(EscapeDecoder& decoder) {
  Keys keys;
  while (decoder.HasKey()) keys.push_back(decoder.PopKey());
  return keys;
}

// Feeds the bytes as one read; expire = the wait after them ran out.
Keys Decode(const std::string& bytes, bool expire = false) {
  EscapeDecoder decoder;
  for (const char c : bytes) decoder.Push(static_cast<unsigned char>(c));
  if (expire) decoder.Expire();
  return Drain(decoder);
}

struct Mapped {
  const char* bytes;
  int prefix;
  int code;
};

constexpr Mapped kMapped[] = {
    {"\x1b[A", kKeyExtended, 72},   {"\x1b[B", kKeyExtended, 80},   {"\x1b[C", kKeyExtended, 77},
    {"\x1b[D", kKeyExtended, 75},   {"\x1bOA", kKeyExtended, 72},   {"\x1bOB", kKeyExtended, 80},
    {"\x1bOC", kKeyExtended, 77},   {"\x1bOD", kKeyExtended, 75},   {"\x1b[H", kKeyExtended, 71},
    {"\x1b[F", kKeyExtended, 79},   {"\x1b[1~", kKeyExtended, 71},  {"\x1b[4~", kKeyExtended, 79},
    {"\x1bOH", kKeyExtended, 71},   {"\x1bOF", kKeyExtended, 79},   {"\x1b[7~", kKeyExtended, 71},
    {"\x1b[8~", kKeyExtended, 79},  {"\x1b[1H", kKeyExtended, 71},  {"\x1b[2~", kKeyExtended, 82},
    {"\x1b[3~", kKeyExtended, 83},  {"\x1b[5~", kKeyExtended, 73},  {"\x1b[6~", kKeyExtended, 81},
    {"\x1bOP", kKeyFunction, 59},   {"\x1bOQ", kKeyFunction, 60},   {"\x1bOR", kKeyFunction, 61},
    {"\x1bOS", kKeyFunction, 62},   {"\x1b[11~", kKeyFunction, 59}, {"\x1b[12~", kKeyFunction, 60},
    {"\x1b[13~", kKeyFunction, 61}, {"\x1b[14~", kKeyFunction, 62}, {"\x1b[15~", kKeyFunction, 63},
    {"\x1b[17~", kKeyFunction, 64}, {"\x1b[18~", kKeyFunction, 65}, {"\x1b[19~", kKeyFunction, 66},
    {"\x1b[20~", kKeyFunction, 67}, {"\x1b[21~", kKeyFunction, 68}, {"\x1b[23~", kKeyExtended, 133},
    {"\x1b[24~", kKeyExtended, 134}, {"\x1b[[A", kKeyFunction, 59}, {"\x1b[[E", kKeyFunction, 63},
};

TEST(EscapeDecoder, MapsEverySequenceWholeAndByteByByte) {
  for (const Mapped& m : kMapped) {
    SCOPED_TRACE(std::string(m.bytes + 1));
    EXPECT_EQ(Decode(m.bytes), (Keys{m.prefix, m.code}));

    // One byte per read, as a slow link delivers them: the decoder waits after each one.
    EscapeDecoder decoder;
    const std::string bytes = m.bytes;
    for (size_t i = 0; i < bytes.size(); ++i) {
      EXPECT_FALSE(decoder.HasKey()) << "key before byte " << i;
      decoder.Push(static_cast<unsigned char>(bytes[i]));
      EXPECT_EQ(decoder.Pending(), i + 1 < bytes.size());
    }
    EXPECT_EQ(Drain(decoder), (Keys{m.prefix, m.code}));
  }
}

TEST(EscapeDecoder, SequencesBackToBackInOneRead) {
  EXPECT_EQ(Decode("\x1b[A\x1b[B\x1bOPx\x1b[24~"), (Keys{224, 72, 224, 80, 0, 59, 'x', 224, 134}));
}

TEST(EscapeDecoder, PlainBytesPassAndBackspaceBecomesWindowsCode) {
  EXPECT_EQ(Decode("a0\r\n\t~"), (Keys{'a', '0', 13, 10, 9, '~'}));
  EXPECT_EQ(Decode("\x7f"), (Keys{8}));
  EXPECT_EQ(Decode("\x08"), (Keys{8}));
  EXPECT_EQ(Decode("\x80\xe9\xff"), (Keys{0x80, 0xe9, 0xff}));
  // A NUL byte would pass for an extended-key prefix; Windows reads Ctrl+@ as 0, 3.
  EXPECT_EQ(Decode(std::string(1, '\0')), (Keys{0, 3}));
}

TEST(EscapeDecoder, LoneEscWaitsThenBecomesAKey) {
  EscapeDecoder decoder;
  decoder.Push(0x1b);
  EXPECT_TRUE(decoder.Pending());
  EXPECT_FALSE(decoder.HasKey());
  decoder.Expire();
  EXPECT_FALSE(decoder.Pending());
  EXPECT_EQ(Drain(decoder), (Keys{27}));
  // Expiring with nothing pending does nothing; an empty queue pops -1.
  decoder.Expire();
  EXPECT_FALSE(decoder.HasKey());
  EXPECT_EQ(decoder.PopKey(), -1);
}

TEST(EscapeDecoder, EscFollowedByAnotherKey) {
  EXPECT_EQ(Decode("\x1bq"), (Keys{27, 'q'}));
  EXPECT_EQ(Decode("\x1b\r"), (Keys{27, 13}));
  EXPECT_EQ(Decode("\x1b\x7f"), (Keys{27, 8}));
  // ESC ESC: the first is a key, the second may still start a sequence.
  EXPECT_EQ(Decode("\x1b\x1b[A"), (Keys{27, 224, 72}));
  EXPECT_EQ(Decode("\x1b\x1b", true), (Keys{27, 27}));
}

TEST(EscapeDecoder, UnknownSequencesAreDroppedWhole) {
  // Each is followed by 'z': only the 'z' may come out.
  const char* unknown[] = {
      "\x1b[99~",   "\x1b[16~",  "\x1b[1;5A",  "\x1b[3;2~", "\x1b[Z",           "\x1b[2A",
      "\x1bOx",     "\x1bO5",    "\x1b[[Z",    "\x1b[?25h", "\x1b[~",           "\x1b[200~",
      "\x1b[E",     "\x1b[M",    "\x1b[1;2P",  "\x1b[ q",   "\x1b[123456789~",  "\x1b[12345678901234567890A",
  };
  for (const char* bytes : unknown) {
    SCOPED_TRACE(std::string(bytes + 1));
    EXPECT_EQ(Decode(std::string(bytes) + "z"), (Keys{'z'}));
  }
}

TEST(EscapeDecoder, ExpiredHalfSequenceIsDroppedAndItsRestStaysHarmless) {
  // ESC [ arrived, then the wait ran out: nothing comes out, certainly not an ESC (quit).
  for (const char* half : {"\x1b[", "\x1b[1", "\x1bO", "\x1b[["}) {
    EXPECT_EQ(Decode(half, true), Keys{}) << half + 1;
  }

  EscapeDecoder decoder;
  decoder.Push(0x1b);
  decoder.Push('[');
  decoder.Expire();
  decoder.Push('A');  // the late rest reads as a plain letter
  EXPECT_EQ(Drain(decoder), (Keys{'A'}));
}

TEST(EscapeDecoder, ControlByteInsideSequenceAbortsItAndCountsAnew) {
  EXPECT_EQ(Decode("\x1b[1\r"), (Keys{13}));
  EXPECT_EQ(Decode("\x1bO\x7f"), (Keys{8}));
  EXPECT_EQ(Decode("\x1b[\x1b[B"), (Keys{224, 80}));
  EXPECT_EQ(Decode("\x1b[[\x1b", true), (Keys{27}));
  EXPECT_EQ(Decode("\x1b[5\x80"), (Keys{0x80}));
}

}  // namespace
}  // namespace portwren::os
