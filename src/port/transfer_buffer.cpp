#include "port/transfer_buffer.h"

namespace portwren {

namespace {
// Static storage: 8 MB on the heap or stack is not wanted, and untouched pages cost nothing.
uint8_t g_transfer_buffer[kTransferBufferBytes];
TransferCounters g_transfer;
}  // namespace

uint8_t* TransferBuffer() {
  return g_transfer_buffer;
}

TransferCounters& Transfer() {
  return g_transfer;
}

void ResetTransferCounters() {
  g_transfer = TransferCounters{};
}

}  // namespace portwren
