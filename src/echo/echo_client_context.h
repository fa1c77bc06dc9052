// What the echo client's console thread and its two workers share for one run. Every counter
// has one writing thread; the others only read it, for statistics and limits.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "echo/echo_error_reports.h"
#include "echo/echo_run_report.h"
#include "platform/os_handle.h"
#include "support/handle_holder.h"

namespace portwren {

inline constexpr uint32_t kWorkerRunning = 0;
inline constexpr uint32_t kWorkerEndedWell = 1;
inline constexpr uint32_t kWorkerFailed = 2;

struct EchoClientContext {
  os::Handle port = nullptr;
  bool mild = false;
  bool sequence_mode = false;
  uint32_t max_chunk = 0;
  uint32_t min_chunk = 0;
  uint32_t buffer_size = 0;
  EchoLogs logs;

  EventHolder push_quit;  // console (forced stop) and the pulling thread's end
  EventHolder pull_quit;  // console (forced stop)
  EventHolder lock_step;  // one good chunk came back: the next may go (mild), or room (urge)
  std::unique_ptr<uint8_t[]> send_buffer;
  std::unique_ptr<uint8_t[]> receive_buffer;

  std::atomic<bool> stop_request{false};  // console's first '0', or the pulling thread's end
  // Pushing thread.
  std::atomic<uint64_t> byte_limit{0};  // 0: none; lowered to the bytes sent on a stop request
  std::atomic<uint64_t> bytes_sent{0};
  std::atomic<uint64_t> chunks_sent{0};
  std::atomic<uint32_t> push_result{kWorkerRunning};
  // Pulling thread.
  std::atomic<uint64_t> bytes_received{0};
  std::atomic<uint64_t> chunks_received{0};
  std::atomic<uint32_t> pull_result{kWorkerRunning};

  // For the results: the first error of either thread, and in mild mode each round trip
  // (written by the pushing thread before the write, read by the pulling thread after the check).
  FirstEchoError first_error;
  std::atomic<int64_t> push_started_us{0};
  std::vector<uint32_t> latency_us;  // pulling thread only
};

// The wait of one transfer: --echo-timeout-limit, or none.
os::Dword EchoTransferTimeout();

// Builds chunk `chunk_id` of `length` bytes in the send buffer and writes it.
bool WriteEchoChunk(EchoClientContext& context, uint32_t length, uint32_t chunk_id, os::Handle event,
                    os::Dword timeout);

// Receives one chunk into the receive buffer and checks it; *received is what came.
bool ReceiveEchoChunk(EchoClientContext& context, ReceiveState& state, os::Handle event, os::Dword timeout,
                      uint32_t* received);

// The worker threads' procedures; the argument is the context.
os::Dword EchoPushingThread(void* context);
os::Dword EchoPullingThread(void* context);

}  // namespace portwren
