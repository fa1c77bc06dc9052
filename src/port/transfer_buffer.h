// The one buffer of the timed reads and writes, and the counters that run on from one
// request to the next for the whole run.
#pragma once

#include <cstdint>

#include "support/run_settings.h"

namespace portwren {

// kTransferBufferBytes bytes, zeroed at start; shared by r, R, w and W.
uint8_t* TransferBuffer();

// A count that the timed requests can use: the data and the NUL put after it both fit.
inline bool FitsTransferBuffer(int32_t count) {
  return count >= 0 && count < kTransferBufferBytes;
}

struct TransferCounters {
  uint16_t fill_counter = 0;   // next word a timed write puts out; wraps from 65535 to 0
  uint64_t read_number = 0;    // reads that returned data so far
  uint64_t stream_offset = 0;  // bytes those reads returned so far
};

// Main thread only: the keys that use them run there.
TransferCounters& Transfer();
void ResetTransferCounters();

}  // namespace portwren
