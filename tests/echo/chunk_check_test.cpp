#include "echo/chunk_check.h"

#include <gtest/gtest.h>

#include <vector>

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

TEST(ChunkCheck, LengthLimitIsMaxChunkLessTheHead) {
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, kMaxChunk - kEchoHeadSize, 0}, 0, kMaxChunk), 0u);
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, kMaxChunk - kEchoHeadSize + 1, 0}, 0, kMaxChunk), kChunkTooLong);
  // A maximum at or below the head size leaves no room for any body, without wrapping.
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, 0, 0}, 0, kEchoHeadSize), 0u);
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, 1, 0}, 0, kEchoHeadSize), kChunkTooLong);
  EXPECT_EQ(CheckChunkHead(ChunkHead{0, 1, 0}, 0, 5), kChunkTooLong);
}

// Checked in the receiver's order; once something is wrong the later checks are skipped.
TEST(ChunkCheck, FaultsComeInTheReceiversOrder) {
  std::vector<uint8_t> chunk = GoodChunk(60, 2);
  for (uint32_t got = 0; got < kEchoHeadSize; ++got) {
    EXPECT_EQ(CheckReceivedChunk(chunk.data(), got, 999, kMaxChunk).faults, kChunkShortHead) << got;
  }
  EXPECT_EQ(Check(chunk, 1), kChunkWrongId);
  EXPECT_EQ(Check(chunk, 3), kChunkWrongId);
  chunk[30] ^= 0x01;
  EXPECT_EQ(Check(chunk, 2), kChunkWrongCrc);
  EXPECT_EQ(Check(chunk, 3), kChunkWrongId) << "no CRC check after a bad head";
  chunk.resize(50);
  EXPECT_EQ(Check(chunk, 2), kChunkShortBody) << "no CRC check of a short body";
  EXPECT_EQ(Check(chunk, 3), kChunkWrongId);
  SetHeadField(chunk, 1, kMaxChunk - kEchoHeadSize + 1);
  EXPECT_EQ(Check(chunk, 2), kChunkTooLong);
  EXPECT_EQ(Check(chunk, 1), kChunkWrongId | kChunkTooLong) << "both head faults are reported";
}

TEST(ChunkCheck, CrcGuardsEveryBodyByteButNotTheId) {
  const std::vector<uint8_t> good = GoodChunk(33, 4);
  for (size_t i = kEchoHeadSize; i < good.size(); ++i) {
    std::vector<uint8_t> bad = good;
    bad[i] ^= 0x80;
    ASSERT_EQ(Check(bad, 4), kChunkWrongCrc) << "byte " << i;
  }
  std::vector<uint8_t> changed = good;
  SetHeadField(changed, 2, ReadChunkHead(good.data()).body_crc ^ 1);
  const ChunkCheck check = CheckReceivedChunk(changed.data(), 33, 4, kMaxChunk);
  EXPECT_EQ(check.faults, kChunkWrongCrc);
  EXPECT_EQ(check.body_crc, ReadChunkHead(good.data()).body_crc) << "the CRC computed, not the head's";
  changed = good;
  SetHeadField(changed, 0, 77);
  EXPECT_EQ(Check(changed, 77), 0u) << "a renumbered chunk is valid for its new id";

  std::vector<uint8_t> empty = GoodChunk(kEchoHeadSize, 0);
  EXPECT_EQ(ReadChunkHead(empty.data()).body_crc, 0u);
  SetHeadField(empty, 2, 0x12345678);
  EXPECT_EQ(Check(empty, 0), kChunkWrongCrc) << "an empty body is still checked";

  const uint8_t* body = reinterpret_cast<const uint8_t*>("123456789");
  EXPECT_TRUE(CheckChunkBody(ChunkHead{0, 9, 0xCBF43926}, body, nullptr)) << "the computed CRC is optional";
  EXPECT_FALSE(CheckChunkBody(ChunkHead{0, 8, 0xCBF43926}, body, nullptr));
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
