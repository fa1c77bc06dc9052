// A terminal (a serial port, a pseudo-terminal) behaving as a Windows serial port.
//
// Reads, writes and the comm-event wait are requests in three independent queues: reads
// FIFO, one current read whose timers start when it becomes current; writes FIFO the same
// way; at most one event wait. Whoever changes the state (the issuing call, a cancel, the
// service thread) advances the queues under mu_ with non-blocking system calls only, so a
// request that completes at once does so inside the call that issued it. The service thread
// sleeps in poll() on the terminal and a wake-up eventfd, and runs the timers, the data that
// arrives or drains, and the sampling of modem lines, error counters and the input queue that
// comm events need. No call ever blocks in the terminal, so a write that cannot finish never
// holds up a read and the reverse.
//
// README.md in this folder follows one read from ReadFile to its end, gives the lock order
// (mu_ before SyncMutex) and the COMMTIMEOUTS rule behind each Request field. The class is
// spread over serial_device.cpp (open, close, service thread), serial_device_requests.cpp,
// serial_device_settings.cpp and serial_device_events.cpp; serial_posix.cpp calls it.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/os_serial.h"
#include "platform/posix/io_object.h"
#include "platform/posix/modem_wait_posix.h"

namespace portwren::os::posix {

class SerialDevice final : public IoObject {
 public:
  using Clock = std::chrono::steady_clock;
  // How often modem lines, error counters and the input queue are looked at while comm
  // events need them, and how often an output that is still draining is.
  static constexpr auto kSamplePeriod = std::chrono::milliseconds(10);
  static constexpr auto kDrainPeriod = std::chrono::milliseconds(5);
  // Linux starts a break only once the terminal's output has drained; what cannot drain in this
  // long (output held back by flow control) fails the break instead of holding the caller.
  static constexpr auto kBreakDrainLimit = std::chrono::seconds(2);

  // fd: an open, locked, non-blocking terminal; owned from here on, also on failure.
  // nullptr + *error when it cannot be set up.
  static std::shared_ptr<SerialDevice> Open(int fd, bool overlapped, bool can_read, bool can_write,
                                            Dword* error);

  SerialDevice(int fd, bool overlapped, bool can_read, bool can_write);
  ~SerialDevice() override;
  void OnClose() override;

  bool Read(void* buffer, Dword size, Dword* done, const CompletionTarget& target) override;
  bool Write(const void* buffer, Dword size, Dword* done, const CompletionTarget& target) override;
  bool CancelThreadRequests(Dword thread_id) override;
  bool CancelRequest(const Overlapped* overlapped) override;
  bool WaitEvent(Dword* event_mask, const CompletionTarget& target);

  bool GetState(Dcb* dcb);
  bool SetState(const Dcb& dcb);
  bool GetTimeouts(CommTimeouts* timeouts);
  bool SetTimeouts(const CommTimeouts& timeouts);
  bool Setup(Dword in_queue, Dword out_queue);
  bool Purge(Dword flags);
  bool ClearError(Dword* errors, ComStat* stat);
  bool GetModemStatus(Dword* modem_status);
  bool SetMask(Dword event_mask);
  bool GetMask(Dword* event_mask);
  bool Escape(Dword function);  // EscapeCommFunction
  // False for a pseudo-terminal: its baud rate is a number it keeps, not a speed.
  bool BaudRateIsReal() const { return real_line_; }

 private:
  enum class Kind { kRead, kWrite, kWait };

  // Filled in by a completion that happens inside the issuing call.
  struct InCallResult {
    bool completed = false;
    uintptr_t status = 0;
    Dword count = 0;
  };

  struct Request {
    Kind kind = Kind::kRead;
    CompletionTarget target;
    Dword issuer = 0;
    uint8_t* read_buffer = nullptr;
    const uint8_t* write_buffer = nullptr;
    Dword length = 0;
    Dword done = 0;
    Dword* event_mask = nullptr;
    InCallResult* in_call = nullptr;
    // Set from the timeouts when the request becomes current (I/M/C: interval, multiplier,
    // constant of the read timeouts).
    bool started = false;
    bool return_if_any = false;  // I = MAXDWORD, M or C set: complete at once if anything is there...
    bool shrink = false;         // ...and with I = M = MAXDWORD, 0 < C: else wait for one byte only
    bool immediate = false;      // I = MAXDWORD, M = C = 0: complete at once whatever is there
    Dword need = 0;              // bytes that complete it: all asked for, 1 once shrunk
    Dword interval_ms = 0;       // 0 < I < MAXDWORD: armed by the first byte, restarted by each
    std::optional<Clock::time_point> total_deadline;  // M * length + C from the start (C if shrunk)
    std::optional<Clock::time_point> interval_deadline;
  };
  using RequestPtr = std::unique_ptr<Request>;

  // mu_ for a call: the wake-ups it makes (of threads whose requests ended, of the service
  // thread) happen once mu_ is let go, so that the woken do not run at once into it.
  class DeviceLock {
   public:
    explicit DeviceLock(SerialDevice& device) : device_(device), lock_(device.mu_) {}
    ~DeviceLock();
    DeviceLock(const DeviceLock&) = delete;
    DeviceLock& operator=(const DeviceLock&) = delete;

   private:
    SerialDevice& device_;
    WakeBatch batch_;  // made before the lock, ends after it
    std::unique_lock<std::mutex> lock_;
  };

  bool Init(Dword* error);  // raw mode, capabilities, service thread
  bool SetModemLine(int line, bool on);
  bool SetBreak(bool on);
  bool Start(RequestPtr request, Dword size, Dword* done, const CompletionTarget& target,
             std::deque<RequestPtr>* queue);
  bool Issue(RequestPtr request, std::deque<RequestPtr>* queue, Dword* done);
  // False (last error set) while the device cannot be used: 6 once the handle is closing,
  // 1167 once the device went away (found out here if nothing has noticed yet).
  bool Usable();
  void NoticeHangUp(Clock::time_point now);

  void Pump(Clock::time_point now);
  void PumpReads(Clock::time_point now);
  void PumpWrites(Clock::time_point now);
  void StartReadTiming(Request& request, Clock::time_point now);
  void StartWriteTiming(Request& request, Clock::time_point now);
  Dword FillRead(Request& request, Clock::time_point now);  // 0 or the device's failure
  Dword FillWrite(Request& request);
  Dword IoFailure(int error_number);
  void CheckTxEmpty();
  void Complete(RequestPtr request, uintptr_t status);
  void CompleteFront(std::deque<RequestPtr>* queue, uintptr_t status);
  void CompleteAll(std::deque<RequestPtr>* queue, uintptr_t status);
  void CompleteWait(Dword events, uintptr_t status);
  void CancelMatching(std::deque<RequestPtr>* queue, Dword thread_id);
  void MarkGone(Dword error);

  void RaiseEvents(Dword events);
  void SampleLines(Clock::time_point now, bool force);
  bool ReadModemCounts(ModemCounts* counts);
  void WatchModemLines();  // baseline of the lines, and the thread that waits for them to move
  void SampleInput();
  void SampleErrors();
  Dword RxThreshold() const;
  int InputQueueBytes();
  int OutputQueueBytes();
  bool HungUp();
  bool StillReady(short events);

  void ServiceLoop();
  short WantedPollEvents(Clock::time_point now) const;
  std::optional<Clock::time_point> NextDeadline(Clock::time_point now) const;
  int PollTimeout(Clock::time_point now) const;
  void Wake();  // under mu_: the service thread is woken when the DeviceLock ends
  void WriteWake();
  // Wakes the service thread only if its poll no longer fits the state: it waits for fewer
  // events than are now wanted, or past a deadline that is now nearer.
  void WakeIfStale(Clock::time_point now);

  std::mutex mu_;
  int fd_;
  int wake_fd_ = -1;  // set by Init, closed by the destructor: usable without mu_
  bool wake_due_ = false;
  std::thread service_;
  bool closing_ = false;
  bool gone_ = false;
  Dword gone_error_ = 0;

  std::deque<RequestPtr> reads_;
  std::deque<RequestPtr> writes_;
  RequestPtr wait_;

  CommTimeouts timeouts_;
  Dcb shadow_;  // the last Dcb set, for the fields termios has no place for
  // Framing and speed as the terminal showed them right after the last SetCommState. A pty
  // keeps neither data bits nor parity; as long as the terminal still shows the same, the
  // port reports what was set, as a virtual port driver does.
  bool framing_known_ = false;
  uint32_t framing_cflag_ = 0;
  uint32_t framing_speed_ = 0;
  Dword in_queue_size_ = 4096;
  Dword out_queue_size_ = 0;

  Dword event_mask_ = 0;
  Dword history_ = 0;
  Dword errors_ = 0;
  bool abort_latched_ = false;  // fAbortOnError after an error, until ClearCommError

  bool real_line_ = false;  // not a pseudo-terminal; set once by Init
  bool modem_ok_ = false;   // TIOCMGET works (not on a pty)
  bool icount_ok_ = false;  // TIOCGICOUNT works
  int modem_lines_ = 0;
  ModemCounts modem_counts_;
  // Made once the mask first wants modem events; stopped on close, outside mu_.
  std::unique_ptr<ModemLineWaiter> modem_waiter_;
  struct Counters {
    int frame = 0, overrun = 0, parity = 0, brk = 0, buf_overrun = 0;
  } counters_;
  int rx_seen_ = 0;  // input queue size at the last look
  bool rx80_raised_ = false;
  bool tx_since_empty_ = false;  // bytes written since the output last ran empty
  bool tx_draining_ = false;     // all written, the terminal still sending
  Clock::time_point next_sample_{};
  // poll() can say "ready" when a call still finds nothing to do (a terminal stopped by XOFF
  // reports room to write): after such a wake-up that direction is looked at by the clock
  // for a while instead, so the service thread never spins.
  bool rx_progress_ = false;
  bool tx_progress_ = false;
  Clock::time_point rx_backoff_until_{};
  Clock::time_point tx_backoff_until_{};
  // What the service thread's poll was set up with; looked at only while polling_.
  bool polling_ = false;
  short polled_events_ = 0;
  std::optional<Clock::time_point> polled_until_;
};

}  // namespace portwren::os::posix
