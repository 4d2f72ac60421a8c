// Shared body of the text-format reader fuzzers: the input is handed to the
// reader through an in-memory file; a successful load is saved in the same
// format and read again, and both images must agree byte for byte.
#pragma once
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "dataimage/memimage.h"
#include "datafile/datafile.h"

using ReadFn = int (*)(MemImage*, const char*, char*, uint32_t);
using WriteFn = int (*)(MemImage*, const char*, char*, uint32_t);

inline bool SameImages(MemImage* a, MemImage* b) {
  const MemRange* x = a->first;
  const MemRange* y = b->first;
  for (; x != nullptr && y != nullptr; x = x->next, y = y->next) {
    if (x->start != y->start || x->size != y->size) return false;
    if ((x->data == nullptr) != (y->data == nullptr)) return false;
    if (x->data != nullptr && std::memcmp(x->data, y->data, x->size) != 0) return false;
  }
  return x == nullptr && y == nullptr;
}

inline int FuzzReader(const uint8_t* data, size_t size, ReadFn read, WriteFn write) {
  static int in = memfd_create("fuzz_in", 0);
  static int out = memfd_create("fuzz_out", 0);
  static char inPath[64];
  static char outPath[64];
  if (inPath[0] == 0) {
    std::snprintf(inPath, sizeof inPath, "/proc/self/fd/%d", in);
    std::snprintf(outPath, sizeof outPath, "/proc/self/fd/%d", out);
  }
  if (ftruncate(in, 0) != 0 || pwrite(in, data, size, 0) != static_cast<ssize_t>(size)) abort();
  MemImage* image = MEMIMAGE_Create();
  char err[256] = {};
  const int r = read(image, inPath, err, sizeof err);
  if (r != 0 && err[0] == 0) abort();                  // every failure explains itself
  if (std::memchr(err, 0, sizeof err) == nullptr) abort();
  if (r == 0) {
    if (write(image, outPath, err, sizeof err) != 0) abort();
    MemImage* again = MEMIMAGE_Create();
    if (read(again, outPath, err, sizeof err) != 0) abort();
    if (!SameImages(image, again)) abort();
    MEMIMAGE_Delete(again);
  }
  MEMIMAGE_Delete(image);
  return 0;
}
