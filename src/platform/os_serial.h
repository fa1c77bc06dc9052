// Serial ports: settings (Dcb), timeouts, queues, errors, modem lines and comm events, with
// the Windows meaning of every call. Ports are opened with CreateFileA (os_file.h).
#pragma once

#include <cstdint>

#include "platform/os_file.h"

namespace portwren::os {

inline constexpr Dword kMaxDword = 0xFFFFFFFF;

// Dcb values.
inline constexpr Dword kDtrControlDisable = 0;
inline constexpr Dword kDtrControlEnable = 1;
inline constexpr Dword kDtrControlHandshake = 2;
inline constexpr Dword kRtsControlDisable = 0;
inline constexpr Dword kRtsControlEnable = 1;
inline constexpr Dword kRtsControlHandshake = 2;
inline constexpr Dword kRtsControlToggle = 3;
inline constexpr uint8_t kNoParity = 0;
inline constexpr uint8_t kOddParity = 1;
inline constexpr uint8_t kEvenParity = 2;
inline constexpr uint8_t kMarkParity = 3;
inline constexpr uint8_t kSpaceParity = 4;
inline constexpr uint8_t kOneStopBit = 0;
inline constexpr uint8_t kOne5StopBits = 1;
inline constexpr uint8_t kTwoStopBits = 2;

// The fields of the Windows DCB, as plain members (one-bit flags hold 0 or 1).
struct Dcb {
  Dword DCBlength = sizeof(Dcb);
  Dword BaudRate = 0;
  Dword fBinary = 0;
  Dword fParity = 0;
  Dword fOutxCtsFlow = 0;
  Dword fOutxDsrFlow = 0;
  Dword fDtrControl = 0;
  Dword fDsrSensitivity = 0;
  Dword fTXContinueOnXoff = 0;
  Dword fOutX = 0;
  Dword fInX = 0;
  Dword fErrorChar = 0;
  Dword fNull = 0;
  Dword fRtsControl = 0;
  Dword fAbortOnError = 0;
  uint16_t XonLim = 0;
  uint16_t XoffLim = 0;
  uint8_t ByteSize = 0;
  uint8_t Parity = 0;
  uint8_t StopBits = 0;
  char XonChar = 0;
  char XoffChar = 0;
  char ErrorChar = 0;
  char EofChar = 0;
  char EvtChar = 0;
};

struct CommTimeouts {
  Dword ReadIntervalTimeout = 0;
  Dword ReadTotalTimeoutMultiplier = 0;
  Dword ReadTotalTimeoutConstant = 0;
  Dword WriteTotalTimeoutMultiplier = 0;
  Dword WriteTotalTimeoutConstant = 0;
};

struct ComStat {
  Dword fCtsHold = 0;
  Dword fDsrHold = 0;
  Dword fRlsdHold = 0;
  Dword fXoffHold = 0;
  Dword fXoffSent = 0;
  Dword fEof = 0;
  Dword fTxim = 0;
  Dword cbInQue = 0;   // received, not yet claimed by a read
  Dword cbOutQue = 0;  // not yet sent
};

// Comm events (SetCommMask / WaitCommEvent).
inline constexpr Dword kEvRxChar = 0x0001;
inline constexpr Dword kEvRxFlag = 0x0002;
inline constexpr Dword kEvTxEmpty = 0x0004;
inline constexpr Dword kEvCts = 0x0008;
inline constexpr Dword kEvDsr = 0x0010;
inline constexpr Dword kEvRlsd = 0x0020;
inline constexpr Dword kEvBreak = 0x0040;
inline constexpr Dword kEvErr = 0x0080;
inline constexpr Dword kEvRing = 0x0100;
inline constexpr Dword kEvPErr = 0x0200;
inline constexpr Dword kEvRx80Full = 0x0400;
inline constexpr Dword kEvEvent1 = 0x0800;
inline constexpr Dword kEvEvent2 = 0x1000;
inline constexpr Dword kEvAllValid = 0x1FFF;

// PurgeComm flags.
inline constexpr Dword kPurgeTxAbort = 0x1;
inline constexpr Dword kPurgeRxAbort = 0x2;
inline constexpr Dword kPurgeTxClear = 0x4;
inline constexpr Dword kPurgeRxClear = 0x8;

// ClearCommError error bits.
inline constexpr Dword kCeRxOver = 0x01;
inline constexpr Dword kCeOverrun = 0x02;
inline constexpr Dword kCeRxParity = 0x04;
inline constexpr Dword kCeFrame = 0x08;
inline constexpr Dword kCeBreak = 0x10;

// GetCommModemStatus bits.
inline constexpr Dword kMsCtsOn = 0x10;
inline constexpr Dword kMsDsrOn = 0x20;
inline constexpr Dword kMsRingOn = 0x40;
inline constexpr Dword kMsRlsdOn = 0x80;

// EscapeCommFunction functions, numbered as Windows numbers them. The others Windows has (the
// XON/XOFF ones, RESETDEV) are not offered here.
inline constexpr Dword kSetRts = 3;
inline constexpr Dword kClrRts = 4;
inline constexpr Dword kSetDtr = 5;
inline constexpr Dword kClrDtr = 6;
inline constexpr Dword kSetBreak = 8;
inline constexpr Dword kClrBreak = 9;

bool GetCommState(Handle port, Dcb* dcb);
bool SetCommState(Handle port, const Dcb* dcb);  // false + kErrInvalidParameter for a bad Dcb
bool GetCommTimeouts(Handle port, CommTimeouts* timeouts);
bool SetCommTimeouts(Handle port, const CommTimeouts* timeouts);
bool SetupComm(Handle port, Dword in_queue, Dword out_queue);  // sizes are a recommendation
bool PurgeComm(Handle port, Dword flags);
bool ClearCommError(Handle port, Dword* errors, ComStat* stat);  // either pointer may be null
bool GetCommModemStatus(Handle port, Dword* modem_status);
bool SetCommMask(Handle port, Dword event_mask);
bool GetCommMask(Handle port, Dword* event_mask);
// Overlapped ports need an Overlapped; *event_mask is written when the wait completes.
bool WaitCommEvent(Handle port, Dword* event_mask, Overlapped* overlapped);
// Raises or drops DTR or RTS, or starts or ends a break. A line that a handshake mode of the Dcb
// drives cannot be set by hand (87); a device without modem lines answers 50.
bool EscapeCommFunction(Handle port, Dword function);
// The line held in the break state until ClearCommBreak.
bool SetCommBreak(Handle port);
bool ClearCommBreak(Handle port);

// Not a Windows call: whether the port's bytes cross a line at its baud rate, so that a rate can
// be judged against it. False for a pseudo-terminal, where the baud rate means nothing, and for
// a handle that is no serial port.
bool BaudRateIsReal(Handle port);

}  // namespace portwren::os
