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

// What `print` puts on standard output, run with `last_error` as the thread's last error.
std::string Captured(void (*print)(), uint32_t last_error = 0) {
  testing::internal::CaptureStdout();
  os::SetLastError(last_error);
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

TEST(TextsTest, DwordSizeAndRate) {
  char buf[32] = "untouched";
  EXPECT_STREQ("MAXDWORD", DwordText(0xFFFFFFFFu, buf, sizeof buf));
  EXPECT_STREQ("MAXDWORD-1", DwordText(0xFFFFFFFEu, buf, sizeof buf));
  EXPECT_STREQ("MAXDWORD-2", DwordText(0xFFFFFFFDu, buf, sizeof buf));
  EXPECT_STREQ("untouched", buf) << "constant texts leave the buffer alone";
  EXPECT_STREQ("4294967292", DwordText(0xFFFFFFFCu, buf, sizeof buf));
  EXPECT_STREQ("0", DwordText(0, buf, sizeof buf));

  const std::pair<uint64_t, const char*> sizes[] = {{0, "0 B"},
                                                    {999, "999 B"},
                                                    {1000, "1.00 KB"},
                                                    {1500, "1.50 KB"},
                                                    {999990, "999.99 KB"},
                                                    {1000000, "1.00 MB"},
                                                    {1000000000ULL, "1.00 GB"},
                                                    {~0ULL, "18446744073.71 GB"}};
  for (const auto& [count, text] : sizes) EXPECT_STREQ(text, SizeText(count, "B", buf, sizeof buf)) << count;
  EXPECT_STREQ("1.50", SizeText(1500, "B", buf, 5));  // cut to the buffer
  EXPECT_STREQ("1.50 KB/s", RateText(1500, 1000, buf, sizeof buf));
  EXPECT_STREQ("999 B/s", RateText(999, 1000, buf, sizeof buf));
  EXPECT_STREQ("3.00 KB/s", RateText(1500, 500, buf, sizeof buf));
}

// Each name must read the same in the narrow and the wide table.
void ExpectNames(const char* name, const char* narrow, const char16_t* wide, uint32_t code) {
  EXPECT_STREQ(name, narrow) << code;
  EXPECT_EQ(std::u16string(name, name + std::strlen(name)), std::u16string(wide)) << code;
}

TEST(ErrorNamesTest, EveryRowAndTheUnknownCodes) {
  const std::pair<uint32_t, const char*> errors[] = {{0, "ERROR_SUCCESS"},
                                                     {1, "ERROR_INVALID_FUNCTION"},
                                                     {2, "ERROR_FILE_NOT_FOUND"},
                                                     {3, "ERROR_PATH_NOT_FOUND"},
                                                     {5, "ERROR_ACCESS_DENIED"},
                                                     {6, "ERROR_INVALID_HANDLE"},
                                                     {21, "ERROR_NOT_READY"},
                                                     {995, "ERROR_OPERATION_ABORTED"},
                                                     {997, "ERROR_IO_PENDING"},
                                                     {8, "ERROR_NOT_ENOUGH_MEMORY"},
                                                     {14, "ERROR_OUTOFMEMORY"},
                                                     {22, "ERROR_BAD_COMMAND"},
                                                     {87, "ERROR_INVALID_PARAMETER"},
                                                     {1460, "ERROR_TIMEOUT"},
                                                     {1167, "ERROR_DEVICE_NOT_CONNECTED"},
                                                     {55, "ERROR_DEV_NOT_EXIST"},
                                                     {122, "ERROR_INSUFFICIENT_BUFFER"},
                                                     {998, "ERROR_NOACCESS"},
                                                     {31, "ERROR_GEN_FAILURE"},
                                                     {121, "ERROR_SEM_TIMEOUT"},
                                                     {123, "ERROR_INVALID_NAME"},
                                                     {4, "UnknownWinErrCode"},
                                                     {996, "UnknownWinErrCode"},
                                                     {0xFFFFFFFFu, "UnknownWinErrCode"}};
  for (const auto& [code, name] : errors) ExpectNames(name, WinErrName(code), WinErrNameW(code), code);
  const std::pair<uint32_t, const char*> problems[] = {
      {1, "CM_PROB_NOT_CONFIGURED"}, {10, "CM_PROB_FAILED_START"},   {18, "CM_PROB_REINSTALL"},
      {22, "CM_PROB_DISABLED"},      {47, "CM_PROB_HELD_FOR_EJECT"}, {52, "CM_PROB_UNSIGNED_DRIVER"},
      {0, "UnknownProblemCode"},     {2, "UnknownProblemCode"}};
  for (const auto& [code, name] : problems) {
    ExpectNames(name, ProblemCodeName(code), ProblemCodeNameW(code), code);
  }
}

// The marks a new thread shows: unregistered, registered as `role`, unregistered again.
std::string MarksOfANewThread(ThreadRole role) {
  std::string marks;
  std::thread([&] {
    marks += ThreadMark();
    RegisterThread(role);
    marks += ThreadMark();
    UnregisterThread(role);
    marks += ThreadMark();
  }).join();
  return marks;
}

TEST(ThreadMarkTest, MarksFollowTheRegistry) {
  RegisterThread(ThreadRole::kMain);
  EXPECT_EQ(' ', ThreadMark());
  EXPECT_EQ("?#?", MarksOfANewThread(ThreadRole::kReader));
  EXPECT_EQ("?*?", MarksOfANewThread(ThreadRole::kCommMonitor));
  EXPECT_EQ("?>?", MarksOfANewThread(ThreadRole::kEchoPush));
  EXPECT_EQ("?<?", MarksOfANewThread(ThreadRole::kEchoPull));
  UnregisterThread(ThreadRole::kMain);
  EXPECT_EQ('?', ThreadMark());
}

// A clock that moves only when the log sleeps.
uint32_t g_fake_tick = 0;
int g_fake_sleeps = 0;
uint32_t FakeTick() {
  return g_fake_tick;
}
void FakeSleep(uint32_t ms) {
  ++g_fake_sleeps;
  g_fake_tick += ms;
}
const LogClock kFakeClock{&FakeTick, &FakeSleep};

TEST_F(ConsoleLogTest, TicksWaitForTheNextBoundaryOnlyWhenOffIt) {
  SetLogClock(&kFakeClock);
  g_fake_tick = 12345;
  g_fake_sleeps = 0;
  EXPECT_EQ(" [12.400] value 7\n", Captured([] { LogTick100("value %d", 7); }));
  EXPECT_EQ(55, g_fake_sleeps);
  g_fake_sleeps = 0;  // on a boundary, or without a period: no wait
  EXPECT_EQ(" [12.400] on it\n", Captured([] { LogTick100("on it"); }));
  g_fake_tick = 5007;
  EXPECT_EQ(" [5.007] now\n", Captured([] { LogTickNow("now"); }));
  EXPECT_EQ(0, g_fake_sleeps);
  g_fake_tick = 0xFFFFFFF0u;  // the next boundary lies past the 32-bit wrap: the wait still ends
  EXPECT_NE(std::string::npos, Captured([] { LogTick(100, "wrapped"); }).find("] wrapped\n"));
}

TEST_F(ConsoleLogTest, PlainLinesAreCutStampedOnesCarryDateAndTime) {
  EXPECT_EQ("plain 1 two\n", Captured([] { LogPrint("plain %d %s", 1, "two"); }));
  EXPECT_EQ(std::string(999, 'x') + "\n", Captured([] { LogPrint("%s", std::string(3000, 'x').c_str()); }));
  const std::string seconds = Captured([] { LogStamp("hello %d", 42); });
  EXPECT_TRUE(std::regex_match(seconds, std::regex(R"( \[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\] hello 42\n)")))
      << seconds;
  const std::string ms = Captured([] { LogStampMs("x"); });
  EXPECT_TRUE(std::regex_match(ms, std::regex(R"( \[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\.\d{3}\] x\n)"))) << ms;
  // Into a buffer: no thread mark, no line end.
  char buf[64];
  const int32_t count = StampToBuffer(true, buf, sizeof buf, "n=%u", 5u);
  EXPECT_EQ(static_cast<int32_t>(std::strlen(buf)), count);
  EXPECT_TRUE(std::regex_match(buf, std::regex(R"(\[\d{4}-\d\d-\d\d_\d\d:\d\d:\d\d\.\d{3}\] n=5)"))) << buf;
}

TEST_F(ConsoleLogTest, WinErrReportsOnlyFailuresInTheirLineForms) {
  const auto never = [] {
    WinErrPrint(1, "never");
    WinErrTick(7, "never");
    WinErrStamp(-1, "never");
    WinErrStampMs(1, "never");
  };
  EXPECT_EQ("", Captured(never, 5));
  EXPECT_EQ("CreateFile('COM3') fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n",
            Captured([] { WinErrPrint(0, "CreateFile('%s') fail.", "COM3"); }, 2));
  EXPECT_EQ("odd WinErr=4(UnknownWinErrCode)\n", Captured([] { WinErrPrint(0, "odd"); }, 4));
  SetLogClock(&kFakeClock);
  g_fake_tick = 61001;
  EXPECT_EQ(" [61.001] Result: ReadFile async fail. WinErr=995(ERROR_OPERATION_ABORTED)\n",
            Captured([] { WinErrTick(0, "Result: ReadFile async fail."); }, 995));
  const std::string stamp = Captured([] { WinErrStampMs(0, "PurgeComm() error."); }, 87);
  EXPECT_TRUE(std::regex_match(
      stamp,
      std::regex(R"( \[[0-9_:.-]+\.\d{3}\] PurgeComm\(\) error\. WinErr=87\(ERROR_INVALID_PARAMETER\)\n)")))
      << stamp;
}

std::string EpochText(int64_t ms) {
  FormatCallback cb;
  char buf[64];
  FormatToBuffer(buf, sizeof buf, "<%F>", MakeFormatCallback(&cb, &RenderEpochMs, &ms));
  return buf;
}

TEST(RenderTest, EpochMillisecondsInLocalTime) {
  const char* tz = std::getenv("TZ");
  if (tz == nullptr || std::string(tz) != "UTC") GTEST_SKIP() << "needs TZ=UTC, as ctest runs it";
  // Nothing for a time that does not convert: before 1970 or after the last millisecond of a
  // Windows FILETIME, so also where its ticks would wrap or a POSIX year overflow 16 bits.
  const struct {
    int64_t ms;
    const char* text;
  } cases[] = {{1700000000123LL, "<2023-11-14_22:13:20.123>"},
               {0, "<(none)>"},
               {-5, "<>"},
               {910692730085477LL, "<30828-09-14_02:48:05.477>"},
               {910692730085478LL, "<>"},
               {1844674407370956LL, "<>"},
               {INT64_C(1) << 62, "<>"},
               {INT64_MAX, "<>"}};
  for (const auto& c : cases) EXPECT_EQ(c.text, EpochText(c.ms)) << c.ms;
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
