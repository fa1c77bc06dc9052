// The echo log's dump form over 16 000 bytes, into a buffer and into streaming sinks, against
// xxd on the same bytes measured in the same run. Prints the throughput ratios at the end
// (goal: at least 3x xxd).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "format/format.h"

namespace {

constexpr int32_t kBytes = 16000;
constexpr int32_t kXxdRepeats = 100;  // xxd's long run: the same bytes 100 times over
constexpr char kEchoDump[] = "%k%0.*R%t%4.0v%*m";

const std::vector<unsigned char>& Data() {
  static const std::vector<unsigned char> data = [] {
    std::vector<unsigned char> bytes(kBytes);
    std::mt19937 random(20240607);
    for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
    return bytes;
  }();
  return data;
}

int32_t CoreArgs(portwren::FormatSink* sink, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t count = portwren::FormatCore(sink, format, args);
  va_end(args);
  return count;
}

// One echo record's dump: " " between bytes, first column from the stream offset, 16 bytes per
// row, "." between address groups of four.
int32_t DumpInto(portwren::FormatSink* sink, const unsigned char* bytes, uint64_t offset) {
  return CoreArgs(sink, kEchoDump, " ", static_cast<int>(offset % 16), 16, ".", offset, kBytes, bytes);
}

void BM_Dump_Buffer(benchmark::State& state) {
  const auto& data = Data();
  std::vector<char> out(128 * 1024);
  portwren::SetFormatLineEnd(1);
  for (auto _ : state) {
    portwren::FormatSink sink;
    sink.buffer = out.data();
    sink.room = static_cast<int32_t>(out.size());
    benchmark::DoNotOptimize(DumpInto(&sink, data.data(), 0));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

void AppendPiece(void* context, const char* text, int32_t length, const portwren::FormatTraceRecord*) {
  static_cast<std::string*>(context)->append(text, static_cast<std::size_t>(length));
}

void BM_Dump_StreamToGrowingBuffer(benchmark::State& state) {
  const auto& data = Data();
  std::string collected;
  portwren::SetFormatLineEnd(1);
  for (auto _ : state) {
    collected.clear();
    portwren::FormatSink sink;
    sink.writer = &AppendPiece;
    sink.context = &collected;
    benchmark::DoNotOptimize(DumpInto(&sink, data.data(), 0));
    benchmark::DoNotOptimize(collected.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

void WritePiece(void* context, const char* text, int32_t length, const portwren::FormatTraceRecord*) {
  std::fwrite(text, 1, static_cast<std::size_t>(length), static_cast<std::FILE*>(context));
}

void BM_Dump_StreamToDevNull(benchmark::State& state) {
  std::FILE* null_file = std::fopen("/dev/null", "wb");
  if (null_file == nullptr) {
    state.SkipWithError("no /dev/null");
    return;
  }
  const auto& data = Data();
  portwren::SetFormatLineEnd(1);
  for (auto _ : state) {
    portwren::FormatSink sink;
    sink.writer = &WritePiece;
    sink.context = null_file;
    benchmark::DoNotOptimize(DumpInto(&sink, data.data(), 0));
  }
  std::fclose(null_file);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBytes);
}

// xxd reads temporary files holding the same bytes: once, a hundred times over, and none.
struct XxdFiles {
  std::filesystem::path once, repeated, empty;
  bool ok = false;
  XxdFiles() {
    std::error_code error;
    const auto dir = std::filesystem::temp_directory_path(error);
    if (error) return;
    const std::string stem = "portwren_dump_bench_" + std::to_string(std::random_device{}());
    once = dir / (stem + "_once.bin");
    repeated = dir / (stem + "_repeated.bin");
    empty = dir / (stem + "_empty.bin");
    const auto& data = Data();
    std::ofstream(once, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), kBytes);
    std::ofstream out(repeated, std::ios::binary);
    for (int i = 0; i < kXxdRepeats; ++i) out.write(reinterpret_cast<const char*>(data.data()), kBytes);
    out.close();
    std::ofstream(empty, std::ios::binary).close();
    ok = std::system("xxd /dev/null > /dev/null 2>&1") == 0;
  }
  ~XxdFiles() {
    std::error_code error;
    std::filesystem::remove(once, error);
    std::filesystem::remove(repeated, error);
    std::filesystem::remove(empty, error);
  }
};

XxdFiles& Files() {
  static XxdFiles files;
  return files;
}

void RunXxd(benchmark::State& state, const std::filesystem::path& file, int64_t bytes) {
  if (!Files().ok) {
    state.SkipWithError("xxd not found");
    return;
  }
  const std::string command = "xxd '" + file.string() + "' > /dev/null";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("xxd failed");
      return;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
}

void BM_Xxd_Once(benchmark::State& state) {
  RunXxd(state, Files().once, kBytes);
}
void BM_Xxd_Repeated(benchmark::State& state) {
  RunXxd(state, Files().repeated, static_cast<int64_t>(kBytes) * kXxdRepeats);
}
void BM_Xxd_Empty(benchmark::State& state) {
  RunXxd(state, Files().empty, 0);
}

// Machines are shared: each case runs several times and the fastest run counts.
BENCHMARK(BM_Dump_Buffer)->Repetitions(3);
BENCHMARK(BM_Dump_StreamToGrowingBuffer)->Repetitions(3);
BENCHMARK(BM_Dump_StreamToDevNull)->Repetitions(3);
BENCHMARK(BM_Xxd_Once)->UseRealTime()->Iterations(10)->Repetitions(5);
BENCHMARK(BM_Xxd_Repeated)->UseRealTime()->Iterations(3)->Repetitions(5);
BENCHMARK(BM_Xxd_Empty)->UseRealTime()->Iterations(10)->Repetitions(5);

class ThroughputReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      // Ours in CPU time (a loaded machine inflates wall time); xxd, a child process, in real time.
      const bool real_time = run.benchmark_name().find("/real_time") != std::string::npos;
      const double seconds = (real_time ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) * 1e-9;
      auto& best = seconds_[run.benchmark_name()];
      if (best == 0 || seconds < best) best = seconds;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  double Seconds(const std::string& prefix) const {
    for (const auto& [name, seconds] : seconds_) {
      if (name == prefix || name.rfind(prefix + "/", 0) == 0) return seconds;
    }
    return 0;
  }

 private:
  std::map<std::string, double> seconds_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  ThroughputReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  const double mb = kBytes / 1e6;
  const double buffer = reporter.Seconds("BM_Dump_Buffer");
  const double growing = reporter.Seconds("BM_Dump_StreamToGrowingBuffer");
  const double dev_null = reporter.Seconds("BM_Dump_StreamToDevNull");
  const double xxd_once = reporter.Seconds("BM_Xxd_Once");
  const double xxd_repeated = reporter.Seconds("BM_Xxd_Repeated");
  const double xxd_empty = reporter.Seconds("BM_Xxd_Empty");
  // xxd's own speed: the long run less the cost of starting it.
  const double xxd_work = xxd_repeated - xxd_empty;
  const double xxd_rate = xxd_work > 0 ? mb * kXxdRepeats / xxd_work : 0;
  if (buffer > 0) std::printf("dump into buffer:            %8.1f MB/s\n", mb / buffer);
  if (growing > 0) std::printf("dump streamed, growing buf:  %8.1f MB/s\n", mb / growing);
  if (dev_null > 0) std::printf("dump streamed, /dev/null:    %8.1f MB/s\n", mb / dev_null);
  if (xxd_once > 0)
    std::printf("xxd, one 16000-byte run:     %8.1f MB/s (start-up included)\n", mb / xxd_once);
  if (xxd_rate > 0) {
    std::printf("xxd, start-up excluded:      %8.1f MB/s\n", xxd_rate);
    const double slowest = std::max(buffer, std::max(growing, dev_null));
    if (buffer > 0) std::printf("dump/xxd ratio (buffer): %.1fx\n", mb / buffer / xxd_rate);
    if (growing > 0)
      std::printf("dump/xxd ratio (streaming, growing buffer): %.1fx\n", mb / growing / xxd_rate);
    if (dev_null > 0) std::printf("dump/xxd ratio (streaming, /dev/null): %.1fx\n", mb / dev_null / xxd_rate);
    if (slowest > 0) std::printf("dump/xxd ratio: %.1fx (goal >= 3x)\n", mb / slowest / xxd_rate);
  }
  benchmark::Shutdown();
  return 0;
}
