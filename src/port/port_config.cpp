#include "port/port_config.h"

#include <cstdio>

#include "format/console_log.h"
#include "platform/os_serial.h"
#include "port/timed_io.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

using LinePrinter = void (*)(const char* format, ...);
using FailurePrinter = void (*)(int ok, const char* format, ...);

// Prints the queue report with `print`; a failure goes to `fail`. False when it failed.
bool ClearErrorReport(os::Handle port, LinePrinter print, FailurePrinter fail) {
  os::Dword errors = 0;
  os::ComStat stat;
  if (!os::ClearCommError(port, &errors, &stat)) {
    fail(0, "ClearCommError() fail.");
    return false;
  }
  char suffix[80] = "";
  if (errors != 0) FormatToBuffer(suffix, sizeof suffix, "Errors-cleared: 0x%04X", errors);
  print("ClearCommError() reports: cbInQue=%d, cbOutQue=%d. %s", static_cast<int32_t>(stat.cbInQue),
        static_cast<int32_t>(stat.cbOutQue), suffix);
  return true;
}

}  // namespace

void ApplyTimeouts(os::Handle port) {
  os::CommTimeouts timeouts;
  timeouts.ReadIntervalTimeout = static_cast<os::Dword>(g_rto_interval);
  timeouts.ReadTotalTimeoutMultiplier = static_cast<os::Dword>(g_rto_multiplier);
  timeouts.ReadTotalTimeoutConstant = static_cast<os::Dword>(g_rto_constant);
  timeouts.WriteTotalTimeoutMultiplier = static_cast<os::Dword>(g_wto_multiplier);
  timeouts.WriteTotalTimeoutConstant = static_cast<os::Dword>(g_wto_constant);
  WinErrTick(os::SetCommTimeouts(port, &timeouts), "SetCommTimeouts fail.");
}

void MySetBaudrate(os::Handle port, int32_t rate) {
  os::Dcb dcb;
  if (!os::GetCommState(port, &dcb)) {
    WinErrTick(0, "In MySetBaudrate(), GetCommState() fail.");
    return;
  }
  dcb.BaudRate = static_cast<os::Dword>(rate);
  dcb.ByteSize = 8;
  dcb.Parity = os::kNoParity;
  dcb.StopBits = os::kOneStopBit;
  if (os::SetCommState(port, &dcb)) {
    std::printf("SetCommState() .Baudrate=%d Success\n", rate);
  } else {
    WinErrTick(0, "In MySetBaudrate(), setting baudrate=%d, SetCommState() fails.", rate);
  }
}

void SetCtsFlow(os::Handle port, bool on) {
  os::Dcb dcb;
  if (!os::GetCommState(port, &dcb)) {
    WinErrTick(0, "GetCommState() fails.");
    return;
  }
  dcb.fOutxCtsFlow = on ? 1 : 0;
  const int bit = on ? 1 : 0;
  if (os::SetCommState(port, &dcb)) {
    LogPrint("SetCommState() .fOutxCtsFlow=%d Success.", bit);
  } else {
    WinErrTick(0, "SetCommState() .fOutxCtsFlow=%d fails.", bit);
  }
}

void Purge(os::Handle port, bool with_abort) {
  LogStampMs("PurgeComm()... %s", with_abort ? "+Cancel VCOM IRP" : "");
  os::Dword flags = os::kPurgeTxClear | os::kPurgeRxClear;
  if (with_abort) flags |= os::kPurgeTxAbort | os::kPurgeRxAbort;
  if (os::PurgeComm(port, flags)) {
    LogStampMs("PurgeComm() ok.");
  } else {
    WinErrStampMs(0, "PurgeComm() error.");
  }
}

void ReportClearCommError(os::Handle port) {
  ClearErrorReport(port, &LogStamp, &WinErrStamp);
}

void MyClearCommData(os::Handle port, uint32_t ms, bool ms_stamps) {
  const LinePrinter print = ms_stamps ? &LogStampMs : &LogStamp;
  ClearErrorReport(port, print, &WinErrStampMs);  // a failed report does not stop the clearing

  os::CommTimeouts saved;
  if (!os::GetCommTimeouts(port, &saved)) {
    WinErrStampMs(0, "GetCommTimeouts() fail.");
    return;
  }
  // A read returns at once with what is there, or waits up to ms for the first byte.
  os::CommTimeouts dry;
  dry.ReadIntervalTimeout = os::kMaxDword;
  dry.ReadTotalTimeoutMultiplier = os::kMaxDword;
  dry.ReadTotalTimeoutConstant = ms;
  if (!os::SetCommTimeouts(port, &dry)) {
    WinErrStampMs(0, "SetCommTimeouts() fail.");
    return;
  }

  uint8_t scratch[1000];
  int32_t total = 0;
  int32_t got = 0;
  while ((got = ReadFile_Sync(port, scratch, sizeof scratch)) >= 1) total += got;
  if (total > 0) print("COM port read-buffer bytes cleared: %d", total);

  if (!os::SetCommTimeouts(port, &saved)) {
    const os::Dword code = os::GetLastError();
    print("In MyClearCommData(), SetCommTimeouts() fail. WinErr=%d(%s)", static_cast<int32_t>(code),
          WinErrName(code));
  }
}

}  // namespace portwren
