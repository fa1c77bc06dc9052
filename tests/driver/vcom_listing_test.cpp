// The VCOM listing: the lines of a block, the link reports, the dialog question, and the whole
// enumeration over recorded devices with a fake driver behind them.
#include "driver/vcom_listing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/control_codes.h"
#include "driver/driver_records.h"
#include "driver/vcom_enum.h"
#include "driver/vcom_symlink.h"
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

PortFacts Facts(std::optional<std::string> friendly, std::optional<std::string> description, bool port_name,
                std::optional<std::string> service, std::optional<std::string> id,
                std::optional<std::string> hw) {
  PortFacts facts;
  facts.detail_ok = true;
  facts.open_path = "\\\\.\\COM7";
  facts.friendly_name = std::move(friendly);
  facts.description = std::move(description);
  facts.has_port_name = port_name;
  facts.service = std::move(service);
  facts.instance_id = std::move(id);
  facts.hardware_path = std::move(hw);
  return facts;
}

TEST(VcomListingTest, BlockLines) {
  PortFacts with_extras = Facts("ttyUSB0 adapter", std::nullopt, true, "ftdi_sio", "/sys/x", "/sys/usb");
  with_extras.extra_lines = {{"VID:PID", "0403:6001"}, {"By-id link", "/dev/serial/by-id/a"}};
  const struct {
    PortFacts facts;
    std::string lines;
  } kBlocks[] = {
      {Facts("TRELLIS VCOM (COM7)", "TRELLIS VCOM", true, "qdx_TRELLIS", "QDX_VBUS\\Qdx_vcom\\0001",
             "USB\\V\\1"),
       "<#3>\n    Friendly name: TRELLIS VCOM (COM7)\n  * Service name : qdx_TRELLIS\n"
       "    DevOpenPath  : \"\\\\.\\COM7\"\n    Devinstpath  : QDX_VBUS\\Qdx_vcom\\0001\n"
       "    HwDevinstpath: USB\\V\\1\n"},
      {Facts(std::nullopt, "Communications Port", false, "Serial", std::nullopt, std::nullopt),
       "<#3>\n    Device name  : Communications Port\nWarning! No PortName regitem in this VCOM hwkey.\n"
       "    Service name : Serial\n    DevOpenPath  : \"\\\\.\\COM7\"\n"},
      {Facts(std::nullopt, std::nullopt, true, std::nullopt, "ROOT\\1", std::nullopt),
       "<#3>\n    DevOpenPath  : \"\\\\.\\COM7\"\n    Devinstpath  : ROOT\\1\n"},
      {with_extras,
       "<#3>\n    Friendly name: ttyUSB0 adapter\n    Service name : ftdi_sio\n    DevOpenPath  : "
       "\"\\\\.\\COM7\"\n"
       "    Devinstpath  : /sys/x\n    HwDevinstpath: /sys/usb\n    VID:PID      : 0403:6001\n"
       "    By-id link   : /dev/serial/by-id/a\n"},
      {PortFacts{}, "<#3>\n    Unexpect: SetupDiGetDeviceInterfaceDetail() fail.\n"},
  };
  SetListingPrinted(true);
  for (const auto& block : kBlocks) EXPECT_EQ(Printed([&] { PrintPortBlock(3, block.facts); }), block.lines);
  EXPECT_EQ(Printed([] { PrintListingTotal(0); }), "Total 0 VCOM devices found.\n\n");
  SetListingPrinted(false);
  EXPECT_EQ(Printed([&] {
              PrintPortBlock(1, kBlocks[0].facts);
              PrintListingTotal(1);
            }),
            "");
}

VcomRecord Record(const char* port, const char* fdo, const char* kernel) {
  VcomRecord record{};
  std::strcpy(record.portName, port);
  std::strcpy(record.fdoName, fdo);
  std::strcpy(record.kernelLinkTarget, kernel);
  return record;
}

TEST(VcomListingTest, LinkReports) {
  const struct {
    VcomRecord record;
    uint32_t dos_count;
    const char* target;
    bool correct;
    const char* printed;
  } kReports[] = {
      {Record("COM7", "\\Device\\QdxVcom1", "\\Device\\QdxVcom1"), 19, "\\device\\QDXVCOM1", true, ""},
      {Record("COM7", "\\Device\\QdxVcom1", "\\Device\\QdxVcom1"), 19, "\\Device\\Serial0", false,
       "    !!!\n    Warning: COM7 does not point to the correct VCOM device.\n"
       "    * Wrong symlink target(session): \\Device\\Serial0\n"
       "    * Correct symlink target       : \\Device\\QdxVcom1\n"
       "    -- You may need to reboot Windows to solve this problem.\n"},
      {Record("COM7", "\\Device\\QdxVcom1", "\\Device\\QdxVcom4"), 19, "\\Device\\Serial0", false,
       "    !!!\n    Warning: COM7 does not point to the correct VCOM device.\n"
       "    * Wrong symlink target(session): \\Device\\Serial0\n"
       "    * Wrong symlink target (kernel): \\Device\\QdxVcom4\n"
       "    * Correct symlink target       : \\Device\\QdxVcom1\n"
       "    -- You may need to reboot Windows to solve this problem.\n"},
      {Record("COM9", "\\Device\\QdxVcom2", "\\Device\\QdxVcom2"), 0, "", false,
       "    !!!\n    Warning: COM9 symlink is missing from system.\n"
       "    * Correct symlink target: \\Device\\QdxVcom2\n"
       "    -- You may need to reboot Windows to solve this problem.\n"},
  };
  for (const auto& report : kReports) {
    bool correct = false;
    EXPECT_EQ(Printed([&] { correct = ReportVcomSymlink(report.record, report.dos_count, report.target); }),
              report.printed);
    EXPECT_EQ(correct, report.correct) << report.printed;
  }
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
  list.At(2)->devinstId[0] = 'Z';
  EXPECT_EQ(list.At(-1), list.At(2));
  EXPECT_EQ(list.At(-3), list.At(0));
  EXPECT_EQ(list.At(3), nullptr);
  EXPECT_EQ(list.At(-4), nullptr);
  ASSERT_EQ(list.Resize(1, true), 0);
  ASSERT_EQ(list.Resize(2, true), 0);
  EXPECT_EQ(list.count(), 2);
  EXPECT_EQ(list.At(0)->isOurs, 1);
  EXPECT_EQ(list.At(1)->devinstId[0], '\0');
}

// Recorded devices for the enumeration: a VCOM of the package, a physical port, an interface
// whose path does not fit the detail, one of ours with a foreign ID, and another class.
std::vector<os::posix::DeviceEntry> RecordedDevices() {
  using os::posix::DeviceEntry;
  constexpr os::Guid kOtherClass = {1, 2, 3, {4}};
  DeviceEntry vcom{os::kGuidDevInterfaceComPort,
                   "\\\\?\\QDX_VBUS#Qdx_vcom#0001",
                   "QDX_VBUS\\Qdx_vcom\\0001",
                   "TRELLIS VCOM (COM7)",
                   "TRELLIS VCOM",
                   "Qdx_trellis",
                   "COM7",
                   "",
                   {}};
  DeviceEntry physical{os::kGuidDevInterfaceComPort,
                       "\\\\?\\ACPI#PNP0501#1",
                       "ACPI\\PNP0501\\1",
                       "",
                       "Communications Port",
                       "Serial",
                       "",
                       "",
                       {}};
  DeviceEntry long_path{
      os::kGuidDevInterfaceComPort, std::string(300, 'p'), "ROOT\\LONG\\0", "Long", "", "", "", "", {}};
  DeviceEntry foreign{os::kGuidDevInterfaceComPort,
                      "\\\\.\\odd",
                      "ROOT\\PORTS\\0000",
                      "Odd port",
                      "",
                      "QDX_TRELLIS",
                      "COM8",
                      "",
                      {}};
  DeviceEntry other{kOtherClass, "\\\\.\\other", "ROOT\\OTHER\\0", "Other", "", "Qdx_trellis", "", "", {}};
  return {vcom, physical, other, long_path, foreign};
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
      {"link correct", [](FakeDriver& d) { d.dos_devices["COM7"] = "\\Device\\QdxVcom0001"; }, kForeignId},
      {"link missing, kernel target wrong",
       [](FakeDriver& d) {
         d.answers[IOCTL_TRELLIS_QueryVcomFdoPdo] = {0, Bytes(VcomNames(u"\\Device\\QdxVcom0002"))};
       },
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
