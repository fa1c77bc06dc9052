// Where the SetupDi-shaped enumeration of the POSIX backend finds its devices.
#pragma once

#include <string>
#include <vector>

#include "platform/os_device_enum.h"

namespace portwren::os::posix {

// One device interface, with what the enumeration calls report about it.
struct DeviceEntry {
  Guid interface_class;
  std::string interface_path;  // what CreateFileA opens
  std::string instance_id;
  std::string friendly_name;  // empty: the property is missing
  std::string description;
  std::string service;
  std::string port_name;  // the "PortName" value of its device key; empty: none
};

using DeviceSource = std::vector<DeviceEntry> (*)();

// The devices this system offers: today none. A listing of the real serial devices (the
// entries of /sys/class/tty that have a device link, as GUID_DEVINTERFACE_COMPORT
// interfaces) plugs in here and nowhere else.
std::vector<DeviceEntry> SystemDevices();

// Replaces where the listing comes from (nullptr: SystemDevices); for tests of the calls.
void SetDeviceSource(DeviceSource source);

}  // namespace portwren::os::posix
