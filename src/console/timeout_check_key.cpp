#include "console/timeout_check_key.h"

#include <cstdio>

#include "console/session_results.h"
#include "monitor/comm_event_monitor.h"
#include "port/timeout_check.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

const char* VerdictName(CheckVerdict verdict) {
  switch (verdict) {
    case CheckVerdict::kPass:
      return "pass";
    case CheckVerdict::kInfo:
      return "info";
    default:
      return "fail";
  }
}

void ReportRule(const TimeoutRuleResult& r) {
  const RunTimes times{r.wall_start, r.start, r.wall_end, r.end};
  JsonLine line = ResultLine("timeout_check", times);
  line.Text("rule", r.id)
      .Text("description", r.rule)
      .BeginObject("timeouts")
      .Uint("read_interval", r.timeouts.ReadIntervalTimeout)
      .Uint("read_multiplier", r.timeouts.ReadTotalTimeoutMultiplier)
      .Uint("read_constant", r.timeouts.ReadTotalTimeoutConstant)
      .Uint("write_multiplier", r.timeouts.WriteTotalTimeoutMultiplier)
      .Uint("write_constant", r.timeouts.WriteTotalTimeoutConstant)
      .EndObject()
      .Uint("request_bytes", r.request_bytes)
      .Text("expected", r.expected)
      .Text("measured", r.measured);
  if (r.measured_ms >= 0) {
    line.Int("measured_ms", r.measured_ms);
  } else {
    line.Null("measured_ms");
  }
  if (r.measured_bytes >= 0) {
    line.Int("measured_bytes", r.measured_bytes);
  } else {
    line.Null("measured_bytes");
  }
  line.Uint("error", r.error)
      .BeginObject("tolerance_ms")
      .Int("early", -kCheckEarlyMs)
      .Int("late", kCheckLateMs)
      .EndObject()
      .Text("verdict", VerdictName(r.verdict));
  RecordRun(r.verdict != CheckVerdict::kFail, line);
}

// Why the check cannot run on this port, or null.
const char* Refusal(const MainLine& line) {
  if (g_datapipe) return "The timeout check needs a serial port, not the Datapipe device.";
  if (g_readonly) return "The timeout check needs to write, and the port is open read-only.";
  if (line.reader_running) return "Stop the background reader (#) first: it would take the check's bytes.";
  if (line.monitor != nullptr && line.monitor->discard_on_rxchar != 0)
    return "Stop the comm-event monitor (e) first: it purges the input on each EV_RXCHAR.";
  return nullptr;
}

}  // namespace

void RunTimeoutCheckKey(MainLine& line) {
  if (const char* why = Refusal(line)) {
    std::printf("%s\n", why);
    TimeoutRuleResult r;
    r.id = "not_run";
    r.rule = "the timeout check";
    r.expected = "a serial port the check can read and write";
    r.measured = why;
    r.wall_start = r.wall_end = std::chrono::system_clock::now();
    r.start = r.end = std::chrono::steady_clock::now();
    ReportRule(r);
    return;
  }
  TimeoutCheckPort port(line.port);
  RunTimeoutCheck(port, &ReportRule);
}

}  // namespace portwren
