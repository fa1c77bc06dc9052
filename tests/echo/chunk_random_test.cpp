#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "echo/chunk_format.h"
#include "echo/random_echo.h"

namespace portwren {
namespace {

std::vector<uint32_t> Draws(EchoRandom& random, int count) {
  std::vector<uint32_t> draws;
  for (int i = 0; i < count; ++i) draws.push_back(random.Next());
  return draws;
}

// From state 1: 1 * 214013 + 2531011 = 2745024 = 0x0029E2C0, >> 16 = 41; then
// 2745024 * 214013 + 2531011 mod 2^32 = 0xC823F683, >> 16 & 0x7FFF = 0x4823 = 18467.
TEST(EchoRandom, UnseededSequenceStartsFromStateOne) {
  EchoRandom random;
  EXPECT_EQ(Draws(random, 5), (std::vector<uint32_t>{41, 18467, 6334, 26500, 19169}));
}

TEST(EchoRandom, SeedingRestartsTheSequence) {
  EchoRandom random(5566);
  const std::vector<uint32_t> first = Draws(random, 3);
  EXPECT_EQ(first, (std::vector<uint32_t>{18214, 31749, 2336}));
  random.Seed(5566);
  EXPECT_EQ(Draws(random, 3), first);
  random.Seed(1);
  EXPECT_EQ(random.Next(), 41u);
}

TEST(EchoRandom, DrawsStayWithinFifteenBits) {
  EchoRandom random(0xDEADBEEF);
  uint32_t highest = 0;
  for (int i = 0; i < 100000; ++i) highest = std::max(highest, random.Next());
  EXPECT_LE(highest, 0x7FFFu);
  EXPECT_GE(highest, 0x7F00u);
}

TEST(EchoRandom, EachThreadHasItsOwnState) {
  SeedEchoRandom(5566);
  EXPECT_EQ(NextEchoRandom(), 18214u);
  std::vector<uint32_t> other;
  std::thread([&] {
    for (int i = 0; i < 3; ++i) other.push_back(NextEchoRandom());
  }).join();
  EXPECT_EQ(other, (std::vector<uint32_t>{41, 18467, 6334}));
  EXPECT_EQ(NextEchoRandom(), 31749u) << "the other thread's draws must not move this one";
}

// The pushing thread draws a chunk's length, then that chunk's body words, from one
// generator: on a fresh thread the length takes 41 and the first body word 18467.
TEST(EchoRandom, LengthDrawComesBeforeTheBodyDraws) {
  uint32_t length = 0;
  std::vector<uint8_t> chunk(64);
  std::thread([&] {
    uint32_t previous = 0;
    length = NextEchoChunkLength(12, 60, previous);
    BuildEchoChunk(chunk.data(), length, 0, false);
  }).join();
  EXPECT_EQ(length, 12u + 41 % 49);
  EXPECT_EQ(std::vector<uint8_t>(chunk.begin() + 12, chunk.begin() + 16),
            (std::vector<uint8_t>{0x23, 0x48, 0, 0}));
}

}  // namespace
}  // namespace portwren
