#include "format/thread_mark.h"

#include <atomic>
#include <cstdint>

#include "platform/os_core.h"

namespace portwren {

namespace {

constexpr int kRoles = 5;
// Written only by the thread concerned, read by every thread that logs.
std::atomic<uint32_t> g_thread_ids[kRoles];
constexpr char kMarks[kRoles] = {' ', '*', '#', '>', '<'};

}  // namespace

void RegisterThread(ThreadRole role) {
  g_thread_ids[static_cast<int>(role)].store(os::GetCurrentThreadId(), std::memory_order_relaxed);
}

void UnregisterThread(ThreadRole role) {
  g_thread_ids[static_cast<int>(role)].store(0, std::memory_order_relaxed);
}

char ThreadMark() {
  const uint32_t self = os::GetCurrentThreadId();
  for (int i = 0; i < kRoles; ++i) {
    if (g_thread_ids[i].load(std::memory_order_relaxed) == self) return kMarks[i];
  }
  return '?';
}

}  // namespace portwren
