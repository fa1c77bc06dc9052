// The timeout check against the POSIX backend on a pseudo-terminal whose far end echoes every
// byte: every rule passes and the timeouts come back as they were. Against a port that breaks one
// rule on purpose, the lines of that rule fail and every other line still passes.
#include "port/timeout_check.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/echo_peer.h"
#include "port_test_support.h"

namespace portwren::porttest {
namespace {

constexpr os::Dword kMax = os::kMaxDword;

enum class Fault {
  kNone,
  kIntervalFromIssue,  // the interval timer runs once, from the read's start
  kMultiplierIgnored,
  kImmediateBlocks,  // MAXDWORD/0/0 waits for every byte asked for
  kPurgeNoAbort,
  kWriteTimeoutIgnored,
};

// Forwards to the real port, but keeps one rule wrong; reports back the timeouts it was given.
class FaultyPort : public TimeoutCheckPort {
 public:
  FaultyPort(os::Handle port, Fault fault) : TimeoutCheckPort(port), fault_(fault) {}

  bool GetTimeouts(os::CommTimeouts* timeouts) override {
    if (!given_) return TimeoutCheckPort::GetTimeouts(timeouts);
    *timeouts = *given_;
    return true;
  }

  bool SetTimeouts(const os::CommTimeouts& timeouts) override {
    os::CommTimeouts t = timeouts;
    const bool interval_only = t.ReadIntervalTimeout != 0 && t.ReadIntervalTimeout != kMax &&
                               t.ReadTotalTimeoutMultiplier == 0 && t.ReadTotalTimeoutConstant == 0;
    if (fault_ == Fault::kIntervalFromIssue && interval_only) {
      t.ReadTotalTimeoutConstant = t.ReadIntervalTimeout;
      t.ReadIntervalTimeout = 0;
    }
    if (fault_ == Fault::kMultiplierIgnored && t.ReadTotalTimeoutMultiplier != kMax)
      t.ReadTotalTimeoutMultiplier = 0;
    if (fault_ == Fault::kImmediateBlocks && t.ReadIntervalTimeout == kMax &&
        t.ReadTotalTimeoutMultiplier == 0 && t.ReadTotalTimeoutConstant == 0) {
      t.ReadIntervalTimeout = 0;
    }
    if (fault_ == Fault::kWriteTimeoutIgnored)
      t.WriteTotalTimeoutMultiplier = t.WriteTotalTimeoutConstant = 0;
    if (!TimeoutCheckPort::SetTimeouts(t)) return false;
    given_ = timeouts;
    return true;
  }

  bool Purge(os::Dword flags) override {
    if (fault_ == Fault::kPurgeNoAbort) flags &= ~(os::kPurgeTxAbort | os::kPurgeRxAbort);
    return flags == 0 || TimeoutCheckPort::Purge(flags);
  }

 private:
  const Fault fault_;
  std::optional<os::CommTimeouts> given_;
};

struct FaultCase {
  const char* name;
  Fault fault;
  std::set<std::string> failing;
};

const FaultCase kCases[] = {
    {"Conforming", Fault::kNone, {}},
    {"IntervalFromIssue", Fault::kIntervalFromIssue, {"interval_idle", "interval_restart"}},
    {"MultiplierIgnored", Fault::kMultiplierIgnored, {"total", "maxdword_m_c"}},
    {"ImmediateBlocks", Fault::kImmediateBlocks, {"maxdword_0_0_empty", "maxdword_0_0_waiting"}},
    {"PurgeNoAbort", Fault::kPurgeNoAbort, {"purge_rx_abort", "purge_tx_abort"}},
    {"WriteTimeoutIgnored", Fault::kWriteTimeoutIgnored, {"write_total"}},
};

void PrintTo(const FaultCase& c, std::ostream* os) {
  *os << c.name;
}

class TimeoutCheckTest : public PortTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(TimeoutCheckTest, OnlyTheBrokenRulesFail) {
  const FaultCase& c = GetParam();
  const os::CommTimeouts before{7, 8, 9, 10, 11};
  ASSERT_TRUE(os::SetCommTimeouts(port_, &before));
  testkit::EchoPeer far(pty_, {});
  FaultyPort port(port_, c.fault);
  std::vector<TimeoutRuleResult> results;
  TimeoutCheckSummary summary;
  const std::string out = Captured(
      [&] { summary = RunTimeoutCheck(port, [&](const TimeoutRuleResult& r) { results.push_back(r); }); });

  // Every rule ran, each once, and printed its line.
  const std::vector<std::string> ids = {"loopback",
                                        "interval_idle",
                                        "interval_restart",
                                        "total",
                                        "current_read_timeouts",
                                        "no_timeout",
                                        "maxdword_0_0_empty",
                                        "maxdword_0_0_waiting",
                                        "maxdword_m_c",
                                        "maxdword_maxdword_c_waiting",
                                        "maxdword_maxdword_c_first_byte",
                                        "maxdword_maxdword_c_timeout",
                                        "all_maxdword_refused",
                                        "purge_rx_abort",
                                        "cancelled_read_bytes",
                                        "write_total",
                                        "purge_tx_abort",
                                        "restore"};
  ASSERT_EQ(ids.size(), results.size()) << out;
  for (size_t i = 0; i < ids.size(); ++i) {
    const TimeoutRuleResult& r = results[i];
    SCOPED_TRACE(r.id);
    EXPECT_EQ(ids[i], r.id);
    const CheckVerdict expected = c.failing.count(r.id) != 0                    ? CheckVerdict::kFail
                                  : r.id == std::string("cancelled_read_bytes") ? CheckVerdict::kInfo
                                                                                : CheckVerdict::kPass;
    EXPECT_EQ(VerdictWord(expected), std::string(VerdictWord(r.verdict))) << r.measured;
    const std::string line = std::string("\n") + VerdictWord(r.verdict) + " " + r.rule + ": expected " +
                             r.expected + "; measured " + r.measured + ".\n";
    EXPECT_NE(out.find(line), std::string::npos) << out;
  }
  // This backend hands over what a cancelled read had received.
  EXPECT_NE(results[14].measured.find("with 3 bytes after"), std::string::npos) << results[14].measured;
  EXPECT_NE(results[14].measured.find("reports what a cancelled read had"), std::string::npos);

  EXPECT_EQ(static_cast<int>(c.failing.size()), summary.failed);
  EXPECT_EQ(static_cast<int>(ids.size() - c.failing.size() - 1), summary.passed);
  EXPECT_NE(out.find("Timeout check done in " + std::to_string(summary.ms) +
                     " ms: " + std::to_string(summary.passed) + " PASS, " + std::to_string(summary.failed) +
                     " FAIL, 1 INFO.\n"),
            std::string::npos)
      << out;
  // A fake hands the port what it distorted; only the real one shows what came back.
  if (c.fault == Fault::kNone) {
    EXPECT_EQ((std::vector<os::Dword>{7, 8, 9, 10, 11}), Timeouts());
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, TimeoutCheckTest, testing::ValuesIn(kCases),
                         [](const auto& param_info) { return std::string(param_info.param.name); });

// Without a far end that echoes, the first rule fails and nothing else runs; the timeouts are
// still put back.
TEST_F(PortTest, WithoutLoopbackOnlyTheFirstRuleRuns) {
  TimeoutCheckPort port(port_);
  std::vector<std::string> verdicts;
  const std::string out = Captured([&] {
    RunTimeoutCheck(port, [&](const TimeoutRuleResult& r) {
      verdicts.push_back(std::string(r.id) + " " + VerdictWord(r.verdict));
    });
  });
  EXPECT_EQ((std::vector<std::string>{"loopback FAIL", "restore PASS"}), verdicts);
  EXPECT_NE(out.find("measured 0 bytes after 1"), std::string::npos) << out;
  EXPECT_NE(out.find("No loopback"), std::string::npos) << out;
  EXPECT_EQ((std::vector<os::Dword>{0, 0, 0, 0, 0}), Timeouts());
}

}  // namespace
}  // namespace portwren::porttest
