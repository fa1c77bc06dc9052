// Opening a port: exclusive against every process, raw, read-only or read/write, and the
// Windows numbers of what can go wrong.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform/os_device_control.h"
#include "platform/posix/errno_map.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

class OpenTest : public PortTest {};

Handle OpenPort(const std::string& path, Dword access = kGenericRead | kGenericWrite) {
  return CreateFileA(path.c_str(), access, 0, kOpenExisting, kFileFlagOverlapped);
}

TEST_F(OpenTest, ASecondOpenInThisProcessIsRefusedUntilTheFirstCloses) {
  SetLastError(0);
  EXPECT_EQ(OpenPort(pty_.slave_path()), kInvalidHandle);
  EXPECT_EQ(GetLastError(), kErrAccessDenied);
  EXPECT_EQ(OpenPort(pty_.slave_path(), kGenericRead), kInvalidHandle);  // read-only is no way round
  port_.reset();
  HandleHolder again(OpenPort(pty_.slave_path()));
  EXPECT_TRUE(again);
}

TEST_F(OpenTest, ASecondOpenFromAnotherProcessIsRefused) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const Handle handle = OpenPort(pty_.slave_path());
    _exit(handle == kInvalidHandle && GetLastError() == kErrAccessDenied ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(OpenTest, MissingDevicesAreNotFound) {
  for (const char* path : {"/dev/ttyNOSUCH0", "COM3", "\\\\.\\COM12"}) {
    SetLastError(0);
    EXPECT_EQ(OpenPort(path), kInvalidHandle) << path;
    EXPECT_EQ(GetLastError(), kErrFileNotFound) << path;
  }
}

TEST_F(OpenTest, TheLineIsRawBothWays) {
  SetTimeouts(0, 0, 0);
  // No CR to LF translation on input, no echo back to the far end.
  ASSERT_TRUE(pty_.WriteFar("a\rb\x03\x1A"));
  Io read(5);
  if (!read.Read(port(), 5)) {
    ASSERT_TRUE(read.Done(2000));
  }
  EXPECT_EQ(read.Text(read.Collect(port()).count), "a\rb\x03\x1A");
  EXPECT_EQ(pty_.ReadFar(1, 100), "");
  // No LF to CR LF on output.
  Io write;
  if (!write.Write(port(), "x\ny")) {
    ASSERT_TRUE(write.Done(2000));
  }
  EXPECT_EQ(pty_.ReadFar(3, 2000), "x\ny");
}

TEST_F(OpenTest, ReadOnlyPortRefusesWrites) {
  port_.reset();
  port_.reset(OpenPort(pty_.slave_path(), kGenericRead));
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
  HandleHolder port(CreateFileA(pty_.slave_path().c_str(), kGenericRead | kGenericWrite, 0, kOpenExisting, 0));
  ASSERT_TRUE(port);
  std::thread far([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pty_.WriteFar("late");
  });
  char buffer[4];
  Dword done = 0;
  const auto start = Clock::now();
  ASSERT_TRUE(ReadFile(port.get(), buffer, 4, &done, nullptr));
  far.join();
  EXPECT_GE(MsSince(start), 90);
  EXPECT_EQ(std::string(buffer, done), "late");
  ASSERT_TRUE(WriteFile(port.get(), "out", 3, &done, nullptr));
  EXPECT_EQ(done, 3u);
  EXPECT_EQ(pty_.ReadFar(3, 2000), "out");

  // A synchronous wait for a comm event.
  ASSERT_TRUE(SetCommMask(port.get(), kEvRxChar));
  std::thread again([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pty_.WriteFar("e");
  });
  Dword mask = 0;
  ASSERT_TRUE(WaitCommEvent(port.get(), &mask, nullptr));
  again.join();
  EXPECT_EQ(mask, kEvRxChar);
}

TEST_F(OpenTest, ControlRequestsAreNotUnderstoodHere) {
  Dword returned = 99;
  char out[8];
  EXPECT_FALSE(DeviceIoControl(port(), CtlCode(0x1612, 0xD04, kMethodBuffered, kFileReadAccess), nullptr, 0, out,
                               sizeof out, &returned, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidFunction);
  EXPECT_EQ(returned, 0u);
  EXPECT_FALSE(DeviceIoControl(kInvalidHandle, 0x16127410, nullptr, 0, out, sizeof out, &returned, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidHandle);
  EXPECT_EQ(CtlCode(0x1612, 0xD04, kMethodBuffered, kFileReadAccess), 0x16127410u);
}

TEST_F(OpenTest, SerialCallsOnAPlainFileAreNotUnderstood) {
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
  } table[] = {{ENOENT, kErrFileNotFound},   {EACCES, kErrAccessDenied},      {EBUSY, kErrAccessDenied},
               {EWOULDBLOCK, kErrAccessDenied}, {ENOTTY, kErrNotSupported},  {EOPNOTSUPP, kErrNotSupported},
               {EINVAL, kErrInvalidParameter}, {EIO, kErrGenFailure},       {ENXIO, kErrDeviceNotConnected},
               {ENODEV, kErrDeviceNotConnected}, {ENOSPC, kErrDiskFull},    {ENOTDIR, kErrPathNotFound}};
  for (const auto& entry : table) {
    EXPECT_EQ(posix::WinErrorFromErrno(entry.error_number), entry.windows) << entry.error_number;
  }
}

}  // namespace
}  // namespace portwren::testing_util
