// How much of the line an echo run used: its rate against the most that the port's baud rate and
// framing let through in one direction.
#pragma once

#include <cstdint>
#include <string>

#include "platform/os_handle.h"
#include "platform/os_serial.h"

namespace portwren {

struct LineUse {
  uint32_t baud = 0;
  char framing[8] = {};  // data bits, parity letter, stop bits: "8-N-1", "7-E-1.5"
  double limit_bytes_per_s = 0;
  double bytes_per_s = 0;
  double percent = 0;
};

// Bits on the line per byte: the start bit, the data bits, a parity bit if any, the stop bits
// (1.5 counts as 1.5). 0 for framing a port cannot have.
double LineBitsPerByte(const os::Dcb& dcb);

// The use of the line that dcb describes; false when it gives no limit (no baud rate, bad framing).
bool LineUseOf(const os::Dcb& dcb, double bytes_per_s, LineUse* use);

// The same for the open port; false where its baud rate means nothing (a pseudo-terminal) or its
// settings cannot be read.
bool MeasureLineUse(os::Handle port, double bytes_per_s, LineUse* use);

// "Line use: 85.7% of 115200 8-N-1 (9874 of at most 11520 bytes/s)."
std::string LineUseText(const LineUse& use);

}  // namespace portwren
