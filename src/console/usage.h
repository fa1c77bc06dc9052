// The usage text and the small helpers that read the run settings for other parts.
#pragma once

namespace portwren {

// Prints the usage text to standard output.
void PrintUsage();

// After "file not found": "COM9" and above need the "\\.\" prefix, so suggest it.
void PathHint(const char* path);

}  // namespace portwren
