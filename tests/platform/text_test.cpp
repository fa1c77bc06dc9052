// Narrow (here UTF-8) <-> UTF-16 with the Windows calling conventions, and the strict
// conversions behind the wide path calls: a path that does not convert is refused, while a
// real U+FFFD in it is just a character.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/os_text.h"
#include "platform/posix/text_utf.h"
#include "platform_test_util.h"

namespace portwren {
namespace {

using namespace os;
using os::posix::Utf16ToUtf8;
using os::posix::Utf8ToUtf16;
using testing_util::ErrorOf;

TEST(TextTest, WholeStringsWithTheirNulCountedOnesWithoutAndMalformedInputReplaced) {
  const char* narrow = "QDX_VBUS\\Qdx_vcom\\caf\xC3\xA9 \xF0\x9F\x98\x80";  // é and an emoji
  ASSERT_EQ(MultiByteToWideChar(narrow, -1, nullptr, 0), 26);               // 23 units, a surrogate pair, NUL
  WChar wide[64];
  ASSERT_EQ(MultiByteToWideChar(narrow, -1, wide, 64), 26);
  EXPECT_EQ(std::u16string(wide), u"QDX_VBUS\\Qdx_vcom\\caf\u00E9 \U0001F600");
  char back[64];
  ASSERT_EQ(WideCharToMultiByte(wide, -1, back, 64), static_cast<int>(std::strlen(narrow)) + 1);
  EXPECT_STREQ(back, narrow);

  WChar counted[8] = {u'x', u'x', u'x', u'x'};
  ASSERT_EQ(MultiByteToWideChar("abcdef", 3, counted, 8), 3);
  EXPECT_EQ(std::u16string(counted, 4), u"abcx");

  ASSERT_EQ(MultiByteToWideChar("a\xFF"
                                "b\xC3",
                                4, wide, 16),
            4);
  EXPECT_EQ(std::u16string(wide, 4), u"a\uFFFDb\uFFFD");
  const WChar lone[] = {u'x', 0xD800, u'y', 0};
  ASSERT_EQ(WideCharToMultiByte(lone, -1, back, 16), 6);
  EXPECT_STREQ(back, "x\xEF\xBF\xBDy");
}

TEST(TextTest, TooSmallAndBadArgumentsFail) {
  WChar wide[2];
  EXPECT_EQ(ErrorOf(MultiByteToWideChar("abc", -1, wide, 2) != 0), kErrInsufficientBuffer);
  EXPECT_EQ(ErrorOf(MultiByteToWideChar("abc", 0, wide, 2) != 0), kErrInvalidParameter);
  EXPECT_EQ(ErrorOf(MultiByteToWideChar(nullptr, -1, wide, 2) != 0), kErrInvalidParameter);
  char narrow[2];
  EXPECT_EQ(ErrorOf(WideCharToMultiByte(u"\u00E9", -1, narrow, 2) != 0),
            kErrInsufficientBuffer);  // 2 bytes + NUL
}

TEST(StrictUtfTest, WellFormedTextRoundTripsMalformedUtf8AndUnpairedSurrogatesAreRefused) {
  const std::string narrow =
      "/dev/caf\xC3\xA9-\xE2\x82\xAC-\xF0\x9F\x98\x80-\xEF\xBF\xBD";  // é € emoji U+FFFD
  std::u16string wide;
  ASSERT_TRUE(Utf8ToUtf16(narrow, &wide));
  EXPECT_EQ(wide, u"/dev/caf\u00E9-\u20AC-\U0001F600-\uFFFD");
  std::string back;
  ASSERT_TRUE(Utf16ToUtf8(wide.c_str(), &back));
  EXPECT_EQ(back, narrow);

  for (const char* bad :
       {"a\xFF", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x28\xA1"}) {
    EXPECT_FALSE(Utf8ToUtf16(bad, &wide)) << testing::PrintToString(std::string(bad));
  }
  for (const std::u16string bad : {u"a\xD83D"
                                   u"b",
                                   u"\xDE00\xD83D", u"a\xD83D"}) {
    EXPECT_FALSE(Utf16ToUtf8(bad.c_str(), &back)) << bad.size();
  }
}

}  // namespace
}  // namespace portwren
