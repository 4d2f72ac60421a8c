// The files the simulator writes: the buffered text sinks (trace and
// library call log), the chip contents file and the stats file.
#pragma once
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

namespace tarlosim {

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

struct Probe;

// Closes the contents file (and so drops its lock).
void ReleaseContents(Probe& p);
// Opens (or creates, empty) the configured contents file and locks it for
// as long as the probe is open; false with err set when it cannot.
// `created`: the file did not exist and is ours, still empty.
bool LockContents(Probe& p, bool& created, std::string& err);
// Loads size bytes of chip contents from the locked file (a new one is
// filled erased); false with err set.
bool LoadContents(Probe& p, uint32_t size, bool created, std::string& err);
// Writes the contents back in place of the file; false with err set, the
// file then holding what it held before.
bool SaveContents(Probe& p, std::string& err);
// Writes the bus and chip counters to the stats file, when one is set.
void WriteStats(Probe& p);

}  // namespace tarlosim
