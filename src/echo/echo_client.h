// The echo client: a pushing thread writes chunks to the port, a pulling thread reads the
// echoes back and checks them, and the calling console thread watches the keyboard ('0' once:
// stop after what was sent; twice: cancel now) and prints statistics every second.
#pragma once

#include <cstdint>

#include "echo/echo_error_reports.h"
#include "echo/echo_run_report.h"
#include "platform/os_handle.h"

namespace portwren {

// Mild mode keeps lock-step (one chunk in flight); urge mode does not wait for echoes.
// byte_limit 0 runs until '0'. True when both threads ended well. A report, when given, gets the
// counts, the first error and the mild mode's round trips.
bool RunEchoClient(os::Handle port, uint64_t byte_limit, uint32_t min_chunk, uint32_t max_chunk, bool mild,
                   const EchoLogs& logs, EchoClientReport* report = nullptr);

}  // namespace portwren
