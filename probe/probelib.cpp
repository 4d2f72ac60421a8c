// Finding and opening the probe library, and resolving its functions.
// The library is opened once (lazily, on the first probe call) and never
// closed. Only explicit paths are tried: beside the program, then the install
// directory; the dynamic loader's own search path is never used for it.
#include "probe/probelib.h"

#include <dlfcn.h>
#include <errno.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "sys/sys.h"
#include "util/util.h"

namespace {

constexpr const char* kLibName = "libtarloarm.so";

void* g_handle = nullptr;
bool g_exiting = false;  // set once the "could not open" exit is under way

void Print(const char* text) { SYS_ConsoleWrite(text, UTIL_strlen(text)); }

bool TryOpen(const char* path) {
  if (g_handle == nullptr) {
    g_handle = dlopen(path, RTLD_LAZY);
  }
  return g_handle != nullptr;
}

// The library beside the running executable: 0 when it opened, 1 when the
// executable's path cannot be read (reported), -1 when not found there.
int TryExecutableDir() {
  char dir[512];
  char path[512];
  dir[0] = '\0';
  ssize_t n = readlink("/proc/self/exe", dir, sizeof dir);
  if (n < 0) {
    char msg[512];
    UTIL_snprintf(msg, sizeof msg, "Could not get application path (%s).\n", std::strerror(errno));
    Print(msg);
    return 1;  // also with exitOnFailure: the caller gets the failure back
  }
  // readlink does not terminate; a path that fills the buffer is cut by one.
  dir[n < static_cast<ssize_t>(sizeof dir) ? n : static_cast<ssize_t>(sizeof dir) - 1] = '\0';
  if (dir[0] != '\0') {
    for (int i = UTIL_strlen(dir) - 1; i > 0; --i) {
      if (dir[i] == '/' || dir[i] == '\\') {
        dir[i + 1] = '\0';
        break;
      }
    }
    UTIL_snprintf(path, sizeof path, "%s%s", dir, kLibName);
    if (TryOpen(path)) {
      return 0;
    }
  }
  return -1;
}

}  // namespace

int PROBELIB_Load(int exitOnFailure) {
  if (g_handle != nullptr) {
    return 0;
  }
  if (g_exiting) {
    // Exit hooks of other layers may reach a probe wrapper while the process
    // is already ending for want of the library: no second exit.
    return 1;
  }
  char dir[512];
  char path[512];

  // 1. The directory of the program's own module, links followed.
  SYS_GetModuleDir(dir, sizeof dir);
  if (dir[0] != '\0') {
    SYS_MakePath(path, sizeof path, dir, kLibName);
    if (TryOpen(path)) {
      return 0;
    }
  }

  // 2. The directory of the running executable.
  const int fromExe = TryExecutableDir();
  if (fromExe >= 0) {
    return fromExe;
  }

  // 3. The install directory, then its versioned file.
  UTIL_snprintf(path, sizeof path, "/opt/Valmik/Tarlo/%s", kLibName);
  if (TryOpen(path)) {
    return 0;
  }
  UTIL_snprintf(path, sizeof path, "/opt/Valmik/Tarlo/%s.5", kLibName);
  if (TryOpen(path)) {
    return 0;
  }

  if (exitOnFailure != 0) {
    Print("Could not open Tarlo shared library. Exiting now.\n");
    g_exiting = true;
    std::exit(1);
  }
  Print("Could not open Tarlo shared library.\n");
  return 1;
}

int PROBELIB_TryLoad(void) { return PROBELIB_Load(0) == 0 ? 0 : -1; }

void* PROBELIB_GetFunc(const char* name) {
  if (PROBELIB_Load(1) != 0) {
    return nullptr;
  }
  dlerror();
  void* fn = dlsym(g_handle, name);
  const char* err = dlerror();
  if (err != nullptr) {
    char msg[1024];
    UTIL_snprintf(msg, sizeof msg, "Function not found: %s (%s).\n", name, err);
    Print(msg);
  }
  return fn;
}
