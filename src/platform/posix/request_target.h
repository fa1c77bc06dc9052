// Building a request's CompletionTarget from the caller's Overlapped, and running a request
// on a synchronous handle.
#pragma once

#include "platform/posix/errno_map.h"
#include "platform/posix/io_object.h"

namespace portwren::os::posix {

// The event a request signals: the Overlapped's (its low bit is a flag on Windows), or, with
// none, the handle itself. False + 6 for an event handle that names no event.
bool MakeTarget(IoObject* object, Overlapped* overlapped, CompletionTarget* target);

// A request on a synchronous handle: issued like an overlapped one with a private event, then
// waited for. A caller's Overlapped shows it pending and then its outcome, and its event (else
// the handle) is signalled at the end, so another thread can wait for it as on Windows.
// issue(const CompletionTarget&, Dword* count) -> bool, as an overlapped call.
template <typename Issue>
bool RunSynchronously(IoObject* object, Overlapped* caller_overlapped, Dword* done, Issue issue) {
  CompletionTarget caller;
  if (caller_overlapped != nullptr) {
    if (!MakeTarget(object, caller_overlapped, &caller)) return false;
    caller.Begin();
  }
  Overlapped own;
  CompletionTarget target;
  target.overlapped = &own;
  target.event = std::make_shared<Event>(true, false);
  Dword count = 0;
  bool ok = issue(target, &count);
  if (!ok && GetLastError() == kErrIoPending) {
    WaitObjects({target.event}, false, kInfinite, false);
    const uintptr_t status = LoadStatus(&own);
    count = static_cast<Dword>(own.InternalHigh);
    ok = StatusIsSuccess(status);
    if (!ok) SetLastError(ErrorFromStatus(status));
  }
  if (done != nullptr) *done = count;
  if (caller_overlapped != nullptr) {
    const Dword error = GetLastError();
    caller.Finish(ok ? kStatusSuccess : StatusFromError(error), count, false);
    SetLastError(error);
  }
  return ok;
}

}  // namespace portwren::os::posix
