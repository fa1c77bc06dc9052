// Finding and opening the driver's control interface through its device-interface class.
#pragma once

#include <cstdint>

#include "platform/os_device_enum.h"

namespace portwren {

// The path of the index-th interface of the class (enumerator may be null). On success copies
// it into path when capacity >= 1 and returns true; *required_chars gets the size the path
// needs (bytes / 2), also when the detail did not fit; otherwise 0.
bool FindInterfacePath(uint32_t index, const os::Guid& guid, const os::WChar* enumerator, bool present_only,
                       os::WChar* path, int32_t capacity, uint32_t* required_chars);

// The first present control interface, opened for reading (and writing when asked);
// kInvalidHandle with ERROR_NOT_READY when there is none, or the open's error.
os::Handle OpenControlInterface(bool writable);

}  // namespace portwren
