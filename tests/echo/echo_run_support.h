// For the echo tests that run the built program: a working folder per test, and a program run in
// the background with keys typed while it runs and its output watched.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"

namespace portwren::echotest {

constexpr int kWaitMs = 15000;

// A fresh folder named for the running test, removed at the end.
class WorkDir {
 public:
  WorkDir() {
    std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(name.begin(), name.end(), '/', '_');
    path_ = testing::TempDir() + "portwren_echo_" + std::to_string(::getpid()) + "_" + name;
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~WorkDir() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The words of `line`, split at spaces.
inline std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  for (size_t at = 0; at < line.size();) {
    const size_t end = std::min(line.find(' ', at), line.size());
    if (end > at) words.push_back(line.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

// The built program (or another), run in the background in `dir`.
class Background {
 public:
  Background(const std::string& program, const std::vector<std::string>& args, const std::string& dir) {
    testkit::ProcessOptions options;
    options.stdin_fd = keys_.read_fd();
    options.working_dir = dir;
    options.on_out = watch_.Tap();
    options.env_unset.push_back("PORTWREN_PRINT_LESS");
    runner_ = std::thread(
        [this, program, args, options] { result_ = testkit::RunProcess(program, args, options); });
  }
  ~Background() { Finish(); }
  bool Type(const std::string& keys) { return keys_.Type(keys); }
  bool WaitFor(const std::string& text) { return watch_.WaitFor(text, kWaitMs); }
  // Ends the keys (ESC to the program, the end to the relay) and waits for the run, which must end
  // by itself with 0 (a sanitizer's report changes it); the output comes back scrubbed.
  const testkit::ProcessResult& Finish() {
    keys_.Close();
    if (runner_.joinable()) {
      runner_.join();
      result_.out = testkit::ScrubRunText(result_.out);
      EXPECT_FALSE(result_.timed_out);
      EXPECT_EQ(0, result_.exit_code) << result_.out << result_.err;
    }
    return result_;
  }

 private:
  testkit::KeyPipe keys_;
  testkit::OutputWatch watch_;
  std::thread runner_;
  testkit::ProcessResult result_;
};

}  // namespace portwren::echotest
