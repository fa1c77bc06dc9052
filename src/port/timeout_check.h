// The timeout conformance check: on a port whose output comes back to its input (a loopback
// plug, or a pseudo-terminal whose far end echoes), each rule of the Windows read and write
// timeouts is provoked and timed, one line per rule with what was expected, what was measured and
// PASS, FAIL or INFO (behaviour where drivers legitimately differ, or what the line cannot show).
// The port's timeouts are put back afterwards.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "port/timeout_check_port.h"

namespace portwren {

// How far a measured time may lie from the expected one: a Windows driver's timers run on the
// system clock tick (15.6 ms), and a loaded machine wakes the check late.
inline constexpr int64_t kCheckEarlyMs = 16;
inline constexpr int64_t kCheckLateMs = 150;

enum class CheckVerdict { kPass, kFail, kInfo };

struct TimeoutRuleResult {
  const char* id = "";    // short name for machines, e.g. "interval_restart"
  const char* rule = "";  // the rule and how it is provoked
  std::string expected;
  std::string measured;
  CheckVerdict verdict = CheckVerdict::kFail;
  os::CommTimeouts timeouts;  // what the rule set last
  uint32_t request_bytes = 0;
  int64_t measured_ms = -1;  // -1: no time was measured
  int64_t measured_bytes = -1;
  os::Dword error = 0;  // the request's Windows error, 0 for success
  std::chrono::system_clock::time_point wall_start, wall_end;
  std::chrono::steady_clock::time_point start, end;
};

struct TimeoutCheckSummary {
  int passed = 0;
  int failed = 0;
  int info = 0;
  int64_t ms = 0;
};

using TimeoutRuleSink = std::function<void(const TimeoutRuleResult&)>;

// Prints a line per rule and the summary; each finished rule also goes to on_rule.
TimeoutCheckSummary RunTimeoutCheck(TimeoutCheckPort& port, const TimeoutRuleSink& on_rule);

const char* VerdictWord(CheckVerdict verdict);

}  // namespace portwren
