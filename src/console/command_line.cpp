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

#include "console/run_settings.h"
#include "format/format.h"

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

// One option into the run settings. `number` is the value text as atoi gives it.
void ApplyOption(int code, const char* value, int32_t number, int32_t* quick_read_timeout) {
  switch (code) {
    case kOptReadonly:
      g_readonly = true;
      break;
    case 'b':
      g_bytes_to_rw = static_cast<int32_t>(AutoBaseArgument(value));
      break;
    case 'c':
      g_wait_msec_before_cancel = number;
      break;
    case kOptRtoi:
      g_rto_interval = number;
      break;
    case kOptRtom:
      g_rto_multiplier = number;
      break;
    case kOptRtoc:
      g_rto_constant = number;
      break;
    case kOptWtom:
      g_wto_multiplier = number;
      break;
    case kOptWtoc:
      g_wto_constant = number;
      g_wto_constant_given = true;
      break;
    case kOptInQueue:
      g_in_queue_bytes = number;
      break;
    case kOptOutQueue:
      g_out_queue_bytes = number;
      break;
    case kOptReadLog:
      CopyText(g_read_log_path, sizeof g_read_log_path, value);
      break;
    case kOptReadLogAppend:
      g_read_log_append = true;
      break;
    case kOptSilentRead:
      g_silent_read = true;
      break;
    case kOptEchoNeedLog:
      g_echo_need_log = true;
      break;
    case kOptEchoAppendLog:
      g_echo_append_log = true;
      break;
    case kOptEchologRowWidth:
      g_echolog_row_width = AtLeast(number, 8);
      break;
    case kOptEchoRwbufx:
      g_echo_rwbufx = AtLeast(number, 1);
      break;
    case kOptEchoNeedHwflow:
      g_echo_need_hwflow = true;
      break;
    case kOptEchoStartSeq:
      g_echo_start_seq_given = true;
      g_echo_start_seq = AutoBaseArgument(value);
      break;
    case kOptEchoSrand:
      g_echo_srand = std::strcmp(value, "time") == 0 ? static_cast<uint32_t>(std::time(nullptr))
                                                     : static_cast<uint32_t>(number);
      break;
    case kOptEchoTimeoutLimit:
      g_echo_timeout_limit = AtLeast(number, 0);
      break;
    case kOptEchocliReadNibble:
      g_echocli_read_nibble = AtLeast(number, 1);
      break;
    case kOptEchocliWriteDelaymsec:
      g_echocli_write_delaymsec = AtLeast(number, 0);
      break;
    case kOptEchocliReadDelaymsec:
      // "r<n>": a random delay up to n. The flag is only ever switched on.
      if (value[0] == 'r') {
        number = DecimalArgument(value + 1);
        if (number > 0) g_echocli_read_delay_random = true;
      }
      g_echocli_read_delaymsec = AtLeast(number, 0);
      break;
    case kOptManualInterveneErrcli:
      g_manual_intervene_errcli = true;
      break;
    case kOptFirstKey:
      CopyText(g_first_keys, sizeof g_first_keys, value);
      break;
    case kOptRepeatFinalKey:
      g_repeat_final_key = true;
      break;
    case 'B':
      g_baudrate = number;
      break;
    case kOptWaitcommeventDelay0:
      g_waitcommevent_delay0 = static_cast<uint32_t>(number);
      break;
    case kOptWaitcommeventDelay:
      g_waitcommevent_delay = static_cast<uint32_t>(number);
      break;
    case 'm':
      g_echo_maxbytes64 = AutoBaseArgument64(value);
      break;
    case 'K':
      g_echo_chunk_maxbytes = number;
      break;
    case 'k':
      g_echo_chunk_minbytes = number;
      break;
    case kOptDatapipe:
      g_datapipe = true;
      break;
    case kOptClearComportMsec:
      g_clear_comport_msec = AtLeast(number, 0);
      break;
    case kOptPauseBeforeQuit:
      g_pause_before_quit = true;
      break;
    case kOptOmitCancelio:
      g_omit_cancelio = true;
      break;
    case kOptOmitGetoverlappedresult:
      g_omit_getoverlappedresult = true;
      break;
    case kOptPauseMsecBfrCancelio:
      g_pause_msec_bfr_cancelio = AtLeast(number, 0);
      break;
    case kOptListVcoms:
      g_list_vcoms = true;
      g_no_port_mode = true;
      g_list_offer_dialog = true;
      break;
    case kOptUnplugVcoms:
      g_unplug_vcoms = true;
      g_no_port_mode = true;
      break;
    case kOptVbusReinstall:
      g_vbus_reinstall = true;
      g_no_port_mode = true;
      break;
    case kOptPrintDevstateOnDsr:
      g_print_devstate_on_dsr = true;
      break;
    case 'l':
      // The short form lists without offering the property dialog.
      g_list_vcoms = true;
      g_no_port_mode = true;
      g_list_offer_dialog = false;
      break;
    case 'Q':
      *quick_read_timeout = number;
      break;
    default:
      break;
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

  int32_t quick_read_timeout = -1;  // -Q, applied once all options are in
  for (;;) {
    const int code = ScanOptions(scan.get(), argc, argv, kShortOptions, kLongOptions, nullptr);
    if (code == kScanEnd) break;
    const int32_t number = DecimalArgument(scan->value);
    if (code == kScanError) {
      ReportRefusedOption(*scan, argc, argv);
      return false;
    }
    ApplyOption(code, scan->value, number, &quick_read_timeout);
  }

  // Listing, unplugging and reinstalling need no port and nothing else from the command line.
  if (g_no_port_mode) return true;

  if (quick_read_timeout >= 0) {
    // Reads return what is buffered at once, or wait up to the constant for the first byte.
    g_rto_interval = -1;
    g_rto_multiplier = -1;
    g_rto_constant = quick_read_timeout;
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
