// Port set-up and the buffer reports on a pseudo-terminal: timeouts, framing, CTS flow,
// purges, the ClearCommError report and the dry-read clearing of the 0 key; and what every
// port call reports on a closed port.
#include "port/port_config.h"

#include <gtest/gtest.h>

#include <string>

#include "format/console_log.h"
#include "platform/os_sync.h"
#include "port/comm_state_report.h"
#include "port_test_support.h"

namespace portwren::porttest {
namespace {

using PortConfigTest = PortTest;
constexpr os::Dword kMax = 0xFFFFFFFFu;

TEST_F(PortConfigTest, TimeoutsComeFromTheSettingsWithMinusOneAsMaxdword) {
  g_rto_interval = -1;
  g_rto_multiplier = 7;
  g_rto_constant = 300;
  g_wto_multiplier = 2;
  g_wto_constant = -1;
  EXPECT_EQ("", Captured([&] { ApplyTimeouts(port_); }));
  EXPECT_EQ((std::vector<os::Dword>{kMax, 7, 300, 2, kMax}), Timeouts());

  g_rto_multiplier = -1;
  g_rto_constant = -1;  // all three MAXDWORD: refused by the port
  EXPECT_EQ(" [T] SetCommTimeouts fail. WinErr=87(ERROR_INVALID_PARAMETER)\n",
            Captured([&] { ApplyTimeouts(port_); }));
}

TEST_F(PortConfigTest, BaudrateSetsEightNoneOneAndKeepsTheRest) {
  os::Dcb dcb = State();
  dcb.ByteSize = 7;
  dcb.Parity = os::kOddParity;
  dcb.StopBits = os::kTwoStopBits;
  dcb.fOutxCtsFlow = 1;
  ASSERT_TRUE(os::SetCommState(port_, &dcb));

  EXPECT_EQ("SetCommState() .Baudrate=115200 Success\n", Captured([&] { MySetBaudrate(port_, 115200); }));
  dcb = State();
  EXPECT_EQ(115200u, dcb.BaudRate);
  EXPECT_EQ(8, dcb.ByteSize);
  EXPECT_EQ(os::kNoParity, dcb.Parity);
  EXPECT_EQ(os::kOneStopBit, dcb.StopBits);
  EXPECT_EQ(1u, dcb.fOutxCtsFlow);

  EXPECT_EQ(
      " [T] In MySetBaudrate(), setting baudrate=0, SetCommState() fails. "
      "WinErr=87(ERROR_INVALID_PARAMETER)\n",
      Captured([&] { MySetBaudrate(port_, 0); }));
  EXPECT_EQ(115200u, State().BaudRate);
}

TEST_F(PortConfigTest, CtsFlowTogglesOnlyItsBit) {
  const os::Dcb before = State();
  EXPECT_EQ("SetCommState() .fOutxCtsFlow=1 Success.\n", Captured([&] { SetCtsFlow(port_, true); }));
  const os::Dcb after = State();
  EXPECT_EQ(1u, after.fOutxCtsFlow);
  EXPECT_EQ(before.BaudRate, after.BaudRate);
  EXPECT_EQ(before.fRtsControl, after.fRtsControl);
  EXPECT_EQ(before.Parity, after.Parity);
  EXPECT_EQ("SetCommState() .fOutxCtsFlow=0 Success.\n", Captured([&] { SetCtsFlow(port_, false); }));
  EXPECT_EQ(0u, State().fOutxCtsFlow);
}

TEST_F(PortConfigTest, PurgeClearsInputAndWithAbortEndsARunningRead) {
  ApplyTimeouts(port_);
  ASSERT_TRUE(Arrive("0123456789"));
  EXPECT_EQ(
      " [D.ms] PurgeComm()... \n"
      " [D.ms] PurgeComm() ok.\n",
      Captured([&] { Purge(port_, false); }));
  EXPECT_EQ(0u, InQueue());

  uint8_t buffer[16];
  os::Overlapped overlapped;
  overlapped.hEvent = os::CreateEventA(true, false);
  ASSERT_FALSE(os::ReadFile(port_, buffer, sizeof buffer, nullptr, &overlapped));
  ASSERT_EQ(os::kErrIoPending, os::GetLastError());
  Captured([&] { Purge(port_, false); });
  EXPECT_FALSE(os::HasOverlappedIoCompleted(&overlapped)) << "a purge without abort leaves reads running";

  EXPECT_EQ(
      " [D.ms] PurgeComm()... +Cancel VCOM IRP\n"
      " [D.ms] PurgeComm() ok.\n",
      Captured([&] { Purge(port_, true); }));
  os::Dword done = 1;
  EXPECT_FALSE(os::GetOverlappedResult(port_, &overlapped, &done, true));
  EXPECT_EQ(os::kErrOperationAborted, os::GetLastError());
  os::CloseHandle(overlapped.hEvent);
}

// The dry reads take at most 1000 bytes each, so 2500 take three reads and a fourth that finds none.
TEST_F(PortConfigTest, ClearingReportsReadsEverythingAndRestoresTheTimeouts) {
  g_rto_interval = 20;
  g_rto_multiplier = 3;
  g_rto_constant = 400;
  ApplyTimeouts(port_);
  const std::vector<os::Dword> applied = Timeouts();
  ASSERT_TRUE(Arrive(std::string(2500, 'z')));
  EXPECT_EQ(" [D] ClearCommError() reports: cbInQue=2500, cbOutQue=0. \n",
            Captured([&] { ReportClearCommError(port_); }));
  EXPECT_EQ(
      " [D.ms] ClearCommError() reports: cbInQue=2500, cbOutQue=0. \n"
      " [D.ms] COM port read-buffer bytes cleared: 2500\n",
      Captured([&] { MyClearCommData(port_, 50, true); }));
  EXPECT_EQ(0u, InQueue());
  EXPECT_EQ(applied, Timeouts());

  // An empty port: no cleared line; second stamps without the flag.
  EXPECT_EQ(" [D] ClearCommError() reports: cbInQue=0, cbOutQue=0. \n",
            Captured([&] { MyClearCommData(port_, 50, false); }));
  EXPECT_EQ(applied, Timeouts());
}

// One failure line of a call on a closed port, with its time stamp.
std::string Closed(const std::string& stamp, const std::string& what) {
  return " [" + stamp + "] " + what + " WinErr=6(ERROR_INVALID_HANDLE)\n";
}

TEST_F(PortConfigTest, EveryCallReportsAClosedPort) {
  const os::Handle closed = os::kInvalidHandle;
  EXPECT_EQ(Closed("D", "ClearCommError() fail."), Captured([&] { ReportClearCommError(closed); }));
  EXPECT_EQ(Closed("D.ms", "ClearCommError() fail.") + Closed("D.ms", "GetCommTimeouts() fail."),
            Captured([&] { MyClearCommData(closed, 50, false); }));
  EXPECT_EQ(" [D.ms] PurgeComm()... \n" + Closed("D.ms", "PurgeComm() error."),
            Captured([&] { Purge(closed, false); }));
  EXPECT_EQ(Closed("T", "In MySetBaudrate(), GetCommState() fail."),
            Captured([&] { MySetBaudrate(closed, 9600); }));
  EXPECT_EQ(Closed("T", "GetCommState() fails."), Captured([&] { SetCtsFlow(closed, true); }));
  EXPECT_EQ(Closed("T", "SetCommTimeouts fail."), Captured([&] { ApplyTimeouts(closed); }));
  EXPECT_EQ(Closed("T", "GetCommState() fails.") + Closed("T", "GetCommModemStatus() fails."),
            Captured([&] { PrintCommState(closed); }));
  EXPECT_EQ(" [T] Calling ReadFile() request 10 bytes...\n" + Closed("T", "Unexpected ReadFile error."),
            Captured([&] { TimedRead(closed, 10); }));
  EXPECT_EQ(" [T] Calling WriteFile(), request 4 bytes...\n" + Closed("T", "Unexpected WriteFile error."),
            Captured([&] { TimedWrite(closed, 4); }));
  uint8_t buffer[4];
  int32_t result = 0;
  EXPECT_EQ(Closed("D", "In ReadFile_Sync(), ReadFile error."),
            Captured([&] { result = ReadFile_Sync(closed, buffer, 4); }));
  EXPECT_EQ(-1, result);
  EXPECT_EQ(Closed("D", "In ReadFile_Sync_timeout(), ReadFile error."),
            Captured([&] { result = ReadFile_Sync_timeout(closed, buffer, 4, 10); }));
  EXPECT_EQ(-1, result);
}

}  // namespace
}  // namespace portwren::porttest
