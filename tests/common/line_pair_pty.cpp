// The line as a pseudo-terminal pair.
#include "common/line_pair.h"
#include "common/pty_pair.h"

namespace portwren::testkit {

struct LinePair::Ends {
  PtyPair pty;
  std::string error;
};

LinePair::LinePair() : ends_(std::make_unique<Ends>()) {
  if (!ends_->pty.ok()) ends_->error = "openpty failed";
}
LinePair::~LinePair() = default;

const std::string& LinePair::error() const {
  return ends_->error;
}
const std::string& LinePair::port_path() const {
  return ends_->pty.slave_path();
}
bool LinePair::WriteFar(std::string_view bytes) {
  return ends_->pty.WriteFar(bytes);
}
std::string LinePair::ReadFar(size_t count, int timeout_ms) {
  return ends_->pty.ReadFar(count, timeout_ms);
}
size_t LinePair::DrainFar(int quiet_ms) {
  return ends_->pty.DrainFar(quiet_ms);
}
void LinePair::CloseFar() {
  ends_->pty.CloseFar();
}

}  // namespace portwren::testkit
