// String, byte and number helpers. All of them tolerate null pointers and
// sizes below 1 by doing nothing, and every copy leaves a terminated text.
#include "util/util.h"

#include <cstring>

namespace {

// Case fold used by the comparisons: only 'A'..'Z' change; bytes of 0x80 and
// above are compared as they are.
constexpr char Fold(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Length of a text limited to `max` characters (for texts that may lack a
// terminator within their buffer).
int BoundedLen(const char* s, int max) {
  int n = 0;
  while (n < max && s[n] != '\0') {
    ++n;
  }
  return n;
}

}  // namespace

int UTIL_strlen(const char* s) {
  if (s == nullptr) {
    return 0;
  }
  return static_cast<int>(std::strlen(s));
}

void UTIL_strcpy(char* dest, const char* src, int size) {
  if (dest == nullptr || src == nullptr || size < 1) {
    return;
  }
  int n = BoundedLen(src, size - 1);
  std::memmove(dest, src, static_cast<size_t>(n));
  dest[n] = '\0';
}

void UTIL_strncat(char* dest, const char* src, int count, int size) {
  if (dest == nullptr || src == nullptr || size < 1 || count < 1) {
    return;
  }
  int len = BoundedLen(dest, size);
  if (len >= size - 1) {
    return;
  }
  int room = size - 1 - len;
  int n = BoundedLen(src, count < room ? count : room);
  std::memmove(dest + len, src, static_cast<size_t>(n));
  dest[len + n] = '\0';
}

void UTIL_strcat(char* dest, const char* src, int size) {
  UTIL_strncat(dest, src, size, size);
}

int UTIL_stricmp(const char* a, const char* b) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  for (;; ++a, ++b) {
    signed char ca = static_cast<signed char>(Fold(*a));
    signed char cb = static_cast<signed char>(Fold(*b));
    if (ca != cb || ca == 0) {
      return ca - cb;
    }
  }
}

int UTIL_strnicmp(const char* a, const char* b, int count) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  for (int i = 0; i < count; ++i) {
    signed char ca = static_cast<signed char>(Fold(a[i]));
    signed char cb = static_cast<signed char>(Fold(b[i]));
    if (ca != cb || ca == 0) {
      return ca - cb;
    }
  }
  return 0;
}

int UTIL_memcmp(const void* a, const void* b, int count) {
  if (a == nullptr || b == nullptr) {
    return -1;
  }
  const auto* pa = static_cast<const uint8_t*>(a);
  const auto* pb = static_cast<const uint8_t*>(b);
  for (int i = 0; i < count; ++i) {
    if (pa[i] != pb[i]) {
      return i;
    }
  }
  return -1;
}

int UTIL_FindFirstByteNot(const void* data, uint8_t value, int count) {
  if (data == nullptr) {
    return -1;
  }
  const auto* p = static_cast<const uint8_t*>(data);
  int i = 0;
  // Compare eight bytes at a time: blank-page checks run over whole sectors.
  uint64_t pattern = 0x0101010101010101ull * value;
  for (; i + 8 <= count; i += 8) {
    uint64_t w;
    std::memcpy(&w, p + i, sizeof w);
    if (w != pattern) {
      break;
    }
  }
  for (; i < count; ++i) {
    if (p[i] != value) {
      return i;
    }
  }
  return -1;
}

uint64_t UTIL_AbsDiff(uint64_t a, uint64_t b) { return a > b ? a - b : b - a; }

int UTIL_ParseU32(const char* text, uint32_t* result) {
  if (text == nullptr || result == nullptr || *text < '0' || *text > '9') {
    return -1;
  }
  uint32_t v = 0;
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    const char* p = text + 2;
    int numDigits = 0;
    for (int d; (d = UTIL_HexDigitValue(*p)) >= 0; ++p, ++numDigits) {
      v = (v << 4) | static_cast<uint32_t>(d);
    }
    if (numDigits == 0) {
      return -1;
    }
  } else {
    for (const char* p = text; *p >= '0' && *p <= '9'; ++p) {
      v = v * 10u + static_cast<uint32_t>(*p - '0');
    }
  }
  *result = v;
  return 0;
}

void UTIL_StoreU32LE(uint8_t* bytes, uint32_t value) {
  if (bytes == nullptr) {
    return;
  }
  bytes[0] = static_cast<uint8_t>(value);
  bytes[1] = static_cast<uint8_t>(value >> 8);
  bytes[2] = static_cast<uint8_t>(value >> 16);
  bytes[3] = static_cast<uint8_t>(value >> 24);
}

void UTIL_StoreU32(uint8_t* bytes, uint32_t value, int bigEndian) {
  if (bytes == nullptr) {
    return;
  }
  if (!bigEndian) {
    UTIL_StoreU32LE(bytes, value);
    return;
  }
  bytes[0] = static_cast<uint8_t>(value >> 24);
  bytes[1] = static_cast<uint8_t>(value >> 16);
  bytes[2] = static_cast<uint8_t>(value >> 8);
  bytes[3] = static_cast<uint8_t>(value);
}

const char* UTIL_ParseToken(const char** cursor, char* result, int maxLength, char delimiter) {
  if (cursor == nullptr || *cursor == nullptr || result == nullptr) {
    return "Expected a string";
  }
  const char* p = *cursor;
  while (*p == '\t' || *p == ' ' || *p == '\r' || *p == '\n') {
    ++p;
  }
  int len = 0;
  while (p[len] != '\0' && p[len] != '\r' && p[len] != '\n' && p[len] != ' ' && p[len] != delimiter) {
    ++len;
  }
  if (len >= maxLength) {
    return "Maximum string length exceeded";
  }
  if (len == 0) {
    return "Expected a string";
  }
  std::memcpy(result, p, static_cast<size_t>(len));
  result[len] = '\0';
  *cursor = p + len;
  return nullptr;
}
