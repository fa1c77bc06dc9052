// The engine against the C library's snprintf on typical log lines, measured in the same run.
// Prints "format/snprintf ratio: 0.NN" at the end (the worse of the two lines; goal: at most 0.70).
#include <benchmark/benchmark.h>

#include <chrono>
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

int EngineTickLine(char* line, const LineInputs& in) {
  return portwren::FormatToBuffer(line, kLineChars, "%c[%u.%03u] %d %s", ' ', in.tick / 1000, in.tick % 1000,
                                  in.value, in.text);
}
int SnprintfTickLine(char* line, const LineInputs& in) {
  return std::snprintf(line, kLineChars, "%c[%u.%03u] %d %s", ' ', in.tick / 1000, in.tick % 1000, in.value,
                       in.text);
}
int EnginePointerLine(char* line, const LineInputs& in) {
  return portwren::FormatToBuffer(line, kLineChars, "handle %p: %s (%u)", in.pointer, in.text, in.tick);
}
int SnprintfPointerLine(char* line, const LineInputs& in) {
  return std::snprintf(line, kLineChars, "handle %p: %s (%u)", in.pointer, in.text, in.tick);
}

using LineFunction = int (*)(char*, const LineInputs&);

template <LineFunction format_line>
void BM_Line(benchmark::State& state) {
  char line[kLineChars];
  LineInputs in;
  for (auto _ : state) {
    benchmark::DoNotOptimize(format_line(line, in));
    benchmark::DoNotOptimize(line);
    in.Next();
  }
}

// Nanoseconds per line, the fastest of many short batches; the two sides alternate batch by
// batch, so a busy moment of the machine slows both alike instead of one of them.
void PairedTimes(LineFunction ours, LineFunction theirs, double* ours_ns, double* theirs_ns) {
  constexpr int kRounds = 400;
  constexpr int kBatch = 400;
  char line[kLineChars];
  LineInputs in;
  *ours_ns = *theirs_ns = 1e9;
  for (int round = 0; round < kRounds; ++round) {
    for (int side = 0; side < 2; ++side) {
      const LineFunction function = side == 0 ? ours : theirs;
      const auto start = std::chrono::steady_clock::now();
      for (int i = 0; i < kBatch; ++i) {
        benchmark::DoNotOptimize(function(line, in));
        benchmark::DoNotOptimize(line);
        in.Next();
      }
      const double ns =
          std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
      double* best = side == 0 ? ours_ns : theirs_ns;
      if (ns / kBatch < *best) *best = ns / kBatch;
    }
  }
}

// Machines are shared: each case runs several times and the fastest run counts.
BENCHMARK(BM_Line<EngineTickLine>)->Name("BM_Engine_TickLine")->Repetitions(3);
BENCHMARK(BM_Line<SnprintfTickLine>)->Name("BM_Snprintf_TickLine")->Repetitions(3);
BENCHMARK(BM_Line<EnginePointerLine>)->Name("BM_Engine_PointerLine")->Repetitions(3);
BENCHMARK(BM_Line<SnprintfPointerLine>)->Name("BM_Snprintf_PointerLine")->Repetitions(3);

// Keeps each case's fastest CPU time per iteration (a loaded machine inflates wall time) so
// that the ratios can be printed after the table.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        const double time = run.GetAdjustedCPUTime();  // both sides run in this process
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
  if (tick >= 0) std::printf("table: tick line format/snprintf %.2f\n", tick);
  if (pointer >= 0) std::printf("table: pointer line format/snprintf %.2f\n", pointer);

  // The figure to go by: both sides measured in alternating batches.
  double worst = 0;
  const struct {
    const char* name;
    LineFunction ours, theirs;
  } lines[] = {{"tick line", &EngineTickLine, &SnprintfTickLine},
               {"pointer line", &EnginePointerLine, &SnprintfPointerLine}};
  for (const auto& line : lines) {
    double ours_ns = 0, theirs_ns = 0;
    PairedTimes(line.ours, line.theirs, &ours_ns, &theirs_ns);
    const double ratio = ours_ns / theirs_ns;
    if (ratio > worst) worst = ratio;
    std::printf("%s: engine %.1f ns, snprintf %.1f ns, ratio %.2f\n", line.name, ours_ns, theirs_ns, ratio);
  }
  std::printf("format/snprintf ratio: %.2f (goal <= 0.70)\n", worst);
  benchmark::Shutdown();
  return 0;
}
