// Dcb settings both ways, and the Dcb values SetCommState refuses.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

// Compared with memcmp: no padding bytes in it.
static_assert(sizeof(Dcb) == 15 * sizeof(Dword) + 12);

using Change = void (*)(Dcb&);

class StateTest : public PortTest {
 protected:
  Dcb Current() {
    Dcb dcb;
    EXPECT_TRUE(GetCommState(port(), &dcb)) << GetLastError();
    return dcb;
  }
  // SetCommState takes it and GetCommState gives back every byte of it.
  void ExpectRoundTrip(const Dcb& dcb, int row) {
    ASSERT_TRUE(SetCommState(port(), &dcb)) << row << ": " << GetLastError();
    const Dcb back = Current();
    EXPECT_EQ(std::memcmp(&back, &dcb, sizeof dcb), 0) << row;
  }
};

TEST_F(StateTest, EveryFieldIsWrittenByGetCommStateAndTakenBack) {
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
  ExpectRoundTrip(dcb, -1);
}

// Each row applied on top of the one before; the queues are left alone. (How each field maps to
// termios is in termios_map_test.cpp: a pseudo-terminal keeps neither data bits nor parity.)
TEST_F(StateTest, WhatIsSetIsReadBackAndTheQueuesAreLeftAlone) {
  PORTWREN_SKIP_UNDER_WINE(wine::kCommStateReadBack);
  ASSERT_TRUE(Queue("queued"));
  // clang-format off
  const Change rows[] = {
    [](Dcb& d) { d.BaudRate = 115200, d.ByteSize = 7, d.Parity = kEvenParity, d.StopBits = kTwoStopBits; },
    [](Dcb& d) { d.BaudRate = 123457, d.ByteSize = 6, d.Parity = kOddParity, d.StopBits = kOneStopBit; },
    [](Dcb& d) { d.BaudRate = 3000000, d.ByteSize = 5, d.Parity = kMarkParity, d.StopBits = kOne5StopBits; },
    // Flow control, and the fields termios has no place for.
    [](Dcb& d) { d.BaudRate = 57600, d.ByteSize = 8, d.StopBits = kOneStopBit, d.fOutxCtsFlow = 1,
                 d.fRtsControl = kRtsControlHandshake, d.fOutX = 1, d.fInX = 1, d.XonChar = 1, d.XoffChar = 2,
                 d.fParity = 1, d.fDtrControl = kDtrControlHandshake, d.fAbortOnError = 1, d.fNull = 1,
                 d.fErrorChar = 1, d.ErrorChar = '?', d.EofChar = 0x1A, d.EvtChar = '\n', d.XonLim = 100,
                 d.XoffLim = 200; },
    [](Dcb& d) { d.fOutxCtsFlow = 0, d.fRtsControl = kRtsControlEnable, d.fOutX = 0, d.fInX = 0; },
  };
  // clang-format on
  Dcb dcb = Current();
  for (int row = 0; row < static_cast<int>(std::size(rows)); ++row) {
    rows[row](dcb);
    ExpectRoundTrip(dcb, row);
  }
  EXPECT_EQ(InQueue(), 6u);
}

TEST_F(StateTest, InvalidSettingsAreRefusedAndChangeNothingSetupCommMakesRoomForTheLimits) {
  PORTWREN_SKIP_UNDER_WINE(wine::kCommStateChecks);
  const Dcb good = Current();
  // clang-format off
  const Change refused[] = {
    [](Dcb& d) { d.BaudRate = 0; }, [](Dcb& d) { d.ByteSize = 4; }, [](Dcb& d) { d.ByteSize = 9; },
    [](Dcb& d) { d.Parity = 5; }, [](Dcb& d) { d.StopBits = 3; },
    [](Dcb& d) { d.ByteSize = 8, d.StopBits = kOne5StopBits; }, [](Dcb& d) { d.ByteSize = 5, d.StopBits = kTwoStopBits; },
    [](Dcb& d) { d.fDtrControl = 3; }, [](Dcb& d) { d.fRtsControl = 4; },
    [](Dcb& d) { d.XonChar = d.XoffChar = 0x11; },
    [](Dcb& d) { d.XonLim = 60000; }, [](Dcb& d) { d.XoffLim = 60000; },  // beyond the input queue
  };
  // clang-format on
  for (int row = 0; row < static_cast<int>(std::size(refused)); ++row) {
    Dcb dcb = good;
    refused[row](dcb);
    SetLastError(0);
    EXPECT_FALSE(SetCommState(port(), &dcb)) << row;
    EXPECT_EQ(GetLastError(), kErrInvalidParameter) << row;
    const Dcb after = Current();
    EXPECT_EQ(std::memcmp(&after, &good, sizeof good), 0) << row;
  }
  Dcb dcb = good;
  dcb.XonLim = 60000;
  ASSERT_TRUE(SetupComm(port(), 65536, 65536));
  EXPECT_TRUE(SetCommState(port(), &dcb));
  EXPECT_TRUE(SetupComm(port(), 16, 16));   // only a recommendation: never fails
  EXPECT_TRUE(SetCommState(port(), &dcb));  // and never shrinks the queue
}

}  // namespace
}  // namespace portwren::testing_util
