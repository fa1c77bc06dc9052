#include "common/e2e_support.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace portwren::testkit {

namespace {

// Length of the text at `at` that has `shape`: 'd' a digit, 'h' a hexadecimal digit, '+' one or
// more digits, any other character itself; 0 when it does not match.
size_t ShapeAt(const std::string& text, size_t at, std::string_view shape) {
  const auto digit = [&text](size_t i, bool hex) {
    if (i >= text.size()) return false;
    const auto c = static_cast<unsigned char>(text[i]);
    return (hex ? std::isxdigit(c) : std::isdigit(c)) != 0;
  };
  size_t i = at;
  for (const char c : shape) {
    if (c == '+') {
      if (!digit(i, false)) return 0;
      while (digit(i, false)) ++i;
      continue;
    }
    const bool fits = c == 'd'   ? digit(i, false)
                      : c == 'h' ? digit(i, true)
                                 : i < text.size() && text[i] == c;
    if (!fits) return 0;
    ++i;
  }
  return i - at;
}

struct Scrub {
  const char* shape;
  const char* replacement;
};
// The date with milliseconds goes first: the one without is its start.
constexpr Scrub kScrubs[] = {
    {"[+.ddd]", "[T]"},
    {"[dddd-dd-dd_dd:dd:dd.ddd]", "[D.ms]"},
    {"[dddd-dd-dd_dd:dd:dd]", "[D]"},
    {"0xhhhhhhhhhhhhhhhh", "0xH"},
};

}  // namespace

// One pass by hand: the output of a repeating key runs to tens of megabytes.
std::string ScrubRunText(const std::string& text) {
  static constexpr std::string_view kCompiled = "compiled on ";
  std::string out;
  out.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    size_t skip = 0;
    for (const Scrub& scrub : kScrubs) {
      if (text[at] == scrub.shape[0] && (skip = ShapeAt(text, at, scrub.shape)) > 0) {
        out += scrub.replacement;
        break;
      }
    }
    if (skip == 0 && text[at] == 'c' && text.compare(at, kCompiled.size(), kCompiled) == 0) {
      if (const size_t end = text.find('\n', at); end != std::string::npos) {
        out += "compiled on D";
        skip = end - at;
      }
    }
    if (skip == 0) out += text[at++];
    at += skip;
  }
  return out;
}

std::string KeyPrompt(int n) {
  return "\n{" + std::to_string(n) + "}Again? 'R/r' read, 'W/r' write. More: 0,X,i,P,p,F,f,E,e,C,c,S,#,?\n";
}

std::string OpenedLines(const std::string& path) {
  return " [T] CreateFile('" + path + "') success. Handle=0xH \n" +
         "SetCommState() .Baudrate=115200 Success\n" +
         "Choose action: 'R/r' read, 'W/w' write, '?' help. <ESC> quit.\n";
}

const char kBanner[] = "Portwren version " PORTWREN_VERSION_STRING
                       ", compiled on D\n"
                       "Cannot get TRELLIS kernel version. WinErr=21(ERROR_NOT_READY)\n";
const char kEscLines[] = "Got '\x1b'.\n";
const char kClosedLines[] =
    " [T] Calling CloseHandle(0xH)...\n"
    " [T] Done    CloseHandle(0xH).\n";

ProcessResult PtyRunTest::Run(const std::vector<std::string>& args, const std::string& keys, int exit_code,
                              ProcessOptions options) {
  options.stdin_bytes = keys;
  options.env_unset.push_back("PORTWREN_PRINT_LESS");
  ProcessResult r = RunPortwren(args, options);
  r.out = ScrubRunText(r.out);
  EXPECT_TRUE(r.started) << r.error;
  EXPECT_FALSE(r.timed_out) << r.out;
  EXPECT_EQ(exit_code, r.exit_code) << r.out;
  return r;
}

void ExpectInOrder(const std::string& text, const std::vector<std::string>& pieces) {
  size_t at = 0;
  for (const std::string& piece : pieces) {
    const size_t found = text.find(piece, at);
    ASSERT_NE(std::string::npos, found) << "missing in order:\n" << piece << "\n--- in ---\n" << text;
    at = found + piece.size();
  }
}

bool WaitForInputQueue(const std::string& tty_path, int count, int timeout_ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    int queued = -1;
    if (const int fd = ::open(tty_path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); fd >= 0) {
      if (::ioctl(fd, FIONREAD, &queued) != 0) queued = -1;
      ::close(fd);
    }
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

void OutputWatch::Feed(const std::string& piece) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    text_ += piece;
  }
  grown_.notify_all();
}

std::function<void(const std::string&)> OutputWatch::Tap() {
  return [this](const std::string& piece) { Feed(piece); };
}

bool OutputWatch::WaitFor(const std::string& text, int timeout_ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  size_t found = std::string::npos;
  const bool seen = grown_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
    found = text_.find(text, searched_from_);
    return found != std::string::npos;
  });
  if (seen) searched_from_ = found + text.size();
  return seen;
}

void KeyPipe::Close() {
  if (write_fd_ >= 0) ::close(write_fd_);
  write_fd_ = -1;
}

ProcessResult RunPortwrenLineBuffered(const std::vector<std::string>& args, ProcessOptions options) {
  std::vector<std::string> line_buffered{"-oL", PORTWREN_EXE};
  line_buffered.insert(line_buffered.end(), args.begin(), args.end());
  // stdbuf's preload comes ahead of the sanitizer runtime, which refuses that unless told.
  const char* asan = std::getenv("ASAN_OPTIONS");
  options.env.emplace_back("ASAN_OPTIONS",
                           std::string(asan != nullptr ? asan : "") + ":verify_asan_link_order=0");
  return RunProcess("stdbuf", line_buffered, options);
}

}  // namespace portwren::testkit
