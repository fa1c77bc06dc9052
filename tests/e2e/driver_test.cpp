// The driver's part of the built program where no driver package is installed: the listing of
// this machine's serial devices, the unplug and reinstall requests (natively and the Windows build
// under Wine), and the driver keys on a pseudo-terminal.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "common/e2e_support.h"
#include "common/run_program.h"

namespace portwren {
namespace {

using testkit::ProcessResult;

enum class Build { kNative, kWindows };

constexpr char kStart[] = "Portwren version " PORTWREN_VERSION_STRING
                          ", compiled on D\n"
                          "Cannot get TRELLIS kernel version. WinErr=21(ERROR_NOT_READY)\n";

class DriverEndToEnd : public ::testing::TestWithParam<Build> {
 protected:
  void SetUp() override {
    if (GetParam() != Build::kWindows) return;
    if (!testkit::WindowsBuildConfigured()) GTEST_SKIP() << "no Windows build configured";
    ASSERT_EQ(testkit::WineUnavailableReason(), "");
  }

  ProcessResult Run(const std::vector<std::string>& args, const std::string& input = "") {
    testkit::ProcessOptions options;
    options.stdin_bytes = input;
    ProcessResult r;
    if (GetParam() == Build::kNative) {
      r = testkit::RunPortwren(args, options);
    } else {
      options.timeout = std::chrono::seconds(120);  // a fresh prefix starts slowly
      r = testkit::RunPortwrenUnderWine(args, options);
    }
    EXPECT_TRUE(r.started) << r.error;
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.exit_code, 0) << r.out;
    r.out = testkit::ScrubRunText(testkit::NormalizeLineEnds(r.out));
    EXPECT_TRUE(r.out.starts_with(kStart)) << r.out;
    r.out.erase(0, r.out.starts_with(kStart) ? sizeof kStart - 1 : 0);
    return r;
  }

  // The listing's total when the text is a listing whose blocks count up to it (else -1): lines
  // of the listing's own shapes, then the total and an empty line.
  static int ListingTotal(const std::string& text) {
    static const std::regex kListing(
        R"(((<#\d+>|    [A-Za-z:-][A-Za-z :-]{12}: .*|  [* ] Service name : .*|Warning! .*|    Unexpect.*)\n)*)"
        R"(Total (\d+) VCOM devices found\.\n\n[^\n]*)");
    std::smatch match;
    if (!std::regex_match(text, match, kListing)) return -1;
    const int total = std::stoi(match[3]);
    const bool counted =
        (total == 0 || text.find("<#" + std::to_string(total) + ">\n") != std::string::npos) &&
        text.find("<#" + std::to_string(total + 1) + ">") == std::string::npos;
    return counted ? total : -1;
  }
};

void PrintTo(Build build, std::ostream* os) {
  *os << (build == Build::kNative ? "native" : "Windows build");
}

// Linux lists its serial devices (none, or what this machine has); Wine what it enumerates. Only
// the long option asks about the dialog, and only when something was listed.
TEST_P(DriverEndToEnd, ListingsShowWhatTheSystemEnumerates) {
  ProcessResult r = Run({"-l"}, "1\n");
  const int total = ListingTotal(r.out);
  ASSERT_GE(total, 0) << r.out;
  EXPECT_TRUE(r.out.ends_with("found.\n\n")) << r.out;
  if (GetParam() == Build::kNative && total > 0) {
    EXPECT_NE(r.out.find("    DevOpenPath  : \"/dev/"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("  * Service name"), std::string::npos) << r.out;
  }
  r = Run({"--list-vcoms"}, "0\n");
  EXPECT_EQ(ListingTotal(r.out), total) << r.out;
  const std::string numbers = total > 1 ? "1-" + std::to_string(total) : "1";
  EXPECT_TRUE(total == 0 ? r.out.ends_with("found.\n\n")
                         : r.out.ends_with("(input number " + numbers + ")? "))
      << r.out;
}

// The bus is not there: the failed open's error, not the 1167 the request returns.
TEST_P(DriverEndToEnd, UnplugAndReinstallWithoutABus) {
  ProcessResult r = Run({"--unplug-vcoms", "--vbus-reinstall"});
  EXPECT_EQ(r.out, " [D] Unplug all VCOMs fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n");
  r = Run({"--vbus-reinstall"});
  EXPECT_EQ(r.out, "");
}

INSTANTIATE_TEST_SUITE_P(Builds, DriverEndToEnd, ::testing::Values(Build::kNative, Build::kWindows),
                         [](const ::testing::TestParamInfo<Build>& param_info) {
                           return param_info.param == Build::kNative ? "Native" : "Wine";
                         });

using DriverKeysEndToEnd = testkit::PtyRunTest;

// A pseudo-terminal's driver knows no VCOM request, and there is no bus to send the tests to.
TEST_F(DriverKeysEndToEnd, VcomAndBusKeysReportTheMissingDriver) {
  const ProcessResult r = Run({port()}, "<>|!@\x1b");
  testkit::ExpectInOrder(
      r.out,
      {testkit::OpenedLines(port()),
       "Got '<'.\nIOCTL_VCOM_OneTimeTemporalLifemode_Enable exec fail. WinErr=1(ERROR_INVALID_FUNCTION)\n" +
           testkit::KeyPrompt(1),
       "Got '>'.\nIOCTL_VCOM_OneTimeTemporalLifemode_Disable exec fail. WinErr=1(ERROR_INVALID_FUNCTION)\n" +
           testkit::KeyPrompt(2),
       "Got '|'.\nIOCTL_VCOM_OneTimeTemporalLifemode_Query exec fail. WinErr=1(ERROR_INVALID_FUNCTION)\n" +
           testkit::KeyPrompt(3),
       "Got '!'.\nIOCTL_TRELLIS_VbusReadTest fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n" + testkit::KeyPrompt(4),
       "Got '@'.\nIOCTL_TRELLIS_VbusWriteTest fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n" +
           testkit::KeyPrompt(5) + testkit::kEscLines + testkit::kClosedLines});
}

}  // namespace
}  // namespace portwren
