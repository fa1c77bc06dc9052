// The driver's requests against a fake driver: what each sends, and every line its answers and
// failures print.
#include "driver/driver_requests.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <regex>
#include <string>
#include <tuple>

#include "driver/control_codes.h"
#include "driver/device_state.h"
#include "driver/driver_startup.h"
#include "driver/key_requests.h"
#include "fake_driver.h"
#include "format/thread_mark.h"

namespace portwren::drivertest {
namespace {

using Arrange = std::function<void(FakeDriver&)>;
using Action = std::function<void()>;

const os::Handle kVcom = reinterpret_cast<os::Handle>(0x40);

// Date stamps differ from run to run.
std::string Printed(const Action& action) {
  testing::internal::CaptureStdout();
  action();
  return std::regex_replace(testing::internal::GetCapturedStdout(),
                            std::regex(R"(\[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\])"), "[D]");
}

// Each request goes to its target with the access its code needs and the record sizes the
// driver expects.
TEST(DriverRequestTest, EachRequestReachesItsTargetWithItsRecordSizes) {
  char narrow[260];
  VcomFdoPdoInfo info;
  constexpr auto kRo = DriverTarget::kBusReadOnly, kRw = DriverTarget::kBusReadWrite;
  constexpr auto kControl = DriverTarget::kControl, kOnVcom = DriverTarget::kControl;
  const struct {
    Action action;
    DriverTarget target;
    bool to_vcom;
    os::Dword code, in_size, out_size;
  } kShapes[] = {
      {[] { PrintKernelVersion(); }, kControl, false, 0x16123004, 0, 180},
      {[] { UnplugAllVcoms(); }, kRw, false, 0x1612B020, 0, 0},
      {[] { ReinstallVbus(); }, kRw, false, 0x1612B024, 0, 0},
      {[] { VbusReadTest(); }, kRo, false, 0x1612707C, 0, 0},
      {[] { VbusWriteTest(); }, kRw, false, 0x1612B078, 0, 0},
      {[] { EnableOneTimeTemporalLifemode(kVcom); }, kOnVcom, true, 0x1612B404, 0, 0},
      {[] { DisableOneTimeTemporalLifemode(kVcom); }, kOnVcom, true, 0x1612B400, 0, 0},
      {[] { QueryOneTimeTemporalLifemode(kVcom); }, kOnVcom, true, 0x16127408, 0, 1},
      {[] { PrintDeviceState(kVcom); }, kOnVcom, true, 0x16127410, 0, 1072},
      {[&] { GetUsbdDevinstPathA("AB", narrow, sizeof narrow, nullptr); }, kControl, false, 0x16123054, 6,
       520},
      {[&] { QueryVcomFdoPdo(VcomFdoPdoQuery{}, &info, nullptr); }, kRo, false, 0x1612706C, 256, 272},
  };
  for (const auto& shape : kShapes) {
    FakeDriver driver;
    Printed(shape.action);
    ASSERT_EQ(driver.sent.size(), 1u) << std::hex << shape.code;
    const Sent& sent = driver.sent[0];
    EXPECT_EQ(
        std::tuple(static_cast<int>(sent.target), sent.to_vcom, sent.code, sent.in.size(), sent.out_size),
        std::tuple(static_cast<int>(shape.target), shape.to_vcom, shape.code, size_t{shape.in_size},
                   shape.out_size))
        << std::hex << shape.code;
  }
}

void Answers(FakeDriver& driver, os::Dword code, Answer answer = {}) {
  driver.answers[code] = std::move(answer);
}

Arrange Version(uint32_t major, uint32_t minor, uint32_t patch) {
  return [=](FakeDriver& d) {
    Answers(d, IOCTL_TRELLIS_GetKernelVersion, {0, Bytes(KernelVersionInfo{major, minor, patch, {}})});
  };
}

Arrange State(int32_t lifemode, uint32_t online, uint64_t last_online, uint64_t last_offline) {
  VcomDeviceState state{0xFFFFFFFF, lifemode, online, 0xFFFFFFFF, last_online, last_offline, {}, {}};
  std::char_traits<char16_t>::copy(state.szVcomDevinstpath, u"QDX_VBUS\\Qdx_vcom\\0001", 23);
  std::char_traits<char16_t>::copy(state.szUsbdDevinstpath, u"USB\\VID_1D6B&PID_0104\\S\u00e9r1", 27);
  return [=](FakeDriver& d) { Answers(d, IOCTL_VCOM_GetDeviceState, {0, Bytes(state)}); };
}

const Arrange kNotAdmin = [](FakeDriver& d) {
  d.administrator = false;
  Answers(d, IOCTL_TRELLIS_VbusReadTest);
  Answers(d, IOCTL_TRELLIS_VbusWriteTest);
  Answers(d, IOCTL_TRELLIS_UnplugAllVcoms);
};
const Arrange kNothing = [](FakeDriver&) {};

constexpr char kStateHead[] = "IOCTL_VCOM_GetDeviceState query result:\n";
constexpr char kStatePaths[] =
    "  .szVcomDevinstpath: QDX_VBUS\\Qdx_vcom\\0001\n"
    "  .szUsbdDevinstpath: USB\\VID_1D6B&PID_0104\\S\u00e9r1\n";

// Every line of the answers and failures; those of a missing driver or bus are seen through the
// keys, in e2e/driver_test.cpp.
TEST(DriverRequestTest, EveryLineOfEveryAnswer) {
  RegisterThread(ThreadRole::kMain);  // the mark of date-stamped lines
  setenv("TZ", "UTC", 1);             // device-state times print in local time
  tzset();
  const Action kernel = [] { PrintKernelVersion(); }, state = [] { PrintDeviceState(kVcom); };
  const Action write_test = [] { VbusWriteTest(); }, read_test = [] { VbusReadTest(); };
  const Action unplug = [] { UnplugAllVcoms(); }, query = [] { QueryOneTimeTemporalLifemode(kVcom); };
  const auto answers = [](os::Dword code, Answer answer = {}) {
    return [=](FakeDriver& d) { Answers(d, code, answer); };
  };
  const struct {
    Arrange arrange;
    Action action;
    std::string printed;
    bool head_only = false;  // the life-mode rows look at the head of the report only
  } kCases[] = {
      {Version(2, 0, 0), kernel, "TRELLIS kernel version: 2.0.0\n"},
      // Packed unmasked: a patch above 255 runs into the minor.
      {Version(1, 0, 256), kernel, "TRELLIS kernel version: 1.1.0\n"},
      {Version(0, 0, 0), kernel, "Cannot get TRELLIS kernel version. WinErr=0(ERROR_SUCCESS)\n"},
      {[](FakeDriver& d) { d.control_present = false; }, kernel,
       "Cannot get TRELLIS kernel version. WinErr=21(ERROR_NOT_READY)\n"},
      {kNothing, kernel, "Cannot get TRELLIS kernel version. WinErr=1(ERROR_INVALID_FUNCTION)\n"},

      {answers(IOCTL_TRELLIS_VbusWriteTest), write_test, "IOCTL_TRELLIS_VbusWriteTest returns success.\n"},
      {kNotAdmin, write_test, "IOCTL_TRELLIS_VbusWriteTest fail. WinErr=5(ERROR_ACCESS_DENIED)\n"},
      {kNotAdmin, read_test, "IOCTL_TRELLIS_VbusReadTest returns success.\n"},
      {answers(IOCTL_TRELLIS_VbusReadTest, {31, {}}), read_test,
       "IOCTL_TRELLIS_VbusReadTest fail. WinErr=31(ERROR_GEN_FAILURE)\n"},
      {answers(IOCTL_TRELLIS_UnplugAllVcoms), unplug, " [D] Unplug all VCOMs success.\n"},
      {kNotAdmin, unplug, " [D] Unplug all VCOMs fail. WinErr=5(ERROR_ACCESS_DENIED)\n"},

      {answers(IOCTL_VCOM_OneTimeTemporalLifemode_Enable), [] { EnableOneTimeTemporalLifemode(kVcom); },
       "IOCTL_VCOM_OneTimeTemporalLifemode_Enable success.\n"},
      {answers(IOCTL_VCOM_OneTimeTemporalLifemode_Query, {0, {5}}), query,
       "IOCTL_VCOM_OneTimeTemporalLifemode_Query success. onetime_temporal=true\n"},
      {answers(IOCTL_VCOM_OneTimeTemporalLifemode_Query), query,
       "IOCTL_VCOM_OneTimeTemporalLifemode_Query success. onetime_temporal=false\n"},
      {answers(IOCTL_VCOM_OneTimeTemporalLifemode_Query, {1167, {}}), query,
       "IOCTL_VCOM_OneTimeTemporalLifemode_Query exec fail. WinErr=1167(ERROR_DEVICE_NOT_CONNECTED)\n"},

      {State(2, 1, 1500000000123, 0), state,
       std::string(kStateHead) + "  .lifemode : Persistent(2)\n  .isUsbdOnline: yes\n" +
           "  .uemsecUsbdLastOnline : 2017-07-14_02:40:00.123\n  .uemsecUsbdLastOffline: (none)\n" +
           kStatePaths},
      {State(0, 0, 0, 86400999), state,
       std::string(kStateHead) + "  .lifemode : Temporal(0)\n  .isUsbdOnline: no\n" +
           "  .uemsecUsbdLastOnline : (none)\n  .uemsecUsbdLastOffline: 1970-01-02_00:00:00.999\n" +
           kStatePaths},
      {State(1, 0, 0, 0), state, std::string(kStateHead) + "  .lifemode : Friendly(1)\n", true},
      {State(-1, 0, 0, 0), state, std::string(kStateHead) + "  .lifemode : WrongValue(-1)\n", true},
      {answers(IOCTL_VCOM_GetDeviceState, {0, std::vector<uint8_t>(1100)}), state,
       std::string(kStateHead) + "IOCTL_VCOM_GetDeviceState fails. WinErr=122(ERROR_INSUFFICIENT_BUFFER)\n"},
  };
  for (const auto& c : kCases) {
    FakeDriver driver;
    c.arrange(driver);
    const std::string printed = Printed(c.action);
    EXPECT_EQ(c.head_only ? printed.substr(0, c.printed.size()) : printed, c.printed);
  }
}

TEST(DriverRequestTest, UsbdPathStatusAndBusResult) {
  std::vector<uint8_t> path(2 * 13);
  std::char_traits<char16_t>::copy(reinterpret_cast<char16_t*>(path.data()), u"USB\\VID_1\\S1", 13);
  const auto fails = [](os::Dword error) {
    return [=](FakeDriver& d) { Answers(d, IOCTL_TRELLIS_GetUsbdDevinstPath, {error, {}}); };
  };
  const struct {
    Arrange arrange;
    UsbdPathStatus status;
    uint32_t chars;
    const char* text;
  } kRows[] = {
      {[&](FakeDriver& d) {
         Answers(d, IOCTL_TRELLIS_GetUsbdDevinstPath, {0, path});
       },
       kUsbdPathOk, 13, "USB\\VID_1\\S1"},
      {fails(os::kErrDeviceNotConnected), kUsbdPathOffline, 1000, ""},
      {fails(os::kErrInsufficientBuffer), kUsbdPathTooSmall, 1000, ""},
      {fails(os::kErrAccessDenied), kUsbdPathFailed, 1000, ""},
      {[](FakeDriver& d) { d.control_present = false; }, kUsbdPathNoControl, 0, ""},
  };
  for (const auto& row : kRows) {
    FakeDriver driver;
    row.arrange(driver);
    char out[260];
    std::memset(out, 'x', sizeof out);
    uint32_t chars = 0;
    EXPECT_EQ(GetUsbdDevinstPathA("QDX_VBUS\\Qdx_vcom\\0001", out, sizeof out, &chars), row.status);
    EXPECT_EQ(chars, row.chars) << row.status;
    EXPECT_STREQ(out, row.text) << row.status;
    if (!driver.sent.empty()) {
      EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(driver.sent[0].in.data())),
                u"QDX_VBUS\\Qdx_vcom\\0001");
    }
  }
  FakeDriver driver;
  driver.bus_present = false;
  EXPECT_EQ(SendBusRequest(true, IOCTL_TRELLIS_VbusReadTest, nullptr, 0, nullptr, 0, nullptr), 1167u);
  EXPECT_EQ(os::GetLastError(), os::kErrFileNotFound);
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
