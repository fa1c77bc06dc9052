#include "echo/crc32.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

namespace portwren {
namespace {

uint32_t ReflectBits(uint32_t value, int bits) {
  uint32_t out = 0;
  for (int i = 0; i < bits; ++i) out |= ((value >> i) & 1u) << (bits - 1 - i);
  return out;
}

// Straight from the definition: MSB-first shift register with polynomial 0x04C11DB7,
// each input byte reflected, the result reflected and inverted. No tables.
uint32_t ReferenceCrc32(const uint8_t* data, size_t count) {
  uint32_t reg = 0xFFFFFFFF;
  for (size_t i = 0; i < count; ++i) {
    reg ^= ReflectBits(data[i], 8) << 24;
    for (int bit = 0; bit < 8; ++bit) reg = (reg & 0x80000000u) ? (reg << 1) ^ 0x04C11DB7u : reg << 1;
  }
  return ReflectBits(reg, 32) ^ 0xFFFFFFFF;
}

std::vector<uint8_t> NoiseBytes(size_t count, uint32_t seed) {
  std::mt19937 engine(seed);
  std::vector<uint8_t> bytes(count);
  for (auto& byte : bytes) byte = static_cast<uint8_t>(engine());
  return bytes;
}

// The check value anchors the reference below, which is then held against every length.
TEST(Crc32, CheckValueAndEmptyInput) {
  EXPECT_EQ(Crc32("123456789", 9), 0xCBF43926u);
  EXPECT_EQ(Crc32("", 0), 0u);
  EXPECT_EQ(Crc32(nullptr, 0), 0u);
  EXPECT_EQ(Crc32Extend(0xCBF43926u, nullptr, 0), 0xCBF43926u);
}

TEST(Crc32, MatchesBitwiseReferenceAtEveryLengthAndAlignment) {
  const std::vector<uint8_t> bytes = NoiseBytes(400, 7);
  for (size_t offset = 0; offset < 16; ++offset) {
    for (size_t count = 0; count + offset <= 300; ++count) {
      ASSERT_EQ(Crc32(bytes.data() + offset, count), ReferenceCrc32(bytes.data() + offset, count))
          << "offset " << offset << " count " << count;
    }
  }
  const std::vector<uint8_t> big = NoiseBytes(65536 + 13, 11);
  EXPECT_EQ(Crc32(big.data() + 3, big.size() - 3), ReferenceCrc32(big.data() + 3, big.size() - 3));
}

// Every split point, so the second piece starts at every phase of the sixteen-byte steps.
TEST(Crc32, ExtendingPieceByPieceEqualsOneCall) {
  const std::vector<uint8_t> bytes = NoiseBytes(1000, 3);
  const uint32_t whole = Crc32(bytes.data(), bytes.size());
  for (size_t split = 0; split <= 100; ++split) {
    const uint32_t head = Crc32(bytes.data(), split);
    ASSERT_EQ(Crc32Extend(head, bytes.data() + split, bytes.size() - split), whole) << split;
  }
}

// Run as its own process by CTest, so this really is the first use of the tables.
TEST(Crc32, ConcurrentFirstUseGivesTheSameResults) {
  const std::vector<uint8_t> bytes = NoiseBytes(4096, 5);
  const uint32_t expected = ReferenceCrc32(bytes.data(), bytes.size());
  std::vector<uint32_t> results(8, 0);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([&, i] {
      if (i % 2 == 0) BuildCrc32Table();
      results[i] = Crc32(bytes.data(), bytes.size());
    });
  }
  for (auto& thread : threads) thread.join();
  for (uint32_t result : results) EXPECT_EQ(result, expected);
  BuildCrc32Table();
  EXPECT_EQ(Crc32(bytes.data(), bytes.size()), expected);
}

}  // namespace
}  // namespace portwren
