#include "support/thread_start.h"

#include <new>

namespace portwren {

namespace {

constexpr int kDefaultStackSize = 64000;

// Lives on the heap from StartThread until the thread's entry has called the procedure.
struct ThreadPair {
  os::ThreadProc procedure;
  void* argument;
};

os::Dword ThreadEntry(void* raw_pair) {
  auto* pair = static_cast<ThreadPair*>(raw_pair);
  const os::Dword result = pair->procedure(pair->argument);
  delete pair;
  return result;
}

}  // namespace

os::Handle StartThread(os::ThreadProc procedure, void* argument, int stack_size, os::Dword* thread_id) {
  if (procedure == nullptr) return nullptr;
  auto* pair = new (std::nothrow) ThreadPair{procedure, argument};
  if (pair == nullptr) return nullptr;
  const int stack = stack_size < 1 ? kDefaultStackSize : stack_size;
  os::Handle thread = os::CreateThread(ThreadEntry, pair, static_cast<os::Dword>(stack), thread_id);
  if (thread == nullptr) delete pair;
  return thread;
}

}  // namespace portwren
