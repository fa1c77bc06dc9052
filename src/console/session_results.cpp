#include "console/session_results.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "support/run_settings.h"

namespace portwren {

namespace {

// Main thread only.
struct Session {
  RunTimes times;
  uint64_t runs = 0;
  uint64_t failed_runs = 0;
  bool results_lost = false;  // a line could not be written: the file no longer tells the whole story
};
Session g_session;

bool ResultsWanted() {
  return g_json_results_path[0] != '\0';
}

// Opened and closed per line, so what was written survives a crash or a kill.
void AppendLine(const std::string& line) {
  if (!ResultsWanted()) return;
  std::FILE* file = std::fopen(g_json_results_path, "ab");
  bool ok = file != nullptr;
  if (ok) {
    const std::string text = line + "\n";
    ok = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    ok = std::fflush(file) == 0 && ok;
    ok = std::fclose(file) == 0 && ok;
  }
  if (!ok) {
    std::printf("!!! Error: results file %s write fail! (%s)\n", g_json_results_path, std::strerror(errno));
    g_session.results_lost = true;
  }
}

}  // namespace

RunTimes RunTimes::Begin() {
  RunTimes times;
  times.wall_start = std::chrono::system_clock::now();
  times.start = std::chrono::steady_clock::now();
  times.wall_end = times.wall_start;
  times.end = times.start;
  return times;
}

void RunTimes::Finish() {
  wall_end = std::chrono::system_clock::now();
  end = std::chrono::steady_clock::now();
}

double RunTimes::Seconds() const {
  return std::chrono::duration<double>(end - start).count();
}

std::string UtcTimeText(std::chrono::system_clock::time_point when) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count();
  const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
  std::tm parts{};
  if (const std::tm* utc = std::gmtime(&seconds)) parts = *utc;
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>(ms % 1000));
  return text;
}

JsonLine ResultLine(const char* event, const RunTimes& times) {
  JsonLine line;
  line.Text("event", event)
      .Text("port", g_dev_open_path)
      .Text("start", UtcTimeText(times.wall_start))
      .Text("end", UtcTimeText(times.wall_end))
      .Uint("duration_ms",
            static_cast<uint64_t>(
                std::chrono::duration_cast<std::chrono::milliseconds>(times.end - times.start).count()));
  return line;
}

void RecordRun(bool passed, const JsonLine& line) {
  ++g_session.runs;
  if (!passed) ++g_session.failed_runs;
  AppendLine(line.Finish());
}

void BeginSession() {
  g_session = Session{};
  g_session.times = RunTimes::Begin();
  if (!ResultsWanted()) return;
  std::FILE* file = std::fopen(g_json_results_path, "ab");
  if (file == nullptr) {
    std::printf("!!! Error: results file %s open/create fail! (%s)\n", g_json_results_path,
                std::strerror(errno));
    g_session.results_lost = true;
    return;
  }
  std::fclose(file);
}

int EndSession(int exit_code) {
  g_session.times.Finish();
  const bool failed = g_session.failed_runs > 0 || g_session.results_lost;
  if (g_nonzero_on_fail && failed && exit_code == 0) exit_code = kExitTestFailed;
  JsonLine line = ResultLine("session_end", g_session.times);
  line.Uint("runs", g_session.runs)
      .Uint("failed_runs", g_session.failed_runs)
      .Text("verdict", failed ? "fail" : "pass")
      .Int("exit_code", exit_code);
  AppendLine(line.Finish());
  return exit_code;
}

}  // namespace portwren
