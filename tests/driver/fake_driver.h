// A driver package in a box: answers each control request by its code with a recorded record or
// a failure, and knows which of its devices are there. Installed for the life of the object.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "driver/driver_link.h"
#include "platform/os_core.h"

namespace portwren::drivertest {

struct Answer {
  os::Dword error = 0;       // 0: the request succeeds
  std::vector<uint8_t> out;  // the answer's bytes (success only)
};

template <typename Record>
std::vector<uint8_t> Bytes(const Record& record) {
  std::vector<uint8_t> bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

// What a request looked like when it reached the driver.
struct Sent {
  DriverTarget target;  // kControl for requests on a held VCOM handle too: see `to_vcom`
  bool to_vcom = false;
  os::Dword code = 0;
  std::vector<uint8_t> in;
  os::Dword out_size = 0;
};

class FakeDriver final : public DriverLink {
 public:
  FakeDriver() { SetDriverLink(this); }
  ~FakeDriver() override { SetDriverLink(nullptr); }

  std::map<os::Dword, Answer> answers;  // a code not here: the driver does not know it (1)
  // Answers that depend on the request's input; asked before `answers`.
  std::function<bool(const Sent& request, Answer* answer)> answer_for;
  bool bus_present = true;      // no bus: its open fails with 2
  bool control_present = true;  // no control interface: 21, as its lookup says
  bool administrator = true;    // otherwise a writable bus open is refused with 5
  std::map<std::string, std::string> dos_devices;
  std::vector<Sent> sent;
  std::vector<std::string> dialogs;  // command lines of property dialogs opened

  bool Send(DriverTarget target, const ControlRequest& request, bool* opened) override {
    *opened = false;
    if (target == DriverTarget::kControl && !control_present) return Fail(os::kErrNotReady);
    if (target != DriverTarget::kControl && !bus_present) return Fail(os::kErrFileNotFound);
    if (target == DriverTarget::kBusReadWrite && !administrator) return Fail(os::kErrAccessDenied);
    *opened = true;
    return Reply(target, false, request);
  }

  bool SendTo(os::Handle /*device*/, const ControlRequest& request) override {
    return Reply(DriverTarget::kControl, true, request);
  }

  os::Dword QueryDosDevice(const char* name, char* target, os::Dword size) override {
    const auto found = dos_devices.find(name);
    if (found == dos_devices.end()) {
      os::SetLastError(os::kErrFileNotFound);
      return 0;
    }
    std::memset(target, 0, size);
    std::strncpy(target, found->second.c_str(), size - 2);  // a multi-string: two NULs
    return static_cast<os::Dword>(found->second.size() + 2);
  }

  bool RunDevicePropertiesDialog(const char* command_line) override {
    dialogs.emplace_back(command_line);
    return true;
  }

 private:
  static bool Fail(os::Dword error) {
    os::SetLastError(error);
    return false;
  }

  bool Reply(DriverTarget target, bool to_vcom, const ControlRequest& request) {
    const auto* in = static_cast<const uint8_t*>(request.in);
    sent.push_back({target, to_vcom, request.code,
                    std::vector<uint8_t>(in, in + (in != nullptr ? request.in_size : 0)), request.out_size});
    *request.returned = 0;
    Answer answer;
    if (!answer_for || !answer_for(sent.back(), &answer)) {
      const auto found = answers.find(request.code);
      if (found == answers.end()) return Fail(os::kErrInvalidFunction);
      answer = found->second;
    }
    if (answer.error != 0) return Fail(answer.error);
    if (answer.out.size() > request.out_size) return Fail(os::kErrInsufficientBuffer);
    if (!answer.out.empty()) std::memcpy(request.out, answer.out.data(), answer.out.size());
    *request.returned = static_cast<os::Dword>(answer.out.size());
    return true;
  }
};

}  // namespace portwren::drivertest
