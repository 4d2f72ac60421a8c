// The application settings store: a small file of program-wide values in a
// fixed buffer, read on first use and written whole after every change.
// Unlike the project store, names are compared case-sensitively.
#include <cerrno>
#include <cstring>

#include "project/appini.h"
#include "project/settings_scan.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

constexpr uint32_t kBufferSize = 30000;
constexpr uint32_t kNotFound = SettingsScan::kNotFound;

struct AppIni {
  SYS_HMUTEX lock = nullptr;
  bool started = false;
  char fileName[512] = {};
  void (*errorOut)(const char*) = nullptr;
  bool loaded = false;
  char text[kBufferSize] = {};
  uint32_t length = 0;
};
AppIni a;

class Guard {
 public:
  Guard() {
    if (!a.started) {
      a.lock = SYS_CreateMutex("APPINI");
      a.started = true;
    }
    SYS_WaitForMutex(a.lock, SYS_INFINITE);
  }
  ~Guard() { SYS_ReleaseMutex(a.lock); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
};

void Report(const char* text) {
  if (a.errorOut != nullptr) a.errorOut(text);
}

// The reason is chosen by the error number as it stands. The numbers are
// those of another platform's error list, so here a missing file (2) gets its
// own reason while a refused permission (13) falls to the last one; kept so.
void FileError(const char* verb, bool saving) {
  const char* reason;
  switch (SYS_GetLastError()) {
    case 2: reason = "File not found!"; break;
    case 3: reason = "Path not found!"; break;
    case 5:
      reason = saving && SYS_FILE_IsReadOnly(a.fileName) == 1 ? "File has read only attribute!"
                                                              : "Access is denied!";
      break;
    case 15: reason = "Invalid drive!"; break;
    case 123: reason = "Filename syntax is incorrect!"; break;
    default: reason = "Invalid file handle!"; break;
  }
  char msg[1024];
  UTIL_snprintf(msg, sizeof msg, "Could not %s file [%s]\n%s", verb, a.fileName, reason);
  Report(msg);
}

// Reads the file when it has not been read since its name was set.
bool Load() {
  if (a.fileName[0] == '\0') return false;
  if (a.loaded) return true;
  a.length = 0;
  a.text[0] = '\0';
  a.loaded = true;
  if (!SYS_FILE_Exists(a.fileName)) return true;
  const int fd = SYS_FILE_OpenSimple(a.fileName, SYS_FILE_READ_FLAGS);
  if (fd < 0) {
    FileError("open", false);
    return true;
  }
  uint32_t size = SYS_FILE_GetSize(fd);
  if (size > kBufferSize - 1) size = kBufferSize - 1;
  const int got = SYS_FILE_Read(fd, a.text, size);
  SYS_FILE_Close(fd);
  if (got != static_cast<int>(size)) {
    char msg[1024];
    UTIL_snprintf(msg, sizeof msg, "Could not open file [%s]\nFailed to read data!", a.fileName);
    Report(msg);
    return true;
  }
  a.length = size;
  a.text[size] = '\0';
  return true;
}

int Save() {
  const int fd = SYS_FILE_OpenSimple(a.fileName, SYS_FILE_WRITE_FLAGS);
  if (fd < 0) {
    FileError("save", true);
    return -1;
  }
  const int put = SYS_FILE_Write(fd, a.text, a.length);
  SYS_FILE_Close(fd);
  if (put != static_cast<int>(a.length)) {
    char msg[1024];
    UTIL_snprintf(msg, sizeof msg, "Could not save file [%s]\nFailed to write data!", a.fileName);
    Report(msg);
    return -1;
  }
  return 0;
}

// Names compare case-sensitively, a header on the last line counts, and a
// key is followed directly by '=' or a space.
constexpr SettingsScanRules kRules{false, false, false};

SettingsScan Scan() { return SettingsScan{a.text, a.length, kRules}; }
inline bool IsEol(char c) { return SettingsScan::IsEol(c); }
uint32_t LineEnd(uint32_t p) { return Scan().LineEnd(p); }
uint32_t SkipBlanks(uint32_t p) { return Scan().SkipBlanks(p); }
uint32_t PastBreak(uint32_t e) { return Scan().PastBreak(e); }
uint32_t FindSection(const char* section) { return Scan().FindSection(section); }

uint32_t FindKey(const char* section, const char* key) {
  const uint32_t body = FindSection(section);
  return body == kNotFound ? kNotFound : Scan().FindKey(body, key);
}

// Start of the value of the key's line, or kNotFound.
uint32_t ValueOf(const char* section, const char* key) {
  if (section == nullptr || key == nullptr || !Load()) return kNotFound;
  uint32_t p = FindKey(section, key);
  if (p == kNotFound) return kNotFound;
  p = SkipBlanks(p) + static_cast<uint32_t>(strlen(key));
  p = SkipBlanks(p);
  if (p < a.length && a.text[p] == '=') ++p;
  return SkipBlanks(p);
}

bool Splice(uint32_t pos, uint32_t removeLen, const char* insert, uint32_t insertLen) {
  if (a.length - removeLen + insertLen >= kBufferSize) return false;
  a.length = SpliceSettingsText(a.text, a.length, pos, removeLen, insert, insertLen);
  return true;
}

void ParseError(const char* key) {
  char msg[512];
  if (key != nullptr && key[0] != '\0') {
    UTIL_snprintf(msg, sizeof msg, "Error while parsing subkey \"%s\" in settings file. Syntax error.", key);
  } else {
    UTIL_snprintf(msg, sizeof msg, "Error while parsing settings file. Syntax error.");
  }
  Report(msg);
}

// Removes any line of the key, puts `line` right after the section header
// (adding the section at the end when missing) and saves the file.
int Put(const char* section, const char* key, const char* line) {
  if (section == nullptr || key == nullptr || !Load()) return -1;
  const uint32_t old = FindKey(section, key);
  if (old != kNotFound) Splice(old, PastBreak(LineEnd(old)) - old, "", 0);
  uint32_t at = FindSection(section);
  if (at == kNotFound) {
    char head[300];
    char* h = head;
    if (a.length > 0 && !IsEol(a.text[a.length - 1])) h = UTIL_snprintf(h, 3, "\r\n");
    h = UTIL_snprintf(h, static_cast<int>(head + sizeof head - h), "[%s]\r\n", section);
    if (!Splice(a.length, 0, head, static_cast<uint32_t>(h - head))) return -1;
    at = a.length;
  }
  if (!Splice(at, 0, line, static_cast<uint32_t>(strlen(line)))) return -1;
  return Save();
}

}  // namespace

void APPINI_SetFile(const char* fileName, void (*errorOut)(const char* text)) {
  Guard guard;
  const char* name = fileName != nullptr ? fileName : "";
  if (strcmp(name, a.fileName) != 0) {
    UTIL_strcpy(a.fileName, name, sizeof a.fileName);
    a.loaded = false;
  }
  a.errorOut = errorOut;
}

int APPINI_GetRaw(const char* section, const char* key, char* buffer, int size) {
  Guard guard;
  if (buffer == nullptr || size <= 0) return -1;
  buffer[0] = '\0';
  const uint32_t p = ValueOf(section, key);
  if (p == kNotFound) return -1;
  const uint32_t e = LineEnd(p);
  UTIL_strncat(buffer, a.text + p, static_cast<int>(e - p), size);
  return 0;
}

int APPINI_GetString(const char* section, const char* key, char* buffer, int size) {
  Guard guard;
  if (buffer == nullptr || size <= 0) return -1;
  buffer[0] = '\0';
  uint32_t p = ValueOf(section, key);
  if (p == kNotFound) return -1;
  if (a.text[p] != '"') {
    ParseError(key);
    return -1;
  }
  ++p;
  int n = 0;
  while (p < a.length && a.text[p] != '"' && !IsEol(a.text[p]) && n < size - 1) buffer[n++] = a.text[p++];
  buffer[n] = '\0';
  if (p >= a.length || a.text[p] != '"') {
    ParseError(key);
    return -1;
  }
  return 0;
}

int APPINI_GetU32(const char* section, const char* key, uint32_t* value) {
  Guard guard;
  if (value == nullptr) return -1;
  *value = 0;
  uint32_t p = ValueOf(section, key);
  if (p == kNotFound) return -1;
  if (!(a.text[p] == '0' && a.text[p + 1] == 'x')) {
    ParseError(key);
    return -1;
  }
  p += 2;
  uint32_t v = 0;
  int digits = 0;
  for (int d; (d = UTIL_HexDigitValue(a.text[p])) >= 0; ++p, ++digits) {
    v = (v << 4) | static_cast<uint32_t>(d);
  }
  if (digits == 0) {
    ParseError(key);
    return -1;
  }
  *value = v;
  return 0;
}

int APPINI_GetDec(const char* section, const char* key, int32_t* value) {
  Guard guard;
  if (value == nullptr) return -1;
  *value = 0;
  uint32_t p = ValueOf(section, key);
  if (p == kNotFound) return -1;
  int64_t v = 0;
  int digits = 0;
  for (; a.text[p] >= '0' && a.text[p] <= '9'; ++p, ++digits) {
    v = v * 10 + (a.text[p] - '0');
    if (v > 2147483647) break;
  }
  if (digits == 0 || v > 2147483647) {
    ParseError(key);
    return -1;
  }
  *value = static_cast<int32_t>(v);
  return 0;
}

int APPINI_SetString(const char* section, const char* key, const char* value) {
  Guard guard;
  if (value == nullptr) return -1;
  char line[1024];
  UTIL_snprintf(line, sizeof line, "%s=\"%s\"\r\n", key != nullptr ? key : "", value);
  return Put(section, key, line);
}

int APPINI_SetHex8(const char* section, const char* key, uint32_t value) {
  Guard guard;
  char line[512];
  UTIL_snprintf(line, sizeof line, "%s = 0x%.2X\r\n", key != nullptr ? key : "", value & 0xFFu);
  return Put(section, key, line);
}

int APPINI_SetDec(const char* section, const char* key, int32_t value) {
  Guard guard;
  char line[512];
  UTIL_snprintf(line, sizeof line, "%s = %d\r\n", key != nullptr ? key : "", value);
  return Put(section, key, line);
}
