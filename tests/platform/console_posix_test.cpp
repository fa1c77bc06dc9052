// The POSIX console on real descriptors: a pipe, a file, a closed descriptor, and a terminal
// (a pseudo-terminal) with single-key mode, keys as the terminal sends them, the edited line,
// and the terminal's own mode back on every way out of the program.
#include "platform/posix/console_posix.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/pipe.h"
#include "platform/os_console.h"
#include "platform_test_util.h"

namespace portwren::os {
namespace {

using testing_util::Keys;
using testing_util::Line;
using testing_util::WaitFor;
using Codes = std::vector<int>;

TEST(PosixConsoleInput, APipeAFileAndAClosedDescriptorEndInEsc) {
  testkit::Pipe pipe;
  PosixConsole console(pipe.reader_fd());
  EXPECT_FALSE(console.IsTerminal());
  EXPECT_FALSE(console.KeyWaiting()) << "nothing written yet, writer still open";
  pipe.Write("x");
  EXPECT_TRUE(console.KeyWaiting());
  {
    std::jthread late([&pipe] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      pipe.Write("\r\n\x1b[A");
      pipe.CloseWriter();
    });
    EXPECT_EQ(Keys(console, 5), (Codes{'x', 13, 27, '[', 'A'})) << "GetKey waits for a late writer";
  }
  EXPECT_TRUE(console.KeyWaiting()) << "the end of input reads as ESC, so it is waiting";
  EXPECT_EQ(Keys(console, 2), (Codes{27, 27}));
  EXPECT_FALSE(console.InKeyMode());

  testing_util::TempDir dir;
  const int fd = open(dir.File("keys").c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(write(fd, "r5\nq", 4), 4);
  ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
  {
    PosixConsole file(fd);
    EXPECT_EQ(file.GetKey(), 'r');
    EXPECT_EQ(Line(file, 10), "5");
    EXPECT_EQ(Keys(file, 2), (Codes{'q', 27}));
  }
  close(fd);
  PosixConsole closed(fd);
  EXPECT_TRUE(closed.KeyWaiting());
  EXPECT_EQ(closed.GetKey(), 27);
  EXPECT_EQ(Line(closed, 10), "<end>");
}

// A pseudo-terminal in its own (cooked) mode; the test types on the master side.
struct Pty {
  Pty() {
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(tcgetattr(slave, &original), 0);
  }
  ~Pty() {
    close(master);
    close(slave);
  }
  void Type(const std::string& bytes) const {
    ASSERT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  termios Mode() const {
    termios mode{};
    tcgetattr(slave, &mode);
    return mode;
  }
  bool IsOriginal() const {
    const termios now = Mode();
    return now.c_iflag == original.c_iflag && now.c_oflag == original.c_oflag &&
           now.c_cflag == original.c_cflag && now.c_lflag == original.c_lflag &&
           std::memcmp(now.c_cc, original.c_cc, sizeof now.c_cc) == 0;
  }
  bool WaitForKeyMode() const {
    return WaitFor([this] { return (Mode().c_lflag & ICANON) == 0; });
  }
  // What the terminal shows, read until it contains expected (or 10 s ran out).
  std::string ReadUntil(const std::string& expected) {
    for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
         shown.find(expected) == std::string::npos && std::chrono::steady_clock::now() < deadline;) {
      pollfd ready{master, POLLIN, 0};
      char chunk[256];
      const ssize_t got = poll(&ready, 1, 20) > 0 ? read(master, chunk, sizeof chunk) : 0;
      if (got < 0) break;
      shown.append(chunk, static_cast<size_t>(got));
    }
    return shown;
  }

  int master = -1, slave = -1;
  termios original{};
  std::string shown;
};

TEST(ConsolePty, SingleKeyModeOnFirstUseAndBackAfter) {
  Pty pty;
  {
    PosixConsole console(pty.slave);
    ASSERT_TRUE(console.IsTerminal());
    EXPECT_TRUE(pty.IsOriginal()) << "nothing changes before the first key is asked for";
    EXPECT_FALSE(console.KeyWaiting());
    ASSERT_TRUE(console.InKeyMode());
    const termios mode = pty.Mode();
    EXPECT_EQ(mode.c_lflag & (ICANON | ECHO | IEXTEN), 0u);
    EXPECT_NE(mode.c_lflag & ISIG, 0u) << "Ctrl+C must still end the program";
    EXPECT_EQ(mode.c_iflag & (ICRNL | INLCR | IGNCR | IXON), 0u);
    EXPECT_EQ(mode.c_oflag, pty.original.c_oflag) << "output keeps its line-end processing";
    EXPECT_EQ(mode.c_cc[VMIN], 1);

    console.Restore();
    EXPECT_TRUE(pty.IsOriginal());
    EXPECT_FALSE(console.KeyWaiting());
    EXPECT_EQ(pty.Mode().c_lflag & ICANON, 0u) << "the next key read switches again";
    pty.Type("z");
    EXPECT_EQ(console.GetKey(), 'z');
  }
  EXPECT_TRUE(pty.IsOriginal()) << "the console puts the terminal back when it goes";
}

// Bytes typed before key mode would be echoed and turned by the terminal itself, so each test
// switches first.
TEST(ConsolePty, KeysAsTheTerminalSendsThemTheEditedLineAndAHangUp) {
  Pty pty;
  PosixConsole console(pty.slave);
  console.EnterKeyMode();
  pty.Type("\x1b[A\x1b[4~\x1bOP\x1b[24~\x1b[2;5A\r\x7f\x13\x11q");
  EXPECT_EQ(Keys(console, 13), (Codes{224, 72, 224, 79, 0, 59, 224, 134, 13, 8, 19, 17, 'q'}))
      << "Ctrl+Q and Ctrl+S are keys, not flow control";
  pty.Type("\x1b");
  EXPECT_EQ(console.GetKey(), 27) << "a lone ESC arrives after the short wait";
  pty.Type("\x1b[5~");
  EXPECT_TRUE(WaitFor([&] { return console.KeyWaiting(); }));
  EXPECT_EQ(Keys(console, 2), (Codes{224, 73}));
  EXPECT_FALSE(console.KeyWaiting());

  pty.Type(
      "12x\x7f"
      "3\rk");
  EXPECT_EQ(Line(console), "123");
  EXPECT_EQ(console.GetKey(), 'k');
  const std::string shown = pty.ReadUntil("\n");
  EXPECT_EQ(shown.substr(0, 8), "12x\b \b3\r");
  EXPECT_EQ(shown.back(), '\n');
  EXPECT_EQ(shown.find('k'), std::string::npos) << "keys are not echoed";

  close(std::exchange(pty.master, -1));
  EXPECT_EQ(Keys(console, 2), (Codes{27, 27})) << "a hang-up reads as ESC";
  EXPECT_TRUE(console.KeyWaiting());
}

// ---- the program's console on its controlling terminal, in a child process ----

// body runs in a child whose controlling terminal and standard streams are the pty's slave.
class ChildOnPty {
 public:
  ChildOnPty(Pty& pty, const std::function<int()>& body) {
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      close(pty.master);
      if (login_tty(dup(pty.slave)) != 0) _exit(90);
      std::exit(body());
    }
    EXPECT_GT(pid_, 0);
  }
  ~ChildOnPty() {
    if (pid_ > 0 && !reaped_) kill(pid_, SIGKILL), Wait();
  }
  pid_t pid() const { return pid_; }
  // How the child ended: "exit <code>" or "signal <number>".
  std::string Wait() {
    int status = 0;
    if (waitpid(pid_, &status, 0) != pid_) return "not reaped";
    reaped_ = true;
    return WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                             : "signal " + std::to_string(WTERMSIG(status));
  }

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
};

int PrintKeysUntilQ() {
  for (int i = 0; i < 100; ++i) {
    const int key = GetKey();
    std::printf("[%d]", key);
    if (key == 'q') return 0;
  }
  return 1;
}

TEST(ConsolePtyProgram, EveryWayOutRestoresTheTerminal) {
  const struct {
    bool ignore_hang_up;  // as nohup leaves it
    int sent;             // once key mode is on, unless 0
    const char* typed;    // then
    const char *ended, *shown;
  } ways[] = {
      {false, 0, "a\x1b[Bq", "exit 0", "[97][224][80][113]"},
      {false, 0, "\x03", "signal 2", ""},  // Ctrl+C: SIGINT from the terminal
      {false, SIGTERM, "", "signal 15", ""},
      {false, SIGHUP, "", "signal 1", ""},
      {false, SIGQUIT, "", "signal 3", ""},
      {true, SIGHUP, "q", "exit 0", ""},  // an ignored hang-up stays ignored
  };
  for (const auto& way : ways) {
    SCOPED_TRACE(std::to_string(way.sent) + " " + way.ended);
    Pty pty;
    ChildOnPty child(pty, [&way] {
      if (way.ignore_hang_up) signal(SIGHUP, SIG_IGN);
      return PrintKeysUntilQ();
    });
    ASSERT_TRUE(pty.WaitForKeyMode());
    if (way.sent != 0) kill(child.pid(), way.sent);
    pty.Type(way.typed);
    EXPECT_EQ(child.Wait(), way.ended);
    EXPECT_TRUE(pty.IsOriginal());
    EXPECT_NE(pty.ReadUntil(way.shown).find(way.shown), std::string::npos);
  }
}

// Ctrl+Z needs a job-control shell around the program (a stopped job of an orphaned process
// group would be ignored by the kernel): the child plays the shell, the grandchild the program.
TEST(ConsolePtyProgram, StopGivesTheTerminalBackAndContinueTakesItAgain) {
  Pty pty;
  int pid_pipe[2];
  ASSERT_EQ(pipe(pid_pipe), 0);
  ChildOnPty shell(pty, [&pid_pipe] {
    signal(SIGTTOU, SIG_IGN);  // to hand the terminal to the job
    const pid_t job = fork();
    if (job == 0) {
      setpgid(0, 0);
      signal(SIGTTOU, SIG_DFL);
      return PrintKeysUntilQ();
    }
    setpgid(job, job);
    tcsetpgrp(STDIN_FILENO, job);
    (void)!write(pid_pipe[1], &job, sizeof job);
    int status = 0;
    while (waitpid(job, &status, 0) != job) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  });
  close(pid_pipe[1]);
  pid_t job = 0;
  ASSERT_EQ(read(pid_pipe[0], &job, sizeof job), static_cast<ssize_t>(sizeof job));
  close(pid_pipe[0]);

  ASSERT_TRUE(pty.WaitForKeyMode());
  pty.Type("\x1a");  // Ctrl+Z
  EXPECT_TRUE(WaitFor([&] { return pty.IsOriginal(); })) << "stopped with the terminal in key mode";
  kill(job, SIGCONT);
  EXPECT_TRUE(pty.WaitForKeyMode()) << "continued without key mode";
  pty.Type("xq");
  EXPECT_EQ(shell.Wait(), "exit 0");
  EXPECT_TRUE(pty.IsOriginal());
  EXPECT_NE(pty.ReadUntil("[113]").find("[120][113]"), std::string::npos);
}

}  // namespace
}  // namespace portwren::os
