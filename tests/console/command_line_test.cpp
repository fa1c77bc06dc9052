#include "console/command_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "console/usage.h"
#include "support/run_settings.h"

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

// A setting as text, so that one table holds settings of every kind.
template <typename T>
std::string Text(const T& value) {
  if constexpr (std::is_convertible_v<T, std::string>) {
    return value;
  } else if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else {
    return std::to_string(value);
  }
}

// A setting and what it should hold after the parse, both as text.
struct Is {
  template <typename T, typename V>
  Is(const char* label, const T& global, const V& value)
      : name(label), read([&global] { return Text(global); }), expected(Text(value)) {}
  const char* name;
  std::function<std::string()> read;
  std::string expected;
};
#define IS(setting, value) Is(#setting, setting, value)

// Accepted without a word printed, and these settings are what the options gave.
struct Accepted {
  std::vector<std::string> args;
  std::vector<Is> settings;
};

TEST(ParseCommandLine, AcceptedCommandLinesAndTheirSettings) {
  const std::string k40(40, 'k'), k33(33, 'k'), k32(32, 'k');
  const Accepted cases[] = {
      // Just a port: what the parse itself could change (the reset's defaults have their own test).
      {{"COM3"},
       {IS(g_dev_open_path, "COM3"), IS(g_bytes_to_rw, 100), IS(g_wait_msec_before_cancel, 5000),
        IS(g_rto_interval, 0), IS(g_rto_multiplier, 0), IS(g_rto_constant, 0), IS(g_first_keys, ""),
        IS(g_echo_chunk_maxbytes, 16000), IS(g_echo_chunk_minbytes, 12), IS(g_datapipe, false),
        IS(g_no_port_mode, false), IS(g_wto_constant_given, false)}},
      // The port may stand anywhere; short values attached or separate, long ones separate too.
      {{"-b", "20", "COM7", "-c", "10"},
       {IS(g_dev_open_path, "COM7"), IS(g_bytes_to_rw, 20), IS(g_wait_msec_before_cancel, 10)}},
      {{"-b20", "--msec-cancel", "11", "\\\\.\\COM12"},
       {IS(g_dev_open_path, "\\\\.\\COM12"), IS(g_bytes_to_rw, 20), IS(g_wait_msec_before_cancel, 11)}},
      // Bytes per request: auto base, text is 0, a unique prefix names the option.
      {{"COM3", "-b", "8123999"}, {IS(g_bytes_to_rw, 8123999)}},
      {{"COM3", "-b", "0x20"}, {IS(g_bytes_to_rw, 32)}},
      {{"COM3", "--bytesrw=010"}, {IS(g_bytes_to_rw, 8)}},
      {{"COM3", "-b", "abc"}, {IS(g_bytes_to_rw, 0)}},
      {{"COM3", "--byt=5"}, {IS(g_bytes_to_rw, 5)}},
      // A later option overrides an earlier one.
      {{"COM3", "-b", "5", "--bytesrw=7", "--rtoi=3", "--rtoi=4"},
       {IS(g_bytes_to_rw, 7), IS(g_rto_interval, 4)}},
      // An exact name beats the longer names it starts.
      {{"COM3", "--waitcommevent-delay=5", "--waitcommevent-delay0=6", "--read-log", "r.log"},
       {IS(g_waitcommevent_delay, 5u), IS(g_waitcommevent_delay0, 6u), IS(g_read_log_path, "r.log"),
        IS(g_read_log_append, false)}},
      // Echo chunk sizes at their bounds; -k alone is checked against the default -K.
      {{"COM3", "-K", "12", "-k", "12"}, {IS(g_echo_chunk_maxbytes, 12), IS(g_echo_chunk_minbytes, 12)}},
      {{"COM3", "-K", "8024012"}, {IS(g_echo_chunk_maxbytes, 8024012)}},
      {{"COM3", "-k", "2000"}, {IS(g_echo_chunk_maxbytes, 16000), IS(g_echo_chunk_minbytes, 2000)}},
      {{"COM3", "--echo-chunk-maxbytes=100", "--echo-chunk-minbytes=100"},
       {IS(g_echo_chunk_maxbytes, 100), IS(g_echo_chunk_minbytes, 100)}},
      // Timeouts take -1 for MAXDWORD.
      {{"COM3", "--rtoi=-1", "--rtom=-1", "--rtoc=-1", "--wtom=-1", "--wtoc=-1", "-B", "0"},
       {IS(g_rto_interval, -1), IS(g_rto_multiplier, -1), IS(g_rto_constant, -1), IS(g_wto_multiplier, -1),
        IS(g_wto_constant, -1), IS(g_wto_constant_given, true)}},
      // -Q wins over the read timeout options, unless below 0.
      {{"COM3", "-Q", "0", "--rtoi=5"},
       {IS(g_rto_interval, -1), IS(g_rto_multiplier, -1), IS(g_rto_constant, 0)}},
      {{"COM3", "--rtoc=7", "--rtom=9", "-Q", "300"}, {IS(g_rto_multiplier, -1), IS(g_rto_constant, 300)}},
      {{"COM3", "--rtoi=5", "-Q", "-1"}, {IS(g_rto_interval, 5), IS(g_rto_constant, 0)}},
      // The port name: after "--" it may start with a dash; a long one is cut.
      {{"--", "-weird-name"}, {IS(g_dev_open_path, "-weird-name")}},
      {{std::string(300, 'p')}, {IS(g_dev_open_path, std::string(259, 'p'))}},
      {{"--datapipe"}, {IS(g_datapipe, true), IS(g_dev_open_path, "\\\\.\\QDX_Datapipe")}},
      {{"COM3", "--datapipe"}, {IS(g_dev_open_path, "COM3\\\\.\\QDX_Datapipe")}},
      // Listing, unplugging and reinstalling take no port, no checks and no defaults.
      {{"-l", "COM3", "COM4"},
       {IS(g_list_vcoms, true), IS(g_no_port_mode, true), IS(g_list_offer_dialog, false),
        IS(g_dev_open_path, "")}},
      {{"--list-vcoms", "-b", "-1", "-Q", "5"},
       {IS(g_list_offer_dialog, true), IS(g_bytes_to_rw, -1), IS(g_echo_chunk_maxbytes, 0),
        IS(g_rto_constant, 0)}},
      {{"--list-vcoms", "-l"}, {IS(g_list_offer_dialog, false)}},
      {{"-l", "--list-vcoms"}, {IS(g_list_offer_dialog, true)}},
      {{"--unplug-vcoms"}, {IS(g_unplug_vcoms, true), IS(g_no_port_mode, true), IS(g_list_vcoms, false)}},
      {{"--vbus-reinstall"}, {IS(g_vbus_reinstall, true), IS(g_no_port_mode, true)}},
      // The echo seed: "time" in that spelling only.
      {{"COM3", "--echo-srand=Time"}, {IS(g_echo_srand, 0u)}},
      {{"COM3", "--echo-srand", "5566"}, {IS(g_echo_srand, 5566u)}},
      {{"COM3", "--echo-srand=-1"}, {IS(g_echo_srand, 0xFFFFFFFFu)}},
      // "r<n>": a random read delay up to n; the flag is only ever switched on.
      {{"COM3", "--echocli-read-delaymsec=r0"},
       {IS(g_echocli_read_delay_random, false), IS(g_echocli_read_delaymsec, 0)}},
      {{"COM3", "--echocli-read-delaymsec=r1000"},
       {IS(g_echocli_read_delay_random, true), IS(g_echocli_read_delaymsec, 1000)}},
      {{"COM3", "--echocli-read-delaymsec=1000"},
       {IS(g_echocli_read_delay_random, false), IS(g_echocli_read_delaymsec, 1000)}},
      {{"COM3", "--echocli-read-delaymsec=r-5"},
       {IS(g_echocli_read_delay_random, false), IS(g_echocli_read_delaymsec, 0)}},
      {{"COM3", "--echocli-read-delaymsec=r5", "--echocli-read-delaymsec=7"},
       {IS(g_echocli_read_delay_random, true), IS(g_echocli_read_delaymsec, 7)}},
      // First keys, cut to 33; the repeat marker follows them when there is room.
      {{"COM3", "--first-key=abc"}, {IS(g_first_keys, "abc")}},
      {{"COM3", "--first-key=abc", "--repeat-final-key"}, {IS(g_first_keys, "abc\xFF")}},
      {{"COM3", "--repeat-final-key"}, {IS(g_repeat_final_key, true), IS(g_first_keys, "")}},
      {{"COM3", "--first-key=" + k40}, {IS(g_first_keys, k33)}},
      {{"COM3", "--first-key=" + k40, "--repeat-final-key"}, {IS(g_first_keys, k33)}},
      {{"COM3", "--first-key=" + k32, "--repeat-final-key"}, {IS(g_first_keys, k32 + "\xFF")}},
      {{"COM3", "--read-log=" + std::string(300, 'f'), "--read-log-append", "--silent-read"},
       {IS(g_read_log_path, std::string(259, 'f')), IS(g_read_log_append, true), IS(g_silent_read, true)}},
      // Values with floors, below and above them.
      {{"COM3", "--echolog-row-width=4", "--echo-rwbufx=0", "--echo-timeout-limit=-5",
        "--echocli-read-nibble=0", "--echocli-write-delaymsec=-1", "--clear-comport-msec=-1",
        "--pause-msec-bfr-cancelio=-3"},
       {IS(g_echolog_row_width, 8), IS(g_echo_rwbufx, 1), IS(g_echo_timeout_limit, 0),
        IS(g_echocli_read_nibble, 1), IS(g_echocli_write_delaymsec, 0), IS(g_clear_comport_msec, 0),
        IS(g_pause_msec_bfr_cancelio, 0)}},
      {{"COM3", "--echolog-row-width=32", "--echo-rwbufx=3", "--echo-timeout-limit=2000",
        "--echocli-read-nibble=512", "--echocli-write-delaymsec=1000", "--clear-comport-msec=70",
        "--pause-msec-bfr-cancelio", "300"},
       {IS(g_echolog_row_width, 32), IS(g_echo_rwbufx, 3), IS(g_echo_timeout_limit, 2000),
        IS(g_echocli_read_nibble, 512), IS(g_echocli_write_delaymsec, 1000), IS(g_clear_comport_msec, 70),
        IS(g_pause_msec_bfr_cancelio, 300)}},
      {{"COM3", "--readonly", "--in-queue=4096", "--out-queue=8192", "-B", "9600", "--echo-need-log",
        "--echo-append-log", "--echo-need-hwflow", "--echo-start-seq=0x11233344", "-m", "0x10",
        "--manual-intervene-errcli", "--pause-before-quit", "--omit-cancelio", "--omit-getoverlappedresult",
        "--print-devstate-on-dsr", "--waitcommevent-delay0=-1"},
       {IS(g_readonly, true), IS(g_in_queue_bytes, 4096), IS(g_out_queue_bytes, 8192), IS(g_baudrate, 9600),
        IS(g_echo_need_log, true), IS(g_echo_append_log, true), IS(g_echo_need_hwflow, true),
        IS(g_echo_start_seq_given, true), IS(g_echo_start_seq, 0x11233344u), IS(g_echo_maxbytes64, 16),
        IS(g_manual_intervene_errcli, true), IS(g_pause_before_quit, true), IS(g_omit_cancelio, true),
        IS(g_omit_getoverlappedresult, true), IS(g_print_devstate_on_dsr, true),
        IS(g_waitcommevent_delay0, 0xFFFFFFFFu), IS(g_no_port_mode, false)}},
      {{"COM3", "--echo-maxbytes=5000000000"}, {IS(g_echo_maxbytes64, 5000000000LL)}},
      // The later options, abbreviated to their first letter.
      {{"COM3", "--j=r.jsonl", "--n", "--h=10000", "--t"},
       {IS(g_json_results_path, std::string("r.jsonl")), IS(g_nonzero_on_fail, true), IS(g_hold_break, 10000),
        IS(g_timeout_check, true)}},
      {{"COM3"}, {IS(g_hold_break, 250)}},
      {{"COM3", "--hold-break", "1"}, {IS(g_hold_break, 1)}},
  };
  for (const Accepted& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const Parsed p = Parse(c.args);
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.out + p.err, "");
    for (const Is& s : c.settings) EXPECT_EQ(s.read(), s.expected) << s.name;
  }
}

TEST(ParseCommandLine, EchoSeedFromTheClock) {
  const auto before = static_cast<uint32_t>(std::time(nullptr));
  ASSERT_TRUE(Parse({"COM3", "--echo-srand=time"}).ok);
  EXPECT_GE(g_echo_srand, before);
  EXPECT_LE(g_echo_srand, static_cast<uint32_t>(std::time(nullptr)));
}

// The echo test's write timeout constant is --wtoc's only when given.
TEST(ParseCommandLine, EchoWriteTimeoutConstant) {
  ASSERT_TRUE(Parse({"COM3"}).ok);
  EXPECT_EQ(EchoWriteTimeoutConstant(), 0xFFFFFFFEu);
  ASSERT_TRUE(Parse({"COM3", "--wtoc=-1"}).ok);
  EXPECT_EQ(EchoWriteTimeoutConstant(), 0xFFFFFFFFu);
  ASSERT_TRUE(Parse({"COM3", "--wtoc=0"}).ok);
  EXPECT_EQ(EchoWriteTimeoutConstant(), 0u);
}

// Refused with exactly these lines on standard output (and standard error).
TEST(ParseCommandLine, RefusedCommandLinesAndWhatTheyPrint) {
  const std::string bad_b = "--bytesrw or -b has bad argument(should>=0)\n";
  const std::string bad_c = "--msec-cancel or -c has bad argument(should>0)\n";
  const std::string big_k = "-K or --echo-chunk-maxbytes has bad argument(should between 12 and 8024012)\n";
  const std::string small_k = "-k or --echo-chunk-minbytes has bad argument(should between 12 and 8024012)\n";
  const std::string k_order = "-k value must not be larger than -K value.\n";
  const std::string no_port = "You do not pass in an argument as COM port device name.\n";
  const std::string two_ports = "You pass in more than one argument as COM port device name.\n";
  const std::string bad_hold = "--hold-break has bad argument(should between 1 and 10000)\n";
  const struct {
    std::vector<std::string> args;
    std::string out;
    std::string err = "";
  } cases[] = {
      {{"COM3", "-b", "8124000"}, bad_b},
      {{"COM3", "-b", "-1"}, bad_b},
      {{"COM3", "-b", "4294967296"}, bad_b},
      {{"COM3", "-c", "abc"}, bad_c},
      {{"COM3", "-K", "11"}, big_k},
      {{"COM3", "-K", "8024013"}, big_k},
      {{"COM3", "-k", "11"}, small_k},
      {{"COM3", "-k", "-12"}, small_k},
      {{"COM3", "-k", "2000", "-K", "1000"}, k_order},
      {{"COM3", "-k", "16001"}, k_order},
      // The order of the chunk sizes is checked only when all else passed.
      {{"COM3", "-k", "2000", "-K", "1000", "-c", "0"}, bad_c},
      // Every check runs, in this order.
      {{"COM3", "-b", "-1", "-c", "0", "--rtoi=-2", "--rtom=-2", "--rtoc=-2", "--wtom=-2", "--wtoc=-2", "-B",
        "-1", "-m", "-1", "-K", "5", "-k", "5"},
       bad_b + bad_c +
           "--rtoi has bad argument(should>=0 or -1)\n"
           "--rtom has bad argument(should>=0 or -1)\n"
           "--rtoc has bad argument(should>=0 or -1)\n"
           "--wtom has bad argument(should>=0 or -1)\n"
           "--wtoc has bad argument(should>=0 or -1)\n"
           "--baudrate or -B has bad argument(should>0)\n"
           "-m or --echo-maxbytes has bad argument(should>0)\n" +
           big_k + small_k},
      // The break's hold, in bounds; text is 0.
      {{"COM3", "--hold-break=0"}, bad_hold},
      {{"COM3", "--hold-break=10001"}, bad_hold},
      {{"COM3", "--hold-break=-5"}, bad_hold},
      {{"COM3", "--hold-break=long"}, bad_hold},
      {{"COM3", "--bytesrw"}, "Long option '--bytesrw' missing an argument\n"},
      {{"COM3", "--first-key"}, "Long option '--first-key' missing an argument\n"},
      // An abbreviation lacking its value is not recognised by that test.
      {{"COM3", "--bytes"}, "Bad long option '--bytes'\n"},
      {{"COM3", "--foo=1"}, "Bad long option '--foo=1'\n"},
      {{"--foo", "COM3"}, "Bad long option '--foo'\n"},
      {{"COM3", "--readonly=1"}, "Bad long option '--readonly=1'\n"},
      {{"COM3", "--datapipe=x"}, "Bad long option '--datapipe=x'\n"},
      // An ambiguous prefix is reported twice: by the scanner, then by the program.
      {{"COM3", "--rto=5"}, "Bad long option '--rto=5'\n", "portwren: option `--rto=5' is ambiguous\n"},
      {{"COM3", "--waitcommevent-d=1"},
       "Bad long option '--waitcommevent-d=1'\n",
       "portwren: option `--waitcommevent-d=1' is ambiguous\n"},
      {{"COM3", "-x"}, "Bad short option '-x'.\n"},
      {{"COM3", "-b"}, "Short option '-b' missing an argument.\n"},
      {{"COM3", "-lQ"}, "Short option '-Q' missing an argument.\n"},
      {{"COM3", "-lx"}, "Bad short option '-x'.\n"},
      // ':' is in the option string, so it reads as a missing argument.
      {{"COM3", "-:"}, "Short option '-:' missing an argument.\n"},
      {{"COM3", "-l-"}, "Bad short option '--'.\n"},
      {{}, no_port},
      {{"-b", "20"}, no_port},
      {{"COM3", "COM4"}, two_ports},
      {{"--datapipe", "COM3", "COM4"}, two_ports},
      // Listing skips the checks, not the option scan.
      {{"-l", "--nope"}, "Bad long option '--nope'\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const Parsed p = Parse(c.args);
    EXPECT_FALSE(p.ok);
    EXPECT_EQ(p.out, c.out);
    EXPECT_EQ(p.err, c.err);
  }
}

// Every option, long or short, changes some setting, and a reset undoes all of them.
TEST(ParseCommandLine, EveryOptionMovesASettingAndResetRestoresThem) {
  std::vector<std::string> options;
  for (const LongOption* o = LongOptionTable(); o->name != nullptr; ++o) {
    options.push_back(std::string("--") + o->name + (o->has_arg == kRequiredArgument ? "=77" : ""));
  }
  for (const char* c = kShortOptions; *c != '\0'; ++c) {
    if (*c != ':') options.push_back(std::string("-") + *c + (c[1] == ':' ? "77" : ""));
  }
  Parse({"COM1"});
  const RunSettings baseline = g_run_settings;
  for (const std::string& option : options) {
    Parse({"COM1", option});
    EXPECT_FALSE(g_run_settings == baseline) << option;
    ResetRunSettings();
    EXPECT_TRUE(g_run_settings == RunSettings{}) << option;
  }
}

TEST(LongOptionTable, CodesAreTheLettersAndOneCodeEachFrom128To168) {
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
  EXPECT_EQ(entries, 47);
  EXPECT_EQ(letters, "bcBmKk");
  ASSERT_EQ(long_only.size(), 41u);
  EXPECT_EQ(*long_only.begin(), 128);
  EXPECT_EQ(*long_only.rbegin(), 168);
  EXPECT_EQ(std::strcmp(LongOptionTable()[0].name, "readonly"), 0);
  EXPECT_EQ(LongOptionTable()[0].val, 128);
  EXPECT_EQ(LongOptionTable()[42].val, 164);
}

// The later options start with letters no other option starts with, so every abbreviation that
// worked before they came still names the same option.
TEST(LongOptionTable, LaterOptionsKeepEveryEarlierAbbreviation) {
  for (const LongOption* added = LongOptionTable() + 43; added->name != nullptr; ++added) {
    for (const LongOption* o = LongOptionTable(); o->name != nullptr; ++o) {
      if (o == added) continue;
      EXPECT_NE(o->name[0], added->name[0]) << o->name << " / " << added->name;
    }
  }
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
