#include "support/thread_start.h"

#include <gtest/gtest.h>

#include <atomic>

#include "platform/os_sync.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

struct Shared {
  std::atomic<os::Dword> id_inside{0};
  std::atomic<int> calls{0};
};

os::Dword Worker(void* argument) {
  auto* shared = static_cast<Shared*>(argument);
  shared->id_inside = os::GetCurrentThreadId();
  ++shared->calls;
  return 1234;
}

// Any stack size works (below 1 is the default); the id is optional; a procedure is needed.
TEST(StartThreadTest, RunsTheProcedureOnceWithItsArgumentAndEndsWithItsResult) {
  EXPECT_EQ(StartThread(nullptr, nullptr, 0, nullptr), nullptr);
  for (int stack : {-5, 0, 1, 64000, 1 << 20}) {
    Shared shared;
    os::Dword id = 0;
    HandleHolder thread(StartThread(Worker, &shared, stack, stack == 1 ? nullptr : &id));
    ASSERT_TRUE(thread) << stack;
    ASSERT_EQ(os::WaitForSingleObject(thread.get(), 5000), os::kWaitObject0) << stack;
    EXPECT_EQ(shared.calls.load(), 1) << stack;
    EXPECT_TRUE(stack == 1 || shared.id_inside.load() == id) << stack;
    os::Dword code = 0;
    ASSERT_TRUE(os::GetExitCodeThread(thread.get(), &code));
    EXPECT_EQ(code, 1234u) << stack;
  }
}

}  // namespace
}  // namespace portwren
