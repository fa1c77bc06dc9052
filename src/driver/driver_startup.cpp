#include "driver/driver_startup.h"

#include <cstdio>

#include "driver/control_codes.h"
#include "driver/driver_requests.h"
#include "format/console_log.h"

namespace portwren {

void PrintKernelVersion() {
  uint32_t error = 0;
  const uint32_t version = GetKernelVersion(&error);
  if (version != 0) {
    std::printf("TRELLIS kernel version: %u.%u.%u\n", version >> 24, (version >> 16) & 255,
                (version >> 8) & 255);
  } else {
    std::printf("Cannot get TRELLIS kernel version. WinErr=%u(%s)\n", error, WinErrName(error));
  }
}

bool CheckRequestDefinitions(std::span<const RequestDefinition> definitions) {
  for (const RequestDefinition& definition : definitions) {
    if (definition.code != definition.expected) {
      std::printf("%s value error!\n", definition.name);
      return false;
    }
  }
  return true;
}

void UnplugAllVcoms() {
  const uint32_t result = SendBusRequest(BusOpensReadOnly(IOCTL_TRELLIS_UnplugAllVcoms),
                                         IOCTL_TRELLIS_UnplugAllVcoms, nullptr, 0, nullptr, 0, nullptr);
  if (result == 0) {
    LogStamp("Unplug all VCOMs success.");
  } else {
    WinErrStamp(0, "Unplug all VCOMs fail.");
  }
}

void ReinstallVbus() {
  SendBusRequest(BusOpensReadOnly(IOCTL_TRELLIS_VbusReinstall), IOCTL_TRELLIS_VbusReinstall, nullptr, 0,
                 nullptr, 0, nullptr);
}

}  // namespace portwren
