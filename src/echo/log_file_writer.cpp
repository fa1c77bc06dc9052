#include "echo/log_file_writer.h"

#include <cstdlib>
#include <cstring>

#include "platform/os_file.h"
#include "platform/os_sync.h"

namespace portwren {

namespace {

// Holds the writer's mutex for one scope.
class LockGuard {
 public:
  explicit LockGuard(os::Handle mutex) : mutex_(mutex) { os::WaitForSingleObject(mutex_, os::kInfinite); }
  ~LockGuard() { os::ReleaseMutex(mutex_); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  os::Handle mutex_;
};

}  // namespace

LogFileWriter::~LogFileWriter() {
  FlushAndClose();
}

bool LogFileWriter::Open(const char* file_name, bool append, uint32_t capacity) {
  Close();
  if (capacity < 1) return false;
  fill_ = 0;
  capacity_ = capacity;
  writes_ = 0;
  bytes_written_ = 0;
  error_ = 0;
  buffer_ = static_cast<char*>(std::malloc(capacity));
  lock_.reset(os::CreateMutexA(false));
  if (buffer_ == nullptr || !lock_) {
    Close();
    return false;
  }
  file_.reset(os::CreateFileA(file_name, os::kGenericWrite, os::kFileShareRead, os::kOpenAlways, 0));
  if (!file_) {
    Close();
    return false;
  }
  if (append) {
    os::SetFilePointer(file_.get(), 0, nullptr, os::kFileEnd);
  } else {
    os::SetFilePointer(file_.get(), 0, nullptr, os::kFileBegin);
    os::SetEndOfFile(file_.get());
  }
  return true;
}

void LogFileWriter::Close() {
  std::free(buffer_);
  buffer_ = nullptr;
  file_.reset();
  lock_.reset();
  fill_ = 0;
}

bool LogFileWriter::FlushAndClose() {
  const bool flushed = IsOpen() ? Flush() : false;
  Close();
  return flushed;
}

bool LogFileWriter::WriteToFileLocked(const void* data, uint32_t count) {
  os::Dword done = 0;
  if (!os::WriteFile(file_.get(), data, count, &done, nullptr)) {
    error_ = os::GetLastError();
    return false;
  }
  bytes_written_ += count;
  writes_ += 1;
  return true;
}

bool LogFileWriter::FlushLocked() {
  if (!IsOpen() || error_ != 0) return false;
  if (fill_ == 0) return true;
  if (!WriteToFileLocked(buffer_, fill_)) return false;
  fill_ = 0;
  return true;
}

bool LogFileWriter::Flush() {
  if (!IsOpen()) return false;
  LockGuard guard(lock_.get());
  return FlushLocked();
}

bool LogFileWriter::Write(const void* data, uint32_t count) {
  if (!IsOpen() || error_ != 0) return false;
  LockGuard guard(lock_.get());
  const char* bytes = static_cast<const char*>(data);
  const uint64_t total = static_cast<uint64_t>(fill_) + count;
  if (total < 2ULL * capacity_ && (fill_ > 0 || total < capacity_)) {
    if (total < capacity_) {
      std::memcpy(buffer_ + fill_, bytes, count);
      fill_ += count;
      return true;
    }
    const uint32_t fits = capacity_ - fill_;
    std::memcpy(buffer_ + fill_, bytes, fits);
    fill_ = capacity_;
    if (!FlushLocked()) return false;
    const uint32_t rest = count - fits;
    std::memcpy(buffer_, bytes + fits, rest);
    fill_ = rest;
    return true;
  }
  // Too much for the buffer: what is buffered goes first, then the data in one write.
  if (!FlushLocked()) return false;
  return WriteToFileLocked(bytes, count);
}

void LogFileWriter::WritePiece(void* writer, const char* text, int32_t length, const FormatTraceRecord*) {
  if (length > 0) static_cast<LogFileWriter*>(writer)->Write(text, static_cast<uint32_t>(length));
}

bool LogFileWriter::PrintV(const char* format, va_list args) {
  if (!IsOpen()) return false;
  FormatSink sink;
  sink.writer = &LogFileWriter::WritePiece;
  sink.context = this;
  va_list copy;
  va_copy(copy, args);
  FormatCore(&sink, format, copy);
  va_end(copy);
  return Error() == 0;
}

bool LogFileWriter::Print(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const bool ok = PrintV(format, args);
  va_end(args);
  return ok;
}

uint32_t LogFileWriter::Error() const {
  return error_.load();
}

uint64_t LogFileWriter::Writes() const {
  if (!IsOpen()) return writes_;
  LockGuard guard(lock_.get());
  return writes_;
}

uint64_t LogFileWriter::BytesWritten() const {
  if (!IsOpen()) return bytes_written_;
  LockGuard guard(lock_.get());
  return bytes_written_;
}

}  // namespace portwren
