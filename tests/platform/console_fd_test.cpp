// The POSIX console on a pipe or a file, as a scripted run gives it: real descriptors under the
// piped-input rules (checked in full on a scripted stream in console_keys_test.cpp).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "common/pipe.h"
#include "platform/posix/console_posix.h"
#include "platform_test_util.h"

namespace portwren::os {
namespace {

using testing_util::Keys;
using testing_util::Line;
using testkit::Pipe;

TEST(PosixConsoleInput, BytesAreKeysAndKeyWaitingFollowsThePipe) {
  Pipe pipe;
  PosixConsole console(pipe.reader_fd());
  EXPECT_FALSE(console.IsTerminal());
  EXPECT_FALSE(console.KeyWaiting()) << "nothing written yet, writer still open";
  pipe.Write("x\r\n\n\x1b[A");
  EXPECT_TRUE(console.KeyWaiting());
  EXPECT_TRUE(console.KeyWaiting()) << "looking does not take the key";
  EXPECT_EQ(Keys(console, 6), (std::vector<int>{'x', 13, 13, 27, '[', 'A'})) << "no escape sequences here";
  EXPECT_FALSE(console.KeyWaiting());
  pipe.CloseWriter();
  EXPECT_TRUE(console.KeyWaiting()) << "the end of input reads as ESC, so it is waiting";
  EXPECT_EQ(Keys(console, 2), (std::vector<int>{27, 27}));
  EXPECT_FALSE(console.InKeyMode());
}

TEST(PosixConsoleInput, GetKeyWaitsForALateWriter) {
  Pipe pipe;
  PosixConsole console(pipe.reader_fd());
  std::jthread writer([&pipe] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pipe.Write("k");
    pipe.CloseWriter();
  });
  EXPECT_EQ(Keys(console, 2), (std::vector<int>{'k', 27}));
}

TEST(PosixConsoleInput, LongInputAcrossManyReads) {
  Pipe pipe;
  std::string long_line(3000, '7');
  std::string input = long_line + "\r\n";
  for (int i = 0; i < 500; ++i) input += static_cast<char>('a' + i % 26);
  PosixConsole console(pipe.reader_fd());
  // More than a pipe buffer holds: write from a thread while the console reads.
  std::jthread writer([&pipe, &input] {
    for (size_t at = 0; at < input.size(); at += 1000) pipe.Write(input.substr(at, 1000));
    pipe.CloseWriter();
  });
  EXPECT_EQ(Line(console), long_line.substr(0, 99));
  for (int i = 0; i < 500; ++i) ASSERT_EQ(console.GetKey(), 'a' + i % 26) << "key " << i;
  EXPECT_EQ(console.GetKey(), 27);
}

TEST(PosixConsoleInput, RegularFileAndClosedDescriptorAsInput) {
  testing_util::TempDir dir;
  const int fd = open(dir.File("keys").c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, "r5\nq", 4), 4);
  ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
  {
    PosixConsole console(fd);
    EXPECT_TRUE(console.KeyWaiting());
    EXPECT_EQ(console.GetKey(), 'r');
    EXPECT_EQ(Line(console, 10), "5");
    EXPECT_EQ(console.GetKey(), 'q');
    EXPECT_TRUE(console.KeyWaiting());
    EXPECT_EQ(console.GetKey(), 27);
  }
  close(fd);

  PosixConsole closed(fd);
  EXPECT_TRUE(closed.KeyWaiting());
  EXPECT_EQ(closed.GetKey(), 27);
  EXPECT_EQ(Line(closed, 10), "<end>");
}

}  // namespace
}  // namespace portwren::os
