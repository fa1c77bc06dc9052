// Reads left in flight on purpose (--omit-cancelio, --omit-getoverlappedresult): the request
// outlives the key that started it and its event; bytes that arrive later complete it, and ESC
// closes the port under it. Nothing hangs, the loop answers, and (in the asan build) nothing
// touches freed memory: the run helper fails the test on a sanitizer's report.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/e2e_support.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::ProcessOptions;
using testkit::ProcessResult;

constexpr int kLineWaitMs = 15000;

struct InFlightCase {
  const char* name;
  std::vector<std::string> options;
  std::string late;                // sent by the far end once the read has been given up
  std::vector<std::string> after;  // printed once it came
};

const InFlightCase kCases[] = {
    // GetOverlappedResult waits for the uncancelled read until the late bytes fill it.
    {"NoCancel", {"--omit-cancelio"}, "0123456789", {"Result: ReadFile async SUCCESS. nDone=10."}},
    // Cancelled but never collected: the late bytes find no request.
    {"NoResult", {"--omit-getoverlappedresult"}, "late", {}},
    // Neither: the request completes after its event was closed.
    {"Neither", {"--omit-cancelio", "--omit-getoverlappedresult"}, "0123456789", {}},
    // Neither, and nothing comes: ESC closes the port under the request.
    {"NeitherAndSilence", {"--omit-cancelio", "--omit-getoverlappedresult"}, "", {}},
};

class InFlight : public testkit::PtyRunTest, public testing::WithParamInterface<InFlightCase> {};

TEST_P(InFlight, CompletesWithoutTouchingFreedMemory) {
  const InFlightCase& c = GetParam();
  std::vector<std::string> args{port(), "-b", "10", "-c", "200"};
  args.insert(args.end(), c.options.begin(), c.options.end());
  testkit::KeyPipe keys;
  testkit::OutputWatch watch;
  ProcessOptions options;
  options.stdin_fd = keys.read_fd();
  options.on_out = watch.Tap();
  options.env_unset = {"PORTWREN_PRINT_LESS"};
  ProcessResult r;
  std::thread runner([&] { r = testkit::RunPortwrenLineBuffered(args, options); });
  keys.Type("r");
  EXPECT_TRUE(watch.WaitFor("WAIT_TIMEOUT", kLineWaitMs));
  EXPECT_TRUE(watch.WaitFor("**NOT** calling", kLineWaitMs));
  if (!c.late.empty()) {
    EXPECT_TRUE(pty_.WriteFar(c.late));
  }
  for (const std::string& line : c.after) EXPECT_TRUE(watch.WaitFor(line, kLineWaitMs)) << line;
  keys.Type("q");
  EXPECT_TRUE(watch.WaitFor("Got 'q'.", kLineWaitMs));
  keys.Close();
  runner.join();
  EXPECT_FALSE(r.timed_out);
  EXPECT_EQ(0, r.exit_code) << r.out << r.err;
  ExpectInOrder(testkit::ScrubRunText(r.out),
                {"Got 'r'.", "WAIT_TIMEOUT", "Got 'q'.", testkit::kEscLines, testkit::kClosedLines});
}

INSTANTIATE_TEST_SUITE_P(Cases, InFlight, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<InFlightCase>& p) { return p.param.name; });

}  // namespace
}  // namespace portwren
