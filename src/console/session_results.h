// The session's results for a machine: --json-results appends one JSON object per line for each
// test run and at the end, and --nonzero-on-fail turns any failed run into exit code 3.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "format/json_line.h"

namespace portwren {

inline constexpr int kExitTestFailed = 3;

// When a run started and ended, by the wall clock (for the file) and the steady one (for rates).
struct RunTimes {
  std::chrono::system_clock::time_point wall_start;
  std::chrono::steady_clock::time_point start;
  std::chrono::system_clock::time_point wall_end;
  std::chrono::steady_clock::time_point end;

  static RunTimes Begin();
  void Finish();
  double Seconds() const;
};

// "2024-05-01T12:34:56.789Z".
std::string UtcTimeText(std::chrono::system_clock::time_point when);

// A JSON line with "event", "port", "start", "end" and "duration_ms" filled in.
JsonLine ResultLine(const char* event, const RunTimes& times);

// Counts the run for the exit code; appends the line when a results file was named.
void RecordRun(bool passed, const JsonLine& line);

// Notes the session's start time; checks that the results file can be written.
void BeginSession();
// Writes the session's end line; the exit code, 3 when --nonzero-on-fail and a run failed.
int EndSession(int exit_code);

}  // namespace portwren
