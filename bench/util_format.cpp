// UTIL_snprintf against the C library's snprintf, one pair per typical
// message shape, each measured in the same run. Prints a table and writes it
// to the file named by --out=<path>.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "util/util.h"

namespace {

// The C library's forms are the same texts; both sides get the same values.
#define PAIR(label, fmt, ...)                                          \
  void Util_##label(benchmark::State& st) {                           \
    char buf[256];                                                    \
    for (auto _ : st) {                                               \
      UTIL_snprintf(buf, sizeof buf, fmt, __VA_ARGS__);               \
      benchmark::DoNotOptimize(buf);                                  \
      benchmark::ClobberMemory();                                     \
    }                                                                 \
  }                                                                   \
  void Libc_##label(benchmark::State& st) {                           \
    char buf[256];                                                    \
    for (auto _ : st) {                                               \
      std::snprintf(buf, sizeof buf, fmt, __VA_ARGS__);               \
      benchmark::DoNotOptimize(buf);                                  \
      benchmark::ClobberMemory();                                     \
    }                                                                 \
  }                                                                   \
  BENCHMARK(Util_##label);                                            \
  BENCHMARK(Libc_##label);

volatile unsigned g_addr = 0x0001F000;
volatile int g_sec = 12, g_ms = 345, g_bytes = 1048576, g_ranges = 3;
volatile long long g_big = 0x123456789ABLL;
const char* volatile g_name = "board_firmware_v2.hex";
const char* volatile g_msg = "Erasing affected sectors ...";

PAIR(HexAddress, "Programming failed @ address 0x%.8X", g_addr)
PAIR(Completed, "Completed after %d.%.3d seconds.", g_sec, g_ms)
PAIR(FileSummary, "Opened data file %s: %d bytes in %d ranges", g_name, g_bytes, g_ranges)
PAIR(Range, "0x%.8X - 0x%.8X (%d bytes)", g_addr, g_addr + 0xFFF, 4096)
PAIR(Wide64, "%lld bytes", g_big)
PAIR(Plain, "%s", g_msg)

// Collects the per-iteration times while the console shows them as usual.
class Collector : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, double> ns;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      ns[r.benchmark_name()] = r.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

int main(int argc, char** argv) {
  std::string outPath;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--out=", 6) == 0) {
      outPath = argv[i] + 6;
    } else {
      args.push_back(argv[i]);
    }
  }
  int n = static_cast<int>(args.size());
  benchmark::Initialize(&n, args.data());
  Collector reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::string table = "message shape        UTIL_snprintf ns   snprintf ns   ratio\n";
  for (const auto& [name, t] : reporter.ns) {
    if (name.rfind("Util_", 0) != 0) continue;
    const std::string label = name.substr(5);
    auto ref = reporter.ns.find("Libc_" + label);
    if (ref == reporter.ns.end()) continue;
    char line[160];
    std::snprintf(line, sizeof line, "%-20s %16.1f %13.1f %7.2f\n", label.c_str(), t, ref->second,
                  ref->second > 0 ? t / ref->second : 0.0);
    table += line;
  }
  std::fputs(table.c_str(), stdout);
  if (!outPath.empty()) {
    if (FILE* f = std::fopen(outPath.c_str(), "w")) {
      std::fputs(table.c_str(), f);
      std::fclose(f);
    }
  }
  return 0;
}
