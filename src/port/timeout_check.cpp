#include "port/timeout_check.h"

#include "format/console_log.h"
#include "port/timeout_check_request.h"
#include "port/timeout_check_rules.h"

namespace portwren {

namespace {

// The quiet that ends the clearing before the first rule, and each drain between rules. The
// clearing is the check's own: its reads are bounded, where the 0 key's wait for the driver as long
// as it takes, which a driver that breaks MAXDWORD/MAXDWORD/C never ends.
constexpr uint32_t kClearMs = 50;
constexpr uint32_t kSettleMs = 30;

bool SameTimeouts(const os::CommTimeouts& a, const os::CommTimeouts& b) {
  return a.ReadIntervalTimeout == b.ReadIntervalTimeout &&
         a.ReadTotalTimeoutMultiplier == b.ReadTotalTimeoutMultiplier &&
         a.ReadTotalTimeoutConstant == b.ReadTotalTimeoutConstant &&
         a.WriteTotalTimeoutMultiplier == b.WriteTotalTimeoutMultiplier &&
         a.WriteTotalTimeoutConstant == b.WriteTotalTimeoutConstant;
}

std::string LastErrorText(const char* call) {
  const os::Dword error = os::GetLastError();
  char text[160];
  FormatToBuffer(text, sizeof text, "%s fail, WinErr=%u(%s)", call, error, WinErrName(error));
  return text;
}

class Runner {
 public:
  Runner(TimeoutCheckPort& port, const TimeoutRuleSink& sink) : port_(port), sink_(sink) {}

  TimeoutRuleResult Begin(const char* id, const char* rule) {
    TimeoutRuleResult r;
    r.id = id;
    r.rule = rule;
    r.wall_start = std::chrono::system_clock::now();
    r.start = CheckClock::now();
    return r;
  }

  void Finish(TimeoutRuleResult& r) {
    r.wall_end = std::chrono::system_clock::now();
    r.end = CheckClock::now();
    LogPrint("%s %s: expected %s; measured %s.", VerdictWord(r.verdict), r.rule, r.expected.c_str(),
             r.measured.c_str());
    if (r.verdict == CheckVerdict::kPass) ++summary_.passed;
    if (r.verdict == CheckVerdict::kFail) ++summary_.failed;
    if (r.verdict == CheckVerdict::kInfo) ++summary_.info;
    if (sink_) sink_(r);
  }

  void Restore(const os::CommTimeouts& saved) {
    TimeoutRuleResult r = Begin("restore", "the port's timeouts put back (read back with GetCommTimeouts)");
    r.timeouts = saved;
    r.expected = TimeoutsText(saved);
    os::CommTimeouts now;
    if (!port_.SetTimeouts(saved)) {
      r.measured = LastErrorText("SetCommTimeouts()");
    } else if (!port_.GetTimeouts(&now)) {
      r.measured = LastErrorText("GetCommTimeouts()");
    } else {
      r.measured = TimeoutsText(now);
      if (SameTimeouts(saved, now)) r.verdict = CheckVerdict::kPass;
    }
    Finish(r);
  }

  TimeoutCheckSummary Run() {
    const auto start = CheckClock::now();
    LogPrint("Timeout check: each read and write timeout rule, timed on a loopback (tolerance -%d/+%d ms).",
             static_cast<int>(kCheckEarlyMs), static_cast<int>(kCheckLateMs));
    os::CommTimeouts saved;
    if (!port_.GetTimeouts(&saved)) {
      TimeoutRuleResult r = Begin("saved_timeouts", "the port's timeouts read before the check");
      r.expected = "GetCommTimeouts() success";
      r.measured = LastErrorText("GetCommTimeouts()");
      Finish(r);
    } else {
      const uint64_t cleared = DrainInput(port_, kClearMs);
      LogPrint("Input cleared by dry reads: %llu bytes.", static_cast<unsigned long long>(cleared));
      RunRules();
      Restore(saved);
    }
    summary_.ms = MsBetween(start, CheckClock::now());
    LogPrint("Timeout check done in %d ms: %d PASS, %d FAIL, %d INFO.", static_cast<int>(summary_.ms),
             summary_.passed, summary_.failed, summary_.info);
    return summary_;
  }

 private:
  void RunRules() {
    bool first = true;
    for (const TimeoutRule& rule : TimeoutRules()) {
      if (!first) DrainInput(port_, kSettleMs);
      TimeoutRuleResult r = Begin(rule.id, rule.rule);
      rule.run(port_, r);
      Finish(r);
      if (first && r.verdict != CheckVerdict::kPass) {
        LogPrint(
            "No loopback: the other rules need what the port writes to come back to it (a loopback plug). "
            "Not run.");
        return;
      }
      first = false;
    }
  }

  TimeoutCheckPort& port_;
  const TimeoutRuleSink& sink_;
  TimeoutCheckSummary summary_;
};

}  // namespace

const char* VerdictWord(CheckVerdict verdict) {
  switch (verdict) {
    case CheckVerdict::kPass:
      return "PASS";
    case CheckVerdict::kInfo:
      return "INFO";
    default:
      return "FAIL";
  }
}

TimeoutCheckSummary RunTimeoutCheck(TimeoutCheckPort& port, const TimeoutRuleSink& on_rule) {
  return Runner(port, on_rule).Run();
}

}  // namespace portwren
