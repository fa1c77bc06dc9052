// The driver's requests as the rest of the program calls them: each opens its target, sends one
// synchronous request through the driver link and turns the outcome into a result.
#pragma once

#include <cstdint>

#include "driver/driver_records.h"
#include "platform/os_file.h"

namespace portwren {

// Opens the bus anew (read-only, or for reading and writing), sends one request, closes it.
// 0 on success, ERROR_DEVICE_NOT_CONNECTED when the bus could not be opened (the thread's last
// error is then the open's), otherwise the request's error.
uint32_t SendBusRequest(bool read_only, uint32_t code, const void* in, uint32_t in_size, void* out,
                        uint32_t out_size, uint32_t* bytes_returned);

// The packed kernel version (see PackKernelVersion), 0 when there is none; *error gets 0 or the
// error of the failed open or request.
uint32_t GetKernelVersion(uint32_t* error);

// Outcome of the USB device path query.
enum UsbdPathStatus : uint32_t {
  kUsbdPathOk = 0,
  kUsbdPathFailed = 2,
  kUsbdPathNoControl = 7,  // the control interface could not be opened
  kUsbdPathOffline = 9,    // ERROR_DEVICE_NOT_CONNECTED: the USB device is offline
  kUsbdPathTooSmall = 20,  // ERROR_INSUFFICIENT_BUFFER
};

// The instance path of the USB device behind a VCOM. *out_chars gets the characters returned,
// or 1000 (a marker, not a length) when the request failed.
UsbdPathStatus GetUsbdDevinstPath(const char16_t* vcom_instance_id, char16_t* out, int32_t capacity,
                                  uint32_t* out_chars);
// The same in narrow text (a null ID asks for the empty one); out gets capacity bytes.
UsbdPathStatus GetUsbdDevinstPathA(const char* vcom_instance_id, char* out, uint32_t capacity,
                                   uint32_t* out_chars);

// The bus's names for a VCOM; 1 (ERROR_INVALID_FUNCTION) from a driver that predates it.
uint32_t QueryVcomFdoPdo(const VcomFdoPdoQuery& query, VcomFdoPdoInfo* info, uint32_t* bytes_returned);

}  // namespace portwren
