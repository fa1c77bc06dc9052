// The line's limit for a baud rate and framing, and a rate's share of it.
#include "port/line_use.h"

#include <gtest/gtest.h>

#include <string>

namespace portwren {
namespace {

os::Dcb Framing(os::Dword baud, uint8_t data_bits, uint8_t parity, uint8_t stop_bits) {
  os::Dcb dcb;
  dcb.BaudRate = baud;
  dcb.ByteSize = data_bits;
  dcb.Parity = parity;
  dcb.StopBits = stop_bits;
  return dcb;
}

TEST(LineUse, LimitCountsStartDataParityAndStopBits) {
  const struct {
    os::Dcb dcb;
    double bits;
    const char* framing;
    double limit;
  } cases[] = {
      {Framing(115200, 8, os::kNoParity, os::kOneStopBit), 10, "8-N-1", 11520},
      {Framing(9600, 7, os::kEvenParity, os::kOneStopBit), 10, "7-E-1", 960},
      {Framing(9600, 8, os::kOddParity, os::kTwoStopBits), 12, "8-O-2", 800},
      {Framing(1700, 5, os::kMarkParity, os::kOne5StopBits), 8.5, "5-M-1.5", 200},
      {Framing(3000000, 6, os::kSpaceParity, os::kTwoStopBits), 10, "6-S-2", 300000},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.framing);
    EXPECT_DOUBLE_EQ(LineBitsPerByte(c.dcb), c.bits);
    LineUse use;
    ASSERT_TRUE(LineUseOf(c.dcb, c.limit / 4, &use));
    EXPECT_EQ(use.baud, c.dcb.BaudRate);
    EXPECT_STREQ(use.framing, c.framing);
    EXPECT_DOUBLE_EQ(use.limit_bytes_per_s, c.limit);
    EXPECT_DOUBLE_EQ(use.percent, 25);
  }
}

TEST(LineUse, NoLimitWithoutABaudRateOrWithFramingAPortCannotHave) {
  for (const os::Dcb& dcb :
       {Framing(0, 8, os::kNoParity, os::kOneStopBit), Framing(9600, 4, os::kNoParity, os::kOneStopBit),
        Framing(9600, 9, os::kNoParity, os::kOneStopBit), Framing(9600, 8, 5, os::kOneStopBit),
        Framing(9600, 8, os::kNoParity, 3)}) {
    LineUse use;
    EXPECT_FALSE(LineUseOf(dcb, 100, &use)) << dcb.BaudRate << " " << int{dcb.ByteSize};
  }
}

TEST(LineUse, TextGivesTheShareTheFramingAndBothRates) {
  LineUse use;
  ASSERT_TRUE(LineUseOf(Framing(115200, 8, os::kNoParity, os::kOneStopBit), 9874.4, &use));
  EXPECT_EQ(LineUseText(use), "Line use: 85.7% of 115200 8-N-1 (9874 of at most 11520 bytes/s).");
}

}  // namespace
}  // namespace portwren
