// Modem-line changes as comm events, and the thread that waits for them: its stop must reach a
// thread blocked in the wait, which a pseudo-terminal cannot show (it has no modem lines), so
// a pipe read stands in for the terminal's wait.
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "platform/os_serial.h"
#include "platform/posix/modem_wait_posix.h"
#include "platform_test_util.h"

namespace portwren::testing_util {
namespace {

using os::posix::ModemCounts;
using os::posix::ModemLineEvents;
using os::posix::ModemLineWaiter;

TEST(ModemLineEventsTest, AChangeEitherWayOrAMovedCountIsAnEventRingOnlyOnItsTrailingEdge) {
  const ModemCounts zero;
  const struct {
    int before, now;
    ModemCounts counts_now;
    bool counted;
    os::Dword events;
  } kCases[] = {
      {0, 0, {}, true, 0},
      {TIOCM_CTS, 0, {}, true, os::kEvCts},
      {0, TIOCM_DSR | TIOCM_CD, {}, false, os::kEvDsr | os::kEvRlsd},
      {TIOCM_RTS | TIOCM_DTR, 0, {}, true, 0},  // our own lines are no events
      {0, 0, {1, 0, 0, 0}, true, os::kEvCts},   // a CTS pulse between two looks
      {0, 0, {0, 2, 1, 0}, true, os::kEvDsr | os::kEvRlsd},
      {0, 0, {3, 3, 3, 3}, false, 0},           // no counts kept: the lines alone
      {0, TIOCM_RI, {}, true, 0},               // RI coming on
      {TIOCM_RI, 0, {}, true, os::kEvRing},     // RI going off
      {0, 0, {0, 0, 0, 1}, true, os::kEvRing},  // a ring between two looks
      {0, TIOCM_RI, {0, 0, 0, 1}, true, 0},     // still ringing
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.events, ModemLineEvents(c.before, c.now, c.counted ? &zero : nullptr,
                                        c.counted ? &c.counts_now : nullptr))
        << c.before << " -> " << c.now;
  }
}

// A wait that blocks in a pipe read: each byte is a line change, end of input a device gone.
struct PipeWait {
  PipeWait() { EXPECT_EQ(0, pipe(fds)); }
  ~PipeWait() {
    close(fds[0]);
    if (fds[1] >= 0) close(fds[1]);
  }
  int Wait() {
    char byte;
    const ssize_t got = read(fds[0], &byte, 1);
    if (got == 1) return 0;
    if (got < 0 && errno == EINTR) interrupted = true;
    return got == 0 ? EIO : errno;
  }
  int fds[2] = {-1, -1};
  std::atomic<bool> interrupted{false};
};

TEST(ModemLineWaiterTest, EachChangeIsPassedOnAndStopInterruptsTheBlockedWait) {
  PipeWait wait;
  std::atomic<int> changes{0};
  ModemLineWaiter waiter([&] { return wait.Wait(); }, [&] { ++changes; });
  ASSERT_TRUE(waiter.Start());
  ASSERT_EQ(3, write(wait.fds[1], "abc", 3));
  ASSERT_TRUE(WaitFor([&] { return changes == 3; }));
  // Should the signal not interrupt the read, closing the pipe ends it after a while.
  std::thread watchdog([&] {
    for (int i = 0; i < 500 && !wait.interrupted; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (!wait.interrupted) close(std::exchange(wait.fds[1], -1));
  });
  waiter.Stop();
  watchdog.join();
  EXPECT_TRUE(wait.interrupted) << "the stop did not interrupt the wait";
  EXPECT_FALSE(waiter.unsupported());
  EXPECT_EQ(3, changes);
}

TEST(ModemLineWaiterTest, ADeviceWithoutTheWaitEndsTheThreadAtOnce) {
  for (const int error : {ENOTTY, EIO}) {
    std::atomic<int> calls{0};
    ModemLineWaiter waiter([&] { return ++calls, error; }, [] {});
    ASSERT_TRUE(waiter.Start());
    ASSERT_TRUE(WaitFor([&] { return calls == 1; }));
    waiter.Stop();
    EXPECT_EQ(1, calls);
    EXPECT_EQ(error == ENOTTY, waiter.unsupported()) << error;
  }
}

}  // namespace
}  // namespace portwren::testing_util
