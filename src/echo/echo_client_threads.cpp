// The echo client's pushing and pulling threads.
#include <algorithm>
#include <cstdint>

#include "echo/chunk_format.h"
#include "echo/echo_client_context.h"
#include "echo/echo_records.h"
#include "echo/random_echo.h"
#include "format/console_log.h"
#include "platform/os_sync.h"
#include "support/handle_holder.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

constexpr os::Dword kSleepSliceMs = 100;

// Sleeps ms in slices, looking at the stop request after each; true when it was seen.
bool SleepUnlessStopped(const EchoClientContext& context, os::Dword ms) {
  while (ms > 0) {
    const os::Dword slice = std::min(ms, kSleepSliceMs);
    os::Sleep(slice);
    ms -= slice;
    if (context.stop_request.load()) return true;
  }
  return false;
}

class Pusher {
 public:
  explicit Pusher(EchoClientContext& context) : context_(context) {}

  uint32_t Run() {
    const bool out_log_open = context_.logs.out != nullptr && context_.logs.out->IsOpen();
    SeedEchoRandom(g_echo_srand);
    const EventHolder event(os::CreateEventA(false, false));
    next_time_ = os::GetTickCount();
    uint32_t chunk_id = 0;
    uint32_t previous_draw = 0;
    for (;;) {
      if (context_.stop_request.load()) Quit("Pushing thread gets quitting request from user.");
      const uint32_t length = NextEchoChunkLength(context_.min_chunk, context_.max_chunk, previous_draw);
      if (!quitting_) Pace();
      if (!context_.mild) WaitForRoom(length);
      const uint64_t sent_before = context_.bytes_sent.load();
      if (context_.mild) context_.push_started_us.store(LatencyClockUs());
      const bool written = WriteEchoChunk(context_, length, chunk_id, event.get(), EchoTransferTimeout());
      if (out_log_open) {
        LogOutRecord(context_.logs.out, context_.chunks_sent.load(), sent_before, context_.send_buffer.get(),
                     static_cast<int32_t>(length), written);
      }
      if (!written) return kWorkerFailed;
      context_.chunks_sent.fetch_add(1);
      const uint64_t sent = context_.bytes_sent.fetch_add(length) + length;
      const uint64_t limit = context_.byte_limit.load();
      if (limit != 0 && sent >= limit) {
        LogStamp("All echo bytes sent. Total sent: chunks: %llu, bytes: %llu",
                 static_cast<unsigned long long>(context_.chunks_sent.load()),
                 static_cast<unsigned long long>(sent));
        return kWorkerEndedWell;
      }
      if (quitting_) {
        if (out_log_open) context_.logs.out->Flush();
        return kWorkerEndedWell;
      }
      if (context_.mild) {
        const os::Handle wake[2] = {context_.lock_step.get(), context_.push_quit.get()};
        os::WaitForMultipleObjects(2, wake, false, os::kInfinite);
      }
      ++chunk_id;
    }
  }

 private:
  // What has been sent becomes the limit: the pulling thread then collects those echoes and ends.
  void Quit(const char* line) {
    LogStamp("%s", line);
    context_.byte_limit.store(context_.bytes_sent.load());
    quitting_ = true;
  }

  // Urge mode keeps at most echo-rwbufx x max chunk bytes on the line unanswered, as a driver's
  // queues would: a far end that stops reading while its echo is stuck (socat forwards both ways
  // from one thread with blocking writes) must not wedge the run.
  void WaitForRoom(uint32_t length) {
    const uint64_t cap =
        std::max<uint64_t>(static_cast<uint64_t>(g_echo_rwbufx) * context_.max_chunk, length);
    const os::Handle wake[2] = {context_.lock_step.get(), context_.push_quit.get()};
    while (context_.bytes_sent.load() + length - context_.bytes_received.load() > cap) {
      if (os::WaitForMultipleObjects(2, wake, false, kSleepSliceMs) == os::kWaitObject0 + 1) return;
      if (context_.stop_request.load()) return;
    }
  }

  void Pace() {
    const int32_t delay = g_echocli_write_delaymsec;
    const int32_t ahead = static_cast<int32_t>(next_time_ - os::GetTickCount());
    if (ahead > 0) {
      if (SleepUnlessStopped(context_, static_cast<os::Dword>(ahead))) {
        Quit("Pushing thread sees quitting request from user.");
      }
      next_time_ += static_cast<os::Dword>(delay);
    } else {
      next_time_ = os::GetTickCount() + static_cast<os::Dword>(delay);
    }
  }

  EchoClientContext& context_;
  os::Dword next_time_ = 0;
  bool quitting_ = false;
};

// The pause after a good chunk: --echocli-read-delaymsec, or with "r" a random 1..that many ms.
// True when a stop request cut it short.
bool ReadDelayStopped(const EchoClientContext& context) {
  const int32_t setting = g_echocli_read_delaymsec;
  if (setting <= 0) return false;
  os::Dword ms = static_cast<os::Dword>(setting);
  if (g_echocli_read_delay_random) ms = NextEchoRandom() % ms + 1;
  return SleepUnlessStopped(context, ms);
}

uint32_t Pull(EchoClientContext& context) {
  const bool in_log_open = context.logs.in != nullptr && context.logs.in->IsOpen();
  const EventHolder event(os::CreateEventA(false, false));
  ReceiveState state;
  state.buffer = context.receive_buffer.get();
  state.capacity = context.buffer_size;
  for (uint32_t chunk_id = 0;; ++chunk_id) {
    state.chunk_id = chunk_id;
    state.stream_offset = context.bytes_received.load();
    uint32_t received = 0;
    const bool good = ReceiveEchoChunk(context, state, event.get(), EchoTransferTimeout(), &received);
    if (in_log_open) {
      LogInRecord(context.logs.in, context.chunks_received.load(), state.stream_offset, state.buffer,
                  static_cast<int32_t>(received));
    }
    if (!good) return kWorkerFailed;
    if (context.mild) {
      const int64_t trip = LatencyClockUs() - context.push_started_us.load();
      context.latency_us.push_back(static_cast<uint32_t>(std::clamp<int64_t>(trip, 0, UINT32_MAX)));
    }
    const uint64_t chunks = context.chunks_received.fetch_add(1) + 1;
    const uint64_t bytes = context.bytes_received.fetch_add(received) + received;
    const uint64_t limit = context.byte_limit.load();
    if (limit != 0 && bytes >= limit) {
      LogStamp("All echo bytes received. Total chunks: %llu, recv: %llu",
               static_cast<unsigned long long>(chunks), static_cast<unsigned long long>(bytes));
      return kWorkerEndedWell;
    }
    os::SetEvent(context.lock_step.get());
    if (ReadDelayStopped(context)) {
      LogStamp("Pulling thread sees quitting request from user.");
      return kWorkerEndedWell;
    }
  }
}

}  // namespace

os::Dword EchoPushingThread(void* raw) {
  auto& context = *static_cast<EchoClientContext*>(raw);
  RegisterThread(ThreadRole::kEchoPush);
  context.push_result.store(Pusher(context).Run());
  LogStamp("Pushing thread has quitted.");
  UnregisterThread(ThreadRole::kEchoPush);
  return 0;
}

os::Dword EchoPullingThread(void* raw) {
  auto& context = *static_cast<EchoClientContext*>(raw);
  RegisterThread(ThreadRole::kEchoPull);
  context.pull_result.store(Pull(context));
  // Whatever ended it, the pushing thread stops too.
  context.stop_request.store(true);
  os::SetEvent(context.push_quit.get());
  LogStamp("Pulling thread has quitted.");
  UnregisterThread(ThreadRole::kEchoPull);
  return 0;
}

}  // namespace portwren
