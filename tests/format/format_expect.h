// EXPECT_FORMAT(expected, format, args...): one line per case. Each case is formatted three
// ways, into a buffer, through a piece writer alone and on the heap, and all three must give
// the expected text and its length as the count.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "format/format.h"

namespace portwren::testing_format {

template <class Ch>
struct Pieces {
  std::basic_string<Ch> text;
  std::vector<std::basic_string<Ch>> list;
  int32_t calls = 0;
  int32_t traced = 0;  // calls that came with a trace record
};

template <class Ch>
void CollectPiece(void* context, const Ch* text, int32_t length, const BasicFormatTraceRecord<Ch>* trace) {
  auto* pieces = static_cast<Pieces<Ch>*>(context);
  pieces->text.append(text, static_cast<std::size_t>(length));
  pieces->list.emplace_back(text, static_cast<std::size_t>(length));
  ++pieces->calls;
  if (trace != nullptr) ++pieces->traced;
}

inline std::string Printable(const std::string& text) { return text; }
inline std::string Printable(const std::u16string& text) {
  std::string out;
  for (char16_t c : text) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      char hex[16];
      std::snprintf(hex, sizeof hex, "\\u%04X", static_cast<unsigned>(c));
      out += hex;
    }
  }
  return out;
}

template <class Ch, class... Args>
::testing::AssertionResult FormatsAs(const Ch* expected, const Ch* format, Args... args) {
  using String = std::basic_string<Ch>;
  const String want(expected);
  const auto want_count = static_cast<int32_t>(want.size());

  Ch buffer[2048];
  const int32_t count = FormatToBuffer(buffer, 2048, format, args...);
  if (count != want_count || String(buffer) != want) {
    return ::testing::AssertionFailure() << "buffer: got \"" << Printable(String(buffer)) << "\" (" << count
                                         << "), want \"" << Printable(want) << "\" (" << want_count << ")";
  }

  Pieces<Ch> pieces;
  BasicFormatSink<Ch> sink;
  sink.writer = &CollectPiece<Ch>;
  sink.context = &pieces;
  const int32_t streamed = FormatToSink(&sink, format, args...);
  if (streamed != want_count || pieces.text != want) {
    return ::testing::AssertionFailure() << "pieces: got \"" << Printable(pieces.text) << "\" (" << streamed
                                         << "), want \"" << Printable(want) << "\"";
  }
  for (const String& piece : pieces.list) {
    if (piece.empty()) return ::testing::AssertionFailure() << "an empty piece was written";
  }

  Ch* heap = nullptr;
  const int32_t allocated = FormatAlloc(&heap, format, args...);
  const String on_heap = heap != nullptr ? String(heap) : String();
  std::free(heap);
  if (allocated != want_count || on_heap != want) {
    return ::testing::AssertionFailure() << "heap: got \"" << Printable(on_heap) << "\" (" << allocated << ")";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace portwren::testing_format

#define EXPECT_FORMAT(expected, ...) EXPECT_TRUE(::portwren::testing_format::FormatsAs(expected, __VA_ARGS__))
