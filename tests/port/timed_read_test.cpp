// The timed read's paths on a pseudo-terminal: immediate, pending then cancelled, and the omit
// levers; what is printed, logged and counted for each. (A pending read that completes, and the
// pause before the cancel, are checked through the keys, in e2e/port_keys_test.cpp.)
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>

#include "common/log_files.h"
#include "echo/log_file_writer.h"
#include "platform/os_sync.h"
#include "port/port_config.h"
#include "port_test_support.h"

namespace portwren::porttest {
namespace {

using TimedReadTest = PortTest;

std::string Calling(int count) {
  return " [T] Calling ReadFile() request " + std::to_string(count) + " bytes...\n";
}

// What every timed-out read prints first, with the default 200 ms wait.
std::string TimedOut(int count) {
  return Calling(count) + " [T] ReadFile pending, wait 200 millisec...\n [T] WAIT_TIMEOUT\n";
}

const std::string kCancelled = " [T] Calling CancelIo().\n [T] CancelIo() returns TRUE.\n";

// A read of 10 that times out (0/0/0 timeouts) after `arrive` came, with the omit levers as
// given; `late` bytes come well after the 200 ms wait (plus up to 100 ms of grid alignment) has
// run out. What follows the wait, and the reads counted.
TEST_F(TimedReadTest, TimedOutReadsCancelAndReport) {
  const std::string aborted = " [T] Result: ReadFile async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n";
  const struct {
    bool omit_cancel, omit_result;
    std::string arrive, late, after_wait;
    uint32_t reads;
  } cases[] = {
      // A cancelled read still shows the bytes that came.
      {false, false, "abc", "",
       kCancelled + aborted + " [T]   -- Even if cancelled, nDone is 3 bytes.\nabc\n", 1},
      // Without the cancel the result waits for the driver.
      {true, false, "", "0123456789",
       " [T] **NOT** calling CancelIo().\n [T] Result: ReadFile async SUCCESS. nDone=10.\n0123456789\n", 1},
      // Without the result the cancelled bytes are not shown.
      {false, true, "abc", "", kCancelled + " [T] **NOT** calling GetOverlappedResult().\n", 0},
  };
  ApplyTimeouts(port_);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.after_wait);
    ResetTransferCounters();
    g_omit_cancelio = c.omit_cancel;
    g_omit_getoverlappedresult = c.omit_result;
    ASSERT_TRUE(Arrive(c.arrive));
    const auto start = std::chrono::steady_clock::now();
    std::thread far([&] {
      if (c.late.empty()) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(1000));
      pty_.WriteFar(c.late);
    });
    const std::string out = Captured([&] { TimedRead(port_, 10); });
    far.join();
    EXPECT_EQ(TimedOut(10) + c.after_wait, out);
    if (!c.late.empty()) {
      EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000))
          << "waited for the driver";
    }
    EXPECT_EQ(c.reads, Transfer().read_number);
    EXPECT_EQ(c.reads ? c.arrive.size() + c.late.size() : 0u, Transfer().stream_offset);
  }
}

TEST_F(TimedReadTest, BothOmitLeversLeaveTheReadRunning) {
  ApplyTimeouts(port_);
  g_omit_cancelio = true;
  g_omit_getoverlappedresult = true;
  std::memset(TransferBuffer(), 0, 16);
  EXPECT_EQ(TimedOut(8) +
                " [T] **NOT** calling CancelIo().\n"
                " [T] **NOT** calling GetOverlappedResult().\n",
            Captured([&] { TimedRead(port_, 8); }));

  // The read is still the port's: reads run in order, so one queued behind it gets only the
  // byte after its eight, and once that one is done the eight are in the transfer buffer.
  uint8_t next_byte = 0;
  os::Overlapped next;
  next.hEvent = os::CreateEventA(true, false);
  ASSERT_FALSE(os::ReadFile(port_, &next_byte, 1, nullptr, &next));
  ASSERT_EQ(os::kErrIoPending, os::GetLastError());
  ASSERT_TRUE(pty_.WriteFar("ABCDEFGH!"));
  os::Dword done = 0;
  EXPECT_TRUE(os::GetOverlappedResult(port_, &next, &done, true));
  os::CloseHandle(next.hEvent);
  EXPECT_EQ(1u, done);
  EXPECT_EQ('!', next_byte);
  EXPECT_EQ(0, std::memcmp(TransferBuffer(), "ABCDEFGH", 8));
  EXPECT_EQ(0u, Transfer().read_number) << "nobody collected that read";

  // Left running again, the next one ends only when the port closes, and its outcome still
  // has a place to go (a freed one would show under the address sanitizer).
  Captured([&] { TimedRead(port_, 8); });
  EXPECT_TRUE(os::CloseHandle(port_));
  port_ = os::kInvalidHandle;
}

// Reads that return at once show their data up to the first NUL (or not, when silent) and count
// it. Logged only with a read log path set; then flushed after each read, so the file holds the
// records while the writer is still open. Each record starts with its time ([S]).
TEST_F(TimedReadTest, ImmediateReadsShowCountAndLogTheirData) {
  const std::string path = testlog::TempLogPath("read_log");
  LogFileWriter log;
  ASSERT_TRUE(log.Open(path.c_str(), false, 8192));
  SetReadLog(&log);
  g_rto_interval = -1;
  ApplyTimeouts(port_);
  const auto shown = [&] { return Captured([&] { TimedRead(port_, 100); }); };
  const auto at_once = [](int done) {
    return Calling(100) + " [T] ReadFile sync success. nDone=" + std::to_string(done) + "\n\n";
  };
  const auto counted = [] { return std::tuple(Transfer().read_number, Transfer().stream_offset); };
  EXPECT_EQ(at_once(0), shown());
  EXPECT_EQ(std::tuple(0u, 0u), counted()) << "nothing read, nothing counted";
  ASSERT_TRUE(Arrive("abc"));
  EXPECT_EQ(at_once(3) + "abc\n", shown());
  log.Flush();
  EXPECT_EQ("", testlog::FileText(path)) << "no path, no record";

  std::snprintf(g_read_log_path, sizeof g_read_log_path, "%s", path.c_str());
  ASSERT_TRUE(Arrive(std::string("ab\0cd", 5)));
  EXPECT_EQ(at_once(5) + "ab\n", shown());
  EXPECT_EQ(0, std::memcmp(TransferBuffer(), "ab\0cd", 6)) << "the data stays, with a NUL after it";
  g_silent_read = true;
  ASSERT_TRUE(Arrive("0123456789ABCDEFGHIJ"));
  EXPECT_EQ(at_once(20) + "(silent read, no print)\n", shown());
  EXPECT_EQ(std::tuple(3u, 28u), counted());
  const std::string raw = testlog::FileText(path);
  EXPECT_EQ(
      "[S] #1: 5 bytes.\r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0000:          61 62 00 63 64.\r\n"
      "\r\n"
      "[S] #2: 20 bytes.\r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0000:                         30 31 32 33 34 35 36 37\r\n"
      "0010: 38 39 41 42 43 44 45 46 47 48 49 4a.\r\n"
      "\r\n",
      testlog::ScrubStamps(raw));
  EXPECT_EQ(at_once(0), shown());
  EXPECT_EQ(raw, testlog::FileText(path)) << "no data, no record";
  SetReadLog(nullptr);
  log.FlushAndClose();
  std::remove(path.c_str());
}

TEST_F(TimedReadTest, CountsPastTheBufferAreRefused) {
  EXPECT_EQ(" [T] ReadFile() of 8124000 bytes refused: the transfer buffer takes 0 to 8123999.\n",
            Captured([&] { TimedRead(port_, kTransferBufferBytes); }));
  EXPECT_EQ(" [T] ReadFile() of -1 bytes refused: the transfer buffer takes 0 to 8123999.\n",
            Captured([&] { TimedRead(port_, -1); }));
  EXPECT_EQ(" [T] WriteFile() of 8124000 bytes refused: the transfer buffer takes 0 to 8123999.\n",
            Captured([&] { TimedWrite(port_, kTransferBufferBytes); }));
  EXPECT_EQ(0, Transfer().fill_counter) << "a refused write fills nothing";
}

}  // namespace
}  // namespace portwren::porttest
