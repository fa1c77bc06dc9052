// The log file writer's buffering branches, its sticky error and its use from several threads.
#include "echo/log_file_writer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "common/log_files.h"

namespace portwren {
namespace {

using testlog::FileText;

class LogFileWriterTest : public testing::Test {
 protected:
  void TearDown() override { ::unlink(path_.c_str()); }
  std::string path_ = testlog::TempLogPath("log_writer");
};

// Each buffering branch: the writes, then what the file holds and how many file writes made it,
// before the flush and after it.
TEST_F(LogFileWriterTest, FileHoldsWhatEachBufferingBranchWrote) {
  const struct {
    uint32_t capacity;
    std::vector<std::string> pieces;
    std::string before_flush;
    uint64_t writes_before;
    std::string after_flush;
    uint64_t writes_after;
  } cases[] = {
      {16, {"abc", "defg"}, "", 0, "abcdefg", 1},             // small writes wait for the flush
      {8, {"12345678"}, "12345678", 1, "12345678", 1},        // capacity into an empty buffer: straight out
      {8, {"1234567", "89"}, "12345678", 1, "123456789", 2},  // fill, write, keep the rest
      {4, {"ab", "cdefgh"}, "abcdefgh", 2, "abcdefgh", 2},    // two buffers' worth: two writes
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.after_flush);
    LogFileWriter w;
    ASSERT_TRUE(w.Open(path_.c_str(), false, c.capacity));
    for (const std::string& piece : c.pieces)
      EXPECT_TRUE(w.Write(piece.data(), static_cast<uint32_t>(piece.size())));
    EXPECT_EQ(c.before_flush, FileText(path_));
    EXPECT_EQ(c.writes_before, w.Writes());
    EXPECT_TRUE(w.Flush());
    EXPECT_EQ(c.after_flush, FileText(path_));
    EXPECT_EQ(c.writes_after, w.Writes());
    EXPECT_EQ(c.after_flush.size(), w.BytesWritten());
    EXPECT_TRUE(w.Flush()) << "an empty buffer flushes successfully";
    EXPECT_EQ(c.writes_after, w.Writes());
  }
}

TEST_F(LogFileWriterTest, AppendOpenKeepsTheFileCleanOpenCutsItPrintFormats) {
  std::ofstream(path_, std::ios::binary) << "old text\n";
  LogFileWriter w;
  ASSERT_TRUE(w.Open(path_.c_str(), true, 64));
  EXPECT_TRUE(w.Write("more\n", 5));
  EXPECT_TRUE(w.FlushAndClose());
  EXPECT_EQ("old text\nmore\n", FileText(path_));
  ASSERT_TRUE(w.Open(path_.c_str(), false, 64));
  EXPECT_TRUE(w.Print("out %u bytes:%s%D\r\n", 12u, " ", 1234567)) << "formatted straight into the writer";
  EXPECT_TRUE(w.FlushAndClose());
  EXPECT_EQ("out 12 bytes: 1 234 567\r\n", FileText(path_));
  EXPECT_FALSE(w.IsOpen());
}

TEST_F(LogFileWriterTest, RefusedOpensLeaveAWriterThatRefusesEverything) {
  LogFileWriter w;
  EXPECT_FALSE(w.Open(path_.c_str(), false, 0));
  EXPECT_FALSE(w.IsOpen());
  EXPECT_FALSE(w.Open("/nonexistent-dir/x.log", false, 16));
  EXPECT_FALSE(w.IsOpen());
  EXPECT_FALSE(w.Write("x", 1));
  EXPECT_FALSE(w.Flush());
  EXPECT_FALSE(w.FlushAndClose());
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
  const std::string text = FileText(path_);
  ASSERT_EQ(4u * 300u * 299u, text.size());
  for (size_t at = 0; at < text.size(); at += 299) {
    const std::string line = text.substr(at, 299);
    ASSERT_EQ(std::string(297, line[0]) + "\r\n", line) << "at " << at;
  }
}

}  // namespace
}  // namespace portwren
