// The VCOM's own state as its driver reports it (IOCTL_VCOM_GetDeviceState).
#pragma once

#include <cstdint>

#include "platform/os_handle.h"

namespace portwren {

inline constexpr uint32_t kIoctlVcomGetDeviceState = 0x16127410;

// The heading line, then the state, or the failure with its error: a port whose driver does
// not know the request (any serial port but a VCOM) answers ERROR_INVALID_FUNCTION.
void PrintDeviceState(os::Handle vcom);

}  // namespace portwren
