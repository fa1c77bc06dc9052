// The echo client (keys C and c) through the built program on a pseudo-terminal whose far end is
// an echo peer of the test: whole runs checked byte for byte against the chunk functions, the
// stops on '0', the time limits, the receive checks against a peer that corrupts one byte, and
// the operator pause with its dumps.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"
#include "common/echo_peer.h"
#include "common/log_files.h"
#include "echo/chunk_format.h"
#include "echo/crc32.h"

namespace portwren {
namespace {

using testkit::EchoPeer;
using testkit::ExpectInOrder;
using testkit::PeerFault;
using testkit::PeerPlan;
using testkit::ProcessOptions;
using testkit::ProcessResult;

constexpr auto kRunLimit = std::chrono::milliseconds(20000);

// What the client puts on the wire for a run of `limit` bytes.
struct Wire {
  std::string bytes;
  uint64_t chunks = 0;
};

Wire ExpectedWire(uint32_t seed, uint32_t min_chunk, uint32_t max_chunk, uint64_t limit,
                  std::optional<uint32_t> sequence = std::nullopt) {
  EchoRandom random(seed);
  uint32_t previous = 0;
  uint32_t counter = sequence.value_or(0);
  std::vector<uint8_t> chunk(ChunkBufferSize(max_chunk));
  Wire wire;
  while (wire.bytes.size() < limit) {
    const uint32_t length = DrawChunkLength(random, min_chunk, max_chunk, previous);
    ChunkBodySource source;
    if (sequence) {
      source.sequence = &counter;
    } else {
      source.random = &random;
    }
    BuildChunk(chunk.data(), length, static_cast<uint32_t>(wire.chunks), source);
    wire.bytes.append(reinterpret_cast<const char*>(chunk.data()), length);
    ++wire.chunks;
  }
  return wire;
}

size_t Count(const std::string& text, const std::string& piece) {
  size_t count = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
  return count;
}

// The program runs in a directory of its own: the echo logs and the partial dump land there.
class EchoClientTest : public testkit::PtyRunTest {
 protected:
  void SetUp() override {
    PtyRunTest::SetUp();
    std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
    for (char& c : test) c = c == '/' ? '_' : c;
    dir_ = testing::TempDir() + "portwren_echocli_" + std::to_string(::getpid()) + "_" + test;
    std::filesystem::remove_all(dir_);
    ASSERT_TRUE(std::filesystem::create_directories(dir_));
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  // Runs the program on the port with `args`; keys from `options` or `keys`.
  ProcessResult RunClient(const std::vector<std::string>& args, const std::string& keys,
                          ProcessOptions options = {}) {
    std::vector<std::string> full = {"-C", dir_, PORTWREN_EXE, port()};
    full.insert(full.end(), args.begin(), args.end());
    if (options.stdin_fd < 0) options.stdin_bytes = keys;
    options.env_unset.push_back("PORTWREN_PRINT_LESS");
    options.timeout = kRunLimit;
    ProcessResult r = testkit::RunProcess("env", full, options);
    r.out = testkit::ScrubRunText(r.out);
    EXPECT_TRUE(r.started) << r.error;
    EXPECT_FALSE(r.timed_out) << r.out;
    EXPECT_EQ(0, r.exit_code) << r.out << r.err;
    EXPECT_EQ("", r.err);
    return r;
  }

  // Types `first`, then, each time the peer has seen the next count of bytes, the next keys;
  // then ends the input.
  ProcessResult RunTyped(const std::vector<std::string>& args, EchoPeer& peer,
                         const std::vector<std::pair<size_t, std::string>>& steps) {
    testkit::KeyPipe keys;
    EXPECT_TRUE(keys.ok());
    std::thread typist([&] {
      for (const auto& [received, text] : steps) {
        EXPECT_TRUE(peer.WaitReceived(received, 10000)) << "the peer saw only " << peer.Received();
        keys.Type(text);
      }
      keys.Close();
    });
    ProcessOptions options;
    options.stdin_fd = keys.read_fd();
    ProcessResult r = RunClient(args, "", options);
    typist.join();
    return r;
  }

  std::string File(const char* name) const { return testlog::FileText(dir_ + "/" + name); }
  bool Exists(const char* name) const { return std::filesystem::exists(dir_ + "/" + name); }

  std::string dir_;
};

// ---- whole runs ----

struct RunCase {
  const char* name;
  char key;
  uint32_t min_chunk, max_chunk;
  uint64_t limit;
  uint32_t seed;
  std::optional<uint32_t> sequence;
  std::vector<std::string> more_args;
  const char* note;  // a line the run prints before it starts, or null
  int hold_ms;       // the peer holds each echo this long
  int pacing_ms;     // chunks reach the far end at least this far apart
};

void PrintTo(const RunCase& c, std::ostream* os) {
  *os << c.name;
}

// clang-format off
const RunCase kRuns[] = {
    {"UrgeRandomLogged", 'C', 12, 4000, 300000, 5566, std::nullopt, {"--echo-need-log"}, nullptr, 10, 0},
    {"MildSequenceLockStep", 'c', 12, 64, 6000, 0, 0x11233344, {}, nullptr, 2, 0},
    {"NibblesAndRandomReadDelay", 'C', 100, 300, 3000, 0, std::nullopt,
     {"--echocli-read-nibble=7", "--echocli-read-delaymsec=r20", "--echocli-write-delaymsec=30"},
     "Each chunk is delayed 30 millisec.", 0, 30},
    {"PlainReadDelayPacesMild", 'c', 100, 100, 1500, 0, std::nullopt, {"--echocli-read-delaymsec=40"}, nullptr, 0, 40},
};
// clang-format on

class EchoRunTest : public EchoClientTest, public testing::WithParamInterface<RunCase> {};

TEST_P(EchoRunTest, SendsTheComputedChunksAndSucceeds) {
  const RunCase& c = GetParam();
  const Wire wire = ExpectedWire(c.seed, c.min_chunk, c.max_chunk, c.limit, c.sequence);
  std::vector<std::string> args = {"-m",
                                   std::to_string(c.limit),
                                   "-k",
                                   std::to_string(c.min_chunk),
                                   "-K",
                                   std::to_string(c.max_chunk),
                                   "--echo-srand=" + std::to_string(c.seed)};
  if (c.sequence) args.push_back("--echo-start-seq=" + std::to_string(*c.sequence));
  args.insert(args.end(), c.more_args.begin(), c.more_args.end());
  std::optional<EchoPeer> peer(std::in_place, pty_, PeerPlan{.hold_ms = c.hold_ms});
  const ProcessResult r = RunClient(args, std::string(1, c.key));
  const size_t most_in_flight = peer->MostInFlight();
  const auto span = peer->ReceiveSpan();
  const std::string recorded = peer->Recorded();
  peer.reset();

  const std::string mode = c.key == 'C' ? "Urge" : "Mild";
  const std::string chunks = std::to_string(wire.chunks);
  const std::string bytes = std::to_string(wire.bytes.size());
  std::vector<std::string> expected = {std::string("Got '") + c.key + "'.\n",
                                       "Using echo chunk size (min:" + std::to_string(c.min_chunk) +
                                           " , max:" + std::to_string(c.max_chunk) + ").\n",
                                       " [D] Doing echo " + std::to_string(c.limit) + " bytes(" + mode +
                                           "), srand=" + std::to_string(c.seed) + ". ('0' to break)\n"};
  if (c.note != nullptr) expected.push_back(std::string(" [D] ") + c.note + "\n");
  expected.push_back(" [D] ClearCommError() reports: cbInQue=0, cbOutQue=0. \n");
  for (const auto& end :
       {">[D] All echo bytes sent. Total sent: chunks: " + chunks + ", bytes: " + bytes + "\n",
        "<[D] All echo bytes received. Total chunks: " + chunks + ", recv: " + bytes + "\n"}) {
    ExpectInOrder(r.out, {end});
  }
  expected.push_back(" [D] Echo test success.\n");
  expected.push_back(testkit::KeyPrompt(1));
  ExpectInOrder(r.out, expected);
  // Failures of the run itself; start-up's driver line comes before the key.
  const std::string run = r.out.substr(r.out.find("Got '"));
  EXPECT_EQ(0u, Count(run, "@Chunk") + Count(run, "WinErr")) << r.out;

  // Byte for byte what the chunk functions make, the first chunk included.
  ASSERT_EQ(wire.bytes.size(), recorded.size());
  EXPECT_TRUE(wire.bytes == recorded) << "the wire differs from the chunk functions' stream";
  // Mild mode waits for each echo; urge mode runs ahead, as far as the queues (--echo-rwbufx, 2,
  // times the largest chunk) reach.
  if (c.key == 'c') {
    EXPECT_LE(most_in_flight, c.max_chunk) << "more than one chunk in flight";
  } else if (c.hold_ms > 0) {
    EXPECT_GT(most_in_flight, c.max_chunk);
    EXPECT_LE(most_in_flight, 2 * c.max_chunk);
  }
  EXPECT_GE(span.count(), (static_cast<int64_t>(wire.chunks) - 2) * c.pacing_ms);
  if (c.more_args == std::vector<std::string>{"--echo-need-log"}) {
    for (const char* log : {"echo_cli_out.log", "echo_cli_in.log"}) {
      EXPECT_EQ(wire.chunks, Count(File(log), " bytes: \r\n")) << log;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Runs, EchoRunTest, testing::ValuesIn(kRuns),
                         [](const testing::TestParamInfo<RunCase>& param_info) {
                           return param_info.param.name;
                         });

// ---- stops on '0' ----

class GentleStopTest : public EchoClientTest, public testing::WithParamInterface<char> {};

TEST_P(GentleStopTest, OneZeroStopsAfterWhatWasSentAndSucceeds) {
  const char key = GetParam();
  EchoPeer peer(pty_, {});
  testkit::KeyPipe keys;
  ASSERT_TRUE(keys.ok());
  std::thread typist([&] {
    keys.Type(std::string(1, key));
    EXPECT_TRUE(peer.WaitReceived(1, 10000));
    // The run has started; one statistics line comes 1.5 s in.
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    keys.Type("0");
    keys.Close();
  });
  ProcessOptions options;
  options.stdin_fd = keys.read_fd();
  const ProcessResult r = RunClient({"-K", "2000"}, "", options);
  typist.join();
  ExpectInOrder(r.out, {" [D] Doing echo unlimited bytes(" + std::string(key == 'C' ? "Urge" : "Mild") +
                            "). srand=0. ('0' to break)\n",
                        " [D] Stopping echo flow... (In case no effect, press 0 again to force.)\n",
                        " quitting request from user.\n",
                        ">[D] All echo bytes sent. Total sent: chunks: ", " [D] Echo test success.\n"});
  // The pusher writes one more chunk after lowering the limit; the pulling thread may collect the
  // echoes up to that limit and quit before that write completes, so these two have no order.
  ExpectInOrder(r.out, {" quitting request from user.\n", "<[D] Pulling thread has quitted.\n",
                        " [D] Echo test success.\n"});
  EXPECT_TRUE(std::regex_search(
      r.out, std::regex(R"( \[D\] 0 hours [12] secs, chunks: \d+, [\d.]+ [KM]?B, [\d.]+ [KM]?B/s\n)")))
      << r.out;
  std::smatch sent, got;
  ASSERT_TRUE(std::regex_search(r.out, sent, std::regex(R"(Total sent: chunks: (\d+), bytes: (\d+))")));
  ASSERT_TRUE(std::regex_search(r.out, got, std::regex(R"(Total chunks: (\d+), recv: (\d+))")));
  // Every echo up to the lowered limit came back; the chunk sent after it may still be under way.
  EXPECT_LE(std::stoull(got[2]), std::stoull(sent[2]));
  EXPECT_GE(std::stoull(got[1]) + 1, std::stoull(sent[1]));
  EXPECT_EQ(std::string::npos, r.out.find("You pressed 0 again")) << r.out;
}

INSTANTIATE_TEST_SUITE_P(Modes, GentleStopTest, testing::Values('C', 'c'),
                         [](const testing::TestParamInfo<char>& param_info) {
                           return std::string(param_info.param == 'C' ? "Urge" : "Mild");
                         });

// The far end keeps half of the first chunk: the gentle stop cannot finish, the second '0' cancels.
TEST_F(EchoClientTest, SecondZeroForcesTheThreadsToQuit) {
  EchoPeer peer(pty_, {.fault = PeerFault::kMute, .offset = 500});
  const ProcessResult r = RunTyped({"-k", "1000", "-K", "1000"}, peer, {{0, "C"}, {2000, "0"}, {2000, "0"}});
  ExpectInOrder(r.out,
                {" [D] Stopping echo flow... (In case no effect, press 0 again to force.)\n",
                 " [D] You pressed 0 again. Now force pushing/pulling thread to quit.\n",
                 "<[D] Pulling op waited for 2000ms but cannot receive full echoed data. CancelIo() it...\n",
                 "<[D] Pulling op CancelIo() done. (Cancel result: success)\n",
                 "<[D.ms] @Chunk 0: DataError: Received less chunk body(488) than expected(988).\n",
                 "<[D] Pulling thread has quitted.\n", " [D] Echo test fail.\n"});
}

// ---- time limits ----

// The far end stops reading: writes back up until the limit, reads get nothing.
TEST_F(EchoClientTest, TimeLimitEndsStalledWritesAndReads) {
  EchoPeer peer(pty_, {.fault = PeerFault::kStall, .offset = 0});
  const ProcessResult r = RunClient({"-k", "60000", "-K", "60000", "--echo-timeout-limit=300"}, "c");
  ExpectInOrder(r.out, {" [D] Echo timeout limit is 300 millisec.\n",
                        ">[D] @Chunk 0: Pushing thread timeout(300 millisec)! \n",
                        ">[D] Pushing op does not complete for more than 2000ms, CancelIo() it...\n",
                        ">[D] Pushing op CancelIo() done. (Cancel result: success)\n",
                        ">[D] Pushing thread has quitted.\n"});
  ExpectInOrder(r.out,
                {"<[D] Pulling thread timeout(300 millisec)!\n",
                 "<[D] Pulling op waited for 2000ms but cannot receive full echoed data. CancelIo() it...\n",
                 "<[D] Error: ReadFile_wqe_partial() reports nRed=0. WinErr=1460(ERROR_TIMEOUT)\n",
                 "<[D.ms] @Chunk 0: DataError: Received less bytes(0) than Echo headsize(12).\n",
                 "<[D] Pulling thread has quitted.\n", " [D] Echo test fail.\n"});
}

// ---- the receive checks against one faulty byte, and the operator pause ----

enum class Finding { kWrongCrc, kWrongId, kTooLong, kShortBody };

struct FaultCase {
  const char* name;
  PeerFault fault;
  size_t offset;
  Finding finding;
  bool pause;  // with --manual-intervene-errcli, ended by the end of the piped keys
};

constexpr uint32_t kChunk = 1000;
constexpr uint64_t kFaultRunBytes = 20 * kChunk;

const FaultCase kFaults[] = {
    {"FlippedBodyBytePauses", PeerFault::kFlip, 500, Finding::kWrongCrc, true},
    {"InsertedByte", PeerFault::kInsert, kChunk + 300, Finding::kWrongCrc, false},
    {"FlippedChunkId", PeerFault::kFlip, 2 * kChunk, Finding::kWrongId, false},
    {"FlippedLength", PeerFault::kFlip, 3 * kChunk + 7, Finding::kTooLong, false},
    {"DroppedByteOfLastChunk", PeerFault::kDrop, kFaultRunBytes - 4, Finding::kShortBody, false},
};

void PrintTo(const FaultCase& c, std::ostream* os) {
  *os << c.name;
}

// What the peer sends back for what was sent.
std::string Faulted(const FaultCase& c, std::string bytes) {
  if (c.fault == PeerFault::kFlip)
    bytes[c.offset] = static_cast<char>(bytes[c.offset] ^ testkit::kPeerFlipMask);
  if (c.fault == PeerFault::kInsert) bytes.insert(c.offset, 1, static_cast<char>(testkit::kPeerInsertedByte));
  return bytes;
}

// The line the client must print for the chunk that came back faulty.
std::string FindingLine(const FaultCase& c, const std::string& back) {
  const uint32_t id = static_cast<uint32_t>(c.offset / kChunk);
  const auto* chunk = reinterpret_cast<const uint8_t*>(back.data()) + id * kChunk;
  const ChunkHead head = ReadChunkHead(chunk);
  char line[200];
  switch (c.finding) {
    case Finding::kWrongCrc:
      std::snprintf(line, sizeof line, "Error: Received wrong CRC. Recv:0x%08X, Expect:0x%08X", head.body_crc,
                    Crc32(chunk + kEchoHeadSize, kChunk - kEchoHeadSize));
      break;
    case Finding::kWrongId:
      std::snprintf(line, sizeof line, "DataError: Received wrong chunk-id. Recv:%u, Expect:%u",
                    head.chunk_id, id);
      break;
    case Finding::kTooLong:
      std::snprintf(line, sizeof line, "DataError: Received chunk length(%d) exceeds max(%u).",
                    static_cast<int32_t>(head.body_length), kChunk - kEchoHeadSize);
      break;
    case Finding::kShortBody:
      std::snprintf(line, sizeof line, "DataError: Received less chunk body(%u) than expected(%u).",
                    kChunk - kEchoHeadSize - 1, kChunk - kEchoHeadSize);
      break;
  }
  return "<[D.ms] @Chunk " + std::to_string(id) + ": " + line + "\n";
}

constexpr char kBangs[] = "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!";

// Dump rows as the program writes them, 16 bytes to a row from offset 0, each ended by `end`.
std::vector<std::string> DumpRows(const std::string& bytes, const char* end) {
  std::vector<std::string> rows = {std::string("------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F") +
                                   end};
  for (size_t at = 0; at < bytes.size(); at += 16) {
    char row[80];
    int used = std::snprintf(row, sizeof row, "%04zX:", at);
    for (size_t i = at; i < std::min(bytes.size(), at + 16); ++i) {
      used += std::snprintf(row + used, sizeof row - used, " %02x", static_cast<unsigned char>(bytes[i]));
    }
    rows.push_back(row + std::string(end));
  }
  return rows;
}

class EchoFaultTest : public EchoClientTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(EchoFaultTest, ReportsTheFirstFindingAndFails) {
  const FaultCase& c = GetParam();
  const std::string back = Faulted(c, ExpectedWire(7, kChunk, kChunk, kFaultRunBytes).bytes);
  EchoPeer peer(pty_, {.fault = c.fault, .offset = c.offset});
  std::vector<std::string> args = {
      "-k", "1000", "-K", "1000", "-m", "20000", "--echo-srand=7", "--echo-timeout-limit=300"};
  if (c.pause) args.push_back("--manual-intervene-errcli");
  const ProcessResult r = RunClient(args, "C");
  ExpectInOrder(r.out,
                {FindingLine(c, back), "<[D] Pulling thread has quitted.\n", " [D] Echo test fail.\n"});
  // The first finding is the only one: later checks of a bad chunk are skipped.
  EXPECT_EQ(1u, Count(r.out, "@Chunk")) << r.out;
  if (!c.pause) return;

  // The console shows the first 256 bytes of the chunk, the file all of them.
  const std::string chunk = back.substr(0, kChunk);
  std::vector<std::string> console = {FindingLine(c, back), std::string("\n") + kBangs + ">>>>\n",
                                      "<[D] Pulling error occurred. Waiting for manual intervention.\n",
                                      "Chunk 0 requesting 1000 bytes, received 1000 bytes.\n"
                                      "Dumping 256 already received bytes:\n"};
  std::vector<std::string> rows = DumpRows(chunk.substr(0, 256), "\r\n");
  rows.back().replace(rows.back().size() - 2, 2, "\n");
  console.insert(console.end(), rows.begin(), rows.end());
  console.push_back("See full byte-dump in file: echo_in.partial.log\n(Press '0' to continue)\n" +
                    std::string(kBangs) + "<<<<\n\n");
  ExpectInOrder(r.out, console);
  EXPECT_EQ(std::string::npos, r.out.find("\n0100: ")) << "the console dump goes past 256 bytes";
  rows = DumpRows(chunk, "\r\n");
  rows.insert(rows.begin(), "[D.ms]\r\n@Chunk 0: Requesting 1000 bytes, received 1000 bytes.\r\n\r\n");
  ExpectInOrder(testkit::ScrubRunText(File("echo_in.partial.log")), rows);
}

INSTANTIATE_TEST_SUITE_P(Faults, EchoFaultTest, testing::ValuesIn(kFaults),
                         [](const testing::TestParamInfo<FaultCase>& param_info) {
                           return param_info.param.name;
                         });

// A '0' typed during the pause ends the pause and nothing else: no gentle stop, no clearing key;
// the key loop gets the keys that follow.
TEST_F(EchoClientTest, ZeroInThePauseIsThePausesOnly) {
  EchoPeer peer(pty_, {.fault = PeerFault::kFlip, .offset = 500});
  testkit::KeyPipe keys;
  ASSERT_TRUE(keys.ok());
  std::thread typist([&] {
    keys.Type("C");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!Exists("echo_in.partial.log") && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    keys.Type("0");
    // Once the run is over the key loop takes 'w': its 100 bytes reach the far end.
    const size_t before = peer.Received();
    while (peer.Received() < before + 100 && std::chrono::steady_clock::now() < deadline) {
      keys.Type("w");
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    keys.Close();
  });
  ProcessOptions options;
  options.stdin_fd = keys.read_fd();
  const ProcessResult r =
      RunClient({"-k", "1000", "-K", "1000", "-m", "5000", "--manual-intervene-errcli"}, "", options);
  typist.join();
  ExpectInOrder(r.out, {"(Press '0' to continue)\n", " [D] Echo test fail.\n", "Got 'w'.\n"});
  EXPECT_EQ(std::string::npos, r.out.find("Stopping echo flow")) << r.out;
  EXPECT_EQ(std::string::npos, r.out.find("Clearing COM port")) << r.out;
}

// ---- refusals ----

TEST_F(EchoClientTest, UnopenableLogSkipsTheRunWithoutPrompt) {
  ASSERT_TRUE(std::filesystem::create_directory(dir_ + "/echo_cli_in.log"));
  EchoPeer peer(pty_, {});
  const ProcessResult r = RunClient({"--echo-need-log"}, "C");
  ExpectInOrder(r.out, {"Got 'C'.\nError: echo_cli_in.log open/create fail!\nGot '\x1b'.\n"});
  EXPECT_EQ(std::string::npos, r.out.find("Using echo chunk size")) << r.out;
  EXPECT_EQ(0u, peer.Received());
}

}  // namespace
}  // namespace portwren
