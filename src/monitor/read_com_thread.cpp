#include "monitor/read_com_thread.h"

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "format/console_log.h"
#include "platform/os_file.h"
#include "platform/os_sync.h"
#include "support/handle_holder.h"
#include "support/thread_start.h"

namespace portwren {

namespace {

struct ReadComContext {
  os::Handle port = os::kInvalidHandle;
  std::atomic<uint8_t> quit{0};  // written by the console thread, looked at before each read
  HandleHolder thread;
  EventHolder quit_event;  // interrupts the pending read; manual-reset, so it also stops any later wait
  uint32_t read_size = 100;
  std::unique_ptr<uint8_t[]> buffer;
};

// The one reader; only the console thread starts and stops it.
ReadComContext* g_reader = nullptr;

enum class ReadResult { kGot, kError, kQuit };

ReadResult ReadOnce(ReadComContext& reader, os::Overlapped& overlapped, os::Dword* count) {
  *count = 0;
  if (reader.quit.load() != 0) return ReadResult::kQuit;
  if (os::ReadFile(reader.port, reader.buffer.get(), reader.read_size, count, &overlapped))
    return ReadResult::kGot;
  if (os::GetLastError() != os::kErrIoPending) {
    WinErrTick(0, "ReadComThread: ReadFile() sync fail.");
    return ReadResult::kError;
  }
  const os::Handle waits[2] = {overlapped.hEvent, reader.quit_event.get()};
  const os::Dword woke = os::WaitForMultipleObjects(2, waits, false, os::kInfinite);
  if (woke == os::kWaitObject0) {
    if (os::GetOverlappedResult(reader.port, &overlapped, count, true)) return ReadResult::kGot;
    WinErrTick(0, "ReadComThread: ReadFile() async fail.");
    return ReadResult::kError;
  }
  if (woke == os::kWaitObject0 + 1) {
    WinErrTick(os::CancelIo(reader.port), "ReadComThread: CancelIO() got fail.");
    if (os::GetOverlappedResult(reader.port, &overlapped, count, true)) return ReadResult::kGot;
    WinErrTick(0, "ReadComThread: ReadFile() async fail after CancelIO.");
    return ReadResult::kError;
  }
  WinErrTick(0, "ReadComThread: WaitForMultipleObjects() fail.");
  // The read must not outlive its buffer and Overlapped.
  os::CancelIo(reader.port);
  os::GetOverlappedResult(reader.port, &overlapped, count, true);
  return ReadResult::kError;
}

os::Dword ReadComThreadProc(void* argument) {
  auto& reader = *static_cast<ReadComContext*>(argument);
  RegisterThread(ThreadRole::kReader);
  EventHolder read_event(os::CreateEventA(true, false));
  os::Overlapped overlapped;  // zeroed once: the offset stays 0
  overlapped.hEvent = read_event.get();
  for (;;) {
    os::Dword count = 0;
    const ReadResult result = ReadOnce(reader, overlapped, &count);
    if (result == ReadResult::kGot) {
      LogTickNow("ReadComThread: Got %d bytes.", count);
      continue;
    }
    LogTickNow(result == ReadResult::kError ? "ReadComThread: Got error."
                                            : "ReadComThread: Got quit signal.");
    break;
  }
  UnregisterThread(ThreadRole::kReader);
  return 0;
}

}  // namespace

bool StartReadComThread(os::Handle port, uint32_t read_size) {
  if (g_reader != nullptr) return false;
  std::unique_ptr<ReadComContext> reader(new (std::nothrow) ReadComContext);
  if (reader == nullptr) return false;
  reader->port = port;
  reader->read_size = read_size;
  reader->buffer.reset(new (std::nothrow) uint8_t[read_size > 0 ? read_size : 1]());
  reader->quit_event.reset(os::CreateEventA(true, false));
  if (reader->buffer == nullptr || !reader->quit_event) return false;
  reader->thread.reset(StartThread(&ReadComThreadProc, reader.get(), 0, nullptr));
  if (!reader->thread) return false;
  g_reader = reader.release();
  return true;
}

bool StopReadComThread() {
  if (g_reader == nullptr) return false;
  std::unique_ptr<ReadComContext> reader(std::exchange(g_reader, nullptr));
  reader->quit.store(1);
  os::SetEvent(reader->quit_event.get());
  os::WaitForSingleObject(reader->thread.get(), os::kInfinite);
  return true;  // the holders close the thread and the event
}

}  // namespace portwren
