#include "common/echo_peer.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace portwren::testkit {

namespace {
// Like a real far end, the peer stops reading while this much waits to go back.
constexpr size_t kMostBacklog = 65536;
}  // namespace

EchoPeer::EchoPeer(PtyPair& pty, PeerPlan plan) : fd_(pty.far_fd()), plan_(plan) {
  thread_ = std::thread([this] { Run(); });
}

EchoPeer::~EchoPeer() {
  stop_.store(true);
  thread_.join();
}

bool EchoPeer::WaitReceived(size_t count, int timeout_ms) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (Received() < count) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

std::string EchoPeer::Recorded() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return recorded_;
}

std::chrono::milliseconds EchoPeer::ReceiveSpan() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::chrono::duration_cast<std::chrono::milliseconds>(last_ - first_);
}

void EchoPeer::Take(const unsigned char* bytes, size_t count) {
  const auto now = std::chrono::steady_clock::now();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (taken_ == 0) first_ = now;
    last_ = now;
    recorded_.append(reinterpret_cast<const char*>(bytes), std::min(count, kRecordBytes - recorded_.size()));
  }
  std::string back;
  for (size_t i = 0; i < count; ++i, ++taken_) {
    const auto byte = static_cast<char>(bytes[i]);
    if (taken_ != plan_.offset || plan_.fault == PeerFault::kNone) {
      if ((plan_.fault != PeerFault::kMute && plan_.fault != PeerFault::kStall) || taken_ < plan_.offset)
        back += byte;
      continue;
    }
    switch (plan_.fault) {
      case PeerFault::kFlip:
        back += static_cast<char>(bytes[i] ^ kPeerFlipMask);
        break;
      case PeerFault::kDrop:
        break;
      case PeerFault::kInsert:
        back += static_cast<char>(kPeerInsertedByte), back += byte;
        break;
      default:
        break;  // mute and stall: nothing from here on
    }
  }
  received_.fetch_add(count);
  in_flight_ += back.size();
  most_in_flight_.store(std::max(most_in_flight_.load(), in_flight_));
  if (!back.empty()) outgoing_.push_back({now, std::move(back)});
}

void EchoPeer::Run() {
  unsigned char buffer[16384];
  const auto hold = std::chrono::milliseconds(plan_.hold_ms);
  while (!stop_.load()) {
    const bool stalled = plan_.fault == PeerFault::kStall && taken_ >= plan_.offset;
    const bool full = in_flight_ >= kMostBacklog;
    const auto now = std::chrono::steady_clock::now();
    const bool due = !outgoing_.empty() && outgoing_.front().came + hold <= now;
    pollfd ready{fd_, static_cast<short>((stalled || full ? 0 : POLLIN) | (due ? POLLOUT : 0)), 0};
    const int wait_ms = !outgoing_.empty() && !due ? 1 : 10;
    if (poll(&ready, 1, wait_ms) < 0 && errno != EINTR) return;
    if (ready.revents & POLLIN) {
      // Read no further than a stall's offset, so that the port sees its bytes stay unread.
      size_t want = sizeof buffer;
      if (plan_.fault == PeerFault::kStall) want = std::min(want, plan_.offset - taken_);
      const ssize_t got = want == 0 ? 0 : read(fd_, buffer, want);
      if (got > 0) Take(buffer, static_cast<size_t>(got));
    }
    // Everything that is due goes back, as far as the line takes it.
    while ((ready.revents & POLLOUT) && !outgoing_.empty() && outgoing_.front().came + hold <= now) {
      std::string& front = outgoing_.front().bytes;
      const ssize_t put = write(fd_, front.data(), front.size());
      if (put <= 0) break;
      front.erase(0, static_cast<size_t>(put));
      in_flight_ -= static_cast<size_t>(put);
      if (front.empty()) outgoing_.pop_front();
    }
  }
}

}  // namespace portwren::testkit
