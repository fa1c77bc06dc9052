// The Linux listing over a made-up sysfs tree: a USB adapter, an on-board UART behind the serial
// core's port devices, a USB device with no by-id link and an unreadable serial number, an empty
// UART slot and virtual terminals (not listed). No driver package answers here.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "driver/vcom_enum.h"
#include "platform/posix/device_source.h"

namespace portwren {
namespace {

namespace fs = std::filesystem;

class SysfsListingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = fs::temp_directory_path() / ("portwren_sysfs_" + std::to_string(::getpid()));
    fs::remove_all(root_);
    BuildTree();
    os::posix::SetDeviceRoot(root_.string());
  }
  void TearDown() override {
    os::posix::SetDeviceRoot("");
    fs::remove_all(root_);
  }

  void File(const std::string& path, const std::string& text) {
    fs::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << text;
  }
  void Link(const std::string& path, const std::string& target) {
    fs::create_directories((root_ / path).parent_path());
    fs::create_symlink(target, root_ / path);
  }
  // A tty's class directory under its device, and its entry in sys/class/tty.
  void Tty(const std::string& device, const std::string& name) {
    const std::string dir = device + "/tty/" + name;
    File(dir + "/uevent", "MAJOR=4\nMINOR=64\nDEVNAME=" + name + "\n");
    Link(dir + "/device", "../..");
    Link("sys/class/tty/" + name, "../../../" + dir);
  }

  void BuildTree() {
    const std::string usb = "sys/devices/pci0000:00/0000:00:14.0/usb1";
    // An FTDI adapter: the usb-serial port device sits below the interface.
    File(usb + "/1-2/idVendor", "0403\n");
    File(usb + "/1-2/idProduct", "6001\n");
    File(usb + "/1-2/manufacturer", "FTDI\n");
    File(usb + "/1-2/product", "FT232R USB UART\n");
    File(usb + "/1-2/serial", "A50285BI\n");
    Link(usb + "/1-2/1-2:1.0/ttyUSB0/driver", "../../../../../../../bus/usb-serial/drivers/ftdi_sio");
    Tty(usb + "/1-2/1-2:1.0/ttyUSB0", "ttyUSB0");
    Link("dev/serial/by-id/usb-FTDI_FT232R_USB_UART_A50285BI-if00-port0", "../../ttyUSB0");
    Link("dev/serial/by-path/pci-0000:00:14.0-usb-0:2:1.0-port0", "../../ttyUSB0");
    // A CDC ACM board: no product, a serial number that cannot be read, no by-id link.
    File(usb + "/1-3/idVendor", "2341\n");
    File(usb + "/1-3/idProduct", "0043\n");
    File(usb + "/1-3/manufacturer", "Arduino (www.arduino.cc)\n");
    fs::create_directories(root_ / usb / "1-3/serial");
    Link(usb + "/1-3/1-3:1.0/driver", "../../../../../../bus/usb/drivers/cdc_acm");
    Tty(usb + "/1-3/1-3:1.0", "ttyACM0");
    // An on-board UART: the serial core's port and controller stand between it and its driver.
    const std::string pnp = "sys/devices/pnp0/00:01";
    File(pnp + "/id", "PNP0501\n");
    Link(pnp + "/driver", "../../../bus/pnp/drivers/serial");
    Link(pnp + "/00:01:0/subsystem", "../../../../bus/serial-base");
    Link(pnp + "/00:01:0/driver", "../../../../bus/serial-base/drivers/ctrl");
    Link(pnp + "/00:01:0/00:01:0.0/subsystem", "../../../../../bus/serial-base");
    Link(pnp + "/00:01:0/00:01:0.0/driver", "../../../../../bus/serial-base/drivers/port");
    Tty(pnp + "/00:01:0/00:01:0.0", "ttyS4");
    File(pnp + "/00:01:0/00:01:0.0/tty/ttyS4/type", "4\n");
    // A UART slot with nothing behind it, and virtual terminals.
    Link("sys/devices/platform/serial8250/driver", "../../../bus/platform/drivers/serial8250");
    Tty("sys/devices/platform/serial8250", "ttyS1");
    File("sys/devices/platform/serial8250/tty/ttyS1/type", "0\n");
    for (const char* name : {"tty0", "ptmx", "console"}) {
      File(std::string("sys/devices/virtual/tty/") + name + "/uevent", "MAJOR=5\n");
      Link(std::string("sys/class/tty/") + name, std::string("../../devices/virtual/tty/") + name);
    }
  }

  fs::path root_;
};

TEST_F(SysfsListingTest, ListsTheSerialDevicesInBlocks) {
  VcomRecordList list;
  testing::internal::CaptureStdout();
  EnumerateVcoms(list, true, false);
  std::string expected =
      "<#1>\n"
      "    Friendly name: USB serial port\n"
      "    Service name : cdc_acm\n"
      "    DevOpenPath  : \"/dev/ttyACM0\"\n"
      "    Devinstpath  : USB/1-3/1-3:1.0\n"
      "    HwDevinstpath: USB/1-3\n"
      "    VID:PID      : 2341:0043\n"
      "    Manufacturer : Arduino (www.arduino.cc)\n"
      "<#2>\n"
      "    Friendly name: Serial port (PNP0501)\n"
      "    Service name : serial\n"
      "    DevOpenPath  : \"/dev/ttyS4\"\n"
      "    Devinstpath  : /sys/devices/pnp0/00:01/00:01:0/00:01:0.0\n"
      "<#3>\n"
      "    Friendly name: FT232R USB UART\n"
      "    Service name : ftdi_sio\n"
      "    DevOpenPath  : \"/dev/ttyUSB0\"\n"
      "    Devinstpath  : USB/1-2/1-2:1.0/ttyUSB0\n"
      "    HwDevinstpath: USB/1-2\n"
      "    VID:PID      : 0403:6001\n"
      "    Manufacturer : FTDI\n"
      "    Serial number: A50285BI\n"
      "    By-id link   : /dev/serial/by-id/usb-FTDI_FT232R_USB_UART_A50285BI-if00-port0\n"
      "Total 3 VCOM devices found.\n\n";
  for (size_t at; (at = expected.find("USB/")) != std::string::npos;) {
    expected.replace(at, 3, "/sys/devices/pci0000:00/0000:00:14.0/usb1");
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
  // None is the driver package's: no link check, nothing marked as ours.
  for (int i = 0; i < list.count(); ++i) EXPECT_EQ(list.At(i)->isOurs, 0);
}

}  // namespace
}  // namespace portwren
