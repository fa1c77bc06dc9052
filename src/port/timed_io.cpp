#include "port/timed_io.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "echo/echo_records.h"
#include "format/console_log.h"
#include "platform/os_console.h"
#include "platform/os_file.h"
#include "platform/os_sync.h"
#include "port/transfer_buffer.h"
#include "support/handle_holder.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

std::atomic<LogFileWriter*> g_read_log{nullptr};

// The manual-reset event of one request, closed on every way out. A failed creation is not
// checked: the request then runs with no event and the waits on it fail.
EventHolder NewRequestEvent() {
  return EventHolder(os::CreateEventA(true, false));
}

// A read that the omit switches leave running writes its outcome into its Overlapped whenever
// the driver completes it, long after TimedRead has returned; so that Overlapped lives on for
// the rest of the run. Never freed on purpose (the driver may still write at exit).
void KeepOutstanding(std::unique_ptr<os::Overlapped> overlapped) {
  static auto* outstanding = new std::vector<std::unique_ptr<os::Overlapped>>();
  outstanding->push_back(std::move(overlapped));
}

bool RefuseCount(const char* what, int32_t count) {
  if (FitsTransferBuffer(count)) return false;
  LogTickNow("%s of %d bytes refused: the transfer buffer takes 0 to %d.", what, count,
             kTransferBufferBytes - 1);
  return true;
}

void ReportWait(os::Dword waited, const char* timeout_text) {
  if (waited == os::kWaitObject0) {
    LogTickNow("Wait success.");
  } else if (waited == os::kWaitTimeout) {
    LogTickNow("%s", timeout_text);
  } else {
    LogTickNow("Abnormal WaitForSingleObject() retval=%d", static_cast<int32_t>(waited));
  }
}

void CancelAfterPause(os::Handle port) {
  if (g_pause_msec_bfr_cancelio > 0) {
    LogTickNow("Pause %d msec before CancelIo()...", g_pause_msec_bfr_cancelio);
    os::Sleep(static_cast<os::Dword>(g_pause_msec_bfr_cancelio));
  }
  LogTickNow("Calling CancelIo().");
  const bool cancelled = os::CancelIo(port);
  LogTickNow("CancelIo() returns %s.", cancelled ? "TRUE" : "FALSE");
}

// Counter words, least significant byte first; an odd last byte is left as it was.
void FillCounterWords(uint8_t* buffer, int32_t count) {
  uint16_t& counter = Transfer().fill_counter;
  for (int32_t i = 0; i + 1 < count; i += 2) {
    buffer[i] = static_cast<uint8_t>(counter & 0xFF);
    buffer[i + 1] = static_cast<uint8_t>(counter >> 8);
    ++counter;
  }
}

void ShowReadData(uint8_t* buffer, int32_t done) {
  LogFileWriter* log = g_read_log.load();
  TransferCounters& counters = Transfer();
  if (g_read_log_path[0] != '\0' && log != nullptr) {
    LogReadRecord(log, counters.read_number, counters.stream_offset, buffer, done);
    log->Flush();  // every read on disk at once
  }
  if (g_silent_read) {
    std::printf("(silent read, no print)\n");
  } else {
    buffer[done] = 0;  // shown as text, up to its first NUL
    std::printf("%s\n", reinterpret_cast<const char*>(buffer));
  }
  counters.stream_offset += static_cast<uint64_t>(done);
  counters.read_number += 1;
}

// A request whose wait gave up without a timeout: cancelled and collected, so that nothing
// writes into the caller's Overlapped after the return.
void Abandon(os::Handle port, os::Overlapped* overlapped) {
  os::Dword done = 0;
  os::CancelIo(port);
  os::GetOverlappedResult(port, overlapped, &done, true);
}

}  // namespace

void SetReadLog(LogFileWriter* writer) {
  g_read_log.store(writer);
}

int32_t AskCount(bool for_read) {
  int32_t& remembered = for_read ? g_custom_read_bytes : g_custom_write_bytes;
  std::printf("Bytes to %s(%d): ", for_read ? "read" : "write", remembered);
  std::fflush(stdout);
  char line[100];
  if (!os::ReadLine(line, sizeof line) || line[0] == '\0' || line[0] == '\r' || line[0] == '\n')
    return remembered;
  // Anything that is no number in range, a minus sign included, reads as too large here.
  const unsigned long long value = std::strtoull(line, nullptr, 0);
  if (value >= static_cast<unsigned long long>(kTransferBufferBytes)) {
    std::printf("Count '%s' refused: the transfer buffer takes at most %d bytes. Keeping %d.\n", line,
                kTransferBufferBytes - 1, remembered);
    return remembered;
  }
  remembered = static_cast<int32_t>(value);
  return remembered;
}

void TimedRead(os::Handle port, int32_t count) {
  if (RefuseCount("ReadFile()", count)) return;
  uint8_t* buffer = TransferBuffer();
  const EventHolder event = NewRequestEvent();
  auto overlapped = std::make_unique<os::Overlapped>();
  overlapped->hEvent = event.get();
  os::Dword done = 0;

  LogTick100("Calling ReadFile() request %d bytes...", count);
  if (os::ReadFile(port, buffer, static_cast<os::Dword>(count), &done, overlapped.get())) {
    LogTickNow("ReadFile sync success. nDone=%d\n", static_cast<int32_t>(done));
  } else if (os::GetLastError() == os::kErrIoPending) {
    LogTickNow("ReadFile pending, wait %d millisec...", g_wait_msec_before_cancel);
    const os::Dword waited =
        os::WaitForSingleObject(event.get(), static_cast<os::Dword>(g_wait_msec_before_cancel));
    ReportWait(waited, "WAIT_TIMEOUT");
    if (waited != os::kWaitObject0) {
      if (g_omit_cancelio) {
        LogTickNow("**NOT** calling CancelIo().");
      } else {
        CancelAfterPause(port);
      }
    }
    if (g_omit_getoverlappedresult) {
      LogTickNow("**NOT** calling GetOverlappedResult().");
      if (waited != os::kWaitObject0) KeepOutstanding(std::move(overlapped));
    } else if (os::GetOverlappedResult(port, overlapped.get(), &done, true)) {
      LogTickNow("Result: ReadFile async SUCCESS. nDone=%d.", static_cast<int32_t>(done));
    } else {
      WinErrTick(0, "Result: ReadFile async fail.");
      if (done != 0) LogTickNow("  -- Even if cancelled, nDone is %d bytes.", static_cast<int32_t>(done));
    }
  } else {
    WinErrTick(0, "Unexpected ReadFile error.");
  }
  if (done > 0) ShowReadData(buffer, static_cast<int32_t>(done));
}

void TimedWrite(os::Handle port, int32_t count) {
  if (RefuseCount("WriteFile()", count)) return;
  uint8_t* buffer = TransferBuffer();
  buffer[count] = 0;
  FillCounterWords(buffer, count);

  LogTick100("Calling WriteFile(), request %d bytes...", count);
  const EventHolder event = NewRequestEvent();
  os::Overlapped overlapped;
  overlapped.hEvent = event.get();
  os::Dword done = 0;
  if (os::WriteFile(port, buffer, static_cast<os::Dword>(count), &done, &overlapped)) {
    std::printf("WriteFile sync success. nDone=%d\n", static_cast<int32_t>(done));
    return;
  }
  if (os::GetLastError() != os::kErrIoPending) {
    WinErrTick(0, "Unexpected WriteFile error.");
    return;
  }
  LogTickNow("WriteFile pending, wait %d millisec...", g_wait_msec_before_cancel);
  const os::Dword waited =
      os::WaitForSingleObject(event.get(), static_cast<os::Dword>(g_wait_msec_before_cancel));
  ReportWait(waited, "WAIT_TIMEOUT.");
  // Unlike the read, the write always cancels after a timeout and always collects.
  if (waited != os::kWaitObject0) CancelAfterPause(port);
  if (os::GetOverlappedResult(port, &overlapped, &done, true)) {
    LogTickNow("Result: WriteFile async SUCCESS. nDone=%d", static_cast<int32_t>(done));
  } else {
    WinErrTick(0, "Result: WriteFile async fail.");
    if (done != 0) {
      buffer[done] = 0;
      LogTickNow("  -- Even if cancelled, nDone is %d bytes.", static_cast<int32_t>(done));
    }
  }
}

namespace {

// A read that waits up to ms (kInfinite: for good) and cancels what is still pending then.
int32_t WaitedRead(os::Handle port, void* buffer, int32_t count, os::Dword ms, const char* failure) {
  if (count < 0) return -1;
  const EventHolder event = NewRequestEvent();
  os::Overlapped overlapped;
  overlapped.hEvent = event.get();
  os::Dword done = 0;
  if (os::ReadFile(port, buffer, static_cast<os::Dword>(count), &done, &overlapped)) {
    return static_cast<int32_t>(done);
  }
  if (os::GetLastError() != os::kErrIoPending) {
    WinErrStamp(0, failure);
    return -1;
  }
  const os::Dword waited = os::WaitForSingleObject(event.get(), ms);
  if (waited == os::kWaitTimeout) {
    os::CancelIo(port);
  } else if (waited != os::kWaitObject0) {
    Abandon(port, &overlapped);
    return -1;
  }
  return os::GetOverlappedResult(port, &overlapped, &done, true) ? static_cast<int32_t>(done) : -1;
}

}  // namespace

int32_t ReadFile_Sync(os::Handle port, void* buffer, int32_t count) {
  return WaitedRead(port, buffer, count, os::kInfinite, "In ReadFile_Sync(), ReadFile error.");
}

int32_t ReadFile_Sync_timeout(os::Handle port, void* buffer, int32_t count, uint32_t ms) {
  return WaitedRead(port, buffer, count, ms, "In ReadFile_Sync_timeout(), ReadFile error.");
}

void ClearDatapipeData(os::Handle port, uint32_t ms) {
  uint8_t scratch[1000];
  int32_t total = 0;
  int32_t got = 0;
  while ((got = ReadFile_Sync_timeout(port, scratch, sizeof scratch, ms)) >= 1) total += got;
  if (total > 0) LogStamp("Datapipe read-buffer bytes cleared: %d", total);
}

}  // namespace portwren
