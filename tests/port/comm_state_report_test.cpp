// The i key's report and the name tables behind it.
#include "port/comm_state_report.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "port_test_support.h"

namespace portwren::porttest {
namespace {

class CommStateReportTest : public PortTest {};

os::Dcb SampleDcb() {
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
  return dcb;
}

// The report for SampleDcb() with the given framing lines.
std::string SampleReport(const std::string& framing) {
  return "GetCommState() returns DCB info:\n"
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
         "  .XoffLim=512\n" +
         framing +
         "  .StopBits=two\n"
         "  .XonChar=0x11\n"
         "  .XoffChar=0x13\n"
         "  .ErrorChar=0x00\n"
         "  .EofChar=0x1A\n"
         "  .EvtChar=0xA5\n"
         "\n";
}

TEST_F(CommStateReportTest, PrintsThePortsStateAndTheModemLineFailure) {
  const os::Dcb dcb = SampleDcb();
  ASSERT_TRUE(os::SetCommState(port_, &dcb)) << os::GetLastError();
  // A pseudo-terminal has no modem lines, so that part reports the failure.
  EXPECT_EQ(SampleReport("  .ByteSize=7\n"
                         "  .Parity=WrongValue\n") +
                " [T] GetCommModemStatus() fails. WinErr=50(UnknownWinErrCode)\n",
            Captured([&] { PrintCommState(port_); }));
}

TEST_F(CommStateReportTest, ClosedPortReportsBothFailures) {
  EXPECT_EQ(
      " [T] GetCommState() fails. WinErr=6(ERROR_INVALID_HANDLE)\n"
      " [T] GetCommModemStatus() fails. WinErr=6(ERROR_INVALID_HANDLE)\n",
      Captured([&] { PrintCommState(os::kInvalidHandle); }));
}

TEST(ModemLinesTextTest, FullAndShortForms) {
  EXPECT_STREQ("CTS on,DSR off, DCD off,RING off", ModemLinesText(os::kMsCtsOn, true));
  EXPECT_STREQ("CTS on,DSR off", ModemLinesText(os::kMsCtsOn, false));
  EXPECT_STREQ("CTS off,DSR on, DCD on,RING off", ModemLinesText(os::kMsDsrOn | os::kMsRlsdOn, true));
  EXPECT_STREQ("CTS off,DSR off, DCD off,RING on", ModemLinesText(os::kMsRingOn, true));
  EXPECT_STREQ("CTS on,DSR on, DCD on,RING on", ModemLinesText(0xFFFFFFFFu, true));
  EXPECT_STREQ("CTS off,DSR off", ModemLinesText(0, false));
}

TEST(ModemLinesTextTest, EachThreadHasItsOwnText) {
  const char* mine = ModemLinesText(os::kMsCtsOn, false);
  std::thread other([] { ModemLinesText(0, true); });
  other.join();
  EXPECT_STREQ("CTS on,DSR off", mine);
}

TEST(NameTablesTest, KnownValuesAndWrongValue) {
  EXPECT_STREQ("no", YesNo(0));
  EXPECT_STREQ("yes", YesNo(1));
  EXPECT_STREQ("yes", YesNo(7));
  EXPECT_STREQ("DTR_CONTROL_DISABLE", DtrControlName(0));
  EXPECT_STREQ("DTR_CONTROL_ENABLE", DtrControlName(1));
  EXPECT_STREQ("WrongValue", DtrControlName(3));
  EXPECT_STREQ("RTS_CONTROL_HANDSHAKE", RtsControlName(2));
  EXPECT_STREQ("WrongValue", RtsControlName(4));
  EXPECT_STREQ("NO_PARITY", ParityName(0));
  EXPECT_STREQ("ODD_PARITY", ParityName(1));
  EXPECT_STREQ("WrongValue", ParityName(2));
  EXPECT_STREQ("MARK_PARITY", ParityName(3));
  EXPECT_STREQ("SPACE_PARITY", ParityName(4));
  EXPECT_STREQ("WrongValue", ParityName(5));
  EXPECT_STREQ("one", StopBitsName(0));
  EXPECT_STREQ("1.5", StopBitsName(1));
  EXPECT_STREQ("WrongValue", StopBitsName(3));
  EXPECT_STREQ("Temporal", LifemodeName(0));
  EXPECT_STREQ("Friendly", LifemodeName(1));
  EXPECT_STREQ("Persistent", LifemodeName(2));
  EXPECT_STREQ("WrongValue", LifemodeName(3));
  EXPECT_STREQ("WrongValue", LifemodeName(0xFFFFFFFFu));
}

}  // namespace
}  // namespace portwren::porttest
