#include "platform/os_device_control.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/kernel_object.h"

namespace portwren::os {

// No driver here understands a control request: every one gets the answer Windows gives for
// a request that a device's driver does not handle (ERROR_INVALID_FUNCTION), as a plain
// serial port would.
bool DeviceIoControl(Handle device, Dword /*control_code*/, const void* /*in_buffer*/, Dword /*in_size*/,
                     void* /*out_buffer*/, Dword /*out_size*/, Dword* bytes_returned,
                     Overlapped* /*overlapped*/) {
  if (bytes_returned != nullptr) *bytes_returned = 0;
  if (posix::LookupObject(device) == nullptr) return posix::Fail(kErrInvalidHandle);
  return posix::Fail(kErrInvalidFunction);
}

}  // namespace portwren::os
