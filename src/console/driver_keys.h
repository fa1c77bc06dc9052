// The keys that send the driver's requests: < > | to the open VCOM, ! @ to the bus.
#pragma once

#include "platform/os_handle.h"

namespace portwren {

// Runs the request bound to the key; false when the key is not one of these.
bool RunDriverKey(os::Handle port, int key);

}  // namespace portwren
