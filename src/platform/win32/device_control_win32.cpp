#include "platform/os_device_control.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

static_assert(CtlCode(0x22, 1, kMethodBuffered, kFileReadAccess) ==
              CTL_CODE(0x22, 1, METHOD_BUFFERED, FILE_READ_ACCESS));

bool DeviceIoControl(Handle device, Dword control_code, const void* in_buffer, Dword in_size,
                     void* out_buffer, Dword out_size, Dword* bytes_returned, Overlapped* overlapped) {
  DWORD returned = 0;
  const BOOL ok = ::DeviceIoControl(device, control_code, const_cast<void*>(in_buffer), in_size, out_buffer,
                                    out_size, &returned, reinterpret_cast<OVERLAPPED*>(overlapped));
  if (bytes_returned != nullptr) *bytes_returned = returned;
  return ok != FALSE;
}

}  // namespace portwren::os
