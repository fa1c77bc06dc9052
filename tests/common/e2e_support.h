// Helpers for the tests that run the built program on one end of a pseudo-terminal with keys on
// standard input: the texts every run prints, scrubbing what differs from run to run, a key pipe
// typed into while the program runs, a look at the terminal's input queue, and the fixture.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "common/pty_pair.h"
#include "common/run_program.h"

namespace portwren::testkit {

// Tick stamps become [T], date stamps [D] or [D.ms], handles 0xH, the build date D.
std::string ScrubRunText(const std::string& text);

// The prompt printed after the n-th key.
std::string KeyPrompt(int n);

// From the open line through "Choose action" for a port opened with the default baud rate.
std::string OpenedLines(const std::string& path);

// The first lines of every run, scrubbed: the banner and the kernel version of a missing driver.
extern const char kBanner[];
// What ESC prints: the key, then the port closing.
extern const char kEscLines[];
extern const char kClosedLines[];

// Each piece must appear in `text`, each after the one before.
void ExpectInOrder(const std::string& text, const std::vector<std::string>& pieces);

// Waits until exactly `count` bytes wait at the terminal, seen through a descriptor of its own;
// false when that did not happen in time.
bool WaitForInputQueue(const std::string& tty_path, int count, int timeout_ms);

// A pipe that is the program's standard input, typed into while the program runs.
class KeyPipe {
 public:
  KeyPipe();
  ~KeyPipe();
  KeyPipe(const KeyPipe&) = delete;
  KeyPipe& operator=(const KeyPipe&) = delete;

  bool ok() const { return read_fd_ >= 0; }
  // For ProcessOptions::stdin_fd.
  int read_fd() const { return read_fd_; }
  bool Type(std::string_view keys);
  // End of input: the program then reads ESC.
  void Close();

 private:
  int read_fd_ = -1;
  int write_fd_ = -1;
};

// What a running program printed so far, fed by ProcessOptions::on_out; a test waits for a line
// before it acts on the line's far end.
class OutputWatch {
 public:
  void Feed(const std::string& piece);
  // For ProcessOptions::on_out; the watch must outlive the run.
  std::function<void(const std::string&)> Tap();
  // Waits until `text` appears after what the previous successful wait found; false on timeout.
  bool WaitFor(const std::string& text, int timeout_ms);

 private:
  std::mutex mutex_;
  std::condition_variable grown_;
  std::string text_;
  size_t searched_from_ = 0;
};

// Runs the built program with its standard output line-buffered (stdbuf), so that a watch sees each
// line while a request is still pending; also in the sanitizer builds.
ProcessResult RunPortwrenLineBuffered(const std::vector<std::string>& args, ProcessOptions options = {});

// Runs the program on one end of a pseudo-terminal pair; the test holds the far end.
class PtyRunTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(pty_.ok()) << "no pseudo-terminal"; }

  // Runs the built program with `keys` on standard input unless `options` names a descriptor, and
  // PORTWREN_PRINT_LESS unset unless `options.env` sets it; expects the run to end by itself with
  // `exit_code`. The output comes back scrubbed.
  ProcessResult Run(const std::vector<std::string>& args, const std::string& keys, int exit_code = 0,
                    ProcessOptions options = {});

  const std::string& port() const { return pty_.slave_path(); }

  PtyPair pty_;
};

}  // namespace portwren::testkit
