// Parsing of the simulator's environment settings.
#include "tarlosim/config.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace tarlosim {

std::string Env(const char* name, const char* def, bool* set) {
  const char* v = std::getenv(name);
  if (set) *set = v != nullptr;
  return v ? v : def;
}


namespace {

// A whole unsigned number, at most max: by default as C writes it (decimal,
// 0x hex, leading-0 octal). `rest` takes what follows it, else nothing may.
bool ParseNumber(const std::string& s, uint64_t max, uint64_t& v, std::string* rest = nullptr, int base = 0) {
  if (s.empty() || !std::isdigit(static_cast<unsigned char>(s[0]))) return false;
  errno = 0;
  char* end = nullptr;
  const unsigned long long n = std::strtoull(s.c_str(), &end, base);
  if (errno != 0 || n > max || end == s.c_str()) return false;
  const std::string tail(end);
  if (rest) *rest = tail;
  else if (!tail.empty()) return false;
  v = n;
  return true;
}

bool ParseSize(const std::string& s, uint32_t& size) {
  uint64_t v = 0;
  std::string rest;
  if (!ParseNumber(s, 0xFFFFFFFFull, v, &rest) || rest.size() > 1) return false;
  if (!rest.empty()) {
    const char u = static_cast<char>(std::toupper(static_cast<unsigned char>(rest[0])));
    const int shift = u == 'K' ? 10 : u == 'M' ? 20 : u == 'G' ? 30 : -1;
    if (shift < 0) return false;
    v <<= shift;
  }
  if (v == 0 || v > 0xFFFFFFFFull) return false;
  size = static_cast<uint32_t>(v);
  return true;
}

std::string Trim(const std::string& s) {
  const size_t a = s.find_first_not_of(" \t");
  if (a == std::string::npos) return "";
  return s.substr(a, s.find_last_not_of(" \t") + 1 - a);
}

// The comma-separated items of a list setting, blanks around them removed,
// empty items left out.
std::vector<std::string> Items(const std::string& list) {
  std::vector<std::string> r;
  for (size_t p = 0; p <= list.size();) {
    size_t q = list.find(',', p);
    if (q == std::string::npos) q = list.size();
    std::string one = Trim(list.substr(p, q - p));
    if (!one.empty()) r.push_back(one);
    p = q + 1;
  }
  return r;
}

// One fault of TARLOSIM_FAULT; false when it is not one we know.
bool ParseFault(const std::string& one, Config& c) {
  if (one == "no-spi") c.noSpi = true;
  else if (one == "erase-timeout") c.faults.eraseTimeout = true;
  else if (one == "program-timeout") c.faults.programTimeout = true;
  else if (one == "protected") c.faults.isProtected = true;
  else if (one == "no-batch") c.noBatch = true;
  else if (one == "batch-nomem") c.batchNoMem = true;
  else if (one == "batch-unsupported") c.batchUnsupported = true;
  else if (one == "ip-unreachable") c.ipUnreachable = true;
  else if (one.rfind("drop@", 0) == 0) {
    uint64_t n = 0;
    if (!ParseNumber(one.substr(5), 0x7FFFFFFF, n)) return false;
    c.dropAfter = static_cast<long>(n);
  } else if (one.rfind("stuck@", 0) == 0) {
    uint64_t a = 0, bit = 0;
    std::string rest;
    if (!ParseNumber(one.substr(6), 0xFFFFFFFFull, a, &rest)) return false;
    if (!rest.empty() && (rest[0] != ':' || rest.size() != 2 || rest[1] < '0' || rest[1] > '7')) return false;
    if (!rest.empty()) bit = static_cast<uint64_t>(rest[1] - '0');
    c.faults.stuck.push_back({static_cast<uint32_t>(a), static_cast<uint8_t>(1u << bit)});
  } else {
    return false;
  }
  return true;
}

// Keeps the first bad setting; the probe then refuses to open with it.
void Bad(Config& c, const char* name, const std::string& value, const std::string& why) {
  if (c.error.empty()) c.error = std::string("Bad simulator setting ") + name + "=\"" + value + "\": " + why;
}

// A decimal number of at most max, digits only.
bool ParseDecimal(const std::string& s, uint64_t max, uint64_t& v) {
  bool digits = true;
  for (char ch : s) digits = digits && std::isdigit(static_cast<unsigned char>(ch));
  return digits && ParseNumber(s, max, v, nullptr, 10);
}

void ReadChip(Config& c) {
  const std::string chip = Env("TARLOSIM_CHIP", "");
  if (chip.empty()) return;
  bool hex = chip.size() % 2 == 0 && chip.size() >= 6 && chip.size() <= 26;
  for (char ch : chip) hex = hex && std::isxdigit(static_cast<unsigned char>(ch));
  if (!hex) {
    Bad(c, "TARLOSIM_CHIP", chip, "not 3 to 13 bytes as hex digits");
    return;
  }
  c.chipHex.clear();
  c.id.clear();
  for (char ch : chip) c.chipHex += static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  for (size_t i = 0; i < c.chipHex.size(); i += 2)
    c.id.push_back(static_cast<uint8_t>(std::stoul(c.chipHex.substr(i, 2), nullptr, 16)));
}

void ReadFiles(Config& c) {
  c.flashPath = Env("TARLOSIM_FLASH", "");
  if (c.flashPath.empty()) {
    std::string home = Env("HOME", "");
    std::string dir = home.empty() ? "/tmp/tarlosim-" + std::to_string(getuid()) : home + "/.tarlosim";
    c.flashPath = dir + "/flash-" + c.chipHex + ".bin";
  }
  c.tracePath = Env("TARLOSIM_TRACE", "");
  c.statsPath = Env("TARLOSIM_STATS", "");
}

void ReadSerials(Config& c) {
  bool snSet = false;
  const std::string sn = Env("TARLOSIM_SN", "", &snSet);
  if (!snSet) return;
  c.serials.clear();
  for (const std::string& one : Items(sn)) {
    uint64_t v = 0;
    if (!ParseDecimal(one, 0xFFFFFFFFull, v)) {
      Bad(c, "TARLOSIM_SN", sn, "\"" + one + "\" is not a serial number");
      break;
    }
    c.serials.push_back(static_cast<uint32_t>(v));
  }
}

}  // namespace

Config ReadConfig() {
  Config c;
  // An empty value means the default, as if the variable were not set.
  ReadChip(c);
  const std::string size = Env("TARLOSIM_SIZE", "");
  if (!size.empty() && !ParseSize(size, c.sizeOverride))
    Bad(c, "TARLOSIM_SIZE", size, "not a size in bytes from 1 to 4G - 1 (a number, K, M or G allowed after it)");
  ReadFiles(c);
  const std::string vt = Env("TARLOSIM_VTARGET", "");
  if (!vt.empty()) {
    uint64_t v = 0;
    if (!ParseDecimal(vt, 0x7FFFFFFF, v)) Bad(c, "TARLOSIM_VTARGET", vt, "not a voltage in mV (a whole number)");
    else c.vtarget = static_cast<int>(v);
  }
  ReadSerials(c);
  const std::string t = Env("TARLOSIM_TIMING", "");
  if (t == "model") c.timing = Timing::Model;
  else if (t == "real") c.timing = Timing::Real;
  else if (!t.empty() && t != "instant") Bad(c, "TARLOSIM_TIMING", t, "not instant, model or real");
  const std::string f = Env("TARLOSIM_FAULT", "");
  for (const std::string& one : Items(f)) {
    if (!ParseFault(one, c)) {
      Bad(c, "TARLOSIM_FAULT", f, "unknown fault \"" + one + "\"");
      break;
    }
  }
  return c;
}


}  // namespace tarlosim
