// The quiet reads that clearing and the echo client use, and the Datapipe clearing built on them.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "port_test_support.h"

namespace portwren::porttest {
namespace {

using SyncReadTest = PortTest;

TEST_F(SyncReadTest, SyncReadWaitsAsTheTimeoutsSay) {
  uint8_t buffer[1000] = {};
  SetTimeouts(0, 0, 100);  // the whole read may take 100 ms
  ASSERT_TRUE(Arrive("abc"));
  EXPECT_EQ(3, ReadFile_Sync(port_, buffer, 10)) << "the total timeout ends it with what came";
  EXPECT_EQ("abc", std::string(reinterpret_cast<char*>(buffer), 3));
  EXPECT_EQ(0, ReadFile_Sync(port_, buffer, 10));

  // As clearing sets them: a read takes what is there, at most 1000 bytes.
  SetTimeouts(os::kMaxDword, os::kMaxDword, 50);
  ASSERT_TRUE(Arrive(std::string(2500, 'z')));
  for (int32_t expected : {1000, 1000, 500, 0}) EXPECT_EQ(expected, ReadFile_Sync(port_, buffer, 1000));
  EXPECT_EQ(-1, ReadFile_Sync(port_, buffer, -1));
}

TEST_F(SyncReadTest, TimeoutReadReturnsWhatCameOrGivesUp) {
  SetTimeouts(0, 0, 0);  // nothing ends a read but its bytes
  ASSERT_TRUE(Arrive("0123456789"));
  uint8_t buffer[16] = {};
  EXPECT_EQ(10, ReadFile_Sync_timeout(port_, buffer, 10, 1000));

  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(-1, ReadFile_Sync_timeout(port_, buffer, 10, 100)) << "cancelled: a failed result";
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));

  SetTimeouts(os::kMaxDword, 0, 0);  // returns at once
  EXPECT_EQ(0, ReadFile_Sync_timeout(port_, buffer, 10, 100));
}

TEST_F(SyncReadTest, DatapipeClearingCountsWhatItDropped) {
  SetTimeouts(os::kMaxDword, 0, 0);
  ASSERT_TRUE(Arrive(std::string(2300, 'q')));
  EXPECT_EQ(" [D] Datapipe read-buffer bytes cleared: 2300\n",
            Captured([&] { ClearDatapipeData(port_, 100); }));
  EXPECT_EQ(0u, InQueue());
  EXPECT_EQ("", Captured([&] { ClearDatapipeData(port_, 100); }));
}

}  // namespace
}  // namespace portwren::porttest
