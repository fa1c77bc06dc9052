#include "driver/driver_link.h"

#include <atomic>

#include "driver/control_codes.h"
#include "driver/control_interface.h"
#include "platform/os_device_control.h"
#include "platform/os_device_enum.h"
#include "support/handle_holder.h"

namespace portwren {

namespace {

bool Issue(os::Handle device, const ControlRequest& request) {
  return os::DeviceIoControl(device, request.code, request.in, request.in_size, request.out, request.out_size,
                             request.returned, nullptr);
}

class SystemDriverLink final : public DriverLink {
 public:
  bool Send(DriverTarget target, const ControlRequest& request, bool* opened) override {
    HandleHolder device(
        target == DriverTarget::kControl
            ? OpenControlInterface(false)
            : os::CreateFileA(
                  kVbusPath,
                  os::kGenericRead | (target == DriverTarget::kBusReadWrite ? os::kGenericWrite : 0),
                  os::kFileShareRead | os::kFileShareWrite, os::kOpenExisting, 0));
    *opened = device.valid();
    if (!device) return false;
    const bool ok = Issue(device.get(), request);
    // The report after the request reads the request's error, not the close's.
    const os::Dword error = os::GetLastError();
    device.reset();
    os::SetLastError(error);
    return ok;
  }

  bool SendTo(os::Handle device, const ControlRequest& request) override { return Issue(device, request); }

  os::Dword QueryDosDevice(const char* name, char* target, os::Dword size) override {
    return os::QueryDosDeviceA(name, target, size);
  }

  bool RunDevicePropertiesDialog(const char* command_line) override {
    // Looked up once and kept; the library stays loaded for the process.
    static const os::DevicePropertiesRunDll entry = [] {
      os::Module devmgr = os::LoadLibraryA("devmgr.dll");
      void* proc = devmgr != nullptr ? os::GetProcAddress(devmgr, "DeviceProperties_RunDLLA") : nullptr;
      return reinterpret_cast<os::DevicePropertiesRunDll>(proc);
    }();
    if (entry == nullptr) return false;
    entry(nullptr, nullptr, command_line, 0);
    return true;
  }
};

SystemDriverLink g_system_link;
std::atomic<DriverLink*> g_link{&g_system_link};

}  // namespace

DriverLink& Driver() {
  return *g_link.load();
}

void SetDriverLink(DriverLink* link) {
  g_link.store(link != nullptr ? link : &g_system_link);
}

}  // namespace portwren
