// A far end for echo runs: a thread that sends back what the port writes, optionally with one
// fault at a given offset of the stream, and records what came for the test to check.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "common/pty_pair.h"

namespace portwren::testkit {

enum class PeerFault {
  kNone,
  kFlip,    // the byte at the offset goes back XORed with kPeerFlipMask
  kDrop,    // the byte at the offset does not go back
  kInsert,  // kPeerInsertedByte goes back before the byte at the offset
  kMute,    // nothing from the offset on goes back; reading goes on
  kStall,   // nothing more is read from the offset on
};
inline constexpr unsigned char kPeerFlipMask = 0x55;
inline constexpr unsigned char kPeerInsertedByte = 0xA5;

struct PeerPlan {
  PeerFault fault = PeerFault::kNone;
  size_t offset = 0;
  int hold_ms = 0;  // each byte goes back only after it was held this long
};

class EchoPeer {
 public:
  static constexpr size_t kRecordBytes = 1 << 20;

  EchoPeer(PtyPair& pty, PeerPlan plan);
  ~EchoPeer();  // stops the thread
  EchoPeer(const EchoPeer&) = delete;
  EchoPeer& operator=(const EchoPeer&) = delete;

  size_t Received() const { return received_.load(); }
  // Waits until at least count bytes came; false when that took longer than timeout_ms.
  bool WaitReceived(size_t count, int timeout_ms) const;
  // The first kRecordBytes that came, unchanged by the fault.
  std::string Recorded() const;
  // Most bytes ever received and not yet sent back: one chunk at most in lock-step.
  size_t MostInFlight() const { return most_in_flight_.load(); }
  // From the first byte received to the last.
  std::chrono::milliseconds ReceiveSpan() const;

 private:
  void Run();
  void Take(const unsigned char* bytes, size_t count);

  const int fd_;
  const PeerPlan plan_;
  std::atomic<bool> stop_{false};
  std::atomic<size_t> received_{0};
  std::atomic<size_t> most_in_flight_{0};
  mutable std::mutex mutex_;
  std::string recorded_;
  std::chrono::steady_clock::time_point first_, last_;
  // Peer thread only: what goes back, block by block with the time each came.
  struct Block {
    std::chrono::steady_clock::time_point came;
    std::string bytes;
  };
  std::deque<Block> outgoing_;
  size_t in_flight_ = 0;
  size_t taken_ = 0;  // bytes seen so far, the fault's offset counts on these
  std::thread thread_;
};

}  // namespace portwren::testkit
