// A pseudo-terminal pair for tests: the code under test opens slave_path() as its port, the
// test plays the far end of the line through the master side.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace portwren::testkit {

class PtyPair {
 public:
  PtyPair();
  ~PtyPair();
  PtyPair(const PtyPair&) = delete;
  PtyPair& operator=(const PtyPair&) = delete;

  bool ok() const { return master_ >= 0; }
  const std::string& slave_path() const { return slave_path_; }
  // The far end itself (non-blocking), for helpers that play it on a thread of their own.
  int far_fd() const { return master_; }

  // Sends all bytes to the port (waits up to 5 s for room).
  bool WriteFar(std::string_view bytes);
  // Receives up to count bytes, waiting at most timeout_ms for all of them.
  std::string ReadFar(size_t count, int timeout_ms);
  // Reads and drops everything until the line has been quiet for quiet_ms; returns the count.
  size_t DrainFar(int quiet_ms);
  // Hangs up the far end: the port then sees its device go away.
  void CloseFar();

 private:
  int master_ = -1;
  int slave_ = -1;  // kept open so the far end never sees a hang-up between opens of the port
  std::string slave_path_;
};

}  // namespace portwren::testkit
