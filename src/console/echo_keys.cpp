#include "console/echo_keys.h"

#include <cstdio>

#include "console/echo_results.h"
#include "echo/echo_client.h"
#include "format/console_log.h"
#include "port/port_config.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

constexpr char kClientOutLog[] = "echo_cli_out.log";
constexpr char kClientInLog[] = "echo_cli_in.log";

// Both are tried; the first that failed is named. One that did open stays open.
bool OpenEchoLogs(MainLine& line, const char* out_name, const char* in_name) {
  const uint32_t capacity = static_cast<uint32_t>(g_log_buffer_bytes);
  const bool out_opened = line.echo_log_out.Open(out_name, g_echo_append_log, capacity);
  const bool in_opened = line.echo_log_in.Open(in_name, g_echo_append_log, capacity);
  if (!out_opened || !in_opened) {
    std::printf("Error: %s open/create fail!\n", out_opened ? in_name : out_name);
    return false;
  }
  return true;
}

}  // namespace

bool RunEchoClientKey(MainLine& line, bool mild) {
  if (g_echo_need_log && !OpenEchoLogs(line, kClientOutLog, kClientInLog)) return false;
  std::printf("Using echo chunk size (min:%d , max:%d).\n", g_echo_chunk_minbytes, g_echo_chunk_maxbytes);
  const char* mode = mild ? "Mild" : "Urge";
  if (g_echo_maxbytes64 < 1) {
    LogStamp("Doing echo unlimited bytes(%s). srand=%u. ('0' to break)", mode, g_echo_srand);
  } else {
    LogStamp("Doing echo %llu bytes(%s), srand=%u. ('0' to break)",
             static_cast<unsigned long long>(g_echo_maxbytes64), mode, g_echo_srand);
  }
  if (g_echocli_write_delaymsec > 0)
    LogStamp("Each chunk is delayed %d millisec.", g_echocli_write_delaymsec);
  if (g_echo_timeout_limit > 0) LogStamp("Echo timeout limit is %d millisec.", g_echo_timeout_limit);

  const uint64_t byte_limit = g_echo_maxbytes64 < 1 ? 0 : static_cast<uint64_t>(g_echo_maxbytes64);
  const EchoLogs logs{&line.echo_log_out, &line.echo_log_in};
  RunTimes times = RunTimes::Begin();
  EchoClientReport report;
  const bool passed = RunEchoClient(line.port, byte_limit, static_cast<uint32_t>(g_echo_chunk_minbytes),
                                    static_cast<uint32_t>(g_echo_chunk_maxbytes), mild, logs, &report);
  times.Finish();
  LogStamp(passed ? "Echo test success." : "Echo test fail.");
  ReportEchoClientRun(line.port, mild, times, report, passed);
  if (!g_datapipe) ApplyTimeouts(line.port);
  line.echo_log_out.FlushAndClose();
  line.echo_log_in.FlushAndClose();
  return true;
}

}  // namespace portwren
