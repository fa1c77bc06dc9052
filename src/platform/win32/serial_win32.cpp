#include "platform/os_serial.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

static_assert(sizeof(DWORD) == sizeof(Dword));
static_assert(kEvRxChar == EV_RXCHAR && kEvRxFlag == EV_RXFLAG && kEvTxEmpty == EV_TXEMPTY &&
              kEvCts == EV_CTS && kEvDsr == EV_DSR && kEvRlsd == EV_RLSD && kEvBreak == EV_BREAK &&
              kEvErr == EV_ERR && kEvRing == EV_RING && kEvPErr == EV_PERR && kEvRx80Full == EV_RX80FULL &&
              kEvEvent1 == EV_EVENT1 && kEvEvent2 == EV_EVENT2);
static_assert(kPurgeTxAbort == PURGE_TXABORT && kPurgeRxAbort == PURGE_RXABORT &&
              kPurgeTxClear == PURGE_TXCLEAR && kPurgeRxClear == PURGE_RXCLEAR);
static_assert(kCeRxOver == CE_RXOVER && kCeOverrun == CE_OVERRUN && kCeRxParity == CE_RXPARITY &&
              kCeFrame == CE_FRAME && kCeBreak == CE_BREAK);
static_assert(kMsCtsOn == MS_CTS_ON && kMsDsrOn == MS_DSR_ON && kMsRingOn == MS_RING_ON &&
              kMsRlsdOn == MS_RLSD_ON);
static_assert(kDtrControlHandshake == DTR_CONTROL_HANDSHAKE && kRtsControlToggle == RTS_CONTROL_TOGGLE &&
              kSpaceParity == SPACEPARITY && kTwoStopBits == TWOSTOPBITS && kOne5StopBits == ONE5STOPBITS);
static_assert(kMaxDword == MAXDWORD);
static_assert(kSetRts == SETRTS && kClrRts == CLRRTS && kSetDtr == SETDTR && kClrDtr == CLRDTR &&
              kSetBreak == SETBREAK && kClrBreak == CLRBREAK);

namespace {

DCB ToNative(const Dcb& dcb) {
  DCB native{};
  native.DCBlength = sizeof native;
  native.BaudRate = dcb.BaudRate;
  native.fBinary = dcb.fBinary != 0;
  native.fParity = dcb.fParity != 0;
  native.fOutxCtsFlow = dcb.fOutxCtsFlow != 0;
  native.fOutxDsrFlow = dcb.fOutxDsrFlow != 0;
  native.fDtrControl = dcb.fDtrControl;
  native.fDsrSensitivity = dcb.fDsrSensitivity != 0;
  native.fTXContinueOnXoff = dcb.fTXContinueOnXoff != 0;
  native.fOutX = dcb.fOutX != 0;
  native.fInX = dcb.fInX != 0;
  native.fErrorChar = dcb.fErrorChar != 0;
  native.fNull = dcb.fNull != 0;
  native.fRtsControl = dcb.fRtsControl;
  native.fAbortOnError = dcb.fAbortOnError != 0;
  native.XonLim = dcb.XonLim;
  native.XoffLim = dcb.XoffLim;
  native.ByteSize = dcb.ByteSize;
  native.Parity = dcb.Parity;
  native.StopBits = dcb.StopBits;
  native.XonChar = dcb.XonChar;
  native.XoffChar = dcb.XoffChar;
  native.ErrorChar = dcb.ErrorChar;
  native.EofChar = dcb.EofChar;
  native.EvtChar = dcb.EvtChar;
  return native;
}

Dcb FromNative(const DCB& native) {
  Dcb dcb;
  dcb.BaudRate = native.BaudRate;
  dcb.fBinary = native.fBinary;
  dcb.fParity = native.fParity;
  dcb.fOutxCtsFlow = native.fOutxCtsFlow;
  dcb.fOutxDsrFlow = native.fOutxDsrFlow;
  dcb.fDtrControl = native.fDtrControl;
  dcb.fDsrSensitivity = native.fDsrSensitivity;
  dcb.fTXContinueOnXoff = native.fTXContinueOnXoff;
  dcb.fOutX = native.fOutX;
  dcb.fInX = native.fInX;
  dcb.fErrorChar = native.fErrorChar;
  dcb.fNull = native.fNull;
  dcb.fRtsControl = native.fRtsControl;
  dcb.fAbortOnError = native.fAbortOnError;
  dcb.XonLim = native.XonLim;
  dcb.XoffLim = native.XoffLim;
  dcb.ByteSize = native.ByteSize;
  dcb.Parity = native.Parity;
  dcb.StopBits = native.StopBits;
  dcb.XonChar = native.XonChar;
  dcb.XoffChar = native.XoffChar;
  dcb.ErrorChar = native.ErrorChar;
  dcb.EofChar = native.EofChar;
  dcb.EvtChar = native.EvtChar;
  return dcb;
}

bool InvalidParameter() {
  ::SetLastError(ERROR_INVALID_PARAMETER);
  return false;
}

}  // namespace

bool GetCommState(Handle port, Dcb* dcb) {
  if (dcb == nullptr) return InvalidParameter();
  DCB native{};
  native.DCBlength = sizeof native;
  if (!::GetCommState(port, &native)) return false;
  *dcb = FromNative(native);
  return true;
}

bool SetCommState(Handle port, const Dcb* dcb) {
  // Values too wide for the two-bit fields of the DCB would be cut into valid ones.
  if (dcb == nullptr || dcb->fDtrControl > 3 || dcb->fRtsControl > 3) return InvalidParameter();
  DCB native = ToNative(*dcb);
  return ::SetCommState(port, &native) != FALSE;
}

bool GetCommTimeouts(Handle port, CommTimeouts* timeouts) {
  if (timeouts == nullptr) return InvalidParameter();
  COMMTIMEOUTS native{};
  if (!::GetCommTimeouts(port, &native)) return false;
  *timeouts = {native.ReadIntervalTimeout, native.ReadTotalTimeoutMultiplier, native.ReadTotalTimeoutConstant,
               native.WriteTotalTimeoutMultiplier, native.WriteTotalTimeoutConstant};
  return true;
}

bool SetCommTimeouts(Handle port, const CommTimeouts* timeouts) {
  if (timeouts == nullptr) return InvalidParameter();
  COMMTIMEOUTS native{timeouts->ReadIntervalTimeout, timeouts->ReadTotalTimeoutMultiplier,
                      timeouts->ReadTotalTimeoutConstant, timeouts->WriteTotalTimeoutMultiplier,
                      timeouts->WriteTotalTimeoutConstant};
  return ::SetCommTimeouts(port, &native) != FALSE;
}

bool SetupComm(Handle port, Dword in_queue, Dword out_queue) {
  return ::SetupComm(port, in_queue, out_queue) != FALSE;
}

bool PurgeComm(Handle port, Dword flags) {
  return ::PurgeComm(port, flags) != FALSE;
}

bool ClearCommError(Handle port, Dword* errors, ComStat* stat) {
  DWORD native_errors = 0;
  COMSTAT native{};
  if (!::ClearCommError(port, &native_errors, &native)) return false;
  if (errors != nullptr) *errors = native_errors;
  if (stat != nullptr) {
    stat->fCtsHold = native.fCtsHold;
    stat->fDsrHold = native.fDsrHold;
    stat->fRlsdHold = native.fRlsdHold;
    stat->fXoffHold = native.fXoffHold;
    stat->fXoffSent = native.fXoffSent;
    stat->fEof = native.fEof;
    stat->fTxim = native.fTxim;
    stat->cbInQue = native.cbInQue;
    stat->cbOutQue = native.cbOutQue;
  }
  return true;
}

bool GetCommModemStatus(Handle port, Dword* modem_status) {
  DWORD status = 0;
  if (!::GetCommModemStatus(port, &status)) return false;
  if (modem_status != nullptr) *modem_status = status;
  return true;
}

bool SetCommMask(Handle port, Dword event_mask) {
  return ::SetCommMask(port, event_mask) != FALSE;
}

bool GetCommMask(Handle port, Dword* event_mask) {
  DWORD mask = 0;
  if (!::GetCommMask(port, &mask)) return false;
  if (event_mask != nullptr) *event_mask = mask;
  return true;
}

bool WaitCommEvent(Handle port, Dword* event_mask, Overlapped* overlapped) {
  // The driver writes the mask when the wait completes, possibly long after this call, so the
  // caller's own word is handed down (same size, checked above).
  return ::WaitCommEvent(port, reinterpret_cast<DWORD*>(event_mask),
                         reinterpret_cast<OVERLAPPED*>(overlapped)) != FALSE;
}

bool EscapeCommFunction(Handle port, Dword function) {
  return ::EscapeCommFunction(port, function) != FALSE;
}

bool SetCommBreak(Handle port) {
  return ::SetCommBreak(port) != FALSE;
}

bool ClearCommBreak(Handle port) {
  return ::ClearCommBreak(port) != FALSE;
}

// Every COM port Windows knows carries its bytes at its baud rate, as far as a caller can tell.
bool BaudRateIsReal(Handle) {
  return true;
}

}  // namespace portwren::os
