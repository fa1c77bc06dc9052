// The driver's requests against a fake driver: what each sends, and every line its answers and
// failures print.
#include "driver/driver_requests.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <regex>
#include <string>

#include "driver/control_codes.h"
#include "driver/device_state.h"
#include "driver/driver_startup.h"
#include "driver/key_requests.h"
#include "format/thread_mark.h"
#include "fake_driver.h"

namespace portwren::drivertest {
namespace {

using Arrange = std::function<void(FakeDriver&)>;
using Action = std::function<void()>;

const os::Handle kVcom = reinterpret_cast<os::Handle>(0x40);

template <size_t N>
void Put(const char16_t* text, char16_t (&field)[N]) {
  std::char_traits<char16_t>::copy(field, text, std::char_traits<char16_t>::length(text) + 1);
}

KernelVersionInfo Version(uint32_t major, uint32_t minor, uint32_t patch) {
  KernelVersionInfo info{};
  info.major = major;
  info.minor = minor;
  info.patch = patch;
  return info;
}

// Date stamps differ from run to run.
std::string Printed(const Action& action) {
  testing::internal::CaptureStdout();
  action();
  return std::regex_replace(testing::internal::GetCapturedStdout(),
                            std::regex(R"(\[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\])"), "[D]");
}

struct Shape {
  const char* what;
  Action action;
  DriverTarget target;
  bool to_vcom;
  os::Dword code;
  os::Dword in_size;
  os::Dword out_size;
};

// Each request goes to its target with the access its code needs, and with the record sizes the
// driver expects.
TEST(DriverRequestTest, EachRequestReachesItsTargetWithItsRecordSizes) {
  char narrow[260];
  VcomFdoPdoInfo info;
  const Shape kShapes[] = {
      {"kernel version", [] { PrintKernelVersion(); }, DriverTarget::kControl, false, 0x16123004, 0, 180},
      {"unplug", [] { UnplugAllVcoms(); }, DriverTarget::kBusReadWrite, false, 0x1612B020, 0, 0},
      {"reinstall", [] { ReinstallVbus(); }, DriverTarget::kBusReadWrite, false, 0x1612B024, 0, 0},
      {"!", [] { VbusReadTest(); }, DriverTarget::kBusReadOnly, false, 0x1612707C, 0, 0},
      {"@", [] { VbusWriteTest(); }, DriverTarget::kBusReadWrite, false, 0x1612B078, 0, 0},
      {"<", [] { EnableOneTimeTemporalLifemode(kVcom); }, DriverTarget::kControl, true, 0x1612B404, 0, 0},
      {">", [] { DisableOneTimeTemporalLifemode(kVcom); }, DriverTarget::kControl, true, 0x1612B400, 0, 0},
      {"|", [] { QueryOneTimeTemporalLifemode(kVcom); }, DriverTarget::kControl, true, 0x16127408, 0, 1},
      {"device state", [] { PrintDeviceState(kVcom); }, DriverTarget::kControl, true, 0x16127410, 0, 1072},
      {"USB path", [&] { GetUsbdDevinstPathA("AB", narrow, sizeof narrow, nullptr); }, DriverTarget::kControl,
       false, 0x16123054, 6, 520},
      {"FDO/PDO", [&] { QueryVcomFdoPdo(VcomFdoPdoQuery{}, &info, nullptr); }, DriverTarget::kBusReadOnly,
       false, 0x1612706C, 256, 272},
  };
  for (const Shape& shape : kShapes) {
    FakeDriver driver;
    Printed(shape.action);
    ASSERT_EQ(driver.sent.size(), 1u) << shape.what;
    const Sent& sent = driver.sent[0];
    EXPECT_EQ(sent.to_vcom, shape.to_vcom) << shape.what;
    if (!shape.to_vcom) {
      EXPECT_EQ(sent.target, shape.target) << shape.what;
    }
    EXPECT_EQ(sent.code, shape.code) << shape.what;
    EXPECT_EQ(sent.in.size(), shape.in_size) << shape.what;
    EXPECT_EQ(sent.out_size, shape.out_size) << shape.what;
  }
}

struct Case {
  const char* what;
  Arrange setup;
  Action action;
  std::string printed;
};

void RunCases(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    FakeDriver driver;
    c.setup(driver);
    EXPECT_EQ(Printed(c.action), c.printed) << c.what;
  }
}

void Answers(FakeDriver& driver, os::Dword code, Answer answer) {
  driver.answers[code] = std::move(answer);
}

TEST(DriverRequestTest, KernelVersionLine) {
  const Action print = [] { PrintKernelVersion(); };
  RunCases({
      {"2.0.0",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetKernelVersion, {0, Bytes(Version(2, 0, 0))});
       },
       print, "TRELLIS kernel version: 2.0.0\n"},
      {"1.7.12",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetKernelVersion, {0, Bytes(Version(1, 7, 12))});
       },
       print, "TRELLIS kernel version: 1.7.12\n"},
      // Packed unmasked: a patch above 255 runs into the minor.
      {"1.0.256",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetKernelVersion, {0, Bytes(Version(1, 0, 256))});
       },
       print, "TRELLIS kernel version: 1.1.0\n"},
      {"0.0.0 packs to no version",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetKernelVersion, {0, Bytes(Version(0, 0, 0))});
       },
       print, "Cannot get TRELLIS kernel version. WinErr=0(ERROR_SUCCESS)\n"},
      {"no control interface", [](FakeDriver& d) { d.control_present = false; }, print,
       "Cannot get TRELLIS kernel version. WinErr=21(ERROR_NOT_READY)\n"},
      {"driver too old", [](FakeDriver&) {}, print,
       "Cannot get TRELLIS kernel version. WinErr=1(ERROR_INVALID_FUNCTION)\n"},
  });
}

TEST(DriverRequestTest, BusRequestLines) {
  RegisterThread(ThreadRole::kMain);  // the mark of date-stamped lines
  const Action write_test = [] { VbusWriteTest(); };
  const Action read_test = [] { VbusReadTest(); };
  const Action unplug = [] { UnplugAllVcoms(); };
  const Arrange not_admin = [](FakeDriver& d) {
    d.administrator = false;
    Answers(d, IOCTL_TRELLIS_VbusReadTest, {});
    Answers(d, IOCTL_TRELLIS_VbusWriteTest, {});
    Answers(d, IOCTL_TRELLIS_UnplugAllVcoms, {});
  };
  RunCases({
      {"@ works", [](FakeDriver& d) { Answers(d, IOCTL_TRELLIS_VbusWriteTest, {}); }, write_test,
       "IOCTL_TRELLIS_VbusWriteTest returns success.\n"},
      {"@ as a user", not_admin, write_test,
       "IOCTL_TRELLIS_VbusWriteTest fail. WinErr=5(ERROR_ACCESS_DENIED)\n"},
      {"! as a user", not_admin, read_test, "IOCTL_TRELLIS_VbusReadTest returns success.\n"},
      // The open's error is reported, not the ERROR_DEVICE_NOT_CONNECTED the request returns.
      {"no bus", [](FakeDriver& d) { d.bus_present = false; }, read_test,
       "IOCTL_TRELLIS_VbusReadTest fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n"},
      {"refused",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_VbusReadTest, {31, {}});
       },
       read_test, "IOCTL_TRELLIS_VbusReadTest fail. WinErr=31(ERROR_GEN_FAILURE)\n"},
      {"unplug", [](FakeDriver& d) { Answers(d, IOCTL_TRELLIS_UnplugAllVcoms, {}); }, unplug,
       " [D] Unplug all VCOMs success.\n"},
      {"unplug as a user", not_admin, unplug, " [D] Unplug all VCOMs fail. WinErr=5(ERROR_ACCESS_DENIED)\n"},
      {"reinstall is not reported", [](FakeDriver& d) { d.bus_present = false; }, [] { ReinstallVbus(); },
       ""},
  });
}

TEST(DriverRequestTest, BusRequestResults) {
  FakeDriver driver;
  driver.bus_present = false;
  EXPECT_EQ(SendBusRequest(true, IOCTL_TRELLIS_VbusReadTest, nullptr, 0, nullptr, 0, nullptr), 1167u);
  driver.bus_present = true;
  EXPECT_EQ(SendBusRequest(true, IOCTL_TRELLIS_VbusReadTest, nullptr, 0, nullptr, 0, nullptr), 1u);
  Answers(driver, IOCTL_TRELLIS_VbusReadTest, {});
  EXPECT_EQ(SendBusRequest(true, IOCTL_TRELLIS_VbusReadTest, nullptr, 0, nullptr, 0, nullptr), 0u);
}

TEST(DriverRequestTest, LifemodeKeyLines) {
  const Action enable = [] { EnableOneTimeTemporalLifemode(kVcom); };
  const Action query = [] { QueryOneTimeTemporalLifemode(kVcom); };
  RunCases({
      {"<", [](FakeDriver& d) { Answers(d, IOCTL_VCOM_OneTimeTemporalLifemode_Enable, {}); }, enable,
       "IOCTL_VCOM_OneTimeTemporalLifemode_Enable success.\n"},
      {"< on a plain port", [](FakeDriver&) {}, enable,
       "IOCTL_VCOM_OneTimeTemporalLifemode_Enable exec fail. WinErr=1(ERROR_INVALID_FUNCTION)\n"},
      {">", [](FakeDriver& d) { Answers(d, IOCTL_VCOM_OneTimeTemporalLifemode_Disable, {}); },
       [] { DisableOneTimeTemporalLifemode(kVcom); },
       "IOCTL_VCOM_OneTimeTemporalLifemode_Disable success.\n"},
      {"| on",
       [](FakeDriver& d) {
         Answers(d, IOCTL_VCOM_OneTimeTemporalLifemode_Query, {0, {5}});
       },
       query, "IOCTL_VCOM_OneTimeTemporalLifemode_Query success. onetime_temporal=true\n"},
      {"| zero bytes", [](FakeDriver& d) { Answers(d, IOCTL_VCOM_OneTimeTemporalLifemode_Query, {}); }, query,
       "IOCTL_VCOM_OneTimeTemporalLifemode_Query success. onetime_temporal=false\n"},
      {"| offline",
       [](FakeDriver& d) {
         Answers(d, IOCTL_VCOM_OneTimeTemporalLifemode_Query, {1167, {}});
       },
       query,
       "IOCTL_VCOM_OneTimeTemporalLifemode_Query exec fail. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)\n"},
  });
}

class DeviceStateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* tz = std::getenv("TZ");
    saved_tz_ = tz != nullptr ? tz : "";
    had_tz_ = tz != nullptr;
    setenv("TZ", "UTC", 1);
    tzset();
  }
  void TearDown() override {
    if (had_tz_) {
      setenv("TZ", saved_tz_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::string saved_tz_;
  bool had_tz_ = false;
};

VcomDeviceState State(int32_t lifemode, uint32_t online, uint64_t last_online, uint64_t last_offline) {
  VcomDeviceState state{};
  state.reserved0 = 0xFFFFFFFF;
  state.lifemode = lifemode;
  state.isUsbdOnline = online;
  state.reserved12 = 0xFFFFFFFF;
  state.uemsecUsbdLastOnline = last_online;
  state.uemsecUsbdLastOffline = last_offline;
  Put(u"QDX_VBUS\\Qdx_vcom\\0001", state.szVcomDevinstpath);
  Put(u"USB\\VID_1D6B&PID_0104\\S\u00e9r1", state.szUsbdDevinstpath);
  return state;
}

constexpr char kStateHead[] = "IOCTL_VCOM_GetDeviceState query result:\n";
constexpr char kStatePaths[] =
    "  .szVcomDevinstpath: QDX_VBUS\\Qdx_vcom\\0001\n"
    "  .szUsbdDevinstpath: USB\\VID_1D6B&PID_0104\\S\u00e9r1\n";

TEST_F(DeviceStateTest, EveryFieldOfTheRecord) {
  const Action print = [] { PrintDeviceState(kVcom); };
  const auto answer = [](VcomDeviceState state) {
    return [state](FakeDriver& d) { Answers(d, IOCTL_VCOM_GetDeviceState, {0, Bytes(state)}); };
  };
  RunCases({
      {"persistent, online", answer(State(2, 1, 1500000000123, 0)), print,
       (std::string(kStateHead) +
        "  .lifemode : Persistent(2)\n  .isUsbdOnline: yes\n"
        "  .uemsecUsbdLastOnline : 2017-07-14_02:40:00.123\n  .uemsecUsbdLastOffline: (none)\n" +
        kStatePaths)},
      {"temporal, offline", answer(State(0, 0, 0, 86400999)), print,
       (std::string(kStateHead) +
        "  .lifemode : Temporal(0)\n  .isUsbdOnline: no\n"
        "  .uemsecUsbdLastOnline : (none)\n  .uemsecUsbdLastOffline: 1970-01-02_00:00:00.999\n" +
        kStatePaths)},
  });
  // The life mode alone, for the names and what the driver never sends.
  const std::pair<int32_t, const char*> kModes[] = {
      {1, "Friendly(1)"}, {3, "WrongValue(3)"}, {-1, "WrongValue(-1)"}};
  for (const auto& [mode, text] : kModes) {
    FakeDriver driver;
    answer(State(mode, 1, 0, 0))(driver);
    EXPECT_NE(Printed(print).find(std::string("  .lifemode : ") + text + "\n"), std::string::npos) << text;
  }
}

TEST_F(DeviceStateTest, Failures) {
  const Action print = [] { PrintDeviceState(kVcom); };
  RunCases({
      {"a port that is no VCOM", [](FakeDriver&) {}, print,
       "IOCTL_VCOM_GetDeviceState query result:\n"
       "IOCTL_VCOM_GetDeviceState fails. WinErr=1(ERROR_INVALID_FUNCTION)\n"},
      {"too small",
       [](FakeDriver& d) {
         Answers(d, IOCTL_VCOM_GetDeviceState, {0, std::vector<uint8_t>(1100)});
       },
       print,
       "IOCTL_VCOM_GetDeviceState query result:\n"
       "IOCTL_VCOM_GetDeviceState fails. WinErr=122(ERROR_INSUFFICIENT_BUFFER)\n"},
  });
}

TEST(DriverRequestTest, UsbdPathStatus) {
  std::vector<uint8_t> path(2 * 13);
  std::char_traits<char16_t>::copy(reinterpret_cast<char16_t*>(path.data()), u"USB\\VID_1\\S1", 13);
  struct Row {
    const char* what;
    Arrange setup;
    UsbdPathStatus status;
    uint32_t chars;
    const char* text;
  };
  const Row kRows[] = {
      {"found",
       [&](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetUsbdDevinstPath, {0, path});
       },
       kUsbdPathOk, 13, "USB\\VID_1\\S1"},
      {"USB device offline",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetUsbdDevinstPath, {os::kErrDeviceNotConnected, {}});
       },
       kUsbdPathOffline, 1000, ""},
      {"buffer too small",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetUsbdDevinstPath, {os::kErrInsufficientBuffer, {}});
       },
       kUsbdPathTooSmall, 1000, ""},
      {"refused",
       [](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetUsbdDevinstPath, {os::kErrAccessDenied, {}});
       },
       kUsbdPathFailed, 1000, ""},
      {"driver too old", [](FakeDriver&) {}, kUsbdPathFailed, 1000, ""},
      {"no control interface", [](FakeDriver& d) { d.control_present = false; }, kUsbdPathNoControl, 0, ""},
  };
  for (const Row& row : kRows) {
    FakeDriver driver;
    row.setup(driver);
    char out[260];
    std::memset(out, 'x', sizeof out);
    uint32_t chars = 0;
    EXPECT_EQ(GetUsbdDevinstPathA("QDX_VBUS\\Qdx_vcom\\0001", out, sizeof out, &chars), row.status)
        << row.what;
    EXPECT_EQ(chars, row.chars) << row.what;
    EXPECT_STREQ(out, row.text) << row.what;
    ASSERT_EQ(driver.sent.size(), row.status == kUsbdPathNoControl ? 0u : 1u) << row.what;
    if (!driver.sent.empty()) {
      EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(driver.sent[0].in.data())),
                u"QDX_VBUS\\Qdx_vcom\\0001");
    }
  }
}

TEST(DriverRequestTest, RequestDefinitionsCheckStopsAtTheFirstMismatch) {
  testing::internal::CaptureStdout();
  EXPECT_TRUE(CheckRequestDefinitions());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

  const RequestDefinition kSkewed[] = {
      {"IOCTL_VCOM_OneTimeTemporalLifemode_Disable", 0x1612B400, 0x1612B400},
      {"IOCTL_VCOM_OneTimeTemporalLifemode_Enable", TrellisCode(0xD01, os::kFileReadAccess), 0x1612B404},
      {"IOCTL_VCOM_GetDeviceState", 0, 0x16127410},
  };
  testing::internal::CaptureStdout();
  EXPECT_FALSE(CheckRequestDefinitions(kSkewed));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "IOCTL_VCOM_OneTimeTemporalLifemode_Enable value error!\n");
}

}  // namespace
}  // namespace portwren::drivertest
