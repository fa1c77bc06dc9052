// The run settings: one process-wide variable per setting, written while the command line is
// parsed and read everywhere else. Timeout settings use -1 for MAXDWORD.
#pragma once

#include <cstdint>

namespace portwren {

// Size of the one transfer buffer of the timed reads and writes; it bounds -b.
inline constexpr int32_t kTransferBufferBytes = 8124000;
// Echo chunk bounds: the largest leaves room in the transfer buffer for a chunk and its framing.
inline constexpr int32_t kEchoChunkLeastBytes = 12;
inline constexpr int32_t kEchoChunkMostBytes = 8024012;

// The Datapipe device, opened instead of a serial port with --datapipe.
inline constexpr char kDatapipePath[] = "\\\\.\\QDX_Datapipe";

inline constexpr int kDevOpenPathCapacity = 260;
inline constexpr int kReadLogPathCapacity = 260;
inline constexpr int kFirstKeysCapacity = 34;  // 33 keys and the NUL
// Marks the end of the first keys: the key before it repeats until Enter or ESC.
inline constexpr char kRepeatKeyMarker = static_cast<char>(0xFF);

// Defaults that are not zero.
inline constexpr int32_t kDefaultBytesToRw = 100;
inline constexpr int32_t kDefaultWaitMsecBeforeCancel = 5000;
inline constexpr int32_t kDefaultEchologRowWidth = 16;
inline constexpr int32_t kDefaultEchoRwbufx = 2;
inline constexpr int32_t kDefaultEchocliReadNibble = 4000;
inline constexpr int32_t kDefaultClearComportMsec = 50;
inline constexpr int32_t kDefaultLogBufferBytes = 8192;
// What an unset echo chunk size becomes once the command line is accepted.
inline constexpr int32_t kDefaultEchoChunkMaxbytes = 16000;
inline constexpr int32_t kDefaultEchoChunkMinbytes = 12;

extern char g_dev_open_path[kDevOpenPathCapacity];
extern bool g_readonly;
extern int32_t g_bytes_to_rw;
extern int32_t g_wait_msec_before_cancel;
extern int32_t g_rto_interval;
extern int32_t g_rto_multiplier;
extern int32_t g_rto_constant;
extern int32_t g_wto_multiplier;
extern int32_t g_wto_constant;
extern bool g_wto_constant_given;
extern int32_t g_in_queue_bytes;
extern int32_t g_out_queue_bytes;
extern int32_t g_baudrate;
extern char g_read_log_path[kReadLogPathCapacity];
extern bool g_read_log_append;
extern bool g_silent_read;
extern char g_first_keys[kFirstKeysCapacity];
extern bool g_repeat_final_key;
extern uint32_t g_waitcommevent_delay0;
extern uint32_t g_waitcommevent_delay;
extern int64_t g_echo_maxbytes64;
extern int32_t g_echo_chunk_maxbytes;
extern int32_t g_echo_chunk_minbytes;
extern bool g_echo_need_log;
extern bool g_echo_append_log;
extern int32_t g_echolog_row_width;
extern int32_t g_echo_rwbufx;
extern bool g_echo_need_hwflow;
extern bool g_echo_start_seq_given;
extern uint32_t g_echo_start_seq;
extern uint32_t g_echo_srand;
extern int32_t g_echo_timeout_limit;
extern int32_t g_echocli_read_nibble;
extern int32_t g_echocli_write_delaymsec;
extern int32_t g_echocli_read_delaymsec;
extern bool g_echocli_read_delay_random;
extern bool g_manual_intervene_errcli;
extern bool g_datapipe;
extern int32_t g_clear_comport_msec;
extern bool g_pause_before_quit;
extern bool g_omit_cancelio;
extern bool g_omit_getoverlappedresult;
extern int32_t g_pause_msec_bfr_cancelio;
extern bool g_no_port_mode;
extern bool g_list_vcoms;
extern bool g_list_offer_dialog;
extern bool g_unplug_vcoms;
extern bool g_vbus_reinstall;
extern bool g_print_devstate_on_dsr;
extern bool g_print_less;
extern int32_t g_custom_read_bytes;
extern int32_t g_custom_write_bytes;
extern int32_t g_log_buffer_bytes;

// Puts every setting back to its default; for tests that parse many command lines in one process.
void ResetRunSettings();

}  // namespace portwren
