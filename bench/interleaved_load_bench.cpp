// Loading an Intel HEX file of one-byte records written in two interleaved
// passes (0, 4, 8, ... then 2, 6, 10, ...), against the same records in
// address order; also two far-apart streams taking turns and a shuffle.
// Every out-of-order add used to walk the range list from its start, so such
// files cost time quadratic in their records.
//   interleaved_load_bench <work dir> <results file> [records]
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "dataimage/memimage.h"
#include "datafile/datafile.h"

namespace {

double Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec * 1e-9;
}

void PutRecord(std::string& out, uint32_t address, uint8_t value) {
  const uint8_t b[] = {1, static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address), 0, value};
  unsigned sum = 0;
  char text[16];
  out += ':';
  for (uint8_t v : b) {
    sum += v;
    std::snprintf(text, sizeof text, "%02X", v);
    out += text;
  }
  std::snprintf(text, sizeof text, "%02X\r\n", (0x100 - (sum & 0xFF)) & 0xFF);
  out += text;
}

// One-byte records at every second address, in the given order of indexes,
// with an extended linear address record at each change of the upper half.
bool WriteFile(const std::string& path, const std::vector<uint32_t>& order) {
  std::string out;
  uint32_t upper = 0xFFFFFFFF;
  for (uint32_t i : order) {
    const uint32_t address = 2 * i;
    if (address >> 16 != upper) {
      upper = address >> 16;
      const uint8_t hi = static_cast<uint8_t>(upper >> 8), lo = static_cast<uint8_t>(upper);
      char text[32];
      std::snprintf(text, sizeof text, ":02000004%02X%02X%02X\r\n", hi, lo, (0x100 - ((6 + hi + lo) & 0xFF)) & 0xFF);
      out += text;
    }
    PutRecord(out, address, static_cast<uint8_t>(i * 13));
  }
  out += ":00000001FF\r\n";
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(out.data(), 1, out.size(), f) == out.size();
  return std::fclose(f) == 0 && ok;
}

struct Figure {
  double seconds = 1e30;
  uint32_t ranges = 0;
  bool ok = true;
};

// Best of `runs` loads.
Figure Load(const std::string& path, int runs) {
  Figure f;
  for (int i = 0; i < runs; i++) {
    MemImage* image = MEMIMAGE_Create();
    char err[256] = {};
    const double t0 = Now();
    const int r = DATAFILE_ReadHex(image, path.c_str(), err, sizeof err);
    const double t = Now() - t0;
    if (r != 0) {
      std::fprintf(stderr, "%s: %s\n", path.c_str(), err);
      f.ok = false;
    }
    if (t < f.seconds) f.seconds = t;
    f.ranges = MEMIMAGE_GetNumRanges(image);
    MEMIMAGE_Delete(image);
  }
  return f;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s <work dir> <results file> [records]\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  const uint32_t n = argc > 3 ? static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 0)) : 100000;
  // Record k of the interleaved file sits at address 4k in the first pass and
  // 4(k - half) + 2 in the second; as indexes of 2-byte steps: 2k, 2(k-half)+1.
  std::vector<uint32_t> inOrder(n), interleaved;
  for (uint32_t i = 0; i < n; i++) inOrder[i] = i;
  for (uint32_t i = 0; i < n; i += 2) interleaved.push_back(i);
  for (uint32_t i = 1; i < n; i += 2) interleaved.push_back(i);
  // Two streams far apart taking turns, and a shuffle: orders that no
  // single remembered position helps.
  std::vector<uint32_t> alternating, shuffled(inOrder);
  for (uint32_t i = 0; i < n / 2; i++) {
    alternating.push_back(i);
    alternating.push_back(n / 2 + i);
  }
  std::mt19937 rng(2024);
  std::shuffle(shuffled.begin(), shuffled.end(), rng);
  struct File {
    const char* label;
    const char* name;
    const std::vector<uint32_t>* order;
    Figure figure;
  } files[] = {{"in address order", "in_order.hex", &inOrder, {}},
               {"two interleaved passes", "interleaved.hex", &interleaved, {}},
               {"two streams alternating", "alternating.hex", &alternating, {}},
               {"shuffled", "shuffled.hex", &shuffled, {}}};
  bool ok = true;
  for (File& f : files) {
    const std::string path = dir + "/" + f.name;
    if (!WriteFile(path, *f.order)) {
      std::fprintf(stderr, "cannot write %s\n", path.c_str());
      return 1;
    }
    f.figure = Load(path, 5);
    ok &= f.figure.ok && f.figure.ranges == f.order->size();
  }
  std::string text;
  char line[256];
  std::snprintf(line, sizeof line, "HEX load of %u one-byte records at every second address (best of 5)\n", n);
  text += line;
  for (const File& f : files) {
    std::snprintf(line, sizeof line, "%-26s %9.4f s  %7u ranges  ratio to in order %6.2f\n", f.label,
                  f.figure.seconds, f.figure.ranges, f.figure.seconds / files[0].figure.seconds);
    text += line;
  }
  std::fputs(text.c_str(), stdout);
  FILE* out = std::fopen(argv[2], "w");
  if (out != nullptr) {
    std::fputs(text.c_str(), out);
    std::fclose(out);
  }
  return ok ? 0 : 1;
}
