// The out, in and read records: exact bytes in the log file, the dump rows lining up with the
// stream offset, and the cases that write nothing.
#include "echo/echo_records.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "common/log_files.h"
#include "echo/chunk_format.h"
#include "platform/os_core.h"
#include "support/run_settings.h"

namespace portwren {
namespace {

class EchoRecordsTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetRunSettings();
    SetFormatLineEnd(1);  // the program's CR LF between dump rows
    ASSERT_TRUE(log_.Open(path_.c_str(), false, 8192));
  }
  void TearDown() override {
    log_.Close();
    std::remove(path_.c_str());
    SetFormatLineEnd(0);
    ResetRunSettings();
  }

  // Every record must carry a time, which shows as [S] here.
  std::string Text() {
    log_.Flush();
    return testlog::ScrubStamps(testlog::FileText(path_));
  }

  std::string path_ = testlog::TempLogPath("echo_records");
  LogFileWriter log_;
};

const uint8_t kBytes[] = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19,
                          0x1a, 0x1b, 0x1c, 0x1d, 0x1e, 0x1f, 0x20, 0x21, 0x22, 0x23};

TEST(CompactTimeTest, RendersTheGivenTimeOrTheClocks) {
  os::LocalTime t{
      .year = 2024, .month = 2, .day = 9, .hour = 7, .minute = 5, .second = 3, .milliseconds = 42};
  FormatCallback callback;
  char text[40];
  FormatToBuffer(text, sizeof text, "[%F]", MakeFormatCallback(&callback, &RenderCompactTime, &t));
  EXPECT_STREQ("[20240209.070503.042]", text);

  const os::LocalTime now = os::GetLocalTime();
  FormatToBuffer(text, sizeof text, "%F", MakeFormatCallback(&callback, &RenderCompactTime, nullptr));
  char date[64];
  std::snprintf(date, sizeof date, "%04d%02d%02d.", now.year, now.month, now.day);
  EXPECT_EQ(0, std::string(text).rfind(date, 0)) << text;  // unless midnight falls in between
  EXPECT_TRUE(std::regex_match(text, std::regex(R"(\d{8}\.\d{6}\.\d{3})"))) << text;
}

// Read records continue the dump across rows; out records show their status, and long
// addresses are grouped.
TEST_F(EchoRecordsTest, ReadAndOutRecords) {
  ASSERT_TRUE(LogReadRecord(&log_, 0, 0, kBytes, 4));
  ASSERT_TRUE(LogReadRecord(&log_, 1, 4, kBytes + 4, 16));
  g_echolog_row_width = 8;
  ASSERT_TRUE(LogOutRecord(&log_, 41, 0x12345, kBytes, 3, true));
  ASSERT_TRUE(LogOutRecord(&log_, 42, 0x12348, kBytes, 2, false));
  EXPECT_EQ(
      "[S] #0: 4 bytes.\r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0000: 10 11 12 13.\r\n"
      "\r\n"
      "[S] #1: 16 bytes.\r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0000:             14 15 16 17 18 19 1a 1b 1c 1d 1e 1f\r\n"
      "0010: 20 21 22 23.\r\n"
      "\r\n"
      "[S] #41: 3 bytes: \r\n"
      "-----------00-01-02-03-04-05-06-07\r\n"
      "0001.2340:                10 11 12.\r\n"
      "\r\n"
      "[S] #42: 2 bytes: (FAIL!)\r\n"
      "-----------00-01-02-03-04-05-06-07\r\n"
      "0001.2348: 10 11.\r\n"
      "\r\n",
      Text());
}

TEST_F(EchoRecordsTest, InRecordShowsTheDeclaredSizeAndAMismatch) {
  uint8_t chunk[20] = {};
  WriteChunkHead(chunk, ChunkHead{7, 8, 0xDEADBEEF});  // declares 20 bytes
  for (int i = 12; i < 20; ++i) chunk[i] = static_cast<uint8_t>(0xA0 + i);

  ASSERT_TRUE(LogInRecord(&log_, 0, 20, chunk, 20));
  ASSERT_TRUE(LogInRecord(&log_, 1, 40, chunk, 14));  // short: a mismatch
  ASSERT_TRUE(LogInRecord(&log_, 2, 54, chunk, 5));   // not even a whole head: no status
  EXPECT_EQ(
      "[S] #0: 20 bytes: \r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0010:             07 00 00 00 08 00 00 00 ef be ad de\r\n"
      "0020: ac ad ae af b0 b1 b2 b3.\r\n"
      "\r\n"
      "[S] #1: 20 bytes: (echo mismatch, dump total 14)\r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0020:                         07 00 00 00 08 00 00 00\r\n"
      "0030: ef be ad de ac ad.\r\n"
      "\r\n"
      "[S] #2: 20 bytes: \r\n"
      "------00-01-02-03-04-05-06-07-08-09-0A-0B-0C-0D-0E-0F\r\n"
      "0030:                   07 00 00 00 08.\r\n"
      "\r\n",
      Text());
}

TEST_F(EchoRecordsTest, NothingToRecordWritesNothing) {
  EXPECT_FALSE(LogReadRecord(&log_, 0, 0, kBytes, 0));
  EXPECT_FALSE(LogOutRecord(&log_, 0, 0, kBytes, 0, true));
  EXPECT_FALSE(LogInRecord(&log_, 0, 0, kBytes, 0));
  EXPECT_FALSE(LogOutRecord(&log_, 0, 0, kBytes, -5, false));
  EXPECT_FALSE(LogReadRecord(nullptr, 0, 0, kBytes, 4));
  EXPECT_EQ("", Text());

  LogFileWriter closed;
  EXPECT_FALSE(LogOutRecord(&closed, 0, 0, kBytes, 4, true));
  EXPECT_FALSE(LogInRecord(&closed, 0, 0, kBytes, 4));
  EXPECT_FALSE(LogReadRecord(&closed, 0, 0, kBytes, 4));
}

TEST_F(EchoRecordsTest, LargeRecordReachesTheFileWhole) {
  std::vector<uint8_t> bytes(20000);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
  ASSERT_TRUE(LogOutRecord(&log_, 3, 0, bytes.data(), static_cast<int32_t>(bytes.size()), true));
  const std::string text = Text();
  // Head, ruler, 1250 rows of 16 bytes ("xxxx: " + 47 characters), each ended by CR LF, and the tail.
  EXPECT_EQ(std::string("[S] #3: 20000 bytes: \r\n").size() + 55 + 1250 * (6 + 47 + 2) - 2 + 5, text.size());
  EXPECT_NE(std::string::npos, text.find("\r\n4E10: ")) << "the last row's address";
  EXPECT_EQ(".\r\n\r\n", text.substr(text.size() - 5));
}

}  // namespace
}  // namespace portwren
