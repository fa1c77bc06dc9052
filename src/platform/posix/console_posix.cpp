#include "platform/posix/console_posix.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "platform/os_core.h"

namespace portwren::os {

int FdStream::Read(int wait_ms) {
  if (begin_ < end_) return buffer_[begin_++];
  if (ended_) return kEnd;
  const Dword start = GetTickCount();
  for (;;) {
    int timeout = wait_ms;
    if (wait_ms > 0) {
      const Dword elapsed = GetTickCount() - start;
      timeout = elapsed >= static_cast<Dword>(wait_ms) ? 0 : wait_ms - static_cast<int>(elapsed);
    }
    pollfd ready{fd_, POLLIN, 0};
    const int polled = poll(&ready, 1, timeout < 0 ? -1 : timeout);
    if (polled < 0) {
      if (errno == EINTR) continue;
      ended_ = true;
      return kEnd;
    }
    if (polled == 0) return kNothing;
    const ssize_t got = read(fd_, buffer_, sizeof buffer_);
    if (got > 0) {
      begin_ = 1;
      end_ = static_cast<size_t>(got);
      return buffer_[0];
    }
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
      if (timeout == 0) return kNothing;
      continue;
    }
    // End of file, a hung-up terminal or a read error: no more input will come.
    ended_ = true;
    return kEnd;
  }
}

void FdStream::Echo(const char* text, size_t length) {
  while (length > 0) {
    const ssize_t put = write(fd_, text, length);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return;  // nowhere to show it; the line itself is still read
    text += put;
    length -= static_cast<size_t>(put);
  }
}

termios KeyModeOf(const termios& cooked) {
  termios keys = cooked;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHOE | ECHOK | ECHONL | IEXTEN);
  keys.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR | IXON | ISTRIP);
  keys.c_cc[VMIN] = 1;
  keys.c_cc[VTIME] = 0;
  return keys;
}

PosixConsole::PosixConsole(int fd) : fd_(fd), stream_(fd), stream_keys_(stream_), terminal_keys_(stream_) {
  terminal_ = isatty(fd) == 1 && tcgetattr(fd, &cooked_) == 0;
  if (terminal_) keys_ = KeyModeOf(cooked_);
}

void PosixConsole::EnterKeyMode() {
  if (!terminal_ || key_mode_) return;
  key_mode_ = 1;
  tcsetattr(fd_, TCSANOW, &keys_);
}

void PosixConsole::Restore() {
  if (!key_mode_) return;
  key_mode_ = 0;
  tcsetattr(fd_, TCSANOW, &cooked_);
}

int PosixConsole::GetKey() {
  if (!terminal_) return stream_keys_.GetKey();
  EnterKeyMode();
  return terminal_keys_.GetKey();
}

bool PosixConsole::KeyWaiting() {
  if (!terminal_) return stream_keys_.KeyWaiting();
  EnterKeyMode();
  return terminal_keys_.KeyWaiting();
}

bool PosixConsole::ReadLine(char* buffer, int capacity) {
  if (!terminal_) return stream_keys_.ReadLine(buffer, capacity);
  EnterKeyMode();
  return terminal_keys_.ReadLine(buffer, capacity);
}

}  // namespace portwren::os
