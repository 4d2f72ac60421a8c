// The probe side of the simulated library: selection, open/close, power,
// pins, speed, the SPI transfer and batch functions, the library log, and the
// files the simulator keeps (contents, trace, stats).
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "probe/tarlo_abi.h"
#include "tarlosim/chip.h"

#define TS_EXPORT extern "C" __attribute__((visibility("default")))

namespace tarlosim {
namespace {

constexpr uint32_t kVersion = 79204;  // 7.92d
constexpr const char* kCompileDate = "Nov 20 2026 10:00:00";
constexpr uint32_t kDefaultSerial = 123456;
constexpr int kSpiInterface = 5;
constexpr int kPollTimeout = -1;

struct Config {
  std::string chipHex = "C22018";
  std::vector<uint8_t> id{0xC2, 0x20, 0x18};
  uint32_t sizeOverride = 0;
  std::string flashPath, tracePath, statsPath;
  int vtarget = 3300;
  std::vector<uint32_t> serials{kDefaultSerial};
  Timing timing = Timing::Instant;
  Faults faults;
  bool noSpi = false, noBatch = false, batchNoMem = false, batchUnsupported = false, ipUnreachable = false;
  long dropAfter = -1;
  // The first setting that does not parse; the probe then refuses to open,
  // so a misspelt fault never lets a test pass without it.
  std::string error;
};

std::string Env(const char* name, const char* def, bool* set = nullptr) {
  const char* v = std::getenv(name);
  if (set) *set = v != nullptr;
  return v ? v : def;
}

// A whole unsigned number, at most max: by default as C writes it (decimal,
// 0x hex, leading-0 octal). `rest` takes what follows it, else nothing may.
bool ParseNumber(const std::string& s, uint64_t max, uint64_t& v, std::string* rest = nullptr, int base = 0) {
  if (s.empty() || !std::isdigit(static_cast<unsigned char>(s[0]))) return false;
  errno = 0;
  char* end = nullptr;
  const unsigned long long n = std::strtoull(s.c_str(), &end, base);
  if (errno != 0 || n > max || end == s.c_str()) return false;
  const std::string tail(end);
  if (rest) *rest = tail;
  else if (!tail.empty()) return false;
  v = n;
  return true;
}

bool ParseSize(const std::string& s, uint32_t& size) {
  uint64_t v = 0;
  std::string rest;
  if (!ParseNumber(s, 0xFFFFFFFFull, v, &rest) || rest.size() > 1) return false;
  if (!rest.empty()) {
    const char u = static_cast<char>(std::toupper(static_cast<unsigned char>(rest[0])));
    const int shift = u == 'K' ? 10 : u == 'M' ? 20 : u == 'G' ? 30 : -1;
    if (shift < 0) return false;
    v <<= shift;
  }
  if (v == 0 || v > 0xFFFFFFFFull) return false;
  size = static_cast<uint32_t>(v);
  return true;
}

std::string Trim(const std::string& s) {
  const size_t a = s.find_first_not_of(" \t");
  if (a == std::string::npos) return "";
  return s.substr(a, s.find_last_not_of(" \t") + 1 - a);
}

// The comma-separated items of a list setting, blanks around them removed,
// empty items left out.
std::vector<std::string> Items(const std::string& list) {
  std::vector<std::string> r;
  for (size_t p = 0; p <= list.size();) {
    size_t q = list.find(',', p);
    if (q == std::string::npos) q = list.size();
    std::string one = Trim(list.substr(p, q - p));
    if (!one.empty()) r.push_back(one);
    p = q + 1;
  }
  return r;
}

// One fault of TARLOSIM_FAULT; false when it is not one we know.
bool ParseFault(const std::string& one, Config& c) {
  if (one == "no-spi") c.noSpi = true;
  else if (one == "erase-timeout") c.faults.eraseTimeout = true;
  else if (one == "program-timeout") c.faults.programTimeout = true;
  else if (one == "protected") c.faults.isProtected = true;
  else if (one == "no-batch") c.noBatch = true;
  else if (one == "batch-nomem") c.batchNoMem = true;
  else if (one == "batch-unsupported") c.batchUnsupported = true;
  else if (one == "ip-unreachable") c.ipUnreachable = true;
  else if (one.rfind("drop@", 0) == 0) {
    uint64_t n = 0;
    if (!ParseNumber(one.substr(5), 0x7FFFFFFF, n)) return false;
    c.dropAfter = static_cast<long>(n);
  } else if (one.rfind("stuck@", 0) == 0) {
    uint64_t a = 0, bit = 0;
    std::string rest;
    if (!ParseNumber(one.substr(6), 0xFFFFFFFFull, a, &rest)) return false;
    if (!rest.empty() && (rest[0] != ':' || rest.size() != 2 || rest[1] < '0' || rest[1] > '7')) return false;
    if (!rest.empty()) bit = static_cast<uint64_t>(rest[1] - '0');
    c.faults.stuck.push_back({static_cast<uint32_t>(a), static_cast<uint8_t>(1u << bit)});
  } else {
    return false;
  }
  return true;
}

Config ReadConfig() {
  Config c;
  auto bad = [&c](const char* name, const std::string& value, const std::string& why) {
    if (c.error.empty()) c.error = std::string("Bad simulator setting ") + name + "=\"" + value + "\": " + why;
  };
  // An empty value means the default, as if the variable were not set.
  const std::string chip = Env("TARLOSIM_CHIP", "");
  if (!chip.empty()) {
    bool hex = chip.size() % 2 == 0 && chip.size() >= 6 && chip.size() <= 26;
    for (char ch : chip) hex = hex && std::isxdigit(static_cast<unsigned char>(ch));
    if (!hex) {
      bad("TARLOSIM_CHIP", chip, "not 3 to 13 bytes as hex digits");
    } else {
      c.chipHex.clear();
      c.id.clear();
      for (char ch : chip) c.chipHex += static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
      for (size_t i = 0; i < c.chipHex.size(); i += 2)
        c.id.push_back(static_cast<uint8_t>(std::stoul(c.chipHex.substr(i, 2), nullptr, 16)));
    }
  }
  const std::string size = Env("TARLOSIM_SIZE", "");
  if (!size.empty() && !ParseSize(size, c.sizeOverride))
    bad("TARLOSIM_SIZE", size, "not a size in bytes from 1 to 4G - 1 (a number, K, M or G allowed after it)");
  c.flashPath = Env("TARLOSIM_FLASH", "");
  if (c.flashPath.empty()) {
    std::string home = Env("HOME", "");
    std::string dir = home.empty() ? "/tmp/tarlosim-" + std::to_string(getuid()) : home + "/.tarlosim";
    c.flashPath = dir + "/flash-" + c.chipHex + ".bin";
  }
  c.tracePath = Env("TARLOSIM_TRACE", "");
  c.statsPath = Env("TARLOSIM_STATS", "");
  const std::string vt = Env("TARLOSIM_VTARGET", "");
  if (!vt.empty()) {
    uint64_t v = 0;
    bool digits = true;
    for (char ch : vt) digits = digits && std::isdigit(static_cast<unsigned char>(ch));
    if (!digits || !ParseNumber(vt, 0x7FFFFFFF, v, nullptr, 10))
      bad("TARLOSIM_VTARGET", vt, "not a voltage in mV (a whole number)");
    else
      c.vtarget = static_cast<int>(v);
  }
  bool snSet = false;
  const std::string sn = Env("TARLOSIM_SN", "", &snSet);
  if (snSet) {
    c.serials.clear();
    for (const std::string& one : Items(sn)) {
      uint64_t v = 0;
      bool digits = true;
      for (char ch : one) digits = digits && std::isdigit(static_cast<unsigned char>(ch));
      if (!digits || !ParseNumber(one, 0xFFFFFFFFull, v, nullptr, 10)) {
        bad("TARLOSIM_SN", sn, "\"" + one + "\" is not a serial number");
        break;
      }
      c.serials.push_back(static_cast<uint32_t>(v));
    }
  }
  const std::string t = Env("TARLOSIM_TIMING", "");
  if (t == "model") c.timing = Timing::Model;
  else if (t == "real") c.timing = Timing::Real;
  else if (!t.empty() && t != "instant") bad("TARLOSIM_TIMING", t, "not instant, model or real");
  const std::string f = Env("TARLOSIM_FAULT", "");
  for (const std::string& one : Items(f)) {
    if (!ParseFault(one, c)) {
      bad("TARLOSIM_FAULT", f, "unknown fault \"" + one + "\"");
      break;
    }
  }
  return c;
}

// Buffered append-only text file (trace and library log): they sit on the
// hot path of big jobs, so lines are collected and written in large pieces.
class TextSink {
 public:
  bool Open(const std::string& path) {
    Close();
    if (path.empty()) return false;
    f_ = std::fopen(path.c_str(), "a");
    if (f_) std::setvbuf(f_, nullptr, _IOFBF, 1 << 20);
    return f_ != nullptr;
  }
  void Close() {
    if (f_) std::fclose(f_);
    f_ = nullptr;
  }
  void Flush() {
    if (f_) std::fflush(f_);
  }
  bool On() const { return f_ != nullptr; }
  void Line(const char* fmt, ...) __attribute__((format(printf, 2, 3))) {
    if (!f_) return;
    va_list ap;
    va_start(ap, fmt);
    std::vfprintf(f_, fmt, ap);
    va_end(ap);
    std::fputc('\n', f_);
  }
  void HexLine(const uint8_t* p, size_t n) {
    if (!f_) return;
    static const char* hex = "0123456789ABCDEF";
    char buf[3 * 1024];
    size_t k = 0;
    for (size_t i = 0; i < n; i++) {
      buf[k++] = hex[p[i] >> 4];
      buf[k++] = hex[p[i] & 15];
      buf[k++] = i + 1 < n ? ' ' : '\n';
      if (k == sizeof buf) {
        std::fwrite(buf, 1, k, f_);
        k = 0;
      }
    }
    if (n == 0) buf[k++] = '\n';
    std::fwrite(buf, 1, k, f_);
  }

 private:
  FILE* f_ = nullptr;
};

struct Probe {
  std::recursive_mutex mu;
  Config cfg;
  bool configured = false;
  Chip chip;
  bool open = false, gone = false, dropReported = false, powerOn = false, disablePowerOnClose = false;
  enum { ByIndex, BySerial, ByIp } selMode = ByIndex;
  uint32_t selSerial = 0;
  int selIndex = 0;
  std::string selHost;
  uint32_t openSerial = 0;
  uint32_t speedKHz = 4000;
  long transfers = 0;
  uint64_t bytesOut = 0, bytesIn = 0;
  TARLO_LOG_FUNC errorOut = nullptr;
  TARLO_LOG_FUNC openErrorOut = nullptr;
  TextSink trace, log;
  std::vector<uint8_t> fileTail;  // bytes of a longer contents file beyond the chip
  std::string openError;
  std::string goneFaults;
  bool atexitSet = false;
  int flashFd = -1;  // the contents file, open and locked while the probe is open

  void Configure() {
    cfg = ReadConfig();
    configured = true;
  }
  void Report(const char* text) {
    TARLO_LOG_FUNC h = openErrorOut ? openErrorOut : errorOut;
    log.Line("ERROR: %s", text);
    if (h) h(text);
  }
};

Probe& P() {
  static Probe* p = new Probe;  // never destroyed: exit handlers still use it
  return *p;
}

std::string Reason(int e) { return std::strerror(e); }

void MakeParentDirs(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return;
  const std::string dir = path.substr(0, slash);
  for (size_t i = 1; i <= dir.size(); i++)
    if (i == dir.size() || dir[i] == '/') ::mkdir(dir.substr(0, i).c_str(), 0755);
}

void ReleaseContents(Probe& p) {
  if (p.flashFd >= 0) ::close(p.flashFd);
  p.flashFd = -1;
}

// The simulated probe is one device: its contents file stays open and locked
// (flock, held by the kernel for the open file, so a killed process leaves
// no lock behind) for as long as the probe is open. Another process that
// opens the probe meanwhile is refused instead of writing over our changes.
// `created`: the file did not exist and is ours, still empty.
bool LockContents(Probe& p, bool& created, std::string& err) {
  const std::string& path = p.cfg.flashPath;
  for (int attempt = 0; attempt < 16; attempt++) {
    created = false;
    // Non-blocking, so a FIFO named as the contents file cannot hang us.
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
      MakeParentDirs(path);
      fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
      if (fd < 0 && errno == EEXIST) {
        struct stat ls{};
        if (::lstat(path.c_str(), &ls) == 0 && S_ISLNK(ls.st_mode)) {
          err = "Cannot create the flash contents file " + path + ": it is a link to a missing file";
          return false;
        }
        continue;  // someone else made it just now
      }
      if (fd < 0) {
        err = "Cannot create the flash contents file " + path + ": " + Reason(errno);
        return false;
      }
      created = true;
    }
    if (fd < 0) {
      err = "Cannot read the flash contents file " + path + ": " + Reason(errno);
      return false;
    }
    struct stat st{};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      const bool dir = S_ISDIR(st.st_mode);
      ::close(fd);
      err = "Cannot read the flash contents file " + path + ": " + (dir ? Reason(EISDIR) : "not a regular file");
      return false;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const int e = errno;
      ::close(fd);
      if (e == EWOULDBLOCK)
        err = "Cannot connect to the probe: the probe is in use by another program (its flash contents file " +
              path + " is locked).";
      else
        err = "Cannot lock the flash contents file " + path + ": " + Reason(e);
      return false;
    }
    // The holder before us may have written its file back (renamed a new one
    // over it) between our open and our lock: then start again on the new one.
    struct stat now{};
    if (::stat(path.c_str(), &now) != 0 || now.st_dev != st.st_dev || now.st_ino != st.st_ino) {
      ::close(fd);
      continue;
    }
    ::fcntl(fd, F_SETFL, 0);
    p.flashFd = fd;
    return true;
  }
  err = "Cannot open the flash contents file " + path + ": it keeps being replaced";
  return false;
}

// Reads up to n bytes at offset; false on a read error (errno set).
bool ReadAt(int fd, uint8_t* to, size_t n, uint64_t offset, size_t& got) {
  got = 0;
  while (got < n) {
    const ssize_t r = ::pread(fd, to + got, n - got, static_cast<off_t>(offset + got));
    if (r < 0 && errno == EINTR) continue;
    if (r < 0) return false;
    if (r == 0) break;
    got += static_cast<size_t>(r);
  }
  return true;
}

bool WriteAll(int fd, const std::vector<uint8_t>& v) {
  size_t done = 0;
  while (done < v.size()) {
    const ssize_t w = ::write(fd, v.data() + done, v.size() - done);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) {
      if (w == 0) errno = EIO;
      return false;
    }
    done += static_cast<size_t>(w);
  }
  return true;
}

// Loads the chip from the locked contents file; a new file is filled erased
// at once, so that it exists with its full size from the first open.
bool LoadContents(Probe& p, uint32_t size, bool created, std::string& err) {
  std::vector<uint8_t>& mem = p.chip.Mem();
  mem.assign(size, 0xFF);
  p.fileTail.clear();
  const std::string& path = p.cfg.flashPath;
  const int fd = p.flashFd;
  if (created) {
    if (!WriteAll(fd, mem)) {
      err = "Cannot create the flash contents file " + path + ": " + Reason(errno);
      ::unlink(path.c_str());
      return false;
    }
    p.chip.ClearDirty();
    return true;
  }
  struct stat st{};
  size_t got = 0;
  if (::fstat(fd, &st) != 0 || !ReadAt(fd, mem.data(), size, 0, got)) {
    err = "Cannot read the flash contents file " + path + ": " + Reason(errno);
    return false;
  }
  if (static_cast<uint64_t>(st.st_size) > size) {
    // A longer file keeps its tail untouched; the chip uses the first part.
    p.fileTail.resize(static_cast<size_t>(st.st_size) - size);
    size_t t = 0;
    if (!ReadAt(fd, p.fileTail.data(), p.fileTail.size(), size, t)) {
      err = "Cannot read the flash contents file " + path + ": " + Reason(errno);
      return false;
    }
    p.fileTail.resize(t);
  }
  p.chip.ClearDirty();
  return true;
}

// Written to a temporary file and renamed, so a crash never leaves a torn
// file. On failure `err` says why; the file keeps what it held before.
bool SaveContents(Probe& p, std::string& err) {
  const std::string& path = p.cfg.flashPath;
  std::string tmp = path + ".tmp" + std::to_string(getpid());
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  int e = 0;
  if (fd < 0) {
    e = errno;
  } else {
    if (!WriteAll(fd, p.chip.Mem()) || !WriteAll(fd, p.fileTail)) e = errno;
    if (::close(fd) != 0 && e == 0) e = errno;
    if (e == 0 && std::rename(tmp.c_str(), path.c_str()) != 0) e = errno;
    if (e != 0) ::unlink(tmp.c_str());
  }
  if (e == 0) return true;
  err = "Cannot write back the flash contents file " + path + ": " + Reason(e) +
        ". The chip's changes since the probe was opened are lost.";
  return false;
}

void WriteStats(Probe& p) {
  if (p.cfg.statsPath.empty()) return;
  ChipStats& s = p.chip.Stats();
  const uint64_t bus = p.chip.ClockNs();
  const uint64_t model = p.chip.GetTiming() == Timing::Model ? bus : bus + s.busyNs;
  std::string tmp = p.cfg.statsPath + ".tmp" + std::to_string(getpid());
  FILE* f = std::fopen(tmp.c_str(), "w");
  if (!f) return;
  std::fprintf(f,
               "{\"frames\": %llu, \"bytes_out\": %llu, \"bytes_in\": %llu, \"page_programs\": %llu, "
               "\"sector_erases\": %llu, \"chip_erases\": %llu, \"status_reads\": %llu, "
               "\"bus_ns\": %llu, \"busy_ns\": %llu, \"model_ns\": %llu}\n",
               (unsigned long long)s.frames, (unsigned long long)p.bytesOut, (unsigned long long)p.bytesIn,
               (unsigned long long)s.pagePrograms, (unsigned long long)s.sectorErases,
               (unsigned long long)s.chipErases, (unsigned long long)s.statusReads,
               (unsigned long long)bus, (unsigned long long)s.busyNs, (unsigned long long)model);
  bool ok = std::fclose(f) == 0;
  if (ok) std::rename(tmp.c_str(), p.cfg.statsPath.c_str());
  else std::remove(tmp.c_str());
}

void EndFrame(Probe& p) {
  if (!p.chip.Selected()) return;
  p.chip.Release();
  const auto& fr = p.chip.Frame();
  if (!fr.empty()) p.trace.HexLine(fr.data(), fr.size());
}

// atExit: the process is ending, so the program's error handler may no
// longer be usable; a failed write-back then goes to standard error.
void CloseLocked(Probe& p, bool atExit = false) {
  if (!p.open) return;
  EndFrame(p);
  if (p.disablePowerOnClose && p.powerOn) p.trace.Line("# target power off");
  p.trace.Line("# close");
  if (p.chip.Dirty()) {
    std::string err;
    if (!SaveContents(p, err)) {
      p.trace.Line("# write-back failed");
      if (atExit) {
        p.log.Line("ERROR: %s", err.c_str());
        std::fprintf(stderr, "%s\n", err.c_str());
      } else {
        p.Report(err.c_str());
      }
    }
    p.chip.ClearDirty();
  }
  ReleaseContents(p);
  WriteStats(p);
  p.trace.Close();
  p.open = false;
  if (p.disablePowerOnClose) p.powerOn = false;
  p.disablePowerOnClose = false;
  p.openErrorOut = nullptr;
}

void AtExit() {
  Probe& p = P();
  std::lock_guard<std::recursive_mutex> g(p.mu);
  CloseLocked(p, true);
  p.log.Close();
}

// A call that needs the probe: false (and one report) once it is unplugged.
bool Alive(Probe& p) {
  if (!p.open) return false;
  if (p.gone) {
    if (!p.dropReported) {
      p.dropReported = true;
      p.Report("Communication error: the probe does not respond (USB connection lost)");
    }
    return false;
  }
  return true;
}

// Counts a transfer toward drop@N; true when this one is already too many.
bool CountTransfer(Probe& p) {
  if (p.cfg.dropAfter >= 0 && p.transfers >= p.cfg.dropAfter) {
    if (!p.gone) p.trace.Line("# probe lost");
    p.gone = true;
    p.goneFaults = Env("TARLOSIM_FAULT", "");
    return true;
  }
  p.transfers++;
  return false;
}

int DoTransfer(Probe& p, const uint8_t* out, uint8_t* in, uint32_t numBits, uint32_t flags) {
  const uint32_t n = (numBits + 7) / 8;
  if (flags & TARLO_SPI_FLAG_BEGIN) {
    if (!p.chip.Selected()) p.chip.Select();
  }
  p.bytesOut += n;
  if (in) p.bytesIn += n;
  if (p.chip.Selected()) {
    p.chip.Clock(out, in, n);
  } else {
    // Nobody drives MISO while chip select is released.
    p.chip.AdvanceBus(n);
    if (in) std::memset(in, 0xFF, n);
    if (n) p.trace.Line("# %u bytes clocked with chip select released", n);
  }
  if (flags & (TARLO_SPI_FLAG_END & ~TARLO_SPI_FLAG_BEGIN)) EndFrame(p);
  return static_cast<int>(n);
}

int Batch(TARLO_SPI_JOB* jobs, int numJobs) {
  Probe& p = P();
  std::lock_guard<std::recursive_mutex> g(p.mu);
  p.log.Line("TARLO_SPI_Batch(%d jobs)", numJobs);
  if (!Alive(p)) return -1;
  if (p.cfg.batchNoMem) return TARLO_ERR_NOMEM;
  if (p.cfg.batchUnsupported) return TARLO_ERR_UNSUPPORTED;
  if (numJobs < 0 || (numJobs > 0 && !jobs)) return -1;
  for (int i = 0; i < numJobs; i++) {
    TARLO_SPI_JOB& j = jobs[i];
    if (CountTransfer(p)) {
      Alive(p);
      return -1;
    }
    if (j.Type == TARLO_SPI_JOB_TRANSFER) {
      DoTransfer(p, j.pOut, j.pIn, j.NumBits, j.Flags);
      j.Result = j.pOut ? static_cast<int32_t>((j.NumBits + 7) / 8) : 0;
      continue;
    }
    if (j.Type != TARLO_SPI_JOB_POLL || !j.pParam || j.ParamSize < sizeof(TARLO_SPI_POLL)) {
      j.Result = TARLO_ERR_UNSUPPORTED;
      EndFrame(p);
      return 0;
    }
    TARLO_SPI_POLL poll;
    std::memcpy(&poll, j.pParam, sizeof poll);
    const uint32_t n = (j.NumBits + 7) / 8;
    std::vector<uint8_t> scratch(j.pIn ? 0 : n);
    uint8_t* in = j.pIn ? j.pIn : scratch.data();
    // Repeated inside one chip-select frame: the status register streams out.
    if ((j.Flags & TARLO_SPI_FLAG_BEGIN) && !p.chip.Selected()) p.chip.Select();
    bool met = false;
    uint32_t reps = 0;
    while (reps < poll.MaxRepeat && !met) {
      DoTransfer(p, j.pOut, in, j.NumBits, 0);
      reps++;
      uint32_t v = 0;
      for (uint32_t k = 0; k < n && k < 4; k++) v |= static_cast<uint32_t>(in[k]) << (8 * k);
      met = (v & poll.Mask) == poll.Expected;
    }
    if (j.Flags & (TARLO_SPI_FLAG_END & ~TARLO_SPI_FLAG_BEGIN)) EndFrame(p);
    if (!met) {
      // The probe gives up the batch at the first job that fails.
      j.Result = kPollTimeout;
      EndFrame(p);
      return 0;
    }
    j.Result = static_cast<int32_t>(reps);
  }
  return 0;
}

}  // namespace
}  // namespace tarlosim

using tarlosim::P;
using tarlosim::Probe;

namespace {
struct Guard {
  Probe& p;
  std::lock_guard<std::recursive_mutex> g;
  Guard() : p(P()), g(p.mu) {}
};
}  // namespace

TS_EXPORT uint32_t TARLOARM_GetDLLVersion(void) {
  Guard g;
  g.p.log.Line("TARLOARM_GetDLLVersion() returns %u", tarlosim::kVersion);
  return tarlosim::kVersion;
}

TS_EXPORT const char* TARLOARM_GetCompileDateTime(void) {
  Guard g;
  g.p.log.Line("TARLOARM_GetCompileDateTime() returns \"%s\"", tarlosim::kCompileDate);
  return tarlosim::kCompileDate;
}

TS_EXPORT void TARLOARM_SetErrorOutHandler(TARLO_LOG_FUNC handler) {
  Guard g;
  g.p.errorOut = handler;
  g.p.log.Line("TARLOARM_SetErrorOutHandler(%s)", handler ? "handler" : "NULL");
}

TS_EXPORT int TARLOARM_ExecCommand(const char* command, char* out, int outSize) {
  Guard g;
  Probe& p = g.p;
  if (out && outSize > 0) out[0] = 0;
  std::string c = command ? command : "";
  std::string flat;
  for (char ch : c)
    if (ch != ' ' && ch != '\t') flat += ch;
  int rc = 0;
  if (flat == "SuppressEmuUSBDialog" || flat == "SupressInfoUpdateFW" || flat == "SilentUpdateFW") {
  } else if (flat.rfind("SupplyPower=", 0) == 0) {
    p.powerOn = std::atoi(flat.c_str() + 12) != 0;
    p.trace.Line("# target power %s", p.powerOn ? "on" : "off");
  } else if (flat == "DisablePowerSupplyOnClose") {
    p.disablePowerOnClose = true;
  } else {
    rc = -1;
    if (out && outSize > 0) std::snprintf(out, static_cast<size_t>(outSize), "Unknown command \"%s\"", c.c_str());
  }
  p.log.Line("TARLOARM_ExecCommand(\"%s\") returns %d", c.c_str(), rc);
  return rc;
}

TS_EXPORT void TARLOARM_SetLogFile(const char* path) {
  Guard g;
  g.p.log.Close();
  if (path && *path) g.p.log.Open(path);
  g.p.log.Line("TARLOARM_SetLogFile(\"%s\")", path ? path : "");
  if (!g.p.atexitSet) {
    g.p.atexitSet = true;
    std::atexit(tarlosim::AtExit);
  }
}

TS_EXPORT int TARLOARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  Guard g;
  Probe& p = g.p;
  p.Configure();
  // With a bad setting the selection is taken, so that the open which
  // follows reports the setting rather than a missing serial number.
  int rc = p.cfg.error.empty() ? -1 : 0;
  for (uint32_t s : p.cfg.serials)
    if (s == serialNumber) rc = 0;
  if (rc == 0) {
    p.selMode = Probe::BySerial;
    p.selSerial = serialNumber;
  }
  p.log.Line("TARLOARM_EMU_SelectByUSBSN(%u) returns %d", serialNumber, rc);
  return rc;
}

TS_EXPORT int TARLOARM_SelectIP(const char* host, int port) {
  Guard g;
  g.p.selMode = Probe::ByIp;
  g.p.selHost = host ? host : "";
  g.p.log.Line("TARLOARM_SelectIP(\"%s\", %d) returns 0", g.p.selHost.c_str(), port);
  return 0;
}

TS_EXPORT void TARLOARM_SelectUSB(int index) {
  Guard g;
  g.p.selMode = Probe::ByIndex;
  g.p.selIndex = index;
  g.p.log.Line("TARLOARM_SelectUSB(%d)", index);
}

TS_EXPORT const char* TARLOARM_OpenEx(TARLO_LOG_FUNC logHandler, TARLO_LOG_FUNC errorHandler) {
  (void)logHandler;
  Guard g;
  Probe& p = g.p;
  using namespace tarlosim;
  if (!p.atexitSet) {
    p.atexitSet = true;
    std::atexit(AtExit);
  }
  CloseLocked(p);
  p.Configure();
  // An unplugged probe stays away until the fault set changes (plugged in again).
  const std::string faults = tarlosim::Env("TARLOSIM_FAULT", "");
  if (p.gone && faults != p.goneFaults) {
    p.gone = p.dropReported = false;
    p.transfers = 0;
  }
  const Config& c = p.cfg;
  const char* err = nullptr;
  p.openError.clear();
  if (!c.error.empty()) {
    p.openError = c.error;
  } else if (p.gone || c.serials.empty()) {
    p.openError = "Cannot connect to the probe: no probe found on USB.";
  } else if (p.selMode == Probe::BySerial) {
    bool found = false;
    for (uint32_t s : c.serials) found = found || s == p.selSerial;
    if (found) p.openSerial = p.selSerial;
    else p.openError = "Cannot connect to the probe: no probe with serial number " + std::to_string(p.selSerial) + " found.";
  } else if (p.selMode == Probe::ByIp) {
    if (c.ipUnreachable || p.selHost.empty()) p.openError = "Cannot connect to the probe at \"" + p.selHost + "\": host unreachable.";
    else p.openSerial = c.serials[0];
  } else {
    if (p.selIndex >= 0 && static_cast<size_t>(p.selIndex) < c.serials.size()) p.openSerial = c.serials[static_cast<size_t>(p.selIndex)];
    else p.openError = "Cannot connect to the probe: no probe at USB index " + std::to_string(p.selIndex) + ".";
  }
  bool created = false;
  if (p.openError.empty() && LockContents(p, created, p.openError)) {
    std::vector<uint8_t> id = c.id;
    Profile prof = FindProfile(c.chipHex, id);
    if (c.sizeOverride) prof.size = c.sizeOverride;
    if (LoadContents(p, prof.size, created, p.openError)) {
      p.chip.PowerUp(prof, id, c.timing, c.faults);
      p.chip.SetSpeedKHz(p.speedKHz);
    } else {
      ReleaseContents(p);
    }
  }
  if (!p.openError.empty()) {
    err = p.openError.c_str();
  } else {
    p.open = true;
    p.openErrorOut = errorHandler;
    p.trace.Open(c.tracePath);
    p.trace.Line("# open probe S/N %u", p.openSerial);
  }
  p.log.Line("TARLOARM_OpenEx() returns %s%s%s", err ? "\"" : "NULL", err ? err : "", err ? "\"" : "");
  return err;
}

TS_EXPORT void TARLOARM_TIF_GetAvailable(uint32_t* mask) {
  Guard g;
  if (!g.p.configured) g.p.Configure();
  uint32_t m = (1u << 0) | (1u << 1) | (g.p.cfg.noSpi ? 0 : 1u << tarlosim::kSpiInterface);
  if (mask) *mask = m;
  g.p.log.Line("TARLOARM_TIF_GetAvailable() mask 0x%.8X", m);
}

TS_EXPORT int TARLOARM_TIF_Select(int interfaceNo) {
  Guard g;
  int rc = (interfaceNo == tarlosim::kSpiInterface && !g.p.cfg.noSpi) || interfaceNo == 0 || interfaceNo == 1 ? 0 : -1;
  if (!tarlosim::Alive(g.p)) rc = -1;
  g.p.trace.Line("# interface %d", interfaceNo);
  g.p.log.Line("TARLOARM_TIF_Select(%d) returns %d", interfaceNo, rc);
  return rc;
}

TS_EXPORT void TARLOARM_SetSpeed(uint32_t speedKHz) {
  Guard g;
  g.p.speedKHz = speedKHz ? speedKHz : 4000;
  g.p.chip.SetSpeedKHz(g.p.speedKHz);
  g.p.trace.Line("# speed %u kHz", speedKHz);
  g.p.log.Line("TARLOARM_SetSpeed(%u kHz)", speedKHz);
}

TS_EXPORT int TARLOARM_GetHWStatus(TARLO_HW_STATUS* status) {
  Guard g;
  Probe& p = g.p;
  int rc = tarlosim::Alive(p) && status ? 0 : -1;
  int v = p.cfg.vtarget;
  if (p.powerOn && v < 1000) v = 3300;
  if (v < 0) v = 0;
  if (v > 65535) v = 65535;
  if (rc == 0) {
    std::memset(status, 0, sizeof *status);
    status->VTarget = static_cast<uint16_t>(v);
    status->tms = p.chip.Selected() ? 0 : 1;
    status->tres = 0;
  }
  p.log.Line("TARLOARM_GetHWStatus() returns %d, VTarget = %d mV", rc, rc == 0 ? v : 0);
  return rc;
}

TS_EXPORT int TARLOARM_GetSN(void) {
  Guard g;
  int sn = g.p.open ? static_cast<int>(g.p.openSerial) : -1;
  g.p.log.Line("TARLOARM_GetSN() returns %d", sn);
  return sn;
}

TS_EXPORT void TARLOARM_ClrRESET(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) g.p.trace.Line("# reset low");
  g.p.log.Line("TARLOARM_ClrRESET()");
}

TS_EXPORT void TARLOARM_SetRESET(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) g.p.trace.Line("# reset high");
  g.p.log.Line("TARLOARM_SetRESET()");
}

// TMS drives the chip select: low selects the chip.
TS_EXPORT void TARLOARM_SetTMS(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) {
    tarlosim::EndFrame(g.p);
    g.p.trace.Line("# TMS high");
  }
  g.p.log.Line("TARLOARM_SetTMS()");
}

TS_EXPORT void TARLOARM_ClrTMS(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) {
    g.p.trace.Line("# TMS low");
    if (!g.p.chip.Selected()) g.p.chip.Select();
  }
  g.p.log.Line("TARLOARM_ClrTMS()");
}

TS_EXPORT void TARLOARM_Close(void) {
  Guard g;
  g.p.log.Line("TARLOARM_Close()");
  tarlosim::CloseLocked(g.p);
  g.p.log.Flush();
}

TS_EXPORT int TARLO_SPI_Transfer(const uint8_t* dataOut, uint8_t* dataIn, uint32_t numBits, uint32_t flags) {
  Guard g;
  Probe& p = g.p;
  int rc = -1;
  if (tarlosim::Alive(p)) {
    if (tarlosim::CountTransfer(p)) tarlosim::Alive(p);
    else rc = tarlosim::DoTransfer(p, dataOut, dataIn, numBits, flags);
  }
  if (p.log.On()) {
    // The first bytes each way make the log readable without flooding it.
    auto hex = [](const uint8_t* d, uint32_t bits) {
      std::string t;
      const uint32_t n = (bits + 7) / 8;
      for (uint32_t i = 0; d && i < n && i < 16; i++) {
        char b[4];
        std::snprintf(b, sizeof b, " %.2X", d[i]);
        t += b;
      }
      if (d && n > 16) t += " ...";
      return t.empty() ? std::string(" -") : t;
    };
    p.log.Line("TARLO_SPI_Transfer(NumBits = %u, Flags = %u) returns %d; out:%s; in:%s", numBits, flags, rc,
               hex(dataOut, numBits).c_str(), hex(rc >= 0 ? dataIn : nullptr, numBits).c_str());
  }
  return rc;
}

TS_EXPORT void* TARLO_GetpFunc(int index) {
  Guard g;
  if (!g.p.configured) g.p.Configure();
  void* f = index == 1 && !g.p.cfg.noBatch ? reinterpret_cast<void*>(&tarlosim::Batch) : nullptr;
  g.p.log.Line("TARLO_GetpFunc(%d) returns %s", index, f ? "function" : "NULL");
  return f;
}

TS_EXPORT void TARLOARM_INDICATORS_SetState(int count, const TARLO_INDICATOR_STATE* states) {
  Guard g;
  for (int i = 0; states && i < count; i++)
    g.p.log.Line("TARLOARM_INDICATORS_SetState(#%u: Override = %u, Rate = %u)", states[i].Index,
                 states[i].Override, states[i].Rate);
}
