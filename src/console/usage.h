// The usage text and the small helpers that read the run settings for other parts.
#pragma once

#include <cstdint>

namespace portwren {

// Prints the usage text to standard output.
void PrintUsage();

// After "file not found": "COM9" and above need the "\\.\" prefix, so suggest it.
void PathHint(const char* path);

// Write-timeout constant of the echo client's and server's own timeouts: --wtoc when given,
// else MAXDWORD-1.
uint32_t EchoWriteTimeoutConstant();

}  // namespace portwren
