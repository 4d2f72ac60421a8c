// Feeds arbitrary text to the settings store as a project file: the typed
// reads of one key, a few writes, and on one input in sixteen the whole project
// loader, a rewrite of every key and a second load of the rewritten text.
// The first byte of the text picks the key and whether the loader runs.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "project/project.h"
#include "project/settings.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Parse messages are expected by the thousand; keep them off the terminal.
  const int fd = open("/dev/null", O_WRONLY);
  if (fd >= 0) dup2(fd, 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 20) return 0;
  SETTINGS_OpenText(reinterpret_cast<const char*>(data), static_cast<uint32_t>(size));
  // One section and key per run, chosen by the first byte: every typed
  // read scans the text, and reading all of them on every run made the
  // target some fifty times slower without reaching more code.
  static const char* const kSections[] = {nullptr, "GENERAL", "CPU", "FLASH", "S"};
  static const char* const kKeys[] = {"Key", "abID", "HostName", "NumInitSteps", "K"};
  const unsigned pick = size != 0 ? data[0] >> 2 : 0;
  const char* const section = kSections[pick % 5];
  const char* const key = kKeys[pick / 5 % 5];
  uint32_t u;
  int32_t i;
  char text[16];
  uint8_t bytes[8];
  uint8_t flags[64];
  SETTINGS_GetU32(section, key, &u);
  SETTINGS_GetI32(section, key, &i);
  SETTINGS_GetString(section, key, text, sizeof text);
  SETTINGS_GetByteArray(section, key, bytes, sizeof bytes);
  SETTINGS_GetDecByteArray(section, key, bytes, sizeof bytes);
  SETTINGS_GetIndexSet(section, key, flags, sizeof flags);
  // Writes into whatever structure the input has.
  SETTINGS_SetDec("CPU", "Key", 1);
  SETTINGS_SetString("S", "K", "v");
  SETTINGS_SetHex8(nullptr, "abID", 2);
  SETTINGS_DeleteKey("GENERAL", "HostName");

  // Loading, rewriting and loading again a whole project costs some fifteen
  // times a run of the reads above (each of its ~200 key reads and writes
  // scans the text, so it is quadratic in the number of keys); give it one
  // input in sixteen so that the store's own code gets most runs.
  if (size == 0 || data[0] % 16 != 0) return 0;
  SETTINGS_OpenText(reinterpret_cast<const char*>(data), static_cast<uint32_t>(size));
  PROJECT_LoadKeys();
  PROJECT_StoreKeys();
  uint32_t length = 0;
  const char* saved = SETTINGS_GetText(&length);
  const std::string copy(saved != nullptr ? saved : "", length);
  SETTINGS_OpenText(copy.data(), static_cast<uint32_t>(copy.size()));
  PROJECT_LoadKeys();
  return 0;
}
