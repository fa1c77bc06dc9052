// Serial cases that need POSIX itself: another process, the working directory, termios behind
// the port's back, the process's CPU time, the map from system errors to Windows numbers, and
// the line control a pseudo-terminal refuses.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "platform/os_device_control.h"
#include "platform/posix/errno_map.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

class PosixPortTest : public PortTest {};

TEST_F(PosixPortTest, ASecondOpenFromAnotherProcessIsRefused) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(ErrorOf(OpenPort() != kInvalidHandle) == kErrAccessDenied ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// A file named like a port in the working directory must not be taken for it either.
TEST_F(PosixPortTest, MissingDevicesAndWindowsDeviceNamesAreNotFound) {
  TempDir dir;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  std::ofstream("COM3") << "not the port";
  for (const char* name :
       {"/dev/ttyNOSUCH0", "COM3", "com12", "\\\\.\\COM12", "\\\\.\\QDX_Datapipe", "\\\\?\\COM1"}) {
    EXPECT_EQ(ErrorOf(CreateFileA(name, kGenericRead | kGenericWrite, 0, kOpenExisting,
                                  kFileFlagOverlapped) != kInvalidHandle),
              kErrFileNotFound)
        << name;
  }
  ASSERT_EQ(chdir("/"), 0);
}

TEST_F(PosixPortTest, ControlRequestsAndSerialCallsOnOtherHandlesAreNotUnderstood) {
  EXPECT_EQ(CtlCode(0x1612, 0xD04, kMethodBuffered, kFileReadAccess), 0x16127410u);
  Dword returned = 99;
  char out[8];
  EXPECT_EQ(ErrorOf(DeviceIoControl(port(), 0x16127410, nullptr, 0, out, sizeof out, &returned, nullptr)),
            kErrInvalidFunction);
  EXPECT_EQ(returned, 0u);
  EXPECT_EQ(
      ErrorOf(DeviceIoControl(kInvalidHandle, 0x16127410, nullptr, 0, out, sizeof out, &returned, nullptr)),
      kErrInvalidHandle);
  HandleHolder file(CreateFileA("/dev/null", kGenericRead | kGenericWrite, 0, kOpenExisting, 0));
  ASSERT_TRUE(file);
  Dcb dcb;
  EXPECT_EQ(ErrorOf(GetCommState(file.get(), &dcb)), kErrInvalidFunction);
  EXPECT_EQ(ErrorOf(SetCommMask(kInvalidHandle, kEvRxChar)), kErrInvalidHandle);
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

// What someone else did to the terminal shows; what termios cannot hold comes from the kept Dcb.
TEST_F(PosixPortTest, AChangeMadeBehindThePortsBackIsShown) {
  Dcb dcb;
  ASSERT_TRUE(GetCommState(port(), &dcb));
  dcb.BaudRate = 19200, dcb.fOutxDsrFlow = 1, dcb.EvtChar = '\n';
  ASSERT_TRUE(SetCommState(port(), &dcb));
  const int other = open(pty_.port_path().c_str(), O_RDWR | O_NOCTTY);
  termios settings;
  ASSERT_EQ(tcgetattr(other, &settings), 0);
  cfsetspeed(&settings, B4800);
  settings.c_cflag |= CSTOPB | CRTSCTS;
  ASSERT_EQ(tcsetattr(other, TCSANOW, &settings), 0);
  ASSERT_TRUE(GetCommState(port(), &dcb));
  EXPECT_EQ(dcb.BaudRate, 4800u);
  EXPECT_EQ(dcb.StopBits, kTwoStopBits);
  EXPECT_EQ(dcb.fOutxCtsFlow, 1u);
  EXPECT_EQ(dcb.fRtsControl, kRtsControlHandshake);
  EXPECT_EQ(dcb.fOutxDsrFlow, 1u);
  EXPECT_EQ(dcb.EvtChar, '\n');
  ASSERT_TRUE(SetCommState(port(), &dcb));  // now keeps RTS/CTS itself
  settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
  ASSERT_EQ(tcsetattr(other, TCSANOW, &settings), 0);
  close(other);
  ASSERT_TRUE(GetCommState(port(), &dcb));
  EXPECT_EQ(dcb.fOutxCtsFlow, 0u);
  EXPECT_EQ(dcb.fRtsControl, kRtsControlEnable);
}

long long CpuMs() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000LL +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

TEST_F(PosixPortTest, XoffHoldsAWriteWithoutBusyWaitingAndXonReleasesIt) {
  Dcb dcb;
  ASSERT_TRUE(GetCommState(port(), &dcb));
  dcb.fOutX = 1;
  ASSERT_TRUE(SetCommState(port(), &dcb));
  ASSERT_TRUE(pty_.WriteFar("\x13"));  // XOFF
  ASSERT_TRUE(Queue("m"));             // arrives after it: the XOFF has been dealt with
  Io write;
  const long long cpu_before = CpuMs();
  ASSERT_FALSE(write.Write(port(), "held"));
  EXPECT_FALSE(write.Done(500));
  EXPECT_LT(CpuMs() - cpu_before, 250);  // waiting, not spinning
  EXPECT_EQ(pty_.ReadFar(4, 50), "");
  ASSERT_TRUE(pty_.WriteFar("\x11"));  // XON
  EXPECT_EQ(write.Finish(port()), Ok("held"));
  EXPECT_EQ(pty_.ReadFar(4, 2000), "held");
}

// A pseudo-terminal has no modem lines (50) and no real baud rate, and takes a break. A line that
// its handshake mode drives is refused (87) before the device is asked; so is an unknown function.
TEST_F(PosixPortTest, LineControlOnAPseudoTerminal) {
  HandleHolder file(CreateFileA("/dev/null", kGenericRead | kGenericWrite, 0, kOpenExisting, 0));
  ASSERT_TRUE(file);
  Dcb plain;
  ASSERT_TRUE(GetCommState(port(), &plain));
  Dcb dtr_handshake = plain;
  dtr_handshake.fDtrControl = kDtrControlHandshake;
  Dcb rts_toggle = plain;
  rts_toggle.fRtsControl = kRtsControlToggle;
  Dcb rts_handshake = plain;
  rts_handshake.fRtsControl = kRtsControlHandshake;
  const struct {
    const char* what;
    const Dcb& dcb;
    Handle handle;
    Dword function;
    Dword error;  // 0: it succeeds
  } cases[] = {
      {"set DTR", plain, port(), kSetDtr, kErrNotSupported},
      {"clear DTR", plain, port(), kClrDtr, kErrNotSupported},
      {"set RTS", plain, port(), kSetRts, kErrNotSupported},
      {"clear RTS", plain, port(), kClrRts, kErrNotSupported},
      {"break on", plain, port(), kSetBreak, 0},
      {"break off", plain, port(), kClrBreak, 0},
      {"SETXOFF", plain, port(), 1, kErrInvalidParameter},
      {"RESETDEV", plain, port(), 7, kErrInvalidParameter},
      {"beyond CLRBREAK", plain, port(), 10, kErrInvalidParameter},
      {"set DTR, DTR handshake", dtr_handshake, port(), kSetDtr, kErrInvalidParameter},
      {"set RTS, DTR handshake", dtr_handshake, port(), kSetRts, kErrNotSupported},
      {"clear RTS, RTS toggle", rts_toggle, port(), kClrRts, kErrInvalidParameter},
      {"set RTS, RTS handshake", rts_handshake, port(), kSetRts, kErrInvalidParameter},
      {"clear DTR, RTS handshake", rts_handshake, port(), kClrDtr, kErrNotSupported},
      {"a file", plain, file.get(), kSetDtr, kErrInvalidFunction},
      {"no handle", plain, kInvalidHandle, kSetBreak, kErrInvalidHandle},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_TRUE(SetCommState(port(), &c.dcb)) << GetLastError();
    SetLastError(0);
    EXPECT_EQ(EscapeCommFunction(c.handle, c.function), c.error == 0);
    EXPECT_EQ(GetLastError(), c.error);
  }
  ASSERT_TRUE(SetCommState(port(), &plain));
  EXPECT_TRUE(SetCommBreak(port()));
  EXPECT_TRUE(ClearCommBreak(port()));
  EXPECT_FALSE(ClearCommBreak(file.get()));
  EXPECT_EQ(GetLastError(), kErrInvalidFunction);
  for (const Handle handle : {port(), file.get(), kInvalidHandle}) EXPECT_FALSE(BaudRateIsReal(handle));
}

}  // namespace
}  // namespace portwren::testing_util
