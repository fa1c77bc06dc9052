// Console log lines, the WinErr reports, the name tables and the size texts.
#include "format/console_log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
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
  std::string sizes;
  for (uint64_t count : {0ull, 999ull, 1000ull, 1500ull, 999990ull, 1000000ull, 1000000000ull, ~0ull}) {
    sizes += SizeText(count, "B", buf, sizeof buf) + std::string("|");
  }
  EXPECT_EQ("0 B|999 B|1.00 KB|1.50 KB|999.99 KB|1.00 MB|1.00 GB|18446744073.71 GB|", sizes);
  EXPECT_STREQ("1.50", SizeText(1500, "B", buf, 5));  // cut to the buffer
  EXPECT_STREQ("1.50 KB/s", RateText(1500, 1000, buf, sizeof buf));
  EXPECT_STREQ("999 B/s", RateText(999, 1000, buf, sizeof buf));
  EXPECT_STREQ("3.00 KB/s", RateText(1500, 500, buf, sizeof buf));
}

// The names of `codes`, space separated, from the narrow and from the wide table, which must agree.
template <class Narrow, class Wide>
std::string Names(Narrow narrow, Wide wide, std::initializer_list<uint32_t> codes) {
  std::string names;
  for (uint32_t code : codes) {
    const std::u16string w = wide(code);
    EXPECT_EQ(std::string(w.begin(), w.end()), narrow(code)) << code;
    names += (names.empty() ? "" : " ") + std::string(narrow(code));
  }
  return names;
}

TEST(ErrorNamesTest, EveryRowAndTheUnknownCodes) {
  EXPECT_EQ(
      Names(WinErrName, WinErrNameW, {0,  1,    2,    3,  5,   6,   21, 995, 997, 8, 14,  22,
                                      87, 1460, 1167, 55, 122, 998, 31, 121, 123, 4, 996, 0xFFFFFFFFu}),
      "ERROR_SUCCESS ERROR_INVALID_FUNCTION ERROR_FILE_NOT_FOUND ERROR_PATH_NOT_FOUND ERROR_ACCESS_DENIED "
      "ERROR_INVALID_HANDLE ERROR_NOT_READY ERROR_OPERATION_ABORTED ERROR_IO_PENDING ERROR_NOT_ENOUGH_MEMORY "
      "ERROR_OUTOFMEMORY ERROR_BAD_COMMAND ERROR_INVALID_PARAMETER ERROR_TIMEOUT ERROR_DEVICE_NOT_CONNECTED "
      "ERROR_DEV_NOT_EXIST ERROR_INSUFFICIENT_BUFFER ERROR_NOACCESS ERROR_GEN_FAILURE ERROR_SEM_TIMEOUT "
      "ERROR_INVALID_NAME UnknownWinErrCode UnknownWinErrCode UnknownWinErrCode");
  EXPECT_EQ(
      Names(ProblemCodeName, ProblemCodeNameW, {1, 10, 18, 22, 47, 52, 0, 2}),
      "CM_PROB_NOT_CONFIGURED CM_PROB_FAILED_START CM_PROB_REINSTALL CM_PROB_DISABLED CM_PROB_HELD_FOR_EJECT "
      "CM_PROB_UNSIGNED_DRIVER UnknownProblemCode UnknownProblemCode");
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
  EXPECT_EQ("<2023-11-14_22:13:20.123>", EpochText(1700000000123LL));
  EXPECT_EQ("<30828-09-14_02:48:05.477>", EpochText(910692730085477LL));
  EXPECT_EQ("<(none)>", EpochText(0));
  for (int64_t ms :
       {int64_t{-5}, int64_t{910692730085478}, int64_t{1844674407370956}, INT64_C(1) << 62, INT64_MAX}) {
    EXPECT_EQ("<>", EpochText(ms)) << ms;
  }
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
