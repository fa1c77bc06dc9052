// The JSON lines of the results file: every text escaped so that a reader takes it back whole.
#include "format/json_line.h"

#include <gtest/gtest.h>

#include <cmath>

namespace portwren {
namespace {

TEST(JsonQuoted, EscapesWhatJsonForbids) {
  const struct {
    std::string text;
    std::string json;
  } cases[] = {
      {"COM3", R"("COM3")"},
      {"a\"b\\c", R"("a\"b\\c")"},
      {"\r\n\t", R"("\r\n\t")"},
      {std::string("\x01\x1f\x7f", 3), R"("\u0001\u001f\u007f")"},
      {std::string("\0x", 2), R"("\u0000x")"},
      {"caf\xc3\xa9", "\"caf\xc3\xa9\""},           // UTF-8 stays
      {"\xe9t\xe9", R"("\u00e9t\u00e9")"},          // a Latin-1 byte alone is no UTF-8
      {"\xc3", R"("\u00c3")"},                      // cut sequence
      {"\xc0\xaf", R"("\u00c0\u00af")"},            // overlong
      {"\xed\xa0\x80", R"("\u00ed\u00a0\u0080")"},  // surrogate
      {"\xf0\x9f\x98\x80", "\"\xf0\x9f\x98\x80\""},
  };
  for (const auto& c : cases) EXPECT_EQ(c.json, JsonQuoted(c.text)) << c.json;
}

TEST(JsonLine, NestsObjectsArraysAndValues) {
  JsonLine line;
  line.Text("event", "x")
      .Int("neg", -5)
      .Uint("big", 18446744073709551615ull)
      .Real("rate", 1.5)
      .Real("nan", std::nan(""))
      .Bool("ok", false)
      .Null("none")
      .BeginObject("o")
      .Uint("a", 1)
      .BeginArray("list")
      .Item(2)
      .BeginItemObject()
      .Uint("b", 3)
      .EndObject()
      .EndArray()
      .EndObject()
      .BeginArray("empty")
      .EndArray();
  EXPECT_EQ(R"({"event":"x","neg":-5,"big":18446744073709551615,"rate":1.500,"nan":null,"ok":false,)"
            R"("none":null,"o":{"a":1,"list":[2,{"b":3}]},"empty":[]})",
            line.Finish());
}

}  // namespace
}  // namespace portwren
