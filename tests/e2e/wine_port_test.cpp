// The Windows build under Wine on a COM port that the prefix maps to a pseudo-terminal, keys from a
// pipe, the test holding the far end: what crosses the line and what the keys print. Wine's serial
// emulation is not Windows; the checks it cannot pass are listed in common/wine_differences.h.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <string>

#include "common/e2e_support.h"
#include "common/wine_differences.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::ProcessOptions;
using testkit::ProcessResult;

// Each test maps a COM number of its own, so that tests may run side by side.
class WinePortTest : public testkit::PtyRunTest {
 protected:
  void SetUp() override {
    testkit::PtyRunTest::SetUp();
    if (!testkit::WindowsBuildConfigured()) GTEST_SKIP() << "no Windows build configured";
    ASSERT_EQ(testkit::PrepareWinePrefix(), "");
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    com_ = "com" + std::to_string(20 + std::hash<std::string>{}(info->name()) % 200);
    link_ = std::filesystem::path(testkit::WinePrefixDir()) / "dosdevices" / com_;
    std::error_code ec;
    std::filesystem::remove(link_, ec);
    std::filesystem::create_symlink(port(), link_, ec);
    ASSERT_FALSE(ec) << ec.message();
  }
  void TearDown() override {
    std::error_code ec;
    if (!link_.empty()) std::filesystem::remove(link_, ec);
  }

  // Runs portwren.exe on the mapped port with keys from a pipe; the output with CR LF made LF.
  ProcessResult RunExe(const std::vector<std::string>& options, const std::string& keys) {
    std::vector<std::string> args{"\\\\.\\" + com_};
    args.insert(args.end(), options.begin(), options.end());
    ProcessOptions run;
    run.stdin_bytes = keys;
    run.timeout = std::chrono::seconds(60);
    run.env.emplace_back("PORTWREN_PRINT_LESS", "1");
    ProcessResult r = testkit::RunPortwrenUnderWine(args, run);
    EXPECT_TRUE(r.started) << r.error;
    EXPECT_FALSE(r.timed_out) << "portwren.exe did not end within 60 s: hung under Wine\n" << r.out;
    r.out = testkit::ScrubRunText(testkit::NormalizeLineEnds(r.out));
    return r;
  }

  std::string com_;
  std::filesystem::path link_;
};

TEST_F(WinePortTest, OpensTheMappedPortAndEndsOnEsc) {
  const ProcessResult r = RunExe({}, "\x1b");
  EXPECT_EQ(r.exit_code, 0) << r.out;
  ExpectInOrder(r.out, {"CreateFile('\\\\.\\" + com_ + "') success.", "Choose action:", "Got '\x1b'.",
                        "Calling CloseHandle(0xH)...", "Done    CloseHandle(0xH)."});
}

TEST_F(WinePortTest, WritePutsTheCounterWordsOnTheLine) {
  const ProcessResult r = RunExe({"-b", "6"}, "ww\x1b");
  EXPECT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(pty_.ReadFar(12, 5000), std::string("\x00\x00\x01\x00\x02\x00\x03\x00\x04\x00\x05\x00", 12));
  ExpectInOrder(r.out,
                {"Calling WriteFile(), request 6 bytes...", "Calling WriteFile(), request 6 bytes..."});
}

TEST_F(WinePortTest, ReadReturnsWhatTheFarEndSent) {
  ASSERT_TRUE(pty_.WriteFar("hello"));
  const ProcessResult r = RunExe({"-b", "5", "-c", "3000"}, "r\x1b");
  EXPECT_EQ(r.exit_code, 0) << r.out;
  ExpectInOrder(r.out, {"Calling ReadFile() request 5 bytes...", "nDone=5", "\nhello\n"});
}

TEST_F(WinePortTest, QueueAndStateReports) {
  ASSERT_TRUE(pty_.WriteFar("abc"));
  const ProcessResult r = RunExe({}, "qi\x1b");
  EXPECT_EQ(r.exit_code, 0) << r.out;
  EXPECT_TRUE(
      std::regex_search(r.out, std::regex("ClearCommError\\(\\) reports: cbInQue=[0-9]+, cbOutQue=0")))
      << r.out;
  // The state report, or its failure line where Wine cannot give the state of a pseudo-terminal.
  EXPECT_TRUE(std::regex_search(r.out, std::regex("Baudrate=115200|GetCommState\\(\\).*WinErr=")))
      << r.out << wine::kCommStateOnPty;
}

}  // namespace
}  // namespace portwren
