// The SetupDi-shaped enumeration: the calls over a device list given by a test source (the
// sysfs listing itself is tested with the driver's listing, over a made-up tree).
#include <gtest/gtest.h>

#include <string>

#include "platform/os_device_enum.h"
#include "platform/posix/device_source.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;
using testing_util::ErrorOf;

constexpr Guid kOtherClass = {0x20161207, 0x6A0C, 0x11D2, {0xB8, 0x41, 0x00, 0xC0, 0x4F, 0xAD, 0x51, 0x71}};

std::vector<posix::DeviceEntry> TwoDevices() {
  return {{kOtherClass, "/dev/other", "ROOT\\OTHER\\0000", "", "", "", "", "", {}},
          {kGuidDevInterfaceComPort,
           "/dev/ttyUSB0",
           "USB\\VID_0403&PID_6001\\A1",
           "USB Serial Port (COM7)",
           "USB Serial Port",
           "ftdi_sio",
           "COM7",
           "/sys/usb/1-2",
           {{"VID:PID", "0403:6001"}}}};
}

class DeviceEnumTest : public ::testing::Test {
 protected:
  ~DeviceEnumTest() override { posix::SetDeviceSource(nullptr); }

  // The set's first interface of the class, and its device.
  void First(const DevInfoSetHolder& set, const Guid& interface_class = kGuidDevInterfaceComPort) {
    ASSERT_TRUE(set);
    ASSERT_TRUE(SetupDiEnumDeviceInterfaces(set.get(), nullptr, &interface_class, 0, &data));
    EXPECT_TRUE(data.InterfaceClassGuid == interface_class);
    detail->cbSize = sizeof(DeviceInterfaceDetailA);
    ASSERT_TRUE(SetupDiGetDeviceInterfaceDetailA(set.get(), &data, detail, sizeof storage, nullptr, &device));
  }

  const bool source_set_ = (posix::SetDeviceSource(TwoDevices), true);  // before ports is made
  DevInfoSetHolder ports{
      SetupDiGetClassDevsA(&kGuidDevInterfaceComPort, nullptr, kDigcfPresent | kDigcfDeviceInterface)};
  DeviceInterfaceData data;
  alignas(8) char storage[260] = {};
  DeviceInterfaceDetailA* detail = reinterpret_cast<DeviceInterfaceDetailA*>(storage);
  DevInfoData device;
};

// A tree without serial devices lists none; nothing here knows DOS names or Windows libraries.
TEST(SystemDevicesTest, NoDevicesNoDosNamesNoLibraries) {
  posix::SetDeviceRoot("/nonexistent-portwren-root");
  DevInfoSetHolder set(
      SetupDiGetClassDevsA(&kGuidDevInterfaceComPort, nullptr, kDigcfPresent | kDigcfDeviceInterface));
  posix::SetDeviceRoot("");
  ASSERT_TRUE(set);
  DeviceInterfaceData data;
  EXPECT_EQ(ErrorOf(SetupDiEnumDeviceInterfaces(set.get(), nullptr, &kGuidDevInterfaceComPort, 0, &data)),
            kErrNoMoreItems);
  char target[260];
  EXPECT_EQ(ErrorOf(QueryDosDeviceA("COM7", target, sizeof target) != 0), kErrFileNotFound);
  EXPECT_EQ(LoadLibraryA("devmgr.dll"), nullptr);
}

TEST_F(DeviceEnumTest, TheClassAskedForAndTheDetailWithThePathOrTheSizeItNeeds) {
  First(ports);
  EXPECT_EQ(ErrorOf(SetupDiEnumDeviceInterfaces(ports.get(), nullptr, &kGuidDevInterfaceComPort, 1, &data)),
            kErrNoMoreItems);
  DevInfoSetHolder all(SetupDiGetClassDevsA(nullptr, nullptr, kDigcfAllClasses | kDigcfDeviceInterface));
  EXPECT_TRUE(SetupDiEnumDeviceInterfaces(all.get(), nullptr, &kOtherClass, 0, &data));
  DevInfoSetHolder usb(SetupDiGetClassDevsW(&kGuidDevInterfaceComPort, u"usb", kDigcfDeviceInterface));
  EXPECT_TRUE(SetupDiEnumDeviceInterfaces(usb.get(), nullptr, &kGuidDevInterfaceComPort, 0, &data));
  DevInfoSetHolder none(SetupDiGetClassDevsA(&kGuidDevInterfaceComPort, "ROOT", kDigcfDeviceInterface));
  EXPECT_FALSE(SetupDiEnumDeviceInterfaces(none.get(), nullptr, &kGuidDevInterfaceComPort, 0, &data));

  First(ports);
  EXPECT_STREQ(detail->DevicePath, "/dev/ttyUSB0");
  EXPECT_EQ(sizeof(DeviceInterfaceDetailA), 8u);
  Dword required = 0;
  EXPECT_EQ(ErrorOf(SetupDiGetDeviceInterfaceDetailA(ports.get(), &data, detail, 10, &required, nullptr)),
            kErrInsufficientBuffer);
  EXPECT_EQ(required, 4u + sizeof("/dev/ttyUSB0"));
  alignas(8) char wide_storage[260] = {};
  auto* wide = reinterpret_cast<DeviceInterfaceDetailW*>(wide_storage);
  wide->cbSize = sizeof(DeviceInterfaceDetailW);
  ASSERT_TRUE(
      SetupDiGetDeviceInterfaceDetailW(ports.get(), &data, wide, sizeof wide_storage, nullptr, nullptr));
  EXPECT_EQ(std::u16string(wide->DevicePath), u"/dev/ttyUSB0");
  detail->cbSize = 5;  // a wrong size field is the caller's error
  EXPECT_FALSE(
      SetupDiGetDeviceInterfaceDetailA(ports.get(), &data, detail, sizeof storage, nullptr, nullptr));
}

TEST_F(DeviceEnumTest, PropertiesInstanceIdPortNameAndExtras) {
  First(ports);
  char text[260] = {};
  Dword type = 0;
  ASSERT_TRUE(SetupDiGetDeviceRegistryPropertyA(ports.get(), &device, kSpdrpFriendlyName, &type, text,
                                                sizeof text, nullptr));
  EXPECT_STREQ(text, "USB Serial Port (COM7)");
  EXPECT_EQ(type, kRegSz);
  ASSERT_TRUE(SetupDiGetDeviceRegistryPropertyA(ports.get(), &device, kSpdrpService, nullptr, text,
                                                sizeof text, nullptr));
  EXPECT_STREQ(text, "ftdi_sio");
  Dword required = 0;
  EXPECT_EQ(ErrorOf(SetupDiGetDeviceInstanceIdA(ports.get(), &device, text, 4, &required)),
            kErrInsufficientBuffer);
  ASSERT_TRUE(SetupDiGetDeviceInstanceIdA(ports.get(), &device, text, sizeof text, nullptr));
  EXPECT_STREQ(text, "USB\\VID_0403&PID_6001\\A1");

  RegKeyHolder key(SetupDiOpenDevRegKey(ports.get(), &device, kDicsFlagGlobal, 0, kDiregDev, kKeyRead));
  ASSERT_TRUE(key);
  Dword size = 2;
  EXPECT_EQ(RegQueryValueExA(key.get(), "PortName", &type, text, &size), kErrMoreData);
  EXPECT_EQ(size, 5u);
  size = 8;
  ASSERT_EQ(RegQueryValueExA(key.get(), "PortName", &type, text, &size), kErrSuccess);
  EXPECT_STREQ(text, "COM7");
  EXPECT_EQ(RegQueryValueExA(key.get(), "Missing", &type, text, &size), kErrFileNotFound);

  DeviceExtras extras;
  ASSERT_TRUE(GetDeviceExtras(ports.get(), &device, &extras));
  EXPECT_EQ(extras.hardware_path, "/sys/usb/1-2");
  ASSERT_EQ(extras.lines.size(), 1u);
  EXPECT_EQ(extras.lines[0].second, "0403:6001");
}

TEST_F(DeviceEnumTest, MissingPropertiesAndBadHandlesFail) {
  DevInfoSetHolder set(SetupDiGetClassDevsA(&kOtherClass, nullptr, kDigcfDeviceInterface));
  First(set, kOtherClass);
  char text[64];
  EXPECT_EQ(ErrorOf(SetupDiGetDeviceRegistryPropertyA(set.get(), &device, kSpdrpFriendlyName, nullptr, text,
                                                      sizeof text, nullptr)),
            kErrInvalidData);
  RegKeyHolder key(SetupDiOpenDevRegKey(set.get(), &device, kDicsFlagGlobal, 0, kDiregDev, kKeyRead));
  Dword size = sizeof text;
  EXPECT_EQ(RegQueryValueExA(key.get(), "PortName", nullptr, text, &size), kErrFileNotFound);
  EXPECT_EQ(RegQueryValueExA(kInvalidHandle, "PortName", nullptr, text, &size), kErrInvalidHandle);
  EXPECT_EQ(RegCloseKey(kInvalidHandle), kErrInvalidHandle);
  EXPECT_FALSE(SetupDiDestroyDeviceInfoList(kInvalidHandle));
  DevInfoData stranger;
  stranger.Reserved = 99;
  EXPECT_FALSE(SetupDiGetDeviceInstanceIdA(set.get(), &stranger, text, sizeof text, nullptr));
}

}  // namespace
}  // namespace portwren
