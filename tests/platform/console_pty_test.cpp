// Console input on a real terminal (a pseudo-terminal): single-key mode and its flags, keys as
// the terminal sends them, the edited line read, and the terminal's own mode back on every way
// out of the program (normal exit, SIGTERM, SIGHUP, Ctrl+C, Ctrl+Z and fg).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
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

#include "platform/os_console.h"
#include "platform/posix/console_posix.h"

namespace portwren::os {
namespace {

using Clock = std::chrono::steady_clock;
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
  bool IsOriginal() const { return SameMode(Mode(), original_); }

  static bool SameMode(const termios& a, const termios& b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
  }

  // Waits until the condition holds; false after kPatience.
  static bool WaitFor(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + kPatience;
    while (!condition()) {
      if (Clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
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

std::vector<int> Keys(PosixConsole& console, int count) {
  std::vector<int> keys;
  for (int i = 0; i < count; ++i) keys.push_back(console.GetKey());
  return keys;
}

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
  EXPECT_EQ(Keys(console, 19),
            (std::vector<int>{224, 72, 224, 80, 224, 77, 224, 75, 224, 71, 224, 79, 0, 59, 224, 134, 13, 8, 19}));
  EXPECT_EQ(Keys(console, 2), (std::vector<int>{17, 'q'})) << "Ctrl+Q and Ctrl+S are keys, not flow control";

  pty.Type("\x1b");
  EXPECT_EQ(console.GetKey(), 27) << "a lone ESC arrives after the short wait";
  pty.Type("\x1b[5~");
  EXPECT_TRUE(Pty::WaitFor([&] { return console.KeyWaiting(); }));
  EXPECT_EQ(console.GetKey(), 224);
  EXPECT_TRUE(console.KeyWaiting());
  EXPECT_EQ(console.GetKey(), 73);
  EXPECT_FALSE(console.KeyWaiting());
}

TEST(ConsolePty, LineReadShowsWhatIsTyped) {
  Pty pty;
  PosixConsole console(pty.slave());
  console.EnterKeyMode();
  pty.Type("12x\x7f" "3\r" "k");
  char line[100];
  ASSERT_TRUE(console.ReadLine(line, sizeof line));
  EXPECT_STREQ(line, "123");
  EXPECT_EQ(console.GetKey(), 'k');
  const std::string shown = pty.ReadUntil("\n");
  EXPECT_EQ(shown.substr(0, 8), "12x\b \b3\r");
  EXPECT_EQ(shown.back(), '\n');
  EXPECT_EQ(shown.find('k'), std::string::npos) << "keys are not echoed";
}

TEST(ConsolePty, HungUpTerminalReadsAsEsc) {
  Pty pty;
  PosixConsole console(pty.slave());
  console.EnterKeyMode();
  pty.Type("a");
  EXPECT_EQ(console.GetKey(), 'a');
  pty.HangUp();
  EXPECT_EQ(console.GetKey(), 27);
  EXPECT_EQ(console.GetKey(), 27);
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

  int Wait() {
    int status = 0;
    if (waitpid(pid_, &status, 0) == pid_) reaped_ = true;
    return status;
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

TEST(ConsolePtyProgram, NormalExitRestoresTheTerminal) {
  Pty pty;
  ChildOnPty child(pty, PrintKeysUntilQ);
  ASSERT_TRUE(Pty::WaitFor([&] { return pty.InKeyMode(); }));
  pty.Type("a\x1b[Bq");
  const int status = child.Wait();
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(pty.IsOriginal());
  EXPECT_NE(pty.ReadUntil("[113]").find("[97][224][80][113]"), std::string::npos);
}

TEST(ConsolePtyProgram, EndingSignalsRestoreTheTerminalAndStillEndIt) {
  for (const int signal_number : {SIGTERM, SIGHUP, SIGQUIT}) {
    SCOPED_TRACE(strsignal(signal_number));
    Pty pty;
    ChildOnPty child(pty, PrintKeysUntilQ);
    ASSERT_TRUE(Pty::WaitFor([&] { return pty.InKeyMode(); }));
    kill(child.pid(), signal_number);
    const int status = child.Wait();
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), signal_number);
    EXPECT_TRUE(pty.IsOriginal());
  }
}

TEST(ConsolePtyProgram, CtrlCEndsTheProgramAndRestoresTheTerminal) {
  Pty pty;
  ChildOnPty child(pty, PrintKeysUntilQ);
  ASSERT_TRUE(Pty::WaitFor([&] { return pty.InKeyMode(); }));
  pty.Type("\x03");
  const int status = child.Wait();
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(WTERMSIG(status), SIGINT);
  EXPECT_TRUE(pty.IsOriginal());
}

TEST(ConsolePtyProgram, AnIgnoredHangUpStaysIgnored) {
  Pty pty;
  ChildOnPty child(pty, [] {
    signal(SIGHUP, SIG_IGN);  // as nohup leaves it
    return PrintKeysUntilQ();
  });
  ASSERT_TRUE(Pty::WaitFor([&] { return pty.InKeyMode(); }));
  kill(child.pid(), SIGHUP);
  pty.Type("q");
  const int status = child.Wait();
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(pty.IsOriginal());
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

  ASSERT_TRUE(Pty::WaitFor([&] { return pty.InKeyMode(); }));
  pty.Type("\x1a");  // Ctrl+Z
  EXPECT_TRUE(Pty::WaitFor([&] { return pty.IsOriginal(); })) << "stopped with the terminal in key mode";
  kill(job, SIGCONT);
  EXPECT_TRUE(Pty::WaitFor([&] { return pty.InKeyMode(); })) << "continued without key mode";
  pty.Type("xq");
  const int status = shell.Wait();
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(pty.IsOriginal());
  EXPECT_NE(pty.ReadUntil("[113]").find("[120][113]"), std::string::npos);
}

}  // namespace
}  // namespace portwren::os
