// Echo client against echo server, two runs of the built program on the two ends of the fault
// relay: clean runs in urge and mild mode with random and sequence bodies end in success with
// every chunk echoed once; a flipped, dropped or inserted byte makes the client report the
// matching error and fail.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"
#include "common/log_files.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::ProcessOptions;
using testkit::ProcessResult;

constexpr int kWaitMs = 15000;

// A program run in the background with keys typed while it runs.
class Background {
 public:
  Background(const std::string& program, std::vector<std::string> args, const std::string& dir) {
    ProcessOptions options;
    options.stdin_fd = keys_.read_fd();
    options.working_dir = dir;
    options.on_out = watch_.Tap();
    options.env_unset.push_back("PORTWREN_PRINT_LESS");
    runner_ = std::thread(
        [this, program, args, options] { result_ = testkit::RunProcess(program, args, options); });
  }
  ~Background() { Finish(); }
  testkit::KeyPipe& keys() { return keys_; }
  bool WaitFor(const std::string& text) { return watch_.WaitFor(text, kWaitMs); }
  // Ends the keys (ESC to the program, the end to the relay) and waits for the run.
  const ProcessResult& Finish() {
    keys_.Close();
    if (runner_.joinable()) runner_.join();
    return result_;
  }

 private:
  testkit::KeyPipe keys_;
  testkit::OutputWatch watch_;
  std::thread runner_;
  ProcessResult result_;
};

struct PairCase {
  const char* name;
  std::vector<std::string> relay_args;
  std::string key;  // C urge, c mild
  std::vector<std::string> client_args;
  std::vector<std::string> client_lines;  // in order; a clean run ends in success
  std::string server_line;                // also expected from the server, if any
};

const std::vector<std::string> kFixed = {"-k", "1000", "-K", "1000", "-m", "100000"};

std::vector<std::string> With(std::vector<std::string> args, const std::vector<std::string>& more) {
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

const PairCase kPairs[] = {
    {"UrgeRandom",
     {},
     "C",
     {"-m", "400000", "-K", "3000"},
     {"Doing echo 400000 bytes(Urge), srand=0.", "Echo test success."},
     ""},
    {"UrgeSequenceSmallChunks",
     {},
     "C",
     {"-m", "150000", "-K", "200", "--echo-start-seq=0x11233344", "--echo-srand=77"},
     {"Doing echo 150000 bytes(Urge), srand=77.", "Echo test success."},
     ""},
    {"MildSequence",
     {},
     "c",
     {"-m", "60000", "-K", "3000", "--echo-start-seq=0x1"},
     {"Doing echo 60000 bytes(Mild), srand=0.", "Echo test success."},
     ""},
    {"MildRandom", {}, "c", {"-m", "40000", "-K", "500"}, {"(Mild)", "Echo test success."}, ""},
    {"FlipInTheEchoedBody",
     {"--fault", "flip:0@c2+20/ba"},
     "C",
     kFixed,
     {"] @Chunk 2: Error: Received wrong CRC. Recv:0x", "Echo test fail."},
     ""},
    {"FlipInTheEchoedChunkId",
     {"--fault", "flip:1@c3+0/ba"},
     "C",
     kFixed,
     {"] @Chunk 3: DataError: Received wrong chunk-id. Recv:1, Expect:3", "Echo test fail."},
     ""},
    {"FlipInTheEchoedLength",
     {"--fault", "flip:4@c2+5/ba"},
     "C",
     kFixed,
     {"] @Chunk 2: DataError: Received chunk length(5084) exceeds max(988).", "Echo test fail."},
     ""},
    {"DropFromTheEcho",
     {"--fault", "drop@c2+30/ba"},
     "C",
     kFixed,
     {"] @Chunk 2: Error: Received wrong CRC.", "Echo test fail."},
     ""},
    {"InsertIntoTheEcho",
     {"--fault", "insert:0x55@c2+30/ba"},
     "C",
     kFixed,
     {"] @Chunk 2: Error: Received wrong CRC.", "Echo test fail."},
     ""},
    {"FlipOnTheWayOutIsSeenByBoth",
     {"--fault", "flip:0@c2+20"},
     "C",
     kFixed,
     {"] @Chunk 2: Error: Received wrong CRC.", "Echo test fail."},
     " [D] !!! Wrong crc32 detected on chunk-id 2. \n"},
    {"MildDrop",
     {"--fault", "drop@c4+500/ba"},
     "c",
     With(kFixed, {"--echo-timeout-limit=1500"}),
     {"Pulling thread timeout(1500 millisec)!",
      "] @Chunk 4: DataError: Received less chunk body(987) than expected(988).", "Echo test fail."},
     ""},
};

class EchoPairEndToEnd : public testing::TestWithParam<PairCase> {
 protected:
  void SetUp() override {
    dir_ = testing::TempDir() + "portwren_pair_" + std::to_string(::getpid()) + "_" + GetParam().name;
    std::filesystem::remove_all(dir_);
    ASSERT_TRUE(std::filesystem::create_directories(dir_));
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string dir_;
};

// The number in "Total chunks: N" of the client's closing line, or -1.
long TotalChunks(const std::string& out) {
  std::smatch m;
  if (!std::regex_search(out, m,
                         std::regex(R"(All echo bytes received\. Total chunks: (\d+), recv: (\d+))"))) {
    return -1;
  }
  return std::stol(m[1]);
}

TEST_P(EchoPairEndToEnd, ClientMeetsServerThroughTheRelay) {
  const PairCase& c = GetParam();
  const std::string near = dir_ + "/near", far = dir_ + "/far";
  Background relay(PORTWREN_RELAY_EXE, With({"--pty", near, far, "--stdin-ends"}, c.relay_args), dir_);
  ASSERT_TRUE(relay.WaitFor("relay ready"));
  Background server(PORTWREN_EXE, {far, "-K", "3000", "--echo-need-log"}, dir_);
  server.keys().Type("S");
  ASSERT_TRUE(server.WaitFor("waiting client... ('0' to break)\n"));

  ProcessOptions options;
  options.stdin_bytes = c.key;
  options.working_dir = dir_;
  options.env.push_back({"PORTWREN_PRINT_LESS", "1"});
  const ProcessResult client = testkit::RunPortwren(With({near}, c.client_args), options);
  ASSERT_FALSE(client.timed_out) << client.out;
  EXPECT_EQ(0, client.exit_code) << client.out;
  const std::string client_out = testkit::ScrubRunText(client.out);
  ExpectInOrder(client_out, c.client_lines);

  server.keys().Type("0");
  EXPECT_TRUE(server.WaitFor("Echo server stopped."));
  const ProcessResult& server_run = server.Finish();
  EXPECT_EQ(0, server_run.exit_code) << server_run.err;  // a sanitizer's report changes it
  const std::string server_out = testkit::ScrubRunText(server_run.out);
  const std::string relay_out = relay.Finish().out;
  if (!c.server_line.empty()) ExpectInOrder(server_out, {c.server_line});

  if (c.relay_args.empty()) {
    // A clean run: every chunk went through the server once, and the server saw nothing wrong.
    const long chunks = TotalChunks(client_out);
    ASSERT_GT(chunks, 0) << client_out;
    const std::string out_log = testlog::FileText(dir_ + "/echo_srv_out.log");
    EXPECT_NE(std::string::npos, out_log.find("#" + std::to_string(chunks - 1) + ": "));
    EXPECT_EQ(std::string::npos, out_log.find("#" + std::to_string(chunks) + ": "));
    EXPECT_EQ(std::string::npos, server_out.find("Wrong crc32")) << server_out;
  } else {
    EXPECT_NE(std::string::npos, relay_out.find("relay: ")) << relay_out;
    EXPECT_EQ(std::string::npos, relay_out.find("not reached")) << relay_out;
  }
}

INSTANTIATE_TEST_SUITE_P(Runs, EchoPairEndToEnd, testing::ValuesIn(kPairs),
                         [](const testing::TestParamInfo<PairCase>& p) { return p.param.name; });

}  // namespace
}  // namespace portwren
