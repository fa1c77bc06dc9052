// One fault on a stream of echo chunks, what the client's receive checks make of the stream, and
// what they must make of it. The campaign builds streams, injects a fault, and holds the checks
// against that expectation; the end-to-end trials apply the fault the relay reports to the same
// stream the client sent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace portwren::campaign {

enum class FaultKind { kFlip, kDrop, kInsert, kDup };
constexpr FaultKind kFaultKinds[] = {FaultKind::kFlip, FaultKind::kDrop, FaultKind::kInsert, FaultKind::kDup};
const char* FaultKindName(FaultKind kind);

struct Fault {
  FaultKind kind = FaultKind::kFlip;
  size_t position = 0;  // byte of the stream it hits; an insert goes before it
  uint8_t value = 0;    // the bit to flip, or the byte to insert
};

// Chunks as the client sends them, with where each starts.
struct ChunkStream {
  std::vector<uint8_t> bytes;
  std::vector<size_t> starts;
  uint32_t max_chunk = 0;
};

// Random mode from a seed, as the pushing thread makes them (length draw, then the body draws),
// until at least byte_limit bytes are in.
ChunkStream BuildRandomStream(uint32_t seed, uint32_t min_chunk, uint32_t max_chunk, uint64_t byte_limit);
// Sequence mode: count chunks, the counter running on from start.
ChunkStream BuildSequenceStream(uint32_t start, uint32_t min_chunk, uint32_t max_chunk, uint32_t count,
                                uint32_t length_seed);

std::vector<uint8_t> Apply(const std::vector<uint8_t>& bytes, const Fault& fault);

// The first error line of a failed receive, in checking order.
enum class Verdict { kPass, kShortHead, kWrongId, kTooLong, kShortBody, kWrongCrc };
const char* VerdictName(Verdict verdict);
// The start of the line the client prints for it (after "@Chunk N: ").
const char* VerdictLine(Verdict verdict);

struct Outcome {
  Verdict verdict = Verdict::kPass;
  uint32_t chunk = 0;  // where it failed
  bool operator==(const Outcome&) const = default;
};

// The client's receive path over what arrives: heads, ids, lengths, bodies and CRCs checked chunk
// by chunk until the bytes sent have come back; a stream that ends early is a timed-out read.
Outcome ReceiveStream(const std::vector<uint8_t>& wire, uint64_t bytes_sent, uint32_t max_chunk);

// What the checks must report, from where the wire first differs from what was sent: a changed id
// byte is a wrong id, a length over the maximum is too long, a body the wire cannot fill is short,
// anything else in that chunk is a wrong CRC.
Outcome ExpectedOutcome(const ChunkStream& sent, const std::vector<uint8_t>& wire);

std::string Describe(const Fault& fault);

}  // namespace portwren::campaign
