// The program's console on piped standard input, as a scripted run gives it: the backend's own
// reads of its standard input under the piped-input rules (checked in full on a scripted
// stream in console_keys_test.cpp).
#include <gtest/gtest.h>

#include <string>

#include "common/pipe.h"
#include "platform/os_console.h"

namespace portwren::os {
namespace {

TEST(ConsolePipe, ProgramConsoleOnPipedStandardInput) {
  // All input is in the pipe and its writer closed before the console starts, so what
  // KeyWaiting sees does not depend on timing. The long line and the run of letters take the
  // console through many reads of the pipe.
  const std::string long_line(3000, '7');
  std::string letters;
  for (int i = 0; i < 500; ++i) letters += static_cast<char>('a' + i % 26);
  testkit::Pipe input;
  ASSERT_TRUE(input.ok());
  ASSERT_TRUE(input.Write("ab\r\nl0x12\r\nql" + long_line + "\r\n" + letters));
  input.CloseWriter();

  const std::string result = input.RunOnStandardInput([&] {
    std::string seen;
    for (int i = 0; i < 20 && seen.size() < 200; ++i) {
      const int key = GetKey();
      if (key == 'l') {
        char line[100];
        seen += ReadLine(line, sizeof line) ? "<" + std::string(line) + ">" : "<end>";
        if (seen.size() > 100) break;  // the long line: letters follow
      } else {
        seen += std::to_string(key) + (KeyWaiting() ? "+ " : " ");
      }
    }
    std::string got;
    for (size_t i = 0; i < letters.size(); ++i) got += static_cast<char>(GetKey());
    seen += got == letters ? " letters" : " letters differ: " + got;
    for (int i = 0; i < 2; ++i) seen += " " + std::to_string(GetKey()) + (KeyWaiting() ? "+" : "");
    char line[10] = "x";
    seen += ReadLine(line, sizeof line) ? " <" + std::string(line) + ">" : " <end>";
    RestoreConsole();  // nothing to restore on a pipe, and no harm
    return seen;
  });
  // Each key has a successor waiting; the long line is cut to the buffer; at the end ESC is
  // waiting for ever and a line read finds nothing.
  EXPECT_EQ(result, "97+ 98+ 13+ <0x12>113+ <" + long_line.substr(0, 99) + "> letters 27+ 27+ <end>");
}

}  // namespace
}  // namespace portwren::os
