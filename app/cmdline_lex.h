// Character classes and the space skipper shared by the command line's
// lexers and its option handlers (internal to app/).
#pragma once

// Size of the complaint buffer CMDLINE_GetNumber writes into.
constexpr int CMDLINE_ERROR_SIZE = 256;

namespace cmdline {

constexpr bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

inline const char* SkipSpace(const char* c) {
  while (IsSpace(*c)) c++;
  return c;
}

}  // namespace cmdline
