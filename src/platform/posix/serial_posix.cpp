// The calls of os_serial.h, each handed to the SerialDevice behind the port's handle.
#include "platform/os_serial.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/request_target.h"
#include "platform/posix/serial_device.h"

namespace portwren::os {

namespace {

using posix::Fail;
using posix::SerialDevice;

// The port behind a handle. A handle of something else (a file) gets the answer Windows
// gives for a serial request its driver does not know: 1.
std::shared_ptr<SerialDevice> Port(Handle handle) {
  auto object = posix::LookupObject(handle);
  if (object == nullptr) {
    SetLastError(kErrInvalidHandle);
    return nullptr;
  }
  auto device = std::dynamic_pointer_cast<SerialDevice>(object);
  if (device == nullptr) SetLastError(kErrInvalidFunction);
  return device;
}

}  // namespace

bool GetCommState(Handle port, Dcb* dcb) {
  auto device = Port(port);
  return device != nullptr && device->GetState(dcb);
}

bool SetCommState(Handle port, const Dcb* dcb) {
  auto device = Port(port);
  if (device == nullptr) return false;
  if (dcb == nullptr) return Fail(kErrInvalidParameter);
  return device->SetState(*dcb);
}

bool GetCommTimeouts(Handle port, CommTimeouts* timeouts) {
  auto device = Port(port);
  return device != nullptr && device->GetTimeouts(timeouts);
}

bool SetCommTimeouts(Handle port, const CommTimeouts* timeouts) {
  auto device = Port(port);
  if (device == nullptr) return false;
  if (timeouts == nullptr) return Fail(kErrInvalidParameter);
  return device->SetTimeouts(*timeouts);
}

bool SetupComm(Handle port, Dword in_queue, Dword out_queue) {
  auto device = Port(port);
  return device != nullptr && device->Setup(in_queue, out_queue);
}

bool PurgeComm(Handle port, Dword flags) {
  auto device = Port(port);
  return device != nullptr && device->Purge(flags);
}

bool ClearCommError(Handle port, Dword* errors, ComStat* stat) {
  auto device = Port(port);
  return device != nullptr && device->ClearError(errors, stat);
}

bool GetCommModemStatus(Handle port, Dword* modem_status) {
  auto device = Port(port);
  return device != nullptr && device->GetModemStatus(modem_status);
}

bool SetCommMask(Handle port, Dword event_mask) {
  auto device = Port(port);
  return device != nullptr && device->SetMask(event_mask);
}

bool GetCommMask(Handle port, Dword* event_mask) {
  auto device = Port(port);
  return device != nullptr && device->GetMask(event_mask);
}

bool WaitCommEvent(Handle port, Dword* event_mask, Overlapped* overlapped) {
  auto device = Port(port);
  if (device == nullptr) return false;
  if (!device->overlapped()) {
    return posix::RunSynchronously(
        device.get(), overlapped, nullptr,
        [&](const posix::CompletionTarget& target, Dword*) { return device->WaitEvent(event_mask, target); });
  }
  if (overlapped == nullptr) return Fail(kErrInvalidParameter);
  posix::CompletionTarget target;
  if (!posix::MakeTarget(device.get(), overlapped, &target)) return false;
  return device->WaitEvent(event_mask, target);
}

bool EscapeCommFunction(Handle port, Dword function) {
  auto device = Port(port);
  return device != nullptr && device->Escape(function);
}

bool SetCommBreak(Handle port) {
  return EscapeCommFunction(port, kSetBreak);
}

bool ClearCommBreak(Handle port) {
  return EscapeCommFunction(port, kClrBreak);
}

bool BaudRateIsReal(Handle port) {
  auto object = posix::LookupObject(port);
  auto device = std::dynamic_pointer_cast<SerialDevice>(object);
  return device != nullptr && device->BaudRateIsReal();
}

}  // namespace portwren::os
