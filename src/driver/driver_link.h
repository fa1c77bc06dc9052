// Where the driver's control requests go: the system's devices, or a stand-in that answers
// with recorded records in tests. Everything that decodes and prints the answers sits above
// this seam, so it runs the same against either.
#pragma once

#include "platform/os_file.h"

namespace portwren {

// One synchronous control request. `returned` receives the byte count of the answer.
struct ControlRequest {
  os::Dword code = 0;
  const void* in = nullptr;
  os::Dword in_size = 0;
  void* out = nullptr;
  os::Dword out_size = 0;
  os::Dword* returned = nullptr;
};

enum class DriverTarget {
  kBusReadOnly,   // \\.\QDX_TRELLIS_VBUS opened for reading
  kBusReadWrite,  // the same for reading and writing (administrators)
  kControl,       // the control interface, found by its interface class, opened read-only
};

class DriverLink {
 public:
  virtual ~DriverLink() = default;
  // Opens the target, sends the request and closes it again. False with the thread's last error
  // set; *opened then tells a target that could not be opened from a request it refused.
  virtual bool Send(DriverTarget target, const ControlRequest& request, bool* opened) = 0;
  // On a handle the caller holds open (a VCOM).
  virtual bool SendTo(os::Handle device, const ControlRequest& request) = 0;
  // QueryDosDeviceA: the target of a DOS device name, its length or 0 with the last error.
  virtual os::Dword QueryDosDevice(const char* name, char* target, os::Dword size) = 0;
  // devmgr.dll's DeviceProperties_RunDLLA with this command line; false when it is not there.
  virtual bool RunDevicePropertiesDialog(const char* command_line) = 0;
};

// The link every request of the program goes through.
DriverLink& Driver();
// Tests put a stand-in in place; nullptr puts the system's back.
void SetDriverLink(DriverLink* link);

}  // namespace portwren
