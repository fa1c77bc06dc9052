// Where the SetupDi-shaped enumeration of the POSIX backend finds its devices.
#pragma once

#include <string>
#include <utility>
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
  // What GetDeviceExtras reports: the hardware device behind it and lines of its own.
  std::string hardware_path;
  std::vector<std::pair<std::string, std::string>> extra_lines;
};

using DeviceSource = std::vector<DeviceEntry> (*)();

// The serial devices that sysfs shows under `root` (a directory holding sys/ and dev/, "/" for
// the machine itself), as GUID_DEVINTERFACE_COMPORT interfaces in name order: every
// sys/class/tty/<name> with a device link, except UART slots with no UART behind them
// (type 0). Virtual terminals and pseudo-terminals have no device link and are not listed.
// Only sysfs attributes and the links of dev/serial/by-id are read; no device is opened.
//   path: /dev/<name>; instance id: the sysfs path of its device; service: the kernel driver
//   (the one behind the serial core's own port devices); friendly name: the USB product, or a
//   description of the device from its firmware or its hardware id; port name: <name>;
//   hardware path: the USB device's sysfs path; lines: VID:PID, Manufacturer, Serial number,
//   By-id link, each when there is one.
std::vector<DeviceEntry> SerialDevicesUnder(const std::string& root);

// SerialDevicesUnder the device root.
std::vector<DeviceEntry> SystemDevices();

// Where SystemDevices looks ("" or "/": the machine itself); for tests on a fake tree.
void SetDeviceRoot(const std::string& root);

// Replaces where the listing comes from (nullptr: SystemDevices); for tests of the calls.
void SetDeviceSource(DeviceSource source);

}  // namespace portwren::os::posix
