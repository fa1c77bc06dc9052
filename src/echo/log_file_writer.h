// A buffered log file shared by threads: records are formatted straight into it through the
// format engine's piece writer and reach the file in large blocks.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "format/format.h"
#include "platform/os_handle.h"
#include "support/handle_holder.h"

namespace portwren {

class LogFileWriter {
 public:
  LogFileWriter() = default;
  ~LogFileWriter();
  LogFileWriter(const LogFileWriter&) = delete;
  LogFileWriter& operator=(const LogFileWriter&) = delete;

  // Clean (cut to empty) or appending; others may read the file while it grows.
  bool Open(const char* file_name, bool append, uint32_t capacity);
  bool Write(const void* data, uint32_t count);
  // True when nothing is left in the buffer.
  bool Flush();
  // Releases everything without flushing.
  void Close();
  // The closing form callers use: flush when open, then close; the flush's result.
  bool FlushAndClose();

  // Formats straight into the writer; false when any piece could not be written.
  bool Print(const char* format, ...);
  bool PrintV(const char* format, va_list args);

  // The format engine's piece writer; the context is the writer.
  static void WritePiece(void* writer, const char* text, int32_t length, const FormatTraceRecord* trace);

  bool IsOpen() const { return file_.valid(); }
  uint32_t Error() const;
  uint64_t Writes() const;
  uint64_t BytesWritten() const;

 private:
  bool FlushLocked();
  bool WriteToFileLocked(const void* data, uint32_t count);

  HandleHolder file_;
  HandleHolder lock_;
  char* buffer_ = nullptr;
  uint32_t capacity_ = 0;
  uint32_t fill_ = 0;
  uint64_t writes_ = 0;
  uint64_t bytes_written_ = 0;
  // First write error; sticky, so a broken log stays silent. Tested before taking the lock.
  std::atomic<uint32_t> error_{0};
};

}  // namespace portwren
