// The driver's part of start-up: its kernel version, and the bus requests that the unplug and
// reinstall options send before the program ends without a port.
#pragma once

#include <span>

#include "driver/control_codes.h"

namespace portwren {

// "TRELLIS kernel version: 1.2.3", or the failure with its WinErr, straight to standard
// output (not the console log). Never fatal.
void PrintKernelVersion();

// In table order; at the first code that differs from its definition prints "<name> value
// error!" and returns false (start-up then ends with exit code 2). Silent when all agree.
bool CheckRequestDefinitions(std::span<const RequestDefinition> definitions = kVcomRequestDefinitions);

// Asks the bus to unplug every VCOM and logs the outcome (date-stamped).
void UnplugAllVcoms();

// Asks the bus to reinstall itself; the outcome is not reported.
void ReinstallVbus();

}  // namespace portwren
