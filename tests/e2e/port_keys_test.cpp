// The built program on one end of a pseudo-terminal pair with piped keys, the test holding the far
// end: what the read, write, purge, clearing, queue, state and line keys print and what crosses the line.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <initializer_list>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/e2e_support.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::kClosedLines;
using testkit::kEscLines;
using testkit::KeyPrompt;
using testkit::ProcessOptions;
using testkit::ProcessResult;

constexpr char kChooseLine[] = "Choose action: 'R/r' read, 'W/w' write, '?' help. <ESC> quit.\n";

std::string Bytes(std::initializer_list<int> values) {
  return std::string(values.begin(), values.end());
}

// What `count` bytes of writes starting at counter word `first` put on the line.
std::string CounterWords(int first, size_t count) {
  std::string out;
  for (int word = first; out.size() < count; ++word) {
    out.push_back(static_cast<char>(word & 0xFF));
    out.push_back(static_cast<char>((word >> 8) & 0xFF));
  }
  out.resize(count);
  return out;
}

std::string WriteSync(int count) {
  const std::string n = std::to_string(count);
  return " [T] Calling WriteFile(), request " + n + " bytes...\nWriteFile sync success. nDone=" + n + "\n";
}

std::string ReadSync(int asked, int done) {
  return " [T] Calling ReadFile() request " + std::to_string(asked) +
         " bytes...\n [T] ReadFile sync success. nDone=" + std::to_string(done) + "\n\n";
}

// A read that waited `wait_ms`, timed out and was cancelled; `pause` holds the pause line, if any.
std::string ReadCancelled(int asked, int wait_ms, const std::string& pause = "") {
  return " [T] Calling ReadFile() request " + std::to_string(asked) +
         " bytes...\n [T] ReadFile pending, wait " + std::to_string(wait_ms) +
         " millisec...\n [T] WAIT_TIMEOUT\n" + pause +
         " [T] Calling CancelIo().\n"
         " [T] CancelIo() returns TRUE.\n"
         " [T] Result: ReadFile async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n";
}

std::string QueueReport(int in_queue) {
  return " [D] ClearCommError() reports: cbInQue=" + std::to_string(in_queue) + ", cbOutQue=0. \n";
}

// The DCB lines of the `i` report: each field and its value on a pseudo-terminal that the program
// has set to 115200 8-N-1.
const struct {
  const char* name;
  const char* on_pty;
} kDcbFields[] = {
    {"Baudrate", "115200"},
    {"fBinary", "yes"},
    {"fParity", "no"},
    {"fOutxCtsFlow", "no"},  // F and f switch it
    {"fOutxDsrFlow", "no"},
    {"fDtrControl", "1 (DTR_CONTROL_ENABLE)"},
    {"fBinary", "yes"},
    {"fDsrSensitivity", "no"},
    {"fTXContinueOnXoff", "no"},
    {"fOutX", "no"},
    {"fInX", "no"},
    {"fErrorChar", "no"},
    {"fNull", "no"},
    {"fRtsControl", "1 (RTS_CONTROL_ENABLE)"},
    {"fAbortOnError", "no"},
    {"XonLim", "2048"},
    {"XoffLim", "512"},
    {"ByteSize", "8"},
    {"Parity", "NO_PARITY"},
    {"StopBits", "one"},
    {"XonChar", "0x11"},
    {"XoffChar", "0x13"},
    {"ErrorChar", "0x00"},
    {"EofChar", "0x00"},
    {"EvtChar", "0x00"},
};

std::string PtyDcbLines(bool cts_flow) {
  std::string lines = "GetCommState() returns DCB info:\n";
  for (const auto& f : kDcbFields) {
    const bool cts = std::string_view(f.name) == "fOutxCtsFlow";
    lines += std::string("  .") + f.name + "=" + (cts ? (cts_flow ? "yes" : "no") : f.on_pty) + "\n";
  }
  return lines + "\n";
}

class PortKeysEndToEnd : public testkit::PtyRunTest {
 protected:
  // Bytes that arrive before the program starts; returns once the port holds them all.
  void Arrive(const std::string& bytes) {
    ASSERT_TRUE(pty_.WriteFar(bytes));
    ASSERT_TRUE(testkit::WaitForInputQueue(port(), static_cast<int>(bytes.size()), 5000));
  }

  // Everything the program sent; it has ended, so a short quiet wait collects it all.
  std::string Sent() { return pty_.ReadFar(1 << 20, 300); }
};

// What the keys printed: everything after the start-up lines.
std::string KeyOutput(const ProcessResult& r) {
  const size_t at = r.out.find(kChooseLine);
  return at == std::string::npos ? "(no start-up lines)\n" + r.out
                                 : r.out.substr(at + sizeof kChooseLine - 1);
}

// Writes send counter words that run on from write to write; an odd count ends with the byte the
// buffer held from before. A typed count is remembered and Enter reuses it.
TEST_F(PortKeysEndToEnd, WritesSendCounterWordsAndTypedCountsAreRemembered) {
  const ProcessResult r = Run({port(), "-b", "4"}, "wwW\nW6\nW5\nW\nW0x3\nW010\n\x1b");
  EXPECT_EQ("Got 'w'.\n" + WriteSync(4) + KeyPrompt(1) + "Got 'w'.\n" + WriteSync(4) + KeyPrompt(2) +
                "Got 'W'.\nBytes to write(0): " + WriteSync(0) + KeyPrompt(3) +  // Enter at first: zero bytes
                "Got 'W'.\nBytes to write(0): " + WriteSync(6) + KeyPrompt(4) +
                "Got 'W'.\nBytes to write(6): " + WriteSync(5) + KeyPrompt(5) +
                "Got 'W'.\nBytes to write(5): " + WriteSync(5) + KeyPrompt(6) +
                "Got 'W'.\nBytes to write(5): " + WriteSync(3) + KeyPrompt(7) +  // hexadecimal
                "Got 'W'.\nBytes to write(3): " + WriteSync(8) + KeyPrompt(8) +  // octal
                kEscLines + kClosedLines,
            KeyOutput(r));
  EXPECT_EQ(Bytes({0,  0, 1,  0, 2,  0, 3,  0,  // the two preset writes
                   4,  0, 5,  0, 6,  0,         // six
                   7,  0, 8,  0, 6,             // five: the last byte is left from the six
                   9,  0, 10, 0, 6,             // five again
                   11, 0, 10,                   // three: the byte at 2 is from the last five
                   12, 0, 13, 0, 14, 0, 15, 0}),
            Sent());
}

TEST_F(PortKeysEndToEnd, WriteTheFarEndDoesNotTakeIsCancelledAndWhatWentIsOnTheLine) {
  const ProcessResult r = Run({port(), "-c", "300"}, "W400000\n\x1b");
  const std::regex shape(
      "Got 'W'\\.\nBytes to write\\(0\\):  \\[T\\] Calling WriteFile\\(\\), request 400000 bytes\\.\\.\\.\n"
      " \\[T\\] WriteFile pending, wait 300 millisec\\.\\.\\.\n"
      " \\[T\\] WAIT_TIMEOUT\\.\n"
      " \\[T\\] Calling CancelIo\\(\\)\\.\n"
      " \\[T\\] CancelIo\\(\\) returns TRUE\\.\n"
      " \\[T\\] Result: WriteFile async fail\\. WinErr=995\\(ERROR_OPERATION_ABORTED\\)\n"
      " \\[T\\]   -- Even if cancelled, nDone is ([0-9]+) bytes\\.\n");
  std::smatch m;
  const std::string out = KeyOutput(r);
  ASSERT_TRUE(std::regex_search(out, m, shape)) << out;
  EXPECT_EQ(0, m.position(0)) << out;
  EXPECT_EQ(KeyPrompt(1) + kEscLines + kClosedLines, m.suffix().str());
  const size_t done = std::stoul(m[1].str());
  EXPECT_GT(done, 0u);
  EXPECT_LT(done, 400000u);
  // Exactly the reported count crossed, counter words from the start.
  const std::string sent = Sent();
  EXPECT_EQ(done, sent.size());
  EXPECT_TRUE(sent == CounterWords(0, done)) << "the line did not carry the counter words";
}

TEST_F(PortKeysEndToEnd, ReadShowsTextUpToTheFirstNulAndTheReadLogKeepsEveryByte) {
  const std::string log = testing::TempDir() + "pw_port_keys_" + std::to_string(::getpid()) + ".log";
  Arrive(std::string("hello\0world", 11));
  const ProcessResult r = Run({port(), "-Q", "0", "-b", "20", "--read-log=" + log}, "R3\nrr\x1b");
  EXPECT_NE(std::string::npos, r.out.find("Read logging to file(clean): " + log + "\n")) << r.out;
  EXPECT_EQ("Got 'R'.\nBytes to read(0): " + ReadSync(3, 3) + "hel\n" + KeyPrompt(1) +  //
                "Got 'r'.\n" + ReadSync(20, 8) + "lo\n" + KeyPrompt(2) +                // stops at the NUL
                "Got 'r'.\n" + ReadSync(20, 0) + KeyPrompt(3) +                         // nothing left
                kEscLines + kClosedLines,
            KeyOutput(r));

  std::ifstream file(log, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  ::unlink(log.c_str());
  const std::string records = std::regex_replace(text.str(), std::regex(R"(\[[0-9.]+\] #)"), "[S] #");
  const std::string ruler = "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n";
  EXPECT_EQ("[S] #0: 3 bytes.\r\n" + ruler + "0000: 68 65 6c.\r\n\r\n" +  //
                "[S] #1: 8 bytes.\r\n" + ruler + "0000:          6c 6f 00 77 6f 72 6c 64.\r\n\r\n",
            records);
}

TEST_F(PortKeysEndToEnd, TimedOutReadIsCancelledAndShowsWhatCameBeforeTheCancel) {
  Arrive("abc");
  const ProcessResult r = Run({port(), "-b", "20", "-c", "300", "--pause-msec-bfr-cancelio=50"}, "rr\x1b");
  const std::string pause = " [T] Pause 50 msec before CancelIo()...\n";
  EXPECT_EQ("Got 'r'.\n" + ReadCancelled(20, 300, pause) +
                " [T]   -- Even if cancelled, nDone is 3 bytes.\nabc\n" + KeyPrompt(1) +  //
                "Got 'r'.\n" + ReadCancelled(20, 300, pause) + KeyPrompt(2) +  // nothing came: no more lines
                kEscLines + kClosedLines,
            KeyOutput(r));
}

TEST_F(PortKeysEndToEnd, PendingReadCompletesWhenTheRestArrives) {
  Arrive("0123456789");
  bool took_first_part = false;
  std::thread far_end([&] {
    // The pending read has taken the first part once the port's queue is empty again.
    took_first_part = testkit::WaitForInputQueue(port(), 0, 10000);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    pty_.WriteFar("abcdefghij");
  });
  const ProcessResult r = Run({port(), "-b", "20", "-c", "10000"}, "r\x1b");
  far_end.join();
  EXPECT_TRUE(took_first_part);
  EXPECT_EQ(
      "Got 'r'.\n"
      " [T] Calling ReadFile() request 20 bytes...\n"
      " [T] ReadFile pending, wait 10000 millisec...\n"
      " [T] Wait success.\n"
      " [T] Result: ReadFile async SUCCESS. nDone=20.\n"
      "0123456789abcdefghij\n" +
          KeyPrompt(1) + kEscLines + kClosedLines,
      KeyOutput(r));
}

TEST_F(PortKeysEndToEnd, ClearingReadsEverythingWaitingAndRestoresTheTimeouts) {
  Arrive(std::string(2500, 'x'));
  const ProcessResult r = Run({port(), "-b", "20", "-c", "300", "--clear-comport-msec=120"}, "q0qr0\x1b");
  const std::string clearing = " [D.ms] Clearing COM port(dry read timeout 120ms)...\n";
  EXPECT_EQ("Got 'q'.\n" + QueueReport(2500) + KeyPrompt(1) +  //
                "Got '0'.\n" + clearing + " [D.ms] ClearCommError() reports: cbInQue=2500, cbOutQue=0. \n" +
                " [D.ms] COM port read-buffer bytes cleared: 2500\n"
                " [D.ms] COM port cleared.\n" +
                KeyPrompt(2) + "Got 'q'.\n" + QueueReport(0) + KeyPrompt(3) +
                // The configured timeouts are back: the read waits for all 20 bytes and times out.
                "Got 'r'.\n" + ReadCancelled(20, 300) + KeyPrompt(4) +
                // An empty port: no cleared line.
                "Got '0'.\n" + clearing + " [D.ms] ClearCommError() reports: cbInQue=0, cbOutQue=0. \n" +
                " [D.ms] COM port cleared.\n" + KeyPrompt(5) + kEscLines + kClosedLines,
            KeyOutput(r));
}

TEST_F(PortKeysEndToEnd, PurgesEmptyTheInputWithAndWithoutAbort) {
  Arrive(std::string(100, 'a'));
  testkit::KeyPipe keys;
  ASSERT_TRUE(keys.ok());
  bool refilled = false;
  std::thread far_end([&] {
    keys.Type("qpqW1\n");
    // The one byte of W says the keys before it are done: the port gets new bytes for P.
    if (pty_.ReadFar(1, 10000).size() == 1 && pty_.WriteFar(std::string(50, 'b'))) {
      refilled = testkit::WaitForInputQueue(port(), 50, 5000);
    }
    keys.Type("qPq\x1b");
    keys.Close();
  });
  ProcessOptions typed;
  typed.stdin_fd = keys.read_fd();
  const ProcessResult r = Run({port()}, "", 0, typed);
  far_end.join();
  EXPECT_TRUE(refilled);
  EXPECT_EQ("Got 'q'.\n" + QueueReport(100) + KeyPrompt(1) +                                      //
                "Got 'p'.\n [D.ms] PurgeComm()... \n [D.ms] PurgeComm() ok.\n" + KeyPrompt(2) +   //
                "Got 'q'.\n" + QueueReport(0) + KeyPrompt(3) +                                    //
                "Got 'W'.\nBytes to write(0): " + WriteSync(1) + KeyPrompt(4) +                   //
                "Got 'q'.\n" + QueueReport(50) + KeyPrompt(5) +                                   //
                "Got 'P'.\n [D.ms] PurgeComm()... +Cancel VCOM IRP\n [D.ms] PurgeComm() ok.\n" +  //
                KeyPrompt(6) + "Got 'q'.\n" + QueueReport(0) + KeyPrompt(7) + kEscLines + kClosedLines,
            KeyOutput(r));
}

TEST_F(PortKeysEndToEnd, StateReportShowsTheDcbAndFollowsTheCtsFlowKeys) {
  const ProcessResult r = Run({port()}, "iFifi\x1b");
  // A pseudo-terminal has no modem lines.
  // A pseudo-terminal is no VCOM: its driver does not know the device-state request.
  const std::string modem =
      " [T] GetCommModemStatus() fails. WinErr=50(UnknownWinErrCode)\n"
      "IOCTL_VCOM_GetDeviceState query result:\n"
      "IOCTL_VCOM_GetDeviceState fails. WinErr=1(ERROR_INVALID_FUNCTION)\n";
  const std::string out = KeyOutput(r);
  ExpectInOrder(out, {"Got 'i'.\n" + PtyDcbLines(false) + modem, KeyPrompt(1),
                      "Got 'F'.\nSetCommState() .fOutxCtsFlow=1 Success.\n" + KeyPrompt(2),
                      "Got 'i'.\n" + PtyDcbLines(true) + modem, KeyPrompt(3),
                      "Got 'f'.\nSetCommState() .fOutxCtsFlow=0 Success.\n" + KeyPrompt(4),
                      "Got 'i'.\n" + PtyDcbLines(false) + modem, KeyPrompt(5) + kEscLines + kClosedLines});
  EXPECT_EQ(std::string::npos, out.find("WrongValue")) << out;
}

// A pseudo-terminal has no modem lines: each line key reports its refusal, then the modem lines
// (their own refusal); it takes a break, held for --hold-break ms.
TEST_F(PortKeysEndToEnd, LineKeysReportTheirCallThenTheModemLines) {
  const auto start = std::chrono::steady_clock::now();
  const ProcessResult r = Run({port(), "--hold-break=400"}, "DdUuB\x1b");
  const auto took = std::chrono::steady_clock::now() - start;
  const std::string no_lines = " [T] GetCommModemStatus() fails. WinErr=50(UnknownWinErrCode)\n";
  const auto refused = [&](char key, const char* function) {
    return std::string("Got '") + key + "'.\n [T] EscapeCommFunction(" + function +
           ") fails. WinErr=50(UnknownWinErrCode)\n" + no_lines;
  };
  EXPECT_EQ(refused('D', "SETDTR") + KeyPrompt(1) + refused('d', "CLRDTR") + KeyPrompt(2) +
                refused('U', "SETRTS") + KeyPrompt(3) + refused('u', "CLRRTS") + KeyPrompt(4) +
                "Got 'B'.\n [D.ms] SetCommBreak() Success. Holding BREAK 400 ms...\n"
                " [D.ms] ClearCommBreak() Success.\n" +
                no_lines + KeyPrompt(5) + kEscLines + kClosedLines,
            KeyOutput(r));
  EXPECT_GE(took, std::chrono::milliseconds(400));
  EXPECT_EQ("", Sent());
}

}  // namespace
}  // namespace portwren
