#include "echo/echo_server.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "echo/chunk_check.h"
#include "echo/chunk_format.h"
#include "echo/crc32.h"
#include "echo/echo_records.h"
#include "format/console_log.h"
#include "platform/os_core.h"
#include "platform/os_serial.h"
#include "platform/os_sync.h"
#include "support/run_settings.h"
#include "support/shared_keys.h"

namespace portwren {

namespace {

constexpr os::Dword kSleepMs = 500;
constexpr os::Dword kReportPeriodMs = 2000;
constexpr os::Dword kKeyPollMs = 20;

class EchoServer;

// The routine gets the Overlapped back; it sits first so the request is found from it.
struct ServerRequest {
  os::Overlapped overlapped;
  EchoServer* server = nullptr;
  bool read = false;
};

void OnRequestDone(os::Dword error, os::Dword bytes, os::Overlapped* overlapped);

class EchoServer {
 public:
  EchoServer(os::Handle port, uint32_t size, LogFileWriter* out_log, LogFileWriter* in_log,
             EchoServerReport* report)
      : port_(port), size_(size), out_log_(out_log), in_log_(in_log), report_(report) {
    read_request_.server = this;
    read_request_.read = true;
    write_request_.server = this;
  }

  bool Start();
  bool Run(EchoStopPoll stop);
  void Done(bool read, os::Dword error, os::Dword bytes);

 private:
  enum class Next { kAdvance, kWait, kEnd };

  Next ReadDone(os::Dword error, os::Dword bytes);
  Next WriteDone(os::Dword error, os::Dword bytes);
  Next WholeChunk();
  void Advance();
  bool ReadHead();
  void EndChain();
  void Statistics();
  void Note(const char* kind, int64_t expected, int64_t received, bool wrong_data = false);
  void FillReport() const;

  os::Handle port_;
  uint32_t size_;
  LogFileWriter* out_log_;
  LogFileWriter* in_log_;
  EchoServerReport* report_;
  // A head may declare a body of up to size_ bytes, so each buffer has room for a head more.
  std::unique_ptr<uint8_t[]> read_buffer_;
  std::unique_ptr<uint8_t[]> write_buffer_;
  ServerRequest read_request_;
  ServerRequest write_request_;

  bool quitting_ = false;
  bool ended_ = false;  // an error ended the chain: nothing new is started
  int32_t read_fill_ = 0;
  bool chunk_ready_ = false;
  bool writing_ = false;
  uint32_t read_pending_ = 0;
  uint32_t write_pending_ = 0;
  uint32_t write_length_ = 0;
  uint64_t chunks_received_ = 0;
  uint64_t bytes_received_ = 0;
  uint64_t chunks_echoed_ = 0;
  uint64_t bytes_echoed_ = 0;

  // From the first head read to the last echo: the span the server's rate is judged over.
  std::chrono::steady_clock::time_point first_read_;
  std::chrono::steady_clock::time_point last_echo_;
  bool first_read_seen_ = false;

  os::Dword key_tick_ = 0;
  bool timing_ = false;
  os::Dword report_tick_ = 0;
  uint64_t report_bytes_ = 0;
};

void OnRequestDone(os::Dword error, os::Dword bytes, os::Overlapped* overlapped) {
  auto* request = reinterpret_cast<ServerRequest*>(overlapped);
  request->server->Done(request->read, error, bytes);
}

bool EchoServer::Start() {
  os::CommTimeouts timeouts;
  timeouts.ReadIntervalTimeout = static_cast<os::Dword>(g_rto_interval);
  timeouts.ReadTotalTimeoutMultiplier = static_cast<os::Dword>(g_rto_multiplier);
  timeouts.ReadTotalTimeoutConstant = static_cast<os::Dword>(g_rto_constant);
  timeouts.WriteTotalTimeoutMultiplier = static_cast<os::Dword>(g_wto_multiplier);
  timeouts.WriteTotalTimeoutConstant = static_cast<os::Dword>(g_wto_constant);
  if (!os::SetCommTimeouts(port_, &timeouts)) {
    const os::Dword error = os::GetLastError();
    LogStamp("In Do_Echo_srv(), SetCommTimeouts() fail. WinErr=%d(%s)", static_cast<int32_t>(error),
             WinErrName(error));
    return false;
  }
  const uint64_t queue64 = static_cast<uint64_t>(g_echo_rwbufx > 0 ? g_echo_rwbufx : 0) * size_;
  const os::Dword queue = queue64 > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<os::Dword>(queue64);
  if (!os::SetupComm(port_, queue, queue)) {
    WinErrStamp(0, "In Do_Echo_srv(), SetupComm(hcom, %d, %d) fail.", static_cast<int32_t>(queue),
                static_cast<int32_t>(queue));
    return false;
  }
  const size_t room = ChunkBufferSize(size_) + kEchoHeadSize;
  read_buffer_.reset(new (std::nothrow) uint8_t[room]);
  write_buffer_.reset(new (std::nothrow) uint8_t[room]);
  if (read_buffer_ == nullptr || write_buffer_ == nullptr) {
    LogStamp("Echo server cannot allocate two buffers of %u bytes.", static_cast<uint32_t>(room));
    return false;
  }
  std::memset(read_buffer_.get(), 0, kEchoHeadSize);
  if (!os::ReadFileEx(port_, read_buffer_.get(), kEchoHeadSize, &read_request_.overlapped, &OnRequestDone)) {
    WinErrStamp(0, "Bad! Initial ReadFileEx() fail!");
    return false;
  }
  read_pending_ = kEchoHeadSize;
  return true;
}

bool EchoServer::Run(EchoStopPoll stop) {
  for (;;) {
    const bool idle = os::SleepEx(kSleepMs, true) != os::kWaitIoCompletion;
    // While chunks stream the sleep ends after every batch of routines; the keyboard is asked
    // every few milliseconds only, which a person cannot tell apart from every pass.
    const os::Dword now = os::GetTickCount();
    const bool ask = idle || now - key_tick_ >= kKeyPollMs;
    if (ask) key_tick_ = now;
    if (ask && !quitting_ && stop != nullptr && stop()) {
      LogStamp("Now quitting echo server...");
      quitting_ = true;
      os::CancelIo(port_);
    }
    if (read_pending_ == 0 && write_pending_ == 0) {
      FillReport();
      return true;
    }
    if (out_log_ != nullptr && out_log_->IsOpen()) out_log_->Flush();
    if (in_log_ != nullptr && in_log_->IsOpen()) in_log_->Flush();
    Statistics();
    std::fflush(stdout);  // the lines show while it runs, also when the output goes to a pipe or file
  }
}

// Echoed (written) data is what counts, from the first echo on.
void EchoServer::Statistics() {
  const os::Dword now = os::GetTickCount();
  if (!timing_) {
    if (bytes_echoed_ == 0) return;
    LogStamp("First client connected. Start timing.");
    timing_ = true;
    report_tick_ = now;
    report_bytes_ = bytes_echoed_;
    return;
  }
  const os::Dword elapsed = now - report_tick_;
  if (elapsed < kReportPeriodMs || bytes_echoed_ <= report_bytes_) return;
  char rate[40];
  LogStamp("Echoed %llu chunks, %s", static_cast<unsigned long long>(chunks_echoed_),
           RateText(bytes_echoed_ - report_bytes_, elapsed, rate, sizeof rate));
  report_tick_ = now;
  report_bytes_ = bytes_echoed_;
}

void EchoServer::Done(bool read, os::Dword error, os::Dword bytes) {
  if (quitting_ || ended_) {
    (read ? read_pending_ : write_pending_) = 0;
    return;
  }
  switch (read ? ReadDone(error, bytes) : WriteDone(error, bytes)) {
    case Next::kAdvance:
      Advance();
      break;
    case Next::kWait:
      break;
    case Next::kEnd:
      EndChain();
      break;
  }
}

EchoServer::Next EchoServer::ReadDone(os::Dword error, os::Dword bytes) {
  const uint32_t asked = read_pending_;
  read_pending_ = 0;
  if (error != 0) {
    Note("read_error", 0, error);
    os::SetLastError(error);
    WinErrStamp(0, "Unexpect: Vcom read got error.");
    return Next::kEnd;
  }
  if (bytes != asked) {
    Note("read_count", asked, bytes);
    LogStamp("Error: Vcom read complete with unexpected bytes count. Got:%d , Expect=%d",
             static_cast<int32_t>(bytes), static_cast<int32_t>(asked));
    LogInRecord(in_log_, chunks_received_, bytes_received_, read_buffer_.get(),
                read_fill_ + static_cast<int32_t>(bytes));
    return Next::kEnd;
  }
  if (!first_read_seen_) {
    first_read_seen_ = true;
    first_read_ = std::chrono::steady_clock::now();
  }
  const ChunkHead head = ReadChunkHead(read_buffer_.get());
  if (read_fill_ == 0) {
    read_fill_ = kEchoHeadSize;
    uint32_t body = 0;
    const bool fits = ServerBodyLength(head, size_, &body);
    if (fits && body == 0) return WholeChunk();
    if (!fits) {
      Note("chunk_too_long", size_, head.body_length, true);
      LogStamp("Received wrong data. Echo body length(%d) exceeds max expected(%d).",
               static_cast<int32_t>(head.body_length), static_cast<int32_t>(size_));
      LogInRecord(in_log_, chunks_received_, bytes_received_, read_buffer_.get(), read_fill_);
      return Next::kEnd;
    }
    if (!os::ReadFileEx(port_, read_buffer_.get() + read_fill_, body, &read_request_.overlapped,
                        &OnRequestDone)) {
      Note("read_launch", 0, os::GetLastError());
      WinErrStamp(0, "ReadFileEx launch error.");
      return Next::kEnd;
    }
    read_pending_ = body;
    return Next::kWait;
  }
  read_fill_ += static_cast<int32_t>(bytes);
  if (head.body_length != bytes) {
    Note("body_length", head.body_length, bytes, true);
    LogStamp("Unexpect: Received chunk.echolen is wrong. Recv:%d , Expect: %d", static_cast<int32_t>(bytes),
             static_cast<int32_t>(head.body_length));
    LogInRecord(in_log_, chunks_received_, bytes_received_, read_buffer_.get(), read_fill_);
    return Next::kEnd;
  }
  const uint32_t crc = Crc32(read_buffer_.get() + kEchoHeadSize, head.body_length);
  if (crc != head.body_crc) {
    Note("wrong_crc", crc, head.body_crc, true);
    LogStamp("!!! Wrong crc32 detected on chunk-id %d. ", static_cast<int32_t>(head.chunk_id));
  }
  return WholeChunk();
}

// A bad CRC comes here too: the client is the one that judges the echo.
EchoServer::Next EchoServer::WholeChunk() {
  chunk_ready_ = true;
  LogInRecord(in_log_, chunks_received_, bytes_received_, read_buffer_.get(), read_fill_);
  ++chunks_received_;
  bytes_received_ += static_cast<uint64_t>(read_fill_);
  return Next::kAdvance;
}

EchoServer::Next EchoServer::WriteDone(os::Dword error, os::Dword bytes) {
  const uint32_t asked = write_pending_;
  write_pending_ = 0;
  if (error != 0) {
    Note("write_error", 0, error);
    os::SetLastError(error);
    WinErrStamp(0, "Unexpect: Vcom write got error.");
    return Next::kEnd;
  }
  LogOutRecord(out_log_, chunks_echoed_, bytes_echoed_, write_buffer_.get(), static_cast<int32_t>(bytes),
               bytes == asked);
  if (bytes != asked) {
    Note("write_count", asked, bytes);
    LogStamp("Error: Vcom write complete with unexpected bytes count. Got:%d , Expect=%d",
             static_cast<int32_t>(bytes), static_cast<int32_t>(asked));
    return Next::kEnd;
  }
  bytes_echoed_ += bytes;
  ++chunks_echoed_;
  last_echo_ = std::chrono::steady_clock::now();
  writing_ = false;
  return Next::kAdvance;
}

// At most one read and one write run; a whole chunk that finds the write busy waits in the read
// buffer, with no read started, until the write is done.
void EchoServer::Advance() {
  bool head_due = false;
  if (!chunk_ready_ && !writing_) {
    head_due = true;
  } else if (chunk_ready_ && !writing_) {
    write_length_ = ReadChunkHead(read_buffer_.get()).body_length + kEchoHeadSize;
    std::memcpy(write_buffer_.get(), read_buffer_.get(), write_length_);
    chunk_ready_ = false;
    writing_ = true;
    head_due = true;
  }
  if (head_due && read_pending_ == 0 && !ReadHead()) return EndChain();
  if (writing_ && write_pending_ == 0) {
    if (!os::WriteFileEx(port_, write_buffer_.get(), write_length_, &write_request_.overlapped,
                         &OnRequestDone)) {
      Note("write_launch", 0, os::GetLastError());
      WinErrStamp(0, "WriteFileEx launch error.");
      return EndChain();
    }
    write_pending_ = write_length_;
  }
}

bool EchoServer::ReadHead() {
  read_fill_ = 0;
  if (!os::ReadFileEx(port_, read_buffer_.get(), kEchoHeadSize, &read_request_.overlapped, &OnRequestDone)) {
    Note("read_launch", 0, os::GetLastError());
    WinErrStamp(0, "ReadFileEx launch error.");
    return false;
  }
  read_pending_ = kEchoHeadSize;
  return true;
}

// The request still running in the other direction has no use any more: cancelled, its routine
// only clears its count, and the loop returns.
void EchoServer::EndChain() {
  ended_ = true;
  if (report_ != nullptr) report_->ended_on_error = true;
  if (read_pending_ != 0 || write_pending_ != 0) os::CancelIo(port_);
}

// The chunk in question is the one being received (reads) or echoed (writes).
void EchoServer::Note(const char* kind, int64_t expected, int64_t received, bool wrong_data) {
  if (report_ == nullptr) return;
  if (wrong_data) report_->wrong_data = true;
  if (report_->has_error) return;
  report_->has_error = true;
  const bool write = std::string_view(kind).substr(0, 5) == "write";
  report_->error = {kind, static_cast<uint32_t>(write ? chunks_echoed_ : chunks_received_), expected,
                    received};
}

void EchoServer::FillReport() const {
  if (report_ == nullptr) return;
  report_->chunks_received = chunks_received_;
  report_->bytes_received = bytes_received_;
  report_->chunks_echoed = chunks_echoed_;
  report_->bytes_echoed = bytes_echoed_;
  if (first_read_seen_ && chunks_echoed_ > 0) {
    report_->echo_seconds = std::chrono::duration<double>(last_echo_ - first_read_).count();
  }
}

}  // namespace

bool ZeroKeyTaken() {
  return PollKey() == '0';
}

bool RunEchoServer(os::Handle port, uint32_t chunk_max, LogFileWriter* out_log, LogFileWriter* in_log,
                   EchoStopPoll stop, EchoServerReport* report) {
  EchoServer server(port, chunk_max, out_log, in_log, report);
  if (!server.Start()) return false;
  if (report != nullptr) report->started = true;
  return server.Run(stop);
}

}  // namespace portwren
