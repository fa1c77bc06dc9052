// The line going away under the program: the far end of its pseudo-terminal closed while a read,
// a write, an echo client, an echo server, the comm-event monitor or the background reader waits.
// Each pending request ends with its error line, once, the key loop answers the next key, and ESC
// ends the run; nothing waits for a line that is gone.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::ProcessOptions;
using testkit::ProcessResult;

constexpr int kLineWaitMs = 15000;
constexpr int kSettleMs = 200;

struct VanishCase {
  const char* name;
  std::vector<std::string> args;
  std::string keys;
  std::string pending;             // printed once the request waits on the line
  size_t far_reads;                // bytes the far end takes first (the echo client's chunks)
  std::vector<std::string> after;  // printed, in order, once the far end is gone; the last once
  std::string far_writes = "";     // sent by the far end first, and waited for...
  std::string far_written = "";    // ...until this line shows the program took it in
  std::string next = "q";          // keys of the loop's next pass, and what they print
  std::vector<std::string> next_lines = {"Got 'q'."};
};

void PrintTo(const VanishCase& c, std::ostream* out) {
  *out << c.name;
}

const VanishCase kCases[] = {
    {"Read",
     {"-c", "20000"},
     "r",
     "ReadFile pending, wait 20000 millisec...",
     0,
     {"Result: ReadFile async fail. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)"}},
    {"Write",
     {"-c", "20000"},
     "W400000\n",
     "WriteFile pending, wait 20000 millisec...",
     0,
     {"Result: WriteFile async fail. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)"}},
    {"EchoClient",
     {"-K", "100", "-k", "100"},
     "C",
     "Doing echo unlimited bytes(Urge)",
     100,
     {"@Chunk 0: DataError: Received less bytes(0) than Echo headsize(12).", "Pulling thread has quitted.",
      "Echo test fail."}},
    {"EchoServer",
     {"-K", "100"},
     "S",
     "waiting client...",
     0,
     // The server prints nothing once its first read is pending: the line goes away before or
     // after that, and either the read or its start fails.
     {"WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)", "Echo server stopped."}},
    // The monitor's wait ends with the device; e then finds the thread gone.
    {"Monitor",
     {},
     "E",
     "====Starting WaitCommEvent(mask=0x1D)...",
     0,
     {"====WaitCommEvent() fail! WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)", "WaitCommEvent thread quitting."},
     "",
     "",
     "e",
     {"Got 'e'.", "WaitCommEvent thread quitting confirmed."}},
    // The same with bytes nobody takes: the input queue is then watched by sampling, not by
    // waiting for a first byte, and the hang-up must still be seen.
    {"MonitorWithBytesWaiting",
     {},
     "E",
     "====Starting WaitCommEvent(mask=0x1D)...",
     0,
     {"====WaitCommEvent() fail! WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)", "WaitCommEvent thread quitting."},
     "abc",
     "====Starting WaitCommEvent(mask=0x1D)...",
     "e",
     {"Got 'e'.", "WaitCommEvent thread quitting confirmed."}},
    // The reader ends at the first failed read rather than trying again and again; # still asks.
    {"Reader",
     {"-b", "3"},
     "#",
     "ReadCom-thread created success.",
     0,
     // The read that fails may be the pending one or the next one started.
     {"WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)", "ReadComThread: Got error."},
     "abc",
     "ReadComThread: Got 3 bytes.",
     "#y",
     {"Got '#'.", "Stop ReadCom thread?(y/N)y"}},
};

class Vanishing : public testkit::PtyRunTest, public testing::WithParamInterface<VanishCase> {
 protected:
  void TearDown() override {
    keys_.Close();
    if (runner_.joinable()) runner_.join();
  }

  void Start(const std::vector<std::string>& extra) {
    std::vector<std::string> args{port()};
    args.insert(args.end(), extra.begin(), extra.end());
    ProcessOptions options;
    options.stdin_fd = keys_.read_fd();
    options.on_out = watch_.Tap();
    options.env_unset = {"PORTWREN_PRINT_LESS"};
    runner_ = std::thread([this, args, options] {
      result_ = testkit::RunPortwrenLineBuffered(args, options);
      result_.out = testkit::ScrubRunText(result_.out);
    });
  }

  const ProcessResult& Finish() {
    keys_.Close();
    runner_.join();
    return result_;
  }

  testkit::KeyPipe keys_;
  testkit::OutputWatch watch_;
  std::thread runner_;
  ProcessResult result_;
};

TEST_P(Vanishing, PendingRequestEndsWithItsLineAndTheLoopGoesOn) {
  const VanishCase& c = GetParam();
  Start(c.args);
  keys_.Type(c.keys);
  ASSERT_TRUE(watch_.WaitFor(c.pending, kLineWaitMs)) << c.pending;
  if (c.far_reads > 0) {
    ASSERT_EQ(c.far_reads, pty_.ReadFar(c.far_reads, kLineWaitMs).size());
  }
  if (!c.far_writes.empty()) {
    ASSERT_TRUE(pty_.WriteFar(c.far_writes));
    ASSERT_TRUE(watch_.WaitFor(c.far_written, kLineWaitMs)) << c.far_written;
  }
  // The monitor and the reader print their line before the wait starts: give it time to start.
  std::this_thread::sleep_for(std::chrono::milliseconds(kSettleMs));
  pty_.CloseFar();
  for (const std::string& line : c.after) {
    if (!watch_.WaitFor(line, kLineWaitMs)) break;  // the output, shown below, tells what came instead
  }
  keys_.Type(c.next);
  ASSERT_TRUE(watch_.WaitFor(c.next_lines.back(), kLineWaitMs)) << c.next_lines.back();
  const ProcessResult& r = Finish();
  EXPECT_EQ(0, r.exit_code) << r.out << r.err;
  std::vector<std::string> in_order{c.pending};
  in_order.insert(in_order.end(), c.after.begin(), c.after.end());
  in_order.insert(in_order.end(), c.next_lines.begin(), c.next_lines.end());
  in_order.push_back(testkit::kEscLines);
  ExpectInOrder(r.out, in_order);
  // A thread that went on trying a line that is gone would end each try with this line again.
  const std::string until_next = r.out.substr(0, r.out.rfind(c.next_lines.front()));
  size_t ends = 0;
  for (size_t at = until_next.find(c.after.back()); at != std::string::npos;
       at = until_next.find(c.after.back(), at + 1)) {
    ++ends;
  }
  EXPECT_EQ(1u, ends) << c.after.back() << "\n" << r.out;
}

INSTANTIATE_TEST_SUITE_P(Cases, Vanishing, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<VanishCase>& p) { return p.param.name; });

// A socat pair on two link names, as a USB serial adapter that can be pulled and plugged again.
class SocatLine {
 public:
  SocatLine(const std::string& a, const std::string& b) : a_(a) {
    const std::string first = "pty,link=" + a + ",raw,echo=0";
    const std::string second = "pty,link=" + b + ",raw,echo=0";
    char* argv[] = {const_cast<char*>("socat"), const_cast<char*>(first.c_str()),
                    const_cast<char*>(second.c_str()), nullptr};
    const std::string before = Target();
    if (posix_spawnp(&pid_, "socat", nullptr, nullptr, argv, environ) != 0) pid_ = -1;
    // Up once the link names a terminal other than the one before.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (pid_ > 0 && (Target().empty() || Target() == before) && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  ~SocatLine() { Pull(); }
  bool up() const { return pid_ > 0 && !Target().empty(); }
  std::string Target() const {
    std::error_code error;
    const auto target = std::filesystem::read_symlink(a_, error);
    return error ? "" : target.string();
  }
  // Ends socat: both pseudo-terminals go away under whoever holds them.
  void Pull() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  std::string a_;
  pid_t pid_ = -1;
};

// The device goes away and comes back under the same name: the port calls fail meanwhile, and
// both X and a fresh start open it again.
TEST(DeviceComesBack, XAndAFreshStartOpenItAgain) {
  const std::string dir = testing::TempDir() + "portwren_back_" + std::to_string(getpid());
  std::filesystem::remove_all(dir);
  ASSERT_TRUE(std::filesystem::create_directories(dir));
  const std::string a = dir + "/a", b = dir + "/b";
  auto line = std::make_unique<SocatLine>(a, b);
  ASSERT_TRUE(line->up()) << "socat did not make " << a;
  const std::string first_target = line->Target();
  testkit::KeyPipe keys;
  testkit::OutputWatch watch;
  ProcessOptions options;
  options.stdin_fd = keys.read_fd();
  options.on_out = watch.Tap();
  ProcessResult result;
  std::thread runner([&] { result = testkit::RunPortwrenLineBuffered({a}, options); });
  ASSERT_TRUE(watch.WaitFor("Choose action", kLineWaitMs));
  line->Pull();
  keys.Type("q");
  EXPECT_TRUE(watch.WaitFor("ClearCommError() fail. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)", kLineWaitMs));
  line = std::make_unique<SocatLine>(a, b);
  ASSERT_TRUE(line->up());
  EXPECT_NE(first_target, line->Target()) << "a new terminal under the old name";
  keys.Type("X");
  EXPECT_TRUE(watch.WaitFor("CreateFile() again success.", kLineWaitMs));
  runner.join();
  EXPECT_EQ(0, result.exit_code) << result.out << result.err;
  ProcessOptions fresh_options;
  fresh_options.stdin_bytes = "q";
  const ProcessResult fresh = testkit::RunPortwren({a}, fresh_options);
  EXPECT_EQ(0, fresh.exit_code) << fresh.out;
  ExpectInOrder(testkit::ScrubRunText(fresh.out), {"CreateFile('" + a + "') success.", "Got 'q'.",
                                                   "ClearCommError() reports: cbInQue=0, cbOutQue=0."});
  line.reset();
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace portwren
