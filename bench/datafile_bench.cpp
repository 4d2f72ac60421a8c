// Data file throughput and peak memory against objcopy. Every measurement
// runs in a child process of its own, so that its peak resident size
// (ru_maxrss from wait4) belongs to that one conversion.
//   datafile_bench <work dir> <results file> [MiB]
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dataimage/memimage.h"
#include "datafile/datafile.h"

namespace {

struct Figure {
  double seconds = 0;
  long peakKiB = 0;
  bool ok = false;
};

double Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec * 1e-9;
}

// Runs `work` in a child; its exit status 0 means success.
template <typename Work>
Figure Measure(Work&& work) {
  Figure f;
  const double t0 = Now();
  const pid_t pid = fork();
  if (pid == 0) _exit(work());
  int status = 0;
  rusage ru{};
  if (pid < 0 || wait4(pid, &status, 0, &ru) != pid) return f;
  f.seconds = Now() - t0;
  f.peakKiB = ru.ru_maxrss;
  f.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return f;
}

Figure Objcopy(const std::vector<std::string>& args) {
  return Measure([&]() -> int {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>("objcopy"));
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execvp("objcopy", argv.data());
    return 127;
  });
}

enum class Fmt { Bin, Hex, Mot };

int Load(MemImage* image, Fmt fmt, const std::string& path) {
  char err[256] = {};
  switch (fmt) {
    case Fmt::Bin: return DATAFILE_ReadBin(image, path.c_str(), err, sizeof err, 0);
    case Fmt::Hex: return DATAFILE_ReadHex(image, path.c_str(), err, sizeof err);
    case Fmt::Mot: return DATAFILE_ReadMot(image, path.c_str(), err, sizeof err);
  }
  return -1;
}

int Save(MemImage* image, Fmt fmt, const std::string& path) {
  char err[256] = {};
  switch (fmt) {
    case Fmt::Bin:
      return DATAFILE_WriteBin(image, path.c_str(), err, sizeof err, MEMIMAGE_GetFirstAddr(image),
                               MEMIMAGE_GetLastAddr(image));
    case Fmt::Hex: return DATAFILE_WriteHex(image, path.c_str(), err, sizeof err);
    case Fmt::Mot: return DATAFILE_WriteMot(image, path.c_str(), err, sizeof err);
  }
  return -1;
}

// Ours: load `in` and, when `out` is given, save it.
Figure Ours(Fmt inFmt, const std::string& in, Fmt outFmt, const std::string& out) {
  return Measure([&]() -> int {
    MemImage* image = MEMIMAGE_Create();
    if (Load(image, inFmt, in) != 0) return 1;
    if (!out.empty() && Save(image, outFmt, out) != 0) return 2;
    MEMIMAGE_Delete(image);
    return 0;
  });
}

// Save only: the load happens in the child before the clock of interest,
// so it is timed separately and subtracted.
long FileSize(const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return -1;
  std::fseek(f, 0, SEEK_END);
  const long n = std::ftell(f);
  std::fclose(f);
  return n;
}

bool SameFiles(const std::string& a, const std::string& b) {
  return std::system(("cmp -s '" + a + "' '" + b + "'").c_str()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s <work dir> <results file> [MiB]\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  const uint32_t mib = argc > 3 ? static_cast<uint32_t>(std::atoi(argv[3])) : 64;
  const double imageMB = mib * 1048576.0 / 1e6;
  const std::string bin = dir + "/image.bin";
  const std::string hex = dir + "/objcopy.hex";
  const std::string mot = dir + "/objcopy.srec";

  {
    std::vector<uint8_t> bytes(size_t(mib) << 20);
    std::mt19937_64 rng(42);
    for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
      const uint64_t v = rng();
      std::memcpy(&bytes[i], &v, 8);
    }
    FILE* f = std::fopen(bin.c_str(), "wb");
    if (f == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) return 1;
    std::fclose(f);
  }
  if (!Objcopy({"-I", "binary", "-O", "ihex", bin, hex}).ok || !Objcopy({"-I", "binary", "-O", "srec", bin, mot}).ok) {
    std::fprintf(stderr, "objcopy failed\n");
    return 1;
  }

  struct Row {
    const char* what;
    Figure ours;
    Figure ref;
    double inputMB;
  };
  std::vector<Row> rows;
  const double hexMB = FileSize(hex) / 1e6;
  const double motMB = FileSize(mot) / 1e6;

  rows.push_back({"hex -> bin", Ours(Fmt::Hex, hex, Fmt::Bin, dir + "/ours_hex.bin"),
                  Objcopy({"-I", "ihex", "-O", "binary", hex, dir + "/objcopy_hex.bin"}), hexMB});
  rows.push_back({"srec -> bin", Ours(Fmt::Mot, mot, Fmt::Bin, dir + "/ours_srec.bin"),
                  Objcopy({"-I", "srec", "-O", "binary", mot, dir + "/objcopy_srec.bin"}), motMB});
  rows.push_back({"bin -> hex", Ours(Fmt::Bin, bin, Fmt::Hex, dir + "/ours.hex"),
                  Objcopy({"-I", "binary", "-O", "ihex", bin, dir + "/objcopy2.hex"}), imageMB});
  rows.push_back({"bin -> srec", Ours(Fmt::Bin, bin, Fmt::Mot, dir + "/ours.srec"),
                  Objcopy({"-I", "binary", "-O", "srec", bin, dir + "/objcopy2.srec"}), imageMB});
  // Loads alone (no objcopy counterpart: it always writes).
  const Figure loadHex = Ours(Fmt::Hex, hex, Fmt::Bin, "");
  const Figure loadMot = Ours(Fmt::Mot, mot, Fmt::Bin, "");
  const Figure loadBin = Ours(Fmt::Bin, bin, Fmt::Bin, "");

  const bool sameHex = SameFiles(dir + "/ours_hex.bin", bin);
  const bool sameMot = SameFiles(dir + "/ours_srec.bin", bin);

  std::string text;
  char line[256];
  std::snprintf(line, sizeof line, "Data file benchmark: %u MiB random image (%.1f MB); HEX file %.1f MB, "
                "S-record file %.1f MB (both written by objcopy)\n\n", mib, imageMB, hexMB, motMB);
  text += line;
  std::snprintf(line, sizeof line, "%-12s %12s %12s %9s   %12s %12s\n", "conversion", "ours MB/s", "objcopy MB/s",
                "ratio", "ours peak", "objcopy peak");
  text += line;
  for (const Row& r : rows) {
    const double a = r.ours.ok ? imageMB / r.ours.seconds : 0;
    const double b = r.ref.ok ? imageMB / r.ref.seconds : 0;
    std::snprintf(line, sizeof line, "%-12s %12.1f %12.1f %8.2fx   %8.1f MiB %8.1f MiB\n", r.what, a, b,
                  b > 0 ? a / b : 0.0, r.ours.peakKiB / 1024.0, r.ref.peakKiB / 1024.0);
    text += line;
  }
  text += "\n(MB/s: 10^6 image bytes per second; peak: the process's maximum resident size)\n\nLoads alone:\n";
  const struct {
    const char* what;
    const Figure& f;
    double fileMB;
  } loads[] = {{"load hex", loadHex, hexMB}, {"load srec", loadMot, motMB}, {"load bin", loadBin, imageMB}};
  for (const auto& l : loads) {
    std::snprintf(line, sizeof line, "%-12s %8.1f MB/s of image (%7.1f MB/s of file), peak %.1f MiB = %.2fx image%s\n",
                  l.what, imageMB / l.f.seconds, l.fileMB / l.f.seconds, l.f.peakKiB / 1024.0,
                  l.f.peakKiB / 1024.0 / mib, l.f.ok ? "" : "  FAILED");
    text += line;
  }
  std::snprintf(line, sizeof line, "\nhex -> bin identical to the source binary: %s; srec -> bin: %s\n",
                sameHex ? "yes" : "NO", sameMot ? "yes" : "NO");
  text += line;
  std::fputs(text.c_str(), stdout);
  FILE* f = std::fopen(argv[2], "w");
  if (f != nullptr) {
    std::fputs(text.c_str(), f);
    std::fclose(f);
  }
  // The work files are large: remove them.
  std::system(("rm -f '" + dir + "'/*.bin '" + dir + "'/*.hex '" + dir + "'/*.srec").c_str());
  return 0;
}
