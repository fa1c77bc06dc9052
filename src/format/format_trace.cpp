// The slow way out of the engine: the directive trace and the piece writer.
#include "format/format_engine.h"

namespace portwren::format_detail {

namespace {

thread_local bool t_in_trace_writer = false;

template <class Ch>
int32_t CoreArgs(BasicFormatSink<Ch>* sink, const Ch* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t count = RunFormat(sink, format, &args);
  va_end(args);
  return count;
}

// %F of a trace line: "width:true,5 preci:false".
template <class Ch>
int32_t RenderWidthPrecision(void* argument, BasicFormatSink<Ch>* sink) {
  static constexpr auto kValue = Widen<Ch>(",%d");
  static constexpr auto kForm = Widen<Ch>("width:%s%s preci:%s%s");
  static constexpr auto kTrue = Widen<Ch>("true");
  static constexpr auto kFalse = Widen<Ch>("false");
  const auto* record = static_cast<const BasicFormatTraceRecord<Ch>*>(argument);
  Ch width[16] = {0};
  Ch precision[16] = {0};
  if (record->width_given) QuietToBuffer(width, 16, kValue.data(), record->width);
  if (record->precision_given) QuietToBuffer(precision, 16, kValue.data(), record->precision);
  return CoreArgs(sink, kForm.data(), record->width_given ? kTrue.data() : kFalse.data(), width,
                  record->precision_given ? kTrue.data() : kFalse.data(), precision);
}

template <class Ch>
void HandToWriter(const Ch* line) {
  const bool was_in_writer = t_in_trace_writer;
  t_in_trace_writer = true;
  Settings<Ch>::trace_writer(Settings<Ch>::trace_context, line);
  t_in_trace_writer = was_in_writer;
}

}  // namespace

bool InTraceWriter() {
  return t_in_trace_writer;
}

template <class Ch>
void Engine<Ch>::TracePiece(int32_t length, BasicFormatTraceRecord<Ch>* record) {
  static constexpr auto kIndent = Widen<Ch>("  ");
  static constexpr auto kHead = Widen<Ch>("%*n<<fmtstring>>(@lv%d): %s%s");
  static constexpr auto kPiece =
      Widen<Ch>("%*n<%.*s> fmtpos:%d+%d %F stock:%d(@lv%d) outpos:%d+%d (~%d+%d)%s");
  const int32_t level = static_cast<int32_t>(sink_->level) + 1;
  const int32_t base = sink_->base_pos;
  const int32_t count = static_cast<int32_t>(count_);

  record->directive = directive_;
  record->directive_length = directive_length_;
  record->format_offset = static_cast<int32_t>(directive_ - format_);
  record->width_given = spec_.width_given;
  record->width = spec_.width;
  record->precision_given = spec_.precision >= 0;
  record->precision = spec_.precision;
  record->level = static_cast<uint32_t>(level);
  record->base_pos = base;
  record->count = count;

  Ch line[kTraceLineChars];
  if (!traced_header_) {
    traced_header_ = true;
    QuietToBuffer(line, kTraceLineChars, kHead.data(), level, kIndent.data(), level, format_,
                  Settings<Ch>::line_end);
    HandToWriter(line);
  }
  BasicFormatCallback<Ch> width_precision;
  width_precision.tag = kFormatCallbackTag;
  width_precision.render = &RenderWidthPrecision<Ch>;
  width_precision.argument = record;
  QuietToBuffer(line, kTraceLineChars, kPiece.data(), level, kIndent.data(), directive_length_, directive_,
                record->format_offset, directive_length_, &width_precision, base, level, count, length,
                static_cast<int32_t>(static_cast<uint32_t>(base) + count_), length, Settings<Ch>::line_end);
  HandToWriter(line);
}

template <class Ch>
void Engine<Ch>::PutSlow(const Ch* text, int32_t length) {
  BasicFormatTraceRecord<Ch> record;
  BasicFormatTraceRecord<Ch>* trace = nullptr;
  // The writer may have been removed since this call began.
  if (tracing_ && Settings<Ch>::trace_writer != nullptr) {
    trace = &record;
    TracePiece(length, trace);
  }
  if (writer_ != nullptr) writer_(context_, text, length, trace);
  CopyOut(text, length);
  count_ += static_cast<uint32_t>(length);
}

template void Engine<char>::PutSlow(const char*, int32_t);
template void Engine<char16_t>::PutSlow(const char16_t*, int32_t);
template void Engine<char>::TracePiece(int32_t, BasicFormatTraceRecord<char>*);
template void Engine<char16_t>::TracePiece(int32_t, BasicFormatTraceRecord<char16_t>*);

}  // namespace portwren::format_detail
