// The echo chunk on the wire: a 12-byte head (chunk id, body length, body CRC-32, each a
// little-endian u32) followed by the body. The CRC covers the body only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "echo/random_echo.h"

namespace portwren {

inline constexpr uint32_t kEchoHeadSize = 12;

struct ChunkHead {
  uint32_t chunk_id = 0;
  uint32_t body_length = 0;
  uint32_t body_crc = 0;
};

// bytes holds at least kEchoHeadSize bytes.
ChunkHead ReadChunkHead(const uint8_t* bytes);
void WriteChunkHead(uint8_t* bytes, const ChunkHead& head);

// Chunk buffers are whole 32-bit words: max_chunk rounded up to a multiple of 4.
size_t ChunkBufferSize(uint32_t max_chunk);

// Whole chunk size (head included) of the next chunk, min_chunk..max_chunk inclusive.
// previous_draw carries the last draw from chunk to chunk; it is 0 before a run's first.
uint32_t DrawChunkLength(EchoRandom& random, uint32_t min_chunk, uint32_t max_chunk, uint32_t& previous_draw);

// Bodies are length / 4 whole words followed by 0xFF in the 0..3 bytes left over.
// Random words are 0..32767 stored little-endian; sequence words are a counter stored
// big-endian, which is left one past the last word written.
void FillRandomBody(uint8_t* body, uint32_t length, EchoRandom& random);
void FillSequenceBody(uint8_t* body, uint32_t length, uint32_t& counter);

// Where a run's chunk bodies come from: the given generator, or the counter when set.
struct ChunkBodySource {
  EchoRandom* random = nullptr;
  uint32_t* sequence = nullptr;
};

// Fills buffer[0..length) with a whole chunk: head, body, CRC. Only the length bytes are
// written. A length below the head size is refused and writes nothing.
bool BuildChunk(uint8_t* buffer, uint32_t length, uint32_t chunk_id, const ChunkBodySource& source);

// The echo client's process-wide state: the sequence counter is 0 at program start,
// loaded at a client start with the configured start value, and runs on across chunks
// and runs; random bodies and length draws use the calling thread's generator.
void LoadEchoSequence(uint32_t start);
uint32_t EchoSequence();
uint32_t NextEchoChunkLength(uint32_t min_chunk, uint32_t max_chunk, uint32_t& previous_draw);
bool BuildEchoChunk(uint8_t* buffer, uint32_t length, uint32_t chunk_id, bool sequence_mode);

}  // namespace portwren
