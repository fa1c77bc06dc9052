// Files and ports behind handles, and how a request reports its end: the Overlapped's status
// and count first, then the event, the handle's own signal or the issuing thread's queue of
// completion routines.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/os_file.h"
#include "platform/posix/sync_core.h"

namespace portwren::os::posix {

// Overlapped::Internal values: NTSTATUS-like, so that success and a timeout (success with a
// short count) are told apart from failures, which carry their Windows error number.
inline constexpr uintptr_t kStatusSuccess = 0;
inline constexpr uintptr_t kStatusTimeout = 0x102;
inline uintptr_t StatusFromError(Dword error) {
  return 0xC0070000u | (error & 0xFFFFu);
}
inline bool StatusIsSuccess(uintptr_t status) {
  return status == kStatusSuccess || status == kStatusTimeout;
}
inline Dword ErrorFromStatus(uintptr_t status) {
  return StatusIsSuccess(status) ? kErrSuccess : static_cast<Dword>(status & 0xFFFFu);
}

uintptr_t LoadStatus(const Overlapped* overlapped);          // acquire
void StoreStatus(Overlapped* overlapped, uintptr_t status);  // release

class IoObject;

// Where a request's end is reported.
struct CompletionTarget {
  Overlapped* overlapped = nullptr;
  std::shared_ptr<Event> event;         // ordinary overlapped requests with an event
  IoObject* signal_handle = nullptr;    // overlapped requests without one: the handle is signalled
  CompletionRoutine routine = nullptr;  // ReadFileEx/WriteFileEx
  std::shared_ptr<ApcQueue> apc;

  // As the request starts: status pending, event or handle signal cleared.
  void Begin() const;
  // status and count into the Overlapped, then the signal. A completion routine is queued
  // unless the request failed inside the call that issued it (that call reports the failure).
  void Finish(uintptr_t status, Dword count, bool in_issuing_call) const;
};

class IoObject : public Waitable {
 public:
  IoObject(bool overlapped, bool can_read, bool can_write)
      : overlapped_(overlapped), can_read_(can_read), can_write_(can_write) {}

  bool overlapped() const { return overlapped_; }
  bool can_read() const { return can_read_; }
  bool can_write() const { return can_write_; }

  bool IsSignalledFor(Dword) const override { return signalled_; }
  void SetSignalled(bool signalled);
  void SetSignalledLocked(bool signalled, WakeList& wakes);  // under SyncMutex

  // As ReadFile/WriteFile on an overlapped handle; *done (if given) only for completion in
  // the call. A failure before the request exists reports no completion at all.
  virtual bool Read(void* buffer, Dword size, Dword* done, const CompletionTarget& target) = 0;
  virtual bool Write(const void* buffer, Dword size, Dword* done, const CompletionTarget& target) = 0;
  virtual bool CancelThreadRequests(Dword /*thread_id*/) { return true; }
  virtual bool CancelRequest(const Overlapped* /*overlapped, nullptr = all*/);
  virtual bool Seek(int64_t distance, Dword move_method, int64_t* position);
  virtual bool Truncate();

 private:
  const bool overlapped_;
  const bool can_read_;
  const bool can_write_;
  bool signalled_ = false;  // guarded by SyncMutex
};

}  // namespace portwren::os::posix
