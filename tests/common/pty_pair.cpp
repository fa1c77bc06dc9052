#include "common/pty_pair.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace portwren::testkit {

namespace {

int RemainingMs(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

PtyPair::PtyPair() {
  char name[256] = {};
  termios raw{};
  cfmakeraw(&raw);
  if (openpty(&master_, &slave_, name, &raw, nullptr) != 0) {
    master_ = slave_ = -1;
    return;
  }
  fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
  fcntl(master_, F_SETFD, FD_CLOEXEC);
  fcntl(slave_, F_SETFD, FD_CLOEXEC);
  slave_path_ = name;
}

PtyPair::~PtyPair() {
  CloseFar();
  if (slave_ >= 0) close(slave_);
}

bool PtyPair::WriteFar(std::string_view bytes) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t put = write(master_, bytes.data() + sent, bytes.size() - sent);
    if (put > 0) {
      sent += static_cast<size_t>(put);
      continue;
    }
    if (put < 0 && errno != EAGAIN && errno != EINTR) return false;
    pollfd wait{master_, POLLOUT, 0};
    if (poll(&wait, 1, RemainingMs(deadline)) <= 0) return false;
  }
  return true;
}

std::string PtyPair::ReadFar(size_t count, int timeout_ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  std::string out;
  char chunk[4096];
  while (out.size() < count) {
    const size_t want = std::min(sizeof chunk, count - out.size());
    const ssize_t got = read(master_, chunk, want);
    if (got > 0) {
      out.append(chunk, static_cast<size_t>(got));
      continue;
    }
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) break;
    pollfd wait{master_, POLLIN, 0};
    const int left = RemainingMs(deadline);
    if (left == 0 || poll(&wait, 1, left) <= 0) break;
  }
  return out;
}

size_t PtyPair::DrainFar(int quiet_ms) {
  size_t total = 0;
  for (;;) {
    const std::string got = ReadFar(65536, quiet_ms);
    if (got.empty()) return total;
    total += got.size();
  }
}

void PtyPair::CloseFar() {
  if (master_ >= 0) close(master_);
  master_ = -1;
}

}  // namespace portwren::testkit
