#include "common/e2e_support.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

namespace portwren::testkit {

namespace {

// Length of the digits (or, with `hex`, hexadecimal digits) at text[at], at most `most`.
size_t DigitsAt(const std::string& text, size_t at, size_t most, bool hex = false) {
  size_t n = 0;
  while (n < most && at + n < text.size() &&
         (hex ? std::isxdigit(static_cast<unsigned char>(text[at + n])) != 0
              : std::isdigit(static_cast<unsigned char>(text[at + n])) != 0)) {
    ++n;
  }
  return n;
}

bool CharAt(const std::string& text, size_t at, char c) {
  return at < text.size() && text[at] == c;
}

// At a '[': the length of a tick stamp "[s.mmm]", else 0.
size_t TickStampAt(const std::string& text, size_t at) {
  const size_t seconds = DigitsAt(text, at + 1, std::string::npos);
  if (seconds == 0 || !CharAt(text, at + 1 + seconds, '.')) return 0;
  const size_t end = at + 2 + seconds;
  return DigitsAt(text, end, 3) == 3 && CharAt(text, end + 3, ']') ? end + 4 - at : 0;
}

// At a '[': the length of a date stamp "[yyyy-mm-dd_hh:mm:ss]" or "[yyyy-mm-dd_hh:mm:ss.mmm]", else 0;
// `with_ms` tells which.
size_t DateStampAt(const std::string& text, size_t at, bool* with_ms) {
  static constexpr char kShape[] = "dddd-dd-dd_dd:dd:dd";
  size_t i = at + 1;
  for (const char* c = kShape; *c != '\0'; ++c, ++i) {
    if (*c == 'd' ? DigitsAt(text, i, 1) != 1 : !CharAt(text, i, *c)) return 0;
  }
  *with_ms = CharAt(text, i, '.') && DigitsAt(text, i + 1, 3) == 3;
  if (*with_ms) i += 4;
  return CharAt(text, i, ']') ? i + 1 - at : 0;
}

}  // namespace

// One pass by hand: the output of a repeating key runs to tens of megabytes.
std::string ScrubRunText(const std::string& text) {
  static constexpr char kCompiled[] = "compiled on ";
  std::string out;
  out.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    if (text[at] == '[') {
      bool with_ms = false;
      if (const size_t n = TickStampAt(text, at); n > 0) {
        out += "[T]";
        at += n;
        continue;
      }
      if (const size_t n = DateStampAt(text, at, &with_ms); n > 0) {
        out += with_ms ? "[D.ms]" : "[D]";
        at += n;
        continue;
      }
    } else if (text.compare(at, 2, "0x") == 0 && DigitsAt(text, at + 2, 16, true) == 16) {
      out += "0xH";
      at += 18;
      continue;
    } else if (text.compare(at, sizeof kCompiled - 1, kCompiled) == 0) {
      const size_t end = text.find('\n', at);
      if (end != std::string::npos) {
        out += "compiled on D";
        at = end;
        continue;
      }
    }
    out += text[at++];
  }
  return out;
}

std::string KeyPrompt(int n) {
  char text[128];
  std::snprintf(text, sizeof text,
                "\n{%d}Again? 'R/r' read, 'W/r' write. More: 0,X,i,P,p,F,f,E,e,C,c,S,#,?\n", n);
  return text;
}

std::string OpenedLines(const std::string& path, const char* suffix) {
  return " [T] CreateFile('" + path + "') success. Handle=0xH" + suffix + "\n" +
         "SetCommState() .Baudrate=115200 Success\n" +
         "Choose action: 'R/r' read, 'W/w' write, '?' help. <ESC> quit.\n";
}

const char kClosedLines[] =
    " [T] Calling CloseHandle(0xH)...\n"
    " [T] Done    CloseHandle(0xH).\n";

ProcessResult RunKeyed(const std::vector<std::string>& args, ProcessOptions options) {
  options.env_unset.push_back("PORTWREN_PRINT_LESS");
  ProcessResult result = RunPortwren(args, options);
  result.out = ScrubRunText(result.out);
  return result;
}

int InputQueued(const std::string& tty_path) {
  const int fd = ::open(tty_path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  int queued = 0;
  if (::ioctl(fd, FIONREAD, &queued) != 0) queued = -1;
  ::close(fd);
  return queued;
}

bool WaitForInputQueue(const std::string& tty_path, int count, int timeout_ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    const int queued = InputQueued(tty_path);
    if (queued == count) return true;
    if (queued < 0 || std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

KeyPipe::KeyPipe() {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return;
  read_fd_ = fds[0];
  write_fd_ = fds[1];
}

KeyPipe::~KeyPipe() {
  Close();
  if (read_fd_ >= 0) ::close(read_fd_);
}

bool KeyPipe::Type(std::string_view keys) {
  while (!keys.empty()) {
    const ssize_t put = ::write(write_fd_, keys.data(), keys.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    keys.remove_prefix(static_cast<size_t>(put));
  }
  return true;
}

void KeyPipe::Close() {
  if (write_fd_ >= 0) ::close(write_fd_);
  write_fd_ = -1;
}

}  // namespace portwren::testkit
