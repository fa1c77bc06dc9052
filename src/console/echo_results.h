// After an echo run: the latency lines of a mild run, the line-use line on a line with a real baud
// rate, and the run's result line for the file.
#pragma once

#include "console/session_results.h"
#include "echo/echo_run_report.h"
#include "platform/os_handle.h"

namespace portwren {

void ReportEchoClientRun(os::Handle port, bool mild, const RunTimes& times, const EchoClientReport& report,
                         bool passed);
// The server failed when it could not start, reported wrong data or ended on an error.
void ReportEchoServerRun(os::Handle port, int32_t chunk_max, const RunTimes& times,
                         const EchoServerReport& report);

}  // namespace portwren
