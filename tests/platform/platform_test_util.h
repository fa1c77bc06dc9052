// Small helpers shared by the platform tests.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/os_core.h"

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

// 0 for a call that succeeded, else its last error.
inline os::Dword ErrorOf(bool ok) {
  return ok ? 0 : os::GetLastError();
}

// A fresh directory in the system's temporary folder, removed with everything in it at the end.
class TempDir {
 public:
  TempDir() {
    std::error_code ec;
    const std::filesystem::path base = std::filesystem::temp_directory_path(ec);
    std::random_device random;
    for (int attempt = 0; !ec && attempt < 100 && path_.empty(); ++attempt) {
      const std::filesystem::path candidate = base / ("portwren-test-" + std::to_string(random()));
      if (std::filesystem::create_directory(candidate, ec)) path_ = candidate.string();
    }
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

// The next count keys of a console or key reader.
template <typename Reader>
std::vector<int> Keys(Reader& reader, int count) {
  std::vector<int> keys;
  for (int i = 0; i < count; ++i) keys.push_back(reader.GetKey());
  return keys;
}

// A line read as text: the line, or "<end>" and what the failed read left in the buffer.
template <typename Reader>
std::string Line(Reader& reader, int capacity = 100) {
  std::vector<char> buffer(static_cast<size_t>(capacity) + 1, 'J');
  const bool ok = reader.ReadLine(buffer.data(), capacity);
  const std::string text(buffer.data(), strnlen(buffer.data(), static_cast<size_t>(capacity)));
  return ok ? text : "<end>" + text;
}

}  // namespace portwren::testing_util
