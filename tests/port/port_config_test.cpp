// Port set-up and the buffer reports on a pseudo-terminal: timeouts, framing, CTS flow,
// purges, the ClearCommError report and the dry-read clearing of the 0 key.
#include "port/port_config.h"

#include <gtest/gtest.h>

#include <string>

#include "format/console_log.h"
#include "platform/os_sync.h"
#include "port_test_support.h"

namespace portwren::porttest {
namespace {

class PortConfigTest : public PortTest {
 protected:
  os::CommTimeouts Timeouts() {
    os::CommTimeouts timeouts;
    EXPECT_TRUE(os::GetCommTimeouts(port_, &timeouts));
    return timeouts;
  }
  os::Dcb State() {
    os::Dcb dcb;
    EXPECT_TRUE(os::GetCommState(port_, &dcb));
    return dcb;
  }
};

TEST_F(PortConfigTest, TimeoutsComeFromTheSettingsWithMinusOneAsMaxdword) {
  g_rto_interval = -1;
  g_rto_multiplier = 7;
  g_rto_constant = 300;
  g_wto_multiplier = 2;
  g_wto_constant = -1;
  EXPECT_EQ("", Captured([&] { ApplyTimeouts(port_); }));
  const os::CommTimeouts t = Timeouts();
  EXPECT_EQ(0xFFFFFFFFu, t.ReadIntervalTimeout);
  EXPECT_EQ(7u, t.ReadTotalTimeoutMultiplier);
  EXPECT_EQ(300u, t.ReadTotalTimeoutConstant);
  EXPECT_EQ(2u, t.WriteTotalTimeoutMultiplier);
  EXPECT_EQ(0xFFFFFFFFu, t.WriteTotalTimeoutConstant);

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
  os::Dcb after = State();
  EXPECT_EQ(1u, after.fOutxCtsFlow);
  after.fOutxCtsFlow = before.fOutxCtsFlow;
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

TEST_F(PortConfigTest, ClearCommErrorReportsTheQueues) {
  EXPECT_EQ(" [D] ClearCommError() reports: cbInQue=0, cbOutQue=0. \n",
            Captured([&] { ReportClearCommError(port_); }));
  ASSERT_TRUE(Arrive("seven!!"));
  EXPECT_EQ(" [D] ClearCommError() reports: cbInQue=7, cbOutQue=0. \n",
            Captured([&] { ReportClearCommError(port_); }));
}

TEST_F(PortConfigTest, ClearingReadsEverythingAndRestoresTheTimeouts) {
  g_rto_interval = 20;
  g_rto_multiplier = 3;
  g_rto_constant = 400;
  ApplyTimeouts(port_);
  ASSERT_TRUE(Arrive(std::string(2500, 'z')));
  EXPECT_EQ(
      " [D.ms] ClearCommError() reports: cbInQue=2500, cbOutQue=0. \n"
      " [D.ms] COM port read-buffer bytes cleared: 2500\n",
      Captured([&] { MyClearCommData(port_, 50, true); }));
  EXPECT_EQ(0u, InQueue());
  const os::CommTimeouts t = Timeouts();
  EXPECT_EQ(20u, t.ReadIntervalTimeout);
  EXPECT_EQ(3u, t.ReadTotalTimeoutMultiplier);
  EXPECT_EQ(400u, t.ReadTotalTimeoutConstant);

  // An empty port: no cleared line; second stamps without the flag.
  EXPECT_EQ(" [D] ClearCommError() reports: cbInQue=0, cbOutQue=0. \n",
            Captured([&] { MyClearCommData(port_, 50, false); }));
  EXPECT_EQ(400u, Timeouts().ReadTotalTimeoutConstant);
}

// What the clearing relies on: with its timeouts a read takes what is there, at most 1000 bytes.
TEST_F(PortConfigTest, DryReadsTakeAThousandAtATime) {
  SetTimeouts(os::kMaxDword, os::kMaxDword, 50);
  ASSERT_TRUE(Arrive(std::string(2500, 'z')));
  uint8_t buffer[1000];
  EXPECT_EQ(1000, ReadFile_Sync(port_, buffer, 1000));
  EXPECT_EQ(1000, ReadFile_Sync(port_, buffer, 1000));
  EXPECT_EQ(500, ReadFile_Sync(port_, buffer, 1000));
  EXPECT_EQ(0, ReadFile_Sync(port_, buffer, 1000));
}

TEST_F(PortConfigTest, FailuresOnAClosedPortAreReported) {
  EXPECT_EQ(" [D] ClearCommError() fail. WinErr=6(ERROR_INVALID_HANDLE)\n",
            Captured([&] { ReportClearCommError(os::kInvalidHandle); }));
  EXPECT_EQ(
      " [D.ms] ClearCommError() fail. WinErr=6(ERROR_INVALID_HANDLE)\n"
      " [D.ms] GetCommTimeouts() fail. WinErr=6(ERROR_INVALID_HANDLE)\n",
      Captured([&] { MyClearCommData(os::kInvalidHandle, 50, false); }));
  EXPECT_EQ(
      " [D.ms] PurgeComm()... \n"
      " [D.ms] PurgeComm() error. WinErr=6(ERROR_INVALID_HANDLE)\n",
      Captured([&] { Purge(os::kInvalidHandle, false); }));
  EXPECT_EQ(" [T] In MySetBaudrate(), GetCommState() fail. WinErr=6(ERROR_INVALID_HANDLE)\n",
            Captured([&] { MySetBaudrate(os::kInvalidHandle, 9600); }));
  EXPECT_EQ(" [T] GetCommState() fails. WinErr=6(ERROR_INVALID_HANDLE)\n",
            Captured([&] { SetCtsFlow(os::kInvalidHandle, true); }));
  EXPECT_EQ(" [T] SetCommTimeouts fail. WinErr=6(ERROR_INVALID_HANDLE)\n",
            Captured([&] { ApplyTimeouts(os::kInvalidHandle); }));
}

}  // namespace
}  // namespace portwren::porttest
