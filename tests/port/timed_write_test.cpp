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

std::string Synced(int count) {
  return " [T] Calling WriteFile(), request " + std::to_string(count) +
         " bytes...\nWriteFile sync success. nDone=" + std::to_string(count) + "\n";
}

// The counter words that run on from write to write are seen on the line in
// e2e/port_keys_test.cpp; here the wrap after 65535, the NUL after the data, and a write of
// nothing that moves nothing.
TEST_F(TimedWriteTest, CounterWrapsAndANulFollowsTheData) {
  TransferBuffer()[4] = 0x77;  // an odd count sends the byte left from before
  Transfer().fill_counter = 65535;
  EXPECT_EQ(Synced(5), Captured([&] { TimedWrite(port_, 5); }));
  EXPECT_EQ(std::string("\xFF\xFF\x00\x00\x77", 5), pty_.ReadFar(5, 2000));
  EXPECT_EQ(0, TransferBuffer()[5]);
  EXPECT_EQ(Synced(0), Captured([&] { TimedWrite(port_, 0); }));
  EXPECT_EQ("", pty_.ReadFar(1, 100));
  EXPECT_EQ(1, Transfer().fill_counter);
}

// The far end does not read, so a write larger than the line's buffers cannot finish: it is
// cancelled and collected whatever the omit levers say (they are for reads), and a NUL follows
// the part that went out. The whole text is checked through the keys, in e2e/port_keys_test.cpp.
TEST_F(TimedWriteTest, StuckWriteIsCancelledAndCollectedWhateverTheOmitLevers) {
  g_omit_cancelio = true;
  g_omit_getoverlappedresult = true;
  const std::string out = Captured([&] { TimedWrite(port_, 300000); });
  std::smatch match;
  ASSERT_TRUE(std::regex_search(out, match,
                                std::regex(" \\[T\\] CancelIo\\(\\) returns TRUE\\.\n.*WinErr=995.*\n"
                                           " \\[T\\]   -- Even if cancelled, nDone is ([0-9]+) bytes\\.\n$")))
      << out;
  const int sent = std::stoi(match[1].str());
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, 300000);
  EXPECT_EQ(0, TransferBuffer()[sent]);
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

std::string RefusedRead(const std::string& count) {
  return "Bytes to read(100): Count '" + count +
         "' refused: the transfer buffer takes at most 8123999 bytes. Keeping 100.\n";
}

// Each direction remembers its count; Enter keeps it, and counts past the buffer are refused. The
// answers come through a pipe put in place of standard input; its write end stays open, so the
// console never sees the input end.
TEST(AskCountTest, RemembersEachDirectionAndRefusesCountsPastTheBuffer) {
  const struct {
    std::string line;
    bool for_read;
    int32_t count;
    std::string prompt;
  } answers[] = {
      {"12\n", false, 12, "Bytes to write(0): "},
      {"\r\n", false, 12, "Bytes to write(12): "},
      {"0x20\n", true, 32, "Bytes to read(0): "},
      {"8123999\n", true, 8123999, "Bytes to read(32): "},
      {"100\n", true, 100, "Bytes to read(8123999): "},
      {"8124000\n", true, 100, RefusedRead("8124000")},
      {"-1\n", true, 100, RefusedRead("-1")},
      {"99999999999999999999999\n", true, 100, RefusedRead("99999999999999999999999")},
  };
  ResetRunSettings();
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  const int saved_stdin = dup(0);
  ASSERT_EQ(0, dup2(fds[0], 0));
  for (const auto& a : answers) {
    EXPECT_EQ(static_cast<ssize_t>(a.line.size()), write(fds[1], a.line.data(), a.line.size()));
    int32_t count = -1;
    EXPECT_EQ(a.prompt, Captured([&] { count = AskCount(a.for_read); })) << a.line;
    EXPECT_EQ(a.count, count) << a.line;
  }
  EXPECT_EQ(100, g_custom_read_bytes);
  EXPECT_EQ(12, g_custom_write_bytes);
  dup2(saved_stdin, 0);
  close(saved_stdin);
  close(fds[0]);
  close(fds[1]);
  ResetRunSettings();
}

}  // namespace
}  // namespace portwren::porttest
