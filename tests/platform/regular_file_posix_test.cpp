// A full disk, as /dev/full gives it.
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

}  // namespace
}  // namespace portwren
