// The timed read's paths on a pseudo-terminal: immediate, pending then done, pending then
// cancelled, and the two omit levers; what is printed, logged and counted for each.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "echo/log_file_writer.h"
#include "platform/os_sync.h"
#include "port/port_config.h"
#include "port_test_support.h"

namespace portwren::porttest {
namespace {

class TimedReadTest : public PortTest {};

std::string FileText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST_F(TimedReadTest, QuickTimeoutsCompleteAtOnceWithNothing) {
  g_rto_interval = -1;
  g_rto_multiplier = -1;
  g_rto_constant = 0;
  ApplyTimeouts(port_);
  const std::string out = Captured([&] { TimedRead(port_, 100); });
  EXPECT_EQ(
      " [T] Calling ReadFile() request 100 bytes...\n"
      " [T] ReadFile sync success. nDone=0\n\n",
      out);
  EXPECT_EQ(0u, Transfer().read_number);
  EXPECT_EQ(0u, Transfer().stream_offset);
}

TEST_F(TimedReadTest, ImmediateDataIsShownUpToItsFirstNulAndCounted) {
  g_rto_interval = -1;
  ApplyTimeouts(port_);
  ASSERT_TRUE(Arrive(std::string("ab\0cd", 5)));
  const std::string out = Captured([&] { TimedRead(port_, 100); });
  EXPECT_EQ(
      " [T] Calling ReadFile() request 100 bytes...\n"
      " [T] ReadFile sync success. nDone=5\n\n"
      "ab\n",
      out);
  EXPECT_EQ(0, std::memcmp(TransferBuffer(), "ab\0cd", 6)) << "the data stays, with a NUL after it";
  EXPECT_EQ(1u, Transfer().read_number);
  EXPECT_EQ(5u, Transfer().stream_offset);

  g_silent_read = true;
  ASSERT_TRUE(Arrive("xyz"));
  EXPECT_EQ(
      " [T] Calling ReadFile() request 100 bytes...\n"
      " [T] ReadFile sync success. nDone=3\n\n"
      "(silent read, no print)\n",
      Captured([&] { TimedRead(port_, 100); }));
  EXPECT_EQ(2u, Transfer().read_number);
  EXPECT_EQ(8u, Transfer().stream_offset);
}

TEST_F(TimedReadTest, PendingReadCompletesWithinTheWait) {
  g_wait_msec_before_cancel = 5000;
  ApplyTimeouts(port_);  // 0/0/0: the read waits for all its bytes
  std::thread far([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    pty_.WriteFar("data");
  });
  const std::string out = Captured([&] { TimedRead(port_, 4); });
  far.join();
  EXPECT_EQ(
      " [T] Calling ReadFile() request 4 bytes...\n"
      " [T] ReadFile pending, wait 5000 millisec...\n"
      " [T] Wait success.\n"
      " [T] Result: ReadFile async SUCCESS. nDone=4.\n"
      "data\n",
      out);
  EXPECT_EQ(1u, Transfer().read_number);
}

TEST_F(TimedReadTest, TimeoutCancelsAndReportsTheBytesThatCame) {
  ApplyTimeouts(port_);
  ASSERT_TRUE(Arrive("abc"));
  const std::string out = Captured([&] { TimedRead(port_, 10); });
  EXPECT_EQ(
      " [T] Calling ReadFile() request 10 bytes...\n"
      " [T] ReadFile pending, wait 200 millisec...\n"
      " [T] WAIT_TIMEOUT\n"
      " [T] Calling CancelIo().\n"
      " [T] CancelIo() returns TRUE.\n"
      " [T] Result: ReadFile async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n"
      " [T]   -- Even if cancelled, nDone is 3 bytes.\n"
      "abc\n",
      out);
  EXPECT_EQ(1u, Transfer().read_number);
  EXPECT_EQ(3u, Transfer().stream_offset);
}

TEST_F(TimedReadTest, TimeoutWithNothingPausesBeforeCancelling) {
  ApplyTimeouts(port_);
  g_pause_msec_bfr_cancelio = 50;
  const std::string out = Captured([&] { TimedRead(port_, 10); });
  EXPECT_EQ(
      " [T] Calling ReadFile() request 10 bytes...\n"
      " [T] ReadFile pending, wait 200 millisec...\n"
      " [T] WAIT_TIMEOUT\n"
      " [T] Pause 50 msec before CancelIo()...\n"
      " [T] Calling CancelIo().\n"
      " [T] CancelIo() returns TRUE.\n"
      " [T] Result: ReadFile async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n",
      out);
  EXPECT_EQ(0u, Transfer().read_number);
}

TEST_F(TimedReadTest, WithoutCancelTheResultWaitsForTheDriver) {
  ApplyTimeouts(port_);
  g_omit_cancelio = true;
  const auto start = std::chrono::steady_clock::now();
  std::thread far([&] {
    // Well after the 200 ms wait (plus up to 100 ms of grid alignment) has run out.
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    pty_.WriteFar("sixsix");
  });
  const std::string out = Captured([&] { TimedRead(port_, 6); });
  far.join();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
  EXPECT_EQ(
      " [T] Calling ReadFile() request 6 bytes...\n"
      " [T] ReadFile pending, wait 200 millisec...\n"
      " [T] WAIT_TIMEOUT\n"
      " [T] **NOT** calling CancelIo().\n"
      " [T] Result: ReadFile async SUCCESS. nDone=6.\n"
      "sixsix\n",
      out);
}

TEST_F(TimedReadTest, WithoutResultTheCancelledBytesAreNotShown) {
  ApplyTimeouts(port_);
  g_omit_getoverlappedresult = true;
  ASSERT_TRUE(Arrive("abc"));
  const std::string out = Captured([&] { TimedRead(port_, 10); });
  EXPECT_EQ(
      " [T] Calling ReadFile() request 10 bytes...\n"
      " [T] ReadFile pending, wait 200 millisec...\n"
      " [T] WAIT_TIMEOUT\n"
      " [T] Calling CancelIo().\n"
      " [T] CancelIo() returns TRUE.\n"
      " [T] **NOT** calling GetOverlappedResult().\n",
      out);
  EXPECT_EQ(0u, Transfer().read_number);
}

TEST_F(TimedReadTest, BothOmitLeversLeaveTheReadRunning) {
  ApplyTimeouts(port_);
  g_omit_cancelio = true;
  g_omit_getoverlappedresult = true;
  std::memset(TransferBuffer(), 0, 16);
  const std::string out = Captured([&] { TimedRead(port_, 8); });
  EXPECT_EQ(
      " [T] Calling ReadFile() request 8 bytes...\n"
      " [T] ReadFile pending, wait 200 millisec...\n"
      " [T] WAIT_TIMEOUT\n"
      " [T] **NOT** calling CancelIo().\n"
      " [T] **NOT** calling GetOverlappedResult().\n",
      out);

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

TEST_F(TimedReadTest, ReadLogReceivesEveryByteAndIsOnDiskAtOnce) {
  const std::string path = testing::TempDir() + "portwren_read_log_" + std::to_string(getpid()) + ".log";
  LogFileWriter log;
  ASSERT_TRUE(log.Open(path.c_str(), false, 8192));
  std::snprintf(g_read_log_path, sizeof g_read_log_path, "%s", path.c_str());
  SetReadLog(&log);
  g_rto_interval = -1;
  ApplyTimeouts(port_);

  ASSERT_TRUE(Arrive(std::string("ab\0cd", 5)));
  Captured([&] { TimedRead(port_, 100); });
  ASSERT_TRUE(Arrive("0123456789ABCDEFGHIJ"));
  Captured([&] { TimedRead(port_, 100); });

  // Flushed after each read: the file holds both records while the writer is still open.
  static const std::regex stamp(R"(^\[\d{8}\.\d{6}\.\d{3}\] )");
  const std::string raw = FileText(path);
  std::string text = raw;
  const std::string first_head = text.substr(0, text.find('#'));
  EXPECT_TRUE(std::regex_search(first_head, stamp)) << first_head;
  text = std::regex_replace(text, std::regex(R"(\[\d{8}\.\d{6}\.\d{3}\])"), "[S]");
  EXPECT_EQ(
      "[S] #0: 5 bytes.\r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0000: 61 62 00 63 64.\r\n"
      "\r\n"
      "[S] #1: 20 bytes.\r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0000:                30 31 32 33 34 35 36 37 38 39 41\r\n"
      "0010: 42 43 44 45 46 47 48 49 4a.\r\n"
      "\r\n",
      text);

  // No data, no record.
  Captured([&] { TimedRead(port_, 100); });
  EXPECT_EQ(raw, FileText(path));
  SetReadLog(nullptr);
  log.FlushAndClose();
  std::remove(path.c_str());
}

TEST_F(TimedReadTest, ReadLogNeedsItsPath) {
  const std::string path =
      testing::TempDir() + "portwren_read_log_unset_" + std::to_string(getpid()) + ".log";
  LogFileWriter log;
  ASSERT_TRUE(log.Open(path.c_str(), false, 8192));
  SetReadLog(&log);  // g_read_log_path stays empty
  g_rto_interval = -1;
  ApplyTimeouts(port_);
  ASSERT_TRUE(Arrive("abc"));
  Captured([&] { TimedRead(port_, 100); });
  log.FlushAndClose();
  EXPECT_EQ("", FileText(path));
  std::remove(path.c_str());
}

TEST_F(TimedReadTest, CountsPastTheBufferAreRefused) {
  EXPECT_EQ(" [T] ReadFile() of 8124000 bytes refused: the transfer buffer takes 0 to 8123999.\n",
            Captured([&] { TimedRead(port_, kTransferBufferBytes); }));
  EXPECT_EQ(" [T] ReadFile() of -1 bytes refused: the transfer buffer takes 0 to 8123999.\n",
            Captured([&] { TimedRead(port_, -1); }));
}

TEST_F(TimedReadTest, FailedRequestIsReported) {
  EXPECT_EQ(
      " [T] Calling ReadFile() request 10 bytes...\n"
      " [T] Unexpected ReadFile error. WinErr=6(ERROR_INVALID_HANDLE)\n",
      Captured([&] { TimedRead(os::kInvalidHandle, 10); }));
}

}  // namespace
}  // namespace portwren::porttest
