// What only a POSIX file system gives: a full disk (/dev/full), names that cannot be converted.
#include <gtest/gtest.h>

#include "platform/os_file.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;

TEST(FullDiskTest, WriteToAFullDeviceFailsWithDiskFull) {
  HandleHolder full(CreateFileA("/dev/full", kGenericWrite, kFileShareRead, kOpenAlways, 0));
  ASSERT_TRUE(full);
  Dword done = 77;
  EXPECT_FALSE(WriteFile(full.get(), "x", 1, &done, nullptr));
  EXPECT_EQ(GetLastError(), kErrDiskFull);
  EXPECT_EQ(done, 0u);
}

// Windows keeps a lone surrogate in a name; a POSIX file system has no UTF-8 for it.
TEST(WideNameTest, ALoneSurrogateIsAnInvalidName) {
  const char16_t broken[] = {u'a', 0xD800, 0};
  EXPECT_EQ(CreateFileW(broken, kGenericRead, 0, kOpenExisting, 0), kInvalidHandle);
  EXPECT_EQ(GetLastError(), kErrInvalidName);
}

}  // namespace
}  // namespace portwren
