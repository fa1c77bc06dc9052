// Input read ahead on a thread (the Windows path for redirected input), checked here through
// a system pipe and a bottomless fake: waits, the end, the bound on reading ahead.
#include "platform/console_pump.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "common/pipe.h"
#include "platform/console_keys.h"
#include "platform_test_util.h"

namespace portwren::os {
namespace {

using Clock = std::chrono::steady_clock;
using testkit::Pipe;
constexpr int kNothing = ConsoleStream::kNothing;
constexpr int kEnd = ConsoleStream::kEnd;

PumpedStream::ReadFunction ReaderOf(const Pipe& pipe) {
  return [&pipe](unsigned char* buffer, size_t size) { return pipe.Read(buffer, size); };
}

TEST(PumpedStream, PipedKeysLinesAndTheEnd) {
  Pipe source;
  PumpedStream stream(ReaderOf(source));
  StreamKeys keys(stream);
  EXPECT_FALSE(keys.KeyWaiting()) << "nothing written, writer open: nothing waiting, no block";
  source.Write("a\r\n12\nq");
  ASSERT_TRUE(testing_util::WaitFor([&] { return keys.KeyWaiting(); }));
  EXPECT_EQ(testing_util::Keys(keys, 2), (std::vector<int>{'a', 13}));
  EXPECT_EQ(testing_util::Line(keys, 10), "12");
  EXPECT_EQ(keys.GetKey(), 'q');
  source.CloseWriter();
  EXPECT_EQ(keys.GetKey(), 27);
  EXPECT_TRUE(keys.KeyWaiting());
  EXPECT_EQ(keys.GetKey(), 27);
}

TEST(PumpedStream, WaitsEndWithTheFirstByteOrTheLimit) {
  Pipe source;
  PumpedStream stream(ReaderOf(source));
  EXPECT_EQ(stream.Read(0), kNothing);
  EXPECT_EQ(stream.Read(30), kNothing);
  {
    std::jthread writer([&source] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      source.Write("z");
    });
    EXPECT_EQ(stream.Read(20000), 'z') << "a byte ends a long wait early";
  }
  source.CloseWriter();
  EXPECT_EQ(stream.Read(-1), kEnd);
  EXPECT_EQ(stream.Read(0), kEnd);
}

TEST(PumpedStream, ReadErrorIsTheEnd) {
  int calls = 0;
  PumpedStream stream([&calls](unsigned char*, size_t) {
    ++calls;
    return -1L;
  });
  EXPECT_EQ(stream.Read(-1), kEnd);
  EXPECT_EQ(stream.Read(-1), kEnd);
  EXPECT_EQ(calls, 1) << "no reading after the end";
}

TEST(PumpedStream, ReadsAheadOnlySoFar) {
  std::atomic<long> delivered{0};
  PumpedStream stream([&delivered](unsigned char* buffer, size_t size) {
    std::memset(buffer, 'x', size);
    delivered += static_cast<long>(size);
    return static_cast<long>(size);
  });
  EXPECT_EQ(stream.Read(-1), 'x');

  // Bottomless input: the pump must stop once it is far enough ahead.
  const auto settled = [&delivered] {
    long last = -1;
    int still = 0;
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (still < 10 && Clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      const long now = delivered.load();
      still = now == last ? still + 1 : 0;
      last = now;
    }
    return last;
  };
  const long first = settled();
  EXPECT_LE(first, static_cast<long>(PumpedStream::kMaxAhead) + 512);
  EXPECT_GE(first, static_cast<long>(PumpedStream::kMaxAhead));

  // Taking bytes makes room, and the pump goes on.
  for (int i = 0; i < 4096; ++i) ASSERT_EQ(stream.Read(-1), 'x');
  EXPECT_GT(settled(), first);
}

}  // namespace
}  // namespace portwren::os
