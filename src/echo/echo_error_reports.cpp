#include "echo/echo_error_reports.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "format/console_log.h"
#include "support/run_settings.h"
#include "support/shared_keys.h"

namespace portwren {

namespace {

constexpr char kBangRow[] = "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!";
static_assert(sizeof kBangRow == 57);
constexpr uint32_t kPartialDumpBufferBytes = 4096;

// The dump arguments every dump of the echo test shares: rows line up with the stream offset.
struct DumpLayout {
  int32_t start_column;
  int32_t row_width;
};

DumpLayout LayoutFor(uint64_t stream_offset) {
  const int32_t width = g_echolog_row_width;
  const int32_t column = width > 0 ? static_cast<int32_t>(stream_offset % static_cast<uint64_t>(width)) : 0;
  return {column, width};
}

void FlushLogs(const EchoLogs& logs) {
  if (logs.out != nullptr && logs.out->IsOpen()) logs.out->Flush();
  if (logs.in != nullptr && logs.in->IsOpen()) logs.in->Flush();
}

// Formatted whole and printed with one call, so that no other thread's line lands inside.
void PrintConsoleDump(const ReceiveState& state, uint32_t count) {
  const DumpLayout layout = LayoutFor(state.stream_offset);
  char* text = nullptr;
  if (FormatAlloc(&text, "%k%0.*R%t%4.0v%*m\n", " ", layout.start_column, layout.row_width, ".",
                  state.stream_offset, static_cast<int32_t>(count), state.buffer) >= 0 &&
      text != nullptr) {
    std::fputs(text, stdout);
  }
  std::free(text);
}

void WritePartialDump(const ReceiveState& state) {
  LogFileWriter file;
  if (!file.Open(kPartialDumpFile, false, kPartialDumpBufferBytes)) {
    std::printf("Error: %s open/create fail!\n", kPartialDumpFile);
    return;
  }
  const DumpLayout layout = LayoutFor(state.stream_offset);
  FormatCallback stamp;
  file.Print("[%F]\r\n@Chunk %u: Requesting %d bytes, received %d bytes.\r\n\r\n",
             MakeFormatCallback(&stamp, &RenderLocalNow, &stamp), state.chunk_id,
             static_cast<int32_t>(state.requested), static_cast<int32_t>(state.fill));
  file.Print("%k%0.*R%t%4.0v%*m\r\n", " ", layout.start_column, layout.row_width, ".", state.stream_offset,
             static_cast<int32_t>(state.fill), state.buffer);
  const bool written = file.FlushAndClose();
  if (written) {
    std::printf("See full byte-dump in file: %s\n", kPartialDumpFile);
  } else {
    std::printf("Error: %s write fail!\n", kPartialDumpFile);
  }
}

void WaitForOperator(const EchoLogs& logs, const KeyboardHold& hold) {
  std::fflush(stdout);
  FlushLogs(logs);
  WaitForHeldKey(hold, '0');
}

}  // namespace

void ReportPushingError(const EchoLogs& logs, const char* format, ...) {
  va_list args;
  va_start(args, format);
  NestedFormat nested;
  LogStamp("%w", MakeNestedFormat(&nested, format, &args));
  va_end(args);
  if (!g_manual_intervene_errcli) return;

  const KeyboardHold hold;
  std::printf("\n%s\n", kBangRow);
  LogStamp("Pushing error occurred. Waiting for manual intervention. ('0' to continue)");
  std::printf("%s\n\n", kBangRow);
  WaitForOperator(logs, hold);
}

void ReportPullingError(const EchoLogs& logs, const ReceiveState& state, const char* format, ...) {
  va_list args;
  va_start(args, format);
  NestedFormat nested;
  LogStampMs("@Chunk %u: %w", state.chunk_id, MakeNestedFormat(&nested, format, &args));
  va_end(args);
  if (!g_manual_intervene_errcli) return;

  const KeyboardHold hold;
  std::printf("\n%s>>>>\n", kBangRow);
  LogStamp("Pulling error occurred. Waiting for manual intervention.");
  if (state.fill > 0) {
    std::printf("Chunk %u requesting %d bytes, received %d bytes.\n", state.chunk_id,
                static_cast<int32_t>(state.requested), static_cast<int32_t>(state.fill));
    const uint32_t shown = std::min(state.fill, kConsoleDumpBytes);
    std::printf("Dumping %d already received bytes:\n", static_cast<int32_t>(shown));
    PrintConsoleDump(state, shown);
    WritePartialDump(state);
  } else {
    std::printf("Requesting %d bytes for this chunk, received none.\n",
                static_cast<int32_t>(state.requested));
  }
  std::printf("(Press '0' to continue)\n");
  std::printf("%s<<<<\n\n", kBangRow);
  WaitForOperator(logs, hold);
}

}  // namespace portwren
