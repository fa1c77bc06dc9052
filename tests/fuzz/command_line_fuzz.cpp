// The command-line parser on argument vectors from the input: NUL-separated words after the
// program name. Its messages go to a sink; every vector must come back with an answer.
#include <cstdio>
#include <string>
#include <vector>

#include "console/command_line.h"
#include "support/run_settings.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> words{"portwren"};
  std::string word;
  for (size_t i = 0; i < size && words.size() < 40; ++i) {
    if (data[i] == 0) {
      words.push_back(word);
      word.clear();
    } else {
      word += static_cast<char>(data[i]);
    }
  }
  if (!word.empty()) words.push_back(word);
  std::vector<char*> argv;
  for (std::string& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  portwren::ResetRunSettings();
  portwren::ParseCommandLine(static_cast<int>(words.size()), argv.data());
  return 0;
}
