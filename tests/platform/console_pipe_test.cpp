// Console input from a pipe or a file, as a scripted run gives it: real descriptors, the
// byte rules (LF and CR LF are Enter, the end is ESC for ever), keys and lines in one stream.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "platform/os_console.h"
#include "platform/posix/console_posix.h"

namespace portwren::os {
namespace {

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(fds_), 0); }
  ~Pipe() {
    CloseWriter();
    close(fds_[0]);
  }
  int reader() const { return fds_[0]; }
  void Write(const std::string& bytes) {
    ASSERT_EQ(write(fds_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void CloseWriter() {
    if (fds_[1] >= 0) close(fds_[1]);
    fds_[1] = -1;
  }

 private:
  int fds_[2] = {-1, -1};
};

TEST(ConsolePipe, BytesAreKeysLineEndsAreEnterTheEndIsEsc) {
  Pipe pipe;
  pipe.Write("ab\r\nc\n\rd\x1b[A");
  pipe.CloseWriter();
  PosixConsole console(pipe.reader());
  EXPECT_FALSE(console.IsTerminal());
  std::vector<int> keys;
  for (int i = 0; i < 14; ++i) keys.push_back(console.GetKey());
  EXPECT_EQ(keys, (std::vector<int>{'a', 'b', 13, 'c', 13, 13, 'd', 27, '[', 'A', 27, 27, 27, 27}));
  EXPECT_FALSE(console.InKeyMode());
}

TEST(ConsolePipe, KeyWaitingFollowsThePipe) {
  Pipe pipe;
  PosixConsole console(pipe.reader());
  EXPECT_FALSE(console.KeyWaiting()) << "nothing written yet, writer still open";
  pipe.Write("x");
  EXPECT_TRUE(console.KeyWaiting());
  EXPECT_TRUE(console.KeyWaiting()) << "looking does not take the key";
  EXPECT_EQ(console.GetKey(), 'x');
  EXPECT_FALSE(console.KeyWaiting());
  pipe.CloseWriter();
  EXPECT_TRUE(console.KeyWaiting()) << "the end of input reads as ESC, so it is waiting";
  EXPECT_EQ(console.GetKey(), 27);
}

TEST(ConsolePipe, GetKeyWaitsForALateWriter) {
  Pipe pipe;
  PosixConsole console(pipe.reader());
  std::thread writer([&pipe] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pipe.Write("k");
    pipe.CloseWriter();
  });
  EXPECT_EQ(console.GetKey(), 'k');
  EXPECT_EQ(console.GetKey(), 27);
  writer.join();
}

TEST(ConsolePipe, CountPromptLinesAndKeysShareTheStream) {
  Pipe pipe;
  // As a script drives the key loop: R, its count, w, W with an empty answer, then quit.
  pipe.Write("R0x20\r\nwW\n\x1b");
  pipe.CloseWriter();
  PosixConsole console(pipe.reader());
  char line[100];
  EXPECT_EQ(console.GetKey(), 'R');
  ASSERT_TRUE(console.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "0x20");
  EXPECT_EQ(console.GetKey(), 'w');
  EXPECT_EQ(console.GetKey(), 'W');
  ASSERT_TRUE(console.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "");
  EXPECT_EQ(console.GetKey(), 27);
  EXPECT_FALSE(console.ReadLine(line, sizeof line));
  EXPECT_EQ(console.GetKey(), 27);
}

TEST(ConsolePipe, LongInputAcrossManyReads) {
  Pipe pipe;
  std::string long_line(3000, '7');
  std::string input = long_line + "\r\n";
  for (int i = 0; i < 500; ++i) input += static_cast<char>('a' + i % 26);
  PosixConsole console(pipe.reader());
  // More than a pipe buffer holds: write from a thread while the console reads.
  std::thread writer([&pipe, &input] {
    for (size_t at = 0; at < input.size(); at += 1000) pipe.Write(input.substr(at, 1000));
    pipe.CloseWriter();
  });
  char line[100];
  ASSERT_TRUE(console.ReadLine(line, sizeof line));
  EXPECT_EQ(std::string(line), long_line.substr(0, 99));
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(console.GetKey(), 'a' + i % 26) << "key " << i;
  }
  EXPECT_EQ(console.GetKey(), 27);
  writer.join();
}

TEST(ConsolePipe, RegularFileAsInput) {
  char path[] = "/tmp/portwren_console_XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  const std::string text = "r5\nq";
  ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
  {
    PosixConsole console(fd);
    char line[10];
    EXPECT_TRUE(console.KeyWaiting());
    EXPECT_EQ(console.GetKey(), 'r');
    ASSERT_TRUE(console.ReadLine(line, sizeof line));
    EXPECT_STREQ(line, "5");
    EXPECT_EQ(console.GetKey(), 'q');
    EXPECT_TRUE(console.KeyWaiting());
    EXPECT_EQ(console.GetKey(), 27);
  }
  close(fd);
  unlink(path);
}

TEST(ConsolePipe, ClosedDescriptorReadsAsEnd) {
  Pipe pipe;
  const int fd = dup(pipe.reader());
  close(fd);
  PosixConsole console(fd);
  EXPECT_TRUE(console.KeyWaiting());
  EXPECT_EQ(console.GetKey(), 27);
  char line[10];
  EXPECT_FALSE(console.ReadLine(line, sizeof line));
}

// The program's own console on standard input, fed by a pipe (in a child process, so the
// test runner's standard input is left alone).
TEST(ConsolePipe, ProgramConsoleOnPipedStandardInput) {
  int to_child[2];
  int from_child[2];
  ASSERT_EQ(pipe(to_child), 0);
  ASSERT_EQ(pipe(from_child), 0);
  // All input is in the pipe and its writer closed before the child starts, so what
  // KeyWaiting sees does not depend on timing.
  const std::string input = "ab\r\nl0x12\r\nq";
  ASSERT_EQ(write(to_child[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
  close(to_child[1]);
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(to_child[0], STDIN_FILENO);
    std::string seen;
    for (int i = 0; i < 20 && seen.size() < 200; ++i) {
      const int key = GetKey();
      if (key == 'l') {
        char line[20];
        seen += ReadLine(line, sizeof line) ? "<" + std::string(line) + ">" : "<end>";
      } else {
        seen += std::to_string(key) + (KeyWaiting() ? "+ " : " ");
      }
      if (key == 27) break;
    }
    RestoreConsole();  // nothing to restore on a pipe, and no harm
    (void)!write(from_child[1], seen.data(), seen.size());
    _exit(0);
  }
  close(to_child[0]);
  close(from_child[1]);
  std::string seen;
  char chunk[256];
  ssize_t got;
  while ((got = read(from_child[0], chunk, sizeof chunk)) > 0) seen.append(chunk, static_cast<size_t>(got));
  close(from_child[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  // Each key has a successor waiting; at the end ESC is waiting for ever.
  EXPECT_EQ(seen, "97+ 98+ 13+ <0x12>113+ 27+ ");
}

}  // namespace
}  // namespace portwren::os
