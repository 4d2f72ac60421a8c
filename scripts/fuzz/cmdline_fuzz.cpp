// The whole command-line walk on argument vectors built from the input,
// against the simulated probe (found beside this binary in bin/).
//
// Input: arguments one per line, up to the first NUL byte; the bytes after
// it, if any, become the contents of in.hex, in.mot, in.bin and in.pellam,
// so that options naming those files reach the readers with fuzzed data.
//
// Every run happens in one scratch directory that is emptied first. No
// argument can name anything outside it: every '/' is dropped, so a name is
// a plain entry of the scratch directory (which holds only regular files the
// runs made; "." and ".." are directories and fail to open as files).
// A name starting with "~" has HOME put in its place ("~.hex" is HOME
// followed by ".hex"), so HOME is a directory inside the scratch dir, never
// the scratch dir itself. The scratch dir sits alone in a directory of its
// own, which is checked after every run: anything else there is a write
// that escaped, and ends the run as a finding. The simulated chip's
// contents file is in the scratch dir as well.
//
// A run's working directory is the scratch dir, where libFuzzer would also
// put a crash file: give it an absolute -artifact_prefix. Ctrl-C is taken by
// the program's own handler (it stops a looping sequence); stop a long run
// with -max_total_time or by its process id.
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/cmdline.h"
#include "app/log.h"
#include "flash/flash.h"
#include "flash/spi.h"
#include "project/project.h"
#include "sys/sys.h"

namespace {

constexpr size_t kMaxArgs = 16;
constexpr size_t kMaxArgLength = 700;  // past the program's 512-byte name buffers
constexpr const char* kPayloadNames[] = {"in.hex", "in.mot", "in.bin", "in.pellam"};

std::string OuterDir;    // holds ScratchDir and nothing else
std::string ScratchDir;
// The walk runs inside the scratch dir; between runs the fuzzer's own
// relative paths (corpus, artifacts) need the directory it started in.
int ScratchFd = -1;
int HomeFd = -1;
// A sequence may loop for ever (a branch back, as a user may program it);
// the program stops it on Ctrl-C, which this timer stands in for: every
// 20 ms of a run it raises SIGINT, unless the program's handler has gone
// (it removes itself when it fires and comes back once the request has been
// taken care of), so a second Ctrl-C never ends the process.
timer_t AbortTimer;
const int kTickSignal = SIGRTMIN + 1;

void OnTick(int) {
  struct sigaction current = {};
  if (sigaction(SIGINT, nullptr, &current) == 0 && current.sa_handler != SIG_DFL &&
      current.sa_handler != SIG_IGN) {
    raise(SIGINT);
  }
}
constexpr long kAbortAfterNs = 20 * 1000000L;  // a run takes a few ms otherwise

int RemoveEntry(const char* path, const struct stat*, int, FTW* ftw) {
  if (ftw->level == 0) return 0;  // the scratch dir itself stays
  if (remove(path) != 0) {
    std::fprintf(stderr, "cannot remove %s from the scratch directory\n", path);
    abort();
  }
  return 0;
}

// Also removes what the program keeps under $HOME (its settings directory).
void EmptyScratchDir() {
  if (nftw(".", RemoveEntry, 16, FTW_DEPTH | FTW_PHYS) != 0) abort();
}

// Reading or saving a range costs time in proportion to its length: a read
// of 0 to 0x73656564 takes minutes and is what the user asked for, not a
// fault. Inputs are kept to ranges of at most a few MiB by allowing only
// numbers (read as the program reads them, wrapping at 32 bits) near either
// end of the address space, and not both ends in one input.
bool NumbersAreSmall(const std::string& text) {
  constexpr uint32_t kLimit = 2u << 20;
  bool low = false, high = false;
  for (size_t i = 0; i < text.size();) {
    if (text[i] < '0' || text[i] > '9') {
      ++i;
      continue;
    }
    uint32_t v = 0;
    if (text[i] == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
      for (i += 2; i < text.size() && std::isxdigit(static_cast<unsigned char>(text[i])); ++i) {
        v = v * 16 + static_cast<uint32_t>(std::isdigit(static_cast<unsigned char>(text[i])) ? text[i] - '0'
                                                                                               : (text[i] | 0x20) - 'a' + 10);
      }
    } else {
      for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) v = v * 10 + static_cast<uint32_t>(text[i] - '0');
    }
    if (v < kLimit) low = true;
    else if (v >= 0u - kLimit) high = true;
    else return false;
  }
  return !(low && high);
}

void RemoveScratchDir() {
  if (fchdir(ScratchFd) == 0) EmptyScratchDir();
  if (fchdir(HomeFd) == 0) {
    rmdir(ScratchDir.c_str());
    rmdir(OuterDir.c_str());
  }
}

// A run may only have written inside the scratch dir.
void CheckNothingEscaped() {
  DIR* dir = opendir(OuterDir.c_str());
  if (dir == nullptr) abort();
  while (const dirent* e = readdir(dir)) {
    const std::string name = e->d_name;
    if (name != "." && name != ".." && name != "run") {
      std::fprintf(stderr, "cmdline_fuzz: a run wrote %s/%s, outside its scratch directory\n",
                   OuterDir.c_str(), name.c_str());
      abort();
    }
  }
  closedir(dir);
}

void WriteFile(const char* name, const uint8_t* data, size_t size) {
  const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) abort();
  if (size != 0 && write(fd, data, size) != static_cast<ssize_t>(size)) abort();
  close(fd);
}

}  // namespace

// The program's waits (reset settle, target power, sequence delays) would
// cost tens of milliseconds a run; the simulated chip needs none of them.
// This definition takes the program's calls in place of the C library's.
extern "C" int usleep(useconds_t) { return 0; }

// The program's monotonic clock (the link wraps its calls) runs a
// millisecond ahead on every reading, so that a poll on a chip that never
// becomes ready (a fuzzed status bit) reaches its time-out, even the chip
// erase's minutes, within a fraction of a second.
extern "C" int __real_clock_gettime(clockid_t clock, struct timespec* ts);
extern "C" int __wrap_clock_gettime(clockid_t clock, struct timespec* ts) {
  static int64_t aheadNs = 0;
  const int r = __real_clock_gettime(clock, ts);
  if (r == 0 && clock == CLOCK_MONOTONIC) {
    aheadNs += 1000000;
    const int64_t ns = ts->tv_nsec + aheadNs;
    ts->tv_sec += ns / 1000000000;
    ts->tv_nsec = ns % 1000000000;
  }
  return r;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* tmp = std::getenv("TMPDIR");
  std::string templ = std::string(tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp") + "/pellam-cmdline-fuzz.XXXXXX";
  if (mkdtemp(templ.data()) == nullptr) abort();
  OuterDir = templ;
  ScratchDir = OuterDir + "/run";
  if (mkdir(ScratchDir.c_str(), 0700) != 0) abort();
  ScratchFd = open(ScratchDir.c_str(), O_RDONLY | O_DIRECTORY);
  HomeFd = open(".", O_RDONLY | O_DIRECTORY);
  if (ScratchFd < 0 || HomeFd < 0) abort();
  atexit(RemoveScratchDir);
  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = kTickSignal;
  struct sigaction tick = {};
  tick.sa_handler = OnTick;
  sigemptyset(&tick.sa_mask);
  tick.sa_flags = SA_RESTART;
  if (sigaction(kTickSignal, &tick, nullptr) != 0) abort();
  if (timer_create(CLOCK_MONOTONIC, &event, &AbortTimer) != 0) abort();

  // A small chip that answers at once, its contents kept in the scratch dir.
  setenv("TARLOSIM_FLASH", (ScratchDir + "/flash.bin").c_str(), 1);
  setenv("TARLOSIM_CHIP", "202011", 1);  // 128 KiB in the chip table
  setenv("TARLOSIM_SIZE", "128K", 1);
  setenv("TARLOSIM_TIMING", "instant", 1);
  setenv("HOME", (ScratchDir + "/home").c_str(), 1);
  unsetenv("TARLOSIM_TRACE");
  unsetenv("TARLOSIM_STATS");
  unsetenv("TARLOSIM_FAULT");
  unsetenv("TARLOSIM_SN");
  unsetenv("TARLOSIM_VTARGET");

  // The program's console output is expected by the thousand; keep it off the terminal.
  const int fd = open("/dev/null", O_WRONLY);
  if (fd >= 0) dup2(fd, 1);

  // Start-up as main does it; each run then opens its own default project.
  // Without the library the program's start-up ends the process quietly
  // (its message goes to the silenced console); say why first.
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n > 0) {
    exe[n] = '\0';
    std::string lib(exe);
    lib = lib.substr(0, lib.rfind('/') + 1) + "libtarloarm.so";
    if (access(lib.c_str(), R_OK) != 0) std::fprintf(stderr, "cmdline_fuzz: %s is missing\n", lib.c_str());
  }

  if (fchdir(ScratchFd) != 0) abort();
  SYS_Init(0);
  APP_Init();
  PROJECT_Close();
  if (fchdir(HomeFd) != 0) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(data, 0, size));
  const size_t textSize = nul != nullptr ? static_cast<size_t>(nul - data) : size;

  std::vector<std::string> args{"pellam-spi"};
  std::string current;
  for (size_t i = 0; i <= textSize && args.size() <= kMaxArgs; ++i) {
    if (i == textSize || data[i] == '\n') {
      args.push_back(current);
      current.clear();
    } else if (data[i] != '/' && current.size() < kMaxArgLength) {
      current.push_back(static_cast<char>(data[i]));
    }
  }
  for (size_t i = 1; i < args.size(); ++i) {
    if (!NumbersAreSmall(args[i])) return -1;  // not added to the corpus
  }
  if (fchdir(ScratchFd) != 0) abort();
  EmptyScratchDir();
  if (nul != nullptr) {
    for (const char* name : kPayloadNames) WriteFile(name, nul + 1, size - textSize - 1);
  }
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  // State a fresh process would start with.
  LOG_SetVerbosity(3);
  LOG_ClearAbort();
  SPI_SetConnectionOverride(nullptr);
  SPI_SetTarloLogPath(nullptr);
  LastBinBaseAddress = 0;
  LastSaveStart = 0;
  LastSaveEnd = 0;
  PROJECT_OpenDefault("Default.pellam");

  itimerspec arm = {};
  arm.it_value.tv_nsec = kAbortAfterNs;
  arm.it_interval.tv_nsec = kAbortAfterNs;
  timer_settime(AbortTimer, 0, &arm, nullptr);
  CMDLINE_Execute(static_cast<int>(args.size()), argv.data());
  const itimerspec disarm = {};
  timer_settime(AbortTimer, 0, &disarm, nullptr);

  // Shutdown as main does it, short of ending the project layer for good.
  SPI_Disconnect();
  PROJECT_Close();
  APP_SetCurrentImage(nullptr);
  LOG_ClearAbort();
  if (fchdir(HomeFd) != 0) abort();
  CheckNothingEscaped();
  return 0;
}
