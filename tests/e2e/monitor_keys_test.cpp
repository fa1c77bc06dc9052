// The built program on one end of a pseudo-terminal pair with piped keys, the test holding the far
// end: the comm-event monitor keys E, $ and e, the background reader key #, both beside the port
// keys, and quitting while they run. The console thread's lines are compared whole; the
// threads' own lines (marked "*" and "#") come at their own pace and are compared apart.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>

#include "common/e2e_support.h"

namespace portwren {
namespace {

using testkit::kClosedLines;
using testkit::kEscLines;
using testkit::KeyPrompt;
using testkit::ProcessOptions;
using testkit::ProcessResult;

constexpr char kChooseLine[] = "Choose action: 'R/r' read, 'W/w' write, '?' help. <ESC> quit.\n";

// The lines after start-up: those of the console thread (mark ' ' or none), or those of the
// thread with `mark`.
std::string LinesAfterStartUp(const ProcessResult& r, char mark) {
  const size_t at = r.out.find(kChooseLine);
  if (at == std::string::npos) return "(no start-up lines)\n" + r.out;
  std::istringstream lines(r.out.substr(at + sizeof kChooseLine - 1));
  std::string out;
  for (std::string line; std::getline(lines, line);) {
    const bool thread_line = !line.empty() && (line[0] == '*' || line[0] == '#');
    if (mark == ' ' ? !thread_line : !line.empty() && line[0] == mark) out += line + "\n";
  }
  return out;
}

const char kStopLines[] =
    " [T] Main thread calls SetCommMask(h,0); to tell quit WaitCommEvent thread.\n"
    " [T] WaitCommEvent thread quitting confirmed.\n";
const char kMonitorStarts[] = "*[T] WaitCommEvent thread starting.\n";
const char kMonitorQuits[] = "*[T] WaitCommEvent thread quitting.\n";

class MonitorKeysEndToEnd : public testkit::PtyRunTest {
 protected:
  // Runs with keys typed by `typist` while the program runs.
  ProcessResult RunTyped(const std::vector<std::string>& args,
                         const std::function<void(testkit::KeyPipe&)>& typist) {
    testkit::KeyPipe keys;
    EXPECT_TRUE(keys.ok());
    std::thread typing([&] {
      typist(keys);
      keys.Close();
    });
    ProcessOptions typed;
    typed.stdin_fd = keys.read_fd();
    ProcessResult r = Run(args, "", 0, typed);
    typing.join();
    return r;
  }
};

// $ asks what to watch: any key but n or N watches CTS and DSR, only y or Y discards. A second
// start is refused without a prompt; e stops the monitor, and with none does nothing.
TEST_F(MonitorKeysEndToEnd, DollarAsksWhatToWatch) {
  const struct {
    const char* answers;
    const char* cts_dsr;
    const char* discard;
    const char* names;
  } kCases[] = {
      {"nY", "no", "yes", "EV_RXCHAR|EV_TXEMPTY"},
      {"Ny", "no", "yes", "EV_RXCHAR|EV_TXEMPTY"},
      {"xq", "yes", "no", "EV_RXCHAR|EV_CTS|EV_DSR|EV_TXEMPTY"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.answers);
    const ProcessResult r = RunTyped({port()}, [&](testkit::KeyPipe& keys) {
      keys.Type(std::string("$") + c.answers);
      std::this_thread::sleep_for(std::chrono::milliseconds(1000));  // the monitor starts waiting
      keys.Type("Eee\x1b");
    });
    EXPECT_EQ(
        std::string("Got '$'.\nMonitor CTS and DSR? (Y/n)\nMonitor CTS and DSR: ") + c.cts_dsr +
            "\nRead and discard all chars on EV_RXCHAR? (y/N)\nRead and discard all chars on EV_RXCHAR: " +
            c.discard + "\n" + KeyPrompt(1) + "Got 'E'.\nAlready monitoring CommEvents.\nGot 'e'.\n" +
            kStopLines + KeyPrompt(2) + "Got 'e'.\n" + KeyPrompt(3) + kEscLines + kClosedLines,
        LinesAfterStartUp(r, ' '));
    const std::string monitor = LinesAfterStartUp(r, '*');
    EXPECT_TRUE(monitor.starts_with(std::string(kMonitorStarts) + "*[T] ====SetCommMask(h, " + c.names +
                                    ") Success.\n"))
        << monitor;
    EXPECT_TRUE(monitor.ends_with(kMonitorQuits)) << monitor;
  }
}

// The reader keeps a read pending beside the console thread's own: a timed read that is cancelled
// leaves it, a write goes out, a purge with abort ends its read, after which # still asks before
// stopping it. Quitting with a new reader running ends the program all the same.
TEST_F(MonitorKeysEndToEnd, ReaderBesideReadsWritesAndPurges) {
  std::string written;
  const ProcessResult r = RunTyped({port(), "-b", "3", "-c", "300"}, [&](testkit::KeyPipe& keys) {
    keys.Type("#");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the reader's read is pending
    pty_.WriteFar("abc");
    keys.Type("rw");
    written = pty_.ReadFar(3, 10000);  // r has timed out by now, and w is done
    pty_.WriteFar("defg");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // g waits in the reader's next read
    keys.Type("P#n#y#\x1b");
  });
  EXPECT_EQ(std::string("\0\0\0", 3), written);  // counter word 0, and the byte the buffer held
  const std::string started = " [D.ms] ReadCom-thread created success.\n";
  EXPECT_EQ("Got '#'.\n" + started + KeyPrompt(1) +
                "Got 'r'.\n"
                " [T] Calling ReadFile() request 3 bytes...\n"
                " [T] ReadFile pending, wait 300 millisec...\n"
                " [T] WAIT_TIMEOUT\n"
                " [T] Calling CancelIo().\n"
                " [T] CancelIo() returns TRUE.\n"
                " [T] Result: ReadFile async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n" +
                KeyPrompt(2) +
                "Got 'w'.\n [T] Calling WriteFile(), request 3 bytes...\nWriteFile sync success. nDone=3\n" +
                KeyPrompt(3) +
                "Got 'P'.\n [D.ms] PurgeComm()... +Cancel VCOM IRP\n [D.ms] PurgeComm() ok.\n" +
                KeyPrompt(4) + "Got '#'.\nStop ReadCom thread?(y/N)n\n" + KeyPrompt(5) +
                "Got '#'.\nStop ReadCom thread?(y/N)y\n" + KeyPrompt(6) + "Got '#'.\n" + started +
                KeyPrompt(7) + kEscLines + kClosedLines,
            LinesAfterStartUp(r, ' '));
  const std::string reader = LinesAfterStartUp(r, '#');
  EXPECT_TRUE(
      reader.starts_with("#[T] ReadComThread: Got 3 bytes.\n"
                         "#[T] ReadComThread: Got 3 bytes.\n"
                         "#[T] ReadComThread: ReadFile() async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n"
                         "#[T] ReadComThread: Got error.\n"))
      << reader;
}

// ESC, X and the end of piped input close the port under both threads' pending requests; the
// program ends at once with 0, and X can open the port again.
TEST_F(MonitorKeysEndToEnd, QuittingWithBothThreadsRunningEndsTheProgram) {
  for (const std::string quit : {"\x1b", "X", ""}) {
    SCOPED_TRACE(quit.empty() ? "end of input" : quit);
    const ProcessResult r = RunTyped({port()}, [&](testkit::KeyPipe& keys) {
      keys.Type("E#");
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      keys.Type(quit);
    });
    EXPECT_EQ(0, r.term_signal);
    EXPECT_TRUE(LinesAfterStartUp(r, ' ').ends_with(
        KeyPrompt(2) + "Got '" + (quit == "X" ? "X" : "\x1b") + "'.\n" + kClosedLines +
        (quit == "X" ? " [T] CreateFile() again success. Handle=0xH\n" : "")))
        << r.out;
  }
}

}  // namespace
}  // namespace portwren
