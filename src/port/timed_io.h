// The timed reads and writes of the r, R, w and W keys: each request is overlapped, waited on
// for the configured time, cancelled when it has not completed, and every step is printed, so
// the operator sees which path the driver took. Also the quieter reads that clearing and the
// echo client use.
#pragma once

#include <cstdint>

#include "echo/log_file_writer.h"
#include "platform/os_handle.h"

namespace portwren {

// Prompts "Bytes to read(N): " (or write) and reads a line: a number in C notation becomes the
// direction's remembered count, an empty line keeps it. A count that would not fit the
// transfer buffer is refused with a line saying so, and the remembered one stays.
int32_t AskCount(bool for_read);

// Reads count bytes into the transfer buffer; prints the outcome and the data, feeds the read log.
void TimedRead(os::Handle port, int32_t count);
// Writes count bytes of counter words from the transfer buffer; prints the outcome.
void TimedWrite(os::Handle port, int32_t count);

// Bytes read (0 or more) or -1. These rely on the port's timeouts to end a read that finds no
// data; the second also gives up after ms and returns what came before the cancel.
int32_t ReadFile_Sync(os::Handle port, void* buffer, int32_t count);
int32_t ReadFile_Sync_timeout(os::Handle port, void* buffer, int32_t count, uint32_t ms);

// Reads and drops what the Datapipe device holds, each read limited to ms.
void ClearDatapipeData(os::Handle port, uint32_t ms);

// The read log the timed reads write to; null for none. The writer is the caller's.
void SetReadLog(LogFileWriter* writer);

}  // namespace portwren
