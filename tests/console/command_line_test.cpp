#include "console/command_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <functional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "support/run_settings.h"

namespace portwren {
namespace {

struct Parsed {
  bool ok = false;
  std::string out, err;
};

// Parses "portwren <line>" (split at spaces) from default settings, capturing what it prints.
Parsed Parse(const std::string& line) {
  ResetRunSettings();
  std::vector<std::string> args{"portwren"};
  for (size_t at = 0; at < line.size();) {
    const size_t end = std::min(line.find(' ', at), line.size());
    args.push_back(line.substr(at, end - at));
    at = end + 1;
  }
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

template <typename F>
auto Map(F convert, std::initializer_list<const char*> texts) {
  std::vector<decltype(convert(""))> values;
  for (const char* text : texts) values.push_back(convert(text));
  return values;
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

// Accepted without a word printed, with these settings.
TEST(ParseCommandLine, AcceptedCommandLinesAndTheirSettings) {
  const std::string k40(40, 'k'), k33(33, 'k'), k32(32, 'k');
  const struct {
    std::string args;
    std::vector<Is> settings;
  } cases[] = {
      {"COM3",
       {IS(g_dev_open_path, "COM3"), IS(g_bytes_to_rw, 100), IS(g_wait_msec_before_cancel, 5000),
        IS(g_rto_interval, 0), IS(g_rto_multiplier, 0), IS(g_rto_constant, 0), IS(g_first_keys, ""),
        IS(g_echo_chunk_maxbytes, 16000), IS(g_echo_chunk_minbytes, 12), IS(g_datapipe, false),
        IS(g_no_port_mode, false), IS(g_wto_constant_given, false)}},
      // The port anywhere; short values attached or separate, long ones separate; -b in auto base.
      {"-b 0x20 \\\\.\\COM12 --msec-cancel 11",
       {IS(g_dev_open_path, "\\\\.\\COM12"), IS(g_bytes_to_rw, 32), IS(g_wait_msec_before_cancel, 11)}},
      // A unique prefix names the option; text is 0; the last of an option wins.
      {"--byt=5 -c10 -b abc COM3", {IS(g_bytes_to_rw, 0), IS(g_wait_msec_before_cancel, 10)}},
      {"COM3 -b 5 --bytesrw=8123999 --rtoi=3 --rtoi=4", {IS(g_bytes_to_rw, 8123999), IS(g_rto_interval, 4)}},
      // An exact name beats the longer names it starts.
      {"COM3 --waitcommevent-delay=5 --waitcommevent-delay0=6 --read-log r.log",
       {IS(g_waitcommevent_delay, 5u), IS(g_waitcommevent_delay0, 6u), IS(g_read_log_path, "r.log"),
        IS(g_read_log_append, false)}},
      // Chunk sizes at their bounds; -k alone is checked against the default -K.
      {"COM3 -K 12 -k 12", {IS(g_echo_chunk_maxbytes, 12), IS(g_echo_chunk_minbytes, 12)}},
      {"COM3 --echo-chunk-maxbytes=8024012 --echo-chunk-minbytes=100",
       {IS(g_echo_chunk_maxbytes, 8024012), IS(g_echo_chunk_minbytes, 100)}},
      {"COM3 -k 2000", {IS(g_echo_chunk_maxbytes, 16000), IS(g_echo_chunk_minbytes, 2000)}},
      // Timeouts take -1 for MAXDWORD; -Q wins over the read timeouts, unless below 0.
      {"COM3 --rtoi=-1 --rtom=-1 --rtoc=-1 --wtom=-1 --wtoc=-1 -B 0",
       {IS(g_rto_interval, -1), IS(g_rto_multiplier, -1), IS(g_rto_constant, -1), IS(g_wto_multiplier, -1),
        IS(g_wto_constant, -1), IS(g_wto_constant_given, true)}},
      {"COM3 -Q 0 --rtoi=5", {IS(g_rto_interval, -1), IS(g_rto_multiplier, -1), IS(g_rto_constant, 0)}},
      {"COM3 --rtoc=7 --rtom=9 -Q 300", {IS(g_rto_multiplier, -1), IS(g_rto_constant, 300)}},
      {"COM3 --rtoi=5 -Q -1", {IS(g_rto_interval, 5), IS(g_rto_constant, 0)}},
      // After "--" the port may start with a dash; a long one is cut; Datapipe follows it.
      {"-- -weird-name", {IS(g_dev_open_path, "-weird-name")}},
      {std::string(300, 'p'), {IS(g_dev_open_path, std::string(259, 'p'))}},
      {"--datapipe", {IS(g_datapipe, true), IS(g_dev_open_path, "\\\\.\\QDX_Datapipe")}},
      {"COM3 --datapipe", {IS(g_dev_open_path, "COM3\\\\.\\QDX_Datapipe")}},
      // Listing, unplugging and reinstalling take no port, no checks and no defaults.
      {"-l COM3 COM4",
       {IS(g_list_vcoms, true), IS(g_no_port_mode, true), IS(g_list_offer_dialog, false),
        IS(g_dev_open_path, "")}},
      {"--list-vcoms -b -1 -Q 5",
       {IS(g_list_offer_dialog, true), IS(g_bytes_to_rw, -1), IS(g_echo_chunk_maxbytes, 0),
        IS(g_rto_constant, 0)}},
      {"--list-vcoms -l", {IS(g_list_offer_dialog, false)}},
      {"-l --list-vcoms", {IS(g_list_offer_dialog, true)}},
      {"--unplug-vcoms", {IS(g_unplug_vcoms, true), IS(g_no_port_mode, true), IS(g_list_vcoms, false)}},
      {"--vbus-reinstall", {IS(g_vbus_reinstall, true), IS(g_no_port_mode, true)}},
      // The echo seed: "time" in that spelling only.
      {"COM3 --echo-srand=Time", {IS(g_echo_srand, 0u)}},
      {"COM3 --echo-srand -1", {IS(g_echo_srand, 0xFFFFFFFFu)}},
      // "r<n>": a random read delay up to n; the flag is only ever switched on.
      {"COM3 --echocli-read-delaymsec=r0 --echocli-read-delaymsec=r-5",
       {IS(g_echocli_read_delay_random, false), IS(g_echocli_read_delaymsec, 0)}},
      {"COM3 --echocli-read-delaymsec=r5 --echocli-read-delaymsec=7",
       {IS(g_echocli_read_delay_random, true), IS(g_echocli_read_delaymsec, 7)}},
      // First keys, cut to 33; the repeat marker follows them when there is room.
      {"COM3 --repeat-final-key", {IS(g_repeat_final_key, true), IS(g_first_keys, "")}},
      {"COM3 --first-key=" + k40 + " --repeat-final-key", {IS(g_first_keys, k33)}},
      {"COM3 --first-key=" + k32 + " --repeat-final-key", {IS(g_first_keys, k32 + "\xFF")}},
      {"COM3 --read-log=" + std::string(300, 'f') + " --read-log-append --silent-read",
       {IS(g_read_log_path, std::string(259, 'f')), IS(g_read_log_append, true), IS(g_silent_read, true)}},
      // Values with floors, below and above them.
      {"COM3 --echolog-row-width=4 --echo-rwbufx=0 --echo-timeout-limit=-5 --echocli-read-nibble=0 "
       "--echocli-write-delaymsec=-1 --clear-comport-msec=-1 --pause-msec-bfr-cancelio=-3",
       {IS(g_echolog_row_width, 8), IS(g_echo_rwbufx, 1), IS(g_echo_timeout_limit, 0),
        IS(g_echocli_read_nibble, 1), IS(g_echocli_write_delaymsec, 0), IS(g_clear_comport_msec, 0),
        IS(g_pause_msec_bfr_cancelio, 0)}},
      {"COM3 --echolog-row-width=32 --echo-rwbufx=3 --echo-timeout-limit=2000 --echocli-read-nibble=512 "
       "--echocli-write-delaymsec=1000 --clear-comport-msec=70 --pause-msec-bfr-cancelio 300",
       {IS(g_echolog_row_width, 32), IS(g_echo_rwbufx, 3), IS(g_echo_timeout_limit, 2000),
        IS(g_echocli_read_nibble, 512), IS(g_echocli_write_delaymsec, 1000), IS(g_clear_comport_msec, 70),
        IS(g_pause_msec_bfr_cancelio, 300)}},
      {"COM3 --readonly --in-queue=4096 --out-queue=8192 -B 9600 --echo-need-log --echo-append-log "
       "--echo-need-hwflow --echo-start-seq=0x11233344 -m 0x10 --manual-intervene-errcli --pause-before-quit "
       "--omit-cancelio --omit-getoverlappedresult --print-devstate-on-dsr --waitcommevent-delay0=-1",
       {IS(g_readonly, true), IS(g_in_queue_bytes, 4096), IS(g_out_queue_bytes, 8192), IS(g_baudrate, 9600),
        IS(g_echo_need_log, true), IS(g_echo_append_log, true), IS(g_echo_need_hwflow, true),
        IS(g_echo_start_seq_given, true), IS(g_echo_start_seq, 0x11233344u), IS(g_echo_maxbytes64, 16),
        IS(g_manual_intervene_errcli, true), IS(g_pause_before_quit, true), IS(g_omit_cancelio, true),
        IS(g_omit_getoverlappedresult, true), IS(g_print_devstate_on_dsr, true),
        IS(g_waitcommevent_delay0, 0xFFFFFFFFu), IS(g_no_port_mode, false)}},
      // Beyond 32 bits; the later options by their first letter.
      {"COM3 --echo-maxbytes=5000000000 --j=r.jsonl --n --h=10000 --t",
       {IS(g_echo_maxbytes64, 5000000000LL), IS(g_json_results_path, std::string("r.jsonl")),
        IS(g_nonzero_on_fail, true), IS(g_hold_break, 10000), IS(g_timeout_check, true)}},
      {"COM3", {IS(g_hold_break, 250), IS(g_timeout_check, false)}},
      {"COM3 --hold-break 1", {IS(g_hold_break, 1)}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const Parsed p = Parse(c.args);
    EXPECT_TRUE(p.ok);
    EXPECT_EQ(p.out + p.err, "");
    for (const Is& s : c.settings) EXPECT_EQ(s.read(), s.expected) << s.name;
  }
  const auto before = static_cast<uint32_t>(std::time(nullptr));
  ASSERT_TRUE(Parse("COM3 --echo-srand=time").ok);
  EXPECT_GE(g_echo_srand, before);
  EXPECT_LE(g_echo_srand, static_cast<uint32_t>(std::time(nullptr)));
  // The echo test's write timeout constant is --wtoc's only when given.
  const std::pair<const char*, uint32_t> wtocs[] = {
      {"-B9", 0xFFFFFFFEu}, {"--wtoc=-1", ~0u}, {"--wtoc=0", 0u}};
  for (const auto& [option, constant] : wtocs) {
    ASSERT_TRUE(Parse(std::string("COM3 ") + option).ok);
    EXPECT_EQ(EchoWriteTimeoutConstant(), constant) << option;
  }
}

// Refused with exactly these lines on standard output (and standard error). (Some more, with
// the banner and the hint, in e2e/command_line_test.cpp.)
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
    std::string args;
    std::string out, err = "";
  } cases[] = {
      {"COM3 -b -1", bad_b},
      {"COM3 -b 4294967296", bad_b},
      {"COM3 -c abc", bad_c},
      {"COM3 -K 8024013", big_k},
      {"COM3 -k -12", small_k},
      {"COM3 -k 2000 -K 1000", k_order},
      {"COM3 -k 16001", k_order},
      // The order of the chunk sizes is checked only when all else passed.
      {"COM3 -k 2000 -K 1000 -c 0", bad_c},
      // Every check runs, in this order.
      {"COM3 -b -1 -c 0 --rtoi=-2 --rtom=-2 --rtoc=-2 --wtom=-2 --wtoc=-2 -B -1 -m -1 -K 5 -k 11",
       bad_b + bad_c +
           "--rtoi has bad argument(should>=0 or -1)\n--rtom has bad argument(should>=0 or -1)\n"
           "--rtoc has bad argument(should>=0 or -1)\n--wtom has bad argument(should>=0 or -1)\n"
           "--wtoc has bad argument(should>=0 or -1)\n--baudrate or -B has bad argument(should>0)\n"
           "-m or --echo-maxbytes has bad argument(should>0)\n" +
           big_k + small_k},
      // The break's hold, in bounds; text is 0.
      {"COM3 --hold-break=0", bad_hold},
      {"COM3 --hold-break=10001", bad_hold},
      {"COM3 --hold-break=long", bad_hold},
      {"COM3 --first-key", "Long option '--first-key' missing an argument\n"},
      // An abbreviation lacking its value is not recognised by that test.
      {"COM3 --bytes", "Bad long option '--bytes'\n"},
      {"--foo COM3", "Bad long option '--foo'\n"},
      {"COM3 --readonly=1", "Bad long option '--readonly=1'\n"},
      // An ambiguous prefix is reported twice: by the scanner, then by the program.
      {"COM3 --waitcommevent-d=1", "Bad long option '--waitcommevent-d=1'\n",
       "portwren: option `--waitcommevent-d=1' is ambiguous\n"},
      {"COM3 -x", "Bad short option '-x'.\n"},
      {"COM3 -b", "Short option '-b' missing an argument.\n"},
      {"COM3 -lQ", "Short option '-Q' missing an argument.\n"},
      // ':' is in the option string, so it reads as a missing argument.
      {"COM3 -:", "Short option '-:' missing an argument.\n"},
      {"COM3 -l-", "Bad short option '--'.\n"},
      {"", no_port},
      {"-b 20", no_port},
      {"--datapipe COM3 COM4", two_ports},
      // Listing skips the checks, not the option scan.
      {"-l --nope", "Bad long option '--nope'\n"},
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
  Parse("COM1");
  const RunSettings baseline = g_run_settings;
  for (const std::string& option : options) {
    Parse("COM1 " + option);
    EXPECT_FALSE(g_run_settings == baseline) << option;
    ResetRunSettings();
    EXPECT_TRUE(g_run_settings == RunSettings{}) << option;
  }
}

// Codes: the letters, and one each from 128 on. The later options start with letters no other
// option starts with, so every abbreviation that worked before they came names the same option.
TEST(LongOptionTable, CodesAndTheLaterOptionsFirstLetters) {
  std::set<int> long_only;
  std::string letters;
  int entries = 0;
  const LongOption* const later = LongOptionTable() + 43;
  for (const LongOption* o = LongOptionTable(); o->name != nullptr; ++o, ++entries) {
    EXPECT_EQ(o->flag, nullptr) << o->name;
    if (o->val < 128) letters.push_back(static_cast<char>(o->val));
    EXPECT_TRUE(o->val < 128 || long_only.insert(o->val).second) << o->name;
    for (const LongOption* added = later; o < later && added->name != nullptr; ++added) {
      EXPECT_NE(o->name[0], added->name[0]) << o->name << " / " << added->name;
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

// Decimal is atoi held at the 32-bit limits; auto base is a 32-bit strtoul.
TEST(OptionValueConversion, DecimalAndAutoBase) {
  EXPECT_EQ(Map(DecimalArgument, {nullptr, " 42abc", "-17", "abc", "0x20", "99999999999", "-99999999999"}),
            (std::vector<int32_t>{0, 42, -17, 0, 0, 2147483647, -2147483647 - 1}));
  EXPECT_EQ(
      Map(AutoBaseArgument, {nullptr, "0x20", "0X1f", "010", "  +7x", "-1", "-4294967295", "4294967295",
                             "4294967296", "-4294967296", "99999999999999999999999", "- 7", "--7", "abc"}),
      (std::vector<uint32_t>{0, 32, 31, 8, 7, ~0u, 1, ~0u, ~0u, ~0u, ~0u, 0, 0, 0}));
  EXPECT_EQ(Map(AutoBaseArgument64, {"0x100000000", "-1", nullptr}),
            (std::vector<int64_t>{0x100000000LL, -1, 0}));
}

}  // namespace
}  // namespace portwren
