#include "console/command_line.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>

#include "format/format.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

constexpr LongOption kLongOptions[] = {
    {"readonly", kNoArgument, nullptr, kOptReadonly},
    {"bytesrw", kRequiredArgument, nullptr, 'b'},
    {"msec-cancel", kRequiredArgument, nullptr, 'c'},
    {"rtoi", kRequiredArgument, nullptr, kOptRtoi},
    {"rtom", kRequiredArgument, nullptr, kOptRtom},
    {"rtoc", kRequiredArgument, nullptr, kOptRtoc},
    {"wtom", kRequiredArgument, nullptr, kOptWtom},
    {"wtoc", kRequiredArgument, nullptr, kOptWtoc},
    {"in-queue", kRequiredArgument, nullptr, kOptInQueue},
    {"out-queue", kRequiredArgument, nullptr, kOptOutQueue},
    {"read-log", kRequiredArgument, nullptr, kOptReadLog},
    {"read-log-append", kNoArgument, nullptr, kOptReadLogAppend},
    {"silent-read", kNoArgument, nullptr, kOptSilentRead},
    {"echo-need-log", kNoArgument, nullptr, kOptEchoNeedLog},
    {"echo-append-log", kNoArgument, nullptr, kOptEchoAppendLog},
    {"echolog-row-width", kRequiredArgument, nullptr, kOptEchologRowWidth},
    {"echo-rwbufx", kRequiredArgument, nullptr, kOptEchoRwbufx},
    {"echo-need-hwflow", kNoArgument, nullptr, kOptEchoNeedHwflow},
    {"echo-start-seq", kRequiredArgument, nullptr, kOptEchoStartSeq},
    {"echo-srand", kRequiredArgument, nullptr, kOptEchoSrand},
    {"echo-timeout-limit", kRequiredArgument, nullptr, kOptEchoTimeoutLimit},
    {"echocli-read-nibble", kRequiredArgument, nullptr, kOptEchocliReadNibble},
    {"echocli-write-delaymsec", kRequiredArgument, nullptr, kOptEchocliWriteDelaymsec},
    {"echocli-read-delaymsec", kRequiredArgument, nullptr, kOptEchocliReadDelaymsec},
    {"manual-intervene-errcli", kNoArgument, nullptr, kOptManualInterveneErrcli},
    {"first-key", kRequiredArgument, nullptr, kOptFirstKey},
    {"repeat-final-key", kNoArgument, nullptr, kOptRepeatFinalKey},
    {"baudrate", kRequiredArgument, nullptr, 'B'},
    {"waitcommevent-delay0", kRequiredArgument, nullptr, kOptWaitcommeventDelay0},
    {"waitcommevent-delay", kRequiredArgument, nullptr, kOptWaitcommeventDelay},
    {"echo-maxbytes", kRequiredArgument, nullptr, 'm'},
    {"echo-chunk-maxbytes", kRequiredArgument, nullptr, 'K'},
    {"echo-chunk-minbytes", kRequiredArgument, nullptr, 'k'},
    {"datapipe", kNoArgument, nullptr, kOptDatapipe},
    {"clear-comport-msec", kRequiredArgument, nullptr, kOptClearComportMsec},
    {"pause-before-quit", kNoArgument, nullptr, kOptPauseBeforeQuit},
    {"omit-cancelio", kNoArgument, nullptr, kOptOmitCancelio},
    {"omit-getoverlappedresult", kNoArgument, nullptr, kOptOmitGetoverlappedresult},
    {"pause-msec-bfr-cancelio", kRequiredArgument, nullptr, kOptPauseMsecBfrCancelio},
    {"list-vcoms", kNoArgument, nullptr, kOptListVcoms},
    {"unplug-vcoms", kNoArgument, nullptr, kOptUnplugVcoms},
    {"vbus-reinstall", kNoArgument, nullptr, kOptVbusReinstall},
    {"print-devstate-on-dsr", kNoArgument, nullptr, kOptPrintDevstateOnDsr},
    {"json-results", kRequiredArgument, nullptr, kOptJsonResults},
    {"nonzero-on-fail", kNoArgument, nullptr, kOptNonzeroOnFail},
    {"hold-break", kRequiredArgument, nullptr, kOptHoldBreak},
    {"timeout-check", kNoArgument, nullptr, kOptTimeoutCheck},
    {nullptr, kNoArgument, nullptr, 0},
};

// Copies with truncation; the destination is always terminated.
void CopyText(char* destination, size_t capacity, const char* text) {
  const size_t length = std::min(std::strlen(text), capacity - 1);
  std::memcpy(destination, text, length);
  destination[length] = '\0';
}

void AppendText(char* destination, size_t capacity, const char* text) {
  const size_t used = std::strlen(destination);
  CopyText(destination + used, capacity - used, text);
}

int32_t AtLeast(int32_t value, int32_t least) {
  return value > least ? value : least;
}

bool IsLongOptionName(const char* name) {
  for (const LongOption* o = kLongOptions; o->name != nullptr; ++o) {
    if (std::strcmp(o->name, name) == 0) return true;
  }
  return false;
}

// The program's own word on an option the scanner refused.
void ReportRefusedOption(const OptionScanState& scan, int argc, char** argv) {
  if (scan.failed_option == 0) {
    const int index = scan.next_index - 1;
    const char* arg = index >= 0 && index < argc && argv[index] != nullptr ? argv[index] : "";
    // Only the full name counts here: an abbreviation that lacks its value is a bad option.
    if (std::strlen(arg) >= 2 && IsLongOptionName(arg + 2)) {
      FormatPrint("Long option '%s' missing an argument\n", arg);
    } else {
      FormatPrint("Bad long option '%s'\n", arg);
    }
  } else if (scan.failed_option != '-' && std::strchr(kShortOptions, scan.failed_option) != nullptr) {
    FormatPrint("Short option '-%c' missing an argument.\n", scan.failed_option);
  } else {
    FormatPrint("Bad short option '-%c'.\n", scan.failed_option);
  }
}

// What each option does to the run settings, by the scanner's result code. `number` is the value
// text as atoi gives it; -Q waits in `quick_read_timeout` until every option is in.
struct ParseState {
  int32_t quick_read_timeout = -1;
};
using OptionApply = void (*)(const char* value, int32_t number, ParseState& state);
struct OptionAction {
  int code;
  OptionApply apply;
};

void ListVcoms(bool offer_dialog) {
  g_list_vcoms = true;
  g_no_port_mode = true;
  g_list_offer_dialog = offer_dialog;
}

constexpr OptionAction kOptionActions[] = {
    {kOptReadonly, [](const char*, int32_t, ParseState&) { g_readonly = true; }},
    {'b',
     [](const char* v, int32_t, ParseState&) { g_bytes_to_rw = static_cast<int32_t>(AutoBaseArgument(v)); }},
    {'c', [](const char*, int32_t n, ParseState&) { g_wait_msec_before_cancel = n; }},
    {kOptRtoi, [](const char*, int32_t n, ParseState&) { g_rto_interval = n; }},
    {kOptRtom, [](const char*, int32_t n, ParseState&) { g_rto_multiplier = n; }},
    {kOptRtoc, [](const char*, int32_t n, ParseState&) { g_rto_constant = n; }},
    {kOptWtom, [](const char*, int32_t n, ParseState&) { g_wto_multiplier = n; }},
    {kOptWtoc,
     [](const char*, int32_t n, ParseState&) {
       g_wto_constant = n;
       g_wto_constant_given = true;
     }},
    {kOptInQueue, [](const char*, int32_t n, ParseState&) { g_in_queue_bytes = n; }},
    {kOptOutQueue, [](const char*, int32_t n, ParseState&) { g_out_queue_bytes = n; }},
    {kOptReadLog,
     [](const char* v, int32_t, ParseState&) { CopyText(g_read_log_path, sizeof g_read_log_path, v); }},
    {kOptReadLogAppend, [](const char*, int32_t, ParseState&) { g_read_log_append = true; }},
    {kOptSilentRead, [](const char*, int32_t, ParseState&) { g_silent_read = true; }},
    {kOptEchoNeedLog, [](const char*, int32_t, ParseState&) { g_echo_need_log = true; }},
    {kOptEchoAppendLog, [](const char*, int32_t, ParseState&) { g_echo_append_log = true; }},
    {kOptEchologRowWidth, [](const char*, int32_t n, ParseState&) { g_echolog_row_width = AtLeast(n, 8); }},
    {kOptEchoRwbufx, [](const char*, int32_t n, ParseState&) { g_echo_rwbufx = AtLeast(n, 1); }},
    {kOptEchoNeedHwflow, [](const char*, int32_t, ParseState&) { g_echo_need_hwflow = true; }},
    {kOptEchoStartSeq,
     [](const char* v, int32_t, ParseState&) {
       g_echo_start_seq_given = true;
       g_echo_start_seq = AutoBaseArgument(v);
     }},
    {kOptEchoSrand,
     [](const char* v, int32_t n, ParseState&) {
       g_echo_srand =
           std::strcmp(v, "time") == 0 ? static_cast<uint32_t>(std::time(nullptr)) : static_cast<uint32_t>(n);
     }},
    {kOptEchoTimeoutLimit, [](const char*, int32_t n, ParseState&) { g_echo_timeout_limit = AtLeast(n, 0); }},
    {kOptEchocliReadNibble,
     [](const char*, int32_t n, ParseState&) { g_echocli_read_nibble = AtLeast(n, 1); }},
    {kOptEchocliWriteDelaymsec,
     [](const char*, int32_t n, ParseState&) { g_echocli_write_delaymsec = AtLeast(n, 0); }},
    {kOptEchocliReadDelaymsec,
     [](const char* v, int32_t n, ParseState&) {
       // "r<n>": a random delay up to n. The flag is only ever switched on.
       if (v[0] == 'r') {
         n = DecimalArgument(v + 1);
         if (n > 0) g_echocli_read_delay_random = true;
       }
       g_echocli_read_delaymsec = AtLeast(n, 0);
     }},
    {kOptManualInterveneErrcli, [](const char*, int32_t, ParseState&) { g_manual_intervene_errcli = true; }},
    {kOptFirstKey,
     [](const char* v, int32_t, ParseState&) { CopyText(g_first_keys, sizeof g_first_keys, v); }},
    {kOptRepeatFinalKey, [](const char*, int32_t, ParseState&) { g_repeat_final_key = true; }},
    {'B', [](const char*, int32_t n, ParseState&) { g_baudrate = n; }},
    {kOptWaitcommeventDelay0,
     [](const char*, int32_t n, ParseState&) { g_waitcommevent_delay0 = static_cast<uint32_t>(n); }},
    {kOptWaitcommeventDelay,
     [](const char*, int32_t n, ParseState&) { g_waitcommevent_delay = static_cast<uint32_t>(n); }},
    {'m', [](const char* v, int32_t, ParseState&) { g_echo_maxbytes64 = AutoBaseArgument64(v); }},
    {'K', [](const char*, int32_t n, ParseState&) { g_echo_chunk_maxbytes = n; }},
    {'k', [](const char*, int32_t n, ParseState&) { g_echo_chunk_minbytes = n; }},
    {kOptDatapipe, [](const char*, int32_t, ParseState&) { g_datapipe = true; }},
    {kOptClearComportMsec, [](const char*, int32_t n, ParseState&) { g_clear_comport_msec = AtLeast(n, 0); }},
    {kOptPauseBeforeQuit, [](const char*, int32_t, ParseState&) { g_pause_before_quit = true; }},
    {kOptOmitCancelio, [](const char*, int32_t, ParseState&) { g_omit_cancelio = true; }},
    {kOptOmitGetoverlappedresult,
     [](const char*, int32_t, ParseState&) { g_omit_getoverlappedresult = true; }},
    {kOptPauseMsecBfrCancelio,
     [](const char*, int32_t n, ParseState&) { g_pause_msec_bfr_cancelio = AtLeast(n, 0); }},
    {kOptListVcoms, [](const char*, int32_t, ParseState&) { ListVcoms(true); }},
    // The short form lists without offering the property dialog.
    {'l', [](const char*, int32_t, ParseState&) { ListVcoms(false); }},
    {kOptUnplugVcoms,
     [](const char*, int32_t, ParseState&) {
       g_unplug_vcoms = true;
       g_no_port_mode = true;
     }},
    {kOptVbusReinstall,
     [](const char*, int32_t, ParseState&) {
       g_vbus_reinstall = true;
       g_no_port_mode = true;
     }},
    {kOptPrintDevstateOnDsr, [](const char*, int32_t, ParseState&) { g_print_devstate_on_dsr = true; }},
    {'Q', [](const char*, int32_t n, ParseState& state) { state.quick_read_timeout = n; }},
    {kOptJsonResults, [](const char* v, int32_t,
                         ParseState&) { CopyText(g_json_results_path, sizeof g_json_results_path, v); }},
    {kOptNonzeroOnFail, [](const char*, int32_t, ParseState&) { g_nonzero_on_fail = true; }},
    {kOptHoldBreak, [](const char*, int32_t n, ParseState&) { g_hold_break = n; }},
    {kOptTimeoutCheck, [](const char*, int32_t, ParseState&) { g_timeout_check = true; }},
};

void ApplyOption(int code, const char* value, int32_t number, ParseState& state) {
  for (const OptionAction& action : kOptionActions) {
    if (action.code == code) return action.apply(value, number, state);
  }
}

// Every check runs, so that one start shows all that is wrong.
bool SettingsAreValid() {
  bool ok = true;
  if (g_bytes_to_rw < 0 || g_bytes_to_rw >= kTransferBufferBytes) {
    std::printf("--bytesrw or -b has bad argument(should>=0)\n");
    ok = false;
  }
  if (g_wait_msec_before_cancel < 1) {
    std::printf("--msec-cancel or -c has bad argument(should>0)\n");
    ok = false;
  }
  if (g_rto_interval < -1) {
    std::printf("--rtoi has bad argument(should>=0 or -1)\n");
    ok = false;
  }
  if (g_rto_multiplier < -1) {
    std::printf("--rtom has bad argument(should>=0 or -1)\n");
    ok = false;
  }
  if (g_rto_constant < -1) {
    std::printf("--rtoc has bad argument(should>=0 or -1)\n");
    ok = false;
  }
  if (g_wto_multiplier < -1) {
    std::printf("--wtom has bad argument(should>=0 or -1)\n");
    ok = false;
  }
  if (g_wto_constant < -1) {
    std::printf("--wtoc has bad argument(should>=0 or -1)\n");
    ok = false;
  }
  if (g_baudrate < 0) {
    std::printf("--baudrate or -B has bad argument(should>0)\n");
    ok = false;
  }
  if (g_echo_maxbytes64 < 0) {
    std::printf("-m or --echo-maxbytes has bad argument(should>0)\n");
    ok = false;
  }
  const auto outside_chunk_bounds = [](int32_t bytes) {
    return bytes != 0 && (bytes < kEchoChunkLeastBytes || bytes > kEchoChunkMostBytes);
  };
  if (outside_chunk_bounds(g_echo_chunk_maxbytes)) {
    std::printf("-K or --echo-chunk-maxbytes has bad argument(should between %d and %d)\n",
                kEchoChunkLeastBytes, kEchoChunkMostBytes);
    ok = false;
  }
  if (outside_chunk_bounds(g_echo_chunk_minbytes)) {
    std::printf("-k or --echo-chunk-minbytes has bad argument(should between %d and %d)\n",
                kEchoChunkLeastBytes, kEchoChunkMostBytes);
    ok = false;
  }
  if (g_hold_break < kHoldBreakLeastMsec || g_hold_break > kHoldBreakMostMsec) {
    std::printf("--hold-break has bad argument(should between %d and %d)\n", kHoldBreakLeastMsec,
                kHoldBreakMostMsec);
    ok = false;
  }
  return ok;
}

struct ScanReleaser {
  void operator()(OptionScanState* scan) const { ReleaseOptionScan(scan); }
};

}  // namespace

const LongOption* LongOptionTable() {
  return kLongOptions;
}

int32_t DecimalArgument(const char* text) {
  if (text == nullptr) return 0;
  const long long value = std::strtoll(text, nullptr, 10);
  if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

uint32_t AutoBaseArgument(const char* text) {
  if (text == nullptr) return 0;
  while (std::isspace(static_cast<unsigned char>(*text))) ++text;
  bool negative = false;
  if (*text == '+' || *text == '-') {
    negative = *text == '-';
    ++text;
  }
  if (!std::isdigit(static_cast<unsigned char>(*text))) return 0;
  errno = 0;
  const unsigned long long magnitude = std::strtoull(text, nullptr, 0);
  if (errno == ERANGE || magnitude > 0xFFFFFFFFull) return 0xFFFFFFFFu;
  const auto value = static_cast<uint32_t>(magnitude);
  return negative ? 0u - value : value;
}

int64_t AutoBaseArgument64(const char* text) {
  if (text == nullptr) return 0;
  return static_cast<int64_t>(std::strtoull(text, nullptr, 0));
}

bool ParseCommandLine(int argc, char** argv) {
  const std::unique_ptr<OptionScanState, ScanReleaser> scan(CreateOptionScan());
  if (scan == nullptr) return false;

  ParseState state;
  for (;;) {
    const int code = ScanOptions(scan.get(), argc, argv, kShortOptions, kLongOptions, nullptr);
    if (code == kScanEnd) break;
    const int32_t number = DecimalArgument(scan->value);
    if (code == kScanError) {
      ReportRefusedOption(*scan, argc, argv);
      return false;
    }
    ApplyOption(code, scan->value, number, state);
  }

  // Listing, unplugging and reinstalling need no port and nothing else from the command line.
  if (g_no_port_mode) return true;

  if (state.quick_read_timeout >= 0) {
    // Reads return what is buffered at once, or wait up to the constant for the first byte.
    g_rto_interval = -1;
    g_rto_multiplier = -1;
    g_rto_constant = state.quick_read_timeout;
  }

  const int positional = argc - scan->next_index;
  if (positional <= 0) {
    if (!g_datapipe) {
      std::printf("You do not pass in an argument as COM port device name.\n");
      return false;
    }
  } else if (positional == 1) {
    AppendText(g_dev_open_path, sizeof g_dev_open_path, argv[scan->next_index]);
  } else {
    std::printf("You pass in more than one argument as COM port device name.\n");
    return false;
  }
  if (g_datapipe) AppendText(g_dev_open_path, sizeof g_dev_open_path, kDatapipePath);

  // With 33 keys the marker does not fit, and nothing repeats.
  if (g_repeat_final_key && g_first_keys[0] != '\0') {
    FormatAppend(g_first_keys, kFirstKeysCapacity, "%c", static_cast<unsigned char>(kRepeatKeyMarker));
  }

  const bool valid = SettingsAreValid();
  if (g_echo_chunk_maxbytes == 0) g_echo_chunk_maxbytes = kDefaultEchoChunkMaxbytes;
  if (g_echo_chunk_minbytes == 0) g_echo_chunk_minbytes = kDefaultEchoChunkMinbytes;
  if (!valid) return false;
  if (g_echo_chunk_minbytes > g_echo_chunk_maxbytes) {
    std::printf("-k value must not be larger than -K value.\n");
    return false;
  }
  return true;
}

}  // namespace portwren
