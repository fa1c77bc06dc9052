// The run settings: one structure with its defaults, written while the command line is parsed
// and read by every layer, so it sits at the bottom. Each setting is also reachable by its own
// g_ name. Timeout settings use -1 for MAXDWORD.
#pragma once

#include <cstdint>

namespace portwren {

// Size of the one transfer buffer of the timed reads and writes; it bounds -b.
inline constexpr int32_t kTransferBufferBytes = 8124000;
// Echo chunk bounds: the largest leaves room in the transfer buffer for a chunk and its framing.
inline constexpr int32_t kEchoChunkLeastBytes = 12;
inline constexpr int32_t kEchoChunkMostBytes = 8024012;
// What an unset echo chunk size becomes once the command line is accepted.
inline constexpr int32_t kDefaultEchoChunkMaxbytes = 16000;
inline constexpr int32_t kDefaultEchoChunkMinbytes = 12;

// The Datapipe device, opened instead of a serial port with --datapipe.
inline constexpr char kDatapipePath[] = "\\\\.\\QDX_Datapipe";

inline constexpr int kDevOpenPathCapacity = 260;
inline constexpr int kReadLogPathCapacity = 260;
inline constexpr int kFirstKeysCapacity = 34;  // 33 keys and the NUL
inline constexpr int kJsonResultsPathCapacity = 260;
// Marks the end of the first keys: the key before it repeats until Enter or ESC.
inline constexpr char kRepeatKeyMarker = static_cast<char>(0xFF);
// How long the B key holds the line in the break state, and the bounds of --hold-break.
inline constexpr int32_t kDefaultHoldBreakMsec = 250;
inline constexpr int32_t kHoldBreakLeastMsec = 1;
inline constexpr int32_t kHoldBreakMostMsec = 10000;

struct RunSettings {
  char dev_open_path[kDevOpenPathCapacity] = {};
  bool readonly = false;  // also set by start-up when only a read-only open succeeds
  int32_t bytes_to_rw = 100;
  int32_t wait_msec_before_cancel = 5000;
  int32_t rto_interval = 0;
  int32_t rto_multiplier = 0;
  int32_t rto_constant = 0;
  int32_t wto_multiplier = 0;
  int32_t wto_constant = 0;
  bool wto_constant_given = false;
  int32_t in_queue_bytes = 0;
  int32_t out_queue_bytes = 0;
  int32_t baudrate = 0;  // 0 becomes 115200 when the port is set up
  char read_log_path[kReadLogPathCapacity] = {};
  bool read_log_append = false;
  bool silent_read = false;
  char first_keys[kFirstKeysCapacity] = {};
  bool repeat_final_key = false;
  uint32_t waitcommevent_delay0 = 0;
  uint32_t waitcommevent_delay = 0;
  int64_t echo_maxbytes64 = 0;
  int32_t echo_chunk_maxbytes = 0;  // 0 until the command line is accepted; the server key may fill it
  int32_t echo_chunk_minbytes = 0;
  bool echo_need_log = false;
  bool echo_append_log = false;
  int32_t echolog_row_width = 16;
  int32_t echo_rwbufx = 2;
  bool echo_need_hwflow = false;
  bool echo_start_seq_given = false;
  uint32_t echo_start_seq = 0;
  uint32_t echo_srand = 0;
  int32_t echo_timeout_limit = 0;
  int32_t echocli_read_nibble = 4000;
  int32_t echocli_write_delaymsec = 0;
  int32_t echocli_read_delaymsec = 0;
  bool echocli_read_delay_random = false;
  bool manual_intervene_errcli = false;
  bool datapipe = false;
  int32_t clear_comport_msec = 50;
  bool pause_before_quit = false;
  bool omit_cancelio = false;
  bool omit_getoverlappedresult = false;
  int32_t pause_msec_bfr_cancelio = 0;
  bool no_port_mode = false;
  bool list_vcoms = false;
  bool list_offer_dialog = false;
  bool unplug_vcoms = false;
  bool vbus_reinstall = false;
  bool print_devstate_on_dsr = false;
  bool print_less = false;
  int32_t custom_read_bytes = 0;  // the last counts typed at the R and W prompts
  int32_t custom_write_bytes = 0;
  int32_t log_buffer_bytes = 8192;
  // Results a machine reads.
  char json_results_path[kJsonResultsPathCapacity] = {};
  bool nonzero_on_fail = false;
  // Line control.
  int32_t hold_break = kDefaultHoldBreakMsec;
  bool timeout_check = false;  // the timeout check before the first key

  bool operator==(const RunSettings&) const = default;
};

inline RunSettings g_run_settings;

// Puts every setting back to its default; for tests that parse many command lines in one process.
inline void ResetRunSettings() {
  g_run_settings = RunSettings{};
}

// The settings by their own names: a reference each, so nothing can fall out of the reset.
inline auto& g_dev_open_path = g_run_settings.dev_open_path;
inline auto& g_readonly = g_run_settings.readonly;
inline auto& g_bytes_to_rw = g_run_settings.bytes_to_rw;
inline auto& g_wait_msec_before_cancel = g_run_settings.wait_msec_before_cancel;
inline auto& g_rto_interval = g_run_settings.rto_interval;
inline auto& g_rto_multiplier = g_run_settings.rto_multiplier;
inline auto& g_rto_constant = g_run_settings.rto_constant;
inline auto& g_wto_multiplier = g_run_settings.wto_multiplier;
inline auto& g_wto_constant = g_run_settings.wto_constant;
inline auto& g_wto_constant_given = g_run_settings.wto_constant_given;
inline auto& g_in_queue_bytes = g_run_settings.in_queue_bytes;
inline auto& g_out_queue_bytes = g_run_settings.out_queue_bytes;
inline auto& g_baudrate = g_run_settings.baudrate;
inline auto& g_read_log_path = g_run_settings.read_log_path;
inline auto& g_read_log_append = g_run_settings.read_log_append;
inline auto& g_silent_read = g_run_settings.silent_read;
inline auto& g_first_keys = g_run_settings.first_keys;
inline auto& g_repeat_final_key = g_run_settings.repeat_final_key;
inline auto& g_waitcommevent_delay0 = g_run_settings.waitcommevent_delay0;
inline auto& g_waitcommevent_delay = g_run_settings.waitcommevent_delay;
inline auto& g_echo_maxbytes64 = g_run_settings.echo_maxbytes64;
inline auto& g_echo_chunk_maxbytes = g_run_settings.echo_chunk_maxbytes;
inline auto& g_echo_chunk_minbytes = g_run_settings.echo_chunk_minbytes;
inline auto& g_echo_need_log = g_run_settings.echo_need_log;
inline auto& g_echo_append_log = g_run_settings.echo_append_log;
inline auto& g_echolog_row_width = g_run_settings.echolog_row_width;
inline auto& g_echo_rwbufx = g_run_settings.echo_rwbufx;
inline auto& g_echo_need_hwflow = g_run_settings.echo_need_hwflow;
inline auto& g_echo_start_seq_given = g_run_settings.echo_start_seq_given;
inline auto& g_echo_start_seq = g_run_settings.echo_start_seq;
inline auto& g_echo_srand = g_run_settings.echo_srand;
inline auto& g_echo_timeout_limit = g_run_settings.echo_timeout_limit;
inline auto& g_echocli_read_nibble = g_run_settings.echocli_read_nibble;
inline auto& g_echocli_write_delaymsec = g_run_settings.echocli_write_delaymsec;
inline auto& g_echocli_read_delaymsec = g_run_settings.echocli_read_delaymsec;
inline auto& g_echocli_read_delay_random = g_run_settings.echocli_read_delay_random;
inline auto& g_manual_intervene_errcli = g_run_settings.manual_intervene_errcli;
inline auto& g_datapipe = g_run_settings.datapipe;
inline auto& g_clear_comport_msec = g_run_settings.clear_comport_msec;
inline auto& g_pause_before_quit = g_run_settings.pause_before_quit;
inline auto& g_omit_cancelio = g_run_settings.omit_cancelio;
inline auto& g_omit_getoverlappedresult = g_run_settings.omit_getoverlappedresult;
inline auto& g_pause_msec_bfr_cancelio = g_run_settings.pause_msec_bfr_cancelio;
inline auto& g_no_port_mode = g_run_settings.no_port_mode;
inline auto& g_list_vcoms = g_run_settings.list_vcoms;
inline auto& g_list_offer_dialog = g_run_settings.list_offer_dialog;
inline auto& g_unplug_vcoms = g_run_settings.unplug_vcoms;
inline auto& g_vbus_reinstall = g_run_settings.vbus_reinstall;
inline auto& g_print_devstate_on_dsr = g_run_settings.print_devstate_on_dsr;
inline auto& g_print_less = g_run_settings.print_less;
inline auto& g_custom_read_bytes = g_run_settings.custom_read_bytes;
inline auto& g_custom_write_bytes = g_run_settings.custom_write_bytes;
inline auto& g_log_buffer_bytes = g_run_settings.log_buffer_bytes;
inline auto& g_json_results_path = g_run_settings.json_results_path;
inline auto& g_nonzero_on_fail = g_run_settings.nonzero_on_fail;
inline auto& g_hold_break = g_run_settings.hold_break;
inline auto& g_timeout_check = g_run_settings.timeout_check;

// Write-timeout constant of the echo client's and server's own timeouts: --wtoc when given,
// else MAXDWORD-1.
inline uint32_t EchoWriteTimeoutConstant() {
  return g_wto_constant_given ? static_cast<uint32_t>(g_wto_constant) : 0xFFFFFFFEu;
}

}  // namespace portwren
