// The far end of the echo test: every chunk that comes in goes back out unchanged. One thread:
// reads and writes run with completion routines while the caller's thread sleeps alertably, so
// the next chunk is read while the previous one is echoed.
#pragma once

#include <cstdint>

#include "echo/echo_run_report.h"
#include "echo/log_file_writer.h"
#include "platform/os_handle.h"

namespace portwren {

// Asked once per pass of the server's loop; true stops the server.
using EchoStopPoll = bool (*)();

// Takes one waiting key, if any: true when it was '0'.
bool ZeroKeyTaken();

// Echoes until stopped or until an error ends the chain of requests; chunk_max is the largest
// whole chunk expected (also what each buffer holds). The logs may be closed or null. False
// when the server could not start; the lines say why. A report, when given, gets the counts and
// the first error.
bool RunEchoServer(os::Handle port, uint32_t chunk_max, LogFileWriter* out_log, LogFileWriter* in_log,
                   EchoStopPoll stop = &ZeroKeyTaken, EchoServerReport* report = nullptr);

}  // namespace portwren
