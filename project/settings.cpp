// The project file's text store. The file is held whole as one zero-terminated
// text; lookups scan it line by line and writes splice single lines in, so a
// file written by the program keeps every line it does not understand.
#include "project/settings.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "app/log.h"
#include "project/settings_internal.h"
#include "project/settings_scan.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

constexpr uint32_t kNameSize = 512;
constexpr uint32_t kGrowStep = 8192;
constexpr uint32_t kNotFound = SettingsScan::kNotFound;
constexpr int kLineSize = 2048;
constexpr int kArrayLineSize = 4096;
constexpr int kIndexSetBudget = 3968;

// Project files compare names without regard to case, and a key is followed
// by blanks and '=' or '['.
constexpr SettingsScanRules kRules{true, true, true};

inline char Lower(char c) { return SettingsScan::Lower(c); }

// A header or key name inside the text, with the segment it belongs to (a
// segment is the run of lines from one line starting with '[' to the next;
// segment 0 holds the lines before the first). Names compare without regard
// to ASCII case, as the lookups do.
struct NameRef {
  uint32_t segment;
  std::string_view name;
};
struct NameHash {
  size_t operator()(const NameRef& r) const {
    uint64_t h = 14695981039346656037ull ^ r.segment;
    for (char c : r.name) h = (h ^ static_cast<uint8_t>(Lower(c))) * 1099511628211ull;
    return static_cast<size_t>(h);
  }
};
struct NameEq {
  bool operator()(const NameRef& a, const NameRef& b) const {
    if (a.segment != b.segment || a.name.size() != b.name.size()) return false;
    for (size_t i = 0; i < a.name.size(); ++i) {
      if (Lower(a.name[i]) != Lower(b.name[i])) return false;
    }
    return true;
  }
};

// Where the lookups would stop, for every header and key line of the text:
// the first header of each name and the first line of each key per segment.
// Built in one pass on the first lookup after a change and dropped by every
// change, so it never disagrees with the text; the names point into it.
struct Index {
  bool valid = false;
  std::vector<uint32_t> bodies;  // per segment: start of its body, kNotFound when unreachable
  std::unordered_map<NameRef, uint32_t, NameHash, NameEq> sections;  // header name -> segment
  std::unordered_map<NameRef, uint32_t, NameHash, NameEq> keys;      // (segment, key) -> line start

  void Drop() {
    valid = false;
    bodies = {};
    sections = {};
    keys = {};
  }
};

struct Store {
  uint32_t state = 0;  // 0 not started, 1 ready, 2 shut down
  SYS_HMUTEX lock = nullptr;
  char fileName[kNameSize] = {};
  int isOpen = 0;
  int modified = 0;
  char* text = nullptr;
  uint32_t capacity = 0;
  uint32_t length = 0;
  Index index;
  bool useIndex = true;
};
Store g;

void FreeText() {
  SYS_Free(g.text);
  g.text = nullptr;
  g.capacity = 0;
  g.length = 0;
  g.index.Drop();
}

void Shutdown() {
  SYS_CloseMutex(&g.lock);
  FreeText();
  g.fileName[0] = '\0';
  g.isOpen = 0;
  g.state = 2;
}

// Holds the store's lock for one operation. `ok` is false after shutdown.
class Guard {
 public:
  Guard() {
    if (g.state == 0) {
      SYS_AtExit(Shutdown);
      g.lock = SYS_CreateMutex("SETTINGS");
      g.state = 1;
    }
    ok = g.state == 1;
    if (ok) SYS_WaitForMutex(g.lock, SYS_INFINITE);
  }
  ~Guard() {
    if (ok) SYS_ReleaseMutex(g.lock);
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  bool ok;
};

// Guard plus the open-store requirement of every operation but open/new.
bool RequireOpen(const Guard& guard) {
  if (!guard.ok) return false;
  if (!g.isOpen) {
    projectlog::ReportWarning("No project file opened.");
    return false;
  }
  return true;
}

// Capacity becomes the next multiple of 8 KiB strictly above n; new bytes are zero.
bool Grow(uint32_t n) {
  if (n >= 0xFFFFFFFFu - kGrowStep) return false;
  const uint32_t want = (n + kGrowStep) / kGrowStep * kGrowStep;
  if (want <= g.capacity) return true;
  char* p = static_cast<char*>(SYS_Realloc(g.text, want));
  if (p == nullptr) return false;
  memset(p + g.capacity, 0, want - g.capacity);
  g.text = p;
  g.capacity = want;
  return true;
}

SettingsScan Scan() { return SettingsScan{g.text, g.length, kRules}; }
inline bool IsBlank(char c) { return SettingsScan::IsBlank(c); }
inline bool IsEol(char c) { return SettingsScan::IsEol(c); }
// Ends the name at the start of a key line.
inline bool EndsKeyName(char c) { return IsBlank(c) || IsEol(c) || c == '=' || c == '['; }

uint32_t SkipBlanks(uint32_t p) { return Scan().SkipBlanks(p); }
uint32_t LineEnd(uint32_t p) { return Scan().LineEnd(p); }
uint32_t NextLine(uint32_t e) { return Scan().NextLine(e); }
uint32_t PastBreak(uint32_t e) { return Scan().PastBreak(e); }

bool HasName(const char* s) { return s != nullptr && s[0] != '\0'; }

// Body of the first section of that name, or kNotFound.
uint32_t FindSection(const char* section) {
  if (!HasName(section)) return g.text != nullptr ? 0 : kNotFound;
  if (g.text == nullptr) return kNotFound;
  return Scan().FindSection(section);
}

// Start of the key's line (indentation included) within the section body.
uint32_t FindKey(uint32_t body, const char* key) { return Scan().FindKey(body, key); }

std::string_view View(uint32_t from, uint32_t to) { return {g.text + from, to - from}; }

// One pass over the lines, with the rules of FindSection and FindKey.
void BuildIndex() {
  Index& x = g.index;
  x.Drop();
  x.bodies.push_back(g.text != nullptr ? 0 : kNotFound);
  size_t lines = 0;
  for (uint32_t p = 0; p < g.length; ++p) lines += g.text[p] == '\n';
  x.keys.reserve(lines + 1);
  uint32_t segment = 0;
  for (uint32_t p = NextLine(0); p < g.length;) {
    const uint32_t q = SkipBlanks(p);
    const uint32_t e = LineEnd(p);
    if (g.text[q] == '[') {
      segment = static_cast<uint32_t>(x.bodies.size());
      // A header on the last line, without a line end, is never found.
      x.bodies.push_back(e < g.length ? PastBreak(e) : kNotFound);
      uint32_t r = q + 1;
      while (r < e && g.text[r] != ']') ++r;
      if (r < e && r > q + 1) x.sections.try_emplace(NameRef{0, View(q + 1, r)}, segment);
    } else {
      uint32_t r = q;
      while (r < e && !EndsKeyName(g.text[r])) ++r;
      const uint32_t t = SkipBlanks(r);
      if (r > q && t < g.length && (g.text[t] == '=' || g.text[t] == '[')) {
        x.keys.try_emplace(NameRef{segment, View(q, r)}, p);
      }
    }
    p = NextLine(e);
  }
  x.valid = true;
}

// Names the index can answer for: a section name without ']' and a key name
// without the characters that end a key name. Others are looked up by scanning.
bool Indexable(const char* section, const char* key) {
  if (HasName(section) && strchr(section, ']') != nullptr) return false;
  for (const char* k = key; *k != '\0'; ++k) {
    if (EndsKeyName(*k)) return false;
  }
  return true;
}

// A key's section body (kNotFound when the section is missing) and line
// (kNotFound when the key is). `build`: build the index when it is stale;
// writes don't, as they drop it right after.
struct Where {
  uint32_t body;
  uint32_t line;
};
Where Locate(const char* section, const char* key, bool build) {
  if (g.useIndex && (g.index.valid || build) && Indexable(section, key)) {
    if (!g.index.valid) BuildIndex();
    uint32_t segment = 0;
    if (HasName(section)) {
      const auto s = g.index.sections.find(NameRef{0, section});
      if (s == g.index.sections.end()) return {kNotFound, kNotFound};
      segment = s->second;
    }
    const uint32_t body = g.index.bodies[segment];
    if (body == kNotFound) return {kNotFound, kNotFound};
    const auto k = g.index.keys.find(NameRef{segment, key});
    return {body, k != g.index.keys.end() ? k->second : kNotFound};
  }
  const uint32_t body = FindSection(section);
  return {body, body == kNotFound ? kNotFound : FindKey(body, key)};
}

uint32_t FindKeyLine(const char* section, const char* key) {
  if (key == nullptr || key[0] == '\0') return kNotFound;
  return Locate(section, key, true).line;
}

// Replaces `removeLen` bytes at `pos` with the given bytes.
bool Splice(uint32_t pos, uint32_t removeLen, const char* insert, uint32_t insertLen) {
  const uint64_t newLen = static_cast<uint64_t>(g.length) - removeLen + insertLen;
  if (newLen >= 0x7FFFFFFFu || !Grow(static_cast<uint32_t>(newLen))) return false;
  g.index.valid = false;
  g.length = SpliceSettingsText(g.text, g.length, pos, removeLen, insert, insertLen);
  return true;
}

// ---------------------------------------------------------------- parsing

// A cursor over the value part of one key line. The first complaint wins.
struct Parser {
  uint32_t pos;
  char error[256] = {};
  bool failed = false;

  char At() const { return pos < g.length ? g.text[pos] : '\0'; }
  void Blanks() { pos = SkipBlanks(pos); }
  void Fail(const char* message) {
    if (!failed) UTIL_strcpy(error, message, sizeof error);
    failed = true;
  }

  // Hexadecimal ("0x", no overflow check) or signed decimal; no digit reads 0.
  int64_t Number(int64_t min, int64_t max) {
    Blanks();
    int64_t value = 0;
    if (At() == '0' && pos + 1 < g.length && g.text[pos + 1] == 'x') {
      pos += 2;
      uint64_t v = 0;
      for (int d; (d = UTIL_HexDigitValue(At())) >= 0; ++pos) v = (v << 4) | static_cast<uint64_t>(d);
      value = static_cast<int64_t>(v);
    } else {
      bool negative = false;
      if (At() == '+' || At() == '-') negative = g.text[pos++] == '-';
      value = Digits();
      if (negative) value = -value;
    }
    char msg[64];
    if (value < min) {
      UTIL_snprintf(msg, sizeof msg, "Expected a value >= %lld", static_cast<long long>(min));
      Fail(msg);
    } else if (value > max) {
      UTIL_snprintf(msg, sizeof msg, "Expected a value <= %lld", static_cast<long long>(max));
      Fail(msg);
    }
    return value;
  }

  // Decimal only: a digit is required unless a sign was given; too large
  // values are clamped without a complaint.
  int32_t Decimal(int32_t min, int32_t max) {
    Blanks();
    bool negative = false, sign = false;
    if (At() == '+' || At() == '-') {
      sign = true;
      negative = g.text[pos++] == '-';
    }
    if (!sign && !IsDigit(At())) {
      Fail("Expecting a number");
      return 0;
    }
    int64_t value = Digits();
    if ((negative ? -value : value) < min) {
      char msg[64];
      UTIL_snprintf(msg, sizeof msg, "Expected a value >= %d", min);
      Fail(msg);
      return min;
    }
    if (value > max) value = max;
    return static_cast<int32_t>(negative ? -value : value);
  }

  // Key name, optional [count], '='. Returns the count (0 when absent).
  int32_t KeyPrefix(const char* key) {
    Blanks();
    const size_t n = strlen(key);
    if (!Scan().Match(pos, key, n)) {
      char msg[256];
      UTIL_snprintf(msg, sizeof msg, "Expected \"%s\"", key);
      Fail(msg);
      return 0;
    }
    pos += static_cast<uint32_t>(n);
    Blanks();
    int32_t count = 0;
    if (At() == '[') {
      ++pos;
      count = Decimal(0, 32767);
      Blanks();
      Expect(']');
    }
    Blanks();
    Expect('=');
    Blanks();
    return count < 0 ? 0 : count;
  }

  void Expect(char c) {
    if (failed) return;
    if (At() != c) {
      char msg[64];
      UTIL_snprintf(msg, sizeof msg, "Expected '%c', got '%c'", c, At());
      Fail(msg);
      return;
    }
    ++pos;
  }

  static bool IsDigit(char c) { return c >= '0' && c <= '9'; }
  // Decimal digits, saturated far beyond any accepted range.
  int64_t Digits() {
    int64_t v = 0;
    for (; IsDigit(At()); ++pos) {
      if (v < 100000000000000000LL) v = v * 10 + (At() - '0');
    }
    return v;
  }
};

// Finds the key and parses its prefix. Returns false (and prints nothing)
// when the key is missing; `count` receives the [count] of the line.
bool BeginRead(Parser& parser, const char* section, const char* key, int32_t* count) {
  const uint32_t line = FindKeyLine(section, key);
  if (line == kNotFound) return false;
  parser.pos = line;
  const int32_t n = parser.KeyPrefix(key);
  if (count != nullptr) *count = n;
  return true;
}

int EndRead(const Parser& parser) {
  if (!parser.failed) return 0;
  // Printed, not collected: the caller falls back to the key's default and
  // goes on, so a bad value must not fail the operation that reads it.
  // A string without its quotes carries no text; there is nothing to show.
  if (parser.error[0] != '\0') LOG_Error("%s", parser.error);
  return -1;
}

// ---------------------------------------------------------------- writing

// Replaces the key's line, inserts it in order, or appends its section.
void WriteLine(const char* section, const char* key, const char* line) {
  if (key == nullptr || key[0] == '\0') return;
  char buf[kArrayLineSize + 16];
  const int n = static_cast<int>(UTIL_snprintf(buf, sizeof buf, "%s\r\n", line) - buf);
  const Where where = Locate(section, key, false);
  const uint32_t body = where.body;
  if (body != kNotFound) {
    const uint32_t at = where.line;
    if (at != kNotFound) {
      if (!Splice(at, PastBreak(LineEnd(at)) - at, buf, static_cast<uint32_t>(n))) return;
    } else {
      const bool sorted = !(HasName(section) && UTIL_stricmp(section, "CPU") == 0);
      const size_t keyLen = strlen(key);
      uint32_t p = NextLine(body);
      while (p < g.length) {
        const uint32_t q = SkipBlanks(p);
        if (g.text[q] == '[') break;
        if (sorted && UTIL_strnicmp(g.text + q, key, static_cast<int>(keyLen)) >= 0) break;
        p = NextLine(LineEnd(p));
      }
      // The last line may lack its line end; keep the new line separate.
      const bool needBreak = p == g.length && p > 0 && !IsEol(g.text[p - 1]);
      if (needBreak && !Splice(p, 0, "\r\n", 2)) return;
      if (!Splice(needBreak ? p + 2 : p, 0, buf, static_cast<uint32_t>(n))) return;
    }
  } else {
    char head[kArrayLineSize + 300];
    char* h = head;
    if (g.length > 0 && !IsEol(g.text[g.length - 1])) h = UTIL_snprintf(h, 3, "\r\n");
    if (HasName(section)) h = UTIL_snprintf(h, static_cast<int>(head + sizeof head - h), "[%s]\r\n", section);
    h = UTIL_snprintf(h, static_cast<int>(head + sizeof head - h), "%s", buf);
    if (!Splice(g.length, 0, head, static_cast<uint32_t>(h - head))) return;
  }
  ++g.modified;
}

// "Could not <verb> file [<name>]\n<reason>" for a failed open or save, the
// reason chosen by the platform's last error code.
void FileMessage(char* buf, int size, const char* verb, const char* name, bool readOnly) {
  const char* reason;
  switch (SYS_GetLastError()) {
    case ENOENT: reason = "File not found!"; break;
    case ENOTDIR: reason = "Path not found!"; break;
    case EACCES:
    case EPERM:
    case EROFS: reason = readOnly ? "File has read only attribute!" : "Access is denied!"; break;
    case EINVAL:
    case ENAMETOOLONG: reason = "Filename syntax is incorrect!"; break;
    default: reason = "Invalid file handle!"; break;
  }
  UTIL_snprintf(buf, size, "Could not %s file [%s]\n%s", verb, name, reason);
}

int WriteFile(const char* fileName) {
  if (HasName(fileName) && strlen(fileName) < kNameSize) UTIL_strcpy(g.fileName, fileName, kNameSize);
  char msg[1024] = {};
  int result = 0;
  if (g.fileName[0] == '\0') {
    projectlog::ReportError("Unable to save project file. No filename specified.");
    return -1;
  }
  // Checked before the file is opened, so a failure never truncates it.
  if (g.text == nullptr || g.capacity == 0) {
    UTIL_snprintf(msg, sizeof msg, "Could not save project file [%s]\nInvalid file content buffer!", g.fileName);
    projectlog::ReportError(msg);
    return -1;
  }
  // Opening for writing would succeed for a privileged user; the attribute decides.
  if (SYS_FILE_IsReadOnly(g.fileName) == 1) {
    errno = EACCES;
    FileMessage(msg, sizeof msg, "save", g.fileName, true);
    projectlog::ReportError(msg);
    return -2;
  }
  const int fd = SYS_FILE_OpenSimple(g.fileName, SYS_FILE_WRITE_FLAGS);
  if (fd < 0) {
    FileMessage(msg, sizeof msg, "save", g.fileName, false);
    projectlog::ReportError(msg);
    return -2;
  }
  if (SYS_FILE_Write(fd, g.text, g.length) != static_cast<int>(g.length)) {
    UTIL_snprintf(msg, sizeof msg, "Could not save project file [%s]\nFailed to write data!", g.fileName);
    result = -1;
  }
  SYS_FILE_Close(fd);
  if (msg[0] != '\0') projectlog::ReportError(msg);
  return result;
}

}  // namespace

// ---------------------------------------------------------------- file operations

int SETTINGS_Open(const char* fileName) {
  Guard guard;
  if (!guard.ok) return -1;
  FreeText();
  g.isOpen = 0;
  if (fileName != nullptr && strlen(fileName) < kNameSize) UTIL_strcpy(g.fileName, fileName, kNameSize);
  char msg[1024] = {};
  if (g.fileName[0] == '\0') {
    UTIL_strcpy(msg, "Unable to open project file. No filename specified.", sizeof msg);
  } else {
    const int fd = SYS_FILE_OpenSimple(g.fileName, SYS_FILE_READ_FLAGS);
    if (fd < 0) {
      FileMessage(msg, sizeof msg, "open", g.fileName, false);
    } else {
      const uint32_t size = SYS_FILE_GetSize(fd);
      if (!Grow(size)) {
        UTIL_snprintf(msg, sizeof msg, "Could not open project file [%s]\nUnable to create file buffer!", g.fileName);
      } else if (SYS_FILE_Read(fd, g.text, size) != static_cast<int>(size)) {
        UTIL_snprintf(msg, sizeof msg, "Could not open project file [%s]\nFailed to read data!", g.fileName);
      } else {
        g.length = size;
        g.text[size] = '\0';
      }
      SYS_FILE_Close(fd);
    }
  }
  if (msg[0] != '\0') {
    FreeText();
    g.fileName[0] = '\0';
    projectlog::ReportError(msg);
    return -1;
  }
  g.isOpen = 1;
  g.modified = 0;
  return 0;
}

int SETTINGS_OpenText(const char* text, uint32_t length) {
  Guard guard;
  if (!guard.ok) return -1;
  FreeText();
  g.isOpen = 0;
  g.fileName[0] = '\0';
  if (!Grow(length)) return -1;
  if (length != 0) memcpy(g.text, text, length);
  g.length = length;
  g.isOpen = 1;
  g.modified = 0;
  return 0;
}

const char* SETTINGS_GetText(uint32_t* length) {
  Guard guard;
  if (length != nullptr) *length = guard.ok && g.isOpen ? g.length : 0;
  return guard.ok && g.isOpen ? g.text : nullptr;
}

int SETTINGS_New(const char* fileName) {
  Guard guard;
  if (!guard.ok) return -1;
  FreeText();
  g.isOpen = 0;
  char msg[1024];
  if (fileName != nullptr && strlen(fileName) >= kNameSize) {
    projectlog::ReportError("Insufficient memory for filename.");
    return -1;
  }
  if (HasName(fileName) && SYS_FILE_Exists(fileName)) {
    UTIL_snprintf(msg, sizeof msg, "File already exist:\n%s", fileName);
    projectlog::ReportError(msg);
    return -1;
  }
  UTIL_strcpy(g.fileName, fileName != nullptr ? fileName : "", kNameSize);
  g.isOpen = 1;
  g.modified = 1;
  return 0;
}

int SETTINGS_Save(const char* fileName) {
  Guard guard;
  if (!RequireOpen(guard)) return -1;
  if (g.modified == 0) return 0;
  const int result = WriteFile(fileName);
  if (result == 0) g.modified = 0;
  return result;
}

int SETTINGS_Close(void) {
  Guard guard;
  if (!RequireOpen(guard)) return -1;
  FreeText();
  g.fileName[0] = '\0';
  g.isOpen = 0;
  return 0;
}

int SETTINGS_Clear(void) {
  Guard guard;
  if (!RequireOpen(guard)) return -1;
  FreeText();
  ++g.modified;
  return 0;
}

int SETTINGS_IsOpen(void) {
  Guard guard;
  if (!guard.ok) return -1;
  return g.isOpen ? 1 : 0;
}

const char* SETTINGS_GetFileName(void) {
  Guard guard;
  if (!RequireOpen(guard)) return nullptr;
  return g.fileName;
}

int SETTINGS_GetModified(void) {
  Guard guard;
  if (!guard.ok || !g.isOpen) return -1;
  return g.modified;
}

int SETTINGS_HasKey(const char* section, const char* key) {
  Guard guard;
  if (!guard.ok || !g.isOpen) return 0;
  return FindKeyLine(section, key) != kNotFound ? 1 : 0;
}

// ---------------------------------------------------------------- typed reads

namespace {
template <typename T>
int ReadNumber(const char* section, const char* key, T* value, int64_t min, int64_t max) {
  Guard guard;
  if (value != nullptr) *value = 0;
  if (!RequireOpen(guard) || value == nullptr) return -1;
  Parser p{};
  if (!BeginRead(p, section, key, nullptr)) return -1;
  const int64_t v = p.Number(min, max);
  if (!p.failed) *value = static_cast<T>(v);
  return EndRead(p);
}
}  // namespace

int SETTINGS_GetU32(const char* section, const char* key, uint32_t* value) {
  return ReadNumber(section, key, value, -4294967296LL, 4294967295LL);
}

int SETTINGS_GetI32(const char* section, const char* key, int32_t* value) {
  return ReadNumber(section, key, value, -2147483648LL, 2147483647LL);
}

int SETTINGS_GetString(const char* section, const char* key, char* buffer, int size) {
  Guard guard;
  if (buffer != nullptr && size > 0) buffer[0] = '\0';
  if (!RequireOpen(guard) || buffer == nullptr || size <= 0) return -1;
  Parser p{};
  if (!BeginRead(p, section, key, nullptr)) return -1;
  if (!p.failed) {
    if (p.At() != '"') {
      p.Fail("");
    } else {
      ++p.pos;
      int n = 0;
      while (n < size - 1 && p.pos < g.length && g.text[p.pos] != '"') buffer[n++] = g.text[p.pos++];
      buffer[n] = '\0';
      if (p.At() != '"') p.Fail("");
    }
  }
  EndRead(p);
  return -1;  // callers ignore the result; it has always been -1
}

namespace {
int ReadBytes(const char* section, const char* key, uint8_t* bytes, int capacity, bool decimalOnly) {
  Guard guard;
  if (bytes != nullptr && capacity > 0) memset(bytes, 0, static_cast<size_t>(capacity));
  if (!RequireOpen(guard) || bytes == nullptr || capacity <= 0) return -1;
  Parser p{};
  int32_t count = 0;
  if (!BeginRead(p, section, key, &count)) return -1;
  const int n = count < capacity ? count : capacity;
  for (int i = 0; i < n && !p.failed; ++i) {
    const int64_t v = decimalOnly ? p.Decimal(0, 255) : p.Number(0, 255);
    if (!p.failed) bytes[i] = static_cast<uint8_t>(v);
    p.Blanks();
    if (p.At() == ',') ++p.pos;
    p.Blanks();
  }
  return EndRead(p);
}
}  // namespace

int SETTINGS_GetByteArray(const char* section, const char* key, uint8_t* bytes, int capacity) {
  return ReadBytes(section, key, bytes, capacity, false);
}

int SETTINGS_GetDecByteArray(const char* section, const char* key, uint8_t* bytes, int capacity) {
  return ReadBytes(section, key, bytes, capacity, true);
}

int SETTINGS_GetIndexSet(const char* section, const char* key, uint8_t* flags, int numFlags) {
  Guard guard;
  if (flags != nullptr && numFlags > 0) memset(flags, 0, static_cast<size_t>(numFlags));
  if (!RequireOpen(guard) || flags == nullptr || numFlags <= 0) return -1;
  Parser p{};
  int32_t count = 0;
  if (!BeginRead(p, section, key, &count)) return -1;
  for (int i = 0; i < count && !p.failed; ++i) {
    if (IsEol(p.At()) || p.At() == '\0') break;
    int32_t start = p.Decimal(0, 32767);
    int32_t end = start;
    p.Blanks();
    if (p.At() == '-') {
      ++p.pos;
      end = p.Decimal(0, 32767);
    }
    p.Blanks();
    if (p.At() == ',') ++p.pos;
    if (p.failed) break;
    if (start < 0) start = 0;
    if (end < start) end = start;
    if (start >= numFlags) break;
    for (int32_t k = start; k <= end && k < numFlags; ++k) flags[k] = 1;
  }
  return EndRead(p);
}

// ---------------------------------------------------------------- typed writes

namespace {
// The numeric writes: "  key = value", the value formatted by the caller.
void WriteNumber(const char* section, const char* key, const char* value) {
  Guard guard;
  if (!RequireOpen(guard) || key == nullptr) return;
  char line[kLineSize];
  UTIL_snprintf(line, sizeof line, "  %s = %s", key, value);
  WriteLine(section, key, line);
}
}  // namespace

void SETTINGS_SetHex8(const char* section, const char* key, uint32_t value) {
  char text[16];
  UTIL_snprintf(text, sizeof text, "0x%.2X", value & 0xFFu);
  WriteNumber(section, key, text);
}

void SETTINGS_SetDec(const char* section, const char* key, int32_t value) {
  char text[16];
  UTIL_snprintf(text, sizeof text, "%d", value);
  WriteNumber(section, key, text);
}

void SETTINGS_SetHex32(const char* section, const char* key, uint32_t value) {
  char text[16];
  UTIL_snprintf(text, sizeof text, "0x%.8X", value);
  WriteNumber(section, key, text);
}

void SETTINGS_SetString(const char* section, const char* key, const char* text) {
  Guard guard;
  if (!RequireOpen(guard) || key == nullptr || text == nullptr) return;
  char line[kLineSize];
  UTIL_snprintf(line, sizeof line, "  %s = \"%s\"", key, text);
  WriteLine(section, key, line);
}

namespace {
void WriteBytes(const char* section, const char* key, const uint8_t* bytes, int count, bool decimal) {
  Guard guard;
  if (!RequireOpen(guard) || key == nullptr || bytes == nullptr || count <= 0) return;
  char line[kArrayLineSize];
  char* end = line + sizeof line;
  char* p = UTIL_snprintf(line, sizeof line, "  %s[%d] = ", key, count);
  for (int i = 0; i < count && p < end - 1; ++i) {
    const char* sep = i == 0 ? "" : ",";
    p = decimal ? UTIL_snprintf(p, static_cast<int>(end - p), "%s%d", sep, bytes[i])
                : UTIL_snprintf(p, static_cast<int>(end - p), "%s0x%.2X", sep, bytes[i]);
  }
  WriteLine(section, key, line);
}
}  // namespace

void SETTINGS_SetByteArray(const char* section, const char* key, const uint8_t* bytes, int count) {
  WriteBytes(section, key, bytes, count, false);
}

void SETTINGS_SetDecByteArray(const char* section, const char* key, const uint8_t* bytes, int count) {
  WriteBytes(section, key, bytes, count, true);
}

void SETTINGS_SetIndexSet(const char* section, const char* key, const uint8_t* flags, int numFlags) {
  Guard guard;
  if (!RequireOpen(guard) || key == nullptr || flags == nullptr || numFlags <= 0) return;
  // Items first (their number goes in front of them), one per run of set flags.
  char items[kArrayLineSize];
  char* p = items;
  items[0] = '\0';
  int numItems = 0;
  for (int i = 0; i < numFlags;) {
    if (flags[i] == 0) {
      ++i;
      continue;
    }
    int j = i;
    while (j + 1 < numFlags && flags[j + 1] != 0) ++j;
    char item[32];
    const char* sep = numItems == 0 ? "" : ",";
    if (j == i) {
      UTIL_snprintf(item, sizeof item, "%s%d", sep, i);
    } else {
      UTIL_snprintf(item, sizeof item, "%s%d-%d", sep, i, j);
    }
    const int len = UTIL_strlen(item);
    if ((p - items) + len > kIndexSetBudget) break;
    p = UTIL_snprintf(p, static_cast<int>(items + sizeof items - p), "%s", item);
    ++numItems;
    i = j + 1;
  }
  char line[kArrayLineSize + 300];
  UTIL_snprintf(line, sizeof line, "  %s[%d] = %s", key, numItems, items);
  WriteLine(section, key, line);
}

void SETTINGS_DeleteKey(const char* section, const char* key) {
  Guard guard;
  if (!RequireOpen(guard)) return;
  if (key == nullptr || key[0] == '\0') return;
  const uint32_t at = Locate(section, key, false).line;
  if (at == kNotFound) return;
  Splice(at, PastBreak(LineEnd(at)) - at, nullptr, 0);
  ++g.modified;
}

void SETTINGS_SetIndexed(int on) {
  Guard guard;
  if (!guard.ok) return;
  g.useIndex = on != 0;
  g.index.Drop();
}
