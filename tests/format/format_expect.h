// EXPECT_FORMAT(expected, format, args...): formatted into a buffer, through a piece writer alone
// and on the heap, all three must give the expected text and its length as the count. The
// smaller helpers are for the cases of bounded buffers, piece streams and heap forms.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "format/format.h"

namespace portwren::testing_format {

// A piece writer's record of what it was handed; its sink writes here (a buffer may be added).
template <class Ch>
struct Pieces {
  explicit Pieces(Ch* buffer = nullptr, int32_t room = 0) : sink{&Collect, this, buffer, room} {}
  Pieces(const Pieces&) = delete;
  Pieces& operator=(const Pieces&) = delete;

  static void Collect(void* context, const Ch* text, int32_t length,
                      const BasicFormatTraceRecord<Ch>* trace) {
    auto* pieces = static_cast<Pieces*>(context);
    pieces->list.emplace_back(text, static_cast<std::size_t>(length));
    pieces->text += pieces->list.back();
    if (trace != nullptr) ++pieces->traced;
  }

  BasicFormatSink<Ch> sink;
  std::basic_string<Ch> text;
  std::vector<std::basic_string<Ch>> list;
  int32_t traced = 0;  // pieces that came with a trace record
};

// A count and the text that came with it; `null` for a heap form that allocated nothing.
template <class Ch>
struct Written {
  int32_t count = 0;
  std::basic_string<Ch> text;
  bool null = false;
  bool operator==(const Written&) const = default;
};
template <class Ch>
std::ostream& operator<<(std::ostream& out, const Written<Ch>& written) {
  return out << written.count << ' ' << (written.null ? "null" : ::testing::PrintToString(written.text));
}
template <class Ch>
Written<Ch> Counted(int32_t count, const Ch* text) {
  return text != nullptr ? Written<Ch>{count, text} : Written<Ch>{count, {}, true};
}

// FormatToBuffer with `capacity` inside a larger guarded buffer: nothing past the capacity may be
// touched, and the text must be terminated within it (capacity 0 or less: nothing written).
template <class Ch, class... Args>
Written<Ch> InBuffer(int32_t capacity, const Ch* format, Args... args) {
  const Ch guard = static_cast<Ch>('#');
  std::vector<Ch> buffer(static_cast<std::size_t>(std::max(capacity, 0)) + 16, guard);
  const auto limit = buffer.begin() + std::max(capacity, 0);
  Written<Ch> written{FormatToBuffer(buffer.data(), capacity, format, args...), {}};
  if (std::any_of(limit, buffer.end(), [&](Ch c) { return c != guard; })) {
    ADD_FAILURE() << "written past capacity " << capacity << " by " << ::testing::PrintToString(format);
  }
  const auto end = std::find(buffer.begin(), limit, Ch{});
  if (capacity > 0 && end == limit) ADD_FAILURE() << "not terminated by " << ::testing::PrintToString(format);
  written.text.assign(buffer.begin(), end);
  return written;
}

// The heap forms; the result pointer starts as junk, so a null result must have been set.
template <class Ch>
Written<Ch> TakeHeap(int32_t count, Ch* heap) {
  Written<Ch> written = Counted<Ch>(count, heap);
  std::free(heap);
  return written;
}
template <class Ch, class... Args>
Written<Ch> AllocText(const Ch* format, Args... args) {
  Ch* heap = reinterpret_cast<Ch*>(&heap);
  const int32_t count = FormatAlloc(&heap, format, args...);
  return TakeHeap(count, heap);
}
template <class Ch, class... Args>
Written<Ch> AllocMaxText(int32_t maximum, const Ch* format, Args... args) {
  Ch* heap = reinterpret_cast<Ch*>(&heap);
  const int32_t count = FormatAllocMax(&heap, maximum, format, args...);
  return TakeHeap(count, heap);
}

template <class Ch, class... Args>
::testing::AssertionResult FormatsAs(const Ch* expected, const Ch* format, Args... args) {
  const Written<Ch> want = Counted(static_cast<int32_t>(std::char_traits<Ch>::length(expected)), expected);
  Pieces<Ch> pieces;
  const int32_t streamed = FormatToSink(&pieces.sink, format, args...);
  const std::pair<const char*, Written<Ch>> ways[] = {{"buffer", InBuffer(2048, format, args...)},
                                                      {"pieces", {streamed, pieces.text}},
                                                      {"heap", AllocText(format, args...)}};
  for (const auto& [way, got] : ways) {
    if (got != want) return ::testing::AssertionFailure() << way << ": got " << got << ", want " << want;
  }
  for (const std::basic_string<Ch>& piece : pieces.list) {
    if (piece.empty()) return ::testing::AssertionFailure() << "an empty piece was written";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace portwren::testing_format

#define EXPECT_FORMAT(expected, ...) EXPECT_TRUE(::portwren::testing_format::FormatsAs(expected, __VA_ARGS__))
