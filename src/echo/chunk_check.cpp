#include "echo/chunk_check.h"

#include "echo/crc32.h"

namespace portwren {

uint32_t CheckChunkHead(const ChunkHead& head, uint32_t expected_id, uint32_t max_chunk) {
  const uint32_t max_body = max_chunk > kEchoHeadSize ? max_chunk - kEchoHeadSize : 0;
  uint32_t faults = 0;
  if (head.chunk_id != expected_id) faults |= kChunkWrongId;
  if (head.body_length > max_body) faults |= kChunkTooLong;
  return faults;
}

uint32_t ChunkBodyReadCount(const ChunkHead& head, bool head_bad, uint32_t room) {
  if (head_bad || head.body_length > room) return room;
  return head.body_length;
}

bool CheckChunkBody(const ChunkHead& head, const uint8_t* body, uint32_t* computed_crc) {
  const uint32_t crc = Crc32(body, head.body_length);
  if (computed_crc) *computed_crc = crc;
  return crc == head.body_crc;
}

bool ServerBodyLength(const ChunkHead& head, uint32_t size, uint32_t* body) {
  *body = head.body_length;
  return head.body_length <= size;
}

ChunkCheck CheckReceivedChunk(const uint8_t* bytes, uint32_t received, uint32_t expected_id,
                              uint32_t max_chunk) {
  ChunkCheck check;
  if (received < kEchoHeadSize) {
    check.faults = kChunkShortHead;
    return check;
  }
  check.head = ReadChunkHead(bytes);
  check.faults = CheckChunkHead(check.head, expected_id, max_chunk);
  if (check.faults != 0) return check;
  if (received - kEchoHeadSize < check.head.body_length) {
    check.faults = kChunkShortBody;
    return check;
  }
  if (!CheckChunkBody(check.head, bytes + kEchoHeadSize, &check.body_crc)) check.faults = kChunkWrongCrc;
  return check;
}

}  // namespace portwren
