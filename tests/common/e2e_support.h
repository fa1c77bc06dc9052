// Helpers for the tests that run the built program on one end of a pseudo-terminal with keys on
// standard input: the texts every run prints, scrubbing what differs from run to run, a key pipe
// typed into while the program runs, and a look at the terminal's input queue.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/run_program.h"

namespace portwren::testkit {

// Tick stamps become [T], date stamps [D] or [D.ms], handles 0xH, the build date D.
std::string ScrubRunText(const std::string& text);

// The prompt printed after the n-th key.
std::string KeyPrompt(int n);

// From the open line through "Choose action" for a port opened with the default baud rate;
// `suffix` ends the open line (" " read/write, " (read-only!)" read-only).
std::string OpenedLines(const std::string& path, const char* suffix = " ");

// What ESC prints when it closes the port.
extern const char kClosedLines[];

// Runs the built program with PORTWREN_PRINT_LESS unset, so the summary shows; `options` says
// where the keys come from. The output comes back scrubbed.
ProcessResult RunKeyed(const std::vector<std::string>& args, ProcessOptions options);

// Bytes waiting to be read at a terminal, seen through a descriptor of its own; -1 when the
// terminal cannot be opened.
int InputQueued(const std::string& tty_path);
// Waits until exactly `count` bytes wait at the terminal; false when that did not happen in time.
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

}  // namespace portwren::testkit
