#include "driver/key_requests.h"

#include "driver/control_codes.h"
#include "driver/driver_link.h"
#include "driver/driver_requests.h"
#include "format/console_log.h"

namespace portwren {

namespace {

// A request with no buffers to the VCOM.
void PlainVcomRequest(os::Handle vcom, os::Dword code, const char* name) {
  os::Dword returned = 0;
  if (Driver().SendTo(vcom, {code, nullptr, 0, nullptr, 0, &returned})) {
    LogPrint("%s success.", name);
  } else {
    WinErrPrint(0, "%s exec fail.", name);
  }
}

void BusTest(os::Dword code, const char* name) {
  if (SendBusRequest(BusOpensReadOnly(code), code, nullptr, 0, nullptr, 0, nullptr) == 0) {
    LogPrint("%s returns success.", name);
  } else {
    WinErrPrint(0, "%s fail.", name);
  }
}

}  // namespace

void EnableOneTimeTemporalLifemode(os::Handle vcom) {
  PlainVcomRequest(vcom, IOCTL_VCOM_OneTimeTemporalLifemode_Enable,
                   "IOCTL_VCOM_OneTimeTemporalLifemode_Enable");
}

void DisableOneTimeTemporalLifemode(os::Handle vcom) {
  PlainVcomRequest(vcom, IOCTL_VCOM_OneTimeTemporalLifemode_Disable,
                   "IOCTL_VCOM_OneTimeTemporalLifemode_Disable");
}

void QueryOneTimeTemporalLifemode(os::Handle vcom) {
  unsigned char on = 0;
  os::Dword returned = 0;
  if (Driver().SendTo(vcom, {IOCTL_VCOM_OneTimeTemporalLifemode_Query, nullptr, 0, &on, 1, &returned})) {
    LogPrint("%s success. onetime_temporal=%s", "IOCTL_VCOM_OneTimeTemporalLifemode_Query",
             on != 0 ? "true" : "false");
  } else {
    WinErrPrint(0, "%s exec fail.", "IOCTL_VCOM_OneTimeTemporalLifemode_Query");
  }
}

void VbusReadTest() {
  BusTest(IOCTL_TRELLIS_VbusReadTest, "IOCTL_TRELLIS_VbusReadTest");
}

void VbusWriteTest() {
  BusTest(IOCTL_TRELLIS_VbusWriteTest, "IOCTL_TRELLIS_VbusWriteTest");
}

}  // namespace portwren
