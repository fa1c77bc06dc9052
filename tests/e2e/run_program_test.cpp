#include "common/run_program.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace portwren::testkit {
namespace {

// "sh" and "cat" below are looked up on PATH.
ProcessResult Shell(const std::string& script, const ProcessOptions& options = {}) {
  return RunProcess("sh", {"-c", script}, options);
}

TEST(RunProcess, CapturesStreamsApartTheExitCodeAndAKillingSignal) {
  ProcessResult r = Shell("printf 'to out'; printf 'to err' >&2; exit 3");
  ASSERT_TRUE(r.started) << r.error;
  EXPECT_EQ(r.out, "to out");
  EXPECT_EQ(r.err, "to err");
  EXPECT_EQ(r.exit_code, 3);
  EXPECT_FALSE(r.timed_out);
  EXPECT_EQ(r.term_signal, 0);

  r = Shell("kill -TERM $$");
  EXPECT_FALSE(r.timed_out);
  EXPECT_EQ(r.exit_code, -1);
  EXPECT_EQ(r.term_signal, SIGTERM);
}

TEST(RunProcess, StandardInputIsGivenBytesAGivenDescriptorOrNothing) {
  ProcessOptions options;
  options.stdin_bytes = std::string("bin\0ary\xff", 8);
  ProcessResult r = RunProcess("cat", {}, options);
  EXPECT_EQ(r.out, std::string("bin\0ary\xff", 8));
  EXPECT_EQ(r.exit_code, 0);

  // More than a pipe holds, in both directions at once.
  options.stdin_bytes = std::string(1 << 20, 'x');
  r = RunProcess("cat", {}, options);
  EXPECT_EQ(r.out.size(), size_t{1} << 20);
  EXPECT_EQ(r.exit_code, 0);

  r = RunProcess("cat", {});  // /dev/null
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.exit_code, 0);

  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(write(fds[1], "from fd", 7), 7);
  close(fds[1]);
  ProcessOptions given;
  given.stdin_fd = fds[0];
  r = RunProcess("cat", {}, given);
  close(fds[0]);
  EXPECT_EQ(r.out, "from fd");
}

TEST(RunProcess, EnvironmentAdditionsAndRemovals) {
  ProcessOptions options;
  options.env = {{"PORTWREN_TEST_VALUE", "bar"}, {"HOME", "/elsewhere"}};
  options.env_unset = {"PATH_THAT_IS_NOT_SET", "LANG"};
  const ProcessResult r =
      Shell("printf '%s|%s|%s' \"$PORTWREN_TEST_VALUE\" \"$HOME\" \"${LANG-unset}\"", options);
  EXPECT_EQ(r.out, "bar|/elsewhere|unset");
}

TEST(RunProcess, HungProgramIsKilledAtTheLimit) {
  ProcessOptions options;
  options.timeout = std::chrono::milliseconds(300);
  const auto start = std::chrono::steady_clock::now();
  // The background child keeps the output pipe open; the whole group goes.
  const ProcessResult r = Shell("printf early; sleep 30 & sleep 30", options);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(r.timed_out);
  EXPECT_EQ(r.exit_code, -1);
  EXPECT_EQ(r.term_signal, SIGKILL);
  EXPECT_EQ(r.out, "early");
  EXPECT_LT(took, std::chrono::seconds(10));
}

TEST(RunProcess, MissingProgramDoesNotStart) {
  ProcessResult r = RunProcess("no-such-program-portwren", {});
  EXPECT_FALSE(r.started);
  EXPECT_NE(r.error, "");
  r = RunProcess("/nonexistent/dir/prog", {});
  EXPECT_FALSE(r.started);
  EXPECT_NE(r.error.find("No such file"), std::string::npos) << r.error;
}

TEST(RunProcess, NormalizeLineEndsTurnsOnlyCrLfIntoLf) {
  EXPECT_EQ(NormalizeLineEnds("a\r\nb\r\r\n\n\r"), "a\nb\r\n\n\r");
  EXPECT_EQ(NormalizeLineEnds(""), "");
}

}  // namespace
}  // namespace portwren::testkit
