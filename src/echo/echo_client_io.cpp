// The echo client's transfers: every request has the thread's own event and also wakes on the
// thread's quit event; a transfer that times out or is told to quit is cancelled and collected,
// so nothing writes into a buffer after its request has been given up.
#include <algorithm>

#include "echo/chunk_check.h"
#include "echo/chunk_format.h"
#include "echo/echo_client_context.h"
#include "format/console_log.h"
#include "platform/os_file.h"
#include "platform/os_sync.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

constexpr os::Dword kLeastCancelGraceMs = 2000;

struct CancelTexts {
  const char* giving_up;  // %d: the grace waited
  const char* cancelled;  // %s: "success" or "fail"
};
constexpr CancelTexts kPushCancel{"Pushing op does not complete for more than %dms, CancelIo() it...",
                                  "Pushing op CancelIo() done. (Cancel result: %s)"};
constexpr CancelTexts kPullCancel{
    "Pulling op waited for %dms but cannot receive full echoed data. CancelIo() it...",
    "Pulling op CancelIo() done. (Cancel result: %s)"};

struct Collected {
  bool ok = false;
  os::Dword done = 0;   // what the request moved, also when it failed
  os::Dword error = 0;  // its error, 0 when it succeeded
};

// Gives a request a last grace of max(timeout, 2 s), then cancels it and takes its outcome.
// An abort counts as success only when the caller stopped on purpose.
Collected CancelAndCollect(os::Handle port, os::Overlapped* overlapped, os::Handle event, os::Dword timeout,
                           bool aborted_is_success, const CancelTexts& texts) {
  const os::Dword grace =
      timeout == os::kInfinite ? kLeastCancelGraceMs : std::max(timeout, kLeastCancelGraceMs);
  if (os::WaitForSingleObject(event, grace) != os::kWaitObject0) {
    LogStamp(texts.giving_up, static_cast<int32_t>(grace));
    const bool cancelled = os::CancelIo(port);
    LogStamp(texts.cancelled, cancelled ? "success" : "fail");
  }
  Collected collected;
  if (os::GetOverlappedResult(port, overlapped, &collected.done, true)) {
    collected.ok = true;
    return collected;
  }
  collected.error = os::GetLastError();
  collected.ok = aborted_is_success && collected.error == os::kErrOperationAborted;
  return collected;
}

// Waits for the request's event or the quit event; the request's own event wins a tie.
enum class Woken { kDone, kQuit, kTimeout };
Woken WaitTransfer(os::Handle event, os::Handle quit, os::Dword timeout) {
  const os::Handle handles[2] = {event, quit};
  const os::Dword waited = os::WaitForMultipleObjects(2, handles, false, timeout);
  if (waited == os::kWaitObject0) return Woken::kDone;
  if (waited == os::kWaitObject0 + 1) return Woken::kQuit;
  return Woken::kTimeout;
}

// One overlapped read of count bytes at the fill position; what came is added to the fill and
// to *got. 0, or the error that ended it.
os::Dword ReadPiece(EchoClientContext& context, ReceiveState& state, uint32_t count, os::Handle event,
                    os::Dword timeout, uint32_t* got) {
  *got = 0;
  if (count == 0) return 0;
  os::Overlapped overlapped;
  overlapped.hEvent = event;
  os::Dword done = 0;
  const auto take = [&](os::Dword bytes) {
    state.fill += bytes;
    *got = bytes;
  };
  if (os::ReadFile(context.port, state.buffer + state.fill, count, &done, &overlapped)) {
    take(done);
    return 0;
  }
  os::Dword error = os::GetLastError();
  if (error != os::kErrIoPending) {
    LogStamp("Error ReadFile(). WinErr=%d(%s)", static_cast<int32_t>(error), WinErrName(error));
    return error;
  }
  switch (WaitTransfer(event, context.pull_quit.get(), timeout)) {
    case Woken::kDone:
      if (os::GetOverlappedResult(context.port, &overlapped, &done, true)) {
        take(done);
        return 0;
      }
      error = os::GetLastError();
      take(done);
      LogStamp("Error async ReadFile(). WinErr=%d(%s)", static_cast<int32_t>(error), WinErrName(error));
      return error;
    case Woken::kQuit: {
      const Collected collected =
          CancelAndCollect(context.port, &overlapped, event, timeout, true, kPullCancel);
      take(collected.done);
      if (!collected.ok) return collected.error;
      return collected.done == count ? 0 : os::kErrTimeout;
    }
    case Woken::kTimeout:
      break;
  }
  LogStamp("Pulling thread timeout(%d millisec)!", static_cast<int32_t>(timeout));
  const Collected collected = CancelAndCollect(context.port, &overlapped, event, timeout, false, kPullCancel);
  take(collected.done);  // what came before the cancel is kept and shown
  return os::kErrTimeout;
}

// Reads count bytes in pieces of at most --echocli-read-nibble. 0 once all came, else the error
// of the piece that stopped short.
os::Dword ReadExactly(EchoClientContext& context, ReceiveState& state, uint32_t count, os::Handle event,
                      os::Dword timeout) {
  const uint32_t nibble = static_cast<uint32_t>(std::max(g_echocli_read_nibble, 1));
  uint32_t total = 0;
  while (total < count) {
    uint32_t got = 0;
    const os::Dword error = ReadPiece(context, state, std::min(count - total, nibble), event, timeout, &got);
    if (got == 0) {
      LogStamp("Error: ReadFile_wqe_partial() reports nRed=0. WinErr=%d(%s)", static_cast<int32_t>(error),
               WinErrName(error));
      return error != 0 ? error : os::kErrTimeout;  // an empty read that claims success still fell short
    }
    total += got;
    if (total == count) return 0;
    if (error != 0) return error;
  }
  return 0;
}

}  // namespace

os::Dword EchoTransferTimeout() {
  return g_echo_timeout_limit > 0 ? static_cast<os::Dword>(g_echo_timeout_limit) : os::kInfinite;
}

bool WriteEchoChunk(EchoClientContext& context, uint32_t length, uint32_t chunk_id, os::Handle event,
                    os::Dword timeout) {
  uint8_t* buffer = context.send_buffer.get();
  BuildEchoChunk(buffer, length, chunk_id, context.sequence_mode);
  os::Overlapped overlapped;
  overlapped.hEvent = event;
  os::Dword done = 0;
  if (os::WriteFile(context.port, buffer, length, &done, &overlapped)) return true;
  os::Dword error = os::GetLastError();
  if (error != os::kErrIoPending) {
    context.first_error.Note("write_call", chunk_id, 0, error);
    ReportPushingError(context.logs, "@Chunk %u: Error WriteFile(). WinErr=%d(%s)", chunk_id,
                       static_cast<int32_t>(error), WinErrName(error));
    return false;
  }
  switch (WaitTransfer(event, context.push_quit.get(), timeout)) {
    case Woken::kDone:
      if (os::GetOverlappedResult(context.port, &overlapped, &done, true)) return true;
      error = os::GetLastError();
      context.first_error.Note("write_result", chunk_id, 0, error);
      ReportPushingError(context.logs, "@Chunk %u: Error async WriteFile(). WinErr=%d(%s)", chunk_id,
                         static_cast<int32_t>(error), WinErrName(error));
      return false;
    case Woken::kQuit:
      return CancelAndCollect(context.port, &overlapped, event, timeout, true, kPushCancel).ok;
    case Woken::kTimeout:
      break;
  }
  context.first_error.Note("write_timeout", chunk_id, length, 0);
  ReportPushingError(context.logs, "@Chunk %u: Pushing thread timeout(%d millisec)! ", chunk_id,
                     static_cast<int32_t>(timeout));
  CancelAndCollect(context.port, &overlapped, event, timeout, false, kPushCancel);
  return false;
}

bool ReceiveEchoChunk(EchoClientContext& context, ReceiveState& state, os::Handle event, os::Dword timeout,
                      uint32_t* received) {
  state.fill = 0;
  state.requested = kEchoHeadSize;
  bool bad = false;
  bool head_whole = true;
  if (ReadExactly(context, state, kEchoHeadSize, event, timeout) != 0) {
    context.first_error.Note("short_head", state.chunk_id, kEchoHeadSize, state.fill);
    ReportPullingError(context.logs, state, "DataError: Received less bytes(%d) than Echo headsize(%d).",
                       static_cast<int32_t>(state.fill), static_cast<int32_t>(kEchoHeadSize));
    bad = true;
    head_whole = false;
  }
  ChunkHead head;
  if (head_whole) {
    head = ReadChunkHead(state.buffer);
    const uint32_t faults = CheckChunkHead(head, state.chunk_id, context.max_chunk);
    if (faults & kChunkWrongId) {
      context.first_error.Note("wrong_chunk_id", state.chunk_id, state.chunk_id, head.chunk_id);
      ReportPullingError(context.logs, state, "DataError: Received wrong chunk-id. Recv:%u, Expect:%u",
                         head.chunk_id, state.chunk_id);
    }
    if (faults & kChunkTooLong) {
      context.first_error.Note("chunk_too_long", state.chunk_id, context.max_chunk - kEchoHeadSize,
                               head.body_length);
      ReportPullingError(context.logs, state, "DataError: Received chunk length(%d) exceeds max(%d).",
                         static_cast<int32_t>(head.body_length),
                         static_cast<int32_t>(context.max_chunk - kEchoHeadSize));
    }
    bad = faults != 0;
  }
  // A bad chunk drains what fits, so that the dump shows what came.
  const uint32_t count = ChunkBodyReadCount(head, bad, context.buffer_size - state.fill);
  state.requested = kEchoHeadSize + count;
  if (count == 0) {
    *received = state.fill;
    return head_whole;  // only a 12-byte maximum gets here with a bad head; that passes, as designed
  }
  const uint32_t head_bytes = state.fill;
  if (ReadExactly(context, state, count, event, timeout) != 0 && !bad) {
    context.first_error.Note("short_body", state.chunk_id, count, state.fill - head_bytes);
    ReportPullingError(context.logs, state, "DataError: Received less chunk body(%d) than expected(%d).",
                       static_cast<int32_t>(state.fill - head_bytes), static_cast<int32_t>(count));
    bad = true;
  }
  *received = state.fill;
  if (bad) return false;
  uint32_t computed = 0;
  if (!CheckChunkBody(head, state.buffer + kEchoHeadSize, &computed)) {
    context.first_error.Note("wrong_crc", state.chunk_id, computed, head.body_crc);
    ReportPullingError(context.logs, state, "Error: Received wrong CRC. Recv:0x%08X, Expect:0x%08X",
                       head.body_crc, computed);
    return false;
  }
  return true;
}

}  // namespace portwren
