// Shared by the monitor tests: standard output sent to a file that the test reads while the
// background threads still print, so a test can wait for a line before it acts; and a guard
// that keeps a stop which does not end from hanging the test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>
#include <string>
#include <thread>

#include "port/port_test_support.h"

namespace portwren::monitortest {

using porttest::Scrub;

// Waits until the condition holds; false after 10 s.
inline bool WaitUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

class OutputTap {
 public:
  OutputTap() {
    std::fflush(stdout);
    char pattern[] = "/tmp/portwren-monitor-out-XXXXXX";
    const int fd = ::mkstemp(pattern);
    if (fd < 0) return;
    path_ = pattern;
    saved_ = ::dup(STDOUT_FILENO);
    ::dup2(fd, STDOUT_FILENO);
    ::close(fd);
  }
  ~OutputTap() { Stop(); }

  // Everything printed so far, stamps scrubbed.
  std::string Text() {
    std::fflush(stdout);
    std::ifstream file(path_, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return Scrub(text.str());
  }

  // Waits until `piece` has been printed `count` times; false after 10 s.
  bool WaitFor(const std::string& piece, int count = 1) {
    return WaitUntil([&] { return Occurrences(Text(), piece) >= count; });
  }

  // Puts standard output back and returns what was printed.
  std::string Stop() {
    if (saved_ < 0) return text_;
    text_ = Text();
    ::dup2(saved_, STDOUT_FILENO);
    ::close(saved_);
    saved_ = -1;
    ::unlink(path_.c_str());
    return text_;
  }

  static int Occurrences(const std::string& text, const std::string& piece) {
    int count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size()))
      ++count;
    return count;
  }

 private:
  std::string path_;
  int saved_ = -1;
  std::string text_;
};

// Runs `stop` on this thread (its lines keep their mark); if it has not returned after 10 s,
// a watchdog runs `rescue`, which must make it return, and the result is false.
inline bool EndsByItself(const std::function<void()>& stop, const std::function<void()>& rescue) {
  std::promise<void> finished;
  std::future<void> done = finished.get_future();
  bool rescued = false;
  std::thread watchdog([&] {
    if (done.wait_for(std::chrono::seconds(10)) == std::future_status::ready) return;
    rescued = true;
    rescue();
  });
  stop();
  finished.set_value();
  watchdog.join();
  return !rescued;
}

// The lines of one thread (by their mark), in order.
inline std::string LinesMarked(const std::string& text, char mark) {
  std::istringstream lines(text);
  std::string out;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line[0] == mark) out += line + "\n";
  }
  return out;
}

}  // namespace portwren::monitortest
