// Echo client against echo server, two runs of the built program on the two ends of the fault
// relay: a clean run in urge and in mild mode ends in success with every chunk echoed once; a byte
// flipped on the way out is seen by both, one dropped from the echo in mild mode ends in the
// pulling timeout. (The client's findings one by one: against a peer, in e2e/echo_client_test.cpp.)
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "common/log_files.h"
#include "echo_run_support.h"

namespace portwren::echotest {
namespace {

using testkit::ExpectInOrder;

struct PairCase {
  const char* name;
  std::string fault;  // the relay's, if any
  std::string key;    // C urge, c mild
  std::string client_args;
  std::vector<std::string> client_lines;  // in order; a clean run ends in success
  std::string server_line = "";           // also expected from the server, if any
};

void PrintTo(const PairCase& c, std::ostream* out) {
  *out << c.name;
}

const std::string kFixed = "-k 1000 -K 1000 -m 100000";
const std::string kFail = "Echo test fail.";

// Body kinds and chunk sizes are the client's own business (checked against the peer there).
// clang-format off
const PairCase kPairs[] = {
    {"UrgeRandom", "", "C", "-m 400000 -K 3000", {"Doing echo 400000 bytes(Urge), srand=0.", "Echo test success."}},
    {"MildSequence", "", "c", "-m 60000 -K 3000 --echo-start-seq=0x1",
     {"Doing echo 60000 bytes(Mild), srand=0.", "Echo test success."}},
    {"FlipOnTheWayOutIsSeenByBoth", "flip:0@c2+20", "C", kFixed, {"] @Chunk 2: Error: Received wrong CRC.", kFail},
     " [D] !!! Wrong crc32 detected on chunk-id 2. \n"},
    {"MildDrop", "drop@c4+500/ba", "c", kFixed + " --echo-timeout-limit=1500",
     {"Pulling thread timeout(1500 millisec)!",
      "] @Chunk 4: DataError: Received less chunk body(987) than expected(988).", kFail}},
};
// clang-format on

class EchoPairEndToEnd : public testing::TestWithParam<PairCase> {};

TEST_P(EchoPairEndToEnd, ClientMeetsServerThroughTheRelay) {
  const PairCase& c = GetParam();
  const WorkDir dir;
  const std::string near = dir.path() + "/near", far = dir.path() + "/far";
  Background relay(
      PORTWREN_RELAY_EXE,
      Words("--pty " + near + " " + far + " --stdin-ends " + (c.fault.empty() ? "" : "--fault " + c.fault)),
      dir.path());
  ASSERT_TRUE(relay.WaitFor("relay ready"));
  Background server(PORTWREN_EXE, {far, "-K", "3000", "--echo-need-log"}, dir.path());
  server.Type("S");
  ASSERT_TRUE(server.WaitFor("waiting client... ('0' to break)\n"));

  testkit::ProcessOptions options;
  options.stdin_bytes = c.key;
  options.working_dir = dir.path();
  options.env.push_back({"PORTWREN_PRINT_LESS", "1"});
  const testkit::ProcessResult client = testkit::RunPortwren(Words(near + " " + c.client_args), options);
  ASSERT_FALSE(client.timed_out) << client.out;
  EXPECT_EQ(0, client.exit_code) << client.out;
  const std::string client_out = testkit::ScrubRunText(client.out);
  ExpectInOrder(client_out, c.client_lines);

  server.Type("0");
  EXPECT_TRUE(server.WaitFor("Echo server stopped."));
  const testkit::ProcessResult& server_run = server.Finish();
  const std::string relay_out = relay.Finish().out;
  if (!c.server_line.empty()) ExpectInOrder(server_run.out, {c.server_line});
  if (!c.fault.empty()) {
    EXPECT_NE(std::string::npos, relay_out.find("relay: ")) << relay_out;
    EXPECT_EQ(std::string::npos, relay_out.find("not reached")) << relay_out;
    return;
  }
  // A clean run: every chunk went through the server once, and the server saw nothing wrong.
  std::smatch total;
  ASSERT_TRUE(std::regex_search(client_out, total,
                                std::regex(R"(All echo bytes received\. Total chunks: (\d+), recv: \d+)")))
      << client_out;
  const long chunks = std::stol(total[1]);
  const std::string out_log = testlog::FileText(dir.path() + "/echo_srv_out.log");
  EXPECT_NE(std::string::npos, out_log.find("#" + std::to_string(chunks - 1) + ": "));
  EXPECT_EQ(std::string::npos, out_log.find("#" + std::to_string(chunks) + ": "));
  EXPECT_EQ(std::string::npos, server_run.out.find("Wrong crc32")) << server_run.out;
}

INSTANTIATE_TEST_SUITE_P(Runs, EchoPairEndToEnd, testing::ValuesIn(kPairs),
                         [](const testing::TestParamInfo<PairCase>& p) { return p.param.name; });

}  // namespace
}  // namespace portwren::echotest
