#include "platform/posix/termios_map.h"

#include <asm/termbits.h>

namespace portwren::os::posix {

Dword ValidateDcb(const Dcb& dcb, Dword in_queue_size) {
  const bool bad = dcb.BaudRate == 0 || dcb.ByteSize < 5 || dcb.ByteSize > 8 || dcb.Parity > kSpaceParity ||
                   dcb.StopBits > kTwoStopBits || (dcb.StopBits == kOne5StopBits && dcb.ByteSize != 5) ||
                   (dcb.StopBits == kTwoStopBits && dcb.ByteSize == 5) ||
                   dcb.fDtrControl > kDtrControlHandshake || dcb.fRtsControl > kRtsControlToggle ||
                   dcb.XonChar == dcb.XoffChar || dcb.XonLim > in_queue_size || dcb.XoffLim > in_queue_size;
  return bad ? kErrInvalidParameter : kErrSuccess;
}

void MakeRaw(termios2* settings) {
  settings->c_iflag &= ~static_cast<tcflag_t>(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL |
                                              IXON | IXOFF | IXANY | IUCLC | IMAXBEL);
  settings->c_oflag &= ~static_cast<tcflag_t>(OPOST);
  settings->c_lflag &=
      ~static_cast<tcflag_t>(ECHO | ECHONL | ECHOE | ECHOK | ECHOCTL | ECHOKE | ICANON | ISIG | IEXTEN);
  settings->c_cflag |= CREAD | CLOCAL;
  settings->c_cc[VMIN] = 1;
  settings->c_cc[VTIME] = 0;
}

void DcbToTermios(const Dcb& dcb, termios2* settings) {
  tcflag_t cflag = settings->c_cflag;
  cflag &= ~static_cast<tcflag_t>(CBAUD | CIBAUD | CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS);
  cflag |= BOTHER;
  settings->c_ospeed = dcb.BaudRate;
  settings->c_ispeed = dcb.BaudRate;
  static constexpr tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
  cflag |= kSizes[dcb.ByteSize - 5];
  switch (dcb.Parity) {
    case kOddParity:
      cflag |= PARENB | PARODD;
      break;
    case kEvenParity:
      cflag |= PARENB;
      break;
    case kMarkParity:
      cflag |= PARENB | PARODD | CMSPAR;
      break;
    case kSpaceParity:
      cflag |= PARENB | CMSPAR;
      break;
    default:
      break;
  }
  // Linux has one stop-bit flag: with 5 data bits it means 1.5, otherwise 2.
  if (dcb.StopBits != kOneStopBit) cflag |= CSTOPB;
  // One flag for both directions of hardware flow control.
  if (dcb.fOutxCtsFlow != 0 || dcb.fRtsControl == kRtsControlHandshake) cflag |= CRTSCTS;
  settings->c_cflag = cflag;

  tcflag_t iflag = settings->c_iflag & ~static_cast<tcflag_t>(INPCK | IGNPAR | PARMRK | IXON | IXOFF | IXANY);
  if (dcb.fParity != 0) iflag |= INPCK;
  if (dcb.fOutX != 0) iflag |= IXON;
  if (dcb.fInX != 0) iflag |= IXOFF;
  settings->c_iflag = iflag;
  settings->c_cc[VSTART] = static_cast<cc_t>(dcb.XonChar);
  settings->c_cc[VSTOP] = static_cast<cc_t>(dcb.XoffChar);
}

Dcb TermiosToDcb(const termios2& settings, const Dcb& shadow) {
  Dcb dcb = shadow;
  dcb.DCBlength = sizeof(Dcb);
  dcb.fBinary = 1;
  dcb.BaudRate = settings.c_ospeed;
  switch (settings.c_cflag & CSIZE) {
    case CS5:
      dcb.ByteSize = 5;
      break;
    case CS6:
      dcb.ByteSize = 6;
      break;
    case CS7:
      dcb.ByteSize = 7;
      break;
    default:
      dcb.ByteSize = 8;
      break;
  }
  if ((settings.c_cflag & PARENB) == 0) {
    dcb.Parity = kNoParity;
  } else if ((settings.c_cflag & CMSPAR) != 0) {
    dcb.Parity = (settings.c_cflag & PARODD) != 0 ? kMarkParity : kSpaceParity;
  } else {
    dcb.Parity = (settings.c_cflag & PARODD) != 0 ? kOddParity : kEvenParity;
  }
  if ((settings.c_cflag & CSTOPB) == 0) {
    dcb.StopBits = kOneStopBit;
  } else {
    dcb.StopBits = dcb.ByteSize == 5 ? kOne5StopBits : kTwoStopBits;
  }
  if ((settings.c_cflag & CRTSCTS) != 0) {
    // Switched on behind our back: show both halves of it.
    if (dcb.fOutxCtsFlow == 0 && dcb.fRtsControl != kRtsControlHandshake) {
      dcb.fOutxCtsFlow = 1;
      dcb.fRtsControl = kRtsControlHandshake;
    }
  } else {
    dcb.fOutxCtsFlow = 0;
    if (dcb.fRtsControl == kRtsControlHandshake) dcb.fRtsControl = kRtsControlEnable;
  }
  dcb.fParity = (settings.c_iflag & INPCK) != 0 ? 1 : 0;
  dcb.fOutX = (settings.c_iflag & IXON) != 0 ? 1 : 0;
  dcb.fInX = (settings.c_iflag & IXOFF) != 0 ? 1 : 0;
  dcb.XonChar = static_cast<char>(settings.c_cc[VSTART]);
  dcb.XoffChar = static_cast<char>(settings.c_cc[VSTOP]);
  return dcb;
}

Dcb InitialShadow(const termios2& settings) {
  Dcb dcb;
  dcb.fBinary = 1;
  dcb.fDtrControl = kDtrControlEnable;
  dcb.fRtsControl = (settings.c_cflag & CRTSCTS) != 0 ? kRtsControlHandshake : kRtsControlEnable;
  dcb.fOutxCtsFlow = (settings.c_cflag & CRTSCTS) != 0 ? 1 : 0;
  dcb.XonLim = 2048;
  dcb.XoffLim = 512;
  dcb.XonChar = 0x11;
  dcb.XoffChar = 0x13;
  return dcb;
}

}  // namespace portwren::os::posix
