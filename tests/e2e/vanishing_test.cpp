// The line going away under the program: the far end of its pseudo-terminal closed while a read,
// a write, an echo client or an echo server waits. Each pending request ends with its error line,
// the key loop answers the next key, and ESC ends the run; nothing waits for a line that is gone.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
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

struct VanishCase {
  const char* name;
  std::vector<std::string> args;
  std::string keys;
  std::string pending;             // printed once the request waits on the line
  size_t far_reads;                // bytes the far end takes first (the echo client's chunks)
  std::vector<std::string> after;  // printed, in order, once the far end is gone
};

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
  pty_.CloseFar();
  for (const std::string& line : c.after) {
    if (!watch_.WaitFor(line, kLineWaitMs)) break;  // the output, shown below, tells what came instead
  }
  keys_.Type("q");
  ASSERT_TRUE(watch_.WaitFor("Got 'q'.", kLineWaitMs));
  const ProcessResult& r = Finish();
  EXPECT_EQ(0, r.exit_code) << r.out << r.err;
  std::vector<std::string> in_order{c.pending};
  in_order.insert(in_order.end(), c.after.begin(), c.after.end());
  in_order.insert(in_order.end(), {"Got 'q'.", testkit::kEscLines});
  ExpectInOrder(r.out, in_order);
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
