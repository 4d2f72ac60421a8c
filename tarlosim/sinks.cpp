// The contents and stats files.
#include "tarlosim/sinks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "tarlosim/probe.h"

namespace tarlosim {

namespace {

std::string Reason(int e) { return std::strerror(e); }

void MakeParentDirs(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return;
  const std::string dir = path.substr(0, slash);
  for (size_t i = 1; i <= dir.size(); i++)
    if (i == dir.size() || dir[i] == '/') ::mkdir(dir.substr(0, i).c_str(), 0755);
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

// Opens the file, or creates it when it does not exist: the descriptor, or
// -1 with err set; -2 when someone else created it meanwhile (try again).
int OpenOrCreate(const std::string& path, bool& created, std::string& err) {
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
        return -1;
      }
      return -2;
    }
    if (fd < 0) {
      err = "Cannot create the flash contents file " + path + ": " + Reason(errno);
      return -1;
    }
    created = true;
  }
  if (fd < 0) {
    err = "Cannot read the flash contents file " + path + ": " + Reason(errno);
    return -1;
  }
  return fd;
}

}  // namespace

void ReleaseContents(Probe& p) {
  if (p.flashFd >= 0) ::close(p.flashFd);
  p.flashFd = -1;
}

// The simulated probe is one device: its contents file stays open and locked
// (flock, held by the kernel for the open file, so a killed process leaves
// no lock behind) for as long as the probe is open. Another process that
// opens the probe meanwhile is refused instead of writing over our changes.
bool LockContents(Probe& p, bool& created, std::string& err) {
  const std::string& path = p.cfg.flashPath;
  for (int attempt = 0; attempt < 16; attempt++) {
    const int fd = OpenOrCreate(path, created, err);
    if (fd == -2) continue;  // someone else made it just now
    if (fd < 0) return false;
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

}  // namespace tarlosim
