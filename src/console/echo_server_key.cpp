#include "console/echo_server_key.h"

#include <cstdio>

#include "console/echo_results.h"
#include "echo/echo_server.h"
#include "format/console_log.h"
#include "port/port_config.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

constexpr char kServerOutLog[] = "echo_srv_out.log";
constexpr char kServerInLog[] = "echo_srv_in.log";
constexpr uint32_t kClearMs = 100;

// A writer that did open stays open when the other one fails: the next open starts it afresh.
bool OpenServerLogs(MainLine& line) {
  const auto capacity = static_cast<uint32_t>(g_log_buffer_bytes);
  const char* failed = nullptr;
  if (!line.echo_log_out.Open(kServerOutLog, g_echo_append_log, capacity)) {
    failed = kServerOutLog;
  } else if (!line.echo_log_in.Open(kServerInLog, g_echo_append_log, capacity)) {
    failed = kServerInLog;
  }
  if (failed == nullptr) return true;
  std::printf("Error: %s open/create fail!\n", failed);
  return false;
}

}  // namespace

bool EchoServerKey(MainLine& line) {
  if (g_echo_chunk_maxbytes <= 0) {
    std::printf(
        "Need option '-k <bytes>' to assign echo chunk maxsize. This value should be the same as client "
        "side.\n");
    std::printf("Echo server not started.\n");
    return false;
  }
  if (g_echo_need_log && !OpenServerLogs(line)) return false;
  MyClearCommData(line.port, kClearMs, false);
  const int32_t chunk_max = g_echo_chunk_maxbytes != 0 ? g_echo_chunk_maxbytes : g_echo_chunk_minbytes;
  LogStamp("Starting echo server(chunkmax=%d), waiting client... ('0' to break)", chunk_max);
  RunTimes times = RunTimes::Begin();
  EchoServerReport report;
  RunEchoServer(line.port, static_cast<uint32_t>(chunk_max), &line.echo_log_out, &line.echo_log_in,
                &ZeroKeyTaken, &report);
  times.Finish();
  LogStamp("Echo server stopped.");
  ReportEchoServerRun(line.port, chunk_max, times, report);
  ApplyTimeouts(line.port);
  line.echo_log_out.FlushAndClose();
  line.echo_log_in.FlushAndClose();
  return true;
}

}  // namespace portwren
