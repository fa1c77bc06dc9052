// Dcb settings both ways, and the Dcb values SetCommState refuses.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

// Compared with memcmp: no padding bytes in it.
static_assert(sizeof(Dcb) == 15 * sizeof(Dword) + 12);

class StateTest : public PortTest {
 protected:
  Dcb Current() {
    Dcb dcb;
    EXPECT_TRUE(GetCommState(port(), &dcb)) << GetLastError();
    return dcb;
  }
  // SetCommState takes it and GetCommState gives back every byte of it.
  void ExpectRoundTrip(const Dcb& dcb, const std::string& what) {
    ASSERT_TRUE(SetCommState(port(), &dcb)) << what << ": " << GetLastError();
    const Dcb back = Current();
    EXPECT_EQ(std::memcmp(&back, &dcb, sizeof dcb), 0) << what;
  }
};

TEST_F(StateTest, EveryFieldIsWrittenByGetCommState) {
  Dcb dcb;
  std::memset(static_cast<void*>(&dcb), 0xFF, sizeof dcb);
  ASSERT_TRUE(GetCommState(port(), &dcb));
  EXPECT_EQ(dcb.DCBlength, sizeof(Dcb));
  EXPECT_EQ(dcb.fBinary, 1u);
  for (Dword flag :
       {dcb.fParity, dcb.fOutxCtsFlow, dcb.fOutxDsrFlow, dcb.fDsrSensitivity, dcb.fTXContinueOnXoff,
        dcb.fOutX, dcb.fInX, dcb.fErrorChar, dcb.fNull, dcb.fAbortOnError}) {
    EXPECT_LE(flag, 1u);
  }
  EXPECT_NE(dcb.BaudRate, 0xFFFFFFFFu);
  // What GetCommState gives, SetCommState takes back; it refuses what is out of range.
  ExpectRoundTrip(dcb, "as given");
}

// Changing the line settings leaves what is queued alone. (How each field maps to termios is
// in termios_map_test.cpp: a pseudo-terminal keeps neither data bits nor parity.)
TEST_F(StateTest, WhatIsSetIsReadBackAndTheQueuesAreLeftAlone) {
  PORTWREN_SKIP_UNDER_WINE(wine::kCommStateReadBack);
  ASSERT_TRUE(Queue("queued"));
  const struct {
    Dword baud;
    uint8_t size, parity, stop;
  } cases[] = {{115200, 7, kEvenParity, kTwoStopBits},
               {123457, 6, kOddParity, kOneStopBit},
               {3000000, 5, kMarkParity, kOne5StopBits}};
  for (const auto& c : cases) {
    Dcb dcb = Current();
    dcb.BaudRate = c.baud;
    dcb.ByteSize = c.size;
    dcb.Parity = c.parity;
    dcb.StopBits = c.stop;
    ExpectRoundTrip(dcb, std::to_string(c.baud));
  }
  EXPECT_EQ(InQueue(), 6u);
}

TEST_F(StateTest, FlowControlAndTheFieldsTermiosHasNoPlaceForAreKept) {
  PORTWREN_SKIP_UNDER_WINE(wine::kCommStateReadBack);
  Dcb dcb = Current();
  dcb.BaudRate = 57600;
  dcb.fOutxCtsFlow = 1;
  dcb.fRtsControl = kRtsControlHandshake;
  dcb.fOutX = 1;
  dcb.fInX = 1;
  dcb.XonChar = 0x01;
  dcb.XoffChar = 0x02;
  dcb.fParity = 1;
  dcb.fDtrControl = kDtrControlHandshake;
  dcb.fAbortOnError = 1;
  dcb.fNull = 1;
  dcb.fErrorChar = 1;
  dcb.ErrorChar = '?';
  dcb.EofChar = 0x1A;
  dcb.EvtChar = '\n';
  dcb.XonLim = 100;
  dcb.XoffLim = 200;
  ExpectRoundTrip(dcb, "all on");
  dcb.fOutxCtsFlow = 0;
  dcb.fRtsControl = kRtsControlEnable;
  dcb.fOutX = 0;
  dcb.fInX = 0;
  ExpectRoundTrip(dcb, "flow control off");
}

TEST_F(StateTest, InvalidSettingsAreRefusedAndChangeNothing) {
  PORTWREN_SKIP_UNDER_WINE(wine::kCommStateChecks);
  const Dcb good = Current();
  auto refused = [&](auto change, const char* what) {
    Dcb dcb = good;
    change(dcb);
    SetLastError(0);
    EXPECT_FALSE(SetCommState(port(), &dcb)) << what;
    EXPECT_EQ(GetLastError(), kErrInvalidParameter) << what;
    const Dcb after = Current();
    EXPECT_EQ(std::memcmp(&after, &good, sizeof good), 0) << what;
  };
  refused([](Dcb& d) { d.BaudRate = 0; }, "baud 0");
  refused([](Dcb& d) { d.ByteSize = 4; }, "4 data bits");
  refused([](Dcb& d) { d.ByteSize = 9; }, "9 data bits");
  refused([](Dcb& d) { d.Parity = 5; }, "parity 5");
  refused([](Dcb& d) { d.StopBits = 3; }, "stop bits 3");
  refused([](Dcb& d) { d.ByteSize = 8, d.StopBits = kOne5StopBits; }, "1.5 stop with 8 bits");
  refused([](Dcb& d) { d.ByteSize = 5, d.StopBits = kTwoStopBits; }, "2 stop with 5 bits");
  refused([](Dcb& d) { d.fDtrControl = 3; }, "DTR control 3");
  refused([](Dcb& d) { d.fRtsControl = 4; }, "RTS control 4");
  refused([](Dcb& d) { d.XonChar = d.XoffChar = 0x11; }, "same XON and XOFF");
  refused([](Dcb& d) { d.XonLim = 60000; }, "XonLim beyond the input queue");
  refused([](Dcb& d) { d.XoffLim = 60000; }, "XoffLim beyond the input queue");
}

TEST_F(StateTest, SetupCommEnlargesTheInputQueueForTheLimits) {
  PORTWREN_SKIP_UNDER_WINE(wine::kCommStateChecks);
  Dcb dcb = Current();
  dcb.XonLim = 60000;
  EXPECT_FALSE(SetCommState(port(), &dcb));
  ASSERT_TRUE(SetupComm(port(), 65536, 65536));
  EXPECT_TRUE(SetCommState(port(), &dcb));
  EXPECT_TRUE(SetupComm(port(), 16, 16));   // only a recommendation: never fails
  EXPECT_TRUE(SetCommState(port(), &dcb));  // and never shrinks the queue
}

}  // namespace
}  // namespace portwren::testing_util
