// Files opened by access/creation/sharing flags, paths, the program's own
// location and checked allocation.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "sys/sys.h"
#include "util/util.h"

namespace {

constexpr int kTraceInfo = 1;
constexpr int kMaxDirDepth = 128;
constexpr int kMaxLinkHops = 64;   // a link cycle must not hang the program
// Error number of a read open that found no regular file (a FIFO, device or
// directory). The open messages of the data-file readers and of the settings
// stores know a few numbers; this is none of them in any of their tables,
// so every caller reports it as an invalid file handle.
constexpr int kNotRegularFile = EBADF;

int OpenOnce(const char* path, uint32_t flags) {
  int oflags = O_CLOEXEC;
  switch (flags & 3u) {
    case 2: oflags |= O_WRONLY; break;
    case 3: oflags |= O_RDWR; break;
    default: oflags |= O_RDONLY; break;
  }
  const bool create = (flags & SYS_FILE_FLAG_CREATE) != 0;
  const bool trunc = (flags & SYS_FILE_FLAG_TRUNC) != 0;
  if (create && (flags & SYS_FILE_FLAG_EXCL) != 0) {
    oflags |= O_CREAT | O_EXCL;
  } else if (create && trunc) {
    oflags |= O_CREAT | O_TRUNC;
  } else if (create) {
    oflags |= O_CREAT;
  } else if (trunc) {
    oflags |= O_TRUNC;
  }
  const bool reading = (flags & 3u) <= 1u;
  if (reading) {
    // Only regular files are read: opening a FIFO must not wait for a writer,
    // and a device or directory must not be read as if it were data.
    oflags |= O_NONBLOCK;
  }
  int fd = open(path, oflags, 0644);
  if (fd < 0) {
    return -1;
  }
  if (reading) {
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      close(fd);
      errno = kNotRegularFile;
      return -1;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  }
  const bool forWriting = (flags & SYS_FILE_FLAG_WRITE) != 0;
  const bool shared = (flags & (SYS_FILE_FLAG_SHARE_READ | SYS_FILE_FLAG_SHARE_WRITE)) != 0;
  if (forWriting && !shared) {
    // Exclusive writers hold a write lock over the whole file, so a second
    // process asking for the same gets refused instead of interleaving.
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0;
    if (fcntl(fd, F_SETLK, &lock) != 0) {
      int err = errno;
      close(fd);
      errno = err;
      return -1;
    }
  }
  return fd;
}

// Length of the directory part of a path (up to, not including, the last
// '/'), or -1 when it has no '/'.
int LastSlash(std::string_view path) {
  size_t pos = path.rfind('/');
  return pos == std::string_view::npos ? -1 : static_cast<int>(pos);
}

// Copies `part` into a caller buffer; a part that doesn't fit gives "".
void PutPart(char* out, int size, std::string_view part) {
  if (out == nullptr || size < 1) {
    return;
  }
  if (static_cast<int>(part.size()) >= size) {
    out[0] = '\0';
    return;
  }
  if (!part.empty()) {
    std::memcpy(out, part.data(), part.size());
  }
  out[part.size()] = '\0';
}

int g_dirDepth = 0;  // shared by the recursion of SYS_CreateDirRecursive

int CreateDirImpl(const char* path);

// A link in the path: the directory it points to must exist, made if need be.
int CreateDirThroughLink(const char* cur) {
  char target[513];
  ssize_t n = readlink(cur, target, 512);
  if (n <= 0) {
    return -1;
  }
  target[n] = '\0';
  if (target[0] == '/') {
    return CreateDirImpl(target);
  }
  // A relative target counts from the link's own directory.
  char dir[1024];
  char full[1024];
  int slash = LastSlash(cur);
  if (slash < 0) {
    dir[0] = '\0';
  } else {
    PutPart(dir, sizeof dir, std::string_view(cur, static_cast<size_t>(slash == 0 ? 1 : slash)));
  }
  SYS_MakePath(full, sizeof full, dir, target);
  return CreateDirImpl(full);
}

int CreateDirImpl(const char* path) {
  if (g_dirDepth >= kMaxDirDepth) {
    return -1;
  }
  struct DepthGuard {
    DepthGuard() { ++g_dirDepth; }
    ~DepthGuard() { --g_dirDepth; }
  } guard;

  char cur[1024];
  UTIL_strcpy(cur, path, sizeof cur);
  // "a/b/" names the same directory as "a/b".
  int len = UTIL_strlen(cur);
  while (len > 1 && cur[len - 1] == '/') {
    cur[--len] = '\0';
  }
  if (len == 0) {
    return -1;
  }
  struct stat st;
  if (lstat(cur, &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      return 0;
    }
    if (S_ISLNK(st.st_mode)) {
      return CreateDirThroughLink(cur);
    }
    return -1;
  }
  if (errno != ENOENT) {
    return -1;
  }
  int slash = LastSlash(cur);
  if (slash > 0) {
    char parent[1024];
    PutPart(parent, sizeof parent, std::string_view(cur, static_cast<size_t>(slash)));
    if (CreateDirImpl(parent) != 0) {
      return -1;
    }
  }
  if (mkdir(cur, 0777) != 0) {
    // Someone else may have made it in the meantime.
    if (errno == EEXIST && stat(cur, &st) == 0 && S_ISDIR(st.st_mode)) {
      return 0;
    }
    return -1;
  }
  return 0;
}

// Home directory: HOME, else the account entry. Empty when neither.
const char* HomeDir() {
  const char* home = getenv("HOME");
  if (home != nullptr) {
    return home;
  }
  struct passwd* pw = getpwuid(getuid());
  if (pw != nullptr && pw->pw_dir != nullptr) {
    return pw->pw_dir;
  }
  return nullptr;
}

// Follows the program's own module path through symbolic links (including a
// bare command name that is a link in /usr/bin) to the real file.
void ResolveModulePath(char* result, int size) {
  if (result == nullptr || size < 1) {
    return;
  }
  result[0] = '\0';
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ResolveModulePath), &info) == 0 || info.dli_fname == nullptr) {
    return;
  }
  char path[2048];
  char buf[2048];
  UTIL_strcpy(path, info.dli_fname, sizeof path);
  SYS_Trace(kTraceInfo, "Initial module path: %s\n", path);
  SYS_Trace(kTraceInfo, "Initial module path: Check for potential global symlink\n");
  if (std::strchr(path, '/') == nullptr) {
    SYS_Trace(kTraceInfo, "Potential global symlink\n");
    char global[2048];
    UTIL_snprintf(global, sizeof global, "/usr/bin/%s", path);
    ssize_t n = readlink(global, buf, sizeof buf - 1);
    if (n > 0) {
      buf[n] = '\0';
      SYS_Trace(kTraceInfo, "Global symlink\n");
      UTIL_strcpy(path, buf, sizeof path);
    }
  } else {
    SYS_Trace(kTraceInfo, "Not a global symlink\n");
  }
  for (int hop = 0; hop < kMaxLinkHops; ++hop) {
    SYS_Trace(kTraceInfo, "Resolving potential symlink: %s\n", path);
    ssize_t n = readlink(path, buf, sizeof buf - 1);
    if (n <= 0) {
      break;
    }
    buf[n] = '\0';
    if (buf[0] == '/') {
      UTIL_strcpy(path, buf, sizeof path);
    } else {
      char dir[2048];
      SYS_SplitPath(path, nullptr, 0, dir, sizeof dir, nullptr, 0, nullptr, 0);
      if (dir[0] == '\0' && path[0] == '/') {
        UTIL_strcpy(dir, "/", sizeof dir);
      }
      char joined[2048];
      SYS_MakePath(joined, sizeof joined, dir, buf);
      UTIL_strcpy(path, joined, sizeof path);
    }
    SYS_Trace(kTraceInfo, "Resolved symlink to: %s\n", path);
  }
  UTIL_strcpy(result, path, size < 512 ? size : 512);
}

}  // namespace

// ---------------------------------------------------------------- files

int SYS_FILE_Open(const char* path, uint32_t flags, int retries, uint32_t retryDelayMs) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int fd;
  for (;;) {
    fd = OpenOnce(path, flags);
    if (fd >= 0) {
      break;
    }
    if (retries <= 0) {
      return -1;
    }
    --retries;
    if (retryDelayMs != 0) {
      int err = errno;
      SYS_Sleep(retryDelayMs);
      errno = err;
    }
  }
  if ((flags & SYS_FILE_FLAG_APPEND) != 0) {
    lseek(fd, 0, SEEK_END);
  }
  return fd;
}

int SYS_FILE_OpenSimple(const char* path, uint32_t flags) { return SYS_FILE_Open(path, flags, 0, 0); }

int SYS_FILE_OpenEx(const char* path, uint32_t flags) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  char full[512];
  if (path[0] == '~') {
    const char* home = HomeDir();
    if (home == nullptr) {
      errno = ENOENT;
      return -1;
    }
    UTIL_snprintf(full, sizeof full, "%s%s", home, path + 1);
  } else {
    UTIL_strcpy(full, path, sizeof full);
  }
  if ((flags & SYS_FILE_FLAG_CREATE) != 0) {
    char dir[512];
    char name[512];
    SYS_SplitPath(full, nullptr, 0, dir, sizeof dir, name, sizeof name, nullptr, 0);
    if (dir[0] == '\0' && name[0] == '\0') {
      errno = EINVAL;
      return -1;
    }
    if (dir[0] != '\0' && SYS_CreateDirRecursive(dir) != 0) {
      return -1;
    }
  }
  return SYS_FILE_Open(full, flags, 0, 0);
}

int SYS_FILE_Read(int fd, void* buffer, uint32_t numBytes) {
  return static_cast<int>(read(fd, buffer, numBytes));
}

int SYS_FILE_Write(int fd, const void* buffer, uint32_t numBytes) {
  return static_cast<int>(write(fd, buffer, numBytes));
}

void SYS_FILE_Close(int fd) {
  if (fd >= 0) {
    close(fd);
  }
}

uint32_t SYS_FILE_GetSize(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0) {
    return 0;
  }
  return static_cast<uint32_t>(st.st_size);
}

uint64_t SYS_FILE_GetSize64(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0 || st.st_size < 0) {
    return 0;
  }
  return static_cast<uint64_t>(st.st_size);
}

int SYS_FILE_Exists(const char* path) {
  if (path == nullptr) {
    return 0;
  }
  // Non-blocking: asking whether a FIFO exists must not wait for a writer.
  int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    return 0;
  }
  close(fd);
  return 1;
}

int SYS_FILE_IsReadOnly(const char* path) {
  if (path == nullptr) {
    return 0;
  }
  struct stat st;
  if (stat(path, &st) != 0) {
    return -1;
  }
  if (!S_ISREG(st.st_mode)) {
    return 0;
  }
  return (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 ? 1 : 0;
}

int SYS_GetLastError(void) { return errno; }

// ---------------------------------------------------------------- paths

void SYS_SplitPath(const char* path, char* drive, int driveSize, char* dir, int dirSize, char* name,
                   int nameSize, char* ext, int extSize) {
  std::string_view p = path != nullptr ? std::string_view(path) : std::string_view();
  PutPart(drive, driveSize, {});  // no drives on this platform
  int slash = LastSlash(p);
  // The extension starts at the last dot, unless that dot begins the path or
  // the file name, or a '/' follows it.
  size_t dot = p.rfind('.');
  std::string_view extension;
  if (dot != std::string_view::npos && dot != 0 && p[dot - 1] != '/' &&
      (slash < 0 || static_cast<size_t>(slash) < dot)) {
    extension = p.substr(dot);
    p = p.substr(0, dot);
  }
  if (slash >= 0) {
    PutPart(dir, dirSize, p.substr(0, static_cast<size_t>(slash)));
    PutPart(name, nameSize, p.substr(static_cast<size_t>(slash) + 1));
  } else {
    PutPart(dir, dirSize, {});
    PutPart(name, nameSize, p);
  }
  PutPart(ext, extSize, extension);
}

void SYS_MakePath(char* result, int resultSize, const char* dir, const char* name) {
  if (result == nullptr || resultSize < 1) {
    return;
  }
  if (dir == nullptr) dir = "";
  if (name == nullptr) name = "";
  int dirLen = UTIL_strlen(dir);
  const char* sep = (dirLen == 0 || dir[dirLen - 1] == '/') ? "" : "/";
  UTIL_snprintf(result, resultSize, "%s%s%s", dir, sep, name);
}

void SYS_GetFileName(const char* path, char* result, int size) {
  char name[512];
  SYS_SplitPath(path, nullptr, 0, nullptr, 0, name, sizeof name, nullptr, 0);
  PutPart(result, size, name);
}

void SYS_GetFileExt(const char* path, char* result, int size) {
  char ext[512];
  SYS_SplitPath(path, nullptr, 0, nullptr, 0, nullptr, 0, ext, sizeof ext);
  PutPart(result, size, ext);
}

int SYS_CreateDirRecursive(const char* path) {
  if (path == nullptr || path[0] == '\0') {
    return -1;
  }
  return CreateDirImpl(path);
}

int SYS_GetConfigDir(char* result, int size) {
  const char* home = getenv("HOME");
  if (home == nullptr || result == nullptr || size < 1) {
    return -1;
  }
  char dir[512];
  UTIL_snprintf(dir, size < 512 ? size : 512, "%s/.config/Valmik", home);
  if (SYS_CreateDirRecursive(dir) != 0) {
    return -1;
  }
  UTIL_strcpy(result, dir, size);
  return 0;
}

void SYS_GetModulePath(char* result, int size) {
  if (result == nullptr || size < 1) {
    return;
  }
  result[0] = '\0';
  char link[64];
  UTIL_snprintf(link, sizeof link, "/proc/%d/exe", static_cast<int>(getpid()));
  char buf[512];
  ssize_t n = readlink(link, buf, sizeof buf - 1);
  if (n <= 0) {
    return;
  }
  buf[n] = '\0';
  UTIL_strcpy(result, buf, size);
}

void SYS_GetModuleDir(char* result, int size) {
  if (result == nullptr || size < 1) {
    return;
  }
  result[0] = '\0';
  char path[512];
  ResolveModulePath(path, sizeof path);
  int slash = LastSlash(path);
  if (slash < 0) {
    return;  // a bare name that is no link: the directory can't be told
  }
  char dir[512];
  PutPart(dir, sizeof dir, std::string_view(path, static_cast<size_t>(slash) + 1));
  PutPart(result, size, dir);
}

// ---------------------------------------------------------------- allocation

namespace {
// Test hook: the allocation that is to fail, counted down (0: none armed).
std::atomic<uint32_t> g_failCountdown{0};

// True when this allocation is the one armed to fail.
bool FailThisAllocation() {
  uint32_t n = g_failCountdown.load(std::memory_order_relaxed);
  while (n != 0) {
    if (g_failCountdown.compare_exchange_weak(n, n - 1, std::memory_order_relaxed)) {
      return n == 1;
    }
  }
  return false;
}
}  // namespace

void SYS_TEST_FailAllocation(uint32_t nth) { g_failCountdown.store(nth, std::memory_order_relaxed); }

int SYS_TEST_AllocFailurePending(void) { return g_failCountdown.load(std::memory_order_relaxed) != 0 ? 1 : 0; }

void* SYS_Alloc(uint32_t size) {
  void* p = FailThisAllocation() ? nullptr : std::malloc(size);
  if (p == nullptr) {
    // Kept for a debugger; the caller sees only the null result.
    char msg[64];
    UTIL_snprintf(msg, sizeof msg, "Failed to allocate 0x%.8X bytes of memory!", size);
    (void)msg;
  }
  return p;
}

void* SYS_Calloc(uint32_t count, uint32_t size) {
  const uint64_t total = uint64_t(count) * size;
  if (total > 0xFFFFFFFFull) return nullptr;
  void* p = SYS_Alloc(static_cast<uint32_t>(total));
  if (p != nullptr) std::memset(p, 0, static_cast<size_t>(total));
  return p;
}

void* SYS_Realloc(void* p, uint32_t size) {
  if (FailThisAllocation()) return nullptr;
  return std::realloc(p, size);
}

void SYS_Free(void* p) {
  if (p != nullptr) {
    std::free(p);
  }
}

namespace {
constexpr uint32_t kGuardMarker = 0xDEADBEEF;
constexpr uint8_t kGuardByte = 0xCE;
struct GuardHeader {
  uint32_t length;
  uint32_t marker;
};
GuardHeader* HeaderOf(void* p) { return static_cast<GuardHeader*>(p) - 1; }
}  // namespace

void* SYS_AllocGuarded(uint32_t size) {
  if (size > 0xFFFFFFFFu - sizeof(GuardHeader) - 1u) {
    return nullptr;
  }
  auto* h = static_cast<GuardHeader*>(SYS_Alloc(static_cast<uint32_t>(sizeof(GuardHeader) + size + 1u)));
  if (h == nullptr) {
    return nullptr;
  }
  h->length = size;
  h->marker = kGuardMarker;
  reinterpret_cast<uint8_t*>(h + 1)[size] = kGuardByte;
  return h + 1;
}

int SYS_CheckGuarded(void* p) {
  if (p == nullptr) {
    return 0;
  }
  GuardHeader* h = HeaderOf(p);
  if (h->marker != kGuardMarker) {
    return -1;
  }
  if (static_cast<uint8_t*>(p)[h->length] != kGuardByte) {
    char msg[64];
    UTIL_snprintf(msg, sizeof msg, "Buffer overflow in memory block. %d bytes overflowed.", 1);
    (void)msg;
    return -1;
  }
  return 0;
}

void SYS_FreeGuarded(void* p) {
  if (p != nullptr) {
    std::free(HeaderOf(p));
  }
}

// Beside the program first (its ThirdParty folder), then the install
// directory, then the loader's own search.
void* SYS_OpenLibEdit(void) {
  constexpr const char* kEditName = "libedit.so.0";
  char exe[4096];
  ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n < 1) {
    return nullptr;
  }
  exe[n] = '\0';
  char* slash = std::strrchr(exe, '/');
  char path[4096 + 64];
  if (slash != nullptr) {
    slash[1] = '\0';
    UTIL_snprintf(path, sizeof path, "%sThirdParty/%s", exe, kEditName);
  } else {
    UTIL_snprintf(path, sizeof path, "ThirdParty/%s", kEditName);
  }
  void* h = dlopen(path, RTLD_LAZY);
  if (h == nullptr) {
    // The doubled directory is where the installer puts it.
    UTIL_snprintf(path, sizeof path, "/opt/Valmik/Tarlo/ThirdParty/ThirdParty/%s", kEditName);
    h = dlopen(path, RTLD_LAZY);
  }
  if (h == nullptr) {
    h = dlopen(kEditName, RTLD_LAZY);
  }
  return h;
}
