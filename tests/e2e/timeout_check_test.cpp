// The timeout check through the built program: --timeout-check before the keys, or the T key, on a
// pseudo-terminal whose far end echoes (every rule passes) or stays silent (no loopback: the first
// rule fails). Checks the lines, the summary, the JSON lines and exit code 3 only on a FAIL with
// --nonzero-on-fail.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "common/e2e_support.h"
#include "common/echo_peer.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;

struct CheckCase {
  const char* name;
  std::vector<std::string> args;  // after the port and the results file
  std::string keys;
  bool echo;
  int exit_code;
  std::vector<std::string> out_pieces;  // in order
  size_t json_lines;                    // timeout_check lines, session_end not counted
  std::string session_piece;
};

const CheckCase kCases[] = {
    {"OptionOnLoopbackPasses",
     {"--timeout-check", "--nonzero-on-fail"},
     "",
     true,
     0,
     {"Choose action",
      "Timeout check: each read and write timeout rule, timed on a loopback (tolerance -16/+150 ms).",
      "\nPASS loopback: ", "\nPASS interval timer restarted by each byte ",
      "\nPASS PurgeComm(PURGE_TXABORT) ",
      "\nPASS the port's timeouts put back (read back with GetCommTimeouts): expected read 0/0/0, write 0/0; "
      "measured read 0/0/0, write 0/0.\n",
      " ms: 17 PASS, 0 FAIL, 1 INFO.\n", "Got '\x1b'."},
     18,
     R"("runs":18,"failed_runs":0,"verdict":"pass","exit_code":0})"},
    {"KeyWithoutLoopbackFails",
     {"--nonzero-on-fail"},
     "T",
     false,
     3,
     {"Choose action", "Got 'T'.", "\nFAIL loopback: ", "No loopback", " ms: 1 PASS, 1 FAIL, 0 INFO.\n",
      testkit::KeyPrompt(1)},
     2,
     R"("runs":2,"failed_runs":1,"verdict":"fail","exit_code":3})"},
    {"FailWithoutTheOptionKeepsExitZero",
     {"--timeout-check"},
     "",
     false,
     0,
     {"\nFAIL loopback: ", " ms: 1 PASS, 1 FAIL, 0 INFO.\n"},
     2,
     R"("failed_runs":1,"verdict":"fail","exit_code":0})"},
};

void PrintTo(const CheckCase& c, std::ostream* os) {
  *os << c.name;
}

class TimeoutCheckRun : public testkit::PtyRunTest, public testing::WithParamInterface<CheckCase> {};

TEST_P(TimeoutCheckRun, LinesJsonAndExitCode) {
  const CheckCase& c = GetParam();
  const std::string file = testing::TempDir() + "portwren_tocheck_" + std::to_string(::getpid()) + ".jsonl";
  std::remove(file.c_str());
  std::unique_ptr<testkit::EchoPeer> far;
  if (c.echo) far = std::make_unique<testkit::EchoPeer>(pty_, testkit::PeerPlan{});
  std::vector<std::string> args = {port(), "--json-results=" + file};
  args.insert(args.end(), c.args.begin(), c.args.end());
  const testkit::ProcessResult r = Run(args, c.keys, c.exit_code);
  ExpectInOrder(r.out, c.out_pieces);

  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::remove(file.c_str());
  ASSERT_EQ(c.json_lines + 1, lines.size()) << r.out;
  ExpectInOrder(lines[0], {R"({"event":"timeout_check","port":")" + port() + "\",", R"("rule":"loopback",)",
                           R"("timeouts":{"read_interval":0,"read_multiplier":0,"read_constant":1000,)",
                           R"("request_bytes":8,"expected":"the 8 bytes written back within 1000 ms",)",
                           R"("tolerance_ms":{"early":-16,"late":150},"verdict":")" +
                               std::string(c.echo ? "pass" : "fail") + "\"}"});
  ExpectInOrder(lines[c.json_lines - 1], {R"("rule":"restore",)", R"("verdict":"pass"})"});
  if (c.echo) {
    ExpectInOrder(lines[3],
                  {R"("rule":"total",)", R"("measured_bytes":3,"error":0,)", R"("verdict":"pass"})"});
    ExpectInOrder(lines[14],
                  {R"("rule":"cancelled_read_bytes",)", R"("error":995,)", R"("verdict":"info"})"});
  }
  ExpectInOrder(lines.back(), {R"({"event":"session_end",)", c.session_piece});
}

INSTANTIATE_TEST_SUITE_P(TimeoutCheck, TimeoutCheckRun, testing::ValuesIn(kCases),
                         [](const auto& param_info) { return std::string(param_info.param.name); });

}  // namespace
}  // namespace portwren
