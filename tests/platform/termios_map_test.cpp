// Dcb <-> termios2 as pure functions, both ways. A pseudo-terminal keeps neither data bits
// nor parity, so only these tables see a framing written wrongly.
#include "platform/posix/termios_map.h"

#include <asm/termbits.h>
#include <gtest/gtest.h>

#include <cstring>

namespace portwren::os::posix {
namespace {

constexpr tcflag_t kFraming = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB;
constexpr tcflag_t kOtherCflags = CREAD | CLOCAL | HUPCL;

// A terminal as the port leaves it before a Dcb: raw, some speed, unrelated flags set.
termios2 Base() {
  termios2 settings;
  std::memset(&settings, 0, sizeof settings);
  settings.c_cflag = kOtherCflags | B38400 | CS8;
  settings.c_iflag = IGNBRK | IGNPAR | PARMRK | IXANY;
  settings.c_lflag = NOFLSH;
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VEOF] = 4;
  settings.c_ispeed = settings.c_ospeed = 38400;
  return settings;
}

Dcb Plain() {
  Dcb dcb;
  dcb.BaudRate = 9600;
  dcb.fBinary = 1;
  dcb.ByteSize = 8;
  dcb.fDtrControl = kDtrControlEnable;
  dcb.fRtsControl = kRtsControlEnable;
  dcb.XonChar = 0x11;
  dcb.XoffChar = 0x13;
  return dcb;
}

termios2 Mapped(const Dcb& dcb) {
  termios2 settings = Base();
  DcbToTermios(dcb, &settings);
  return settings;
}

TEST(TermiosMapTest, FramingBothWays) {
  const struct {
    uint8_t size, parity, stop;
    tcflag_t bits;
  } cases[] = {
      // clang-format off
      {8, kNoParity, kOneStopBit, CS8}, {8, kOddParity, kOneStopBit, CS8 | PARENB | PARODD},
      {8, kEvenParity, kOneStopBit, CS8 | PARENB}, {8, kMarkParity, kOneStopBit, CS8 | PARENB | PARODD | CMSPAR},
      {8, kSpaceParity, kOneStopBit, CS8 | PARENB | CMSPAR}, {7, kEvenParity, kTwoStopBits, CS7 | PARENB | CSTOPB},
      {7, kNoParity, kOneStopBit, CS7}, {6, kOddParity, kTwoStopBits, CS6 | PARENB | PARODD | CSTOPB},
      {6, kNoParity, kOneStopBit, CS6}, {5, kSpaceParity, kOneStopBit, CS5 | PARENB | CMSPAR},
      {5, kNoParity, kOne5StopBits, CS5 | CSTOPB},  // Linux: CSTOPB with 5 data bits is 1.5
      // clang-format on
  };
  for (const auto& c : cases) {
    Dcb dcb = Plain();
    dcb.ByteSize = c.size;
    dcb.Parity = c.parity;
    dcb.StopBits = c.stop;
    const termios2 settings = Mapped(dcb);
    SCOPED_TRACE(std::to_string(c.size) + "/" + std::to_string(c.parity) + "/" + std::to_string(c.stop));
    EXPECT_EQ(settings.c_cflag & kFraming, c.bits);
    EXPECT_EQ(settings.c_cflag & kOtherCflags, kOtherCflags);
    const Dcb back = TermiosToDcb(settings, Plain());
    EXPECT_EQ(std::memcmp(&back, &dcb, sizeof dcb), 0);
  }
}

TEST(TermiosMapTest, AnyBaudRateGoesThroughBotherBothWays) {
  for (const Dword baud : {300u, 9600u, 115200u, 250000u, 1000000u, 123456u, 3000000u}) {
    Dcb dcb = Plain();
    dcb.BaudRate = baud;
    const termios2 settings = Mapped(dcb);
    EXPECT_EQ(settings.c_cflag & CBAUD, static_cast<tcflag_t>(BOTHER)) << baud;
    EXPECT_EQ(settings.c_cflag & CIBAUD, 0u) << baud << ": input speed follows the output speed";
    EXPECT_EQ(settings.c_ospeed, baud);
    EXPECT_EQ(settings.c_ispeed, baud);
    EXPECT_EQ(TermiosToDcb(settings, Plain()).BaudRate, baud);
  }
  // As the kernel shows a standard rate set by someone else: its code, the speed filled in.
  termios2 standard = Base();
  standard.c_cflag = (standard.c_cflag & ~static_cast<tcflag_t>(CBAUD)) | B115200;
  standard.c_ospeed = standard.c_ispeed = 115200;
  EXPECT_EQ(TermiosToDcb(standard, Plain()).BaudRate, 115200u);
}

TEST(TermiosMapTest, FlowControlBothWays) {
  const struct {
    const char* what;
    Dword cts_flow, rts_control, dsr_flow, dtr_control, out_x, in_x, parity_check;
    char xon, xoff;
    tcflag_t cflags, iflags;  // of CRTSCTS; of IXON, IXOFF, INPCK
  } cases[] = {
      // clang-format off
      {"none", 0, kRtsControlEnable, 0, kDtrControlEnable, 0, 0, 0, 0x11, 0x13, 0, 0},
      {"CTS/RTS", 1, kRtsControlHandshake, 0, kDtrControlEnable, 0, 0, 0, 0x11, 0x13, CRTSCTS, 0},
      {"XON/XOFF out", 0, kRtsControlEnable, 0, kDtrControlEnable, 1, 0, 0, 0x11, 0x13, 0, IXON},
      {"XON/XOFF in, own characters", 0, kRtsControlDisable, 0, kDtrControlDisable, 0, 1, 0, 0x01, 0x02, 0, IXOFF},
      {"XON/XOFF both, parity checked", 0, kRtsControlEnable, 0, kDtrControlEnable, 1, 1, 1, 0x05, 0x06, 0,
       IXON | IXOFF | INPCK},
      // termios has no DTR/DSR handshake: it stays in the Dcb the port keeps.
      {"DTR/DSR", 0, kRtsControlEnable, 1, kDtrControlHandshake, 0, 0, 0, 0x11, 0x13, 0, 0},
      {"all", 1, kRtsControlHandshake, 1, kDtrControlHandshake, 1, 1, 1, 0x11, 0x13, CRTSCTS, IXON | IXOFF | INPCK},
      // clang-format on
  };
  for (const auto& c : cases) {
    Dcb dcb = Plain();
    dcb.fOutxCtsFlow = c.cts_flow;
    dcb.fRtsControl = c.rts_control;
    dcb.fOutxDsrFlow = c.dsr_flow;
    dcb.fDtrControl = c.dtr_control;
    dcb.fOutX = c.out_x;
    dcb.fInX = c.in_x;
    dcb.fParity = c.parity_check;
    dcb.XonChar = c.xon;
    dcb.XoffChar = c.xoff;
    SCOPED_TRACE(c.what);
    const termios2 settings = Mapped(dcb);
    EXPECT_EQ(settings.c_cflag & CRTSCTS, c.cflags);
    EXPECT_EQ(settings.c_iflag & (IXON | IXOFF | INPCK | IXANY), c.iflags);
    EXPECT_EQ(settings.c_cc[VSTART], static_cast<cc_t>(c.xon));
    EXPECT_EQ(settings.c_cc[VSTOP], static_cast<cc_t>(c.xoff));
    EXPECT_EQ(settings.c_cc[VEOF], 4) << "other characters are left alone";
    EXPECT_EQ(settings.c_lflag, static_cast<tcflag_t>(NOFLSH));
    const Dcb back = TermiosToDcb(settings, dcb);
    EXPECT_EQ(std::memcmp(&back, &dcb, sizeof dcb), 0);
  }
}

}  // namespace
}  // namespace portwren::os::posix
