// Port set-up on a pseudo-terminal: timeouts, framing, CTS flow, purges under a running read;
// and what every port call reports on a closed port.
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

// The baud rate comes with 8N1 and keeps the rest; CTS flow toggles only its bit.
TEST_F(PortConfigTest, BaudrateSetsEightNoneOneAndCtsFlowOnlyItsBit) {
  os::Dcb dcb = State();
  dcb.ByteSize = 7;
  dcb.Parity = os::kOddParity;
  dcb.StopBits = os::kTwoStopBits;
  dcb.fOutxCtsFlow = 1;
  ASSERT_TRUE(os::SetCommState(port_, &dcb));
  const auto fields = [](const os::Dcb& d) {
    return std::vector<uint32_t>{d.BaudRate, d.ByteSize, d.Parity, d.StopBits, d.fOutxCtsFlow, d.fRtsControl};
  };
  EXPECT_EQ("SetCommState() .Baudrate=115200 Success\n", Captured([&] { MySetBaudrate(port_, 115200); }));
  EXPECT_EQ(fields(State()),
            (std::vector<uint32_t>{115200, 8, os::kNoParity, os::kOneStopBit, 1, dcb.fRtsControl}));
  EXPECT_EQ(
      " [T] In MySetBaudrate(), setting baudrate=0, SetCommState() fails. "
      "WinErr=87(ERROR_INVALID_PARAMETER)\n",
      Captured([&] { MySetBaudrate(port_, 0); }));
  EXPECT_EQ(115200u, State().BaudRate);

  EXPECT_EQ("SetCommState() .fOutxCtsFlow=0 Success.\n", Captured([&] { SetCtsFlow(port_, false); }));
  EXPECT_EQ(fields(State()),
            (std::vector<uint32_t>{115200, 8, os::kNoParity, os::kOneStopBit, 0, dcb.fRtsControl}));
  EXPECT_EQ("SetCommState() .fOutxCtsFlow=1 Success.\n", Captured([&] { SetCtsFlow(port_, true); }));
  EXPECT_EQ(1u, State().fOutxCtsFlow);
}

// What the purges print and that they empty the input is seen through the keys, in
// e2e/port_keys_test.cpp; here a running read, left alone without the abort flags, ended with them.
TEST_F(PortConfigTest, PurgeWithAbortEndsARunningRead) {
  ApplyTimeouts(port_);
  uint8_t buffer[16];
  os::Overlapped overlapped;
  overlapped.hEvent = os::CreateEventA(true, false);
  ASSERT_FALSE(os::ReadFile(port_, buffer, sizeof buffer, nullptr, &overlapped));
  ASSERT_EQ(os::kErrIoPending, os::GetLastError());
  EXPECT_EQ(" [D.ms] PurgeComm()... \n [D.ms] PurgeComm() ok.\n", Captured([&] { Purge(port_, false); }));
  EXPECT_FALSE(os::HasOverlappedIoCompleted(&overlapped));
  Captured([&] { Purge(port_, true); });
  if (os::WaitForSingleObject(overlapped.hEvent, 5000) == os::kWaitObject0) {
    os::Dword done = 1;
    EXPECT_FALSE(os::GetOverlappedResult(port_, &overlapped, &done, true));
    EXPECT_EQ(os::kErrOperationAborted, os::GetLastError());
  } else {
    ADD_FAILURE() << "the purge with abort left the read running";
    os::CloseHandle(port_);  // ends the read while its buffer is still here
    port_ = os::kInvalidHandle;
    os::WaitForSingleObject(overlapped.hEvent, 5000);
  }
  os::CloseHandle(overlapped.hEvent);
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
