// The driver's part of start-up: its kernel version, and the bus requests that the unplug and
// reinstall options send before the program ends without a port.
#pragma once

namespace portwren {

// "TRELLIS kernel version: 1.2.3", or the failure with its WinErr, straight to standard
// output (not the console log). Never fatal.
void PrintKernelVersion();

// Asks the bus to unplug every VCOM and logs the outcome (date-stamped).
void UnplugAllVcoms();

// Asks the bus to reinstall itself; the outcome is not reported.
void ReinstallVbus();

}  // namespace portwren
