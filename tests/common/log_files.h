// Log files for the tests: one per process and test, read back whole.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

namespace portwren::testlog {

inline std::string TempLogPath(const std::string& stem) {
  std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
  for (char& c : test) c = c == '/' ? '_' : c;  // parameterised names hold a slash
  return testing::TempDir() + "portwren_" + stem + "_" + std::to_string(::getpid()) + "_" + test + ".log";
}

inline std::string FileText(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// A record's time, [yyyymmdd.hhmmss.mmm], becomes [S].
inline std::string ScrubStamps(const std::string& text) {
  return std::regex_replace(text, std::regex(R"(\[\d{8}\.\d{6}\.\d{3}\])"), "[S]");
}

}  // namespace portwren::testlog
