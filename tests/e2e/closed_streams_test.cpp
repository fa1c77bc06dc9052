// The program started without one of its standard streams: the port must not take the
// stream's place, so nothing it prints reaches the line and a closed input is the end of keys.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/e2e_support.h"

namespace portwren {
namespace {

using testkit::ExpectInOrder;
using testkit::kClosedLines;
using testkit::kEscLines;
using testkit::ProcessOptions;
using testkit::ProcessResult;

using ClosedStreamsEndToEnd = testkit::PtyRunTest;

TEST_F(ClosedStreamsEndToEnd, PortNeverTakesAClosedStreamsPlace) {
  const struct {
    int closed;
    std::vector<std::string> options;
    const char* keys;
    std::vector<std::string> out;  // what must show, in this order; nothing at all when empty
  } cases[] = {
      // No input: the end of input is ESC, which first stops the repeating and then quits.
      {0,
       {"--first-key=z", "--repeat-final-key"},
       "",
       {"(Repeat-key stops.)\n" + std::string(kEscLines) + kClosedLines}},
      {1, {}, "?\x1b", {}},
      {2, {}, "?\x1b", {" X : Quit portwren and do a deliberate CreateFile().\n", kEscLines, kClosedLines}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE("descriptor " + std::to_string(c.closed) + " closed");
    std::vector<std::string> args{port()};
    args.insert(args.end(), c.options.begin(), c.options.end());
    ProcessOptions options;
    options.closed_fds = {c.closed};
    options.timeout = std::chrono::seconds(10);
    const ProcessResult r = Run(args, c.keys, 0, options);
    if (c.out.empty()) {
      EXPECT_EQ(r.out, "");
    } else {
      ExpectInOrder(r.out, c.out);
    }
    EXPECT_EQ(pty_.ReadFar(1 << 16, 200), "") << "the far end of the line received output";
  }
}

}  // namespace
}  // namespace portwren
