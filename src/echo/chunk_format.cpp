#include "echo/chunk_format.h"

#include <atomic>

#include "echo/crc32.h"

namespace portwren {
namespace {

std::atomic<uint32_t> g_echo_sequence{0};

uint32_t LoadLe32(const uint8_t* p) {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

void StoreLe32(uint8_t* p, uint32_t value) {
  p[0] = static_cast<uint8_t>(value);
  p[1] = static_cast<uint8_t>(value >> 8);
  p[2] = static_cast<uint8_t>(value >> 16);
  p[3] = static_cast<uint8_t>(value >> 24);
}

void StoreBe32(uint8_t* p, uint32_t value) {
  p[0] = static_cast<uint8_t>(value >> 24);
  p[1] = static_cast<uint8_t>(value >> 16);
  p[2] = static_cast<uint8_t>(value >> 8);
  p[3] = static_cast<uint8_t>(value);
}

// The sender stores a whole 0xFFFFFFFF word here; only the bytes inside the chunk matter
// on the wire, so only those are written.
void FillTail(uint8_t* tail, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) tail[i] = 0xFF;
}

}  // namespace

ChunkHead ReadChunkHead(const uint8_t* bytes) {
  return ChunkHead{LoadLe32(bytes), LoadLe32(bytes + 4), LoadLe32(bytes + 8)};
}

void WriteChunkHead(uint8_t* bytes, const ChunkHead& head) {
  StoreLe32(bytes, head.chunk_id);
  StoreLe32(bytes + 4, head.body_length);
  StoreLe32(bytes + 8, head.body_crc);
}

size_t ChunkBufferSize(uint32_t max_chunk) {
  return (static_cast<size_t>(max_chunk) + 3) & ~static_cast<size_t>(3);
}

uint32_t DrawChunkLength(EchoRandom& random, uint32_t min_chunk, uint32_t max_chunk,
                         uint32_t& previous_draw) {
  const uint32_t draw = random.Next();
  const uint32_t mixed = draw | (previous_draw << 16);
  previous_draw = draw;
  if (max_chunk < min_chunk) return min_chunk;
  const uint32_t span = max_chunk - min_chunk + 1;  // 0 only for the full 32-bit range
  return span == 0 ? mixed : min_chunk + mixed % span;
}

void FillRandomBody(uint8_t* body, uint32_t length, EchoRandom& random) {
  const uint32_t words = length / 4;
  for (uint32_t i = 0; i < words; ++i) StoreLe32(body + 4 * i, random.Next());
  FillTail(body + 4 * words, length % 4);
}

void FillSequenceBody(uint8_t* body, uint32_t length, uint32_t& counter) {
  const uint32_t words = length / 4;
  uint32_t value = counter;
  for (uint32_t i = 0; i < words; ++i) StoreBe32(body + 4 * i, value++);
  counter = value;
  FillTail(body + 4 * words, length % 4);
}

bool BuildChunk(uint8_t* buffer, uint32_t length, uint32_t chunk_id, const ChunkBodySource& source) {
  if (length < kEchoHeadSize) return false;
  const uint32_t body_length = length - kEchoHeadSize;
  uint8_t* body = buffer + kEchoHeadSize;
  if (source.sequence) {
    FillSequenceBody(body, body_length, *source.sequence);
  } else if (source.random) {
    FillRandomBody(body, body_length, *source.random);
  } else {
    return false;
  }
  WriteChunkHead(buffer, ChunkHead{chunk_id, body_length, Crc32(body, body_length)});
  return true;
}

void LoadEchoSequence(uint32_t start) {
  g_echo_sequence.store(start, std::memory_order_relaxed);
}

uint32_t EchoSequence() {
  return g_echo_sequence.load(std::memory_order_relaxed);
}

uint32_t NextEchoChunkLength(uint32_t min_chunk, uint32_t max_chunk, uint32_t& previous_draw) {
  return DrawChunkLength(ThreadEchoRandom(), min_chunk, max_chunk, previous_draw);
}

bool BuildEchoChunk(uint8_t* buffer, uint32_t length, uint32_t chunk_id, bool sequence_mode) {
  ChunkBodySource source;
  uint32_t sequence = EchoSequence();
  if (sequence_mode) {
    source.sequence = &sequence;
  } else {
    source.random = &ThreadEchoRandom();
  }
  const bool built = BuildChunk(buffer, length, chunk_id, source);
  if (sequence_mode) LoadEchoSequence(sequence);
  return built;
}

}  // namespace portwren
