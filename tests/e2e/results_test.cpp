// Results a machine reads: the built program runs echo client and server on a pseudo-terminal with
// piped keys and --json-results; the test checks the JSON lines, the latency lines, the exit
// code with and without --nonzero-on-fail, and that a pseudo-terminal gets no line-use line.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"
#include "echo/chunk_format.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::ProcessOptions;
using testkit::ProcessResult;

// The far end sends back every byte; the byte at `flip_at` of the stream comes back altered.
class Loopback {
 public:
  Loopback(testkit::PtyPair& pty, long flip_at) : pty_(pty), flip_at_(flip_at), thread_([this] { Run(); }) {}
  ~Loopback() {
    stop_ = true;
    thread_.join();
  }

 private:
  void Run() {
    long position = 0;
    while (!stop_) {
      std::string got = pty_.ReadFar(4096, 5);
      for (char& byte : got) {
        if (position++ == flip_at_) byte ^= 0x01;
      }
      if (!got.empty()) pty_.WriteFar(got);
    }
  }

  testkit::PtyPair& pty_;
  long flip_at_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class Results : public testkit::PtyRunTest {
 protected:
  void SetUp() override {
    PtyRunTest::SetUp();
    file_ = testing::TempDir() + "portwren_results_" + std::to_string(::getpid()) + ".jsonl";
    std::remove(file_.c_str());
  }
  void TearDown() override { std::remove(file_.c_str()); }

  std::string file_;
};

struct ClientCase {
  const char* name;
  long flip_at;  // -1: a clean line
  bool nonzero_on_fail;
  int exit_code;
  std::vector<std::string> run_pieces;  // in order on the run's line
  std::string session_piece;
};

// Ten chunks of 100 bytes in mild mode; byte 50 lies in chunk 0's body.
const ClientCase kClientCases[] = {
    {"Clean",
     -1,
     true,
     0,
     {R"("event":"echo_client")", R"("mode":"mild")", R"("sent":{"chunks":10,"bytes":1000})",
      R"("received":{"chunks":10,"bytes":1000})", R"("first_error":null)", R"("latency_us":{"count":10,)",
      R"("histogram":[{"from":)", R"("verdict":"pass"})"},
     R"("runs":1,"failed_runs":0,"verdict":"pass","exit_code":0})"},
    {"WrongCrcFailsTheSession",
     50,
     true,
     3,
     {R"("received":{"chunks":0,"bytes":0})", R"("first_error":{"kind":"wrong_crc","chunk_id":0,)",
      R"("verdict":"fail"})"},
     R"("runs":1,"failed_runs":1,"verdict":"fail","exit_code":3})"},
    {"WrongCrcWithoutTheOption",
     50,
     false,
     0,
     {R"("verdict":"fail"})"},
     R"("failed_runs":1,"verdict":"fail","exit_code":0})"},
};

class ClientResults : public Results, public testing::WithParamInterface<ClientCase> {};

TEST_P(ClientResults, JsonLinesAndExitCode) {
  const ClientCase& c = GetParam();
  const Loopback far(pty_, c.flip_at);
  std::vector<std::string> args = {port(), "-k", "100", "-K", "100", "-m", "1000", "--json-results=" + file_};
  if (c.nonzero_on_fail) args.push_back("--nonzero-on-fail");
  // End of input reads as ESC: the run ignores it, the loop then quits.
  const ProcessResult r = Run(args, "c", c.exit_code);
  ExpectInOrder(r.out, {c.flip_at < 0 ? "Echo test success." : "Echo test fail."});
  if (c.flip_at < 0) ExpectInOrder(r.out, {"Echo test success.\nRound trip latency (us): count 10, min "});
  const std::vector<std::string> lines = ReadLines(file_);
  ASSERT_EQ(2u, lines.size()) << r.out;
  EXPECT_EQ(0u, lines[0].find(R"({"event":"echo_client","port":")" + port() + "\",")) << lines[0];
  ExpectInOrder(lines[0], c.run_pieces);
  // A pseudo-terminal's baud rate means nothing: no share of the line is given.
  EXPECT_EQ(std::string::npos, r.out.find("Line use:")) << r.out;
  EXPECT_EQ(std::string::npos, lines[0].find("line_use")) << lines[0];
  EXPECT_EQ(0u, lines[1].find(R"({"event":"session_end",)")) << lines[1];
  ExpectInOrder(lines[1], {c.session_piece});
}

INSTANTIATE_TEST_SUITE_P(Echo, ClientResults, testing::ValuesIn(kClientCases),
                         [](const auto& param_info) { return std::string(param_info.param.name); });

std::string Chunk(uint32_t id, uint32_t length) {
  std::string bytes(ChunkBufferSize(length), '\0');
  uint32_t counter = 7;
  BuildChunk(reinterpret_cast<uint8_t*>(bytes.data()), length, id, ChunkBodySource{nullptr, &counter});
  bytes.resize(length);
  return bytes;
}

// The server echoes what it gets; a chunk with a wrong CRC is echoed too but fails the run.
TEST_F(Results, ServerRunsPassAndFail) {
  for (const bool bad_crc : {false, true}) {
    SCOPED_TRACE(bad_crc ? "bad CRC" : "clean");
    std::remove(file_.c_str());
    testkit::KeyPipe keys;
    testkit::OutputWatch watch;
    ASSERT_TRUE(keys.ok());
    ProcessOptions options;
    options.stdin_fd = keys.read_fd();
    options.on_out = watch.Tap();
    options.env_unset.push_back("PORTWREN_PRINT_LESS");
    ProcessResult r;
    std::thread runner([&] {
      r = testkit::RunPortwren({port(), "--json-results=" + file_, "--nonzero-on-fail"}, options);
    });
    keys.Type("S");
    const bool waiting = watch.WaitFor("waiting client...", 10000);
    std::string sent = Chunk(0, 40) + Chunk(1, 64);
    if (bad_crc) sent[40 + 20] ^= 0x10;
    if (waiting) pty_.WriteFar(sent);
    const std::string echoed = waiting ? pty_.ReadFar(sent.size(), 5000) : "";
    // The last echo may be on the line before its routine counted it; '0' then ends the count early.
    keys.Type("0");
    watch.WaitFor("Echo server stopped.", 10000);
    keys.Close();
    runner.join();
    ASSERT_TRUE(waiting) << r.out;
    EXPECT_EQ(sent, echoed);
    EXPECT_EQ(bad_crc ? 3 : 0, r.exit_code) << r.out;
    const std::vector<std::string> lines = ReadLines(file_);
    ASSERT_EQ(2u, lines.size()) << r.out;
    ExpectInOrder(lines[0],
                  {R"({"event":"echo_server",)", R"("started":true,"received":{"chunks":2,"bytes":104})",
                   R"("echoed":{"chunks":)"});
    if (bad_crc) {
      ExpectInOrder(
          lines[0],
          {R"("wrong_data":true,"ended_on_error":false,"first_error":{"kind":"wrong_crc","chunk_id":1,)",
           R"("verdict":"fail"})"});
    } else {
      ExpectInOrder(lines[0],
                    {R"("wrong_data":false,"ended_on_error":false,"first_error":null,"verdict":"pass"})"});
    }
    ExpectInOrder(lines[1], {R"("runs":1,"failed_runs":)" + std::string(bad_crc ? "1" : "0")});
    EXPECT_EQ(std::string::npos, r.out.find("Line use:")) << r.out;
    EXPECT_EQ(std::string::npos, lines[0].find("line_use")) << lines[0];
  }
}

// A results file that cannot be written is named at start-up and fails the session.
TEST_F(Results, UnwritableFileIsReported) {
  const ProcessResult r =
      Run({port(), "--json-results=/nonexistent-dir/r.jsonl", "--nonzero-on-fail"}, "", 3);
  ExpectInOrder(r.out, {"!!! Error: results file /nonexistent-dir/r.jsonl open/create fail!"});
}

}  // namespace
}  // namespace portwren
