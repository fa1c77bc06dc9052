// The program on one end of a pseudo-terminal pair with piped keys: start-up order and summary,
// open failures, first and repeated keys, the prompt, help, ESC, X and the pause before quitting.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"
#include "common/pty_pair.h"

namespace portwren {
namespace {

using testkit::kClosedLines;
using testkit::KeyPrompt;
using testkit::OpenedLines;
using testkit::ProcessOptions;
using testkit::ProcessResult;

std::string Summary(const std::string& path) {
  return "DevOpenPath: " + path +
         "\n"
         "g_bytes_to_rw = 100\n"
         "g_wait_msec_before_cancel = 5000\n"
         "g_rto_interval   = 0\n"
         "g_rto_multiplier = 0\n"
         "g_rto_constant   = 0\n"
         "g_wto_multiplier = 0\n"
         "g_wto_constant   = 0\n";
}

class KeyLoopEndToEnd : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(pty_.ok()) << "no pseudo-terminal"; }

  ProcessResult Run(std::vector<std::string> args, const std::string& keys, ProcessOptions options = {}) {
    options.stdin_bytes = keys;
    ProcessResult r = testkit::RunKeyed(args, options);
    EXPECT_TRUE(r.started) << r.error;
    EXPECT_FALSE(r.timed_out) << r.out;
    return r;
  }

  testkit::PtyPair pty_;
};

TEST_F(KeyLoopEndToEnd, StartUpSummaryHelpAndEsc) {
  const ProcessResult r = Run({pty_.slave_path()}, "?\x1b");
  EXPECT_EQ("Portwren version 1.7.8, compiled on D\n" + Summary(pty_.slave_path()) +
                OpenedLines(pty_.slave_path()) +
                "Got '?'.\n"
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
                " X : Quit portwren and do a deliberate CreateFile().\n" +
                KeyPrompt(1) + "Got '\x1b'.\n" + kClosedLines,
            r.out);
  EXPECT_EQ(0, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, SummaryShowsSettingsAndQueueSizes) {
  const ProcessResult r = Run({pty_.slave_path(), "-b", "20", "-c", "4000", "--rtoi=-1", "--rtom=-1",
                               "--rtoc=3000", "--wtoc=-1", "--in-queue=4096", "--out-queue=2048"},
                              "\x1b");
  EXPECT_NE(std::string::npos, r.out.find("DevOpenPath: " + pty_.slave_path() +
                                          "\n"
                                          "g_bytes_to_rw = 20\n"
                                          "g_wait_msec_before_cancel = 4000\n"
                                          "g_rto_interval   = MAXDWORD\n"
                                          "g_rto_multiplier = MAXDWORD\n"
                                          "g_rto_constant   = 3000\n"
                                          "g_wto_multiplier = 0\n"
                                          "g_wto_constant   = MAXDWORD\n"
                                          "g_in_queue_bytes = 4096\n"
                                          "g_out_queue_bytes= 2048\n"))
      << r.out;
  EXPECT_EQ(std::string::npos, r.out.find("SetupComm fail!")) << r.out;
}

TEST_F(KeyLoopEndToEnd, PrintLessKeepsReadLogDelaysAndSuccessLines) {
  const std::string log = testing::TempDir() + "pw_e2e_read_" + std::to_string(::getpid()) + ".log";
  ProcessOptions options;
  options.env.push_back({"PORTWREN_PRINT_LESS", "1"});
  options.stdin_bytes = "\x1b";
  ProcessResult r = testkit::RunPortwren(
      {pty_.slave_path(), "--read-log-append", "--read-log=" + log, "--waitcommevent-delay0=7", "-m", "5000"},
      options);
  r.out = testkit::ScrubRunText(r.out);
  EXPECT_EQ(
      "Portwren version 1.7.8, compiled on D\n"
      "Read logging to file(append): " +
          log +
          "\n"
          "g_waitcommevent_delay0 = 7\n"
          "g_echo_maxbytes64 = 5000\n" +
          OpenedLines(pty_.slave_path()) + "Got '\x1b'.\n" + kClosedLines,
      r.out);
  EXPECT_EQ(0, r.exit_code);
  ::unlink(log.c_str());
}

TEST_F(KeyLoopEndToEnd, ReadLogThatCannotBeOpenedIsReportedAndTheRunGoesOn) {
  const ProcessResult r = Run({pty_.slave_path(), "--read-log=/nonexistent-dir/r.log"}, "\x1b");
  EXPECT_NE(std::string::npos, r.out.find("Read logging to file(clean): /nonexistent-dir/r.log\n"
                                          "!!! Error: /nonexistent-dir/r.log open/create fail!\n"))
      << r.out;
  EXPECT_NE(std::string::npos, r.out.find("success. Handle=")) << r.out;
  EXPECT_EQ(0, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, MissingDevicesAndThePathHint) {
  ProcessResult r = Run({"COM12"}, "");
  EXPECT_EQ(
      "Portwren version 1.7.8, compiled on D\n"
      "CreateFile('COM12') fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n"
      "Did you forget to add extra prefix for COM12 ? Try \\\\.\\COM12 instead.\n",
      r.out);
  EXPECT_EQ(1, r.exit_code);
  r = Run({"COM5"}, "");
  EXPECT_EQ(
      "Portwren version 1.7.8, compiled on D\n"
      "CreateFile('COM5') fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n",
      r.out);
  EXPECT_EQ(1, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, DeviceHeldElsewhereIsRefusedEvenReadOnly) {
  const int held = ::open(pty_.slave_path().c_str(), O_RDWR | O_NOCTTY);
  ASSERT_GE(held, 0);
  ASSERT_EQ(0, ::flock(held, LOCK_EX | LOCK_NB));
  const ProcessResult r = Run({pty_.slave_path()}, "\x1b");
  ::close(held);
  EXPECT_EQ(
      "Portwren version 1.7.8, compiled on D\n"
      "CreateFile('" +
          pty_.slave_path() + "') fail -- even request read-only. WinErr=5(ERROR_ACCESS_DENIED)\n",
      r.out);
  EXPECT_EQ(1, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, TypedKeysEnterAndThePromptCount) {
  const ProcessResult r = Run({pty_.slave_path()}, "ab\nz\x1b");
  const std::string expected = std::string("Got 'a'.\n") + KeyPrompt(1) + "Got 'b'.\n" + KeyPrompt(2) +
                               KeyPrompt(3) + "Got 'z'.\n" + KeyPrompt(4) + "Got '\x1b'.\n" + kClosedLines;
  EXPECT_NE(std::string::npos, r.out.find(expected)) << r.out;
  EXPECT_EQ(0, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, EndOfPipedKeysQuits) {
  const ProcessResult r = Run({pty_.slave_path()}, "z");
  EXPECT_NE(std::string::npos, r.out.find(KeyPrompt(1) + "Got '\x1b'.\n" + kClosedLines)) << r.out;
  EXPECT_EQ(0, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, FirstKeysPrintNoGotLine) {
  const ProcessResult r = Run({pty_.slave_path(), "--first-key=?z"}, "\x1b");
  EXPECT_NE(std::string::npos, r.out.find("First-key auto input(#0): '?'\nSingle-char op help:\n")) << r.out;
  EXPECT_NE(std::string::npos, r.out.find("First-key auto input(#1): 'z'\n" + KeyPrompt(2) + "Got '\x1b'.\n"))
      << r.out;
  EXPECT_EQ(std::string::npos, r.out.find("Got '?'")) << r.out;
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
  const ProcessResult r =
      testkit::RunKeyed({pty_.slave_path(), "--first-key=?z", "--repeat-final-key"}, options);
  typist.join();
  EXPECT_NE(std::string::npos,
            r.out.find("First-key auto input(#1): 'z'\n" + KeyPrompt(2) + "Repeat-key auto input(#2): 'z'\n" +
                       KeyPrompt(3) + "Repeat-key auto input(#3): 'z'\n"))
      << r.out;
  EXPECT_NE(std::string::npos, r.out.find("(Repeat-key stops.)\nGot '\x1b'.\n" + std::string(kClosedLines)))
      << r.out;
  EXPECT_EQ(0, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, XClosesThenOpensAgainOnPurpose) {
  const ProcessResult r = Run({pty_.slave_path()}, "X");
  EXPECT_NE(std::string::npos, r.out.find("Got 'X'.\n" + std::string(kClosedLines) +
                                          " [T] CreateFile() again success. Handle=0xH\n"))
      << r.out;
  EXPECT_EQ(std::string::npos, r.out.find("Again?")) << r.out;
  EXPECT_EQ(0, r.exit_code);
}

TEST_F(KeyLoopEndToEnd, PauseBeforeQuitWaitsForAKey) {
  const ProcessResult r = Run({pty_.slave_path(), "--pause-before-quit"}, "\x1b");
  const std::string tail = std::string(kClosedLines) + "\n====== PROGRAM DONE. PRESS A KEY TO QUIT ======\n";
  ASSERT_GE(r.out.size(), tail.size());
  EXPECT_EQ(tail, r.out.substr(r.out.size() - tail.size())) << r.out;
  EXPECT_EQ(0, r.exit_code);
}

}  // namespace
}  // namespace portwren
