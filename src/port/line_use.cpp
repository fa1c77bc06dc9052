#include "port/line_use.h"

#include <cstdio>

namespace portwren {

namespace {

constexpr char kParityLetters[] = "NOEMS";                   // by Dcb.Parity
constexpr const char* kStopBitsTexts[] = {"1", "1.5", "2"};  // by Dcb.StopBits
constexpr double kStopBits[] = {1.0, 1.5, 2.0};

bool FramingValid(const os::Dcb& dcb) {
  return dcb.ByteSize >= 5 && dcb.ByteSize <= 8 && dcb.Parity <= os::kSpaceParity &&
         dcb.StopBits <= os::kTwoStopBits;
}

}  // namespace

double LineBitsPerByte(const os::Dcb& dcb) {
  if (!FramingValid(dcb)) return 0;
  const double parity = dcb.Parity == os::kNoParity ? 0 : 1;
  return 1 + dcb.ByteSize + parity + kStopBits[dcb.StopBits];
}

bool LineUseOf(const os::Dcb& dcb, double bytes_per_s, LineUse* use) {
  const double bits = LineBitsPerByte(dcb);
  if (bits == 0 || dcb.BaudRate == 0) return false;
  use->baud = dcb.BaudRate;
  std::snprintf(use->framing, sizeof use->framing, "%u-%c-%s", static_cast<unsigned>(dcb.ByteSize),
                kParityLetters[dcb.Parity], kStopBitsTexts[dcb.StopBits]);
  use->limit_bytes_per_s = dcb.BaudRate / bits;
  use->bytes_per_s = bytes_per_s;
  use->percent = bytes_per_s * 100 / use->limit_bytes_per_s;
  return true;
}

bool MeasureLineUse(os::Handle port, double bytes_per_s, LineUse* use) {
  os::Dcb dcb;
  return os::BaudRateIsReal(port) && os::GetCommState(port, &dcb) && LineUseOf(dcb, bytes_per_s, use);
}

std::string LineUseText(const LineUse& use) {
  char text[120];
  std::snprintf(text, sizeof text, "Line use: %.1f%% of %u %s (%.0f of at most %.0f bytes/s).", use.percent,
                use.baud, use.framing, use.bytes_per_s, use.limit_bytes_per_s);
  return text;
}

}  // namespace portwren
