// The fault relay that the echo tests and the demo put on the line: bytes pass both ways, and each
// fault on order hits exactly the byte it names (or one byte of the chunk it names) and says so.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"
#include "echo/chunk_format.h"

namespace portwren {
namespace {

using testkit::ProcessOptions;
using testkit::ProcessResult;

// One end of the relay's line, opened as a program would open its port.
class LineEnd {
 public:
  explicit LineEnd(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {
    termios raw{};
    if (fd_ >= 0 && ::tcgetattr(fd_, &raw) == 0) {
      ::cfmakeraw(&raw);
      ::tcsetattr(fd_, TCSANOW, &raw);
    }
  }
  ~LineEnd() {
    if (fd_ >= 0) ::close(fd_);
  }
  bool ok() const { return fd_ >= 0; }
  bool Write(const std::string& bytes) {
    return ::write(fd_, bytes.data(), bytes.size()) == ssize_t(bytes.size());
  }
  // What arrives until the line has been quiet for quiet_ms.
  std::string ReadUntilQuiet(int quiet_ms) {
    std::string got;
    char buffer[4096];
    pollfd wait{fd_, POLLIN, 0};
    while (::poll(&wait, 1, quiet_ms) > 0) {
      const ssize_t n = ::read(fd_, buffer, sizeof buffer);
      if (n <= 0) break;
      got.append(buffer, static_cast<size_t>(n));
    }
    return got;
  }

 private:
  int fd_;
};

std::string Chunk(uint32_t id, uint32_t length) {
  std::string bytes(ChunkBufferSize(length), '\0');
  uint32_t counter = 0x11233344;
  BuildChunk(reinterpret_cast<uint8_t*>(bytes.data()), length, id, ChunkBodySource{nullptr, &counter});
  bytes.resize(length);
  return bytes;
}

// One run of the relay between two links in a directory of the test's own.
class RelayRun {
 public:
  RelayRun(const std::string& dir, std::vector<std::string> args) : dir_(dir) {
    args.insert(args.begin(), {"--pty", a(), b(), "--stdin-ends"});
    ProcessOptions options;
    options.stdin_fd = keys_.read_fd();
    options.on_out = watch_.Tap();
    runner_ = std::thread(
        [this, args, options] { result_ = testkit::RunProcess(PORTWREN_RELAY_EXE, args, options); });
    ready_ = watch_.WaitFor("relay ready", 10000);
  }
  ~RelayRun() { Stop(); }
  bool ready() const { return ready_; }
  std::string a() const { return dir_ + "/a"; }
  std::string b() const { return dir_ + "/b"; }
  // Ends the relay; what it printed and how it ended.
  const ProcessResult& Stop() {
    keys_.Close();
    if (runner_.joinable()) runner_.join();
    return result_;
  }

 private:
  std::string dir_;
  testkit::KeyPipe keys_;
  testkit::OutputWatch watch_;
  std::thread runner_;
  ProcessResult result_;
  bool ready_ = false;
};

class FaultRelay : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = testing::TempDir() + "portwren_relay_" + std::to_string(::getpid());
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string dir_;
};

struct FaultCase {
  const char* name;
  std::vector<std::string> args;
  std::string expected;  // what B receives of "0123456789" sent from A (or the reverse with /ba)
  std::string report;
};

const FaultCase kFaults[] = {
    {"Flip", {"--fault", "flip:3@5"}, "01234=6789", "relay: flip bit 3, 0x35 to 0x3D, at byte 5 of a>b"},
    {"Drop", {"--fault", "drop@0"}, "123456789", "relay: drop 0x30 at byte 0 of a>b"},
    {"Insert", {"--fault", "insert:0x41@2"}, "01A23456789", "relay: insert 0x41 before at byte 2 of a>b"},
    {"Dup", {"--fault", "dup@9"}, "01234567899", "relay: dup 0x39 at byte 9 of a>b"},
    {"BackwardsOnly", {"--fault", "drop@1/ba"}, "0123456789", "relay: fault drop@1/ba not reached"},
    {"Two", {"--fault", "drop@1", "--fault", "dup@3"}, "0233456789", ""},
};

class FaultRelayCases : public FaultRelay, public testing::WithParamInterface<FaultCase> {};

TEST_P(FaultRelayCases, HitsTheNamedByte) {
  const FaultCase& c = GetParam();
  RelayRun relay(dir_, c.args);
  ASSERT_TRUE(relay.ready());
  LineEnd from(relay.a()), to(relay.b());
  ASSERT_TRUE(from.ok() && to.ok());
  ASSERT_TRUE(from.Write("0123456789"));
  EXPECT_EQ(c.expected, to.ReadUntilQuiet(300));
  const ProcessResult& r = relay.Stop();
  EXPECT_EQ(0, r.exit_code) << r.err;
  EXPECT_NE(std::string::npos, r.out.find(c.report)) << r.out;
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultRelayCases, testing::ValuesIn(kFaults),
                         [](const testing::TestParamInfo<FaultCase>& p) { return p.param.name; });

// Chunk positions follow the heads of the stream; a picked byte falls inside the named chunk, the
// same one for the same seed; the other direction passes untouched.
TEST_F(FaultRelay, ChunkPositionsAndTheOtherDirection) {
  const std::string chunks = Chunk(0, 40) + Chunk(1, 12) + Chunk(2, 100) + Chunk(3, 30);
  const size_t chunk2 = 52;
  std::vector<size_t> picked;
  for (int run = 0; run < 2; ++run) {
    RelayRun relay(dir_, {"--fault", "flip:0@c1+4", "--fault", "flip@c2", "--seed", "5"});
    ASSERT_TRUE(relay.ready());
    LineEnd from(relay.a()), to(relay.b());
    ASSERT_TRUE(from.ok() && to.ok());
    ASSERT_TRUE(from.Write(chunks));
    const std::string got = to.ReadUntilQuiet(300);
    ASSERT_EQ(chunks.size(), got.size());
    std::vector<size_t> changed;
    for (size_t i = 0; i < got.size(); ++i) {
      if (got[i] != chunks[i]) changed.push_back(i);
    }
    ASSERT_EQ(2u, changed.size());
    EXPECT_EQ(44u, changed[0]);  // byte 4 of chunk 1: its body length, 0 becomes 1
    EXPECT_EQ(1, got[44]);
    EXPECT_GE(changed[1], chunk2);
    EXPECT_LT(changed[1], chunk2 + 100);
    picked.push_back(changed[1]);
    ASSERT_TRUE(to.Write("back"));
    EXPECT_EQ("back", from.ReadUntilQuiet(300));
    const std::string report = relay.Stop().out;
    EXPECT_NE(std::string::npos, report.find("at byte 44 of a>b (flip:0@c1+4)")) << report;
    EXPECT_NE(std::string::npos, report.find("at byte " + std::to_string(changed[1]) + " of a>b (flip@c2)"))
        << report;
  }
  EXPECT_EQ(picked[0], picked[1]) << "same seed, same byte";
}

// Held bytes arrive whole, after the delay.
TEST_F(FaultRelay, DelayHoldsBytesBack) {
  RelayRun relay(dir_, {"--delay-ms", "400"});
  ASSERT_TRUE(relay.ready());
  LineEnd from(relay.a()), to(relay.b());
  ASSERT_TRUE(from.Write("late"));
  EXPECT_EQ("", to.ReadUntilQuiet(150));
  EXPECT_EQ("late", to.ReadUntilQuiet(2000));
}

}  // namespace
}  // namespace portwren
