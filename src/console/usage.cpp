#include "console/usage.h"

#include <cctype>
#include <cstdio>

#include "console/command_line.h"
#include "support/run_settings.h"

namespace portwren {

void PrintUsage() {
  std::printf("\n");
  std::printf("Need at least one argument as COM port DevOpenPath.\n");
  std::printf("\n");
  std::printf("Examples:\n");
  std::printf("    portwren \\\\.\\COM9\n");
  std::printf("    portwren COM3\n");
  std::printf("    portwren COM3 -b 20 -c 4000 --rtoi=-1 --rtom=-1 --rtoc=3000\n");
  std::printf("\n");
  std::printf("Options:\n");
  std::printf("  -b <n> or --bytesrw=<n>\n");
  std::printf("     Each ReadFile/WriteFile request is <n> bytes.\n");
  std::printf("     \n");
  std::printf("  -c <mbc> or --msec-cancel=<mbc>\n");
  std::printf("     Will call CancelIo() when <mbc> millisec have elapsed.\n");
  std::printf("     \n");
  std::printf("  --rtoi=<ms> --rtom=<ms> --rtoc=<ms> \n");
  std::printf("     Set read-timeout interval,multiplier,constant respectively, in millisecond.\n");
  std::printf("     Use -1 for MAXDWORD.\n");
  std::printf("     \n");
  std::printf("  --wtom=<ms> --wtoc=<ms> \n");
  std::printf("     Set write-timeout multiplier,constant respectively.\n");
  std::printf("     Use -1 for MAXDWORD.\n");
  std::printf("     \n");
  std::printf("  --in-queue=<bytes> --out-queue=<bytes>\n");
  std::printf("     Call SetupComm() to set VCOM input-queue size and output-queue size.\n");
  std::printf("     \n");
  std::printf("  -B 115200 or --baudrate=115200\n");
  std::printf("     Using baudrate 115200.\n");
  std::printf("     \n");
  std::printf("  --datapipe\n");
  std::printf("     Operate in Datapipe mode. CreateFile('%s').\n", kDatapipePath);
  std::printf("More:\n");
  std::printf("  --first-key=<keychars>  --repeat-final-key (until Enter pressed)\n");
  std::printf("  --read-log=<file>  --silent-read(i.e. no print)  --read-log-append\n");
  std::printf("  --waitcommevent-delay0=<ms>  --waitcommevent-delay=<ms>\n");
  std::printf("  --clear-comport-msec=<ms>\n");
  std::printf("  --pause-before-quit --omit-cancelio --omit-getoverlappedresult\n");
  std::printf("  --pause-msec-bfr-cancelio <msec>\n");
  std::printf("  -m <emb> or --echo-maxbytes=<emb> (only for client)\n");
  std::printf("  -K %d or --echo-chunk-maxbytes=%d (server & client)\n", kDefaultEchoChunkMaxbytes,
              kDefaultEchoChunkMaxbytes);
  std::printf("  -k %d or --echo-chunk-minbytes=%d (server & client)\n", kDefaultEchoChunkMinbytes,
              kDefaultEchoChunkMinbytes);
  std::printf("  --echo-need-log --echo-append-log --echolog-row-width=32 --echo-rwbufx=2\n");
  std::printf("  --echo-need-hwflow --echo-start-seq=0x11233344\n");
  std::printf("  --echo-srand=5566 or --echo-srand=time --echocli-read-nibble=512\n");
  std::printf("  --echocli-write-delaymsec=1000 --echocli-read-delaymsec=1000 (or =r1000)\n");
  std::printf("  --echo-timeout-limit=2000  --manual-intervene-errcli (echo client)\n");
  std::printf("  -l or --list-vcoms\n");
  std::printf("  --readonly (open VCOM read-only)\n");
  std::printf("  -Q <rtoc> \n");
  // Later additions, after the lines above.
  std::printf("  --json-results=<file> (one JSON line per echo run and at the session's end)\n");
  std::printf("  --nonzero-on-fail (exit code 3 when a test run of the session failed)\n");
  std::printf("  --hold-break=<ms> (how long the B key holds the line in BREAK, %d to %d, default %d)\n",
              kHoldBreakLeastMsec, kHoldBreakMostMsec, kDefaultHoldBreakMsec);
  std::printf("  --timeout-check (the T key's timeout check on a loopback, at start before the keys)\n");
}

void PathHint(const char* path) {
  if (path == nullptr) return;
  static constexpr char kCom[] = "com";
  for (int i = 0; i < 3; ++i) {
    if (path[i] == '\0' || std::tolower(static_cast<unsigned char>(path[i])) != kCom[i]) return;
  }
  // Names from COM9 on are only found with the prefix.
  if (DecimalArgument(path + 3) > 8) {
    std::printf("Did you forget to add extra prefix for %s ? Try \\\\.\\%s instead.\n", path, path);
  }
}

}  // namespace portwren
