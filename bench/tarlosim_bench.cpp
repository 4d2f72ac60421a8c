// Raw throughput of the simulated probe library: small frames per second
// through the transfer call, and page programs through the batch function
// (256-byte pages, 32 pages per call, as the program sends them), next to a
// memcpy of the same page bytes. Figures go to the console and to the file
// named by --out=<path>.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "probe/tarlo_abi.h"

namespace {

std::string g_dir;

void OpenChip() {
  setenv("TARLOSIM_CHIP", "C22018", 1);
  setenv("TARLOSIM_FLASH", (g_dir + "/flash.bin").c_str(), 1);
  for (const char* k : {"TARLOSIM_TRACE", "TARLOSIM_STATS", "TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SIZE"})
    unsetenv(k);
  TARLOARM_SelectUSB(0);
  if (const char* e = TARLOARM_OpenEx(nullptr, nullptr)) {
    std::fprintf(stderr, "open failed: %s\n", e);
    std::exit(1);
  }
  TARLOARM_SetSpeed(12000);
}

void BM_StatusFrame(benchmark::State& state) {
  OpenChip();
  const uint8_t out[2] = {0x05, 0xFF};
  uint8_t in[2];
  for (auto _ : state) {
    TARLO_SPI_Transfer(out, in, 16, TARLO_SPI_FLAG_WHOLE);
    benchmark::DoNotOptimize(in[1]);
  }
  state.counters["frames/s"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  TARLOARM_Close();
}
BENCHMARK(BM_StatusFrame);

constexpr int kPages = 32, kPage = 256;

void BM_BatchPagePrograms(benchmark::State& state) {
  OpenChip();
  auto batch = reinterpret_cast<TARLO_SPI_BATCH_FUNC>(TARLO_GetpFunc(1));
  std::vector<uint8_t> data(kPages * kPage);
  for (size_t i = 0; i < data.size(); i++) data[i] = static_cast<uint8_t>(i * 7);
  uint8_t wren = 0x06, rdsr = 0x05, hdr[kPages][4], st[kPages];
  TARLO_SPI_POLL poll{0, 1, 0, 100000};
  std::vector<TARLO_SPI_JOB> jobs(5 * kPages);
  uint32_t base = 0;
  for (auto _ : state) {
    for (int p = 0; p < kPages; p++) {
      const uint32_t a = (base + static_cast<uint32_t>(p) * kPage) & 0xFFFFFF;
      hdr[p][0] = 0x02;
      hdr[p][1] = static_cast<uint8_t>(a >> 16);
      hdr[p][2] = static_cast<uint8_t>(a >> 8);
      hdr[p][3] = static_cast<uint8_t>(a);
      TARLO_SPI_JOB* j = &jobs[5 * static_cast<size_t>(p)];
      j[0] = {1, 0, &wren, nullptr, 8, 14, nullptr, 0, -1};
      j[1] = {1, 0, hdr[p], nullptr, 32, 2, nullptr, 0, -1};
      j[2] = {1, 0, data.data() + p * kPage, nullptr, kPage * 8, 12, nullptr, 0, -1};
      j[3] = {1, 0, &rdsr, nullptr, 8, 2, nullptr, 0, -1};
      j[4] = {2, 0, nullptr, &st[p], 8, 12, &poll, 16, -1};
    }
    benchmark::DoNotOptimize(batch(jobs.data(), static_cast<int>(jobs.size())));
    base += kPages * kPage;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kPages * kPage);
  TARLOARM_Close();
}
BENCHMARK(BM_BatchPagePrograms);

// Reference: only copying the same page bytes.
void BM_MemcpyPages(benchmark::State& state) {
  std::vector<uint8_t> src(kPages * kPage, 0x5A), dst(16u << 20);
  size_t at = 0;
  for (auto _ : state) {
    std::memcpy(dst.data() + at, src.data(), src.size());
    benchmark::ClobberMemory();
    at = (at + src.size()) % dst.size();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kPages * kPage);
}
BENCHMARK(BM_MemcpyPages);

class Collector : public benchmark::ConsoleReporter {
 public:
  std::string text;
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      char line[256];
      double rate = 0;
      const char* unit = "";
      if (auto it = r.counters.find("frames/s"); it != r.counters.end()) {
        rate = it->second.value;
        unit = "frames/s";
      } else if (auto b = r.counters.find("bytes_per_second"); b != r.counters.end()) {
        rate = b->second.value / 1e6;
        unit = "MB/s";
      }
      std::snprintf(line, sizeof line, "%-28s %12.1f %-9s %10.1f ns/iteration\n", r.benchmark_name().c_str(), rate,
                    unit, r.GetAdjustedRealTime());
      text += line;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

int main(int argc, char** argv) {
  std::string outPath = "tarlosim_results.txt";
  std::vector<char*> args;
  for (int i = 0; i < argc; i++) {
    if (std::strncmp(argv[i], "--out=", 6) == 0) outPath = argv[i] + 6;
    else args.push_back(argv[i]);
  }
  char tmpl[] = "/tmp/tarlosim-bench-XXXXXX";
  g_dir = mkdtemp(tmpl);
  int n = static_cast<int>(args.size());
  benchmark::Initialize(&n, args.data());
  Collector c;
  benchmark::RunSpecifiedBenchmarks(&c);
  benchmark::Shutdown();
  std::string cmd = "rm -rf '" + g_dir + "'";
  if (std::system(cmd.c_str()) != 0) {}
  const std::string text =
      "Simulated probe library throughput (C22018, instant timing; memcpy of the same page bytes as reference)\n" + c.text;
  std::fputs(text.c_str(), stdout);
  if (FILE* f = std::fopen(outPath.c_str(), "w")) {
    std::fputs(text.c_str(), f);
    std::fclose(f);
  }
  return 0;
}
