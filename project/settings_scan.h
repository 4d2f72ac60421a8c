// The line scanner of the two settings stores (the project file's and the
// application's): how a text splits into lines, and how a section header
// and a key line are found. The stores differ only in the rules below and
// in how they hold their text. Not part of the module's interface.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "util/util.h"

struct SettingsScanRules {
  bool ignoreCase;        // names compare without regard to ASCII case
  bool headerNeedsBreak;  // a header on the last line, without a line end, is no section
  // What follows a key's name on its line: optional blanks, then '=' or '['
  // (true); or directly '=' or a space (false).
  bool keyThenBlanks;
};

// A zero-terminated text of `length` bytes, scanned line by line. Blanks are
// spaces and tabs; a line ends at CR or LF, and a run of them is one break.
struct SettingsScan {
  static constexpr uint32_t kNotFound = 0xFFFFFFFFu;

  const char* text;
  uint32_t length;
  SettingsScanRules rules;

  static bool IsBlank(char c) { return c == ' ' || c == '\t'; }
  static bool IsEol(char c) { return c == '\r' || c == '\n'; }
  static char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

  uint32_t SkipBlanks(uint32_t p) const {
    while (p < length && IsBlank(text[p])) ++p;
    return p;
  }
  uint32_t LineEnd(uint32_t p) const {
    while (p < length && !IsEol(text[p])) ++p;
    return p;
  }
  // Start of the next line after the line end at `e`.
  uint32_t NextLine(uint32_t e) const {
    while (e < length && IsEol(text[e])) ++e;
    return e;
  }
  // Just after the one break (CR LF, CR or LF) that ends the line at `e`.
  uint32_t PastBreak(uint32_t e) const {
    if (e < length && text[e] == '\r') ++e;
    if (e < length && text[e] == '\n') ++e;
    return e;
  }

  // `name` (n characters) at `at`, under the case rule. The text is
  // zero-terminated, so a short text stops the match at its end.
  bool Match(uint32_t at, const char* name, size_t n) const {
    if (!rules.ignoreCase) return strncmp(text + at, name, n) == 0;
    return UTIL_strnicmp(text + at, name, static_cast<int>(n)) == 0;
  }

  // Body (just after the header line's break) of the first "[name]" line
  // whose name is followed directly by ']', or kNotFound.
  uint32_t FindSection(const char* name) const {
    const size_t n = strlen(name);
    for (uint32_t p = NextLine(0); p < length;) {
      const uint32_t q = SkipBlanks(p);
      const uint32_t e = LineEnd(p);
      if (text[q] == '[' && e - q > n + 1 && Match(q + 1, name, n) && text[q + 1 + n] == ']') {
        return e < length || !rules.headerNeedsBreak ? PastBreak(e) : kNotFound;
      }
      p = NextLine(e);
    }
    return kNotFound;
  }

  // Start (indentation included) of the first line of the key between `body`
  // and the next line that begins with '[', or kNotFound.
  uint32_t FindKey(uint32_t body, const char* key) const {
    const size_t n = strlen(key);
    for (uint32_t p = NextLine(body); p < length;) {
      const uint32_t q = SkipBlanks(p);
      if (text[q] == '[') return kNotFound;
      const uint32_t e = LineEnd(p);
      if (e - q > n && Match(q, key, n) && EndsKey(q + static_cast<uint32_t>(n))) return p;
      p = NextLine(e);
    }
    return kNotFound;
  }

  bool EndsKey(uint32_t at) const {
    if (!rules.keyThenBlanks) return text[at] == '=' || text[at] == ' ';
    const uint32_t r = SkipBlanks(at);
    return r < length && (text[r] == '=' || text[r] == '[');
  }
};

// Replaces `removeLen` bytes at `pos` of a text of `length` bytes with the
// given ones; the buffer must hold the new length plus its terminator.
// Returns the new length.
inline uint32_t SpliceSettingsText(char* text, uint32_t length, uint32_t pos, uint32_t removeLen, const char* insert,
                                   uint32_t insertLen) {
  memmove(text + pos + insertLen, text + pos + removeLen, length - pos - removeLen);
  if (insertLen != 0) memcpy(text + pos, insert, insertLen);
  const uint32_t newLength = length - removeLen + insertLen;
  text[newLength] = '\0';
  return newLength;
}
