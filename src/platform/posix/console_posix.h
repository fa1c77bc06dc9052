// Console input on a POSIX descriptor. The program uses the one on standard input through
// os_console.h; tests make their own on a pipe or a pseudo-terminal.
#pragma once

#include <signal.h>
#include <termios.h>

#include <cstddef>

#include "platform/console_keys.h"

namespace portwren::os {

// Bytes from a descriptor, waiting with poll; echo goes back to the same descriptor (a
// terminal shows typed text where it was typed, whatever standard output is).
class FdStream final : public ConsoleStream {
 public:
  explicit FdStream(int fd) : fd_(fd) {}

  int Read(int wait_ms) override;
  void Echo(const char* text, size_t length) override;

 private:
  int fd_;
  unsigned char buffer_[256];
  size_t begin_ = 0;
  size_t end_ = 0;
  bool ended_ = false;
};

// The terminal mode for single keys: no line editing, no echo, Enter stays CR, Ctrl+S and
// Ctrl+Q reach the program; Ctrl+C still raises SIGINT and output processing is kept.
termios KeyModeOf(const termios& cooked);

class PosixConsole {
 public:
  explicit PosixConsole(int fd);
  ~PosixConsole() { Restore(); }
  PosixConsole(const PosixConsole&) = delete;
  PosixConsole& operator=(const PosixConsole&) = delete;

  bool IsTerminal() const { return terminal_; }
  bool InKeyMode() const { return key_mode_ != 0; }

  // On a terminal each of these switches to single-key mode first.
  int GetKey();
  bool KeyWaiting();
  bool ReadLine(char* buffer, int capacity);
  bool InputEnded() const { return terminal_ ? terminal_keys_.Ended() : stream_keys_.Ended(); }

  void EnterKeyMode();
  // Back to the mode found at construction. Safe in a signal handler.
  void Restore();

 private:
  int fd_;
  bool terminal_ = false;
  termios cooked_{};
  termios keys_{};
  volatile sig_atomic_t key_mode_ = 0;
  FdStream stream_;
  StreamKeys stream_keys_;
  TerminalKeys terminal_keys_;
};

}  // namespace portwren::os
