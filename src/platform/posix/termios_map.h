// Dcb <-> termios2, and the Dcb checks SetCommState makes.
#pragma once

#include "platform/os_serial.h"

struct termios2;

namespace portwren::os::posix {

// kErrSuccess or kErrInvalidParameter, by the rules SetCommState applies on Windows.
Dword ValidateDcb(const Dcb& dcb, Dword in_queue_size);

// Raw mode: no line editing, echo, signals or CR/LF translation; receiver on, modem
// control lines ignored for opening; software flow control off until a Dcb asks for it.
void MakeRaw(termios2* settings);

// Puts what termios can hold of the Dcb into settings (any integer baud rate via BOTHER).
void DcbToTermios(const Dcb& dcb, termios2* settings);

// The Dcb the terminal is set to: termios for what it holds, shadow for the rest.
Dcb TermiosToDcb(const termios2& settings, const Dcb& shadow);

// The Dcb a port shows before anything was set.
Dcb InitialShadow(const termios2& settings);

}  // namespace portwren::os::posix
