// The built program run as a user runs it: natively, and the Windows build under Wine, with the
// same expectations for both (line ends normalised).
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "common/run_program.h"
#include "console/usage.h"

namespace portwren {
namespace {

using testkit::ProcessResult;

enum class Build { kNative, kWindows };

void PrintTo(Build build, std::ostream* os) {
  *os << (build == Build::kNative ? "native" : "Windows build under Wine");
}

constexpr char kBanner[] = "Portwren version " PORTWREN_VERSION_STRING ", compiled on <date> <time>\n";
// What start-up says when no driver package is installed, on Linux and under Wine alike.
constexpr char kNoDriver[] = "Cannot get TRELLIS kernel version. WinErr=21(ERROR_NOT_READY)\n";
constexpr char kHelpHint[] = "\nUse option -h to display parameter help.\n";

// The build date and time differ between builds.
std::string ScrubBanner(const std::string& out) {
  static const std::regex banner(
      "^Portwren version [0-9.]+, compiled on [A-Z][a-z]{2} [ 0-3][0-9] [0-9]{4} "
      "[0-9]{2}:[0-9]{2}:[0-9]{2}\n");
  // Every run goes on after the kernel version of the missing driver; the cases below leave it out.
  const std::string scrubbed =
      std::regex_replace(out, banner, kBanner, std::regex_constants::format_first_only);
  if (!scrubbed.starts_with(std::string(kBanner) + kNoDriver)) {
    ADD_FAILURE() << "no kernel version line:\n" << scrubbed;
    return scrubbed;
  }
  return kBanner + scrubbed.substr(sizeof kBanner - 1 + sizeof kNoDriver - 1);
}

std::string UsageText() {
  testing::internal::CaptureStdout();
  PrintUsage();
  return testing::internal::GetCapturedStdout();
}

class CommandLineEndToEnd : public ::testing::TestWithParam<Build> {
 protected:
  void SetUp() override {
    if (GetParam() != Build::kWindows) return;
    if (!testkit::WindowsBuildConfigured()) GTEST_SKIP() << "no Windows build configured";
    // The build expects these runs: a missing wine or exe is a failure, not a skip.
    const std::string reason = testkit::WineUnavailableReason();
    ASSERT_EQ(reason, "");
  }

  ProcessResult Run(const std::vector<std::string>& args) {
    ProcessResult r;
    if (GetParam() == Build::kNative) {
      r = testkit::RunPortwren(args);
    } else {
      testkit::ProcessOptions options;
      options.timeout = std::chrono::seconds(120);  // a fresh prefix starts slowly
      r = testkit::RunPortwrenUnderWine(args, options);
      // Text mode of the C runtime: every line end is CR LF.
      EXPECT_EQ(std::regex_search(r.out, std::regex("[^\r]\n|^\n")), false) << r.out;
    }
    EXPECT_TRUE(r.started) << r.error;
    EXPECT_FALSE(r.timed_out);
    r.out = ScrubBanner(testkit::NormalizeLineEnds(r.out));
    r.err = testkit::NormalizeLineEnds(r.err);
    return r;
  }
};

TEST_P(CommandLineEndToEnd, NoArgumentsShowsTheUsage) {
  const ProcessResult r = Run({});
  EXPECT_EQ(r.out, kBanner + UsageText());
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, LoneDashHShowsTheUsage) {
  const ProcessResult r = Run({"-h"});
  EXPECT_EQ(r.out, kBanner + UsageText());
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, DashHWithMoreIsABadOption) {
  const ProcessResult r = Run({"-h", "COM3"});
  EXPECT_EQ(r.out, std::string(kBanner) + "Bad short option '-h'." + "\n" + kHelpHint);
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, RefusedValuesAreAllReported) {
  const ProcessResult r = Run({"COM3", "-b", "8124000", "-c", "0", "-K", "11"});
  EXPECT_EQ(r.out, std::string(kBanner) +
                       "--bytesrw or -b has bad argument(should>=0)\n"
                       "--msec-cancel or -c has bad argument(should>0)\n"
                       "-K or --echo-chunk-maxbytes has bad argument(should between 12 and 8024012)\n" +
                       kHelpHint);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, BreakHoldOutOfBoundsIsRefused) {
  const ProcessResult r = Run({"COM3", "--hold-break=0"});
  EXPECT_EQ(r.out,
            std::string(kBanner) + "--hold-break has bad argument(should between 1 and 10000)\n" + kHelpHint);
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, AmbiguousLongOption) {
  const ProcessResult r = Run({"COM3", "--rto=5"});
  EXPECT_EQ(r.out, std::string(kBanner) + "Bad long option '--rto=5'\n" + kHelpHint);
  // The scanner names the program as it was started; under Wine that is a Windows path.
  EXPECT_TRUE(r.err.ends_with(": option `--rto=5' is ambiguous\n")) << r.err;
  EXPECT_NE(r.err.find("portwren"), std::string::npos) << r.err;
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, MissingValueAndTwoPorts) {
  ProcessResult r = Run({"COM3", "--bytesrw"});
  EXPECT_EQ(r.out, std::string(kBanner) + "Long option '--bytesrw' missing an argument\n" + kHelpHint);
  EXPECT_EQ(r.exit_code, 1);
  r = Run({"COM3", "COM4"});
  EXPECT_EQ(r.out, std::string(kBanner) + "You pass in more than one argument as COM port device name.\n" +
                       kHelpHint);
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, AcceptedCommandLineWithAMissingPortGivesTheHint) {
  const ProcessResult r = Run({"COM12", "-b", "20", "-c", "4000", "--rtoi=-1", "--rtom=-1", "--rtoc=3000"});
  EXPECT_EQ(r.out, std::string(kBanner) +
                       "CreateFile('COM12') fail. WinErr=2(ERROR_FILE_NOT_FOUND)\n"
                       "Did you forget to add extra prefix for COM12 ? Try \\\\.\\COM12 instead.\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.exit_code, 1);
}

TEST_P(CommandLineEndToEnd, ListingTakesNoPort) {
  const ProcessResult r = Run({"-l", "COM3", "COM4"});
  EXPECT_TRUE(r.out.starts_with(kBanner)) << r.out;
  EXPECT_EQ(r.out.find("Use option -h"), std::string::npos) << r.out;
  EXPECT_EQ(r.exit_code, 0);
}

INSTANTIATE_TEST_SUITE_P(Builds, CommandLineEndToEnd, ::testing::Values(Build::kNative, Build::kWindows),
                         [](const ::testing::TestParamInfo<Build>& param_info) {
                           return param_info.param == Build::kNative ? "Native" : "Wine";
                         });

}  // namespace
}  // namespace portwren
