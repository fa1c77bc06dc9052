// Our CRC-32 against zlib's on the same 16 KB buffers, then the ratio and our GB/s.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "echo/crc32.h"

namespace {

constexpr size_t kBufferBytes = 16 * 1024;
constexpr size_t kBufferCount = 8;  // 128 KB in turn: cache-warm, but not one hot line set

const std::vector<std::vector<uint8_t>>& Buffers() {
  static const std::vector<std::vector<uint8_t>> buffers = [] {
    std::mt19937 engine(20240611);
    std::vector<std::vector<uint8_t>> made(kBufferCount, std::vector<uint8_t>(kBufferBytes));
    for (auto& buffer : made) {
      for (auto& byte : buffer) byte = static_cast<uint8_t>(engine());
    }
    return made;
  }();
  return buffers;
}

uint32_t ZlibCrc32(const uint8_t* data, size_t count) {
  return static_cast<uint32_t>(crc32(0L, data, static_cast<uInt>(count)));
}

void BM_Crc32Ours(benchmark::State& state) {
  portwren::BuildCrc32Table();
  const auto& buffers = Buffers();
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(portwren::Crc32(buffers[next].data(), kBufferBytes));
    next = (next + 1) % kBufferCount;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBufferBytes));
}

void BM_Crc32Zlib(benchmark::State& state) {
  const auto& buffers = Buffers();
  size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZlibCrc32(buffers[next].data(), kBufferBytes));
    next = (next + 1) % kBufferCount;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBufferBytes));
}

BENCHMARK(BM_Crc32Ours);
BENCHMARK(BM_Crc32Zlib);

// Prints as usual and keeps each plain run's bytes per second for the summary.
class RateCollector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      const auto found = run.counters.find("bytes_per_second");
      if (found != run.counters.end()) rates[run.run_name.function_name] = found->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> rates;
};

}  // namespace

int main(int argc, char** argv) {
  for (const auto& buffer : Buffers()) {
    if (portwren::Crc32(buffer.data(), buffer.size()) != ZlibCrc32(buffer.data(), buffer.size())) {
      std::fprintf(stderr, "crc32_bench: our CRC-32 disagrees with zlib\n");
      return 1;
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RateCollector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  const auto ours = reporter.rates.find("BM_Crc32Ours");
  const auto zlib = reporter.rates.find("BM_Crc32Zlib");
  if (ours != reporter.rates.end()) std::printf("crc32 ours: %.2f GB/s\n", ours->second / 1e9);
  if (zlib != reporter.rates.end()) std::printf("crc32 zlib: %.2f GB/s\n", zlib->second / 1e9);
  if (ours != reporter.rates.end() && zlib != reporter.rates.end() && zlib->second > 0) {
    std::printf("crc32 ratio ours/zlib: %.2f\n", ours->second / zlib->second);
  }
  return 0;
}
