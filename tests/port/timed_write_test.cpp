// Timed writes on a pseudo-terminal: the counter words that go out, the pending and cancelled
// paths, and the count prompt of R and W fed through standard input.
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <thread>

#include "port/port_config.h"
#include "port_test_support.h"

namespace portwren::porttest {
namespace {

using TimedWriteTest = PortTest;

// Counter words run on from write to write, least significant byte first; an odd count sends
// the byte left from before; the counter wraps after 65535.
TEST_F(TimedWriteTest, CounterWordsRunOnOddBytesAndWraps) {
  const auto sync_success = [](const std::string& count) {
    return " [T] Calling WriteFile(), request " + count +
           " bytes...\nWriteFile sync success. nDone=" + count + "\n";
  };
  EXPECT_EQ(sync_success("4"), Captured([&] { TimedWrite(port_, 4); }));
  EXPECT_EQ(std::string("\x00\x00\x01\x00", 4), pty_.ReadFar(4, 2000));
  TransferBuffer()[4] = 0x77;
  Captured([&] { TimedWrite(port_, 5); });
  EXPECT_EQ(std::string("\x02\x00\x03\x00\x77", 5), pty_.ReadFar(5, 2000));
  EXPECT_EQ(0, TransferBuffer()[5]) << "a NUL follows the data";
  EXPECT_EQ(4, Transfer().fill_counter);

  EXPECT_EQ(sync_success("0"), Captured([&] { TimedWrite(port_, 0); }));
  EXPECT_EQ("", pty_.ReadFar(1, 100));
  EXPECT_EQ(4, Transfer().fill_counter);

  Transfer().fill_counter = 65535;
  Captured([&] { TimedWrite(port_, 6); });
  EXPECT_EQ(std::string("\xFF\xFF\x00\x00\x01\x00", 6), pty_.ReadFar(6, 2000));
}

// The far end does not read, so a write larger than the line's buffers cannot finish.
TEST_F(TimedWriteTest, StuckWriteIsCancelledAndCollected) {
  g_omit_cancelio = true;  // ignored by writes
  g_omit_getoverlappedresult = true;
  const int32_t count = 300000;
  const std::string out = Captured([&] { TimedWrite(port_, count); });
  const std::regex expected(
      R"( \[T\] Calling WriteFile\(\), request 300000 bytes\.\.\.
 \[T\] WriteFile pending, wait 200 millisec\.\.\.
 \[T\] WAIT_TIMEOUT\.
 \[T\] Calling CancelIo\(\)\.
 \[T\] CancelIo\(\) returns TRUE\.
 \[T\] Result: WriteFile async fail\. WinErr=995\(ERROR_OPERATION_ABORTED\)
 \[T\]   -- Even if cancelled, nDone is ([0-9]+) bytes\.
)");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(out, match, expected)) << out;
  // The part that went out before the cancel: what the line's buffers took, no more.
  const int sent = std::stoi(match[1].str());
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, count);
  EXPECT_EQ(0, TransferBuffer()[sent]) << "a NUL is put after the part that went out";
  EXPECT_EQ(static_cast<size_t>(sent), pty_.DrainFar(200));
}

TEST_F(TimedWriteTest, PendingWriteCompletesWhenTheFarEndReads) {
  g_wait_msec_before_cancel = 10000;
  const int32_t count = 300000;
  std::thread far([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(static_cast<size_t>(count), pty_.ReadFar(count, 10000).size());
  });
  const std::string out = Captured([&] { TimedWrite(port_, count); });
  far.join();
  EXPECT_EQ(
      " [T] Calling WriteFile(), request 300000 bytes...\n"
      " [T] WriteFile pending, wait 10000 millisec...\n"
      " [T] Wait success.\n"
      " [T] Result: WriteFile async SUCCESS. nDone=300000\n",
      out);
}

// Standard input replaced by a pipe that the test writes the answers into. The write end stays
// open until the end, so the console never sees the input end.
class AskCountTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetRunSettings();
    ASSERT_EQ(0, pipe(fds_));
    saved_stdin_ = dup(0);
    ASSERT_GE(saved_stdin_, 0);
    ASSERT_EQ(0, dup2(fds_[0], 0));
  }
  void TearDown() override {
    dup2(saved_stdin_, 0);
    close(saved_stdin_);
    close(fds_[0]);
    close(fds_[1]);
    ResetRunSettings();
  }
  int32_t Answer(const std::string& line, bool for_read, std::string* prompt) {
    EXPECT_EQ(static_cast<ssize_t>(line.size()), write(fds_[1], line.data(), line.size()));
    int32_t count = -1;
    *prompt = Captured([&] { count = AskCount(for_read); });
    return count;
  }
  int fds_[2] = {-1, -1};
  int saved_stdin_ = -1;
};

std::string RefusedRead(const std::string& count) {
  return "Bytes to read(100): Count '" + count +
         "' refused: the transfer buffer takes at most 8123999 bytes. Keeping 100.\n";
}

// Each direction remembers its count; Enter keeps it, and counts past the buffer are refused.
TEST_F(AskCountTest, RemembersEachDirectionAndRefusesCountsPastTheBuffer) {
  const struct {
    const char* line;
    bool for_read;
    int32_t count;
    std::string prompt;
  } answers[] = {
      {"\n", false, 0, "Bytes to write(0): "},
      {"12\n", false, 12, "Bytes to write(0): "},
      {"\r\n", false, 12, "Bytes to write(12): "},
      {"0x20\n", true, 32, "Bytes to read(0): "},
      {"010\n", true, 8, "Bytes to read(32): "},  // a leading 0 is octal
      {"8123999\n", true, 8123999, "Bytes to read(8): "},
      {"100\n", true, 100, "Bytes to read(8123999): "},
      {"8124000\n", true, 100, RefusedRead("8124000")},
      {"-1\n", true, 100, RefusedRead("-1")},
      {"99999999999999999999999\n", true, 100, RefusedRead("99999999999999999999999")},
  };
  for (const auto& a : answers) {
    std::string prompt;
    EXPECT_EQ(a.count, Answer(a.line, a.for_read, &prompt)) << a.line;
    EXPECT_EQ(a.prompt, prompt) << a.line;
  }
  EXPECT_EQ(100, g_custom_read_bytes);
  EXPECT_EQ(12, g_custom_write_bytes);
}

}  // namespace
}  // namespace portwren::porttest
