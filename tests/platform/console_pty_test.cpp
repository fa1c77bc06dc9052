// Console input on a real terminal (a pseudo-terminal): single-key mode and its flags, keys as
// the terminal sends them, the edited line read, and the terminal's own mode back on every way
// out of the program (normal exit, SIGTERM, SIGHUP, Ctrl+C, Ctrl+Z and fg).
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
#include <vector>

#include "platform/os_console.h"
#include "platform/posix/console_posix.h"
#include "platform_test_util.h"

namespace portwren::os {
namespace {

using Clock = std::chrono::steady_clock;
using testing_util::Keys;
using testing_util::Line;
using testing_util::WaitFor;
constexpr auto kPatience = std::chrono::seconds(10);  // shared machines can be slow

class Pty {
 public:
  Pty() {
    EXPECT_EQ(openpty(&master_, &slave_, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(tcgetattr(slave_, &original_), 0);
  }
  ~Pty() {
    if (master_ >= 0) close(master_);
    close(slave_);
  }
  int master() const { return master_; }
  int slave() const { return slave_; }
  const termios& original() const { return original_; }

  void Type(const std::string& bytes) const {
    ASSERT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void HangUp() {
    close(master_);
    master_ = -1;
  }

  termios Mode() const {
    termios mode{};
    tcgetattr(slave_, &mode);
    return mode;
  }
  bool InKeyMode() const { return (Mode().c_lflag & ICANON) == 0; }
  bool IsOriginal() const {
    const termios now = Mode();
    return now.c_iflag == original_.c_iflag && now.c_oflag == original_.c_oflag &&
           now.c_cflag == original_.c_cflag && now.c_lflag == original_.c_lflag &&
           std::memcmp(now.c_cc, original_.c_cc, sizeof now.c_cc) == 0;
  }
  bool WaitForKeyMode() const {
    return WaitFor([this] { return InKeyMode(); });
  }

  // What the terminal shows, read until it contains `expected` (or kPatience ran out).
  std::string ReadUntil(const std::string& expected) {
    const auto deadline = Clock::now() + kPatience;
    while (shown_.find(expected) == std::string::npos && Clock::now() < deadline) {
      pollfd ready{master_, POLLIN, 0};
      if (poll(&ready, 1, 20) <= 0) continue;
      char chunk[256];
      const ssize_t got = read(master_, chunk, sizeof chunk);
      if (got <= 0) break;
      shown_.append(chunk, static_cast<size_t>(got));
    }
    return shown_;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
  termios original_{};
  std::string shown_;
};

TEST(ConsolePty, SingleKeyModeOnFirstUseAndBackAfter) {
  Pty pty;
  {
    PosixConsole console(pty.slave());
    ASSERT_TRUE(console.IsTerminal());
    EXPECT_TRUE(pty.IsOriginal()) << "nothing changes before the first key is asked for";
    EXPECT_FALSE(console.KeyWaiting());
    ASSERT_TRUE(console.InKeyMode());

    const termios mode = pty.Mode();
    EXPECT_EQ(mode.c_lflag & (ICANON | ECHO | IEXTEN), 0u);
    EXPECT_NE(mode.c_lflag & ISIG, 0u) << "Ctrl+C must still end the program";
    EXPECT_EQ(mode.c_iflag & (ICRNL | INLCR | IGNCR | IXON), 0u);
    EXPECT_EQ(mode.c_oflag, pty.original().c_oflag) << "output keeps its line-end processing";
    EXPECT_EQ(mode.c_cc[VMIN], 1);

    console.Restore();
    EXPECT_TRUE(pty.IsOriginal());
    EXPECT_FALSE(console.KeyWaiting());
    EXPECT_TRUE(pty.InKeyMode()) << "the next key read switches again";
    pty.Type("z");
    EXPECT_EQ(console.GetKey(), 'z');
  }
  EXPECT_TRUE(pty.IsOriginal()) << "the console puts the terminal back when it goes";
}

// Bytes typed before key mode would be echoed and turned by the terminal itself on arrival,
// so each test switches first.
TEST(ConsolePty, KeysAsTheTerminalSendsThem) {
  Pty pty;
  PosixConsole console(pty.slave());
  console.EnterKeyMode();
  pty.Type("\x1b[A\x1b[B\x1b[C\x1b[D\x1b[1~\x1b[4~\x1bOP\x1b[24~\x1b[2;5A\r\x7f\x13\x11q");
  EXPECT_EQ(Keys(console, 19), (std::vector<int>{224, 72, 224, 80, 224, 77, 224, 75, 224, 71, 224, 79, 0, 59,
                                                 224, 134, 13, 8, 19}));
  EXPECT_EQ(Keys(console, 2), (std::vector<int>{17, 'q'})) << "Ctrl+Q and Ctrl+S are keys, not flow control";

  pty.Type("\x1b");
  EXPECT_EQ(console.GetKey(), 27) << "a lone ESC arrives after the short wait";
  pty.Type("\x1b[5~");
  EXPECT_TRUE(WaitFor([&] { return console.KeyWaiting(); }));
  EXPECT_EQ(Keys(console, 2), (std::vector<int>{224, 73}));
  EXPECT_FALSE(console.KeyWaiting());
}

TEST(ConsolePty, LineReadShowsWhatIsTypedAndAHangUpReadsAsEsc) {
  Pty pty;
  PosixConsole console(pty.slave());
  console.EnterKeyMode();
  pty.Type(
      "12x\x7f"
      "3\r"
      "k");
  EXPECT_EQ(Line(console), "123");
  EXPECT_EQ(console.GetKey(), 'k');
  const std::string shown = pty.ReadUntil("\n");
  EXPECT_EQ(shown.substr(0, 8), "12x\b \b3\r");
  EXPECT_EQ(shown.back(), '\n');
  EXPECT_EQ(shown.find('k'), std::string::npos) << "keys are not echoed";

  pty.HangUp();
  EXPECT_EQ(Keys(console, 2), (std::vector<int>{27, 27}));
  EXPECT_TRUE(console.KeyWaiting());
}

// ---- the program's console on its controlling terminal, in a child process ----

class ChildOnPty {
 public:
  // body runs in a child whose controlling terminal and standard streams are the pty's slave.
  explicit ChildOnPty(Pty& pty, const std::function<int()>& body) {
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      close(pty.master());
      if (login_tty(dup(pty.slave())) != 0) _exit(90);
      std::exit(body());
    }
    EXPECT_GT(pid_, 0);
  }
  ~ChildOnPty() {
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGKILL);
      Wait();
    }
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

int IgnoreHangUpThenPrintKeys() {
  signal(SIGHUP, SIG_IGN);  // as nohup leaves it
  return PrintKeysUntilQ();
}

TEST(ConsolePtyProgram, EveryWayOutRestoresTheTerminal) {
  const struct {
    int (*body)();
    int sent;           // once key mode is on, unless 0
    const char* typed;  // then
    const char* ended;
    const char* shown;
  } ways[] = {
      {PrintKeysUntilQ, 0, "a\x1b[Bq", "exit 0", "[97][224][80][113]"},
      {PrintKeysUntilQ, 0, "\x03", "signal 2", ""},  // Ctrl+C: SIGINT from the terminal
      {PrintKeysUntilQ, SIGTERM, "", "signal 15", ""},
      {PrintKeysUntilQ, SIGHUP, "", "signal 1", ""},
      {PrintKeysUntilQ, SIGQUIT, "", "signal 3", ""},
      {IgnoreHangUpThenPrintKeys, SIGHUP, "q", "exit 0", ""},  // an ignored hang-up stays ignored
  };
  for (const auto& way : ways) {
    SCOPED_TRACE(std::to_string(way.sent) + " " + way.ended);
    Pty pty;
    ChildOnPty child(pty, way.body);
    ASSERT_TRUE(pty.WaitForKeyMode());
    if (way.sent != 0) kill(child.pid(), way.sent);
    pty.Type(way.typed);
    EXPECT_EQ(child.Wait(), way.ended);
    EXPECT_TRUE(pty.IsOriginal());
    if (*way.shown) {
      EXPECT_NE(pty.ReadUntil(way.shown).find(way.shown), std::string::npos);
    }
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
