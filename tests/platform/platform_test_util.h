// Small helpers shared by the platform tests.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace portwren::testing_util {

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

}  // namespace portwren::testing_util
