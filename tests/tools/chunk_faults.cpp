#include "tools/chunk_faults.h"

#include <algorithm>
#include <cstdio>

#include "echo/chunk_check.h"
#include "echo/chunk_format.h"

namespace portwren::campaign {

const char* FaultKindName(FaultKind kind) {
  switch (kind) {
    case FaultKind::kFlip:
      return "flip";
    case FaultKind::kDrop:
      return "drop";
    case FaultKind::kInsert:
      return "insert";
    case FaultKind::kDup:
      return "dup";
  }
  return "?";
}

namespace {

void AppendChunk(ChunkStream& stream, uint32_t length, const ChunkBodySource& source) {
  std::vector<uint8_t> chunk(ChunkBufferSize(stream.max_chunk));
  BuildChunk(chunk.data(), length, static_cast<uint32_t>(stream.starts.size()), source);
  stream.starts.push_back(stream.bytes.size());
  stream.bytes.insert(stream.bytes.end(), chunk.begin(), chunk.begin() + length);
}

}  // namespace

ChunkStream BuildRandomStream(uint32_t seed, uint32_t min_chunk, uint32_t max_chunk, uint64_t byte_limit) {
  ChunkStream stream;
  stream.max_chunk = max_chunk;
  EchoRandom random(seed);
  uint32_t previous = 0;
  while (stream.bytes.size() < byte_limit) {
    AppendChunk(stream, DrawChunkLength(random, min_chunk, max_chunk, previous), {&random, nullptr});
  }
  return stream;
}

ChunkStream BuildSequenceStream(uint32_t start, uint32_t min_chunk, uint32_t max_chunk, uint32_t count,
                                uint32_t length_seed) {
  ChunkStream stream;
  stream.max_chunk = max_chunk;
  EchoRandom lengths(length_seed);
  uint32_t previous = 0;
  uint32_t counter = start;
  for (uint32_t i = 0; i < count; ++i) {
    AppendChunk(stream, DrawChunkLength(lengths, min_chunk, max_chunk, previous), {nullptr, &counter});
  }
  return stream;
}

std::vector<uint8_t> Apply(const std::vector<uint8_t>& bytes, const Fault& fault) {
  std::vector<uint8_t> out = bytes;
  const auto at = out.begin() + static_cast<std::ptrdiff_t>(fault.position);
  switch (fault.kind) {
    case FaultKind::kFlip:
      *at = static_cast<uint8_t>(*at ^ (1u << (fault.value & 7)));
      break;
    case FaultKind::kDrop:
      out.erase(at);
      break;
    case FaultKind::kInsert:
      out.insert(at, fault.value);
      break;
    case FaultKind::kDup:
      out.insert(at, *at);
      break;
  }
  return out;
}

const char* VerdictName(Verdict verdict) {
  switch (verdict) {
    case Verdict::kPass:
      return "pass";
    case Verdict::kShortHead:
      return "short head";
    case Verdict::kWrongId:
      return "wrong id";
    case Verdict::kTooLong:
      return "too long";
    case Verdict::kShortBody:
      return "short body";
    case Verdict::kWrongCrc:
      return "wrong CRC";
  }
  return "?";
}

const char* VerdictLine(Verdict verdict) {
  switch (verdict) {
    case Verdict::kPass:
      return "";
    case Verdict::kShortHead:
      return "DataError: Received less bytes(";
    case Verdict::kWrongId:
      return "DataError: Received wrong chunk-id. Recv:";
    case Verdict::kTooLong:
      return "DataError: Received chunk length(";
    case Verdict::kShortBody:
      return "DataError: Received less chunk body(";
    case Verdict::kWrongCrc:
      return "Error: Received wrong CRC. Recv:";
  }
  return "";
}

Outcome ReceiveStream(const std::vector<uint8_t>& wire, uint64_t bytes_sent, uint32_t max_chunk) {
  const uint32_t room = static_cast<uint32_t>(ChunkBufferSize(max_chunk)) - kEchoHeadSize;
  size_t at = 0;
  uint64_t received = 0;
  for (uint32_t id = 0; received < bytes_sent; ++id) {
    const size_t left = wire.size() - at;
    if (left < kEchoHeadSize) return {Verdict::kShortHead, id};
    const ChunkHead head = ReadChunkHead(wire.data() + at);
    const uint32_t faults = CheckChunkHead(head, id, max_chunk);
    const uint32_t count = ChunkBodyReadCount(head, faults != 0, room);
    if (count == 0 && faults == 0) {
      at += kEchoHeadSize;
      received += kEchoHeadSize;
      continue;
    }
    if (faults & kChunkWrongId) return {Verdict::kWrongId, id};
    if (faults & kChunkTooLong) return {Verdict::kTooLong, id};
    if (left - kEchoHeadSize < count) return {Verdict::kShortBody, id};
    if (!CheckChunkBody(head, wire.data() + at + kEchoHeadSize, nullptr)) return {Verdict::kWrongCrc, id};
    at += kEchoHeadSize + count;
    received += kEchoHeadSize + count;
  }
  return {};
}

namespace {

uint32_t LittleEndian32(const uint8_t* bytes) {
  return uint32_t{bytes[0]} | (uint32_t{bytes[1]} << 8) | (uint32_t{bytes[2]} << 16) |
         (uint32_t{bytes[3]} << 24);
}

}  // namespace

Outcome ExpectedOutcome(const ChunkStream& sent, const std::vector<uint8_t>& wire) {
  size_t from = 0;
  for (;;) {
    const auto sent_end =
        std::mismatch(sent.bytes.begin() + static_cast<std::ptrdiff_t>(from), sent.bytes.end(),
                      wire.begin() + static_cast<std::ptrdiff_t>(std::min(from, wire.size())), wire.end())
            .first;
    if (sent_end == sent.bytes.end()) return {};  // anything extra lies after the last chunk read
    const size_t first = static_cast<size_t>(sent_end - sent.bytes.begin());
    const auto chunk = static_cast<uint32_t>(std::upper_bound(sent.starts.begin(), sent.starts.end(), first) -
                                             sent.starts.begin() - 1);
    const size_t start = sent.starts[chunk];
    const size_t offset = first - start;
    const size_t left = wire.size() - start;
    if (left < 12) return {Verdict::kShortHead, chunk};
    if (offset < 4) return {Verdict::kWrongId, chunk};
    const uint32_t body_length = LittleEndian32(wire.data() + start + 4);
    if (body_length > sent.max_chunk - 12) return {Verdict::kTooLong, chunk};
    if (left - 12 < body_length) return {Verdict::kShortBody, chunk};
    // The CRC covers the body only: an empty body leaves its CRC field unchecked, and the chunk
    // passes in step with the sender.
    if (body_length != 0 || chunk + 1 == sent.starts.size()) return {Verdict::kWrongCrc, chunk};
    from = sent.starts[chunk + 1];
  }
}

std::string Describe(const Fault& fault) {
  char text[80];
  if (fault.kind == FaultKind::kFlip || fault.kind == FaultKind::kInsert) {
    std::snprintf(text, sizeof text, "%s:%u@%zu", FaultKindName(fault.kind), fault.value, fault.position);
  } else {
    std::snprintf(text, sizeof text, "%s@%zu", FaultKindName(fault.kind), fault.position);
  }
  return text;
}

}  // namespace portwren::campaign
