#include "echo/echo_client.h"

#include <chrono>
#include <new>

#include "echo/chunk_format.h"
#include "echo/echo_client_context.h"
#include "format/console_log.h"
#include "platform/os_serial.h"
#include "platform/os_sync.h"
#include "port/port_config.h"
#include "port/timed_io.h"
#include "support/handle_holder.h"
#include "support/run_settings.h"
#include "support/shared_keys.h"
#include "support/thread_start.h"

namespace portwren {

namespace {

constexpr os::Dword kClearReadMs = 500;
constexpr os::Dword kSuperviseWaitMs = 500;
constexpr os::Dword kStatisticsPeriodMs = 1000;

// The configured timeouts, except that writes get the echo test's own constant.
bool PreparePort(os::Handle port, uint32_t max_chunk) {
  os::CommTimeouts timeouts;
  timeouts.ReadIntervalTimeout = static_cast<os::Dword>(g_rto_interval);
  timeouts.ReadTotalTimeoutMultiplier = static_cast<os::Dword>(g_rto_multiplier);
  timeouts.ReadTotalTimeoutConstant = static_cast<os::Dword>(g_rto_constant);
  timeouts.WriteTotalTimeoutMultiplier = static_cast<os::Dword>(g_wto_multiplier);
  timeouts.WriteTotalTimeoutConstant = EchoWriteTimeoutConstant();
  if (!os::SetCommTimeouts(port, &timeouts)) {
    WinErrStamp(0, "In Do_Echo_cli(), SetCommTimeouts() fail.");
    return false;
  }
  const uint64_t queue = static_cast<uint64_t>(g_echo_rwbufx) * max_chunk;
  const os::Dword queue_bytes = queue > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<os::Dword>(queue);
  if (!os::SetupComm(port, queue_bytes, queue_bytes)) {
    WinErrStamp(0, "In Do_Echo_cli(), SetupComm(hcom, %d, %d) fail.", static_cast<int32_t>(queue_bytes),
                static_cast<int32_t>(queue_bytes));
    return false;
  }
  if (g_echo_need_hwflow) SetCtsFlow(port, true);
  if (g_echo_start_seq_given) LoadEchoSequence(g_echo_start_seq);
  MyClearCommData(port, kClearReadMs, false);
  return true;
}

uint8_t* NewChunkBuffer(uint32_t size) {
  return new (std::nothrow) uint8_t[size]();
}

bool CreateRunObjects(EchoClientContext& context) {
  context.buffer_size = static_cast<uint32_t>(ChunkBufferSize(context.max_chunk));
  context.send_buffer.reset(NewChunkBuffer(context.buffer_size));
  context.receive_buffer.reset(NewChunkBuffer(context.buffer_size));
  context.push_quit.reset(os::CreateEventA(true, false));
  context.pull_quit.reset(os::CreateEventA(true, false));
  context.lock_step.reset(os::CreateEventA(false, false));
  return context.send_buffer && context.receive_buffer && context.push_quit && context.pull_quit &&
         context.lock_step;
}

// Chunks and bytes received at a moment, for the rate of the next statistics line.
struct Snapshot {
  os::Dword tick = 0;
  uint64_t chunks = 0;
  uint64_t bytes = 0;
};

class Supervisor {
 public:
  explicit Supervisor(EchoClientContext& context) : context_(context), start_(os::GetTickCount()) {}

  void TakeKey() {
    if (PollKey() != '0') return;
    if (++zeros_ == 1) {
      LogStamp("Stopping echo flow... (In case no effect, press 0 again to force.)");
      context_.stop_request.store(true);
    } else {
      LogStamp("You pressed 0 again. Now force pushing/pulling thread to quit.");
      os::SetEvent(context_.push_quit.get());
      os::SetEvent(context_.pull_quit.get());
    }
  }

  void PrintStatistics() {
    const os::Dword now = os::GetTickCount();
    const uint64_t chunks = context_.chunks_received.load();
    const uint64_t bytes = context_.bytes_received.load();
    if (snapshot_.chunks == 0) snapshot_ = {now, chunks, bytes};
    const os::Dword since = now - snapshot_.tick;
    if (since < kStatisticsPeriodMs || chunks == snapshot_.chunks) return;
    const os::Dword elapsed = now - start_;
    char size[40];
    char rate[40];
    LogStamp("%d hours %d secs, chunks: %llu, %s, %s", static_cast<int32_t>(elapsed / 3600000),
             static_cast<int32_t>((elapsed / 1000) % 3600), static_cast<unsigned long long>(chunks),
             SizeText(bytes, "B", size, sizeof size),
             RateText(bytes - snapshot_.bytes, since, rate, sizeof rate));
    snapshot_ = {now, chunks, bytes};
  }

 private:
  EchoClientContext& context_;
  os::Dword start_;
  Snapshot snapshot_;
  int zeros_ = 0;
};

// Stops a worker that did start when its partner could not: it must not outlive the context.
void StopAlone(EchoClientContext& context, os::Handle worker) {
  context.stop_request.store(true);
  os::SetEvent(context.push_quit.get());
  os::SetEvent(context.pull_quit.get());
  os::WaitForSingleObject(worker, os::kInfinite);
}

// Read once both workers have ended.
void FillReport(const EchoClientContext& context, EchoClientReport* report) {
  report->chunks_sent = context.chunks_sent.load();
  report->bytes_sent = context.bytes_sent.load();
  report->chunks_received = context.chunks_received.load();
  report->bytes_received = context.bytes_received.load();
  report->has_error = context.first_error.Get(&report->error);
  report->latency_measured = context.mild;
  if (context.mild) report->latency = SummarizeLatency(context.latency_us);
}

}  // namespace

bool RunEchoClient(os::Handle port, uint64_t byte_limit, uint32_t min_chunk, uint32_t max_chunk, bool mild,
                   const EchoLogs& logs, EchoClientReport* report) {
  if (g_datapipe) {
    ClearDatapipeData(port, kClearReadMs);
  } else if (!PreparePort(port, max_chunk)) {
    return false;
  }
  EchoClientContext context;
  context.port = port;
  context.mild = mild;
  context.sequence_mode = g_echo_start_seq_given;
  context.min_chunk = min_chunk;
  context.max_chunk = max_chunk;
  context.logs = logs;
  context.byte_limit.store(byte_limit);
  if (min_chunk < kEchoHeadSize || min_chunk > max_chunk) {
    LogStamp("Echo chunk sizes refused (min:%u, max:%u): need %u <= min <= max.", min_chunk, max_chunk,
             kEchoHeadSize);
    return false;
  }
  if (!CreateRunObjects(context)) return false;

  const auto transfer_start = std::chrono::steady_clock::now();
  const HandleHolder pusher(StartThread(&EchoPushingThread, &context, 0, nullptr));
  if (!pusher) return false;
  const HandleHolder puller(StartThread(&EchoPullingThread, &context, 0, nullptr));
  if (!puller) {
    StopAlone(context, pusher.get());
    return false;
  }

  Supervisor supervisor(context);
  const os::Handle workers[2] = {pusher.get(), puller.get()};
  for (;;) {
    supervisor.TakeKey();
    if (os::WaitForMultipleObjects(2, workers, true, kSuperviseWaitMs) == os::kWaitObject0) break;
    supervisor.PrintStatistics();
  }
  if (report != nullptr) {
    FillReport(context, report);
    report->transfer_seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - transfer_start).count();
  }
  return context.push_result.load() == kWorkerEndedWell && context.pull_result.load() == kWorkerEndedWell;
}

}  // namespace portwren
