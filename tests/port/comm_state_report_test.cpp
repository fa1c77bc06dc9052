// The i key's report and the name tables behind it.
#include "port/comm_state_report.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <thread>

#include "port_test_support.h"

namespace portwren::porttest {
namespace {

using CommStateReportTest = PortTest;

// A pseudo-terminal has no modem lines, so that part reports the failure.
TEST_F(CommStateReportTest, PrintsThePortsStateAndTheModemLineFailure) {
  os::Dcb dcb;
  dcb.BaudRate = 57600;
  dcb.fBinary = 1;
  dcb.fParity = 1;
  dcb.fOutxCtsFlow = 1;
  dcb.fDtrControl = os::kDtrControlHandshake;
  dcb.fTXContinueOnXoff = 1;
  dcb.fRtsControl = os::kRtsControlToggle;
  dcb.XonLim = 2048;
  dcb.XoffLim = 512;
  dcb.ByteSize = 7;
  dcb.Parity = os::kEvenParity;
  dcb.StopBits = os::kTwoStopBits;
  dcb.XonChar = 0x11;
  dcb.XoffChar = 0x13;
  dcb.EofChar = 0x1A;
  dcb.EvtChar = static_cast<char>(0xA5);
  ASSERT_TRUE(os::SetCommState(port_, &dcb)) << os::GetLastError();
  EXPECT_EQ(
      "GetCommState() returns DCB info:\n"
      "  .Baudrate=57600\n"
      "  .fBinary=yes\n"
      "  .fParity=yes\n"
      "  .fOutxCtsFlow=yes\n"
      "  .fOutxDsrFlow=no\n"
      "  .fDtrControl=2 (DTR_CONTROL_HANDSHAKE)\n"
      "  .fBinary=yes\n"
      "  .fDsrSensitivity=no\n"
      "  .fTXContinueOnXoff=yes\n"
      "  .fOutX=no\n"
      "  .fInX=no\n"
      "  .fErrorChar=no\n"
      "  .fNull=no\n"
      "  .fRtsControl=3 (RTS_CONTROL_TOGGLE)\n"
      "  .fAbortOnError=no\n"
      "  .XonLim=2048\n"
      "  .XoffLim=512\n"
      "  .ByteSize=7\n"
      "  .Parity=WrongValue\n"
      "  .StopBits=two\n"
      "  .XonChar=0x11\n"
      "  .XoffChar=0x13\n"
      "  .ErrorChar=0x00\n"
      "  .EofChar=0x1A\n"
      "  .EvtChar=0xA5\n"
      "\n"
      " [T] GetCommModemStatus() fails. WinErr=50(UnknownWinErrCode)\n",
      Captured([&] { PrintCommState(port_); }));
}

// The text is the calling thread's own: another thread's call does not overwrite it.
TEST(ModemLinesTextTest, FullAndShortFormsPerThread) {
  EXPECT_STREQ("CTS on,DSR off, DCD off,RING off", ModemLinesText(os::kMsCtsOn, true));
  EXPECT_STREQ("CTS off,DSR on, DCD on,RING off", ModemLinesText(os::kMsDsrOn | os::kMsRlsdOn, true));
  EXPECT_STREQ("CTS off,DSR off, DCD off,RING on", ModemLinesText(os::kMsRingOn, true));
  EXPECT_STREQ("CTS on,DSR on, DCD on,RING on", ModemLinesText(0xFFFFFFFFu, true));
  EXPECT_STREQ("CTS off,DSR off", ModemLinesText(0, false));
  const char* mine = ModemLinesText(os::kMsCtsOn, false);
  std::thread([] { ModemLinesText(0, true); }).join();
  EXPECT_STREQ("CTS on,DSR off", mine);
}

// The names of the given values, space separated.
std::string Names(const char* (*name)(uint32_t), std::initializer_list<uint32_t> values) {
  std::string out;
  for (uint32_t value : values) out += (out.empty() ? "" : " ") + std::string(name(value));
  return out;
}

TEST(NameTablesTest, KnownValuesAndWrongValue) {
  EXPECT_EQ("no yes yes", Names(YesNo, {0, 1, 7}));
  EXPECT_EQ("DTR_CONTROL_DISABLE DTR_CONTROL_ENABLE WrongValue", Names(DtrControlName, {0, 1, 3}));
  EXPECT_EQ("RTS_CONTROL_HANDSHAKE WrongValue", Names(RtsControlName, {2, 4}));
  EXPECT_EQ("NO_PARITY ODD_PARITY WrongValue MARK_PARITY SPACE_PARITY WrongValue",
            Names(ParityName, {0, 1, 2, 3, 4, 5}));
  EXPECT_EQ("one 1.5 WrongValue", Names(StopBitsName, {0, 1, 3}));
  EXPECT_EQ("Temporal Friendly Persistent WrongValue WrongValue",
            Names(LifemodeName, {0, 1, 2, 3, 0xFFFFFFFFu}));
}

}  // namespace
}  // namespace portwren::porttest
