// Owners of the things a request or an enumeration opens: each closes what it holds when it
// goes out of scope, on every path. Move-only. Both nullptr and the all-ones value mean
// "holds nothing" (creation calls return one or the other on failure).
#pragma once

#include <cstdint>
#include <utility>

#include "platform/os_device_enum.h"
#include "platform/os_handle.h"

namespace portwren {

template <typename Traits>
class UniqueOsResource {
 public:
  using Value = typename Traits::Value;

  UniqueOsResource() = default;
  explicit UniqueOsResource(Value value) : value_(value) {}
  ~UniqueOsResource() { reset(); }

  UniqueOsResource(const UniqueOsResource&) = delete;
  UniqueOsResource& operator=(const UniqueOsResource&) = delete;
  UniqueOsResource(UniqueOsResource&& other) noexcept : value_(other.release()) {}
  UniqueOsResource& operator=(UniqueOsResource&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }

  Value get() const { return value_; }
  bool valid() const { return IsHeld(value_); }
  explicit operator bool() const { return valid(); }

  // Gives the value up without closing it.
  Value release() { return std::exchange(value_, Invalid()); }

  // Closes what is held, then holds value.
  void reset(Value value = Invalid()) {
    const Value old = std::exchange(value_, value);
    if (IsHeld(old)) Traits::Close(old);
  }

 private:
  static Value Invalid() { return reinterpret_cast<Value>(~uintptr_t{0}); }
  static bool IsHeld(Value value) { return value != nullptr && value != Invalid(); }

  Value value_ = Invalid();
};

struct HandleCloser {
  using Value = os::Handle;
  static void Close(Value handle) { os::CloseHandle(handle); }
};

struct DevInfoSetDestroyer {
  using Value = os::DevInfoSet;
  static void Close(Value set) { os::SetupDiDestroyDeviceInfoList(set); }
};

struct RegKeyCloser {
  using Value = os::RegKey;
  static void Close(Value key) { os::RegCloseKey(key); }
};

// Files, ports, threads, mutexes.
using HandleHolder = UniqueOsResource<HandleCloser>;
// Events (CreateEventA returns nullptr on failure; the holder then holds nothing).
using EventHolder = UniqueOsResource<HandleCloser>;
using DevInfoSetHolder = UniqueOsResource<DevInfoSetDestroyer>;
using RegKeyHolder = UniqueOsResource<RegKeyCloser>;

}  // namespace portwren
