#include "console/usage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace portwren {
namespace {

TEST(PrintUsage, PrintsTheUsageTextLineByLine) {
  const std::vector<std::string> lines = {
      "",
      "Need at least one argument as COM port DevOpenPath.",
      "",
      "Examples:",
      R"(    portwren \\.\COM9)",
      "    portwren COM3",
      "    portwren COM3 -b 20 -c 4000 --rtoi=-1 --rtom=-1 --rtoc=3000",
      "",
      "Options:",
      "  -b <n> or --bytesrw=<n>",
      "     Each ReadFile/WriteFile request is <n> bytes.",
      "     ",
      "  -c <mbc> or --msec-cancel=<mbc>",
      "     Will call CancelIo() when <mbc> millisec have elapsed.",
      "     ",
      "  --rtoi=<ms> --rtom=<ms> --rtoc=<ms> ",
      "     Set read-timeout interval,multiplier,constant respectively, in millisecond.",
      "     Use -1 for MAXDWORD.",
      "     ",
      "  --wtom=<ms> --wtoc=<ms> ",
      "     Set write-timeout multiplier,constant respectively.",
      "     Use -1 for MAXDWORD.",
      "     ",
      "  --in-queue=<bytes> --out-queue=<bytes>",
      "     Call SetupComm() to set VCOM input-queue size and output-queue size.",
      "     ",
      "  -B 115200 or --baudrate=115200",
      "     Using baudrate 115200.",
      "     ",
      "  --datapipe",
      R"(     Operate in Datapipe mode. CreateFile('\\.\QDX_Datapipe').)",
      "More:",
      "  --first-key=<keychars>  --repeat-final-key (until Enter pressed)",
      "  --read-log=<file>  --silent-read(i.e. no print)  --read-log-append",
      "  --waitcommevent-delay0=<ms>  --waitcommevent-delay=<ms>",
      "  --clear-comport-msec=<ms>",
      "  --pause-before-quit --omit-cancelio --omit-getoverlappedresult",
      "  --pause-msec-bfr-cancelio <msec>",
      "  -m <emb> or --echo-maxbytes=<emb> (only for client)",
      "  -K 16000 or --echo-chunk-maxbytes=16000 (server & client)",
      "  -k 12 or --echo-chunk-minbytes=12 (server & client)",
      "  --echo-need-log --echo-append-log --echolog-row-width=32 --echo-rwbufx=2",
      "  --echo-need-hwflow --echo-start-seq=0x11233344",
      "  --echo-srand=5566 or --echo-srand=time --echocli-read-nibble=512",
      "  --echocli-write-delaymsec=1000 --echocli-read-delaymsec=1000 (or =r1000)",
      "  --echo-timeout-limit=2000  --manual-intervene-errcli (echo client)",
      "  -l or --list-vcoms",
      "  --readonly (open VCOM read-only)",
      "  -Q <rtoc> ",
      // Later additions come after every line above.
      "  --json-results=<file> (one JSON line per echo run and at the session's end)",
      "  --nonzero-on-fail (exit code 3 when a test run of the session failed)",
      "  --hold-break=<ms> (how long the B key holds the line in BREAK, 1 to 10000, default 250)",
      "  --timeout-check (the T key's timeout check on a loopback, at start before the keys)",
  };
  std::string text;
  for (const std::string& line : lines) text += line + "\n";  // every line ends, the last included
  testing::internal::CaptureStdout();
  PrintUsage();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), text);
}

// Names from COM9 on, in any case and with anything after the number, get the hint.
TEST(PathHint, SuggestsThePrefixFromCom9OnAndIsSilentOtherwise) {
  const std::pair<const char*, bool> paths[] = {
      {"com9", true},   {"com12", true},         {"CoM10x", true},  {"COM8", false},
      {"COM1", false},  {"comx", false},         {"com", false},    {"", false},
      {nullptr, false}, {"\\\\.\\COM12", false}, {"xcom12", false}, {"com-12", false}};
  for (const auto& [path, hinted] : paths) {
    testing::internal::CaptureStdout();
    PathHint(path);
    const std::string name = path != nullptr ? path : "";
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              hinted
                  ? "Did you forget to add extra prefix for " + name + " ? Try \\\\.\\" + name + " instead.\n"
                  : "")
        << name;
  }
}

}  // namespace
}  // namespace portwren
