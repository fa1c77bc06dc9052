// The echo server through the built program: key S on one end of a pseudo-terminal pair, the test
// playing the client at the far end with chunks of its own making. Good chunks come back byte for
// byte (a bad CRC is reported and echoed too); garbage ends the server with its line and the key
// loop goes on; '0' stops it; statistics; the logs hold a record per chunk.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/log_files.h"
#include "echo/chunk_format.h"
#include "echo/random_echo.h"
#include "echo_run_support.h"

namespace portwren::echotest {
namespace {

using testkit::ExpectInOrder;
using testkit::KeyPrompt;

constexpr uint32_t kChunkMax = 600;
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

// The server on the test's port, keys typed while it runs, in a working folder of its own.
class EchoServerEndToEnd : public testkit::PtyRunTest {
 protected:
  // Starts the program and presses S; true once the server waits for a client.
  bool StartServer(const std::string& extra_args = "") {
    server_.emplace(PORTWREN_EXE, Words(port() + " -K " + std::to_string(kChunkMax) + " " + extra_args),
                    dir_.path());
    server_->Type("S");
    return server_->WaitFor(kWaiting);
  }

  // Writes from a thread of its own while this one reads the echo, as a client does; the bytes
  // that came back. Reading late fills the line back, so the server's echo write stalls.
  std::string EchoThrough(const std::vector<std::string>& chunks, int pause_ms = 0, int read_after_ms = 0) {
    size_t total = 0;
    for (const std::string& chunk : chunks) total += chunk.size();
    std::thread writer([&] {
      for (const std::string& chunk : chunks) {
        EXPECT_TRUE(pty_.WriteFar(chunk));
        std::this_thread::sleep_for(std::chrono::milliseconds(pause_ms));
      }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(read_after_ms));
    std::string echoed = pty_.ReadFar(total, kWaitMs + pause_ms * static_cast<int>(chunks.size()));
    writer.join();
    return echoed;
  }

  std::string Finish() { return server_->Finish().out; }

  std::string Log(const char* name) const {
    return testlog::ScrubStamps(testlog::FileText(dir_.path() + "/" + name));
  }

  WorkDir dir_;
  std::optional<Background> server_;
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
  ASSERT_TRUE(StartServer("--echo-need-log"));
  EchoRandom random(7);
  std::vector<std::string> chunks, expected_heads;
  for (uint32_t length : {12u, 13u, 14u, 15u, 300u, kChunkMax + kEchoHeadSize, 97u}) {
    chunks.push_back(Chunk(static_cast<uint32_t>(chunks.size()), length, random));
  }
  chunks[4][100] ^= 0x10;  // chunk 4 arrives with a body that does not match its CRC
  while (chunks.size() < 67)
    chunks.push_back(Chunk(static_cast<uint32_t>(chunks.size()), 12 + random.Next() % 589, random));
  std::string sent;
  for (const std::string& chunk : chunks) {
    expected_heads.push_back("#" + std::to_string(expected_heads.size()) + ": " +
                             std::to_string(chunk.size()) + " bytes: ");
    sent += chunk;
  }
  // The first seven one by one over more than two seconds, the rest at once and read late.
  std::string echoed = EchoThrough({chunks.begin(), chunks.begin() + 7}, 400);
  echoed += EchoThrough({chunks.begin() + 7, chunks.end()}, 0, 500);
  EXPECT_TRUE(echoed == sent) << "echo differs from what was sent";
  EXPECT_TRUE(server_->WaitFor("First client connected. Start timing.\n"));
  server_->Type("0");
  ASSERT_TRUE(server_->WaitFor("Echo server stopped."));

  const std::string out = Finish();
  ExpectInOrder(out,
                {"Got 'S'.\n [D] ClearCommError", kWaiting, " [D] First client connected. Start timing.\n",
                 " [D] !!! Wrong crc32 detected on chunk-id 4. \n", kQuitting, kStopped + KeyPrompt(1)});
  EXPECT_EQ(out.find("Wrong crc32"), out.rfind("Wrong crc32")) << "one bad chunk, one line";
  EXPECT_TRUE(std::regex_search(out, std::regex(R"( \[D\] Echoed \d+ chunks, [0-9.]+ [KM]?B/s\n)"))) << out;
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
  std::string args, bytes;
  std::string stop_keys;    // typed after the bytes
  std::string lines;        // between the start and the stop line
  std::string in_log_head;  // first record head, empty for none
};

void PrintTo(const GarbageCase& c, std::ostream* out) {
  *out << c.name;
}

std::string RandomBytes(size_t count) {
  std::mt19937 random(20240611);
  std::string bytes;
  for (size_t i = 0; i < count; ++i) bytes.push_back(static_cast<char>(random() & 0xFF));
  return bytes;
}

const std::string kShortHead = "\x01\x02\x03\x04\x05";
const GarbageCase kGarbage[] = {
    {"OversizedBodyLength", "", Head(0, kChunkMax + 1, 0), "",
     " [D] Received wrong data. Echo body length(601) exceeds max expected(600).\n",
     "#0: 613 bytes: (echo mismatch, dump total 12)"},
    {"RandomBytes", "", RandomBytes(40), "",
     " [D] Received wrong data. Echo body length(-894627404) exceeds max expected(600).\n",
     "#0: -894627392 bytes: (echo mismatch, dump total 12)"},
    {"TruncatedHeadThenSilence", "", kShortHead, "0", kQuitting, ""},
    {"TruncatedBodyThenSilence", "", Head(0, 100, 0) + std::string(40, 'b'), "0", kQuitting, ""},
    // The head as far as it came: a body length of 5.
    {"TruncatedHeadEndedByIntervalTimeout", "--rtoi=100", kShortHead, "",
     " [D] Error: Vcom read complete with unexpected bytes count. Got:5 , Expect=12\n", "#0: 17 bytes: "},
};

class EchoServerGarbage : public EchoServerEndToEnd, public testing::WithParamInterface<GarbageCase> {};

TEST_P(EchoServerGarbage, EndsWithItsLineAndTheLoopGoesOn) {
  const GarbageCase& c = GetParam();
  ASSERT_TRUE(StartServer(c.args + " --echo-need-log"));
  ASSERT_TRUE(pty_.WriteFar(c.bytes));
  if (!c.stop_keys.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(300));
  server_->Type(c.stop_keys);
  EXPECT_TRUE(server_->WaitFor("Echo server stopped."));
  server_->Type("q");  // the loop answers with a queue report
  EXPECT_TRUE(server_->WaitFor("ClearCommError() reports"));
  ExpectInOrder(Finish(),
                {kWaiting, c.lines + kStopped + KeyPrompt(1) + "Got 'q'.\n [D] ClearCommError() reports: "});
  EXPECT_EQ(0u, pty_.DrainFar(100)) << "garbage must not be echoed";
  EXPECT_EQ(c.in_log_head.empty() ? std::vector<std::string>{} : std::vector<std::string>{c.in_log_head},
            RecordHeads(Log("echo_srv_in.log")));
}

INSTANTIATE_TEST_SUITE_P(Cases, EchoServerGarbage, testing::ValuesIn(kGarbage),
                         [](const testing::TestParamInfo<GarbageCase>& p) { return p.param.name; });

// The far end hanging up fails the pending read: a WinErr line, and the server returns.
TEST_F(EchoServerEndToEnd, ReadErrorEndsTheServer) {
  ASSERT_TRUE(StartServer());
  ASSERT_TRUE(pty_.WriteFar("\x01\x02"));
  pty_.CloseFar();
  ASSERT_TRUE(server_->WaitFor("Echo server stopped."));
  ExpectInOrder(
      Finish(),
      {kWaiting, " [D] Unexpect: Vcom read got error. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)\n" +
                     std::string(kStopped) +
                     " [T] SetCommTimeouts fail. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)\n" + KeyPrompt(1)});
}

// A log that cannot be made skips the server without a prompt; the next key is answered.
TEST_F(EchoServerEndToEnd, LogThatCannotBeOpenedSkipsTheServer) {
  for (const char* name : {"echo_srv_out.log", "echo_srv_in.log"}) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(std::filesystem::create_directory(dir_.path() + "/" + name));
    testkit::ProcessOptions options;
    options.working_dir = dir_.path();
    const testkit::ProcessResult r = Run({port(), "--echo-need-log"}, "Sq", 0, options);
    ExpectInOrder(r.out, {std::string("Got 'S'.\nError: ") + name + " open/create fail!\nGot 'q'.\n"});
    EXPECT_EQ(std::string::npos, r.out.find("Starting echo server")) << r.out;
    std::filesystem::remove(dir_.path() + "/" + name);
  }
}

}  // namespace
}  // namespace portwren::echotest
