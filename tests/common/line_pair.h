// A serial line for the platform tests: the port under test and the far end the test plays.
// Natively a pseudo-terminal pair (the port is its slave side); in the Windows build under Wine
// the two COM ports of the socat null-modem pair that scripts/wine-run.sh maps into the prefix.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace portwren::testkit {

class LinePair {
 public:
  LinePair();
  ~LinePair();
  LinePair(const LinePair&) = delete;
  LinePair& operator=(const LinePair&) = delete;

  // Why there is no line, or "" when there is one.
  const std::string& error() const;
  bool ok() const { return error().empty(); }
  // What the code under test opens as its port.
  const std::string& port_path() const;

  // Sends all bytes to the port (waits up to 5 s for room).
  bool WriteFar(std::string_view bytes);
  // Receives up to count bytes, waiting at most timeout_ms for all of them.
  std::string ReadFar(size_t count, int timeout_ms);
  // Reads and drops everything until the line has been quiet for quiet_ms; returns the count.
  size_t DrainFar(int quiet_ms);
  // Hangs up the far end: the port then sees its device go away.
  void CloseFar();

  struct Ends;

 private:
  std::unique_ptr<Ends> ends_;
};

}  // namespace portwren::testkit
