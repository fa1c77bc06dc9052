// The terminal byte decoder: the bytes of every key form we map, the codes _getch gives for that
// key on Windows, and what must never leak out as keys.
#include "platform/console_decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace portwren::os {
namespace {

using namespace std::string_view_literals;
using Keys = std::vector<int>;

constexpr size_t kNoGap = std::string_view::npos;

struct Case {
  std::string_view bytes;
  Keys keys;
  size_t gap = kNoGap;  // the wait for more bytes runs out after this many bytes
};

// clang-format off
const Case kCases[] = {
    // Cursor keys in the CSI and SS3 forms, plain, with Shift (the same codes), Ctrl, Alt,
    // Ctrl+Alt (Alt counts) and Meta (as Alt); rxvt's a-d forms.
    {"\x1b[A", {224, 72}}, {"\x1b[B", {224, 80}}, {"\x1b[C", {224, 77}}, {"\x1b[D", {224, 75}},
    {"\x1bOA", {224, 72}}, {"\x1bOD", {224, 75}},
    {"\x1b[1;5A", {224, 141}}, {"\x1b[1;5B", {224, 145}}, {"\x1b[1;5C", {224, 116}}, {"\x1b[1;5D", {224, 115}},
    {"\x1b[1;2B", {224, 80}}, {"\x1b[1;6A", {224, 141}},
    {"\x1b[1;3A", {0, 152}}, {"\x1b[1;3B", {0, 160}}, {"\x1b[1;3C", {0, 157}}, {"\x1b[1;3D", {0, 155}},
    {"\x1b[1;7A", {0, 152}}, {"\x1b[1;9B", {0, 160}},
    {"\x1bO5A", {224, 141}}, {"\x1bO1;3C", {0, 157}},
    {"\x1bOa", {224, 141}}, {"\x1b[b", {224, 80}},
    // Home and End in every form, then the editing keys.
    {"\x1b[H", {224, 71}}, {"\x1b[F", {224, 79}}, {"\x1bOH", {224, 71}}, {"\x1bOF", {224, 79}},
    {"\x1b[1~", {224, 71}}, {"\x1b[4~", {224, 79}}, {"\x1b[7~", {224, 71}}, {"\x1b[8~", {224, 79}},
    {"\x1b[1H", {224, 71}}, {"\x1b[1;5H", {224, 119}}, {"\x1b[1;5F", {224, 117}}, {"\x1b[1;3H", {0, 151}},
    {"\x1b[1;3F", {0, 159}}, {"\x1b[1;2H", {224, 71}}, {"\x1b[1;5~", {224, 119}},
    {"\x1b[2~", {224, 82}}, {"\x1b[3~", {224, 83}}, {"\x1b[5~", {224, 73}}, {"\x1b[6~", {224, 81}},
    {"\x1b[2;5~", {224, 146}}, {"\x1b[3;5~", {224, 147}}, {"\x1b[5;5~", {224, 134}}, {"\x1b[6;5~", {224, 118}},
    {"\x1b[2;3~", {0, 162}}, {"\x1b[3;3~", {0, 163}}, {"\x1b[5;3~", {0, 153}}, {"\x1b[6;3~", {0, 161}},
    {"\x1b[3;2~", {224, 83}}, {"\x1b[3^", {224, 147}}, {"\x1b[3$", {224, 83}}, {"\x1b[5@", {224, 134}},
    // Function keys: SS3, VT220 and the Linux console's F1-F5; Shift, Ctrl and Alt; Shift+Tab.
    {"\x1bOP", {0, 59}}, {"\x1bOS", {0, 62}}, {"\x1b[11~", {0, 59}}, {"\x1b[15~", {0, 63}},
    {"\x1b[17~", {0, 64}}, {"\x1b[21~", {0, 68}}, {"\x1b[23~", {224, 133}}, {"\x1b[24~", {224, 134}},
    {"\x1b[[A", {0, 59}}, {"\x1b[[E", {0, 63}},
    {"\x1b[1;2P", {0, 84}}, {"\x1b[1;5Q", {0, 95}}, {"\x1b[15;3~", {0, 108}}, {"\x1b[21;5~", {0, 103}},
    {"\x1b[23;2~", {224, 135}}, {"\x1b[24;5~", {224, 138}}, {"\x1b[24;3~", {224, 140}}, {"\x1b[Z", {0, 15}},
    // Alt with a character key: 0 and the key's scan code, whatever Shift or Ctrl did to it.
    {"\x1bx", {0, 45}}, {"\x1bX", {0, 45}}, {"\x1b\x18", {0, 45}}, {"\x1b" "a", {0, 30}}, {"\x1bq", {0, 16}},
    {"\x1bp", {0, 25}}, {"\x1bl", {0, 38}}, {"\x1bm", {0, 50}}, {"\x1b" "1", {0, 120}}, {"\x1b" "0", {0, 129}},
    {"\x1b!", {0, 120}}, {"\x1b-", {0, 130}}, {"\x1b=", {0, 131}}, {"\x1b]", {0, 27}}, {"\x1b;", {0, 39}},
    {"\x1b'", {0, 40}}, {"\x1b`", {0, 41}}, {"\x1b~", {0, 41}}, {"\x1b,", {0, 51}}, {"\x1b?", {0, 53}},
    {"\x1b\x7f", {0, 14}}, {"\x1b\x08", {0, 14}}, {"\x1b\t", {0, 15}}, {"\x1b\r", {0, 28}},
    {"\x1b ", {' '}}, {"\x1b\\z", {'z'}},  // Alt+Space is a space, Alt+\ no key at all
    {"\x1b[", {0, 26}, 2}, {"\x1bO", {0, 24}, 2},  // Alt+[ and Alt+O: nothing came after them
    // ESC alone: only the end of the wait makes it a key; so do a byte no Alt key sends and a
    // second ESC (which may start a sequence of its own).
    {"\x1b", {27}, 1}, {"\x1b\x80", {27, 0x80}}, {"\x1b\x1c", {27, 28}},
    {"\x1b\x1b[A", {27, 224, 72}}, {"\x1b\x1b", {27, 27}, 2},
    // Plain bytes; the terminal's Backspace is 8, NUL is Ctrl+@ (0, 3).
    {"a0\r\n\t~", {'a', '0', 13, 10, 9, '~'}}, {"\x7f\x08", {8, 8}}, {"\x80\xe9\xff", {0x80, 0xe9, 0xff}},
    {"\0"sv, {0, 3}},
    {"\x1b[A\x1b[1;5B\x1bOPx\x1bx\x1b[24~", {224, 72, 224, 145, 0, 59, 'x', 0, 45, 224, 134}},
    // Unknown or malformed sequences are dropped whole: only the 'z' after each comes out.
    {"\x1b[99~z", {'z'}}, {"\x1b[16~z", {'z'}}, {"\x1b[2Az", {'z'}}, {"\x1b[2;5Az", {'z'}},
    {"\x1b[1;17Az", {'z'}}, {"\x1b[1;0Az", {'z'}}, {"\x1b[1;5;2Az", {'z'}}, {"\x1b[;5Az", {'z'}},
    {"\x1b[1000;5Az", {'z'}}, {"\x1b[3;5^z", {'z'}}, {"\x1bOxz", {'z'}}, {"\x1bO5~z", {'z'}},
    {"\x1b[[Zz", {'z'}}, {"\x1b[?25hz", {'z'}}, {"\x1b[~z", {'z'}}, {"\x1b[200~z", {'z'}}, {"\x1b[Ez", {'z'}},
    {"\x1b[Mz", {'z'}}, {"\x1b[ qz", {'z'}}, {"\x1b[123456789~z", {'z'}}, {"\x1b[12345678901234567890Az", {'z'}},
    // A started sequence whose wait ran out is dropped, never ESC (quit); its late rest is plain.
    {"\x1b[1", {}, 3}, {"\x1b[[", {}, 3}, {"\x1bO5", {}, 3}, {"\x1b[1;5", {}, 5},
    {"\x1b[1A", {'A'}, 3}, {"\x1b[A", {0, 26, 'A'}, 2},
    // A control byte inside a sequence ends it and counts anew.
    {"\x1b[1\r", {13}}, {"\x1bO\x7f", {8}}, {"\x1b[\x1b[B", {224, 80}}, {"\x1b[[\x1b", {27}, 4},
    {"\x1b[5\x80", {0x80}},
};
// clang-format on

TEST(EscapeDecoder, EveryFormGivesTheWindowsCodes) {
  EscapeDecoder idle;
  idle.Expire();  // with nothing pending: no key
  EXPECT_FALSE(idle.HasKey());
  EXPECT_EQ(idle.PopKey(), -1);
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(std::string(c.bytes)));
    EscapeDecoder decoder;
    Keys keys;
    // A key of two codes from an ESC sequence comes out whole with its last byte, and the
    // decoder asks for the wait until then.
    const bool one_key = c.gap == kNoGap && c.keys.size() == 2 && c.bytes[0] == '\x1b' && c.keys[0] != 27;
    for (size_t i = 0; i < c.bytes.size(); ++i) {
      decoder.Push(static_cast<unsigned char>(c.bytes[i]));
      if (one_key && i + 1 < c.bytes.size()) {
        EXPECT_TRUE(decoder.Pending()) << "after byte " << i;
        EXPECT_FALSE(decoder.HasKey()) << "after byte " << i;
      }
      if (i + 1 == c.gap) {
        EXPECT_TRUE(decoder.Pending()) << "the caller would not wait";
        decoder.Expire();
        EXPECT_FALSE(decoder.Pending());
      }
      while (decoder.HasKey()) keys.push_back(decoder.PopKey());
    }
    EXPECT_EQ(keys, c.keys);
    if (c.gap == kNoGap) {
      EXPECT_FALSE(decoder.Pending()) << "every case without a gap ends complete";
    }
  }
}

}  // namespace
}  // namespace portwren::os
