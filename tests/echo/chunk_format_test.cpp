#include "echo/chunk_format.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "echo/crc32.h"

namespace portwren {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kUntouched = 0xAA;

// A chunk of length L built into a buffer with sentinel bytes behind it.
Bytes Build(uint32_t length, uint32_t chunk_id, const ChunkBodySource& source) {
  Bytes buffer(length + 8, kUntouched);
  EXPECT_TRUE(BuildChunk(buffer.data(), length, chunk_id, source));
  for (size_t i = length; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], kUntouched) << "byte " << i;
  buffer.resize(length);
  return buffer;
}

TEST(ChunkHead, FieldsAreLittleEndianAndRoundTripAndBuffersAreWholeWords) {
  uint8_t bytes[kEchoHeadSize] = {};
  WriteChunkHead(bytes, ChunkHead{0x01020304, 0xA0B0C0D0, 0xCBF43926});
  EXPECT_EQ(Bytes(bytes, bytes + kEchoHeadSize),
            (Bytes{0x04, 0x03, 0x02, 0x01, 0xD0, 0xC0, 0xB0, 0xA0, 0x26, 0x39, 0xF4, 0xCB}));
  const ChunkHead head = ReadChunkHead(bytes);
  EXPECT_EQ(std::tuple(head.chunk_id, head.body_length, head.body_crc),
            std::tuple(0x01020304u, 0xA0B0C0D0u, 0xCBF43926u));
  std::vector<uint32_t> sizes;
  for (uint32_t length : {12, 13, 15, 16, 16001, 8024012}) sizes.push_back(ChunkBufferSize(length));
  EXPECT_EQ(sizes, (std::vector<uint32_t>{12, 16, 16, 16, 16004, 8024012}));
}

// Chunk id 0x0A0B0C0D; bodies up to 3 bytes are all 0xFF, in either mode. The one word of
// L = 16 is the first draw from state 1: (1 * 214013 + 2531011) >> 16 = 41 = 0x29.
TEST(ChunkLayout, ShortChunksByHand) {
  const Bytes expected[] = {
      {0x0D, 0x0C, 0x0B, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
      {0x0D, 0x0C, 0x0B, 0x0A, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF},
      {0x0D, 0x0C, 0x0B, 0x0A, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF},
      {0x0D, 0x0C, 0x0B, 0x0A, 0x03, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
      // CRC-32 of 29 00 00 00 is 0xFC7E3FA8.
      {0x0D, 0x0C, 0x0B, 0x0A, 0x04, 0x00, 0x00, 0x00, 0xA8, 0x3F, 0x7E, 0xFC, 0x29, 0x00, 0x00, 0x00},
  };
  for (uint32_t length = 12; length <= 15; ++length) {
    EchoRandom random;
    uint32_t sequence = 0x11233344;
    EXPECT_EQ(Build(length, 0x0A0B0C0D, {&random, nullptr}), expected[length - 12]) << "random, L=" << length;
    EXPECT_EQ(Build(length, 0x0A0B0C0D, {nullptr, &sequence}), expected[length - 12]) << "seq, L=" << length;
    EXPECT_EQ(random.Next(), 41u) << "no word, no draw";
    EXPECT_EQ(sequence, 0x11233344u) << "no word, no count";
  }
  EchoRandom random;
  EXPECT_EQ(Build(16, 0x0A0B0C0D, {&random, nullptr}), expected[4]);
  // Lengths below the head, or no body source: refused, nothing written.
  Bytes buffer(16, kUntouched);
  EXPECT_FALSE(BuildChunk(buffer.data(), 11, 0, {&random, nullptr}));
  EXPECT_FALSE(BuildChunk(buffer.data(), 0, 0, {&random, nullptr}));
  EXPECT_FALSE(BuildChunk(buffer.data(), 16, 0, {nullptr, nullptr}));
  EXPECT_EQ(buffer, Bytes(16, kUntouched));
}

TEST(SequenceBody, BigEndianCounterRunsOnAcrossChunksAndWraps) {
  LoadEchoSequence(0x11233344);
  Bytes first(20), second(22);
  ASSERT_TRUE(BuildEchoChunk(first.data(), 20, 0, true));
  ASSERT_TRUE(BuildEchoChunk(second.data(), 22, 1, true));
  EXPECT_EQ(Bytes(first.begin() + 12, first.end()), (Bytes{0x11, 0x23, 0x33, 0x44, 0x11, 0x23, 0x33, 0x45}));
  EXPECT_EQ(Bytes(second.begin(), second.begin() + 8), (Bytes{0x01, 0, 0, 0, 0x0A, 0, 0, 0}));
  EXPECT_EQ(Bytes(second.begin() + 12, second.end()),
            (Bytes{0x11, 0x23, 0x33, 0x46, 0x11, 0x23, 0x33, 0x47, 0xFF, 0xFF}));
  EXPECT_EQ(EchoSequence(), 0x11233348u);

  // A new start value replaces wherever the last run stopped.
  LoadEchoSequence(0xFFFFFFFF);
  ASSERT_TRUE(BuildEchoChunk(first.data(), 20, 0, true));
  EXPECT_EQ(Bytes(first.begin() + 12, first.end()), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}));
  EXPECT_EQ(EchoSequence(), 1u);
}

// Seed 5566: state 5566 * 214013 + 2531011 = 0x4726D589, draw 0x4726 = 18214; then
// 0xFC058228 gives 0x7C05, and 0x0920B84B gives 0x0920.
TEST(RandomBody, WordsAreSeededDrawsLittleEndian) {
  SeedEchoRandom(5566);
  Bytes chunk(12 + 14);
  ASSERT_TRUE(BuildEchoChunk(chunk.data(), static_cast<uint32_t>(chunk.size()), 3, false));
  EXPECT_EQ(Bytes(chunk.begin() + 12, chunk.end()),
            (Bytes{0x26, 0x47, 0, 0, 0x05, 0x7C, 0, 0, 0x20, 0x09, 0, 0, 0xFF, 0xFF}));
  const ChunkHead head = ReadChunkHead(chunk.data());
  EXPECT_EQ(head.body_length, 14u);
  EXPECT_EQ(head.body_crc, Crc32(chunk.data() + 12, 14)) << "the CRC covers the body only";
  // The upper two bytes of every word are zero.
  EchoRandom random(2024);
  Bytes body(4000);
  FillRandomBody(body.data(), static_cast<uint32_t>(body.size()), random);
  int low_nonzero = 0;
  for (size_t word = 0; word < body.size(); word += 4) {
    ASSERT_EQ(body[word + 2], 0) << word;
    ASSERT_EQ(body[word + 3], 0) << word;
    low_nonzero += (body[word] | body[word + 1]) != 0;
  }
  EXPECT_GT(low_nonzero, 900);
}

TEST(ChunkLength, DrawsMixThePreviousDrawOnePerChunk) {
  EchoRandom random;  // draws 41, 18467, 6334, 26500, ...
  uint32_t previous = 0;
  EXPECT_EQ(DrawChunkLength(random, 12, 16011, previous), 12u + 41);
  EXPECT_EQ(previous, 41u);
  // (18467 | 41 << 16) = 2705443, mod 16000 = 1443; without the mix it would be 2467.
  EXPECT_EQ(DrawChunkLength(random, 12, 16011, previous), 12u + 1443);
  EXPECT_EQ(previous, 18467u);
  EXPECT_EQ(DrawChunkLength(random, 500, 500, previous), 500u);
  EXPECT_EQ(previous, 6334u) << "equal bounds still take their draw";
  EXPECT_EQ(random.Next(), 26500u);
  EXPECT_EQ(DrawChunkLength(random, 40, 30, previous), 40u) << "reversed bounds fall back to min";
  // Within the bounds, both inclusive.
  random.Seed(77);
  bool seen[4] = {};
  for (int i = 0; i < 2000; ++i) {
    const uint32_t length = DrawChunkLength(random, 100, 103, previous);
    ASSERT_GE(length, 100u);
    ASSERT_LE(length, 103u);
    seen[length - 100] = true;
  }
  EXPECT_TRUE(seen[0] && seen[1] && seen[2] && seen[3]);

  for (int i = 0; i < 2000; ++i) {
    const uint32_t length = DrawChunkLength(random, 12, 8024012, previous);
    ASSERT_GE(length, 12u);
    ASSERT_LE(length, 8024012u);
  }
}

}  // namespace
}  // namespace portwren
