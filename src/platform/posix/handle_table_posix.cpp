#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "platform/posix/errno_map.h"
#include "platform/posix/kernel_object.h"

namespace portwren::os::posix {

namespace {

// Freed slots are reused oldest first, so a handle value comes back as late as possible.
class HandleTable {
 public:
  Handle Insert(std::shared_ptr<KernelObject> object) {
    std::lock_guard lock(mu_);
    size_t index;
    if (!free_.empty()) {
      index = free_.front();
      free_.pop_front();
      slots_[index] = std::move(object);
    } else {
      if (slots_.size() >= kMaxSlots) return nullptr;
      index = slots_.size();
      slots_.push_back(std::move(object));
    }
    return ToHandle(index);
  }

  std::shared_ptr<KernelObject> Lookup(Handle handle) {
    std::lock_guard lock(mu_);
    size_t index;
    if (!ToIndex(handle, &index)) return nullptr;
    return slots_[index];
  }

  std::shared_ptr<KernelObject> Remove(Handle handle) {
    std::lock_guard lock(mu_);
    size_t index;
    if (!ToIndex(handle, &index) || slots_[index] == nullptr) return nullptr;
    std::shared_ptr<KernelObject> object = std::move(slots_[index]);
    slots_[index] = nullptr;
    free_.push_back(index);
    return object;
  }

 private:
  static constexpr size_t kMaxSlots = size_t{1} << 24;

  static Handle ToHandle(size_t index) {
    return reinterpret_cast<Handle>(static_cast<uintptr_t>((index + 1) * 4));
  }

  bool ToIndex(Handle handle, size_t* index) const {
    const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
    if (value == 0 || value % 4 != 0) return false;
    const uintptr_t slot = value / 4 - 1;
    if (slot >= slots_.size()) return false;
    *index = static_cast<size_t>(slot);
    return true;
  }

  std::mutex mu_;
  std::vector<std::shared_ptr<KernelObject>> slots_;
  std::deque<size_t> free_;
};

// Never destroyed: threads that outlive main may still use their handles.
HandleTable& Table() {
  static HandleTable* table = new HandleTable;
  return *table;
}

}  // namespace

Handle InsertObject(std::shared_ptr<KernelObject> object) {
  return Table().Insert(std::move(object));
}
std::shared_ptr<KernelObject> LookupObject(Handle handle) {
  return Table().Lookup(handle);
}
std::shared_ptr<KernelObject> RemoveObject(Handle handle) {
  return Table().Remove(handle);
}

}  // namespace portwren::os::posix

namespace portwren::os {

bool CloseHandle(Handle handle) {
  std::shared_ptr<posix::KernelObject> object = posix::RemoveObject(handle);
  if (object == nullptr) return posix::Fail(kErrInvalidHandle);
  object->OnClose();
  return true;
}

}  // namespace portwren::os
