// Preloaded into the program by the library search test: writes down every
// path the program hands to dlopen, in order, into the file named by
// PELLAM_DLOPEN_LOG, then opens it as asked.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int mode) {
  using Open = void* (*)(const char*, int);
  static const Open real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "dlopen"));
  if (const char* log = getenv("PELLAM_DLOPEN_LOG"); log != nullptr && file != nullptr) {
    if (FILE* f = fopen(log, "a"); f != nullptr) {
      fprintf(f, "%s\n", file);
      fclose(f);
    }
  }
  return real(file, mode);
}
