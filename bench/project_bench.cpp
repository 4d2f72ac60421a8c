// Opening a project file whose [CPU] section holds 100,000 step keys, next to
// a project of the usual size and to reading the same file's bytes, all in
// this run. A row with the key index switched off shows what the lookups
// cost when they scan the text (on a smaller file: the scan is quadratic).
//   project_bench <work dir> <results file> [step keys]
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "project/project.h"
#include "project/settings.h"
#include "project/settings_internal.h"

namespace {

double Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec * 1e-9;
}

// A project as the program writes it, with `stepKeys` step keys split
// between the init and the exit list (four keys a step; only the first 256
// steps of each list are loaded, the others are lines the lookups pass).
std::string ProjectText(int stepKeys) {
  std::string t = "  AppVersion = 68000\r\n[GENERAL]\r\n  ConnectMode = 0\r\n  CurrentFile = \"\"\r\n"
                  "  DataFileSAddr = 0x00000000\r\n  GUIMode = 0\r\n  HostName = \"\"\r\n  USBPort = 0\r\n"
                  "  USBSerialNo = 0x00000000\r\n[JTAG]\r\n  Speed0 = 4000\r\n[FLASH]\r\n  AutoDetect = 0x00000001\r\n"
                  "  FlashType = 0x00000001\r\n  NumPages = 0x00010000\r\n  PageSizeShift = 0x00000008\r\n"
                  "  SectorSizeShift = 0x00000010\r\n[CPU]\r\n";
  const int steps = std::max(stepKeys / 4, 2);
  const int perList = steps / 2;
  char line[160];
  for (const char* list : {"Init", "Exit"}) {
    std::snprintf(line, sizeof line, "  Num%sSteps = %d\r\n", list, std::min(perList, 256));
    t += line;
    for (int i = 0; i < perList; ++i) {
      std::snprintf(line, sizeof line,
                    "  %sStep%d_Action = \"Delay\"\r\n  %sStep%d_Comment = \"step %d\"\r\n"
                    "  %sStep%d_Value0 = 0x0000000A\r\n  %sStep%d_Value1 = 0x00000000\r\n",
                    list, i, list, i, i, list, i, list, i);
      t += line;
    }
  }
  t += "[SPI]\r\n  CmdEraseBulk = 0xC7\r\n  CmdEraseSector = 0xD8\r\n  CmdReadData = 0x03\r\n"
       "  CmdReadID = 0x9F\r\n  CmdReadStatus = 0x05\r\n  CmdWriteEnable = 0x06\r\n  CmdWritePage = 0x02\r\n"
       "  NumAddrBytes = 0x03\r\n  StatusBitPos = 0x00\r\n  StatusIsReadyBit = 0x01\r\n"
       "[PRODUCTION]\r\n  AutoPerformsErase = 1\r\n  AutoPerformsProgram = 1\r\n  AutoPerformsVerify = 1\r\n"
       "  EnableTargetPower = 0\r\n  EraseType = 2\r\n  PerformCompare = 1\r\n  TargetPowerDelay = 0x000000C8\r\n"
       "[PERFORMANCE]\r\n  DisableSkipBlankDataOnProgram = 0x00000000\r\n";
  return t;
}

bool WriteText(const std::string& path, const std::string& text) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
  return std::fclose(f) == 0 && ok;
}

// The operation log goes to the console; keep it out of the figures' way.
struct Quiet {
  int saved = dup(1);
  Quiet() {
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0) {
      dup2(null, 1);
      close(null);
    }
  }
  ~Quiet() {
    if (saved >= 0) {
      dup2(saved, 1);
      close(saved);
    }
  }
};

// Best of `runs` timings of one open; false when an open failed.
bool TimeOpen(const std::string& path, int runs, double* best) {
  *best = 1e9;
  for (int i = 0; i < runs; ++i) {
    Quiet quiet;
    const double t0 = Now();
    const int r = PROJECT_Open(path.c_str());
    const double t = Now() - t0;
    PROJECT_Close();
    if (r != 0) return false;
    *best = std::min(*best, t);
  }
  return true;
}

double TimeRead(const std::string& path, int runs) {
  double best = 1e9;
  std::vector<char> buf(1 << 16);
  for (int i = 0; i < runs; ++i) {
    const double t0 = Now();
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return -1;
    while (read(fd, buf.data(), buf.size()) > 0) {
    }
    close(fd);
    best = std::min(best, Now() - t0);
  }
  return best;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s <work dir> <results file> [step keys]\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  const int bigKeys = argc > 3 ? std::atoi(argv[3]) : 100000;
  const int scanKeys = std::min(bigKeys, 10000);
  setenv("HOME", dir.c_str(), 1);  // the open records the current project there

  struct File {
    const char* label;
    int keys;
    std::string path;
  } files[] = {
      {"usual project", 40, dir + "/usual.pellam"},
      {"scan-size project", scanKeys, dir + "/scan.pellam"},
      {"large project", bigKeys, dir + "/large.pellam"},
  };
  for (File& f : files) {
    if (!WriteText(f.path, ProjectText(f.keys))) {
      std::fprintf(stderr, "cannot write %s\n", f.path.c_str());
      return 1;
    }
  }

  std::string report;
  char line[256];
  auto row = [&](const char* what, double seconds, double reference) {
    std::snprintf(line, sizeof line, "%-52s %10.3f ms  %8.1f x\n", what, seconds * 1e3, seconds / reference);
    report += line;
  };
  const double read = TimeRead(files[2].path, 20);
  double usual = 0, large = 0, scanIndexed = 0, scanScanned = 0;
  bool ok = TimeOpen(files[0].path, 20, &usual) && TimeOpen(files[2].path, 5, &large) &&
            TimeOpen(files[1].path, 5, &scanIndexed);
  SETTINGS_SetIndexed(0);
  ok = ok && TimeOpen(files[1].path, 1, &scanScanned);
  SETTINGS_SetIndexed(1);
  if (!ok) {
    std::fprintf(stderr, "a project open failed\n");
    return 1;
  }
  std::snprintf(line, sizeof line, "Project open, best of several runs; ratio against the usual project's open\n"
                                   "(%d step keys in the large file, %d in the scan-size one)\n\n",
                bigKeys, scanKeys);
  report += line;
  row("usual project (40 step keys)", usual, usual);
  row("large project: read the file's bytes only", read, usual);
  row("large project: open", large, usual);
  row("scan-size project: open", scanIndexed, usual);
  row("scan-size project: open, lookups scanning the text", scanScanned, usual);
  std::fputs(report.c_str(), stdout);
  FILE* out = std::fopen(argv[2], "w");
  if (out == nullptr || std::fputs(report.c_str(), out) < 0 || std::fclose(out) != 0) {
    std::fprintf(stderr, "cannot write %s\n", argv[2]);
    return 1;
  }
  return 0;
}
