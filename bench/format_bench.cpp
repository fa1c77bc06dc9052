// The engine against the C library's snprintf on typical log lines, measured in the same run.
// Prints "format/snprintf ratio: 0.NN" per line kind at the end (goal: at most 0.70).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "format/format.h"

namespace {

constexpr int kLineChars = 1000;

// Inputs vary from one iteration to the next, so nothing is formatted from constants.
struct LineInputs {
  uint32_t tick = 12345678;
  int32_t value = -4096;
  const char* text = "bytes read from the port";
  const void* pointer = reinterpret_cast<const void*>(static_cast<uintptr_t>(0x7ffd5a3c1e48ull));
  void Next() {
    tick += 37;
    value += 13;
  }
};

void BM_Engine_TickLine(benchmark::State& state) {
  char line[kLineChars];
  LineInputs in;
  for (auto _ : state) {
    const int32_t n = portwren::FormatToBuffer(line, kLineChars, "%c[%u.%03u] %d %s", ' ', in.tick / 1000,
                                               in.tick % 1000, in.value, in.text);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(line);
    in.Next();
  }
}

void BM_Snprintf_TickLine(benchmark::State& state) {
  char line[kLineChars];
  LineInputs in;
  for (auto _ : state) {
    const int n = std::snprintf(line, kLineChars, "%c[%u.%03u] %d %s", ' ', in.tick / 1000, in.tick % 1000,
                                in.value, in.text);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(line);
    in.Next();
  }
}

void BM_Engine_PointerLine(benchmark::State& state) {
  char line[kLineChars];
  LineInputs in;
  for (auto _ : state) {
    const int32_t n =
        portwren::FormatToBuffer(line, kLineChars, "handle %p: %s (%u)", in.pointer, in.text, in.tick);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(line);
    in.Next();
  }
}

void BM_Snprintf_PointerLine(benchmark::State& state) {
  char line[kLineChars];
  LineInputs in;
  for (auto _ : state) {
    const int n = std::snprintf(line, kLineChars, "handle %p: %s (%u)", in.pointer, in.text, in.tick);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(line);
    in.Next();
  }
}

// Machines are shared: each case runs several times and the fastest run counts.
BENCHMARK(BM_Engine_TickLine)->Repetitions(3);
BENCHMARK(BM_Snprintf_TickLine)->Repetitions(3);
BENCHMARK(BM_Engine_PointerLine)->Repetitions(3);
BENCHMARK(BM_Snprintf_PointerLine)->Repetitions(3);

// Keeps each case's fastest time per iteration so that the ratios can be printed after the table.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        const double time = run.GetAdjustedRealTime();
        auto& best = times_[run.benchmark_name()];
        if (best == 0 || time < best) best = time;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double Ratio(const std::string& ours, const std::string& theirs) const {
    const double a = Time(ours);
    const double b = Time(theirs);
    return a > 0 && b > 0 ? a / b : -1;
  }

 private:
  // Names carry suffixes such as "/repeats:3".
  double Time(const std::string& name) const {
    for (const auto& [run_name, time] : times_) {
      if (run_name == name || run_name.rfind(name + "/", 0) == 0) return time;
    }
    return 0;
  }

  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const double tick = reporter.Ratio("BM_Engine_TickLine", "BM_Snprintf_TickLine");
  const double pointer = reporter.Ratio("BM_Engine_PointerLine", "BM_Snprintf_PointerLine");
  if (tick >= 0) std::printf("tick line format/snprintf ratio: %.2f\n", tick);
  if (pointer >= 0) std::printf("pointer line format/snprintf ratio: %.2f\n", pointer);
  if (tick >= 0 && pointer >= 0) std::printf("format/snprintf ratio: %.2f (goal <= 0.70)\n", tick > pointer ? tick : pointer);
  benchmark::Shutdown();
  return 0;
}
