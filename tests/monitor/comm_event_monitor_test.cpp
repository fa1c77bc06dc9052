// The comm-event monitor on a pseudo-terminal: what its thread prints as events come, the stop
// through SetCommMask(port, 0), the delays, discarding on EV_RXCHAR, and the port or its far end
// going away under a pending wait.
#include "monitor/comm_event_monitor.h"

#include <gtest/gtest.h>

#include <string>

#include "monitor/read_com_thread.h"
#include "monitor_test_support.h"
#include "platform/os_serial.h"
#include "platform/os_sync.h"
#include "support/handle_holder.h"

namespace portwren::monitortest {
namespace {

constexpr char kAllNames[] = "EV_RXCHAR|EV_CTS|EV_DSR|EV_TXEMPTY";

std::string Waiting(const char* mask) {
  return "*[T] ====Starting WaitCommEvent(mask=" + std::string(mask) + ")...\n";
}

// The thread has printed that it starts its count-th wait, and has had time to start it.
bool WaitStarted(OutputTap& tap, const char* mask, int count = 1) {
  if (!tap.WaitFor(Waiting(mask), count)) return false;
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  return true;
}

const std::string kStarting = "*[T] WaitCommEvent thread starting.\n";
const std::string kStopCall = " [T] Main thread calls SetCommMask(h,0); to tell quit WaitCommEvent thread.\n";
const std::string kQuitting =
    "*[T] ====WaitCommEvent() completes, 0 event reported.\n"
    "*[T] ====WaitCommEvent thread receives quit signal. Now quit this thread.\n"
    "*[T] WaitCommEvent thread quitting.\n";
const std::string kConfirmed = " [T] WaitCommEvent thread quitting confirmed.\n";
const std::string kStarted =
    kStarting + "*[T] ====SetCommMask(h, " + kAllNames + ") Success.\n" + Waiting("0x1D");

TEST(EventMaskNamesTest, NamesComeInTheirOwnOrderNotBitOrder) {
  const struct {
    uint32_t mask;
    const char* names;
  } kCases[] = {
      {0, ""},
      {os::kEvTxEmpty, "EV_TXEMPTY"},
      {os::kEvTxEmpty | os::kEvCts, "EV_CTS|EV_TXEMPTY"},
      {0x1D, kAllNames},
      {os::kEvRx80Full | os::kEvRxChar, "EV_RXCHAR|EV_RX80FULL"},
      {os::kEvRxFlag | os::kEvRing, ""},  // not watched, not named
      {os::kEvAllValid, "EV_RXCHAR|EV_CTS|EV_DSR|EV_TXEMPTY|EV_RX80FULL"},
  };
  for (const auto& c : kCases) EXPECT_STREQ(c.names, EventMaskNames(c.mask)) << c.mask;
}

class MonitorTest : public porttest::PortTest {
 protected:
  // Stops the monitor, closing the port should the stop not end by itself.
  bool StopEnds(CommEventMonitor& monitor) {
    return EndsByItself([&] { EXPECT_TRUE(monitor.Stop()); }, [&] { ClosePort(); });
  }
  void ClosePort() {
    os::CloseHandle(port_);
    port_ = os::kInvalidHandle;
  }
};

TEST_F(MonitorTest, StopWithoutStartAndASecondStartAreRefused) {
  CommEventMonitor monitor(port_);
  OutputTap tap;
  EXPECT_FALSE(monitor.Stop());
  ASSERT_TRUE(monitor.Start());
  EXPECT_FALSE(monitor.Start());
  ASSERT_TRUE(WaitStarted(tap, "0x1D"));
  ASSERT_TRUE(StopEnds(monitor));
  const std::string out = tap.Stop();
  EXPECT_EQ(
      "Bad action: WaitCommEvent thread not started yet.\n"
      "Bad action: WaitCommEvent thread already created.\n",
      LinesMarked(out, 'B'));
  EXPECT_FALSE(monitor.started());
}

// With no event at all, the stop's SetCommMask(port, 0) ends the pending wait, after the first
// delay too. Bytes from the far end are reported with the queue counts; discarding empties the
// queue. (The mask without CTS and DSR: e2e/monitor_keys_test.cpp.)
TEST_F(MonitorTest, StopEndsThePendingWaitAndArrivingBytesAreReported) {
  const std::string got_hello = "*[T] ====New events: EV_RXCHAR\n*[T]     cbInQue=5(";
  const struct {
    uint8_t discard;
    uint32_t first_delay_ms;
    const char* arrive;
    std::string reported;
    os::Dword left;
  } kCases[] = {
      {1, 0, "", "", 0},
      {1, 150, "", "", 0},
      {0, 0, "hello", got_hello + "not cleared) , cbOutQue=0\n" + Waiting("0x1D"), 5},
      {1, 0, "hello", got_hello + "cleared now) , cbOutQue=0\n" + Waiting("0x1D"), 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.reported + std::to_string(c.first_delay_ms));
    CommEventMonitor monitor(port_);
    monitor.first_delay_ms = c.first_delay_ms;
    monitor.discard_on_rxchar = c.discard;
    OutputTap tap;
    ASSERT_TRUE(monitor.Start());
    ASSERT_TRUE(WaitStarted(tap, "0x1D"));
    if (*c.arrive != '\0') {
      ASSERT_TRUE(pty_.WriteFar(c.arrive));
      ASSERT_TRUE(WaitStarted(tap, "0x1D", 2));
    }
    EXPECT_EQ(c.left, InQueue());
    ASSERT_TRUE(StopEnds(monitor));
    const std::string delay =
        c.first_delay_ms == 0 ? "" : "*[T] ====Delaying 150ms before first WaitCommEvent.\n";
    EXPECT_EQ(kStarting + delay + kStarted.substr(kStarting.size()) + c.reported + kStopCall + kQuitting +
                  kConfirmed,
              tap.Stop());
    os::PurgeComm(port_, os::kPurgeRxClear);
  }
}

// Events that come while the thread sleeps after a report are reported together next round:
// the byte that arrives and the write of the console thread that has gone out.
TEST_F(MonitorTest, TheResumeDelayGathersEventsIntoOneReport) {
  CommEventMonitor monitor(port_);
  monitor.discard_on_rxchar = 0;
  monitor.resume_delay_ms = 1500;
  OutputTap tap;
  ASSERT_TRUE(monitor.Start());
  ASSERT_TRUE(WaitStarted(tap, "0x1D"));
  ASSERT_TRUE(pty_.WriteFar("a"));
  ASSERT_TRUE(tap.WaitFor("*[T] Will resume WaitCommMask in 1500ms\n"));
  ASSERT_TRUE(pty_.WriteFar("b"));
  os::Dword written = 0;
  os::Overlapped overlapped;
  EventHolder event(os::CreateEventA(true, false));
  overlapped.hEvent = event.get();
  if (!os::WriteFile(port_, "xyz", 3, &written, &overlapped)) {
    ASSERT_EQ(os::kErrIoPending, os::GetLastError());
    ASSERT_TRUE(os::GetOverlappedResult(port_, &overlapped, &written, true));
  }
  ASSERT_TRUE(tap.WaitFor("*[T] Will resume WaitCommMask in 1500ms\n", 2));
  ASSERT_TRUE(StopEnds(monitor));
  const auto round = [](int queued) {
    return "*[T]     cbInQue=" + std::to_string(queued) +
           "(not cleared) , cbOutQue=0\n"
           "*[T] Will resume WaitCommMask in 1500ms\n";
  };
  EXPECT_EQ(kStarted + "*[T] ====New events: EV_RXCHAR\n" + round(1) + Waiting("0x1D") +
                "*[T] ====New events: EV_RXCHAR|EV_TXEMPTY\n" + round(2) + kStopCall +
                "*[T] ====WaitCommEvent thread receives quit signal. Now quit this thread.\n"
                "*[T] WaitCommEvent thread quitting.\n" +
                kConfirmed,
            tap.Stop());
  EXPECT_EQ("xyz", pty_.ReadFar(3, 2000));
}

// The modem-line branch, which a pseudo-terminal never triggers by itself: it cannot report its
// lines, and the device state comes on EV_DSR only when asked for.
TEST_F(MonitorTest, ModemEventsReportTheLinesAndOnDsrTheDeviceState) {
  const std::string no_lines = "*[T] GetCommModemStatus() fail. WinErr=50(UnknownWinErrCode)\n";
  const std::string state =
      "IOCTL_VCOM_GetDeviceState query result:\n"
      "IOCTL_VCOM_GetDeviceState fails. WinErr=1(ERROR_INVALID_FUNCTION)\n";
  const struct {
    uint32_t events;
    bool devstate_on_dsr;
    std::string after;
  } kCases[] = {
      {os::kEvCts, true, no_lines},         {os::kEvDsr, false, no_lines},
      {os::kEvDsr, true, no_lines + state}, {os::kEvCts | os::kEvDsr, true, no_lines + state},
      {os::kEvTxEmpty, true, ""},
  };
  for (const auto& c : kCases) {
    g_print_devstate_on_dsr = c.devstate_on_dsr;
    OutputTap tap;
    std::thread([&] {  // as the monitor's thread, for its mark
      RegisterThread(ThreadRole::kCommMonitor);
      LogCommEvents(port_, c.events, false);
      UnregisterThread(ThreadRole::kCommMonitor);
    })
        .join();
    EXPECT_EQ("*[T] ====New events: " + std::string(EventMaskNames(c.events)) + "\n" + c.after, tap.Stop())
        << c.events;
  }
}

// The port closed under both threads' pending requests (as at quit) or its far end hung up:
// the wait and the read fail, both threads end by themselves, and later stops collect them.
TEST_F(MonitorTest, BothThreadsEndWhenThePortGoesAway) {
  const struct {
    bool hang_up;
    std::string failure;
  } kCases[] = {
      {false, "WinErr=995(ERROR_OPERATION_ABORTED)"},
      {true, "WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.failure);
    testkit::PtyPair pair;
    const os::Handle port = os::CreateFileA(pair.slave_path().c_str(), os::kGenericRead | os::kGenericWrite,
                                            0, os::kOpenExisting, os::kFileFlagOverlapped);
    ASSERT_NE(os::kInvalidHandle, port);
    CommEventMonitor monitor(port);
    monitor.discard_on_rxchar = 0;
    OutputTap tap;
    ASSERT_TRUE(monitor.Start());
    ASSERT_TRUE(WaitStarted(tap, "0x1D"));
    ASSERT_TRUE(StartReadComThread(port, 100));
    // The first read takes 100, the next one the rest and stays pending.
    ASSERT_TRUE(pair.WriteFar(std::string(103, 'r')));
    ASSERT_TRUE(tap.WaitFor("#[T] ReadComThread: Got 100 bytes.\n"));
    ASSERT_TRUE(WaitUntil([&] {
      os::ComStat stat;
      return os::ClearCommError(port, nullptr, &stat) && stat.cbInQue == 0;
    }));
    // The monitor has reported what came and waits again.
    ASSERT_TRUE(WaitUntil([&] {
      const std::string text = tap.Text();
      return OutputTap::Occurrences(text, Waiting("0x1D")) == OutputTap::Occurrences(text, "New events") + 1;
    }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (c.hang_up) {
      pair.CloseFar();
    } else {
      os::CloseHandle(port);
    }
    ASSERT_TRUE(tap.WaitFor("*[T] WaitCommEvent thread quitting.\n"));
    ASSERT_TRUE(tap.WaitFor("#[T] ReadComThread: Got error.\n"));
    EXPECT_TRUE(EndsByItself([&] { EXPECT_TRUE(monitor.Stop()); }, [] {}));
    EXPECT_TRUE(EndsByItself([] { EXPECT_TRUE(StopReadComThread()); }, [] {}));
    if (c.hang_up) os::CloseHandle(port);
    const std::string out = tap.Stop();
    const std::string monitor_lines = LinesMarked(out, '*');
    EXPECT_EQ(0u, monitor_lines.find(kStarted + "*[T] ====New events: EV_RXCHAR\n")) << monitor_lines;
    const std::string last =
        "*[T] ====WaitCommEvent() fail! " + c.failure + "\n*[T] WaitCommEvent thread quitting.\n";
    EXPECT_TRUE(monitor_lines.ends_with(Waiting("0x1D") + last)) << monitor_lines;
    EXPECT_EQ("#[T] ReadComThread: Got 100 bytes.\n#[T] ReadComThread: ReadFile() async fail. " + c.failure +
                  "\n#[T] ReadComThread: Got error.\n",
              LinesMarked(out, '#'));
    EXPECT_EQ(kStopCall + kConfirmed, LinesMarked(out, ' '));
  }
}

}  // namespace
}  // namespace portwren::monitortest
