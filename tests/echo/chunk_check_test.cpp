#include "echo/chunk_check.h"

#include <gtest/gtest.h>

#include <vector>

#include "echo/crc32.h"

namespace portwren {
namespace {

constexpr uint32_t kMaxChunk = 100;

std::vector<uint8_t> GoodChunk(uint32_t length, uint32_t chunk_id) {
  EchoRandom random(42);
  std::vector<uint8_t> chunk(ChunkBufferSize(kMaxChunk));
  EXPECT_TRUE(BuildChunk(chunk.data(), length, chunk_id, {&random, nullptr}));
  chunk.resize(length);
  return chunk;
}

uint32_t Check(const std::vector<uint8_t>& bytes, uint32_t expected_id) {
  return CheckReceivedChunk(bytes.data(), static_cast<uint32_t>(bytes.size()), expected_id, kMaxChunk).faults;
}

void SetHeadField(std::vector<uint8_t>& chunk, int field, uint32_t value) {
  ChunkHead head = ReadChunkHead(chunk.data());
  (field == 0 ? head.chunk_id : field == 1 ? head.body_length : head.body_crc) = value;
  WriteChunkHead(chunk.data(), head);
}

TEST(ChunkCheck, BuiltChunksPassAtEveryLength) {
  for (uint32_t length = kEchoHeadSize; length <= kMaxChunk; ++length) {
    const std::vector<uint8_t> chunk = GoodChunk(length, length * 3);
    const ChunkCheck check = CheckReceivedChunk(chunk.data(), length, length * 3, kMaxChunk);
    ASSERT_TRUE(check.Good()) << "L=" << length << " faults " << check.faults;
    EXPECT_EQ(check.body_crc, check.head.body_crc);
  }
}

TEST(ChunkCheck, ShortHeadIsTheOnlyFaultReported) {
  const std::vector<uint8_t> chunk = GoodChunk(40, 1);
  for (uint32_t got = 0; got < kEchoHeadSize; ++got) {
    EXPECT_EQ(CheckReceivedChunk(chunk.data(), got, 999, kMaxChunk).faults, kChunkShortHead) << got;
  }
}

TEST(ChunkCheck, WrongIdAndOverlongLengthAreBothReported) {
  std::vector<uint8_t> chunk = GoodChunk(40, 6);
  EXPECT_EQ(Check(chunk, 5), kChunkWrongId);
  EXPECT_EQ(Check(chunk, 7), kChunkWrongId);

  SetHeadField(chunk, 1, kMaxChunk - kEchoHeadSize + 1);
  EXPECT_EQ(Check(chunk, 6), kChunkTooLong);
  EXPECT_EQ(Check(chunk, 5), kChunkWrongId | kChunkTooLong);
}

TEST(ChunkCheck, LengthLimitIsMaxChunkLessTheHead) {
  const ChunkHead fits{0, kMaxChunk - kEchoHeadSize, 0};
  const ChunkHead over{0, kMaxChunk - kEchoHeadSize + 1, 0};
  EXPECT_EQ(CheckChunkHead(fits, 0, kMaxChunk), 0u);
  EXPECT_EQ(CheckChunkHead(over, 0, kMaxChunk), kChunkTooLong);
  // A maximum at or below the head size leaves no room for any body, without wrapping.
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, 0, 0}, 0, kEchoHeadSize), 0u);
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, 1, 0}, 0, kEchoHeadSize), kChunkTooLong);
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, 1, 0}, 0, 5), kChunkTooLong);
}

// A bad head stops the checks: neither a short body nor a corrupt body is reported then.
TEST(ChunkCheck, LaterChecksAreSkippedOnceSomethingIsWrong) {
  std::vector<uint8_t> chunk = GoodChunk(60, 2);
  chunk[30] ^= 0x01;
  EXPECT_EQ(Check(chunk, 2), kChunkWrongCrc);
  EXPECT_EQ(Check(chunk, 3), kChunkWrongId);

  chunk.resize(50);
  EXPECT_EQ(Check(chunk, 2), kChunkShortBody);
  EXPECT_EQ(Check(chunk, 3), kChunkWrongId);
  SetHeadField(chunk, 1, 1000);
  EXPECT_EQ(Check(chunk, 2), kChunkTooLong);
}

TEST(ChunkCheck, CrcGuardsTheBodyButNotTheHead) {
  const std::vector<uint8_t> good = GoodChunk(33, 4);
  for (size_t i = kEchoHeadSize; i < good.size(); ++i) {
    std::vector<uint8_t> bad = good;
    bad[i] ^= 0x80;
    ASSERT_EQ(Check(bad, 4), kChunkWrongCrc) << "byte " << i;
  }
  std::vector<uint8_t> bad_crc = good;
  SetHeadField(bad_crc, 2, ReadChunkHead(good.data()).body_crc ^ 1);
  const ChunkCheck check = CheckReceivedChunk(bad_crc.data(), 33, 4, kMaxChunk);
  EXPECT_EQ(check.faults, kChunkWrongCrc);
  EXPECT_EQ(check.body_crc, ReadChunkHead(good.data()).body_crc);

  // The id is outside the CRC: renumbering a chunk keeps it valid for the new id.
  std::vector<uint8_t> renumbered = good;
  SetHeadField(renumbered, 0, 77);
  EXPECT_EQ(Check(renumbered, 77), 0u);
}

TEST(ChunkCheck, EmptyBodyCarriesCrcZero) {
  std::vector<uint8_t> chunk = GoodChunk(kEchoHeadSize, 0);
  EXPECT_EQ(ReadChunkHead(chunk.data()).body_crc, 0u);
  EXPECT_EQ(Check(chunk, 0), 0u);
  SetHeadField(chunk, 2, 0x12345678);
  EXPECT_EQ(Check(chunk, 0), kChunkWrongCrc);
}

TEST(ChunkCheck, BodyCheckReportsTheComputedCrc) {
  const uint8_t body[9] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  uint32_t computed = 0;
  EXPECT_TRUE(CheckChunkBody(ChunkHead{0, 9, 0xCBF43926}, body, &computed));
  EXPECT_EQ(computed, 0xCBF43926u);
  EXPECT_FALSE(CheckChunkBody(ChunkHead{0, 8, 0xCBF43926}, body, &computed));
  EXPECT_EQ(computed, Crc32(body, 8));
  EXPECT_FALSE(CheckChunkBody(ChunkHead{0, 9, 0}, body, nullptr));
}

TEST(ChunkCheck, BodyReadCountDrainsAfterABadHead) {
  const ChunkHead head{0, 40, 0};
  EXPECT_EQ(ChunkBodyReadCount(head, false, 88), 40u);
  EXPECT_EQ(ChunkBodyReadCount(head, true, 88), 88u);
  EXPECT_EQ(ChunkBodyReadCount(head, false, 30), 30u);
  EXPECT_EQ(ChunkBodyReadCount(head, true, 0), 0u);
}

}  // namespace
}  // namespace portwren
