#include "port/timeout_check_rules.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "format/console_log.h"
#include "port/timeout_check_request.h"

namespace portwren {

namespace {

using std::chrono::milliseconds;
constexpr os::Dword kMax = os::kMaxDword;
// Beyond the late tolerance, how much longer a request is given before it counts as stuck.
constexpr int64_t kGraceMs = 100;
// Big enough that a loopback whose far end echoes everything fills up and holds the write back.
constexpr uint32_t kBigWrite = 1u << 20;

std::string Fmt(const char* format, ...) {
  char text[400];
  va_list args;
  va_start(args, format);
  FormatToBufferV(text, sizeof text, format, args);
  va_end(args);
  return text;
}

std::string Bytes(os::Dword count) {
  return Fmt(count == 1 ? "%u byte" : "%u bytes", count);
}

bool Within(int64_t ms, int64_t expected) {
  return ms >= expected - kCheckEarlyMs && ms <= expected + kCheckLateMs;
}

CheckClock::time_point Later(CheckClock::time_point from, int64_t ms) {
  return from + milliseconds(ms);
}

// What became of a request, its time counted from `from`.
std::string Outcome(const CheckRequest& request, CheckClock::time_point from) {
  const auto ms = static_cast<int>(MsBetween(from, request.done() ? request.ended() : CheckClock::now()));
  if (!request.done()) return Fmt("still pending after %d ms", ms);
  if (!request.ok()) {
    return Fmt("WinErr=%u(%s) with %s after %d ms", request.error(), WinErrName(request.error()),
               Bytes(request.count()).c_str(), ms);
  }
  return Fmt("%s after %d ms%s", Bytes(request.count()).c_str(), ms,
             request.in_call() ? " (in the call)" : "");
}

void Record(TimeoutRuleResult& r, const CheckRequest& request, CheckClock::time_point from) {
  r.measured_ms = request.done() ? MsBetween(from, request.ended()) : -1;
  r.measured_bytes = request.done() ? request.count() : -1;
  r.error = request.done() ? request.error() : os::kErrIoPending;
}

// The request's outcome is the measurement; it passes when `pass` holds for it.
void Judge(TimeoutRuleResult& r, const CheckRequest& request, CheckClock::time_point from, bool pass,
           const std::string& before = "") {
  Record(r, request, from);
  r.measured = before + Outcome(request, from);
  r.verdict = pass ? CheckVerdict::kPass : CheckVerdict::kFail;
}

// Ends in the call or soon after, successfully, with `count` bytes.
bool EndedWith(const CheckRequest& request, os::Dword count) {
  return request.done() && request.ok() && request.count() == count;
}

void Fail(TimeoutRuleResult& r, const std::string& what) {
  r.measured = what;
  r.verdict = CheckVerdict::kFail;
}

void CallFailed(TimeoutRuleResult& r, const char* call) {
  const os::Dword error = os::GetLastError();
  r.error = error;
  Fail(r, Fmt("%s fail, WinErr=%u(%s)", call, error, WinErrName(error)));
}

bool Apply(TimeoutCheckPort& port, TimeoutRuleResult& r, const os::CommTimeouts& timeouts) {
  r.timeouts = timeouts;
  if (port.SetTimeouts(timeouts)) return true;
  CallFailed(r, "SetCommTimeouts()");
  return false;
}

bool StartRead(CheckRequest& read, TimeoutRuleResult& r, uint32_t count) {
  r.request_bytes = count;
  if (read.StartRead(count)) return true;
  CallFailed(r, "ReadFile()");
  return false;
}

bool Send(TimeoutCheckPort& port, TimeoutRuleResult& r, uint32_t count,
          CheckClock::time_point* at = nullptr) {
  if (SendBytes(port, count, at)) return true;
  Fail(r, Fmt("the write of %s did not complete", Bytes(count).c_str()));
  return false;
}

// A read that must still be pending at `when`; false (and FAIL) when it ended before.
bool PendingAt(TimeoutRuleResult& r, CheckRequest& read, int64_t when_ms, const char* before_what) {
  if (!read.WaitUntil(Later(read.issued(), when_ms))) return true;
  Judge(r, read, read.issued(), false, std::string("ended ") + before_what + ": ");
  return false;
}

void Loopback(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "the 8 bytes written back within 1000 ms";
  if (!Apply(port, r, MakeTimeouts(0, 0, 1000))) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 8) || !Send(port, r, 8)) return;
  read.WaitUntil(Later(read.issued(), 1000 + kCheckLateMs));
  const bool same = EndedWith(read, 8) && std::memcmp(read.data(), "ABCDEFGH", 8) == 0;
  Judge(r, read, read.issued(), same, EndedWith(read, 8) && !same ? "other bytes than were written: " : "");
}

void IntervalIdle(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "pending at 200 ms, then 1 byte after 50 ms";
  if (!Apply(port, r, MakeTimeouts(50, 0, 0))) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 8) || !PendingAt(r, read, 200, "before any byte was sent")) return;
  CheckClock::time_point sent;
  if (!Send(port, r, 1, &sent)) return;
  read.WaitUntil(Later(sent, 50 + kCheckLateMs + kGraceMs));
  Judge(r, read, sent, EndedWith(read, 1) && Within(MsBetween(sent, read.ended()), 50),
        "pending at 200 ms, then ");
}

void IntervalRestart(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  constexpr int64_t kInterval = 120;
  constexpr int64_t kGap = 40;
  constexpr int kBytes = 6;
  r.expected = "6 bytes after 120 ms";
  // A gap near the interval lets a correct driver end the read: such a run proves nothing.
  for (int attempt = 1;; ++attempt) {
    if (!Apply(port, r, MakeTimeouts(kInterval, 0, 0))) return;
    CheckRequest read(port);
    if (!StartRead(read, r, 16)) return;
    CheckClock::time_point first, last;
    int sent = 0;
    int64_t widest = 0;
    while (sent < kBytes) {
      if (sent > 0 && read.WaitUntil(Later(last, kGap))) break;
      CheckClock::time_point at;
      if (!Send(port, r, 1, &at)) return;
      if (sent == 0) first = at;
      if (sent > 0) widest = std::max(widest, MsBetween(last, at));
      last = at;
      ++sent;
    }
    if (widest >= kInterval - kCheckEarlyMs) {
      read.End();
      DrainInput(port, 30);
      if (attempt < 3) continue;
      r.measured = Fmt("not measurable: this machine could not send the bytes 40 ms apart (a gap of %d ms)",
                       static_cast<int>(widest));
      r.verdict = CheckVerdict::kInfo;
      return;
    }
    read.WaitUntil(Later(last, kInterval + kCheckLateMs + kGraceMs));
    if (sent < kBytes) {
      Judge(r, read, first, false);
      r.measured += Fmt(" from the first byte, before byte %d was sent", sent + 1);
      return;
    }
    Judge(r, read, last, EndedWith(read, kBytes) && Within(MsBetween(last, read.ended()), kInterval));
    return;
  }
}

void TotalTimeout(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "3 bytes after 300 ms";
  if (!Apply(port, r, MakeTimeouts(0, 10, 100))) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 20) || !Send(port, r, 3)) return;
  read.WaitUntil(Later(read.issued(), 300 + kCheckLateMs + kGraceMs));
  Judge(r, read, read.issued(), EndedWith(read, 3) && Within(read.Ms(), 300));
}

void QueuedRead(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "1st pending until its 4 bytes; 2nd 0 bytes after 100 ms";
  if (!Apply(port, r, MakeTimeouts(0, 0, 0))) return;
  CheckRequest first(port);
  if (!StartRead(first, r, 4) || !Apply(port, r, MakeTimeouts(0, 0, 100))) return;
  CheckRequest second(port);
  if (!StartRead(second, r, 4)) return;
  if (first.WaitUntil(Later(first.issued(), 250)) || second.done()) {
    Record(r, second, second.issued());
    Fail(r, "before any byte: 1st " + Outcome(first, first.issued()) + ", 2nd " +
                Outcome(second, second.issued()));
    return;
  }
  CheckClock::time_point sent;
  if (!Send(port, r, 4, &sent)) return;
  first.WaitUntil(Later(sent, kCheckLateMs + kGraceMs));
  if (!EndedWith(first, 4)) {
    Judge(r, first, sent, false, "1st ");
    return;
  }
  second.WaitUntil(Later(first.ended(), 100 + kCheckLateMs + kGraceMs));
  Judge(r, second, first.ended(),
        EndedWith(second, 0) && Within(MsBetween(first.ended(), second.ended()), 100), "1st 4 bytes; 2nd ");
}

void WaitsForAll(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "pending at 200 ms, then 4 bytes after 0 ms";
  if (!Apply(port, r, MakeTimeouts(0, 0, 0))) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 4) || !Send(port, r, 2) || !PendingAt(r, read, 200, "with 2 of the 4 bytes"))
    return;
  CheckClock::time_point sent;
  if (!Send(port, r, 2, &sent)) return;
  read.WaitUntil(Later(sent, kCheckLateMs + kGraceMs));
  Judge(r, read, sent, EndedWith(read, 4) && MsBetween(sent, read.ended()) <= kCheckLateMs,
        "pending at 200 ms, then ");
}

// A read that must end at once with the `waiting` bytes sent back before it.
void AtOnce(TimeoutCheckPort& port, TimeoutRuleResult& r, const os::CommTimeouts& timeouts,
            os::Dword waiting) {
  r.expected = Bytes(waiting) + " at once";
  if (waiting > 0) {
    if (!Send(port, r, waiting)) return;
    if (!WaitForInput(port, waiting, 1000))
      return Fail(r, Fmt("the %u bytes written did not come back", waiting));
  }
  if (!Apply(port, r, timeouts)) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 8)) return;
  read.WaitUntil(Later(read.issued(), kCheckLateMs + kGraceMs));
  Judge(r, read, read.issued(), EndedWith(read, waiting) && read.Ms() <= kCheckLateMs);
}

void ImmediateEmpty(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  AtOnce(port, r, MakeTimeouts(kMax, 0, 0), 0);
}

void ImmediateWaiting(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  AtOnce(port, r, MakeTimeouts(kMax, 0, 0), 5);
}

void TotalOnlyNoShrink(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "2 bytes after 150 ms";
  if (!Apply(port, r, MakeTimeouts(kMax, 10, 50))) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 10) || !PendingAt(r, read, 50, "before any byte was sent") || !Send(port, r, 2))
    return;
  read.WaitUntil(Later(read.issued(), 150 + kCheckLateMs + kGraceMs));
  Judge(r, read, read.issued(), EndedWith(read, 2) && Within(read.Ms(), 150));
}

void FirstByteWaiting(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  AtOnce(port, r, MakeTimeouts(kMax, kMax, 1000), 5);
}

void FirstByteOnly(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "1 byte after 0 ms, the other 2 left in the input queue";
  if (!Apply(port, r, MakeTimeouts(kMax, kMax, 1000))) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 8) || !PendingAt(r, read, 100, "before any byte was sent")) return;
  CheckClock::time_point sent;
  if (!Send(port, r, 3, &sent)) return;
  read.WaitUntil(Later(sent, kCheckLateMs + kGraceMs));
  os::Dword left = 0;
  if (read.done() && read.ok() && read.count() < 3) WaitForInput(port, 3 - read.count(), 200);
  port.InputQueue(&left);
  Judge(r, read, sent, EndedWith(read, 1) && MsBetween(sent, read.ended()) <= kCheckLateMs && left == 2);
  r.measured += Fmt(", %u left in the input queue", left);
}

void FirstByteTimeout(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "0 bytes after 200 ms";
  if (!Apply(port, r, MakeTimeouts(kMax, kMax, 200))) return;
  CheckRequest read(port);
  if (!StartRead(read, r, 8)) return;
  read.WaitUntil(Later(read.issued(), 200 + kCheckLateMs + kGraceMs));
  Judge(r, read, read.issued(), EndedWith(read, 0) && Within(read.Ms(), 200));
}

void AllMaxRefused(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "refused with WinErr=87";
  r.timeouts = MakeTimeouts(kMax, kMax, kMax);
  const bool accepted = port.SetTimeouts(r.timeouts);
  r.error = accepted ? 0 : os::GetLastError();
  r.measured = accepted ? "accepted" : Fmt("refused with WinErr=%u(%s)", r.error, WinErrName(r.error));
  r.verdict = !accepted && r.error == os::kErrInvalidParameter ? CheckVerdict::kPass : CheckVerdict::kFail;
}

void WriteTimeout(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = Fmt("fewer than %u bytes after 200 ms", kBigWrite);
  r.request_bytes = kBigWrite;
  if (!Apply(port, r, MakeTimeouts(0, 0, 0, 0, 200))) return;
  CheckRequest write(port);
  if (!write.StartWrite(kBigWrite)) return CallFailed(r, "WriteFile()");
  write.WaitUntil(Later(write.issued(), 200 + kCheckLateMs + kGraceMs));
  if (EndedWith(write, kBigWrite) && write.Ms() < 200 - kCheckEarlyMs) {
    Judge(r, write, write.issued(), false);
    r.measured += ": the line took all of it before the timeout, not measurable here";
    r.verdict = CheckVerdict::kInfo;
  } else {
    Judge(r, write, write.issued(),
          write.done() && write.ok() && write.count() < kBigWrite && Within(write.Ms(), 200));
  }
  write.End();
  DrainInput(port, 100);
}

// Sends 3 bytes into a pending 0/0/0 read of 16 and gives them time to arrive.
bool ReadHolding3(TimeoutCheckPort& port, TimeoutRuleResult& r, CheckRequest& read, const char* before_what) {
  if (!Apply(port, r, MakeTimeouts(0, 0, 0)) || !StartRead(read, r, 16) || !Send(port, r, 3)) return false;
  return PendingAt(r, read, 50 + MsBetween(read.issued(), CheckClock::now()), before_what);
}

void PurgeAbortsRead(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "WinErr=995 after 0 ms";
  CheckRequest read(port);
  if (!ReadHolding3(port, r, read, "before the purge")) return;
  const CheckClock::time_point purged = CheckClock::now();
  if (!port.Purge(os::kPurgeRxAbort)) return CallFailed(r, "PurgeComm(PURGE_RXABORT)");
  read.WaitUntil(Later(purged, kCheckLateMs + kGraceMs));
  Judge(r, read, purged,
        read.done() && read.error() == os::kErrOperationAborted &&
            MsBetween(purged, read.ended()) <= kCheckLateMs);
}

void PurgeAbortsWrite(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected = "WinErr=995 after 0 ms";
  r.request_bytes = kBigWrite;
  if (!Apply(port, r, MakeTimeouts(0, 0, 0, 0, 0))) return;
  CheckRequest write(port);
  if (!write.StartWrite(kBigWrite)) return CallFailed(r, "WriteFile()");
  if (write.WaitUntil(Later(write.issued(), 100))) {
    Judge(r, write, write.issued(), false, "ended before the purge: ");
    if (EndedWith(write, kBigWrite)) {
      r.measured += ": nothing left to abort, not measurable here";
      r.verdict = CheckVerdict::kInfo;
    }
  } else {
    const CheckClock::time_point purged = CheckClock::now();
    if (!port.Purge(os::kPurgeTxAbort)) {
      CallFailed(r, "PurgeComm(PURGE_TXABORT)");
    } else {
      write.WaitUntil(Later(purged, kCheckLateMs + kGraceMs));
      Judge(r, write, purged,
            write.done() && write.error() == os::kErrOperationAborted &&
                MsBetween(purged, write.ended()) <= kCheckLateMs);
    }
  }
  write.End();
  DrainInput(port, 100);
}

void CancelledReadBytes(TimeoutCheckPort& port, TimeoutRuleResult& r) {
  r.expected =
      "WinErr=995; the 3 bytes reported (USB virtual-port drivers) or dropped (standard serial driver)";
  CheckRequest read(port);
  if (!ReadHolding3(port, r, read, "before the cancel")) return;
  const CheckClock::time_point cancelled = CheckClock::now();
  if (!port.Cancel()) return CallFailed(r, "CancelIo()");
  read.WaitUntil(Later(cancelled, kCheckLateMs + kGraceMs));
  const bool aborted = read.done() && read.error() == os::kErrOperationAborted &&
                       MsBetween(cancelled, read.ended()) <= kCheckLateMs;
  Judge(r, read, cancelled, aborted);
  if (!aborted) return;
  r.verdict = CheckVerdict::kInfo;
  if (read.count() == 3)
    r.measured += ": the driver reports what a cancelled read had (as USB virtual-port drivers do)";
  if (read.count() == 0)
    r.measured += ": the driver drops what a cancelled read had (as the standard serial driver does)";
}

constexpr TimeoutRule kRules[] = {
    {"loopback", "loopback: bytes written come back (read 0/0/1000 for 8, 8 bytes sent)", &Loopback},
    {"interval_idle",
     "interval timer idle until the first byte, then it ends the read (read 50/0/0 for 8; 1 byte sent at 200 "
     "ms, "
     "time from it)",
     &IntervalIdle},
    {"interval_restart",
     "interval timer restarted by each byte (read 120/0/0 for 16; 6 bytes sent 40 ms apart, time from the "
     "last)",
     &IntervalRestart},
    {"total",
     "total timeout = multiplier x count + constant (read 0/10/100 for 20 = 300 ms; 3 bytes sent at once)",
     &TotalTimeout},
    {"current_read_timeouts",
     "a read takes its timeouts when it becomes current (1st read 0/0/0 for 4, then 0/0/100 set and a 2nd "
     "read "
     "for 4 queued; 4 bytes sent at 250 ms; 2nd timed from the 1st's end)",
     &QueuedRead},
    {"no_timeout",
     "0/0/0 waits for every byte asked for (read for 4; 2 bytes sent at once, 2 more at 200 ms)",
     &WaitsForAll},
    {"maxdword_0_0_empty", "MAXDWORD/0/0 returns at once, nothing waiting (read for 8)", &ImmediateEmpty},
    {"maxdword_0_0_waiting", "MAXDWORD/0/0 returns at once with what waits (5 bytes waiting, read for 8)",
     &ImmediateWaiting},
    {"maxdword_m_c",
     "MAXDWORD/M/C: total timeout only, no return on the first byte (read MAXDWORD/10/50 for 10 = 150 ms; 2 "
     "bytes "
     "sent at 50 ms)",
     &TotalOnlyNoShrink},
    {"maxdword_maxdword_c_waiting",
     "MAXDWORD/MAXDWORD/C returns at once with what waits (C=1000; 5 bytes waiting, read for 8)",
     &FirstByteWaiting},
    {"maxdword_maxdword_c_first_byte",
     "MAXDWORD/MAXDWORD/C waits for the first byte only (C=1000, read for 8; 3 bytes sent at 100 ms, time "
     "from them)",
     &FirstByteOnly},
    {"maxdword_maxdword_c_timeout", "MAXDWORD/MAXDWORD/C ends at C with nothing (C=200, read for 8)",
     &FirstByteTimeout},
    {"all_maxdword_refused", "read timeouts MAXDWORD/MAXDWORD/MAXDWORD are refused", &AllMaxRefused},
    {"purge_rx_abort",
     "PurgeComm(PURGE_RXABORT) ends a pending read (read 0/0/0 for 16 holding 3 bytes; time from the purge)",
     &PurgeAbortsRead},
    {"cancelled_read_bytes", "a cancelled read's bytes (read 0/0/0 for 16 holding 3 bytes; CancelIo)",
     &CancelledReadBytes},
    {"write_total",
     "a write's total timeout gives a short count (write 0/200 of 1048576 bytes; the echo fills the input)",
     &WriteTimeout},
    {"purge_tx_abort",
     "PurgeComm(PURGE_TXABORT) ends a pending write (write 0/0 of 1048576 bytes; purged at 100 ms, time from "
     "it)",
     &PurgeAbortsWrite},
};

std::string TimeoutText(os::Dword value) {
  return value == kMax ? "MAXDWORD" : Fmt("%u", value);
}

}  // namespace

std::span<const TimeoutRule> TimeoutRules() {
  return kRules;
}

std::string TimeoutsText(const os::CommTimeouts& t) {
  return "read " + TimeoutText(t.ReadIntervalTimeout) + "/" + TimeoutText(t.ReadTotalTimeoutMultiplier) +
         "/" + TimeoutText(t.ReadTotalTimeoutConstant) + ", write " +
         TimeoutText(t.WriteTotalTimeoutMultiplier) + "/" + TimeoutText(t.WriteTotalTimeoutConstant);
}

}  // namespace portwren
