// The live progress line. It writes to standard error only, and only while
// a phase is running; the console hook of the operation log takes the line
// away before any standard output is written, so the two never mix on one
// terminal line.
#include "app/progress.h"

#include <errno.h>
#include <unistd.h>

#include <cstring>

#include "app/log.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

constexpr uint32_t kRedrawMs = 100;  // at most ten lines a second
constexpr const char* kClear = "\r\033[K";

struct Phase {
  char name[32];
  uint64_t total;
  uint64_t done;
  int unit;
  uint32_t startMs;
  uint32_t lastDrawMs;
  bool running;     // shown at all (not at verbosity 0)
  bool everDrawn;   // a short phase that never got its first draw stays silent
  bool onScreen;
  bool finalDrawn;
};
Phase P;

void WriteErr(const char* text, size_t length) {
  while (length > 0) {
    const ssize_t n = ::write(2, text, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    text += n;
    length -= static_cast<size_t>(n);
  }
}

void Draw(uint32_t now) {
  char line[160];
  std::memcpy(line, kClear, 4);
  PROGRESS_FormatLine(line + 4, sizeof line - 4, P.name, P.done, P.total, P.unit, now - P.startMs);
  WriteErr(line, std::strlen(line));
  P.lastDrawMs = now;
  P.everDrawn = true;
  P.onScreen = true;
}

void Begin(const char* phase, uint64_t total, int unit) {
  P = Phase{};
  if (LOG_GetVerbosity() <= 0) return;
  UTIL_strcpy(P.name, phase != nullptr ? phase : "", sizeof P.name);
  P.total = total;
  P.unit = unit;
  P.startMs = P.lastDrawMs = SYS_GetTickCount();
  P.running = true;
}

void Advance(uint64_t amount) {
  if (!P.running) return;
  P.done = P.total - P.done < amount ? P.total : P.done + amount;
  const uint32_t now = SYS_GetTickCount();
  if (P.done == P.total) {
    // The last state is shown once, so a phase long enough to be seen is
    // seen to finish.
    if (P.everDrawn && !P.finalDrawn) {
      P.finalDrawn = true;
      Draw(now);
    }
    return;
  }
  if (now - P.lastDrawMs >= kRedrawMs) Draw(now);
}

void Hide() {
  if (!P.onScreen) return;
  WriteErr(kClear, 4);
  P.onScreen = false;
}

void End() {
  Hide();
  P.running = false;
}

constexpr LOG_PROGRESS_DISPLAY kTerminal{Begin, Advance, End, Hide};

// "m:ss", or "h:mm:ss" from an hour on.
char* FormatTime(char* out, int size, uint64_t seconds) {
  if (seconds >= 3600) {
    return UTIL_snprintf(out, size, "%u:%.2u:%.2u", (unsigned)(seconds / 3600), (unsigned)(seconds / 60 % 60),
                         (unsigned)(seconds % 60));
  }
  return UTIL_snprintf(out, size, "%u:%.2u", (unsigned)(seconds / 60), (unsigned)(seconds % 60));
}

// value / 2^shift with one decimal.
char* FormatScaled(char* out, int size, uint64_t value, int shift) {
  const uint64_t tenths = (value * 10 + (1ull << shift) / 2) >> shift;
  return UTIL_snprintf(out, size, "%llu.%u", (unsigned long long)(tenths / 10), (unsigned)(tenths % 10));
}

}  // namespace

void PROGRESS_FormatLine(char* buffer, int size, const char* phase, uint64_t done, uint64_t total, int unit,
                         uint32_t elapsedMs) {
  if (buffer == nullptr || size <= 0) return;
  if (total > (1ull << 40)) total = 1ull << 40;  // keeps the arithmetic below in range
  if (done > total) done = total;
  const unsigned percent = total == 0 ? 100 : (unsigned)(done * 100 / total);
  char* end = buffer;
  char* const limit = buffer + size;
  end = UTIL_snprintf(end, (int)(limit - end), "%s: ", phase);
  const bool bytes = unit == LOG_PROGRESS_BYTES;
  const int shift = total >= (1u << 20) ? 20 : 10;
  const char* scale = shift == 20 ? "MiB" : "KiB";
  if (bytes) {
    end = FormatScaled(end, (int)(limit - end), done, shift);
    end = UTIL_snprintf(end, (int)(limit - end), " of ");
    end = FormatScaled(end, (int)(limit - end), total, shift);
    end = UTIL_snprintf(end, (int)(limit - end), " %s, %u %%", scale, percent);
  } else {
    end = UTIL_snprintf(end, (int)(limit - end), "%llu of %llu sectors, %u %%", (unsigned long long)done,
                        (unsigned long long)total, percent);
  }
  if (done == 0 || elapsedMs == 0) {
    end = UTIL_snprintf(end, (int)(limit - end), ", ");
    end = FormatTime(end, (int)(limit - end), elapsedMs / 1000);
    UTIL_snprintf(end, (int)(limit - end), " elapsed");
    return;
  }
  end = UTIL_snprintf(end, (int)(limit - end), ", ");
  if (bytes) {
    const uint64_t perSecond = done * 1000 / elapsedMs;
    const int rateShift = perSecond >= (1u << 20) ? 20 : 10;
    end = FormatScaled(end, (int)(limit - end), perSecond, rateShift);
    end = UTIL_snprintf(end, (int)(limit - end), " %s/s", rateShift == 20 ? "MiB" : "KiB");
  } else {
    const uint64_t tenths = done * 10000 / elapsedMs;
    end = UTIL_snprintf(end, (int)(limit - end), "%llu.%u sectors/s", (unsigned long long)(tenths / 10),
                        (unsigned)(tenths % 10));
  }
  const uint64_t leftMs = (uint64_t)((double)(total - done) * elapsedMs / (double)done);
  end = UTIL_snprintf(end, (int)(limit - end), ", ");
  end = FormatTime(end, (int)(limit - end), (leftMs + 999) / 1000);
  UTIL_snprintf(end, (int)(limit - end), " left");
}

void PROGRESS_Install(void) {
  if (!::isatty(2)) return;
  LOG_SetProgressDisplay(&kTerminal);
}
