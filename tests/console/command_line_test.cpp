#include "console/command_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include "console/run_settings.h"
#include "console/usage.h"

namespace portwren {
namespace {

struct Parsed {
  bool ok = false;
  std::string out;
  std::string err;
};

// Parses "portwren <args>" from default settings, capturing what it prints.
Parsed Parse(std::vector<std::string> args) {
  ResetRunSettings();
  args.insert(args.begin(), "portwren");
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Parsed parsed;
  parsed.ok = ParseCommandLine(static_cast<int>(args.size()), argv.data());
  parsed.out = testing::internal::GetCapturedStdout();
  parsed.err = testing::internal::GetCapturedStderr();
  return parsed;
}

void ExpectAccepted(const std::vector<std::string>& args) {
  const Parsed p = Parse(args);
  EXPECT_TRUE(p.ok);
  EXPECT_EQ(p.out, "");
  EXPECT_EQ(p.err, "");
}

void ExpectRefused(const std::vector<std::string>& args, const std::string& out) {
  const Parsed p = Parse(args);
  EXPECT_FALSE(p.ok);
  EXPECT_EQ(p.out, out);
}

TEST(ParseCommandLine, DefaultsWithJustAPort) {
  ExpectAccepted({"COM3"});
  EXPECT_STREQ(g_dev_open_path, "COM3");
  EXPECT_FALSE(g_readonly);
  EXPECT_EQ(g_bytes_to_rw, 100);
  EXPECT_EQ(g_wait_msec_before_cancel, 5000);
  EXPECT_EQ(g_rto_interval, 0);
  EXPECT_EQ(g_rto_multiplier, 0);
  EXPECT_EQ(g_rto_constant, 0);
  EXPECT_EQ(g_wto_multiplier, 0);
  EXPECT_EQ(g_wto_constant, 0);
  EXPECT_FALSE(g_wto_constant_given);
  EXPECT_EQ(g_in_queue_bytes, 0);
  EXPECT_EQ(g_out_queue_bytes, 0);
  EXPECT_EQ(g_baudrate, 0);
  EXPECT_STREQ(g_read_log_path, "");
  EXPECT_STREQ(g_first_keys, "");
  EXPECT_FALSE(g_repeat_final_key);
  EXPECT_EQ(g_echo_maxbytes64, 0);
  EXPECT_EQ(g_echo_chunk_maxbytes, 16000);
  EXPECT_EQ(g_echo_chunk_minbytes, 12);
  EXPECT_EQ(g_echolog_row_width, 16);
  EXPECT_EQ(g_echo_rwbufx, 2);
  EXPECT_EQ(g_echocli_read_nibble, 4000);
  EXPECT_EQ(g_clear_comport_msec, 50);
  EXPECT_EQ(g_log_buffer_bytes, 8192);
  EXPECT_FALSE(g_echo_start_seq_given);
  EXPECT_FALSE(g_datapipe);
  EXPECT_FALSE(g_no_port_mode);
  EXPECT_EQ(EchoWriteTimeoutConstant(), 0xFFFFFFFEu);
}

TEST(ParseCommandLine, PortNameMayStandAnywhere) {
  ExpectAccepted({"-b", "20", "COM7", "-c", "10"});
  EXPECT_STREQ(g_dev_open_path, "COM7");
  EXPECT_EQ(g_bytes_to_rw, 20);
  EXPECT_EQ(g_wait_msec_before_cancel, 10);
  ExpectAccepted({"-b20", "--msec-cancel", "11", "\\\\.\\COM12"});
  EXPECT_STREQ(g_dev_open_path, "\\\\.\\COM12");
  EXPECT_EQ(g_wait_msec_before_cancel, 11);
}

TEST(ParseCommandLine, BytesPerRequestBounds) {
  ExpectAccepted({"COM3", "-b", "8123999"});
  EXPECT_EQ(g_bytes_to_rw, 8123999);
  ExpectRefused({"COM3", "-b", "8124000"}, "--bytesrw or -b has bad argument(should>=0)\n");
  ExpectAccepted({"COM3", "-b", "0x20"});
  EXPECT_EQ(g_bytes_to_rw, 32);
  ExpectAccepted({"COM3", "--bytesrw=010"});  // auto base: octal
  EXPECT_EQ(g_bytes_to_rw, 8);
  ExpectRefused({"COM3", "-b", "-1"}, "--bytesrw or -b has bad argument(should>=0)\n");
  ExpectRefused({"COM3", "-b", "4294967296"}, "--bytesrw or -b has bad argument(should>=0)\n");
  ExpectAccepted({"COM3", "-b", "abc"});
  EXPECT_EQ(g_bytes_to_rw, 0);
  ExpectAccepted({"COM3", "--byt=5"});
  EXPECT_EQ(g_bytes_to_rw, 5);
}

TEST(ParseCommandLine, LaterOptionOverridesEarlier) {
  ExpectAccepted({"COM3", "-b", "5", "--bytesrw=7", "--rtoi=3", "--rtoi=4"});
  EXPECT_EQ(g_bytes_to_rw, 7);
  EXPECT_EQ(g_rto_interval, 4);
}

TEST(ParseCommandLine, EchoChunkBounds) {
  const std::string big_k = "-K or --echo-chunk-maxbytes has bad argument(should between 12 and 8024012)\n";
  const std::string small_k = "-k or --echo-chunk-minbytes has bad argument(should between 12 and 8024012)\n";
  ExpectAccepted({"COM3", "-K", "12", "-k", "12"});
  EXPECT_EQ(g_echo_chunk_maxbytes, 12);
  EXPECT_EQ(g_echo_chunk_minbytes, 12);
  ExpectAccepted({"COM3", "-K", "8024012"});
  ExpectRefused({"COM3", "-K", "11"}, big_k);
  ExpectRefused({"COM3", "-K", "8024013"}, big_k);
  ExpectRefused({"COM3", "-k", "11"}, small_k);
  ExpectRefused({"COM3", "-k", "-12"}, small_k);
  ExpectRefused({"COM3", "-k", "2000", "-K", "1000"}, "-k value must not be larger than -K value.\n");
  ExpectAccepted({"COM3", "-k", "2000"});
  EXPECT_EQ(g_echo_chunk_maxbytes, 16000);
  EXPECT_EQ(g_echo_chunk_minbytes, 2000);
  ExpectRefused({"COM3", "-k", "16001"}, "-k value must not be larger than -K value.\n");
  ExpectAccepted({"COM3", "--echo-chunk-maxbytes=100", "--echo-chunk-minbytes=100"});
}

TEST(ParseCommandLine, OrderOfChunkSizesCheckedOnlyWhenAllElsePassed) {
  ExpectRefused({"COM3", "-k", "2000", "-K", "1000", "-c", "0"},
                "--msec-cancel or -c has bad argument(should>0)\n");
}

TEST(ParseCommandLine, EveryValidationMessageAtOnce) {
  ExpectRefused({"COM3", "-b", "-1", "-c", "0", "--rtoi=-2", "--rtom=-2", "--rtoc=-2", "--wtom=-2",
                 "--wtoc=-2", "-B", "-1", "-m", "-1", "-K", "5", "-k", "5"},
                "--bytesrw or -b has bad argument(should>=0)\n"
                "--msec-cancel or -c has bad argument(should>0)\n"
                "--rtoi has bad argument(should>=0 or -1)\n"
                "--rtom has bad argument(should>=0 or -1)\n"
                "--rtoc has bad argument(should>=0 or -1)\n"
                "--wtom has bad argument(should>=0 or -1)\n"
                "--wtoc has bad argument(should>=0 or -1)\n"
                "--baudrate or -B has bad argument(should>0)\n"
                "-m or --echo-maxbytes has bad argument(should>0)\n"
                "-K or --echo-chunk-maxbytes has bad argument(should between 12 and 8024012)\n"
                "-k or --echo-chunk-minbytes has bad argument(should between 12 and 8024012)\n");
}

TEST(ParseCommandLine, TimeoutsAcceptMinusOneAndTextConvertsToZero) {
  ExpectAccepted({"COM3", "--rtoi=-1", "--rtom=-1", "--rtoc=-1", "--wtom=-1", "--wtoc=-1", "-B", "0"});
  EXPECT_EQ(g_rto_interval, -1);
  EXPECT_EQ(g_wto_constant, -1);
  EXPECT_TRUE(g_wto_constant_given);
  EXPECT_EQ(EchoWriteTimeoutConstant(), 0xFFFFFFFFu);
  ExpectAccepted({"COM3", "--wtoc=0"});
  EXPECT_EQ(EchoWriteTimeoutConstant(), 0u);
  ExpectRefused({"COM3", "-c", "abc"}, "--msec-cancel or -c has bad argument(should>0)\n");
}

TEST(ParseCommandLine, QuickReadTimeoutWinsOverReadTimeoutOptions) {
  ExpectAccepted({"COM3", "-Q", "0", "--rtoi=5"});
  EXPECT_EQ(g_rto_interval, -1);
  EXPECT_EQ(g_rto_multiplier, -1);
  EXPECT_EQ(g_rto_constant, 0);
  ExpectAccepted({"COM3", "--rtoc=7", "--rtom=9", "-Q", "300"});
  EXPECT_EQ(g_rto_multiplier, -1);
  EXPECT_EQ(g_rto_constant, 300);
  ExpectAccepted({"COM3", "--rtoi=5", "-Q", "-1"});  // below 0: not applied
  EXPECT_EQ(g_rto_interval, 5);
  EXPECT_EQ(g_rto_constant, 0);
}

TEST(ParseCommandLine, LongOptionMissingItsValue) {
  ExpectRefused({"COM3", "--bytesrw"}, "Long option '--bytesrw' missing an argument\n");
  ExpectRefused({"COM3", "--first-key"}, "Long option '--first-key' missing an argument\n");
  // An abbreviation lacking its value is not recognised by that test.
  ExpectRefused({"COM3", "--bytes"}, "Bad long option '--bytes'\n");
}

TEST(ParseCommandLine, BadLongOptions) {
  ExpectRefused({"COM3", "--foo=1"}, "Bad long option '--foo=1'\n");
  ExpectRefused({"--foo", "COM3"}, "Bad long option '--foo'\n");
  ExpectRefused({"COM3", "--readonly=1"}, "Bad long option '--readonly=1'\n");
  ExpectRefused({"COM3", "--datapipe=x"}, "Bad long option '--datapipe=x'\n");
}

TEST(ParseCommandLine, AmbiguousPrefixIsReportedTwice) {
  const Parsed p = Parse({"COM3", "--rto=5"});
  EXPECT_FALSE(p.ok);
  EXPECT_EQ(p.out, "Bad long option '--rto=5'\n");
  EXPECT_EQ(p.err, "portwren: option `--rto=5' is ambiguous\n");
  const Parsed q = Parse({"COM3", "--waitcommevent-d=1"});
  EXPECT_EQ(q.err, "portwren: option `--waitcommevent-d=1' is ambiguous\n");
}

TEST(ParseCommandLine, ExactNameBeatsLongerNames) {
  ExpectAccepted({"COM3", "--waitcommevent-delay=5", "--waitcommevent-delay0=6", "--read-log", "r.log"});
  EXPECT_EQ(g_waitcommevent_delay, 5u);
  EXPECT_EQ(g_waitcommevent_delay0, 6u);
  EXPECT_STREQ(g_read_log_path, "r.log");
  EXPECT_FALSE(g_read_log_append);
}

TEST(ParseCommandLine, ShortOptionProblems) {
  ExpectRefused({"COM3", "-x"}, "Bad short option '-x'.\n");
  ExpectRefused({"COM3", "-b"}, "Short option '-b' missing an argument.\n");
  ExpectRefused({"COM3", "-lQ"}, "Short option '-Q' missing an argument.\n");
  ExpectRefused({"COM3", "-lx"}, "Bad short option '-x'.\n");
  // ':' is in the option string, so it reads as a missing argument.
  ExpectRefused({"COM3", "-:"}, "Short option '-:' missing an argument.\n");
  ExpectRefused({"COM3", "-l-"}, "Bad short option '--'.\n");
}

TEST(ParseCommandLine, PositionalArgument) {
  ExpectRefused({}, "You do not pass in an argument as COM port device name.\n");
  ExpectRefused({"-b", "20"}, "You do not pass in an argument as COM port device name.\n");
  ExpectRefused({"COM3", "COM4"}, "You pass in more than one argument as COM port device name.\n");
  ExpectAccepted({"--", "-weird-name"});
  EXPECT_STREQ(g_dev_open_path, "-weird-name");
  const std::string path(300, 'p');
  ExpectAccepted({path});
  EXPECT_EQ(std::string(g_dev_open_path), path.substr(0, 259));
}

TEST(ParseCommandLine, DatapipePath) {
  ExpectAccepted({"--datapipe"});
  EXPECT_TRUE(g_datapipe);
  EXPECT_STREQ(g_dev_open_path, "\\\\.\\QDX_Datapipe");
  ExpectAccepted({"COM3", "--datapipe"});
  EXPECT_STREQ(g_dev_open_path, "COM3\\\\.\\QDX_Datapipe");
  ExpectRefused({"--datapipe", "COM3", "COM4"},
                "You pass in more than one argument as COM port device name.\n");
}

TEST(ParseCommandLine, NoPortModeSkipsPortAndChecks) {
  ExpectAccepted({"-l", "COM3", "COM4"});
  EXPECT_TRUE(g_list_vcoms);
  EXPECT_TRUE(g_no_port_mode);
  EXPECT_FALSE(g_list_offer_dialog);
  EXPECT_STREQ(g_dev_open_path, "");

  ExpectAccepted({"--list-vcoms", "-b", "-1", "-Q", "5"});
  EXPECT_TRUE(g_list_offer_dialog);
  EXPECT_EQ(g_echo_chunk_maxbytes, 0);  // no defaults either
  EXPECT_EQ(g_rto_constant, 0);

  ExpectAccepted({"--list-vcoms", "-l"});
  EXPECT_FALSE(g_list_offer_dialog);
  ExpectAccepted({"-l", "--list-vcoms"});
  EXPECT_TRUE(g_list_offer_dialog);

  ExpectAccepted({"--unplug-vcoms"});
  EXPECT_TRUE(g_unplug_vcoms);
  EXPECT_TRUE(g_no_port_mode);
  EXPECT_FALSE(g_list_vcoms);
  ExpectAccepted({"--vbus-reinstall"});
  EXPECT_TRUE(g_vbus_reinstall);
  EXPECT_TRUE(g_no_port_mode);
  // Bad options are still refused.
  ExpectRefused({"-l", "--nope"}, "Bad long option '--nope'\n");
}

TEST(ParseCommandLine, EchoSeed) {
  const auto before = static_cast<uint32_t>(std::time(nullptr));
  ExpectAccepted({"COM3", "--echo-srand=time"});
  const auto after = static_cast<uint32_t>(std::time(nullptr));
  EXPECT_GE(g_echo_srand, before);
  EXPECT_LE(g_echo_srand, after);
  ExpectAccepted({"COM3", "--echo-srand=Time"});
  EXPECT_EQ(g_echo_srand, 0u);
  ExpectAccepted({"COM3", "--echo-srand", "5566"});
  EXPECT_EQ(g_echo_srand, 5566u);
  ExpectAccepted({"COM3", "--echo-srand=-1"});
  EXPECT_EQ(g_echo_srand, 0xFFFFFFFFu);
}

TEST(ParseCommandLine, EchoClientReadDelay) {
  ExpectAccepted({"COM3", "--echocli-read-delaymsec=r0"});
  EXPECT_FALSE(g_echocli_read_delay_random);
  EXPECT_EQ(g_echocli_read_delaymsec, 0);
  ExpectAccepted({"COM3", "--echocli-read-delaymsec=r1000"});
  EXPECT_TRUE(g_echocli_read_delay_random);
  EXPECT_EQ(g_echocli_read_delaymsec, 1000);
  ExpectAccepted({"COM3", "--echocli-read-delaymsec=1000"});
  EXPECT_FALSE(g_echocli_read_delay_random);
  EXPECT_EQ(g_echocli_read_delaymsec, 1000);
  ExpectAccepted({"COM3", "--echocli-read-delaymsec=r-5"});
  EXPECT_FALSE(g_echocli_read_delay_random);
  EXPECT_EQ(g_echocli_read_delaymsec, 0);
  // The random flag is only ever switched on.
  ExpectAccepted({"COM3", "--echocli-read-delaymsec=r5", "--echocli-read-delaymsec=7"});
  EXPECT_TRUE(g_echocli_read_delay_random);
  EXPECT_EQ(g_echocli_read_delaymsec, 7);
}

TEST(ParseCommandLine, FirstKeysAndRepeatMarker) {
  ExpectAccepted({"COM3", "--first-key=abc"});
  EXPECT_STREQ(g_first_keys, "abc");
  ExpectAccepted({"COM3", "--first-key=abc", "--repeat-final-key"});
  EXPECT_STREQ(g_first_keys, "abc\xFF");
  ExpectAccepted({"COM3", "--repeat-final-key"});
  EXPECT_TRUE(g_repeat_final_key);
  EXPECT_STREQ(g_first_keys, "");

  const std::string forty(40, 'k');
  ExpectAccepted({"COM3", "--first-key=" + forty});
  EXPECT_EQ(std::string(g_first_keys), forty.substr(0, 33));
  ExpectAccepted({"COM3", "--first-key=" + forty, "--repeat-final-key"});
  EXPECT_EQ(std::string(g_first_keys), forty.substr(0, 33));  // no room for the marker
  const std::string thirty_two(32, 'k');
  ExpectAccepted({"COM3", "--first-key=" + thirty_two, "--repeat-final-key"});
  EXPECT_EQ(std::string(g_first_keys), thirty_two + "\xFF");
}

TEST(ParseCommandLine, ReadLogPathIsCut) {
  const std::string path(300, 'f');
  ExpectAccepted({"COM3", "--read-log=" + path, "--read-log-append", "--silent-read"});
  EXPECT_EQ(std::string(g_read_log_path), path.substr(0, 259));
  EXPECT_TRUE(g_read_log_append);
  EXPECT_TRUE(g_silent_read);
}

TEST(ParseCommandLine, ValuesWithFloors) {
  ExpectAccepted({"COM3", "--echolog-row-width=4", "--echo-rwbufx=0", "--echo-timeout-limit=-5",
                  "--echocli-read-nibble=0", "--echocli-write-delaymsec=-1", "--clear-comport-msec=-1",
                  "--pause-msec-bfr-cancelio=-3"});
  EXPECT_EQ(g_echolog_row_width, 8);
  EXPECT_EQ(g_echo_rwbufx, 1);
  EXPECT_EQ(g_echo_timeout_limit, 0);
  EXPECT_EQ(g_echocli_read_nibble, 1);
  EXPECT_EQ(g_echocli_write_delaymsec, 0);
  EXPECT_EQ(g_clear_comport_msec, 0);
  EXPECT_EQ(g_pause_msec_bfr_cancelio, 0);
  ExpectAccepted({"COM3", "--echolog-row-width=32", "--echo-rwbufx=3", "--echo-timeout-limit=2000",
                  "--echocli-read-nibble=512", "--echocli-write-delaymsec=1000", "--clear-comport-msec=70",
                  "--pause-msec-bfr-cancelio", "300"});
  EXPECT_EQ(g_echolog_row_width, 32);
  EXPECT_EQ(g_echo_rwbufx, 3);
  EXPECT_EQ(g_echo_timeout_limit, 2000);
  EXPECT_EQ(g_echocli_read_nibble, 512);
  EXPECT_EQ(g_echocli_write_delaymsec, 1000);
  EXPECT_EQ(g_clear_comport_msec, 70);
  EXPECT_EQ(g_pause_msec_bfr_cancelio, 300);
}

TEST(ParseCommandLine, RemainingSettings) {
  ExpectAccepted({"COM3", "--readonly", "--in-queue=4096", "--out-queue=8192", "-B", "9600",
                  "--echo-need-log", "--echo-append-log", "--echo-need-hwflow", "--echo-start-seq=0x11233344",
                  "-m", "0x10", "--manual-intervene-errcli", "--pause-before-quit", "--omit-cancelio",
                  "--omit-getoverlappedresult", "--print-devstate-on-dsr", "--waitcommevent-delay0=-1"});
  EXPECT_TRUE(g_readonly);
  EXPECT_EQ(g_in_queue_bytes, 4096);
  EXPECT_EQ(g_out_queue_bytes, 8192);
  EXPECT_EQ(g_baudrate, 9600);
  EXPECT_TRUE(g_echo_need_log);
  EXPECT_TRUE(g_echo_append_log);
  EXPECT_TRUE(g_echo_need_hwflow);
  EXPECT_TRUE(g_echo_start_seq_given);
  EXPECT_EQ(g_echo_start_seq, 0x11233344u);
  EXPECT_EQ(g_echo_maxbytes64, 16);
  EXPECT_TRUE(g_manual_intervene_errcli);
  EXPECT_TRUE(g_pause_before_quit);
  EXPECT_TRUE(g_omit_cancelio);
  EXPECT_TRUE(g_omit_getoverlappedresult);
  EXPECT_TRUE(g_print_devstate_on_dsr);
  EXPECT_EQ(g_waitcommevent_delay0, 0xFFFFFFFFu);
  EXPECT_FALSE(g_no_port_mode);

  ExpectAccepted({"COM3", "--echo-maxbytes=5000000000"});
  EXPECT_EQ(g_echo_maxbytes64, 5000000000LL);
}

TEST(ParseCommandLine, ArgumentsAreNotPrintedOnSuccess) {
  const Parsed p = Parse({"COM3", "-b", "20", "-c", "4000", "--rtoi=-1", "--rtom=-1", "--rtoc=3000"});
  EXPECT_TRUE(p.ok);
  EXPECT_EQ(p.out + p.err, "");
  EXPECT_EQ(g_rto_constant, 3000);
}

TEST(LongOptionTable, CodesAreTheLettersAndOneCodeEachFrom128To164) {
  std::set<int> long_only;
  std::string letters;
  int entries = 0;
  for (const LongOption* o = LongOptionTable(); o->name != nullptr; ++o, ++entries) {
    EXPECT_EQ(o->flag, nullptr) << o->name;
    if (o->val >= 128) {
      EXPECT_TRUE(long_only.insert(o->val).second) << o->name;
    } else {
      letters.push_back(static_cast<char>(o->val));
    }
  }
  EXPECT_EQ(entries, 43);
  EXPECT_EQ(letters, "bcBmKk");
  ASSERT_EQ(long_only.size(), 37u);
  EXPECT_EQ(*long_only.begin(), 128);
  EXPECT_EQ(*long_only.rbegin(), 164);
  EXPECT_EQ(std::strcmp(LongOptionTable()[0].name, "readonly"), 0);
  EXPECT_EQ(LongOptionTable()[0].val, 128);
  EXPECT_EQ(LongOptionTable()[42].val, 164);
}

TEST(OptionValueConversion, DecimalIsAtoiHeldAtTheLimits) {
  EXPECT_EQ(DecimalArgument(nullptr), 0);
  EXPECT_EQ(DecimalArgument(" 42abc"), 42);
  EXPECT_EQ(DecimalArgument("-17"), -17);
  EXPECT_EQ(DecimalArgument("abc"), 0);
  EXPECT_EQ(DecimalArgument("0x20"), 0);
  EXPECT_EQ(DecimalArgument("99999999999"), 2147483647);
  EXPECT_EQ(DecimalArgument("-99999999999"), -2147483647 - 1);
}

TEST(OptionValueConversion, AutoBaseIs32BitStrtoul) {
  EXPECT_EQ(AutoBaseArgument(nullptr), 0u);
  EXPECT_EQ(AutoBaseArgument("0x20"), 32u);
  EXPECT_EQ(AutoBaseArgument("0X1f"), 31u);
  EXPECT_EQ(AutoBaseArgument("010"), 8u);
  EXPECT_EQ(AutoBaseArgument("  +7x"), 7u);
  EXPECT_EQ(AutoBaseArgument("-1"), 0xFFFFFFFFu);
  EXPECT_EQ(AutoBaseArgument("-4294967295"), 1u);
  EXPECT_EQ(AutoBaseArgument("4294967295"), 0xFFFFFFFFu);
  EXPECT_EQ(AutoBaseArgument("4294967296"), 0xFFFFFFFFu);
  EXPECT_EQ(AutoBaseArgument("-4294967296"), 0xFFFFFFFFu);
  EXPECT_EQ(AutoBaseArgument("99999999999999999999999"), 0xFFFFFFFFu);
  EXPECT_EQ(AutoBaseArgument("- 7"), 0u);
  EXPECT_EQ(AutoBaseArgument("--7"), 0u);
  EXPECT_EQ(AutoBaseArgument("abc"), 0u);
  EXPECT_EQ(AutoBaseArgument64("0x100000000"), 0x100000000LL);
  EXPECT_EQ(AutoBaseArgument64("-1"), -1);
  EXPECT_EQ(AutoBaseArgument64(nullptr), 0);
}

}  // namespace
}  // namespace portwren
