// Nesting: %w runs a format with its own arguments, %F a render callback, each on a child sink.
#include <algorithm>
#include <climits>

#include "format/format_engine.h"

namespace portwren::format_detail {

namespace {

// Whether the first 32 bits at `pointer` are the tag. Compared one character at a time, so a
// short format string is never read past its terminator (no tag character is zero).
template <class Ch>
bool StartsWithTag(const void* pointer, uint32_t tag) {
  constexpr std::size_t kUnits = sizeof(uint32_t) / sizeof(Ch);
  Ch tag_units[kUnits];
  std::memcpy(tag_units, &tag, sizeof tag);
  const unsigned char* bytes = static_cast<const unsigned char*>(pointer);
  for (std::size_t i = 0; i < kUnits; ++i) {
    Ch unit;
    std::memcpy(&unit, bytes + i * sizeof(Ch), sizeof(Ch));
    if (unit != tag_units[i]) return false;
  }
  return true;
}

}  // namespace

// The child starts where the parent stands: same writer, the rest of the buffer, one level
// deeper; it inherits nothing of the parent's directive state.
template <class Ch>
typename Engine<Ch>::Sink Engine<Ch>::ChildSink() {
  if (out_ != nullptr) *out_ = 0;
  Sink child;
  child.writer = writer_;
  child.context = context_;
  // What is left of the parent's buffer (room < 1 once it is full). The parent may have produced
  // far more than its room (wide fields), so the rest is measured wide and held at the int limit
  // instead of wrapping to a positive room.
  if (sink_->buffer != nullptr) {
    const int64_t left = int64_t{sink_->room} - int64_t{count_};
    child.buffer = sink_->buffer + (left >= 1 ? count_ : static_cast<uint32_t>(std::max(sink_->room, 0)));
    child.room = static_cast<int32_t>(std::max<int64_t>(left, INT32_MIN));
  }
  child.level = sink_->level + 1;
  child.base_pos = static_cast<int32_t>(static_cast<uint32_t>(sink_->base_pos) + count_);
  child.quiet = sink_->quiet;
  return child;
}

template <class Ch>
void Engine<Ch>::AfterChild(int32_t produced) {
  if (produced <= 0) return;
  if (out_ != nullptr) {
    const std::ptrdiff_t room = out_end_ - out_;
    out_ += produced < room ? produced : room;
  }
  count_ += static_cast<uint32_t>(produced);
}

template <class Ch>
void Engine<Ch>::Nested() {
  const void* pointer = ArgPointer();
  const Ch* format;
  va_list* source;
  if (pointer != nullptr && StartsWithTag<Ch>(pointer, kNestedFormatTag)) {
    BasicNestedFormat<Ch> record;
    std::memcpy(&record, pointer, sizeof record);
    format = record.format;
    source = record.args;
  } else {
    format = static_cast<const Ch*>(pointer);
    source = static_cast<va_list*>(const_cast<void*>(ArgPointer()));
  }
  Sink child = ChildSink();
  int32_t produced;
  if (source != nullptr) {
    va_list args;  // a copy, so the same record can be formatted again
    va_copy(args, *source);
    produced = RunFormat(&child, format, &args);
    va_end(args);
  } else {
    produced = RunFormat<Ch>(&child, format, nullptr);
  }
  AfterChild(produced);
}

template <class Ch>
void Engine<Ch>::Callback() {
  const void* pointer = ArgPointer();
  if (pointer == nullptr) return;
  uint32_t tag;
  std::memcpy(&tag, pointer, sizeof tag);
  if (tag != kFormatCallbackTag) return;
  BasicFormatCallback<Ch> record;
  std::memcpy(&record, pointer, sizeof record);
  if (record.render == nullptr) return;
  Sink child = ChildSink();
  AfterChild(record.render(record.argument, &child));
}

template <class Ch>
int32_t RunFormat(BasicFormatSink<Ch>* sink, const Ch* format, va_list* args) {
  Engine<Ch> engine(sink, format, args);
  return engine.Run();
}

template <class Ch>
int32_t QuietToBuffer(Ch* buffer, int32_t capacity, const Ch* format, ...) {
  BasicFormatSink<Ch> sink;
  sink.buffer = buffer;
  sink.room = capacity;
  sink.quiet = true;
  va_list args;
  va_start(args, format);
  const int32_t count = RunFormat(&sink, format, &args);
  va_end(args);
  return count;
}

template void Engine<char>::Nested();
template void Engine<char16_t>::Nested();
template void Engine<char>::Callback();
template void Engine<char16_t>::Callback();
template int32_t RunFormat(BasicFormatSink<char>*, const char*, va_list*);
template int32_t RunFormat(BasicFormatSink<char16_t>*, const char16_t*, va_list*);
template int32_t QuietToBuffer(char*, int32_t, const char*, ...);
template int32_t QuietToBuffer(char16_t*, int32_t, const char16_t*, ...);

}  // namespace portwren::format_detail
