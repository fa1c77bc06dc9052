// Logs on a full disk (/dev/full): the log writer's first error is kept and it stays silent from
// then on; reads, the echo run and its verdict go on as if the logs were fine.
#include <gtest/gtest.h>

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

constexpr int kLineWaitMs = 20000;

class FullDisk : public testkit::PtyRunTest {};

// Both reads show their bytes; the failed log writes print nothing.
TEST_F(FullDisk, ReadLogFailsSilentlyAndReadsGoOn) {
  ASSERT_TRUE(pty_.WriteFar("helloworld"));
  ASSERT_TRUE(testkit::WaitForInputQueue(port(), 10, 5000));
  const ProcessResult r = Run({port(), "-b", "5", "--read-log", "/dev/full"}, "rr");
  ExpectInOrder(r.out, {"Got 'r'.", "hello", "Got 'r'.", "world", testkit::kEscLines});
  // After start-up, whose driver line fails on every machine without the driver.
  const std::string keys = r.out.substr(r.out.find("Choose action"));
  for (const char* word : {"fail", "Error", "WinErr"}) EXPECT_EQ(std::string::npos, keys.find(word)) << r.out;
}

// A program run in a directory of its own with keys typed while it runs.
class Running {
 public:
  // The program is the relay, or empty for portwren.
  Running(const std::string& program, const std::vector<std::string>& args, const std::string& dir) {
    ProcessOptions options;
    options.stdin_fd = keys_.read_fd();
    options.on_out = watch_.Tap();
    options.working_dir = dir;
    thread_ = std::thread([this, program, args, options] {
      result_ = program.empty() ? testkit::RunPortwrenLineBuffered(args, options)
                                : testkit::RunProcess(program, args, options);
    });
  }
  ~Running() { End(); }
  void Type(const std::string& keys) { keys_.Type(keys); }
  bool WaitFor(const std::string& text) { return watch_.WaitFor(text, kLineWaitMs); }
  const ProcessResult& End() {
    keys_.Close();
    if (thread_.joinable()) thread_.join();
    return result_;
  }

 private:
  testkit::KeyPipe keys_;
  testkit::OutputWatch watch_;
  std::thread thread_;
  ProcessResult result_;
};

// Client and server through a clean relay, every echo log on /dev/full: the run succeeds.
TEST(FullDiskEcho, EchoLogsOnAFullDiskLeaveTheVerdict) {
  const std::string dir = testing::TempDir() + "portwren_full_" + std::to_string(::getpid());
  std::filesystem::remove_all(dir);
  ASSERT_TRUE(std::filesystem::create_directories(dir));
  for (const char* name : {"echo_cli_out.log", "echo_cli_in.log", "echo_srv_out.log", "echo_srv_in.log"}) {
    std::filesystem::create_symlink("/dev/full", dir + "/" + name);
  }
  Running relay(PORTWREN_RELAY_EXE, {"--pty", dir + "/a", dir + "/b", "--stdin-ends"}, dir);
  ASSERT_TRUE(relay.WaitFor("relay ready"));
  Running server("", {dir + "/b", "-K", "600", "--echo-need-log"}, dir);
  server.Type("S");
  if (!server.WaitFor("waiting client")) {
    const ProcessResult& r = server.End();
    FAIL() << r.error << r.out << r.err;
  }
  Running client("", {dir + "/a", "-K", "600", "-m", "300000", "--echo-need-log"}, dir);
  client.Type("C");
  EXPECT_TRUE(client.WaitFor("Echo test "));
  const std::string client_out = client.End().out;
  server.Type("0");
  EXPECT_TRUE(server.WaitFor("Echo server stopped."));
  const std::string server_out = server.End().out;
  relay.End();
  std::filesystem::remove_all(dir);
  ExpectInOrder(client_out, {"All echo bytes received.", "Echo test success."});
  for (const std::string& out : {client_out, server_out}) {
    EXPECT_EQ(std::string::npos, out.find("open/create fail")) << out;
    EXPECT_EQ(std::string::npos, out.find("WinErr", out.find("Choose action"))) << out;
  }
}

}  // namespace
}  // namespace portwren
