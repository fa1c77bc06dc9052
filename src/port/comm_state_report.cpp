#include "port/comm_state_report.h"

#include <cstring>

#include "format/console_log.h"
#include "platform/os_serial.h"

namespace portwren {

namespace {

constexpr char kWrongValue[] = "WrongValue";

template <size_t N>
const char* NameAt(const char* const (&names)[N], uint32_t value) {
  return value < N && names[value] != nullptr ? names[value] : kWrongValue;
}

constexpr const char* kDtrControlNames[] = {"DTR_CONTROL_DISABLE", "DTR_CONTROL_ENABLE",
                                            "DTR_CONTROL_HANDSHAKE"};
constexpr const char* kRtsControlNames[] = {"RTS_CONTROL_DISABLE", "RTS_CONTROL_ENABLE",
                                            "RTS_CONTROL_HANDSHAKE", "RTS_CONTROL_TOGGLE"};
constexpr const char* kParityNames[] = {"NO_PARITY", "ODD_PARITY", nullptr, "MARK_PARITY", "SPACE_PARITY"};
constexpr const char* kStopBitsNames[] = {"one", "1.5", "two"};
constexpr const char* kLifemodeNames[] = {"Temporal", "Friendly", "Persistent"};

// DCB characters as bytes, so a value above 0x7F shows as two digits.
unsigned Byte(char c) {
  return static_cast<uint8_t>(c);
}

void PrintDcb(const os::Dcb& dcb) {
  LogPrint("GetCommState() returns DCB info:");
  LogPrint("  .Baudrate=%d", static_cast<int32_t>(dcb.BaudRate));
  LogPrint("  .fBinary=%s", YesNo(dcb.fBinary));
  LogPrint("  .fParity=%s", YesNo(dcb.fParity));
  LogPrint("  .fOutxCtsFlow=%s", YesNo(dcb.fOutxCtsFlow));
  LogPrint("  .fOutxDsrFlow=%s", YesNo(dcb.fOutxDsrFlow));
  LogPrint("  .fDtrControl=%d (%s)", static_cast<int32_t>(dcb.fDtrControl), DtrControlName(dcb.fDtrControl));
  LogPrint("  .fBinary=%s", YesNo(dcb.fBinary));  // twice: the report has always shown it so
  LogPrint("  .fDsrSensitivity=%s", YesNo(dcb.fDsrSensitivity));
  LogPrint("  .fTXContinueOnXoff=%s", YesNo(dcb.fTXContinueOnXoff));
  LogPrint("  .fOutX=%s", YesNo(dcb.fOutX));
  LogPrint("  .fInX=%s", YesNo(dcb.fInX));
  LogPrint("  .fErrorChar=%s", YesNo(dcb.fErrorChar));
  LogPrint("  .fNull=%s", YesNo(dcb.fNull));
  LogPrint("  .fRtsControl=%d (%s)", static_cast<int32_t>(dcb.fRtsControl), RtsControlName(dcb.fRtsControl));
  LogPrint("  .fAbortOnError=%s", YesNo(dcb.fAbortOnError));
  LogPrint("  .XonLim=%d", static_cast<int32_t>(dcb.XonLim));
  LogPrint("  .XoffLim=%d", static_cast<int32_t>(dcb.XoffLim));
  LogPrint("  .ByteSize=%d", static_cast<int32_t>(dcb.ByteSize));
  LogPrint("  .Parity=%s", ParityName(dcb.Parity));
  LogPrint("  .StopBits=%s", StopBitsName(dcb.StopBits));
  LogPrint("  .XonChar=0x%02X", Byte(dcb.XonChar));
  LogPrint("  .XoffChar=0x%02X", Byte(dcb.XoffChar));
  LogPrint("  .ErrorChar=0x%02X", Byte(dcb.ErrorChar));
  LogPrint("  .EofChar=0x%02X", Byte(dcb.EofChar));
  LogPrint("  .EvtChar=0x%02X", Byte(dcb.EvtChar));
  LogPrint("");
}

}  // namespace

const char* YesNo(uint32_t value) {
  return value == 0 ? "no" : "yes";
}
const char* DtrControlName(uint32_t value) {
  return NameAt(kDtrControlNames, value);
}
const char* RtsControlName(uint32_t value) {
  return NameAt(kRtsControlNames, value);
}
const char* ParityName(uint32_t value) {
  return NameAt(kParityNames, value);
}
const char* StopBitsName(uint32_t value) {
  return NameAt(kStopBitsNames, value);
}
const char* LifemodeName(uint32_t index) {
  return NameAt(kLifemodeNames, index);
}

const char* ModemLinesText(uint32_t status, bool full) {
  // One buffer per thread: the comm-event monitor calls this while the main thread may too.
  thread_local char text[100];
  text[0] = '\0';
  auto append = [](const char* piece) { std::strncat(text, piece, sizeof text - std::strlen(text) - 1); };
  append((status & os::kMsCtsOn) != 0 ? "CTS on," : "CTS off,");
  append((status & os::kMsDsrOn) != 0 ? "DSR on," : "DSR off,");
  if (full) {
    append(" ");
    // DCD before RING, though its bit is the higher one.
    append((status & os::kMsRlsdOn) != 0 ? "DCD on," : "DCD off,");
    append((status & os::kMsRingOn) != 0 ? "RING on," : "RING off,");
  }
  const size_t length = std::strlen(text);
  if (length > 0) text[length - 1] = '\0';  // the trailing comma
  return text;
}

void PrintModemLines(os::Handle port) {
  os::Dword status = 0;
  if (os::GetCommModemStatus(port, &status)) {
    LogPrint("Modem lines: %s", ModemLinesText(status, true));
    LogPrint("");
  } else {
    WinErrTick(0, "GetCommModemStatus() fails.");
  }
}

void PrintCommState(os::Handle port) {
  os::Dcb dcb;
  if (os::GetCommState(port, &dcb)) {
    PrintDcb(dcb);
  } else {
    WinErrTick(0, "GetCommState() fails.");
  }
  PrintModemLines(port);
  // The VCOM's device state follows here, whatever happened above: PrintDeviceState(port).
}

}  // namespace portwren
