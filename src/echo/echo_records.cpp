#include "echo/echo_records.h"

#include "echo/chunk_format.h"
#include "platform/os_core.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

// Every record's dump starts at the column its stream offset falls in, so rows stay aligned
// to multiples of the row width across records.
int32_t StartColumn(uint64_t stream_offset, int32_t row_width) {
  return row_width > 0 ? static_cast<int32_t>(stream_offset % static_cast<uint64_t>(row_width)) : 0;
}

bool LogChunkRecord(LogFileWriter* log, uint64_t number, uint64_t stream_offset, const uint8_t* buffer,
                    int32_t shown_size, int32_t dump_count, const char* status) {
  FormatCallback stamp;
  const int32_t row_width = g_echolog_row_width;
  return log->Print("[%F] #%llu: %d bytes: %s\r\n%k%0.*R%t%4.0v%*m.\r\n\r\n",
                    MakeFormatCallback(&stamp, &RenderCompactTime, nullptr),
                    static_cast<unsigned long long>(number), shown_size, status, " ",
                    StartColumn(stream_offset, row_width), row_width, ".", stream_offset, dump_count, buffer);
}

bool Writable(const LogFileWriter* log, int32_t count) {
  return log != nullptr && log->IsOpen() && count > 0;
}

}  // namespace

int32_t RenderCompactTime(void* local_time, FormatSink* sink) {
  const os::LocalTime t =
      local_time != nullptr ? *static_cast<const os::LocalTime*>(local_time) : os::GetLocalTime();
  return FormatToSink(sink, "%04d%02d%02d.%02d%02d%02d.%03d", t.year, t.month, t.day, t.hour, t.minute,
                      t.second, t.milliseconds);
}

bool LogOutRecord(LogFileWriter* log, uint64_t chunk_number, uint64_t stream_offset, const uint8_t* buffer,
                  int32_t count, bool ok) {
  if (!Writable(log, count)) return false;
  return LogChunkRecord(log, chunk_number, stream_offset, buffer, count, count, ok ? "" : "(FAIL!)");
}

bool LogInRecord(LogFileWriter* log, uint64_t chunk_number, uint64_t stream_offset, const uint8_t* buffer,
                 int32_t received) {
  if (!Writable(log, received)) return false;
  const int32_t declared = static_cast<int32_t>(ReadChunkHead(buffer).body_length + kEchoHeadSize);
  char status[80] = "";
  if (received >= static_cast<int32_t>(kEchoHeadSize) && declared != received) {
    FormatToBuffer(status, sizeof status, "(echo mismatch, dump total %d)", received);
  }
  return LogChunkRecord(log, chunk_number, stream_offset, buffer, declared, received, status);
}

bool LogReadRecord(LogFileWriter* log, uint64_t read_number, uint64_t stream_offset, const uint8_t* buffer,
                   int32_t count) {
  if (!Writable(log, count)) return false;
  FormatCallback stamp;
  const int32_t row_width = g_echolog_row_width;
  return log->Print("[%F] #%llu: %d bytes.\r\n%k%0.*R%t%4.0v%*m.\r\n\r\n",
                    MakeFormatCallback(&stamp, &RenderCompactTime, nullptr),
                    static_cast<unsigned long long>(read_number), count, " ",
                    StartColumn(stream_offset, row_width), row_width, ".", stream_offset, count, buffer);
}

}  // namespace portwren
