// The program's own bounded formatter. It knows a deliberately small set of
// conversions (no flags, no floating point) so that every message is built the
// same way and can never overrun its buffer.
#include "util/util.h"

#include <cstddef>
#include <cstring>

namespace {

// Output state: a character is stored only while length + 1 is below the
// size, so the text always keeps room for its terminator.
struct Out {
  char* buf;
  int size;
  int len;

  void Put(char c) {
    if (len + 1 < size) {
      buf[len++] = c;
    }
  }
  void Repeat(char c, int count) {
    for (int i = 0; i < count && len + 1 < size; ++i) {
      buf[len++] = c;
    }
  }
  void Puts(const char* s) {
    while (*s != '\0' && len + 1 < size) {
      buf[len++] = *s++;
    }
  }
  // Copies n characters in one go, as far as they fit.
  void PutRun(const char* s, size_t n) {
    size_t room = len + 1 < size ? static_cast<size_t>(size - 1 - len) : 0;
    if (n > room) {
      n = room;
    }
    std::memcpy(buf + len, s, n);
    len += static_cast<int>(n);
  }
};

// Writes an unsigned value with a minimum digit count (precision) and a
// minimum character count (width, filled with spaces on the left).
void PutNumber(Out& out, uint64_t value, unsigned base, bool upper, int width, int precision) {
  const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  char tmp[24];  // 2^64-1 has 20 decimal digits, 16 hex digits
  int n = 0;
  if (base == 16) {
    do {
      tmp[n++] = digits[value & 15u];
      value >>= 4;
    } while (value != 0);
  } else if (value <= 0xFFFFFFFFu) {
    // Values that fit in 32 bits take the cheaper 32-bit path.
    uint32_t v = static_cast<uint32_t>(value);
    do {
      tmp[n++] = digits[v % 10u];
      v /= 10u;
    } while (v != 0);
  } else {
    do {
      tmp[n++] = digits[value % 10u];
      value /= 10u;
    } while (value != 0);
  }
  int numZeros = precision > n ? precision - n : 0;
  int numChars = n + numZeros;
  if (width > numChars) {
    out.Repeat(' ', width - numChars);
  }
  out.Repeat('0', numZeros);
  while (n > 0) {
    out.Put(tmp[--n]);
  }
}

// Reads a run of decimal digits, saturating instead of overflowing.
int ReadCount(const char*& p) {
  int v = 0;
  while (*p >= '0' && *p <= '9') {
    if (v < 100000) {
      v = v * 10 + (*p - '0');
    }
    ++p;
  }
  return v;
}

// One conversion: "%[width][.precision][l...]conv".
struct Conversion {
  int width = 0;
  int precision = 0;
  bool wide = false;  // "ll" or more: the argument is 64-bit
  char conv = '\0';
};

// Reads the conversion after a '%'. False when the format ends inside it.
[[gnu::always_inline]] inline bool ReadConversion(const char*& p, Conversion& c) {
  c.width = ReadCount(p);
  if (*p == '.') {
    ++p;
    c.precision = ReadCount(p);
  }
  int numL = 0;
  while (*p == 'l') {
    ++numL;
    ++p;
  }
  c.wide = numL >= 2;
  c.conv = *p;
  if (c.conv == '\0') {
    return false;
  }
  ++p;
  return true;
}

}  // namespace

// The arguments are taken here, in the function that owns the va_list: a
// helper would need a copy of it (va_copy) to advance it portably, which
// costs the short messages a third of their time.
char* UTIL_vsnprintf(char* buffer, int size, const char* format, va_list args) {
  if (buffer == nullptr) {
    return nullptr;
  }
  Out out{buffer, size, 0};
  const char* p = format != nullptr ? format : "";
  while (*p != '\0') {
    if (*p != '%') {
      // Literal text up to the next conversion goes in as one run.
      const char* start = p;
      while (*p != '\0' && *p != '%') {
        ++p;
      }
      out.PutRun(start, static_cast<size_t>(p - start));
      continue;
    }
    ++p;
    if (*p == '%') {
      out.Put('%');
      ++p;
      continue;
    }
    Conversion c;
    if (!ReadConversion(p, c)) {
      break;
    }
    switch (c.conv) {
      case 'd':
      case 'i': {
        int64_t v = c.wide ? va_arg(args, long long) : va_arg(args, int);
        uint64_t mag = static_cast<uint64_t>(v);
        if (v < 0) {
          // The sign stands outside the width: "-" first, then the padding.
          out.Put('-');
          mag = 0 - mag;
        }
        PutNumber(out, mag, 10, false, c.width, c.precision);
        break;
      }
      case 'u':
      case 'x':
      case 'X': {
        uint64_t v = c.wide ? va_arg(args, unsigned long long) : va_arg(args, unsigned int);
        unsigned base = c.conv == 'u' ? 10u : 16u;
        PutNumber(out, v, base, c.conv == 'X', c.width, c.precision);
        break;
      }
      case 'c':
        out.Put(static_cast<char>(va_arg(args, int)));
        break;
      case 's': {
        const char* s = va_arg(args, const char*);
        out.Puts(s != nullptr ? s : "(null)");
        break;
      }
      case 'p': {
        const void* ptr = va_arg(args, const void*);
        uint32_t low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(ptr));
        PutNumber(out, low, 16, false, 8, 0);
        break;
      }
      default:
        // Unknown conversions are consumed and write nothing.
        break;
    }
  }
  if (size > 0) {
    buffer[out.len] = '\0';
  }
  return buffer + out.len;
}

char* UTIL_snprintf(char* buffer, int size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  char* end = UTIL_vsnprintf(buffer, size, format, args);
  va_end(args);
  return end;
}
