// The VCOM listing: the whole enumeration over recorded devices with a fake driver behind them
// (blocks, link reports, the dialog), the dialog's question and answers, and the record list.
#include "driver/vcom_listing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/control_codes.h"
#include "driver/driver_records.h"
#include "driver/vcom_enum.h"
#include "fake_driver.h"
#include "platform/posix/device_source.h"

namespace portwren::drivertest {
namespace {

template <typename Action>
std::string Printed(Action action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

TEST(VcomListingTest, DialogQuestionAndAnswers) {
  EXPECT_EQ(DialogQuestion(1), "Want to view VCOM device property dialog(input number 1)? ");
  EXPECT_EQ(DialogQuestion(4), "Want to view VCOM device property dialog(input number 1-4)? ");
  const std::pair<const char*, int> kAnswers[] = {{"1", 1}, {"4", 4},  {" 3x", 3}, {"0", 0},
                                                  {"5", 0}, {"-1", 0}, {"two", 0}, {"", 0}};
  for (const auto& [answer, chosen] : kAnswers) EXPECT_EQ(DialogChoice(answer, 4), chosen) << answer;
}

TEST(VcomListingTest, RecordListGrowsShrinksAndCountsFromTheEnd) {
  VcomRecordList list;
  EXPECT_EQ(list.Resize(-1, true), -3);
  ASSERT_EQ(list.Resize(3, true), 0);
  list.At(0)->isOurs = 1;
  list.At(2)->isOurs = 2;
  EXPECT_EQ(list.At(-1), list.At(2));
  EXPECT_EQ(list.At(-3), list.At(0));
  EXPECT_EQ(list.At(3), nullptr);
  EXPECT_EQ(list.At(-4), nullptr);
  ASSERT_EQ(list.Resize(1, true) + list.Resize(2, true), 0);  // the dropped record comes back zeroed
  EXPECT_EQ(list.count(), 2);
  EXPECT_EQ(list.At(0)->isOurs + list.At(1)->isOurs, 1);
}

// Recorded devices for the enumeration: a VCOM of the package, a physical port, an interface
// whose path does not fit the detail, one of ours with a foreign ID, and another class.
std::vector<os::posix::DeviceEntry> RecordedDevices() {
  const auto com = [](std::string path, std::string id, std::string friendly, std::string description,
                      std::string service, std::string port, os::Guid guid = os::kGuidDevInterfaceComPort) {
    return os::posix::DeviceEntry{guid, path, id, friendly, description, service, port, "", {}};
  };
  return {com("\\\\?\\QDX_VBUS#Qdx_vcom#0001", "QDX_VBUS\\Qdx_vcom\\0001", "TRELLIS VCOM (COM7)",
              "TRELLIS VCOM", "Qdx_trellis", "COM7"),
          com("\\\\?\\ACPI#PNP0501#1", "ACPI\\PNP0501\\1", "", "Communications Port", "Serial", ""),
          com("\\\\.\\other", "ROOT\\OTHER\\0", "Other", "", "Qdx_trellis", "", os::Guid{1, 2, 3, {4}}),
          com(std::string(300, 'p'), "ROOT\\LONG\\0", "Long", "", "", ""),
          com("\\\\.\\odd", "ROOT\\PORTS\\0000", "Odd port", "", "QDX_TRELLIS", "COM8")};
}

VcomFdoPdoInfo VcomNames(const char16_t* kernel_target) {
  VcomFdoPdoInfo info{};
  std::char_traits<char16_t>::copy(info.szPortName, u"COM7", 5);
  std::char_traits<char16_t>::copy(info.szFdoName, u"\\Device\\QdxVcom0001", 20);
  std::char_traits<char16_t>::copy(info.szPdoName, u"\\Device\\QdxPdo0001", 19);
  std::char_traits<char16_t>::copy(info.szKernelLinkTarget, kernel_target,
                                   std::char_traits<char16_t>::length(kernel_target) + 1);
  return info;
}

class EnumerationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    os::posix::SetDeviceSource(&RecordedDevices);
    // The driver knows the USB device of its own VCOM only.
    driver_.answer_for = [](const Sent& sent, Answer* answer) {
      if (sent.code != IOCTL_TRELLIS_GetUsbdDevinstPath) return false;
      const std::u16string id(reinterpret_cast<const char16_t*>(sent.in.data()));
      if (id != u"QDX_VBUS\\Qdx_vcom\\0001") {
        answer->error = os::kErrInvalidParameter;
        return true;
      }
      const std::u16string path = u"USB\\VID_1D6B&PID_0104\\S1";
      answer->out.resize((path.size() + 1) * 2);
      std::memcpy(answer->out.data(), path.c_str(), answer->out.size());
      return true;
    };
    driver_.answers[IOCTL_TRELLIS_QueryVcomFdoPdo] = {0, Bytes(VcomNames(u"\\Device\\QdxVcom0001"))};
  }
  void TearDown() override { os::posix::SetDeviceSource(nullptr); }

  static bool AnswerTwo(char* buffer, int capacity) {
    std::snprintf(buffer, static_cast<size_t>(capacity), "2");
    return true;
  }

  FakeDriver driver_;
  VcomRecordList list_;
};

constexpr char kForeignId[] = "    Unexpect! For , VCOM DeviceId does not start with QDX_VBUS\\Qdx_vcom\n";

TEST_F(EnumerationTest, ListsEveryPortChecksOurLinksAndOffersTheDialog) {
  driver_.dos_devices["COM7"] = "\\Device\\Serial0";
  const std::string out = Printed([&] { EnumerateVcoms(list_, true, true, &AnswerTwo); });
  EXPECT_EQ(out,
            "<#1>\n"
            "    Friendly name: TRELLIS VCOM (COM7)\n"
            "  * Service name : Qdx_trellis\n"
            "    DevOpenPath  : \"\\\\?\\QDX_VBUS#Qdx_vcom#0001\"\n"
            "    Devinstpath  : QDX_VBUS\\Qdx_vcom\\0001\n"
            "    HwDevinstpath: USB\\VID_1D6B&PID_0104\\S1\n"
            "    !!!\n"
            "    Warning: COM7 does not point to the correct VCOM device.\n"
            "    * Wrong symlink target(session): \\Device\\Serial0\n"
            "    * Correct symlink target       : \\Device\\QdxVcom0001\n"
            "    -- You may need to reboot Windows to solve this problem.\n"
            "<#2>\n"
            "    Device name  : Communications Port\n"
            "Warning! No PortName regitem in this VCOM hwkey.\n"
            "    Service name : Serial\n"
            "    DevOpenPath  : \"\\\\?\\ACPI#PNP0501#1\"\n"
            "    Devinstpath  : ACPI\\PNP0501\\1\n"
            "<#3>\n"
            "    Unexpect: SetupDiGetDeviceInterfaceDetail() fail.\n"
            "<#4>\n"
            "    Friendly name: Odd port\n"
            "  * Service name : QDX_TRELLIS\n"
            "    DevOpenPath  : \"\\\\.\\odd\"\n"
            "    Devinstpath  : ROOT\\PORTS\\0000\n" +
                std::string(kForeignId) +
                "Total 4 VCOM devices found.\n\n"
                "Want to view VCOM device property dialog(input number 1-4)? ");
  ASSERT_EQ(list_.count(), 4);
  EXPECT_STREQ(list_.At(0)->portName, "COM7");
  EXPECT_STREQ(list_.At(0)->pdoName, "\\Device\\QdxPdo0001");
  EXPECT_EQ(list_.At(1)->isOurs, 0);
  EXPECT_STREQ(list_.At(2)->devinstId, "");
  EXPECT_EQ(list_.At(-1)->isOurs, 1);
  EXPECT_EQ(driver_.dialogs, std::vector<std::string>{"/DeviceID ACPI\\PNP0501\\1"});
  // The query names the VCOM by the part of its ID behind the prefix.
  for (const Sent& sent : driver_.sent) {
    if (sent.code == IOCTL_TRELLIS_QueryVcomFdoPdo) {
      EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(sent.in.data())), u"0001");
    }
  }
}

// Without a listing option only the link check speaks.
TEST_F(EnumerationTest, UnlistedRunsReportOnlyBrokenLinks) {
  const struct {
    const char* what;
    void (*setup)(FakeDriver&);
    std::string printed;
  } kRuns[] = {
      {"link correct (letter case aside)",
       [](FakeDriver& d) { d.dos_devices["COM7"] = "\\DEVICE\\qdxvcom0001"; }, kForeignId},
      {"link and kernel link wrong",
       [](FakeDriver& d) {
         d.dos_devices["COM7"] = "\\Device\\Serial0";
         d.answers[IOCTL_TRELLIS_QueryVcomFdoPdo] = {0, Bytes(VcomNames(u"\\Device\\QdxVcom0002"))};
       },
       "    !!!\n    Warning: COM7 does not point to the correct VCOM device.\n"
       "    * Wrong symlink target(session): \\Device\\Serial0\n"
       "    * Wrong symlink target (kernel): \\Device\\QdxVcom0002\n"
       "    * Correct symlink target       : \\Device\\QdxVcom0001\n"
       "    -- You may need to reboot Windows to solve this problem.\n" +
           std::string(kForeignId)},
      {"link missing", [](FakeDriver&) {},
       "    !!!\n    Warning: COM7 symlink is missing from system.\n"
       "    * Correct symlink target: \\Device\\QdxVcom0001\n"
       "    -- You may need to reboot Windows to solve this problem.\n" +
           std::string(kForeignId)},
      {"driver too old", [](FakeDriver& d) { d.answers.erase(IOCTL_TRELLIS_QueryVcomFdoPdo); },
       "    TRELLIS kernel does not support IOCTL_TRELLIS_QueryVcomFdoPdo, version too old.\n" +
           std::string(kForeignId)},
      {"no bus", [](FakeDriver& d) { d.bus_present = false; }, kForeignId},
  };
  for (const auto& run : kRuns) {
    FakeDriver driver;
    driver.answer_for = driver_.answer_for;
    driver.answers = driver_.answers;
    run.setup(driver);
    VcomRecordList list;
    EXPECT_EQ(Printed([&] { EnumerateVcoms(list, false, true, &AnswerTwo); }), run.printed) << run.what;
    EXPECT_EQ(list.count(), 4) << run.what;
    EXPECT_TRUE(driver.dialogs.empty()) << run.what;
  }
}

TEST_F(EnumerationTest, ShortListingOptionAndNoPortsAskNothing) {
  driver_.dos_devices["COM7"] = "\\Device\\QdxVcom0001";
  EXPECT_EQ(Printed([&] { EnumerateVcoms(list_, true, false, &AnswerTwo); }).find("Want"), std::string::npos);
  os::posix::SetDeviceSource([] { return std::vector<os::posix::DeviceEntry>{}; });
  VcomRecordList empty;
  EXPECT_EQ(Printed([&] { EnumerateVcoms(empty, true, true, &AnswerTwo); }),
            "Total 0 VCOM devices found.\n\n");
  EXPECT_TRUE(driver_.dialogs.empty());
}

}  // namespace
}  // namespace portwren::drivertest
