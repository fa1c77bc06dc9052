// The records of the echo logs and the read log: a head line with a compact local time, then
// a hex dump whose rows line up with the stream offset, so consecutive records read as one
// continuous dump of the direction's bytes.
#pragma once

#include <cstdint>

#include "echo/log_file_writer.h"
#include "format/format.h"

namespace portwren {

// %F render function: local time as "20240131.235959.123". The argument points to an
// os::LocalTime to show, or is null for the current time.
int32_t RenderCompactTime(void* local_time, FormatSink* sink);

// Each writes one record when the log is open and the count is above 0, and says whether it
// wrote one. Rows are g_echolog_row_width bytes wide; stream_offset is the direction's byte
// total before this record.

// A written chunk; ok false marks a failed write.
bool LogOutRecord(LogFileWriter* log, uint64_t chunk_number, uint64_t stream_offset, const uint8_t* buffer,
                  int32_t count, bool ok);
// A received chunk. The size shown is the one its head declares, read from the buffer even
// when fewer than 12 bytes came, so the buffer must hold at least 12 bytes.
bool LogInRecord(LogFileWriter* log, uint64_t chunk_number, uint64_t stream_offset, const uint8_t* buffer,
                 int32_t received);
// A timed read's data.
bool LogReadRecord(LogFileWriter* log, uint64_t read_number, uint64_t stream_offset, const uint8_t* buffer,
                   int32_t count);

}  // namespace portwren
