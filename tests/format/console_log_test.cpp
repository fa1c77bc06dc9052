// Console log lines, the WinErr reports, the name tables and the size texts.
#include "format/console_log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/os_core.h"

namespace portwren {
namespace {

std::string Captured(void (*print)()) {
  testing::internal::CaptureStdout();
  print();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

class ConsoleLogTest : public testing::Test {
 protected:
  void SetUp() override { RegisterThread(ThreadRole::kMain); }
  void TearDown() override {
    SetLogClock(nullptr);
    UnregisterThread(ThreadRole::kMain);
  }
};

TEST(DwordTextTest, SpecialValuesAndDecimal) {
  char buf[16] = "untouched";
  EXPECT_STREQ("MAXDWORD", DwordText(0xFFFFFFFFu, buf, sizeof buf));
  EXPECT_STREQ("MAXDWORD-1", DwordText(0xFFFFFFFEu, buf, sizeof buf));
  EXPECT_STREQ("MAXDWORD-2", DwordText(0xFFFFFFFDu, buf, sizeof buf));
  EXPECT_STREQ("untouched", buf) << "constant texts leave the buffer alone";
  EXPECT_STREQ("4294967292", DwordText(0xFFFFFFFCu, buf, sizeof buf));
  EXPECT_STREQ("0", DwordText(0, buf, sizeof buf));
}

TEST(SizeTextTest, ScalesAtEachThreshold) {
  char buf[32];
  EXPECT_STREQ("999 B", SizeText(999, "B", buf, sizeof buf));
  EXPECT_STREQ("1.00 KB", SizeText(1000, "B", buf, sizeof buf));
  EXPECT_STREQ("1.50 KB", SizeText(1500, "B", buf, sizeof buf));
  EXPECT_STREQ("999.99 KB", SizeText(999990, "B", buf, sizeof buf));
  EXPECT_STREQ("1.00 MB", SizeText(1000000, "B", buf, sizeof buf));
  EXPECT_STREQ("1.00 GB", SizeText(1000000000ULL, "B", buf, sizeof buf));
  EXPECT_STREQ("18446744073.71 GB", SizeText(~0ULL, "B", buf, sizeof buf));
  EXPECT_STREQ("0 B", SizeText(0, "B", buf, sizeof buf));
}

TEST(SizeTextTest, TruncatesToTheBuffer) {
  char buf[5];
  EXPECT_STREQ("1.50", SizeText(1500, "B", buf, sizeof buf));
}

TEST(SizeTextTest, RateIsBytesPerSecond) {
  char buf[32];
  EXPECT_STREQ("1.50 KB/s", RateText(1500, 1000, buf, sizeof buf));
  EXPECT_STREQ("999 B/s", RateText(999, 1000, buf, sizeof buf));
  EXPECT_STREQ("3.00 KB/s", RateText(1500, 500, buf, sizeof buf));
}

TEST(ErrorNamesTest, EveryRowAndTheUnknownCode) {
  const std::pair<uint32_t, const char*> rows[] = {
      {0, "ERROR_SUCCESS"}, {1, "ERROR_INVALID_FUNCTION"}, {2, "ERROR_FILE_NOT_FOUND"},
      {3, "ERROR_PATH_NOT_FOUND"}, {5, "ERROR_ACCESS_DENIED"}, {6, "ERROR_INVALID_HANDLE"},
      {21, "ERROR_NOT_READY"}, {995, "ERROR_OPERATION_ABORTED"}, {997, "ERROR_IO_PENDING"},
      {8, "ERROR_NOT_ENOUGH_MEMORY"}, {14, "ERROR_OUTOFMEMORY"}, {22, "ERROR_BAD_COMMAND"},
      {87, "ERROR_INVALID_PARAMETER"}, {1460, "ERROR_TIMEOUT"}, {1167, "ERROR_DEVICE_NOT_CONNECTED"},
      {55, "ERROR_DEV_NOT_EXIST"}, {122, "ERROR_INSUFFICIENT_BUFFER"}, {998, "ERROR_NOACCESS"},
      {31, "ERROR_GEN_FAILURE"}, {121, "ERROR_SEM_TIMEOUT"}, {123, "ERROR_INVALID_NAME"}};
  for (const auto& [code, name] : rows) {
    EXPECT_STREQ(name, WinErrName(code)) << code;
    const std::u16string wide(WinErrNameW(code));
    EXPECT_EQ(std::u16string(name, name + std::strlen(name)), wide) << code;
  }
  EXPECT_STREQ("UnknownWinErrCode", WinErrName(4));
  EXPECT_STREQ("UnknownWinErrCode", WinErrName(0xFFFFFFFFu));
  EXPECT_EQ(std::u16string(u"UnknownWinErrCode"), WinErrNameW(996));
}

TEST(ErrorNamesTest, ProblemCodes) {
  EXPECT_STREQ("CM_PROB_NOT_CONFIGURED", ProblemCodeName(1));
  EXPECT_STREQ("CM_PROB_FAILED_START", ProblemCodeName(10));
  EXPECT_STREQ("CM_PROB_REINSTALL", ProblemCodeName(18));
  EXPECT_STREQ("CM_PROB_DISABLED", ProblemCodeName(22));
  EXPECT_STREQ("CM_PROB_HELD_FOR_EJECT", ProblemCodeName(47));
  EXPECT_STREQ("CM_PROB_UNSIGNED_DRIVER", ProblemCodeName(52));
  EXPECT_STREQ("UnknownProblemCode", ProblemCodeName(0));
  EXPECT_EQ(std::u16string(u"CM_PROB_DISABLED"), ProblemCodeNameW(22));
  EXPECT_EQ(std::u16string(u"UnknownProblemCode"), ProblemCodeNameW(2));
}

TEST(ThreadMarkTest, MarksFollowTheRegistry) {
  RegisterThread(ThreadRole::kMain);
  EXPECT_EQ(' ', ThreadMark());
  char other = 0, reader = 0, after = 0;
  std::thread([&] {
    other = ThreadMark();
    RegisterThread(ThreadRole::kReader);
    reader = ThreadMark();
    UnregisterThread(ThreadRole::kReader);
    after = ThreadMark();
  }).join();
  EXPECT_EQ('?', other);
  EXPECT_EQ('#', reader);
  EXPECT_EQ('?', after);
  const std::pair<ThreadRole, char> roles[] = {{ThreadRole::kCommMonitor, '*'},
                                               {ThreadRole::kEchoPush, '>'},
                                               {ThreadRole::kEchoPull, '<'}};
  for (const auto& [role, mark] : roles) {
    char seen = 0;
    std::thread([&, role = role] {
      RegisterThread(role);
      seen = ThreadMark();
      UnregisterThread(role);
    }).join();
    EXPECT_EQ(mark, seen);
  }
  UnregisterThread(ThreadRole::kMain);
  EXPECT_EQ('?', ThreadMark());
}

// A clock that moves only when the log sleeps.
uint32_t g_fake_tick = 0;
int g_fake_sleeps = 0;
uint32_t FakeTick() { return g_fake_tick; }
void FakeSleep(uint32_t ms) {
  ++g_fake_sleeps;
  g_fake_tick += ms;
}
const LogClock kFakeClock{&FakeTick, &FakeSleep};

TEST_F(ConsoleLogTest, Tick100WaitsForTheNextBoundary) {
  SetLogClock(&kFakeClock);
  g_fake_tick = 12345;
  g_fake_sleeps = 0;
  const std::string out = Captured([] { LogTick100("value %d", 7); });
  EXPECT_EQ(" [12.400] value 7\n", out);
  EXPECT_EQ(55, g_fake_sleeps);
}

TEST_F(ConsoleLogTest, TickOnABoundaryOrWithoutPeriodDoesNotWait) {
  SetLogClock(&kFakeClock);
  g_fake_tick = 12400;
  g_fake_sleeps = 0;
  EXPECT_EQ(" [12.400] on it\n", Captured([] { LogTick100("on it"); }));
  g_fake_tick = 5007;
  EXPECT_EQ(" [5.007] now\n", Captured([] { LogTickNow("now"); }));
  EXPECT_EQ(0, g_fake_sleeps);
}

TEST_F(ConsoleLogTest, TickNearTheWrapEndsTheWait) {
  SetLogClock(&kFakeClock);
  g_fake_tick = 0xFFFFFFF0u;  // the next boundary lies past the 32-bit wrap
  const std::string out = Captured([] { LogTick(100, "wrapped"); });
  EXPECT_NE(std::string::npos, out.find("] wrapped\n"));
}

TEST_F(ConsoleLogTest, PlainLineHasNoPrefix) {
  EXPECT_EQ("plain 1 two\n", Captured([] { LogPrint("plain %d %s", 1, "two"); }));
}

TEST_F(ConsoleLogTest, LongLinesAreCut) {
  const std::string out = Captured([] {
    std::string text(3000, 'x');
    LogPrint("%s", text.c_str());
  });
  EXPECT_EQ(std::string(999, 'x') + "\n", out);
}

TEST_F(ConsoleLogTest, StampedLinesCarryDateAndTime) {
  const std::string seconds = Captured([] { LogStamp("hello %d", 42); });
  EXPECT_TRUE(std::regex_match(seconds, std::regex(R"( \[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\] hello 42\n)")))
      << seconds;
  const std::string ms = Captured([] { LogStampMs("x"); });
  EXPECT_TRUE(std::regex_match(ms, std::regex(R"( \[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\.\d{3}\] x\n)"))) << ms;
}

TEST_F(ConsoleLogTest, StampToBufferHasNoMarkNorLineEnd) {
  char buf[64];
  const int32_t count = StampToBuffer(true, buf, sizeof buf, "n=%u", 5u);
  EXPECT_EQ(static_cast<int32_t>(std::strlen(buf)), count);
  EXPECT_TRUE(std::regex_match(buf, std::regex(R"(\[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\.\d{3}\] n=5)"))) << buf;
}

TEST_F(ConsoleLogTest, WinErrReportsOnlyFailures) {
  EXPECT_EQ("", Captured([] {
              os::SetLastError(5);
              WinErrPrint(1, "never");
              WinErrTick(7, "never");
              WinErrStamp(-1, "never");
              WinErrStampMs(1, "never");
            }));
  EXPECT_EQ("CreateFile('COM3') fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n", Captured([] {
              os::SetLastError(2);
              WinErrPrint(0, "CreateFile('%s') fail.", "COM3");
            }));
  EXPECT_EQ("odd WinErr=4(UnknownWinErrCode)\n", Captured([] {
              os::SetLastError(4);
              WinErrPrint(0, "odd");
            }));
}

TEST_F(ConsoleLogTest, WinErrFormsUseTheirLineForms) {
  SetLogClock(&kFakeClock);
  g_fake_tick = 61001;
  EXPECT_EQ(" [61.001] Result: ReadFile async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n", Captured([] {
              os::SetLastError(995);
              WinErrTick(0, "Result: ReadFile async fail.");
            }));
  const std::string stamp = Captured([] {
    os::SetLastError(87);
    WinErrStampMs(0, "PurgeComm() error.");
  });
  EXPECT_TRUE(std::regex_match(
      stamp, std::regex(R"( \[[0-9_:.-]+\.\d{3}\] PurgeComm\(\) error\. WinErr=87\(ERROR_INVALID_PARAMETER\)\n)")))
      << stamp;
}

TEST(RenderTest, EpochMillisecondsInLocalTime) {
  setenv("TZ", "UTC", 1);
  tzset();
  int64_t ms = 1700000000123LL;
  FormatCallback cb;
  char buf[64];
  FormatToBuffer(buf, sizeof buf, "<%F>", MakeFormatCallback(&cb, &RenderEpochMs, &ms));
  EXPECT_STREQ("<2023-11-14_22:13:20.123>", buf);
  ms = 0;
  FormatToBuffer(buf, sizeof buf, "<%F>", MakeFormatCallback(&cb, &RenderEpochMs, &ms));
  EXPECT_STREQ("<(none)>", buf);
  ms = -5;
  FormatToBuffer(buf, sizeof buf, "<%F>", MakeFormatCallback(&cb, &RenderEpochMs, &ms));
  EXPECT_STREQ("<>", buf);
}

TEST_F(ConsoleLogTest, LinesOfDifferentThreadsStayWhole) {
  const std::string out = Captured([] {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([t] {
        const std::string body(120, static_cast<char>('a' + t));
        for (int i = 0; i < 200; ++i) LogPrint("%d:%s:%d", t, body.c_str(), i);
      });
    }
    for (auto& th : threads) th.join();
  });
  std::istringstream lines(out);
  std::string line;
  int count = 0;
  const std::regex whole(R"(([0-3]):([a-d])\2{119}:\d+)");
  while (std::getline(lines, line)) {
    ++count;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(line, m, whole)) << line;
    EXPECT_EQ(m[1].str()[0] - '0', m[2].str()[0] - 'a') << line;
  }
  EXPECT_EQ(800, count);
}

}  // namespace
}  // namespace portwren
