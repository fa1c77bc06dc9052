#include "console/echo_results.h"

#include <cstdio>

#include "format/console_log.h"
#include "port/line_use.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

void AddError(JsonLine& line, bool has_error, const EchoErrorNote& error) {
  if (!has_error) {
    line.Null("first_error");
    return;
  }
  line.BeginObject("first_error")
      .Text("kind", error.kind != nullptr ? error.kind : "")
      .Uint("chunk_id", error.chunk_id)
      .Int("expected", error.expected)
      .Int("received", error.received)
      .EndObject();
}

void AddLatency(JsonLine& line, const LatencySummary& s) {
  line.BeginObject("latency_us")
      .Uint("count", s.count)
      .Uint("min", s.min)
      .Uint("median", s.median)
      .Uint("p90", s.p90)
      .Uint("p99", s.p99)
      .Uint("max", s.max)
      .BeginArray("histogram");
  // Power-of-two buckets that hold anything: [low, high, count].
  for (int k = 0; k < kLatencyBuckets; ++k) {
    if (s.buckets[k] == 0) continue;
    line.BeginItemObject()
        .Uint("from", k == 0 ? 0 : 1ull << k)
        .Uint("to", (2ull << k) - 1)
        .Uint("count", s.buckets[k])
        .EndObject();
  }
  line.EndArray().EndObject();
}

double Rate(uint64_t bytes, double seconds) {
  return seconds > 0 ? static_cast<double>(bytes) / seconds : 0.0;
}

// On a line with a real baud rate: the rate against the most the line carries, printed after the
// run's other lines and kept for the result line.
void ReportLineUse(os::Handle port, uint64_t bytes, double seconds, JsonLine& line) {
  LineUse use;
  if (seconds <= 0 || !MeasureLineUse(port, Rate(bytes, seconds), &use)) return;
  LogPrint("%s", LineUseText(use).c_str());
  line.BeginObject("line_use")
      .Uint("baud", use.baud)
      .Text("framing", use.framing)
      .Real("limit_bytes_per_s", use.limit_bytes_per_s)
      .Real("bytes_per_s", use.bytes_per_s)
      .Real("percent", use.percent)
      .EndObject();
}

}  // namespace

void ReportEchoClientRun(os::Handle port, bool mild, const RunTimes& times, const EchoClientReport& report,
                         bool passed) {
  if (mild && report.latency_measured) {
    for (const std::string& text : LatencyLines(report.latency)) std::printf("%s\n", text.c_str());
  }
  JsonLine line = ResultLine("echo_client", times);
  line.Text("mode", mild ? "mild" : "urge")
      .BeginObject("settings")
      .Int("echo_maxbytes", g_echo_maxbytes64)
      .Int("chunk_min", g_echo_chunk_minbytes)
      .Int("chunk_max", g_echo_chunk_maxbytes)
      .Uint("srand", g_echo_srand)
      .Int("write_delay_ms", g_echocli_write_delaymsec)
      .Int("read_delay_ms", g_echocli_read_delaymsec)
      .Bool("read_delay_random", g_echocli_read_delay_random)
      .Int("timeout_limit_ms", g_echo_timeout_limit)
      .Int("read_nibble", g_echocli_read_nibble)
      .Bool("hwflow", g_echo_need_hwflow)
      .EndObject()
      .BeginObject("sent")
      .Uint("chunks", report.chunks_sent)
      .Uint("bytes", report.bytes_sent)
      .EndObject()
      .BeginObject("received")
      .Uint("chunks", report.chunks_received)
      .Uint("bytes", report.bytes_received)
      .EndObject()
      .Real("rate_bytes_per_s", Rate(report.bytes_received, times.Seconds()));
  AddError(line, report.has_error, report.error);
  if (mild && report.latency_measured) AddLatency(line, report.latency);
  ReportLineUse(port, report.bytes_received, report.transfer_seconds, line);
  line.Text("verdict", passed ? "pass" : "fail");
  RecordRun(passed, line);
}

void ReportEchoServerRun(os::Handle port, int32_t chunk_max, const RunTimes& times,
                         const EchoServerReport& report) {
  const bool passed = report.started && !report.wrong_data && !report.ended_on_error;
  JsonLine line = ResultLine("echo_server", times);
  line.BeginObject("settings")
      .Int("chunk_max", chunk_max)
      .Int("rwbufx", g_echo_rwbufx)
      .EndObject()
      .Bool("started", report.started)
      .BeginObject("received")
      .Uint("chunks", report.chunks_received)
      .Uint("bytes", report.bytes_received)
      .EndObject()
      .BeginObject("echoed")
      .Uint("chunks", report.chunks_echoed)
      .Uint("bytes", report.bytes_echoed)
      .EndObject()
      .Real("rate_bytes_per_s", Rate(report.bytes_echoed, times.Seconds()))
      .Bool("wrong_data", report.wrong_data)
      .Bool("ended_on_error", report.ended_on_error);
  AddError(line, report.has_error, report.error);
  ReportLineUse(port, report.bytes_echoed, report.echo_seconds, line);
  line.Text("verdict", passed ? "pass" : "fail");
  RecordRun(passed, line);
}

}  // namespace portwren
