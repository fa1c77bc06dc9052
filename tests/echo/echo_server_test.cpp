// The echo server through the built program: key S on one end of a pseudo-terminal pair, the test
// playing the client at the far end with chunks of its own making. Good chunks come back byte for
// byte (a bad CRC is reported and echoed too); garbage ends the server with its line and the key
// loop goes on; '0' stops it; statistics; the logs hold a record per chunk.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <random>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"
#include "common/log_files.h"
#include "echo/chunk_format.h"
#include "echo/random_echo.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::KeyPrompt;
using testkit::ProcessOptions;
using testkit::ProcessResult;

constexpr uint32_t kChunkMax = 600;
constexpr int kLineWaitMs = 15000;
constexpr char kWaiting[] = "Starting echo server(chunkmax=600), waiting client... ('0' to break)\n";
constexpr char kStopped[] = " [D] Echo server stopped.\n";
constexpr char kQuitting[] = " [D] Now quitting echo server...\n";

std::string Chunk(uint32_t id, uint32_t length, EchoRandom& random) {
  std::string bytes(ChunkBufferSize(length), '\0');
  EXPECT_TRUE(BuildChunk(reinterpret_cast<uint8_t*>(bytes.data()), length, id, ChunkBodySource{&random}));
  bytes.resize(length);
  return bytes;
}

std::string Head(uint32_t id, uint32_t body_length, uint32_t crc) {
  std::string bytes(kEchoHeadSize, '\0');
  WriteChunkHead(reinterpret_cast<uint8_t*>(bytes.data()), ChunkHead{id, body_length, crc});
  return bytes;
}

// The server on the test's port, keys typed while it runs, in a working directory of its own.
class EchoServerEndToEnd : public testkit::PtyRunTest {
 protected:
  void SetUp() override {
    PtyRunTest::SetUp();
    dir_ = testing::TempDir() + "portwren_srv_" + std::to_string(::getpid()) + "_" +
           testing::UnitTest::GetInstance()->current_test_info()->name();
    std::filesystem::remove_all(dir_);
    ASSERT_TRUE(std::filesystem::create_directories(dir_));
  }
  void TearDown() override {
    keys_.Close();
    if (runner_.joinable()) runner_.join();
    std::filesystem::remove_all(dir_);
  }

  // Starts the program and presses S; true once the server waits for a client.
  bool StartServer(std::vector<std::string> extra_args = {}) {
    std::vector<std::string> args{port(), "-K", std::to_string(kChunkMax)};
    args.insert(args.end(), extra_args.begin(), extra_args.end());
    ProcessOptions options;
    options.stdin_fd = keys_.read_fd();
    options.working_dir = dir_;
    options.on_out = watch_.Tap();
    runner_ = std::thread([this, args, options] { result_ = Run(args, "", 0, options); });
    keys_.Type("S");
    return watch_.WaitFor(kWaiting, kLineWaitMs);
  }

  // Types the keys, waits for `line`, and types 'q': the loop answers with a queue report.
  void ExpectLineThenLoopAnswers(const std::string& keys, const std::string& line) {
    keys_.Type(keys);
    EXPECT_TRUE(watch_.WaitFor(line, kLineWaitMs)) << line;
    keys_.Type("q");
    EXPECT_TRUE(watch_.WaitFor("ClearCommError() reports", kLineWaitMs));
  }

  // Writes from a thread of its own while this one reads the echo, as a client does; the bytes
  // that came back. Reading late fills the line back, so the server's echo write stalls.
  std::string EchoThrough(const std::vector<std::string>& chunks, int pause_ms = 0, int read_after_ms = 0) {
    size_t total = 0;
    for (const std::string& chunk : chunks) total += chunk.size();
    std::thread writer([&] {
      for (const std::string& chunk : chunks) {
        EXPECT_TRUE(pty_.WriteFar(chunk));
        if (pause_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
      }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(read_after_ms));
    std::string echoed = pty_.ReadFar(total, kLineWaitMs + pause_ms * static_cast<int>(chunks.size()));
    writer.join();
    return echoed;
  }

  // Ends the keys (ESC) and returns the scrubbed output.
  const ProcessResult& Finish() {
    keys_.Close();
    runner_.join();
    return result_;
  }

  std::string Log(const char* name) const {
    return testlog::ScrubStamps(testlog::FileText(dir_ + "/" + name));
  }

  testkit::KeyPipe keys_;
  testkit::OutputWatch watch_;
  std::string dir_;
  std::thread runner_;
  ProcessResult result_;
};

// The record heads of a log, one "#n: size bytes: status" each.
std::vector<std::string> RecordHeads(const std::string& log) {
  std::vector<std::string> heads;
  const std::regex head(R"(\[S\] (#\d+: -?\d+ bytes: [^\r]*)\r\n)");
  for (auto it = std::sregex_iterator(log.begin(), log.end(), head); it != std::sregex_iterator(); ++it) {
    heads.push_back((*it)[1]);
  }
  return heads;
}

// Empty bodies, 1 to 3 tail bytes, a body as long as the chunk maximum itself (the length check
// is against the whole-chunk size, so such a chunk passes), a bad CRC among them; paced so that the
// first statistics line comes, and as a burst so that chunks wait while the echo is written.
TEST_F(EchoServerEndToEnd, EchoesEveryChunkReportsBadCrcAndStatisticsStopsOnZeroAndLogs) {
  ASSERT_TRUE(StartServer({"--echo-need-log"}));
  EchoRandom random(7);
  std::vector<std::string> chunks;
  std::vector<std::string> expected_heads;
  const uint32_t lengths[] = {12, 13, 14, 15, 300, kChunkMax + kEchoHeadSize, 97};
  for (uint32_t length : lengths)
    chunks.push_back(Chunk(static_cast<uint32_t>(chunks.size()), length, random));
  chunks[4][100] ^= 0x10;  // chunk 4 arrives with a body that does not match its CRC
  for (int i = 0; i < 60; ++i)
    chunks.push_back(Chunk(static_cast<uint32_t>(chunks.size()), 12 + random.Next() % 589, random));
  for (size_t i = 0; i < chunks.size(); ++i) {
    expected_heads.push_back("#" + std::to_string(i) + ": " + std::to_string(chunks[i].size()) + " bytes: ");
  }
  std::string sent;
  for (const std::string& chunk : chunks) sent += chunk;

  // The first seven one by one over more than two seconds, the rest at once and read late.
  std::string echoed = EchoThrough({chunks.begin(), chunks.begin() + 7}, 400);
  echoed += EchoThrough({chunks.begin() + 7, chunks.end()}, 0, 500);
  EXPECT_TRUE(echoed == sent) << "echo differs from what was sent";
  EXPECT_TRUE(watch_.WaitFor("First client connected. Start timing.\n", kLineWaitMs));
  keys_.Type("0");
  ASSERT_TRUE(watch_.WaitFor("Echo server stopped.", kLineWaitMs));

  const std::string& out = Finish().out;
  ExpectInOrder(out,
                {"Got 'S'.\n [D] ClearCommError", kWaiting, " [D] First client connected. Start timing.\n",
                 " [D] !!! Wrong crc32 detected on chunk-id 4. \n"});
  EXPECT_EQ(out.find("Wrong crc32"), out.rfind("Wrong crc32")) << "one bad chunk, one line";
  EXPECT_TRUE(std::regex_search(out, std::regex(R"( \[D\] Echoed \d+ chunks, [0-9.]+ [KM]?B/s\n)"))) << out;
  ExpectInOrder(out, {kQuitting, kStopped + KeyPrompt(1)});

  EXPECT_EQ(expected_heads, RecordHeads(Log("echo_srv_in.log")));
  EXPECT_EQ(expected_heads, RecordHeads(Log("echo_srv_out.log")));
  // A record's dump holds the chunk where the stream has it: the 13-byte chunk starts at byte 12,
  // its CRC is that of its one body byte, 0xFF.
  EXPECT_NE(std::string::npos,
            Log("echo_srv_out.log")
                .find("[S] #1: 13 bytes: \r\n------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
                      "0000:                                     01 00 00 00\r\n"
                      "0010: 01 00 00 00 00 00 00 ff ff.\r\n\r\n"));
}

// Each kind of garbage ends the server with its line (by itself, or with '0' where the line just
// stays silent), the in-log records what came, and the key loop answers the next key.
struct GarbageCase {
  const char* name;
  std::vector<std::string> extra_args;
  std::string bytes;
  std::string stop_keys;    // typed after the bytes
  std::string lines;        // between the start and the stop line
  std::string in_log_head;  // first record head, empty for none
};

std::string RandomBytes(size_t count) {
  std::mt19937 random(20240611);
  std::string bytes;
  for (size_t i = 0; i < count; ++i) bytes.push_back(static_cast<char>(random() & 0xFF));
  return bytes;
}

const GarbageCase kGarbage[] = {
    {"OversizedBodyLength",
     {},
     Head(0, kChunkMax + 1, 0),
     "",
     " [D] Received wrong data. Echo body length(601) exceeds max expected(600).\n",
     "#0: 613 bytes: (echo mismatch, dump total 12)"},
    {"RandomBytes",
     {},
     RandomBytes(40),
     "",
     " [D] Received wrong data. Echo body length(-894627404) exceeds max expected(600).\n",
     "#0: -894627392 bytes: (echo mismatch, dump total 12)"},
    {"TruncatedHeadThenSilence", {}, "\x01\x02\x03\x04\x05", "0", kQuitting, ""},
    {"TruncatedBodyThenSilence", {}, Head(0, 100, 0) + std::string(40, 'b'), "0", kQuitting, ""},
    {"TruncatedHeadEndedByIntervalTimeout",
     {"--rtoi=100"},
     "\x01\x02\x03\x04\x05",
     "",
     " [D] Error: Vcom read complete with unexpected bytes count. Got:5 , Expect=12\n",
     "#0: 17 bytes: "},  // the head as far as it came: a body length of 5
};

class EchoServerGarbage : public EchoServerEndToEnd, public testing::WithParamInterface<GarbageCase> {};

TEST_P(EchoServerGarbage, EndsWithItsLineAndTheLoopGoesOn) {
  const GarbageCase& c = GetParam();
  std::vector<std::string> args = c.extra_args;
  args.push_back("--echo-need-log");
  ASSERT_TRUE(StartServer(args));
  ASSERT_TRUE(pty_.WriteFar(c.bytes));
  if (!c.stop_keys.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ExpectLineThenLoopAnswers(c.stop_keys, "Echo server stopped.");
  const std::string& out = Finish().out;
  ExpectInOrder(out,
                {kWaiting, c.lines + kStopped + KeyPrompt(1) + "Got 'q'.\n [D] ClearCommError() reports: "});
  EXPECT_EQ(0u, pty_.DrainFar(100)) << "garbage must not be echoed";
  const std::vector<std::string> heads = RecordHeads(Log("echo_srv_in.log"));
  EXPECT_EQ(c.in_log_head.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.in_log_head},
            heads);
}

INSTANTIATE_TEST_SUITE_P(Cases, EchoServerGarbage, testing::ValuesIn(kGarbage),
                         [](const testing::TestParamInfo<GarbageCase>& p) { return p.param.name; });

// The far end hanging up fails the pending read: a WinErr line, and the server returns.
TEST_F(EchoServerEndToEnd, ReadErrorEndsTheServer) {
  ASSERT_TRUE(StartServer());
  ASSERT_TRUE(pty_.WriteFar("\x01\x02"));
  pty_.CloseFar();
  ASSERT_TRUE(watch_.WaitFor("Echo server stopped.", kLineWaitMs));
  ExpectInOrder(
      Finish().out,
      {kWaiting, " [D] Unexpect: Vcom read got error. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)\n" +
                     std::string(kStopped) +
                     " [T] SetCommTimeouts fail. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)\n" + KeyPrompt(1)});
}

// A log that cannot be made skips the server without a prompt; the next key is answered.
TEST_F(EchoServerEndToEnd, LogThatCannotBeOpenedSkipsTheServer) {
  for (const char* name : {"echo_srv_out.log", "echo_srv_in.log"}) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(std::filesystem::create_directory(dir_ + "/" + name));
    ProcessOptions options;
    options.working_dir = dir_;
    const ProcessResult r = Run({port(), "--echo-need-log"}, "Sq", 0, options);
    ExpectInOrder(r.out, {std::string("Got 'S'.\nError: ") + name + " open/create fail!\nGot 'q'.\n"});
    EXPECT_EQ(std::string::npos, r.out.find("Starting echo server")) << r.out;
    std::filesystem::remove(dir_ + "/" + name);
  }
}

}  // namespace
}  // namespace portwren
