// Command-line option scanning by the getopt_long rules: permutation, grouped short options,
// attached or separate values, long options with unique prefixes, "--" as the end of options.
// The scanning position lives in a record the caller creates; only the ordering mode is
// process-wide.
#pragma once

#include <cstdint>
#include <cstdio>

namespace portwren {

enum OptionArgument : int { kNoArgument = 0, kRequiredArgument = 1, kOptionalArgument = 2 };

// One entry of a long-option table; a null name ends the table.
struct LongOption {
  const char* name;
  int has_arg;  // an OptionArgument
  int* flag;    // when set, the scanner stores val there and returns 0
  int val;
};

enum class OptionOrdering {
  kPermute,        // non-options are moved behind the options
  kRequireOrder,   // option string starts with "+": the first non-option ends the scan
  kReturnInOrder,  // option string starts with "-": non-options come back as result 1
};

inline constexpr uint32_t kOptionScanTag = 0x20160325;
inline constexpr int kOptionMessageCapacity = 100;
inline constexpr int kScanEnd = -1;
inline constexpr int kScanNonOption = 1;  // only with kReturnInOrder
inline constexpr int kScanError = '?';

struct OptionScanState {
  int next_index = 1;                         // next argument to look at; set 0 to start over
  const char* value = nullptr;                // value text of the result just returned, or null
  int failed_option = 0;                      // the short option that failed; 0 when a long option failed
  char message[kOptionMessageCapacity] = {};  // last diagnostic; these are never printed
  uint32_t tag = kOptionScanTag;
  std::FILE* error_stream = stderr;  // receives the ambiguous-prefix message

  // Scanning position; the scanner's own.
  bool started = false;
  const char* next_char = nullptr;  // rest of a group of short options
  int first_nonopt = 1;             // non-options seen so far stand in [first_nonopt, last_nonopt)
  int last_nonopt = 1;
};

// Heap record for one scan; null when out of memory.
OptionScanState* CreateOptionScan();
// 0 when released; -1, freeing nothing, when the record is null or its tag is not ours.
int ReleaseOptionScan(OptionScanState* state);

// Next option: its short character or long result code, kScanEnd when the options are done
// (non-options then stand from next_index on), or kScanError. Permutes argv in place.
int ScanOptions(OptionScanState* state, int argc, char** argv, const char* short_options,
                const LongOption* long_options, int* long_index);
// The same, but "-name" is tried as a long option before it is taken as short ones.
int ScanOptionsLongOnly(OptionScanState* state, int argc, char** argv, const char* short_options,
                        const LongOption* long_options, int* long_index);

// The ordering chosen by the option string of the scan started last.
OptionOrdering CurrentOptionOrdering();

}  // namespace portwren
