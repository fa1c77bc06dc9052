// Opening a port: exclusive, raw, read-only or read/write, synchronous or overlapped.
#include <gtest/gtest.h>

#include "common/wine_differences.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

class OpenTest : public PortTest {};

TEST_F(OpenTest, ASecondOpenIsRefusedUntilTheFirstClosesAndAReadOnlyPortRefusesWrites) {
  PORTWREN_SKIP_UNDER_WINE(wine::kSecondOpen);  // and wine::kReadReturnAtOnce
  SetLastError(0);
  EXPECT_EQ(OpenPort(), kInvalidHandle);
  EXPECT_EQ(GetLastError(), kErrAccessDenied);
  EXPECT_EQ(OpenPort(kGenericRead), kInvalidHandle);  // read-only is no way round
  port_.reset();
  port_.reset(OpenPort(kGenericRead));
  ASSERT_TRUE(port_);
  Io write;
  EXPECT_FALSE(write.Write(port(), "no"));
  EXPECT_EQ(write.issue_error, kErrAccessDenied);
  SetTimeouts(kMaxDword, 0, 0);
  Io read(4);
  EXPECT_TRUE(read.Read(port(), 4));
}

TEST_F(OpenTest, TheLineIsRawBothWays) {
  // No CR to LF translation on input, no echo back to the far end.
  ASSERT_TRUE(pty_.WriteFar("a\rb\x03\x1A"));
  Io read(5);
  read.Read(port(), 5);
  EXPECT_EQ(read.Finish(port()), Ok("a\rb\x03\x1A"));
  EXPECT_EQ(pty_.ReadFar(1, 100), "");
  // No LF to CR LF on output.
  Io write;
  write.Write(port(), "x\ny");
  EXPECT_EQ(write.Finish(port()), Ok("x\ny"));
  EXPECT_EQ(pty_.ReadFar(3, 2000), "x\ny");
}

TEST_F(OpenTest, SynchronousPortBlocksUntilTheRequestCompletes) {
  port_.reset();
  HandleHolder port(OpenPort(kGenericRead | kGenericWrite, 0));
  ASSERT_TRUE(port);
  char buffer[4];
  Dword done = 0;
  const auto start = Clock::now();
  {
    const auto far = WriteFarAfter(100, "late");
    ASSERT_TRUE(ReadFile(port.get(), buffer, 4, &done, nullptr));
  }
  EXPECT_GE(MsSince(start), 90);
  EXPECT_EQ(std::string(buffer, done), "late");
  ASSERT_TRUE(WriteFile(port.get(), "out", 3, &done, nullptr));
  EXPECT_EQ(done, 3u);
  EXPECT_EQ(pty_.ReadFar(3, 2000), "out");

  // Given an Overlapped without an event, the request shows pending there and the handle is
  // signalled at its end: another thread can wait for it.
  if (UnderWine(wine::kSyncHandleOverlapped)) return;
  Overlapped overlapped;
  const auto far = WriteFarAfter(100, "ov");
  std::jthread reader([&] { ReadFile(port.get(), buffer, 2, nullptr, &overlapped); });
  EXPECT_TRUE(WaitFor([&] { return !HasOverlappedIoCompleted(&overlapped); }, 2000));
  ASSERT_EQ(WaitForSingleObject(port.get(), 3000), kWaitObject0);
  Dword count = 0;
  EXPECT_TRUE(GetOverlappedResult(port.get(), &overlapped, &count, true));
  EXPECT_EQ(std::string(buffer, count), "ov");

  // A synchronous wait for a comm event.
  if (UnderWine(wine::kCommEventOnPty)) return;
  ASSERT_TRUE(SetCommMask(port.get(), kEvRxChar));
  {
    const auto event = WriteFarAfter(50, "e");
    Dword mask = 0;
    ASSERT_TRUE(WaitCommEvent(port.get(), &mask, nullptr));
    EXPECT_EQ(mask, kEvRxChar);
  }
}

}  // namespace
}  // namespace portwren::testing_util
