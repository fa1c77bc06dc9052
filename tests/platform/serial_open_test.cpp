// Opening a port: exclusive against every process, raw, read-only or read/write, and the
// Windows numbers of what can go wrong.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "platform/os_device_control.h"
#include "platform/posix/errno_map.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

class OpenTest : public PortTest {};

TEST_F(OpenTest, ASecondOpenInThisProcessIsRefusedUntilTheFirstCloses) {
  SetLastError(0);
  EXPECT_EQ(OpenPort(), kInvalidHandle);
  EXPECT_EQ(GetLastError(), kErrAccessDenied);
  EXPECT_EQ(OpenPort(kGenericRead), kInvalidHandle);  // read-only is no way round
  port_.reset();
  HandleHolder again(OpenPort());
  EXPECT_TRUE(again);
}

TEST_F(OpenTest, ASecondOpenFromAnotherProcessIsRefused) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(OpenPort() == kInvalidHandle && GetLastError() == kErrAccessDenied ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// A file named like a port in the working directory must not be taken for it either.
TEST_F(OpenTest, MissingDevicesAndWindowsDeviceNamesAreNotFound) {
  TempDir dir;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  std::ofstream("COM3") << "not the port";
  for (const char* name :
       {"/dev/ttyNOSUCH0", "COM3", "com12", "\\\\.\\COM12", "\\\\.\\QDX_Datapipe", "\\\\?\\COM1"}) {
    SetLastError(0);
    EXPECT_EQ(CreateFileA(name, kGenericRead | kGenericWrite, 0, kOpenExisting, kFileFlagOverlapped),
              kInvalidHandle)
        << name;
    EXPECT_EQ(GetLastError(), kErrFileNotFound) << name;
  }
  ASSERT_EQ(chdir("/"), 0);
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

TEST_F(OpenTest, ReadOnlyPortRefusesWrites) {
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

  // A synchronous wait for a comm event.
  ASSERT_TRUE(SetCommMask(port.get(), kEvRxChar));
  {
    const auto far = WriteFarAfter(50, "e");
    Dword mask = 0;
    ASSERT_TRUE(WaitCommEvent(port.get(), &mask, nullptr));
    EXPECT_EQ(mask, kEvRxChar);
  }
  ASSERT_TRUE(PurgeComm(port.get(), kPurgeRxClear));

  // Given an Overlapped without an event, the request shows pending there and the handle is
  // signalled at its end: another thread can wait for it.
  Overlapped overlapped;
  const auto far = WriteFarAfter(100, "ov");
  std::jthread reader([&] { ReadFile(port.get(), buffer, 2, nullptr, &overlapped); });
  EXPECT_TRUE(WaitFor([&] { return !HasOverlappedIoCompleted(&overlapped); }, 2000));
  ASSERT_EQ(WaitForSingleObject(port.get(), 3000), kWaitObject0);
  Dword count = 0;
  EXPECT_TRUE(GetOverlappedResult(port.get(), &overlapped, &count, true));
  EXPECT_EQ(std::string(buffer, count), "ov");
}

TEST_F(OpenTest, ControlRequestsAndSerialCallsOnOtherHandlesAreNotUnderstood) {
  Dword returned = 99;
  char out[8];
  EXPECT_FALSE(DeviceIoControl(port(), CtlCode(0x1612, 0xD04, kMethodBuffered, kFileReadAccess), nullptr, 0,
                               out, sizeof out, &returned, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidFunction);
  EXPECT_EQ(returned, 0u);
  EXPECT_FALSE(DeviceIoControl(kInvalidHandle, 0x16127410, nullptr, 0, out, sizeof out, &returned, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidHandle);
  EXPECT_EQ(CtlCode(0x1612, 0xD04, kMethodBuffered, kFileReadAccess), 0x16127410u);

  HandleHolder file(CreateFileA("/dev/null", kGenericRead | kGenericWrite, 0, kOpenExisting, 0));
  ASSERT_TRUE(file);
  Dcb dcb;
  EXPECT_FALSE(GetCommState(file.get(), &dcb));
  EXPECT_EQ(GetLastError(), kErrInvalidFunction);
  EXPECT_FALSE(SetCommMask(kInvalidHandle, kEvRxChar));
  EXPECT_EQ(GetLastError(), kErrInvalidHandle);
}

TEST(ErrnoMapTest, SystemErrorsBecomeTheirWindowsNumbers) {
  const struct {
    int error_number;
    Dword windows;
  } table[] = {{ENOENT, kErrFileNotFound},       {EACCES, kErrAccessDenied}, {EBUSY, kErrAccessDenied},
               {EWOULDBLOCK, kErrAccessDenied},  {ENOTTY, kErrNotSupported}, {EOPNOTSUPP, kErrNotSupported},
               {EINVAL, kErrInvalidParameter},   {EIO, kErrGenFailure},      {ENXIO, kErrDeviceNotConnected},
               {ENODEV, kErrDeviceNotConnected}, {ENOSPC, kErrDiskFull},     {ENOTDIR, kErrPathNotFound}};
  for (const auto& entry : table) {
    EXPECT_EQ(posix::WinErrorFromErrno(entry.error_number), entry.windows) << entry.error_number;
  }
}

}  // namespace
}  // namespace portwren::testing_util
