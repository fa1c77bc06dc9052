// Input read ahead on a thread (the Windows path for redirected input), checked here through
// a system pipe and bottomless or failing fakes: waits, the end, the bound on reading ahead.
#include "platform/console_pump.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "common/pipe.h"
#include "platform/console_keys.h"

namespace portwren::os {
namespace {

constexpr int kNothing = ConsoleStream::kNothing;
constexpr int kEnd = ConsoleStream::kEnd;

TEST(PumpedStream, WaitsEndWithTheFirstByteOrTheLimitAndTheEndStays) {
  testkit::Pipe source;
  PumpedStream stream([&source](unsigned char* buffer, size_t size) { return source.Read(buffer, size); });
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

  int calls = 0;
  PumpedStream failing([&calls](unsigned char*, size_t) { return ++calls, -1L; });
  EXPECT_EQ(failing.Read(-1), kEnd);
  EXPECT_EQ(failing.Read(-1), kEnd);
  EXPECT_EQ(calls, 1) << "a read error is the end: no reading after it";
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
    for (const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
         still < 10 && std::chrono::steady_clock::now() < deadline;) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      const long now = delivered;
      still = now == last ? still + 1 : 0;
      last = now;
    }
    return last;
  };
  const long first = settled();
  EXPECT_LE(first, static_cast<long>(PumpedStream::kMaxAhead) + 512);
  EXPECT_GE(first, static_cast<long>(PumpedStream::kMaxAhead));
  for (int i = 0; i < 4096; ++i) ASSERT_EQ(stream.Read(-1), 'x');
  EXPECT_GT(settled(), first) << "taking bytes makes room, and the pump goes on";
}

}  // namespace
}  // namespace portwren::os
