// The strict conversions behind the wide path calls: a path that does not convert is refused,
// while a real U+FFFD in it is just a character.
#include <gtest/gtest.h>

#include <string>

#include "platform/posix/text_utf.h"

namespace portwren {
namespace {

using os::posix::Utf16ToUtf8;
using os::posix::Utf8ToUtf16;

TEST(StrictUtfTest, WellFormedTextRoundTrips) {
  const std::string narrow = "/dev/caf\xC3\xA9-\xE2\x82\xAC-\xF0\x9F\x98\x80-\xEF\xBF\xBD";  // é € emoji U+FFFD
  std::u16string wide;
  ASSERT_TRUE(Utf8ToUtf16(narrow, &wide));
  EXPECT_EQ(wide, u"/dev/caf\u00E9-\u20AC-\U0001F600-\uFFFD");
  std::string back;
  ASSERT_TRUE(Utf16ToUtf8(wide.c_str(), &back));
  EXPECT_EQ(back, narrow);
}

TEST(StrictUtfTest, MalformedUtf8IsRefused) {
  std::u16string wide;
  for (const std::string& bad : {std::string("a\xFF"), std::string("\xC3"), std::string("\xC0\xAF"),
                                std::string("\xE0\x80\xAF"), std::string("\xED\xA0\x80"),
                                std::string("\xF4\x90\x80\x80"), std::string("\xE2\x28\xA1")}) {
    EXPECT_FALSE(Utf8ToUtf16(bad, &wide)) << testing::PrintToString(bad);
  }
}

TEST(StrictUtfTest, UnpairedSurrogatesAreRefused) {
  std::string narrow;
  const char16_t high_alone[] = {u'a', 0xD83D, u'b', 0};
  const char16_t low_first[] = {0xDE00, 0xD83D, 0};
  const char16_t high_at_end[] = {u'a', 0xD83D, 0};
  EXPECT_FALSE(Utf16ToUtf8(high_alone, &narrow));
  EXPECT_FALSE(Utf16ToUtf8(low_first, &narrow));
  EXPECT_FALSE(Utf16ToUtf8(high_at_end, &narrow));
}

}  // namespace
}  // namespace portwren
