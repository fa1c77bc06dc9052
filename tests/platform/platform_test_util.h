// Small helpers shared by the platform tests.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace portwren::testing_util {

// Waits until the condition holds; false after patience_ms (generous: machines are shared).
inline bool WaitFor(const std::function<bool()>& condition, int patience_ms = 10000) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// A fresh directory under /tmp, removed with everything in it at the end.
class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/portwren-test-XXXXXX";
    if (mkdtemp(pattern) != nullptr) path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A pipe whose read end is console input.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(fds_), 0); }
  ~Pipe() {
    CloseWriter();
    close(fds_[0]);
  }
  int reader() const { return fds_[0]; }
  void Write(const std::string& bytes) const {
    ASSERT_EQ(write(fds_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  void CloseWriter() {
    if (fds_[1] >= 0) close(fds_[1]);
    fds_[1] = -1;
  }
  // Everything until every writer has closed its end.
  std::string ReadAll() const {
    std::string all;
    char chunk[256];
    for (ssize_t got; (got = read(fds_[0], chunk, sizeof chunk)) > 0;)
      all.append(chunk, static_cast<size_t>(got));
    return all;
  }

 private:
  int fds_[2] = {-1, -1};
};

// The next count keys of a console or key reader.
template <typename Reader>
std::vector<int> Keys(Reader& reader, int count) {
  std::vector<int> keys;
  for (int i = 0; i < count; ++i) keys.push_back(reader.GetKey());
  return keys;
}

// A line read as text: the line, or "<end>" and whatever the failed read left in the buffer
// (which must be emptied).
template <typename Reader>
std::string Line(Reader& reader, int capacity = 100) {
  std::vector<char> buffer(static_cast<size_t>(capacity) + 1, 'J');
  const bool ok = reader.ReadLine(buffer.data(), capacity);
  const std::string text(buffer.data(), strnlen(buffer.data(), static_cast<size_t>(capacity)));
  return ok ? text : "<end>" + text;
}

}  // namespace portwren::testing_util
