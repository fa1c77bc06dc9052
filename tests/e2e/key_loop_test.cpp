// The program on one end of a pseudo-terminal pair with piped keys: start-up order and summary,
// open failures, first and repeated keys, the prompt, help, ESC, X and the pause before quitting.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::kBanner;
using testkit::kClosedLines;
using testkit::kEscLines;
using testkit::KeyPrompt;
using testkit::OpenedLines;
using testkit::ProcessOptions;
using testkit::ProcessResult;

using KeyLoopEndToEnd = testkit::PtyRunTest;

// First keys print no "Got" line; the prompts count them.
TEST_F(KeyLoopEndToEnd, StartUpSummaryFirstKeysHelpAndEsc) {
  const ProcessResult r = Run({port(), "--first-key=?z"}, "\x1b");
  EXPECT_EQ(std::string(kBanner) + "DevOpenPath: " + port() +
                "\n"
                "g_bytes_to_rw = 100\n"
                "g_wait_msec_before_cancel = 5000\n"
                "g_rto_interval   = 0\n"
                "g_rto_multiplier = 0\n"
                "g_rto_constant   = 0\n"
                "g_wto_multiplier = 0\n"
                "g_wto_constant   = 0\n" +
                OpenedLines(port()) +
                "First-key auto input(#0): '?'\n"
                "Single-char op help:\n"
                " 0 : Clear VCOM input buffer with actual VCOM read.\n"
                " q : Check VCOM input/output buffer bytes with ClearCommError().\n"
                " r : Do a ReadFile() with preset bytes(-b xxx).\n"
                " w : Do a WriteFile() with preset bytes(-b xxx).\n"
                " W : Do a WriteFile() with custom bytes.\n"
                " P : PurgeComm() with PURGE_RXCLEAR|PURGE_TXCLEAR|PURGE_TXABORT|PURGE_RXABORT\n"
                " p : PurgeComm() with PURGE_RXCLEAR|PURGE_TXCLEAR\n"
                " F : Enable CTS output-flow control.\n"
                " f : Disable CTS output-flow control.\n"
                " i : Print GetCommState() and GetCommModemStatus() information.\n"
                " E : Start background WaitCommEvent() thread. ($ do verbose)\n"
                " e : Stop background WaitCommEvent() thread.\n"
                " C : Start echo client(Urge mode).\n"
                " c : Start echo client(Mild mode).\n"
                " S : Start echo server.\n"
                " @ : Vbus write test. Expect to fail with non-Administrator. (! for read test)\n"
                " # : Start/Stop background read-COM thread, so you can do R/W simultaneously.\n"
                " < > | : Enable/Disable/Query VCOM one-time temporal lifemode.\n"
                " X : Quit portwren and do a deliberate CreateFile().\n"
                // Later additions, after the lines above.
                " D d : Set/Clear DTR with EscapeCommFunction().\n"
                " U u : Set/Clear RTS with EscapeCommFunction().\n"
                " B : Send a BREAK of --hold-break ms with SetCommBreak()/ClearCommBreak().\n" +
                " T : Timeout conformance check on a loopback (each read/write timeout rule, PASS/FAIL).\n" +
                KeyPrompt(1) + "First-key auto input(#1): 'z'\n" + KeyPrompt(2) + kEscLines + kClosedLines,
            r.out);
}

// The summary shows the settings (queue sizes only when given); a read log that cannot be opened
// is reported and the run goes on. PORTWREN_PRINT_LESS drops the summary and keeps the rest.
TEST_F(KeyLoopEndToEnd, StartUpLinesWithAndWithoutPrintLess) {
  const std::string bad_log = "/nonexistent-dir/r.log";
  ProcessResult r = Run({port(), "-b", "20", "-c", "4000", "--rtoi=-1", "--rtom=-1", "--rtoc=3000",
                         "--wtoc=-1", "--in-queue=4096", "--out-queue=2048", "--read-log=" + bad_log,
                         "--waitcommevent-delay0=7", "-m", "5000"},
                        "\x1b");
  EXPECT_EQ(std::string(kBanner) + "DevOpenPath: " + port() +
                "\n"
                "g_bytes_to_rw = 20\n"
                "g_wait_msec_before_cancel = 4000\n"
                "g_rto_interval   = MAXDWORD\n"
                "g_rto_multiplier = MAXDWORD\n"
                "g_rto_constant   = 3000\n"
                "g_wto_multiplier = 0\n"
                "g_wto_constant   = MAXDWORD\n"
                "g_in_queue_bytes = 4096\n"
                "g_out_queue_bytes= 2048\n"
                "Read logging to file(clean): " +
                bad_log + "\n!!! Error: " + bad_log + " open/create fail!\n" +
                "g_waitcommevent_delay0 = 7\n"
                "g_echo_maxbytes64 = 5000\n" +
                OpenedLines(port()) + kEscLines + kClosedLines,
            r.out);

  const std::string log = testing::TempDir() + "pw_e2e_read_" + std::to_string(::getpid()) + ".log";
  ProcessOptions print_less;
  print_less.env.push_back({"PORTWREN_PRINT_LESS", "1"});
  r = Run({port(), "-b", "20", "--read-log-append", "--read-log=" + log, "--waitcommevent-delay0=7", "-m",
           "5000"},
          "\x1b", 0, print_less);
  ::unlink(log.c_str());
  EXPECT_EQ(std::string(kBanner) + ("Read logging to file(append): " + log) +
                "\n"
                "g_waitcommevent_delay0 = 7\n"
                "g_echo_maxbytes64 = 5000\n" +
                OpenedLines(port()) + kEscLines + kClosedLines,
            r.out);
}

// A missing device without the path hint (COM12 with the hint is a command-line case); a device
// held for writing elsewhere is refused even for reading.
TEST_F(KeyLoopEndToEnd, OpenFailuresEndTheRun) {
  ProcessResult r = Run({"COM5"}, "", 1);
  EXPECT_EQ(std::string(kBanner) + "CreateFile('COM5') fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n", r.out);

  const int held = ::open(port().c_str(), O_RDWR | O_NOCTTY);
  ASSERT_GE(held, 0);
  ASSERT_EQ(0, ::flock(held, LOCK_EX | LOCK_NB));
  r = Run({port()}, "\x1b", 1);
  ::close(held);
  EXPECT_EQ(std::string(kBanner) + ("CreateFile('" + port()) +
                "') fail -- even request read-only. WinErr=5(ERROR_ACCESS_DENIED)\n",
            r.out);
}

// A port opened only for reading says so on the open line, and a write on it is refused.
TEST_F(KeyLoopEndToEnd, ReadOnlyOpenIsMarkedAndRefusesWrites) {
  ProcessOptions options;
  options.env.push_back({"PORTWREN_PRINT_LESS", "1"});
  const ProcessResult r = Run({port(), "--readonly"}, "w", 0, options);
  ExpectInOrder(r.out, {" [T] CreateFile('" + port() + "') success. Handle=0xH (read-only!)\n",
                        "Got 'w'.\n"
                        " [T] Calling WriteFile(), request 100 bytes...\n"
                        " [T] Unexpected WriteFile error. WinErr=5(ERROR_ACCESS_DENIED)\n" +
                            KeyPrompt(1) + kEscLines + kClosedLines});
}

// Enter and unknown keys only bring the prompt; the end of the piped keys reads as ESC.
TEST_F(KeyLoopEndToEnd, TypedKeysEnterThePromptCountAndTheEndOfTheKeys) {
  const ProcessResult r = Run({port()}, "ab\nz");
  ExpectInOrder(r.out, {OpenedLines(port()) + "Got 'a'.\n" + KeyPrompt(1) + "Got 'b'.\n" + KeyPrompt(2) +
                        KeyPrompt(3) + "Got 'z'.\n" + KeyPrompt(4) + kEscLines + kClosedLines});
}

TEST_F(KeyLoopEndToEnd, RepeatedFinalKeyStopsOnEscWhichDoesNotQuit) {
  testkit::KeyPipe keys;
  ASSERT_TRUE(keys.ok());
  std::thread typist([&keys] {
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    keys.Type("\x1b");  // stops the repeating
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    keys.Type("\x1b");  // quits
    keys.Close();
  });
  ProcessOptions options;
  options.stdin_fd = keys.read_fd();
  const ProcessResult r = Run({port(), "--first-key=?z", "--repeat-final-key"}, "", 0, options);
  typist.join();
  ExpectInOrder(r.out,
                {"First-key auto input(#1): 'z'\n" + KeyPrompt(2) + "Repeat-key auto input(#2): 'z'\n" +
                     KeyPrompt(3) + "Repeat-key auto input(#3): 'z'\n",
                 "(Repeat-key stops.)\n" + std::string(kEscLines) + kClosedLines});
}

// X quits without a prompt and opens the port once more; the pause comes after whichever key quit.
TEST_F(KeyLoopEndToEnd, XClosesOpensAgainOnPurposeAndThePauseBeforeQuitFollows) {
  const ProcessResult r = Run({port(), "--pause-before-quit"}, "X");
  const std::string tail = OpenedLines(port()) + "Got 'X'.\n" + kClosedLines +
                           " [T] CreateFile() again success. Handle=0xH\n"
                           "\n====== PROGRAM DONE. PRESS A KEY TO QUIT ======\n";
  EXPECT_TRUE(r.out.ends_with(tail)) << r.out;
}

}  // namespace
}  // namespace portwren
