// The bytes of a line through the echo checks: the client's receive checks in their order, and
// the server's head decision with its buffers sized as the server sizes them, so that a head the
// server takes can never make it read or copy past them.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "echo/chunk_check.h"
#include "echo/crc32.h"
#include "fuzz/fuzz_input.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

void Client(const std::string& bytes, uint32_t expected_id, uint32_t max_chunk) {
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  const auto received = static_cast<uint32_t>(bytes.size());
  const portwren::ChunkCheck check = portwren::CheckReceivedChunk(data, received, expected_id, max_chunk);
  if (received < portwren::kEchoHeadSize) return Require(check.faults == portwren::kChunkShortHead);
  const uint32_t room = static_cast<uint32_t>(portwren::ChunkBufferSize(max_chunk)) - portwren::kEchoHeadSize;
  Require(portwren::ChunkBodyReadCount(check.head, check.faults != 0, room) <= room);
  if (check.Good()) {
    Require(check.head.chunk_id == expected_id);
    Require(check.head.body_length + portwren::kEchoHeadSize <= max_chunk);
    Require(portwren::Crc32(data + portwren::kEchoHeadSize, check.head.body_length) == check.head.body_crc);
  }
}

// The server's buffers are ChunkBufferSize(size) + a head; the body goes in after the head and
// the whole chunk is copied to the write buffer.
void Server(const std::string& bytes, uint32_t size) {
  if (bytes.size() < portwren::kEchoHeadSize) return;
  const size_t capacity = portwren::ChunkBufferSize(size) + portwren::kEchoHeadSize;
  std::unique_ptr<uint8_t[]> read_buffer(new uint8_t[capacity]);
  std::unique_ptr<uint8_t[]> write_buffer(new uint8_t[capacity]);
  std::memcpy(read_buffer.get(), bytes.data(), portwren::kEchoHeadSize);
  const portwren::ChunkHead head = portwren::ReadChunkHead(read_buffer.get());
  uint32_t body = 0;
  if (!portwren::ServerBodyLength(head, size, &body)) return;
  const size_t came =
      bytes.size() - portwren::kEchoHeadSize < body ? bytes.size() - portwren::kEchoHeadSize : body;
  std::memset(read_buffer.get() + portwren::kEchoHeadSize, 0, body);
  std::memcpy(read_buffer.get() + portwren::kEchoHeadSize, bytes.data() + portwren::kEchoHeadSize, came);
  (void)portwren::Crc32(read_buffer.get() + portwren::kEchoHeadSize, body);
  std::memcpy(write_buffer.get(), read_buffer.get(), body + portwren::kEchoHeadSize);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  portwren::fuzz::Input in(data, size);
  const uint32_t expected_id = in.Byte() % 4;
  const uint32_t max_chunk = portwren::kEchoHeadSize + in.Byte() * 16u + in.Byte() % 16;
  const std::string bytes = in.Rest();
  Client(bytes, expected_id, max_chunk);
  Server(bytes, max_chunk);
  return 0;
}
