// What the enumeration keeps of each serial-port interface, and the list that holds them.
#pragma once

#include <cstdint>
#include <vector>

namespace portwren {

// One enumerated interface; narrow text, NUL-padded.
struct VcomRecord {
  uint8_t isOurs;             // its service is the driver package's VCOM service
  char portName[16];          // the DOS name, once the link check asked the bus
  char devinstId[260];        // the device-instance ID
  char fdoName[40];           // the correct target of its symbolic link
  char pdoName[40];           // kept, never used
  char kernelLinkTarget[40];  // the link's target in the kernel's global name space
};
static_assert(sizeof(VcomRecord) == 397);

class VcomRecordList {
 public:
  // Grows (new records zero-filled when asked) or shrinks from the end. -3 for a negative
  // count, which changes nothing; otherwise 0.
  int32_t Resize(int32_t count, bool zero_fill);
  // 0 .. count-1, or from the end for a negative index (-1 the last); nullptr outside.
  VcomRecord* At(int32_t index);
  int32_t count() const { return static_cast<int32_t>(records_.size()); }

 private:
  std::vector<VcomRecord> records_;
};

}  // namespace portwren
