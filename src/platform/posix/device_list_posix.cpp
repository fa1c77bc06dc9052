// The serial devices of this system, as the enumeration calls list them.
#include "platform/posix/device_source.h"

namespace portwren::os::posix {

// None yet. A sysfs listing goes here: every /sys/class/tty/<name> with a "device" link is a
// GUID_DEVINTERFACE_COMPORT interface whose path is /dev/<name>; its instance id, names and
// service come from the device's uevent (DRIVER, the USB vendor/product and serial), and
// <name> serves as its port name.
std::vector<DeviceEntry> SystemDevices() { return {}; }

}  // namespace portwren::os::posix
