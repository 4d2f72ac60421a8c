// Formatting helpers for sizes, durations, raw float values and addresses,
// and the size-checked copy of records exchanged with the probe library.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "util/util.h"

namespace {

// The bounded formatter has no floating point; the one value is formatted by
// the C library and then placed with the rest of the text.
enum FloatForm { kOneDecimal, kSixDigits };  // "%.1f" or "%.6G"
void FormatFloat(char* buffer, int size, FloatForm form, double value, const char* suffix,
                 const char* sign = "") {
  char num[64];
  if (form == kOneDecimal) {
    std::snprintf(num, sizeof num, "%.1f", value);
  } else {
    std::snprintf(num, sizeof num, "%.6G", value);
  }
  UTIL_snprintf(buffer, size, "%s%s%s", sign, num, suffix);
}

}  // namespace

void UTIL_PrintBytes(char* buffer, int size, uint32_t n) {
  if (buffer == nullptr || size < 1) {
    return;
  }
  constexpr uint32_t kG = 1u << 30, kHalfG = 1u << 29, kM = 1u << 20, kHalfM = 1u << 19;
  if (n == 0) {
    UTIL_snprintf(buffer, size, "%d Bytes", 0);
  } else if (n % kG == 0) {
    UTIL_snprintf(buffer, size, "%d GB", static_cast<int>(n / kG));
  } else if (n % kHalfG == 0 && n >= kG) {
    FormatFloat(buffer, size, kOneDecimal, (n / kHalfG) * 0.5, " GB");
  } else if (n % kM == 0) {
    UTIL_snprintf(buffer, size, "%d MB", static_cast<int>(n / kM));
  } else if (n % kHalfM == 0 && n >= kM) {
    FormatFloat(buffer, size, kOneDecimal, (n / kHalfM) * 0.5, " MB");
  } else if (n % 1024 == 0) {
    UTIL_snprintf(buffer, size, "%d KB", static_cast<int>(n / 1024));
  } else if (n % 512 == 0 && n > 1023) {
    FormatFloat(buffer, size, kOneDecimal, (n / 512) * 0.5, " KB");
  } else {
    char* end = UTIL_snprintf(buffer, size, "%u Byte", n);
    if (n != 1) {
      UTIL_snprintf(end, size - static_cast<int>(end - buffer), "s");
    }
  }
}

void UTIL_PrintRegions(char* buffer, int size, const UTIL_REGION* regions, int numRegions) {
  if (buffer == nullptr || size < 1) {
    return;
  }
  buffer[0] = '\0';
  if (regions == nullptr) {
    return;
  }
  for (int i = 0; i < numRegions; ++i) {
    if (i > 0) {
      UTIL_strcat(buffer, " + ", size);
    }
    char one[64];
    UTIL_PrintBytes(one, sizeof one, regions[i].numSectors * regions[i].sectorSize);
    UTIL_strcat(buffer, one, size);
  }
}

void UTIL_PrintDuration(char* buffer, int size, uint64_t t) {
  if (buffer == nullptr || size < 1) {
    return;
  }
  int hours = static_cast<int>(t / 3600000000ull);
  int minutes = static_cast<int>(t / 60000000ull % 60);
  int seconds = static_cast<int>(t / 1000000ull % 60);
  int ms = static_cast<int>(t / 1000ull % 1000);
  int us = static_cast<int>(t % 1000);
  if (hours != 0) {
    UTIL_snprintf(buffer, size, "%.1d:%.2d:%.2d.%.3d %.3d", hours, minutes, seconds, ms, us);
  } else if (minutes != 0) {
    UTIL_snprintf(buffer, size, "%.1d:%.2d.%.3d %.3d", minutes, seconds, ms, us);
  } else {
    UTIL_snprintf(buffer, size, "%.1d.%.3d %.3d", seconds, ms, us);
  }
}

void UTIL_PrintFloatBits(char* buffer, int size, uint32_t bits) {
  if (buffer == nullptr || size < 1) {
    return;
  }
  const bool negative = (bits >> 31) != 0;
  const uint32_t exponent = (bits >> 23) & 0xFF;
  const uint32_t mantissa = bits & 0x7FFFFF;
  const char* sign = negative ? "-" : "";
  if (exponent == 0) {
    if (mantissa == 0) {
      UTIL_snprintf(buffer, size, "%s", negative ? "-0.0" : "0.0");
    } else {
      FormatFloat(buffer, size, kSixDigits, std::ldexp(static_cast<double>(mantissa), -149), "", sign);
    }
  } else if (exponent == 255) {
    if (mantissa == 0) {
      UTIL_snprintf(buffer, size, "%s", negative ? "-Infinite" : "Infinite");
    } else {
      UTIL_snprintf(buffer, size, "%s", (mantissa & (1u << 22)) != 0 ? "NaNq" : "NaNs");
    }
  } else {
    double v = std::ldexp(static_cast<double>(mantissa + (1u << 23)), static_cast<int>(exponent) - 150);
    FormatFloat(buffer, size, kSixDigits, v, "", sign);
  }
}

void UTIL_PrintHWAddr(char* buffer, int size, const uint8_t* a, char separator) {
  if (buffer == nullptr || size < 1 || a == nullptr) {
    return;
  }
  UTIL_snprintf(buffer, size, "%.2X%c%.2X%c%.2X%c%.2X%c%.2X%c%.2X", a[0], separator, a[1], separator, a[2],
                separator, a[3], separator, a[4], separator, a[5]);
}

void UTIL_PrintIPv4(char* buffer, int size, uint32_t addr) {
  if (buffer == nullptr || size < 1) {
    return;
  }
  UTIL_snprintf(buffer, size, "%d.%d.%d.%d", static_cast<int>(addr >> 24), static_cast<int>((addr >> 16) & 0xFF),
                static_cast<int>((addr >> 8) & 0xFF), static_cast<int>(addr & 0xFF));
}

const char* UTIL_GetOSName(uint32_t code) {
  switch (code) {
    case 0x1000: return "Windows";
    case 0x1001: return "Windows 2000";
    case 0x1002: return "Windows XP";
    case 0x1003: return "Windows XP64";
    case 0x1004: return "Windows Vista";
    case 0x1005: return "Windows 7";
    case 0x1006: return "Windows 8";
    case 0x1007: return "Windows 8.1";
    case 0x1008: return "Windows 10";
    case 0x2000: return "Linux";
    case 0x3000: return "macOS";
    default: return "Unknown";
  }
}

void UTIL_CopyAPIStruct(void* dest, const void* src, const char* structName) {
  if (dest == nullptr || src == nullptr) {
    return;
  }
  uint32_t destSize;
  uint32_t srcSize;
  std::memcpy(&destSize, dest, 4);
  std::memcpy(&srcSize, src, 4);
  const int64_t d = static_cast<int64_t>(destSize) - 4;
  if (d > 4096 || d % 4 != 0) {
    // Refused silently: the text is built for a debugger, never shown.
    char msg[256];
    UTIL_snprintf(msg, sizeof msg, "UTIL_CopyAPIStruct(): Illegal size of struct %s: %d bytes.", structName,
                  static_cast<int>(d));
    (void)msg;
    return;
  }
  if (d <= 0) {
    return;
  }
  int64_t s = static_cast<int64_t>(srcSize) - 4;
  if (s < 0) {
    s = 0;
  }
  const int64_t n = s < d ? s : d;
  auto* out = static_cast<uint8_t*>(dest) + 4;
  std::memcpy(out, static_cast<const uint8_t*>(src) + 4, static_cast<size_t>(n));
  std::memset(out + n, 0, static_cast<size_t>(d - n));
}
