// Control requests to a driver (DeviceIoControl) and the rule that builds their codes.
#pragma once

#include "platform/os_file.h"

namespace portwren::os {

inline constexpr Dword kMethodBuffered = 0;
inline constexpr Dword kFileAnyAccess = 0;
inline constexpr Dword kFileReadAccess = 1;
inline constexpr Dword kFileWriteAccess = 2;

// CTL_CODE.
constexpr Dword CtlCode(Dword device_type, Dword function, Dword method, Dword access) {
  return (device_type << 16) | (access << 14) | (function << 2) | method;
}

// Synchronous without an Overlapped. Where no driver understands requests (the POSIX
// backend) every request fails with kErrInvalidFunction, the answer Windows gives for a
// request that a device's driver does not handle.
bool DeviceIoControl(Handle device, Dword control_code, const void* in_buffer, Dword in_size,
                     void* out_buffer, Dword out_size, Dword* bytes_returned, Overlapped* overlapped);

}  // namespace portwren::os
