// Measures how the echo test catches line faults: each trial injects exactly one fault (bit flip,
// dropped, inserted or duplicated byte) at a random byte of a random chunk and holds the client's
// receive checks to the chunk and the error line they must give first. Most trials drive the
// checks in-process; the end-to-end ones run a client and a server through the fault relay, and
// runs with only delays, or none, must pass.
//
//   detect_campaign [--trials N] [--e2e N] [--clean-bytes N] [--seed N] [--verbose]
// Prints "trials N, detected D, false alarms F"; exits 0 only when every fault was detected as
// expected and nothing clean failed.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/e2e_support.h"
#include "common/run_program.h"
#include "tools/chunk_faults.h"

namespace portwren::campaign {
namespace {

struct Tally {
  uint64_t trials = 0;
  uint64_t detected = 0;
  uint64_t next_chunk = 0;  // the shifted bytes first differ in the following chunk
  uint64_t clean_runs = 0;
  uint64_t clean_bytes = 0;
  uint64_t false_alarms = 0;
  uint64_t bad_ends = 0;  // a program of an end-to-end trial that did not end by itself with 0
  uint64_t per_kind[4] = {};
  uint64_t per_verdict[6] = {};
  int misses_shown = 0;
};

void Miss(Tally& tally, const std::string& what) {
  if (tally.misses_shown++ < 20) std::printf("MISS %s\n", what.c_str());
}

void CleanRun(Tally& tally, const ChunkStream& stream, const char* what) {
  ++tally.clean_runs;
  tally.clean_bytes += stream.bytes.size();
  const Outcome got = ReceiveStream(stream.bytes, stream.bytes.size(), stream.max_chunk);
  if (got.verdict != Verdict::kPass) {
    ++tally.false_alarms;
    Miss(tally, std::string("false alarm on a clean ") + what + ": " + VerdictName(got.verdict) +
                    " at chunk " + std::to_string(got.chunk));
  }
}

// A fault somewhere in a chunk that is read: a drop may hit the last chunk (its lost byte is then
// waited for), the others a chunk that has one after it to show the shift.
Fault PickFault(std::mt19937_64& rng, const ChunkStream& stream, FaultKind kind, uint32_t* chunk) {
  const size_t chunks = stream.starts.size();
  *chunk = static_cast<uint32_t>(rng() % (kind == FaultKind::kDrop ? chunks : chunks - 1));
  const size_t start = stream.starts[*chunk];
  const size_t end = *chunk + 1 < chunks ? stream.starts[*chunk + 1] : stream.bytes.size();
  Fault fault;
  fault.kind = kind;
  fault.position = start + rng() % (end - start);
  // An empty body has no CRC to check, so a flipped bit in its CRC field changes nothing that is
  // protected; such a flip moves into the next chunk's head.
  if (kind == FaultKind::kFlip && end - start == 12 && fault.position >= start + 8) fault.position += 4;
  fault.value = static_cast<uint8_t>(kind == FaultKind::kFlip ? rng() % 8 : rng() % 256);
  return fault;
}

void InProcessTrial(Tally& tally, std::mt19937_64& rng, uint64_t trial) {
  // A maximum of 12 leaves no room for a body, and a bad head then passes by design: kept out.
  const auto max_chunk = static_cast<uint32_t>(16 + rng() % 1500);
  const auto min_chunk = static_cast<uint32_t>(12 + rng() % (max_chunk - 11));
  const uint64_t limit = max_chunk + 1 + rng() % (4 * uint64_t{max_chunk});  // two chunks at least
  ChunkStream sent;
  if (rng() % 2 == 0) {
    sent = BuildRandomStream(static_cast<uint32_t>(rng()), min_chunk, max_chunk, limit);
  } else {
    sent = BuildSequenceStream(static_cast<uint32_t>(rng()), min_chunk, max_chunk,
                               static_cast<uint32_t>(2 + rng() % 5), static_cast<uint32_t>(rng()));
  }
  CleanRun(tally, sent, "stream");
  const FaultKind kind = kFaultKinds[trial % 4];
  uint32_t chunk = 0;
  const Fault fault = PickFault(rng, sent, kind, &chunk);
  const std::vector<uint8_t> wire = Apply(sent.bytes, fault);
  const Outcome expected = ExpectedOutcome(sent, wire);
  const Outcome got = ReceiveStream(wire, sent.bytes.size(), max_chunk);
  ++tally.trials;
  ++tally.per_kind[static_cast<int>(kind)];
  if (expected.verdict != Verdict::kPass && got == expected) {
    ++tally.detected;
    ++tally.per_verdict[static_cast<int>(got.verdict)];
    if (got.chunk != chunk) ++tally.next_chunk;
    return;
  }
  Miss(tally, "trial " + std::to_string(trial) + " " + Describe(fault) + " in chunk " +
                  std::to_string(chunk) + " (max " + std::to_string(max_chunk) + "): expected " +
                  VerdictName(expected.verdict) + " at chunk " + std::to_string(expected.chunk) + ", got " +
                  VerdictName(got.verdict) + " at chunk " + std::to_string(got.chunk));
}

// ---- End to end: client and server through the relay ----

constexpr int kLineWaitMs = 20000;

// One program run with keys typed while it runs.
class Run {
 public:
  Run(const std::string& program, std::vector<std::string> args, const std::string& dir) {
    testkit::ProcessOptions options;
    options.stdin_fd = keys_.read_fd();
    options.on_out = watch_.Tap();
    options.working_dir = dir;
    options.timeout = std::chrono::milliseconds(60000);
    thread_ = std::thread(
        [this, program, args, options] { result_ = testkit::RunProcess(program, args, options); });
  }
  ~Run() { End(); }
  bool Type(const std::string& keys) { return keys_.Type(keys); }
  bool WaitFor(const std::string& text, int ms = kLineWaitMs) { return watch_.WaitFor(text, ms); }
  const testkit::ProcessResult& End() {
    keys_.Close();
    if (thread_.joinable()) thread_.join();
    return result_;
  }

 private:
  testkit::KeyPipe keys_;
  testkit::OutputWatch watch_;
  std::thread thread_;
  testkit::ProcessResult result_;
};

// The fault the relay says it made: "relay: KIND ... at byte P of b>a".
bool ParseRelayFault(const std::string& out, Fault* fault) {
  const size_t line = out.find("relay: ");
  if (line == std::string::npos) return false;
  unsigned bit = 0, from = 0, to = 0, value = 0;
  size_t position = 0;
  const char* text = out.c_str() + line;
  if (std::sscanf(text, "relay: flip bit %u, 0x%X to 0x%X, at byte %zu", &bit, &from, &to, &position) == 4) {
    *fault = {FaultKind::kFlip, position, static_cast<uint8_t>(bit)};
  } else if (std::sscanf(text, "relay: drop 0x%X at byte %zu", &from, &position) == 2) {
    *fault = {FaultKind::kDrop, position, 0};
  } else if (std::sscanf(text, "relay: insert 0x%X before at byte %zu", &value, &position) == 2) {
    *fault = {FaultKind::kInsert, position, static_cast<uint8_t>(value)};
  } else if (std::sscanf(text, "relay: dup 0x%X at byte %zu", &from, &position) == 2) {
    *fault = {FaultKind::kDup, position, 0};
  } else {
    return false;
  }
  return true;
}

// The client's first chunk error line, "@Chunk N: ...", or empty.
std::string FirstChunkError(const std::string& out) {
  const size_t at = out.find("@Chunk ");
  if (at == std::string::npos) return "";
  return out.substr(at, out.find('\n', at) - at);
}

// kind < 0: no fault, only delays of delay_ms on every byte (a delay is not a fault).
void EndToEndTrial(Tally& tally, std::mt19937_64& rng, int kind, int delay_ms, uint64_t limit) {
  const std::string dir =
      std::filesystem::temp_directory_path().string() + "/portwren_campaign_" + std::to_string(::getpid());
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  const auto max_chunk = static_cast<uint32_t>(16 + rng() % 1000);
  const auto min_chunk = static_cast<uint32_t>(13 + rng() % (max_chunk - 12));  // no empty bodies: see above
  const auto seed = static_cast<uint32_t>(rng() % 100000);
  const ChunkStream sent = BuildRandomStream(seed, min_chunk, max_chunk, limit);
  const size_t chunks = sent.starts.size();
  std::vector<std::string> relay_args{"--pty",        dir + "/a", dir + "/b",
                                      "--stdin-ends", "--seed",   std::to_string(rng() % 1000000)};
  uint32_t target = 0;
  if (kind >= 0) {
    target = static_cast<uint32_t>(rng() % (kind == 1 ? chunks : chunks - 1));
    relay_args.insert(relay_args.end(), {"--fault", std::string(FaultKindName(kFaultKinds[kind])) + "@c" +
                                                        std::to_string(target) + "/ba"});
  } else {
    relay_args.insert(relay_args.end(), {"--delay-ms", std::to_string(delay_ms)});
  }
  std::string what =
      kind >= 0 ? std::string(FaultKindName(kFaultKinds[kind])) + " in chunk " + std::to_string(target)
                : "delay " + std::to_string(delay_ms) + " ms";
  what += " (min " + std::to_string(min_chunk) + ", max " + std::to_string(max_chunk) + ", " +
          std::to_string(chunks) + " chunks)";
  Run relay(PORTWREN_RELAY_EXE, relay_args, dir);
  if (!relay.WaitFor("relay ready")) {
    Miss(tally, "end to end " + what + ": the relay did not start");
    ++tally.trials;
    return;
  }
  Run server(PORTWREN_EXE, {dir + "/b", "-K", std::to_string(max_chunk)}, dir);
  server.Type("S");
  const bool serving = server.WaitFor("waiting client");
  Run client(PORTWREN_EXE,
             {dir + "/a", "-K", std::to_string(max_chunk), "-k", std::to_string(min_chunk), "-m",
              std::to_string(limit), "--echo-timeout-limit", "500", "--echo-srand", std::to_string(seed)},
             dir);
  client.Type("C");
  const bool ended = client.WaitFor("Echo test ");
  const std::string client_out = client.End().out;
  server.Type("0");
  server.End();
  const std::string relay_out = relay.End().out;
  std::filesystem::remove_all(dir);
  // Each ends with 0 once its keys end; anything else (a sanitizer's report among them) counts.
  const std::pair<const char*, Run*> runs[] = {{"client", &client}, {"server", &server}, {"relay", &relay}};
  for (const auto& [name, run] : runs) {
    const testkit::ProcessResult& r = run->End();
    if (r.exit_code == 0) continue;
    ++tally.bad_ends;
    Miss(tally, "end to end " + what + ": the " + name + " ended with " + std::to_string(r.exit_code) +
                    (r.timed_out ? " (timed out)" : "") + "\n" + r.err);
  }
  const std::string first_error = FirstChunkError(client_out);
  if (kind < 0) {
    ++tally.clean_runs;
    tally.clean_bytes += sent.bytes.size();
    if (!serving || !ended || client_out.find("Echo test success.") == std::string::npos ||
        !first_error.empty()) {
      ++tally.false_alarms;
      Miss(tally, "end to end " + what + " failed: " + first_error + "\n" + client_out);
    }
    return;
  }
  ++tally.trials;
  ++tally.per_kind[kind];
  Fault fault;
  if (!ParseRelayFault(relay_out, &fault)) {
    Miss(tally, "end to end " + what + ": no fault made\n" + relay_out);
    return;
  }
  const Outcome expected = ExpectedOutcome(sent, Apply(sent.bytes, fault));
  const std::string line = "@Chunk " + std::to_string(expected.chunk) + ": " + VerdictLine(expected.verdict);
  if (expected.verdict != Verdict::kPass && first_error.rfind(line, 0) == 0 &&
      client_out.find("Echo test fail.") != std::string::npos) {
    ++tally.detected;
    ++tally.per_verdict[static_cast<int>(expected.verdict)];
    if (expected.chunk != target) ++tally.next_chunk;
    return;
  }
  Miss(tally, "end to end " + what + " " + Describe(fault) + ": expected \"" + line + "\", got \"" +
                  first_error + "\"\n" + client_out + relay_out);
}

int Main(int argc, char** argv) {
  uint64_t trials = 400, e2e = 0, clean_bytes = 1 << 20, seed = 1;
  bool verbose = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    uint64_t* target = arg == "--trials"        ? &trials
                       : arg == "--e2e"         ? &e2e
                       : arg == "--clean-bytes" ? &clean_bytes
                       : arg == "--seed"        ? &seed
                                                : nullptr;
    if (target != nullptr && i + 1 < argc) {
      *target = std::strtoull(argv[++i], nullptr, 0);
    } else if (arg == "--verbose") {
      verbose = true;
    } else {
      std::fprintf(
          stderr, "usage: detect_campaign [--trials N] [--e2e N] [--clean-bytes N] [--seed N] [--verbose]\n");
      return 2;
    }
  }
  std::mt19937_64 rng(seed);
  Tally tally;
  for (uint64_t t = 0; t < trials; ++t) InProcessTrial(tally, rng, t);
  // A long clean run through the checks, chunk sizes over the whole range.
  CleanRun(tally, BuildRandomStream(static_cast<uint32_t>(seed), 12, 8192, clean_bytes), "long run");
  // End to end: each kind of fault in turn, and every fifth run only delays.
  for (uint64_t t = 0; t < e2e; ++t) {
    const int kind = t % 5 == 4 ? -1 : static_cast<int>(t % 5);
    EndToEndTrial(tally, rng, kind, 1 + static_cast<int>(rng() % 20), kind < 0 ? 200000 : 4000);
    if (verbose) std::printf("end to end %llu done\n", static_cast<unsigned long long>(t + 1));
  }
  std::printf(
      "faults: flip %llu, drop %llu, insert %llu, dup %llu\n",
      static_cast<unsigned long long>(tally.per_kind[0]), static_cast<unsigned long long>(tally.per_kind[1]),
      static_cast<unsigned long long>(tally.per_kind[2]), static_cast<unsigned long long>(tally.per_kind[3]));
  std::printf(
      "first lines: short head %llu, wrong id %llu, too long %llu, short body %llu, wrong CRC %llu; "
      "in the next chunk %llu\n",
      static_cast<unsigned long long>(tally.per_verdict[1]),
      static_cast<unsigned long long>(tally.per_verdict[2]),
      static_cast<unsigned long long>(tally.per_verdict[3]),
      static_cast<unsigned long long>(tally.per_verdict[4]),
      static_cast<unsigned long long>(tally.per_verdict[5]),
      static_cast<unsigned long long>(tally.next_chunk));
  std::printf("clean runs %llu (%llu bytes), end to end %llu\n",
              static_cast<unsigned long long>(tally.clean_runs),
              static_cast<unsigned long long>(tally.clean_bytes), static_cast<unsigned long long>(e2e));
  std::printf("trials %llu, detected %llu, false alarms %llu\n",
              static_cast<unsigned long long>(tally.trials), static_cast<unsigned long long>(tally.detected),
              static_cast<unsigned long long>(tally.false_alarms));
  if (tally.bad_ends > 0) {
    std::printf("programs that ended badly %llu\n", static_cast<unsigned long long>(tally.bad_ends));
  }
  return tally.detected == tally.trials && tally.false_alarms == 0 && tally.bad_ends == 0 ? 0 : 1;
}

}  // namespace
}  // namespace portwren::campaign

int main(int argc, char** argv) {
  return portwren::campaign::Main(argc, argv);
}
