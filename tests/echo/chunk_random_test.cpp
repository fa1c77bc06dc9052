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
TEST(EchoRandom, UnseededStartsFromStateOneSeedingRestartsFifteenBits) {
  EchoRandom random;
  EXPECT_EQ(Draws(random, 5), (std::vector<uint32_t>{41, 18467, 6334, 26500, 19169}));
  const std::vector<uint32_t> from_5566{18214, 31749, 2336};
  EchoRandom seeded(5566);
  EXPECT_EQ(Draws(seeded, 3), from_5566);
  random.Seed(5566);
  EXPECT_EQ(Draws(random, 3), from_5566);
  random.Seed(1);
  EXPECT_EQ(random.Next(), 41u);
  // Draws stay within fifteen bits.
  random.Seed(0xDEADBEEF);
  uint32_t highest = 0;
  for (int i = 0; i < 100000; ++i) highest = std::max(highest, random.Next());
  EXPECT_LE(highest, 0x7FFFu);
  EXPECT_GE(highest, 0x7F00u);
}

// The pushing thread draws a chunk's length, then that chunk's body words, from its own
// generator: a fresh thread starts from state 1, so the length takes 41 and the first word 18467.
TEST(EchoRandom, EachThreadDrawsLengthThenBodyFromItsOwnState) {
  SeedEchoRandom(5566);
  EXPECT_EQ(NextEchoRandom(), 18214u);
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
  EXPECT_EQ(NextEchoRandom(), 31749u) << "the other thread's draws must not move this one";
}

}  // namespace
}  // namespace portwren
