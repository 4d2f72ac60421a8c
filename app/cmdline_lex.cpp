// The command line's lexers: file names, numbers and keywords as the
// options read them. Kept apart from the option handlers so that the
// parsing rules can be read (and tested) on their own.
#include "app/cmdline_lex.h"

#include <cstring>

#include "app/cmdline.h"
#include "app/log.h"
#include "util/util.h"

namespace {
using cmdline::IsAlpha;
using cmdline::IsDigit;
using cmdline::SkipSpace;
}  // namespace

int CMDLINE_GetString(const char** cursor, char* buffer, int bufferSize) {
  if (buffer == nullptr || bufferSize <= 0) return 0;
  const char* c = SkipSpace(*cursor);
  bool quoted = false;
  if (*c == '"') {
    quoted = true;
    c++;
  }
  // The limit is counted from both ends, so only half the buffer is usable.
  int count = 1;
  int budget = bufferSize - 1;
  int length = 0;
  for (;;) {
    const char ch = *c;
    if (ch == '\0' || ch == '\r' || ch == '\n' || (ch == ',' && !quoted)) break;
    if (ch == '"') {
      c++;
      break;
    }
    if (count > budget) {
      buffer[length] = '\0';
      *cursor = c;
      LOG_Message("CMDLINE_GetString: String to long");
      return -1;
    }
    buffer[length++] = ch;
    c++;
    count++;
    budget--;
  }
  buffer[length] = '\0';
  *cursor = SkipSpace(c);
  if (length == 0) {
    LOG_Message("CMDLINE_GetString:  Missing string");
    return -1;
  }
  return 0;
}

uint32_t CMDLINE_GetNumber(const char** cursor, char* errorText) {
  const char* c = SkipSpace(*cursor);
  uint32_t value = 0;
  const char* complaint = nullptr;
  // Only a lower-case "0x" starts a hexadecimal number.
  if (c[0] == '0' && c[1] == 'x') {
    c += 2;
    if (UTIL_HexDigitValue(*c) < 0) complaint = "Expected a hexadecimal digit (0-9, A-F) after hex specified \"0x\"";
    for (; UTIL_HexDigitValue(*c) >= 0; c++) value = value * 16 + static_cast<uint32_t>(UTIL_HexDigitValue(*c));
  } else {
    if (!IsDigit(*c)) complaint = "Expected an decimal digit (0-9)";
    for (; IsDigit(*c); c++) value = value * 10 + static_cast<uint32_t>(*c - '0');
  }
  *cursor = c;
  if (complaint != nullptr) {
    if (errorText != nullptr) UTIL_strcpy(errorText, complaint, CMDLINE_ERROR_SIZE);
    return 0;
  }
  return value;
}

int CMDLINE_IsKeyword(const char** cursor, const char* keyword) {
  const char* c = SkipSpace(*cursor);
  *cursor = c;
  const int length = static_cast<int>(std::strlen(keyword));
  if (UTIL_strnicmp(c, keyword, length) != 0) return 0;
  const char next = c[length];
  if (IsAlpha(next) || IsDigit(next) || next == '_') return 0;
  *cursor = c + length;
  return 1;
}
