#include "console/run_settings.h"

#include <gtest/gtest.h>

#include <cstring>

namespace portwren {
namespace {

TEST(RunSettings, ResetRestoresEveryDefault) {
  std::strcpy(g_dev_open_path, "COM3");
  std::strcpy(g_read_log_path, "r.log");
  std::strcpy(g_first_keys, "abc");
  g_readonly = g_wto_constant_given = g_read_log_append = g_silent_read = g_repeat_final_key = true;
  g_echo_need_log = g_echo_append_log = g_echo_need_hwflow = g_echo_start_seq_given = true;
  g_echocli_read_delay_random = g_manual_intervene_errcli = g_datapipe = g_pause_before_quit = true;
  g_omit_cancelio = g_omit_getoverlappedresult = g_no_port_mode = g_list_vcoms = g_list_offer_dialog = true;
  g_unplug_vcoms = g_vbus_reinstall = g_print_devstate_on_dsr = g_print_less = true;
  g_bytes_to_rw = g_wait_msec_before_cancel = g_rto_interval = g_rto_multiplier = g_rto_constant = 9;
  g_wto_multiplier = g_wto_constant = g_in_queue_bytes = g_out_queue_bytes = g_baudrate = 9;
  g_echo_chunk_maxbytes = g_echo_chunk_minbytes = g_echolog_row_width = g_echo_rwbufx = 9;
  g_echo_timeout_limit = g_echocli_read_nibble = g_echocli_write_delaymsec = g_echocli_read_delaymsec = 9;
  g_clear_comport_msec = g_pause_msec_bfr_cancelio = g_custom_read_bytes = g_custom_write_bytes = 9;
  g_log_buffer_bytes = 9;
  g_waitcommevent_delay0 = g_waitcommevent_delay = g_echo_start_seq = g_echo_srand = 9;
  g_echo_maxbytes64 = 9;

  ResetRunSettings();

  EXPECT_STREQ(g_dev_open_path, "");
  EXPECT_STREQ(g_read_log_path, "");
  EXPECT_STREQ(g_first_keys, "");
  // Every flag is back to false.
  EXPECT_FALSE(g_readonly || g_wto_constant_given || g_read_log_append || g_silent_read ||
               g_repeat_final_key || g_echo_need_log || g_echo_append_log || g_echo_need_hwflow ||
               g_echo_start_seq_given || g_echocli_read_delay_random || g_manual_intervene_errcli ||
               g_datapipe || g_pause_before_quit || g_omit_cancelio || g_omit_getoverlappedresult ||
               g_no_port_mode || g_list_vcoms || g_list_offer_dialog || g_unplug_vcoms || g_vbus_reinstall ||
               g_print_devstate_on_dsr || g_print_less);
  EXPECT_EQ(g_bytes_to_rw, 100);
  EXPECT_EQ(g_wait_msec_before_cancel, 5000);
  for (int32_t zero :
       {g_rto_interval, g_rto_multiplier, g_rto_constant, g_wto_multiplier, g_wto_constant, g_in_queue_bytes,
        g_out_queue_bytes, g_baudrate, g_echo_chunk_maxbytes, g_echo_chunk_minbytes, g_echo_timeout_limit,
        g_echocli_write_delaymsec, g_echocli_read_delaymsec, g_pause_msec_bfr_cancelio, g_custom_read_bytes,
        g_custom_write_bytes}) {
    EXPECT_EQ(zero, 0);
  }
  EXPECT_EQ(g_echolog_row_width, 16);
  EXPECT_EQ(g_echo_rwbufx, 2);
  EXPECT_EQ(g_echocli_read_nibble, 4000);
  EXPECT_EQ(g_clear_comport_msec, 50);
  EXPECT_EQ(g_log_buffer_bytes, 8192);
  for (uint32_t zero : {g_waitcommevent_delay0, g_waitcommevent_delay, g_echo_start_seq, g_echo_srand}) {
    EXPECT_EQ(zero, 0u);
  }
  EXPECT_EQ(g_echo_maxbytes64, 0);
}

}  // namespace
}  // namespace portwren
