// The command line: options into the run settings, then the checks of what was given.
#pragma once

#include <cstdint>

#include "console/option_scanner.h"

namespace portwren {

inline constexpr char kShortOptions[] = "b:c:B:m:k:K:Q:l";

// Result codes of the long options that have no short form.
enum LongOnlyOption : int {
  kOptReadonly = 128,
  kOptRtoi,
  kOptRtom,
  kOptRtoc,
  kOptWtom,
  kOptWtoc,
  kOptInQueue,
  kOptOutQueue,
  kOptReadLog,
  kOptReadLogAppend,
  kOptSilentRead,
  kOptEchoNeedLog,
  kOptEchoAppendLog,
  kOptEchologRowWidth,
  kOptEchoRwbufx,
  kOptEchoNeedHwflow,
  kOptEchoStartSeq,
  kOptEchoSrand,
  kOptEchoTimeoutLimit,
  kOptEchocliReadNibble,
  kOptEchocliWriteDelaymsec,
  kOptEchocliReadDelaymsec,
  kOptManualInterveneErrcli,
  kOptFirstKey,
  kOptRepeatFinalKey,
  kOptWaitcommeventDelay0,
  kOptWaitcommeventDelay,
  kOptDatapipe,
  kOptClearComportMsec,
  kOptPauseBeforeQuit,
  kOptOmitCancelio,
  kOptOmitGetoverlappedresult,
  kOptPauseMsecBfrCancelio,
  kOptListVcoms,
  kOptUnplugVcoms,
  kOptVbusReinstall,
  kOptPrintDevstateOnDsr,
  // Later additions; each first letter is one no other long option starts with.
  kOptJsonResults,
  kOptNonzeroOnFail,
  kOptHoldBreak,
  kOptTimeoutCheck,
};
static_assert(kOptPrintDevstateOnDsr == 164);

// The long-option table, ended by an entry with a null name.
const LongOption* LongOptionTable();

// Fills the run settings from the command line and checks them. True when the program may go on;
// false after the reason was printed. Permutes argv.
bool ParseCommandLine(int argc, char** argv);

// The value conversions of the options; text that is no number gives 0, null gives 0.
// Decimal as atoi, out-of-range values held at the 32-bit limits.
int32_t DecimalArgument(const char* text);
// strtoul with base 0 and a 32-bit unsigned long: "0x" hexadecimal, leading "0" octal, a minus
// sign negates modulo 2^32, magnitudes beyond 32 bits give 0xFFFFFFFF.
uint32_t AutoBaseArgument(const char* text);
// strtoull with base 0, as a signed 64-bit value.
int64_t AutoBaseArgument64(const char* text);

}  // namespace portwren
