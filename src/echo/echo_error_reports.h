// The echo client's error reports: a stamped line for each error, and with
// --manual-intervene-errcli a pause for the operator. A pulling error also shows what came of
// the failed chunk: up to 256 bytes on the console and all of them in echo_in.partial.log.
#pragma once

#include <cstdint>

#include "echo/log_file_writer.h"

namespace portwren {

inline constexpr char kPartialDumpFile[] = "echo_in.partial.log";
inline constexpr uint32_t kConsoleDumpBytes = 256;

// The client's two logs, flushed before a pause so the operator sees them complete.
struct EchoLogs {
  LogFileWriter* out = nullptr;
  LogFileWriter* in = nullptr;
};

// One chunk being received: where it goes and how far it got.
struct ReceiveState {
  uint8_t* buffer = nullptr;
  uint32_t capacity = 0;
  uint32_t fill = 0;           // bytes of this chunk in the buffer
  uint32_t requested = 0;      // head size + body bytes asked for so far
  uint32_t chunk_id = 0;       // the id expected
  uint64_t stream_offset = 0;  // bytes received before this chunk
};

// The message is the whole line, its "@Chunk N: " included.
void ReportPushingError(const EchoLogs& logs, const char* format, ...);
// The line gets "@Chunk N: " from the state.
void ReportPullingError(const EchoLogs& logs, const ReceiveState& state, const char* format, ...);

}  // namespace portwren
