// The log file writer's buffering branches, its sticky error and its use from several threads.
#include "echo/log_file_writer.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace portwren {
namespace {

class LogFileWriterTest : public testing::Test {
 protected:
  void SetUp() override {
    path_ = testing::TempDir() + "pw_log_writer_" + std::to_string(::getpid()) + "_" +
            testing::UnitTest::GetInstance()->current_test_info()->name() + ".log";
  }
  void TearDown() override { ::unlink(path_.c_str()); }

  std::string FileText() const {
    std::ifstream in(path_, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  std::string path_;
};

TEST_F(LogFileWriterTest, SmallWritesWaitInTheBufferUntilFlushed) {
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), false, 16));
  EXPECT_TRUE(w.Write("abc", 3));
  EXPECT_TRUE(w.Write("defg", 4));
  EXPECT_EQ("", FileText());
  EXPECT_EQ(0u, w.Writes());
  EXPECT_TRUE(w.Flush());
  EXPECT_EQ("abcdefg", FileText());
  EXPECT_EQ(1u, w.Writes());
  EXPECT_EQ(7u, w.BytesWritten());
  EXPECT_TRUE(w.Flush()) << "an empty buffer flushes successfully";
  EXPECT_EQ(1u, w.Writes());
}

TEST_F(LogFileWriterTest, ExactlyCapacityIntoAnEmptyBufferGoesStraightToTheFile) {
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), false, 8));
  EXPECT_TRUE(w.Write("12345678", 8));
  EXPECT_EQ("12345678", FileText());
  EXPECT_EQ(1u, w.Writes());
}

TEST_F(LogFileWriterTest, FillFlushAndKeepTheRest) {
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), false, 8));
  EXPECT_TRUE(w.Write("1234567", 7));  // capacity - 1
  EXPECT_TRUE(w.Write("89", 2));
  EXPECT_EQ("12345678", FileText()) << "one full-buffer write";
  EXPECT_EQ(1u, w.Writes());
  EXPECT_TRUE(w.Flush());
  EXPECT_EQ("123456789", FileText()) << "the one byte left over followed";
  EXPECT_EQ(2u, w.Writes());
}

TEST_F(LogFileWriterTest, DataThatWouldFillTwoBuffersIsWrittenDirectly) {
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), false, 4));
  EXPECT_TRUE(w.Write("ab", 2));
  EXPECT_TRUE(w.Write("cdefgh", 6));  // 2 + 6 = two buffers
  EXPECT_EQ("abcdefgh", FileText());
  EXPECT_EQ(2u, w.Writes()) << "the buffered bytes, then the data in one write";
  EXPECT_EQ(8u, w.BytesWritten());
}

TEST_F(LogFileWriterTest, CleanOpenCutsTheFileAndAppendKeepsIt) {
  {
    std::ofstream(path_) << "old text\n";
  }
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), true, 64));
  EXPECT_TRUE(w.Write("more\n", 5));
  EXPECT_TRUE(w.FlushAndClose());
  EXPECT_EQ("old text\nmore\n", FileText());
  ASSERT_TRUE(w.Open(path_.c_str(), false, 64));
  EXPECT_TRUE(w.Write("new\n", 4));
  EXPECT_TRUE(w.FlushAndClose());
  EXPECT_EQ("new\n", FileText());
  EXPECT_FALSE(w.IsOpen());
}

TEST_F(LogFileWriterTest, RefusedOpens) {
  LogFileWriter w;
  EXPECT_FALSE(w.Open(path_.c_str(), false, 0));
  EXPECT_FALSE(w.IsOpen());
  EXPECT_FALSE(w.Open("/nonexistent-dir/x.log", false, 16));
  EXPECT_FALSE(w.IsOpen());
  EXPECT_FALSE(w.Write("x", 1));
  EXPECT_FALSE(w.Flush());
  EXPECT_FALSE(w.FlushAndClose());
}

TEST_F(LogFileWriterTest, RecordsAreFormattedStraightIntoTheWriter) {
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), false, 32));
  EXPECT_TRUE(w.Print("out %u bytes:%s%D\r\n", 12u, " ", 1234567));
  EXPECT_TRUE(w.FlushAndClose());
  EXPECT_EQ("out 12 bytes: 1 234 567\r\n", FileText());
}

TEST_F(LogFileWriterTest, AFullDiskErrorIsStickyAndReported) {
  LogFileWriter w;
  ASSERT_TRUE(w.Open("/dev/full", false, 8));
  EXPECT_TRUE(w.Write("abc", 3)) << "buffered, nothing written yet";
  EXPECT_FALSE(w.Write("0123456789", 10));
  const uint32_t error = w.Error();
  EXPECT_NE(0u, error);
  EXPECT_FALSE(w.Write("x", 1));
  EXPECT_FALSE(w.Flush());
  EXPECT_FALSE(w.Print("more"));
  EXPECT_EQ(error, w.Error()) << "the first error stays";
  EXPECT_EQ(0u, w.Writes());
  EXPECT_FALSE(w.FlushAndClose());
}

TEST_F(LogFileWriterTest, ThreadsNeverInterleaveInsideAPiece) {
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), false, 1000));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&w, t] {
      const std::string record = std::string(297, static_cast<char>('a' + t)) + "\r\n";
      for (int i = 0; i < 300; ++i) w.Print("%s", record.c_str());
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_TRUE(w.FlushAndClose());
  const std::string text = FileText();
  ASSERT_EQ(4u * 300u * 299u, text.size());
  for (size_t at = 0; at < text.size(); at += 299) {
    const std::string line = text.substr(at, 299);
    ASSERT_EQ(std::string(297, line[0]) + "\r\n", line) << "at " << at;
  }
}

}  // namespace
}  // namespace portwren
