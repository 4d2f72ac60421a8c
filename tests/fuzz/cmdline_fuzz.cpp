// Fuzzes the parsers the command-line options share: whatever the text, the
// name stays within half the buffer and terminated, and the cursor stays
// inside the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/cmdline.h"
#include "app/log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  LOG_SetVerbosity(0);
  if (size == 0) return 0;
  const int bufferSize = data[0] % 64;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const char* begin = text.c_str();
  const char* end = begin + std::strlen(begin);

  char buffer[64];
  std::memset(buffer, 'Z', sizeof buffer);
  const char* cursor = begin;
  if (CMDLINE_GetString(&cursor, bufferSize > 0 ? buffer : nullptr, bufferSize) == 0 && bufferSize > 0) {
    const size_t length = strnlen(buffer, sizeof buffer);
    if (length > static_cast<size_t>(bufferSize / 2)) abort();
  }
  if (cursor < begin || cursor > end) abort();

  char error[256] = "";
  cursor = begin;
  CMDLINE_GetNumber(&cursor, error);
  if (cursor < begin || cursor > end || strnlen(error, sizeof error) == sizeof error) abort();

  cursor = begin;
  if (CMDLINE_IsKeyword(&cursor, "USB") && (cursor < begin + 3 || cursor > end)) abort();
  return 0;
}
