// The line as two COM ports of the Windows build under Wine: a socat null-modem pair that
// scripts/wine-run.sh maps into the prefix and names in PORTWREN_WINE_PORTS (the port under
// test, then the far end). The far end goes through the same os:: calls as the port; it reads
// only what has arrived, so no read of it depends on Wine's serial timeouts.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "common/line_pair.h"
#include "platform/os_serial.h"
#include "support/handle_holder.h"

namespace portwren::testkit {

namespace {

using Clock = std::chrono::steady_clock;

os::Dword Queued(os::Handle port) {
  os::ComStat stat;
  os::Dword errors = 0;
  return os::ClearCommError(port, &errors, &stat) ? stat.cbInQue : 0;
}

// Takes what has arrived, up to count bytes; "" when nothing has.
std::string TakeArrived(os::Handle port, size_t count) {
  const size_t ready = std::min<size_t>(Queued(port), count);
  if (ready == 0) return "";
  std::string bytes(ready, '\0');
  os::Dword done = 0;
  if (!os::ReadFile(port, bytes.data(), static_cast<os::Dword>(ready), &done, nullptr)) return "";
  bytes.resize(done);
  return bytes;
}

// Drops what either end holds until the line has been quiet for quiet_ms.
void Quiet(os::Handle a, os::Handle b, int quiet_ms) {
  auto last = Clock::now();
  while (Clock::now() - last < std::chrono::milliseconds(quiet_ms)) {
    if (!TakeArrived(a, 65536).empty() || !TakeArrived(b, 65536).empty()) last = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

// Back to the settings every test starts from: 9600 8N1, no flow control, reads that wait.
bool Reset(os::Handle port) {
  os::Dcb dcb;
  dcb.BaudRate = 9600;
  dcb.fBinary = 1;
  dcb.fDtrControl = os::kDtrControlEnable;
  dcb.fRtsControl = os::kRtsControlEnable;
  dcb.XonLim = 2048;
  dcb.XoffLim = 512;
  dcb.ByteSize = 8;
  dcb.XonChar = 0x11;
  dcb.XoffChar = 0x13;
  const os::CommTimeouts timeouts{0, 0, 0, 0, 5000};
  return os::SetCommState(port, &dcb) && os::SetCommTimeouts(port, &timeouts) &&
         os::PurgeComm(port, os::kPurgeRxClear | os::kPurgeTxClear);
}

}  // namespace

struct LinePair::Ends {
  std::string error;
  std::string port_path;
  HandleHolder far;
};

LinePair::LinePair() : ends_(std::make_unique<Ends>()) {
  const char* names = std::getenv("PORTWREN_WINE_PORTS");
  std::istringstream list(names == nullptr ? "" : names);
  std::string far_path;
  if (!(list >> ends_->port_path >> far_path)) {
    ends_->error =
        "no serial line: PORTWREN_WINE_PORTS names none (run through scripts/wine-run.sh "
        "with PORTWREN_WINE_SERIAL=1)";
    return;
  }
  // The line outlives each test: whatever the last one left on it goes, and both ends get
  // the same settings again.
  HandleHolder near(os::CreateFileA(ends_->port_path.c_str(), os::kGenericRead | os::kGenericWrite, 0,
                                    os::kOpenExisting, 0));
  ends_->far.reset(
      os::CreateFileA(far_path.c_str(), os::kGenericRead | os::kGenericWrite, 0, os::kOpenExisting, 0));
  if (!near || !ends_->far) {
    ends_->error = "cannot open " + (near ? far_path : ends_->port_path) + ": error " +
                   std::to_string(os::GetLastError());
    return;
  }
  if (!Reset(near.get()) || !Reset(ends_->far.get())) {
    ends_->error = "cannot reset the line: error " + std::to_string(os::GetLastError());
    return;
  }
  Quiet(near.get(), ends_->far.get(), 30);
}

LinePair::~LinePair() = default;

const std::string& LinePair::error() const {
  return ends_->error;
}
const std::string& LinePair::port_path() const {
  return ends_->port_path;
}

bool LinePair::WriteFar(std::string_view bytes) {
  os::Dword done = 0;
  return ends_->far &&
         os::WriteFile(ends_->far.get(), bytes.data(), static_cast<os::Dword>(bytes.size()), &done,
                       nullptr) &&
         done == bytes.size();
}

std::string LinePair::ReadFar(size_t count, int timeout_ms) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  std::string out;
  while (ends_->far && out.size() < count) {
    const std::string got = TakeArrived(ends_->far.get(), count - out.size());
    out += got;
    if (!got.empty()) continue;
    if (Clock::now() >= deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return out;
}

size_t LinePair::DrainFar(int quiet_ms) {
  size_t total = 0;
  for (;;) {
    const std::string got = ReadFar(65536, quiet_ms);
    if (got.empty()) return total;
    total += got.size();
  }
}

void LinePair::CloseFar() {
  ends_->far.reset();
}

}  // namespace portwren::testkit
