#include "support/handle_holder.h"

#include <gtest/gtest.h>

#include <utility>

#include "platform/os_sync.h"

namespace portwren {
namespace {

// A handle is open while SetEvent accepts it.
bool IsOpen(os::Handle event) {
  return os::SetEvent(event);
}

TEST(HandleHolderTest, ClosesWhatItHoldsOnScopeEndAssignmentAndResetButNotOnMoveOrRelease) {
  os::Handle raw;
  {
    EventHolder event(os::CreateEventA(true, false));
    raw = event.get();
    ASSERT_TRUE(IsOpen(raw));
  }
  EXPECT_FALSE(IsOpen(raw));
  EXPECT_EQ(os::GetLastError(), os::kErrInvalidHandle);

  EventHolder first(os::CreateEventA(true, false));
  raw = first.get();
  EventHolder second(std::move(first));
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): the moved-from state is the point
  EXPECT_TRUE(IsOpen(raw));
  EventHolder third(os::CreateEventA(true, false));
  const os::Handle replaced = third.get();
  third = std::move(second);
  EXPECT_FALSE(IsOpen(replaced));
  EXPECT_EQ(third.get(), raw);
  EXPECT_TRUE(IsOpen(raw));
  EXPECT_EQ(third.release(), raw);
  EXPECT_FALSE(third);
  EXPECT_TRUE(IsOpen(raw));
  third.reset(raw);
  third.reset();
  EXPECT_FALSE(IsOpen(raw));

  for (os::Handle nothing : {os::Handle{nullptr}, os::kInvalidHandle}) EXPECT_FALSE(HandleHolder(nothing));
  EXPECT_EQ(HandleHolder().get(), os::kInvalidHandle);
}

}  // namespace
}  // namespace portwren
