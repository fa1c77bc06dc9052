// The serial devices of this system, as sysfs shows them. Attributes are read only when they
// are regular files, so no device node is ever opened (on these machines /dev/ttyS0 is the
// system console).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/posix/device_source.h"

namespace portwren::os::posix {

namespace {

namespace fs = std::filesystem;

std::mutex g_root_mutex;
std::string g_root;

// The first line of a sysfs attribute, without trailing blanks; nothing when it is not a
// regular file or cannot be read.
std::optional<std::string> ReadAttribute(const fs::path& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  char buffer[512];
  const ssize_t got = ::read(fd, buffer, sizeof buffer);
  ::close(fd);
  if (got < 0) return std::nullopt;
  std::string text(buffer, static_cast<size_t>(got));
  text = text.substr(0, text.find_first_of(std::string("\n\0", 2)));
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  return text;
}

std::string LinkName(const fs::path& link) {
  std::error_code ec;
  const fs::path target = fs::read_symlink(link, ec);
  return ec ? std::string() : target.filename().string();
}

// A "KEY=value" line of a uevent attribute.
std::string UeventValue(const fs::path& uevent, const std::string& key) {
  struct stat info;
  if (::stat(uevent.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  const int fd = ::open(uevent.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return {};
  char buffer[4096];
  const ssize_t got = ::read(fd, buffer, sizeof buffer);
  ::close(fd);
  if (got <= 0) return {};
  const std::string text(buffer, static_cast<size_t>(got));
  const std::string wanted = key + "=";
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    if (text.compare(at, wanted.size(), wanted) == 0)
      return text.substr(at + wanted.size(), end - at - wanted.size());
    at = end + 1;
  }
  return {};
}

class Tree {
 public:
  explicit Tree(const std::string& root) {
    std::error_code ec;
    root_ = fs::canonical(root.empty() ? fs::path("/") : fs::path(root), ec);
    if (ec) root_.clear();
    devices_ = root_ / "sys" / "devices";
  }

  bool ok() const { return !root_.empty(); }
  fs::path At(const char* relative) const { return root_ / relative; }

  // The path as it reads on the machine whose tree this is.
  std::string Logical(const fs::path& path) const {
    const fs::path relative = path.lexically_relative(root_);
    return (fs::path("/") / relative).lexically_normal().string();
  }

  // From the device up towards sys/devices, stopping there.
  template <typename Visit>
  void Upwards(fs::path dir, Visit visit) const {
    for (int depth = 0; depth < 32 && Within(dir); ++depth, dir = dir.parent_path()) {
      if (visit(dir)) return;
    }
  }

 private:
  bool Within(const fs::path& dir) const {
    const fs::path relative = dir.lexically_relative(devices_);
    return !relative.empty() && *relative.begin() != ".." && relative != ".";
  }

  fs::path root_;
  fs::path devices_;
};

// The kernel driver of a tty's device: the serial core's own port and controller devices
// (bus serial-base) stand in front of the driver of the hardware.
std::string KernelDriver(const Tree& tree, const fs::path& device) {
  std::string driver;
  tree.Upwards(device, [&](const fs::path& dir) {
    if (LinkName(dir / "subsystem") == "serial-base") return false;
    driver = LinkName(dir / "driver");
    return true;
  });
  return driver;
}

std::optional<fs::path> UsbDevice(const Tree& tree, const fs::path& device) {
  std::optional<fs::path> usb;
  tree.Upwards(device, [&](const fs::path& dir) {
    if (ReadAttribute(dir / "idVendor") && ReadAttribute(dir / "idProduct")) usb = dir;
    return usb.has_value();
  });
  return usb;
}

// What the firmware calls a device that is not on USB, or its hardware id.
std::string Description(const Tree& tree, const fs::path& device) {
  std::string description;
  tree.Upwards(device, [&](const fs::path& dir) {
    if (auto text = ReadAttribute(dir / "firmware_node" / "description"); text && !text->empty()) {
      description = *text;
      return true;
    }
    for (const char* id : {"id", "firmware_node/hid", "of_node/compatible"}) {
      if (auto text = ReadAttribute(dir / id); text && !text->empty()) {
        description = "Serial port (" + *text + ")";
        return true;
      }
    }
    return false;
  });
  return description.empty() ? "Serial port" : description;
}

std::string ByIdLink(const Tree& tree, const std::string& devname) {
  std::error_code ec;
  const fs::path dir = tree.At("dev/serial/by-id");
  const fs::path wanted = fs::path("/dev") / devname;
  std::vector<std::string> found;
  for (const fs::directory_entry& link : fs::directory_iterator(dir, ec)) {
    const fs::path target = fs::read_symlink(link.path(), ec);
    if (ec) continue;
    const fs::path resolved = target.is_absolute()
                                  ? target.lexically_normal()
                                  : (fs::path("/dev/serial/by-id") / target).lexically_normal();
    if (resolved == wanted) found.push_back("/dev/serial/by-id/" + link.path().filename().string());
  }
  std::sort(found.begin(), found.end());
  return found.empty() ? std::string() : found.front();
}

// ttyS2 before ttyS10: the letters, then the number behind them.
bool NameOrder(const DeviceEntry& a, const DeviceEntry& b) {
  auto split = [](const std::string& path) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    size_t digits = name.size();
    while (digits > 0 && std::isdigit(static_cast<unsigned char>(name[digits - 1]))) --digits;
    const std::string number = name.substr(digits);
    return std::make_tuple(name.substr(0, digits), number.size(), number);
  };
  return split(a.interface_path) < split(b.interface_path);
}

std::optional<DeviceEntry> SerialDevice(const Tree& tree, const fs::path& tty) {
  std::error_code ec;
  const fs::path device = fs::canonical(tty / "device", ec);
  if (ec) return std::nullopt;                                  // virtual: consoles, ptmx, virtual terminals
  if (ReadAttribute(tty / "type") == "0") return std::nullopt;  // a UART slot with no UART
  const std::string name = tty.filename().string();
  std::string devname = UeventValue(tty / "uevent", "DEVNAME");
  if (devname.empty()) devname = name;

  DeviceEntry entry;
  entry.interface_class = kGuidDevInterfaceComPort;
  entry.interface_path = "/dev/" + devname;
  entry.instance_id = tree.Logical(device);
  entry.service = KernelDriver(tree, device);
  entry.port_name = name;
  auto add = [&entry](const char* label, const std::optional<std::string>& value) {
    if (value && !value->empty()) entry.extra_lines.emplace_back(label, *value);
  };
  if (const auto usb = UsbDevice(tree, device)) {
    entry.hardware_path = tree.Logical(*usb);
    const auto product = ReadAttribute(*usb / "product");
    entry.description = product && !product->empty() ? *product : "USB serial port";
    add("VID:PID", *ReadAttribute(*usb / "idVendor") + ":" + *ReadAttribute(*usb / "idProduct"));
    add("Manufacturer", ReadAttribute(*usb / "manufacturer"));
    add("Serial number", ReadAttribute(*usb / "serial"));
  }
  if (entry.description.empty()) entry.description = Description(tree, device);
  entry.friendly_name = entry.description;
  add("By-id link", ByIdLink(tree, devname));
  return entry;
}

}  // namespace

std::vector<DeviceEntry> SerialDevicesUnder(const std::string& root) {
  const Tree tree(root);
  std::vector<DeviceEntry> entries;
  if (!tree.ok()) return entries;
  std::error_code ec;
  for (const fs::directory_entry& tty : fs::directory_iterator(tree.At("sys/class/tty"), ec)) {
    if (auto entry = SerialDevice(tree, tty.path())) entries.push_back(std::move(*entry));
  }
  std::sort(entries.begin(), entries.end(), NameOrder);
  return entries;
}

std::vector<DeviceEntry> SystemDevices() {
  std::string root;
  {
    std::lock_guard<std::mutex> lock(g_root_mutex);
    root = g_root;
  }
  return SerialDevicesUnder(root);
}

void SetDeviceRoot(const std::string& root) {
  std::lock_guard<std::mutex> lock(g_root_mutex);
  g_root = root;
}

}  // namespace portwren::os::posix
