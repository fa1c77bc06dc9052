// The background reader on a pseudo-terminal: one reader at a time, the two ways a stop ends it.
// (The console thread's reads, writes and purges beside it: e2e/monitor_keys_test.cpp.)
#include "monitor/read_com_thread.h"

#include <gtest/gtest.h>

#include <string>

#include "monitor_test_support.h"
#include "platform/os_serial.h"

namespace portwren::monitortest {
namespace {

const std::string kGotError = "#[T] ReadComThread: Got error.\n";

class ReaderTest : public porttest::PortTest {
 protected:
  void TearDown() override {
    StopReadComThread();  // a failed test may leave it running
    porttest::PortTest::TearDown();
  }
  // Stops the reader, closing the port should the stop not end by itself.
  bool StopEnds() {
    return EndsByItself([] { EXPECT_TRUE(StopReadComThread()); },
                        [&] {
                          os::CloseHandle(port_);
                          port_ = os::kInvalidHandle;
                        });
  }
  // Waits until nothing waits in the port's queue: a pending read has claimed what came.
  bool Claimed() {
    return WaitUntil([&] { return InQueue() == 0; });
  }
};

TEST_F(ReaderTest, OneReaderAtATimeAndStartAndStopSayNothing) {
  OutputTap tap;
  EXPECT_FALSE(StopReadComThread());
  ASSERT_TRUE(StartReadComThread(port_, 100));
  EXPECT_FALSE(StartReadComThread(port_, 100));
  EXPECT_TRUE(StopReadComThread());
  EXPECT_FALSE(StopReadComThread());
  const std::string out = tap.Stop();
  EXPECT_EQ(out, LinesMarked(out, '#')) << "only the reader's own lines";
}

// A stop during a pending read cancels it; a stop between reads is seen before the next one.
TEST_F(ReaderTest, StopEndsAPendingReadOrTheLoopBetweenReads) {
  const struct {
    const char* name;
    os::Dword interval;  // read timeouts: 0 waits for every byte, MAXDWORD returns at once
    std::string arrive, first;
    int first_seen;  // stop once the first line came this often
    std::string last;
  } kCases[] = {
      {"pending", 0, std::string(103, 'p'), "#[T] ReadComThread: Got 100 bytes.\n", 1,
       "#[T] ReadComThread: ReadFile() async fail after CancelIO. WinErr=995(ERROR_OPERATION_ABORTED)\n" +
           kGotError},
      {"between reads", os::kMaxDword, "", "#[T] ReadComThread: Got 0 bytes.\n", 3,
       "#[T] ReadComThread: Got quit signal.\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    SetTimeouts(c.interval, 0, 0);
    OutputTap tap;
    ASSERT_TRUE(StartReadComThread(port_, 100));
    if (!c.arrive.empty()) {
      ASSERT_TRUE(pty_.WriteFar(c.arrive));
    }
    ASSERT_TRUE(tap.WaitFor(c.first, c.first_seen));
    ASSERT_TRUE(Claimed());  // the 3 bytes after the first 100 sit in the next, pending read
    ASSERT_TRUE(StopEnds());
    const std::string out = tap.Stop();
    ASSERT_EQ(0, out.find(c.first)) << out;
    // Nothing but the first line, repeated, comes before the last lines.
    std::string expected;
    for (int i = OutputTap::Occurrences(out, c.first); i > 0; --i) expected += c.first;
    EXPECT_EQ(expected + c.last, out);
  }
}

}  // namespace
}  // namespace portwren::monitortest
