// Checks of a received echo chunk. The receiver checks in a fixed order: a whole head,
// then its chunk id and body length (both, each reported), then a whole body, then the
// body CRC; once something is wrong the later checks are skipped.
#pragma once

#include <cstdint>

#include "echo/chunk_format.h"

namespace portwren {

// Fault bits, lowest first in checking order.
enum ChunkFault : uint32_t {
  kChunkShortHead = 1u << 0,  // fewer than kEchoHeadSize bytes came
  kChunkWrongId = 1u << 1,    // not the chunk id expected next
  kChunkTooLong = 1u << 2,    // body length above max chunk - head size
  kChunkShortBody = 1u << 3,  // fewer body bytes came than the head declares
  kChunkWrongCrc = 1u << 4,   // body CRC differs from the head's CRC field
};

// kChunkWrongId and/or kChunkTooLong, or 0.
uint32_t CheckChunkHead(const ChunkHead& head, uint32_t expected_id, uint32_t max_chunk);

// Body bytes to read after a head: the declared length, or, after a bad head, all the
// room left so that a dump shows what came; never more than room.
uint32_t ChunkBodyReadCount(const ChunkHead& head, bool head_bad, uint32_t room);

// True when the CRC of head.body_length bytes at body matches the head; the computed
// CRC goes to *computed_crc when given.
bool CheckChunkBody(const ChunkHead& head, const uint8_t* body, uint32_t* computed_crc);

struct ChunkCheck {
  uint32_t faults = 0;    // ChunkFault bits
  ChunkHead head;         // zero unless a whole head came
  uint32_t body_crc = 0;  // computed, only when the CRC was checked
  bool Good() const { return faults == 0; }
};

// The echo server's view of a head: the body bytes to read next (0: the head is the whole
// chunk), or false when the declared body is more than its buffers of size bytes take. The
// server measures against the whole-chunk maximum, not the body room, as it always has.
bool ServerBodyLength(const ChunkHead& head, uint32_t size, uint32_t* body);

// All checks, in the receiver's order, on the received bytes of one chunk.
ChunkCheck CheckReceivedChunk(const uint8_t* bytes, uint32_t received, uint32_t expected_id,
                              uint32_t max_chunk);

}  // namespace portwren
