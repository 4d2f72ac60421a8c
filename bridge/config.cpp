// Parsing PELLAM_BRIDGE. A value that does not parse is refused with one
// reason: guessing at a half-understood line could drive the wrong device.
#include "bridge/config.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace bridge {

const char* const kGrammar =
    "serprog:DEVICE[,baud=N][,cs=N][,vtarget=MV][,sn=N], "
    "serprog:tcp:HOST:PORT[,cs=N][,vtarget=MV][,sn=N] or "
    "spidev:DEVICE[,reset=GPIOCHIP:LINE][,reset-active=low|high][,vtarget=MV][,sn=N]";

namespace {

bool Number(std::string_view s, uint32_t max, uint32_t& v) {
  if (s.empty() || s.size() > 10) return false;
  uint64_t n = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<uint64_t>(c - '0');
  }
  if (n > max) return false;
  v = static_cast<uint32_t>(n);
  return true;
}

bool Fail(std::string& error, const std::string& what) {
  error = "PELLAM_BRIDGE: " + what + ". Expected " + kGrammar + ".";
  return false;
}

}  // namespace

bool ParseHostPort(const std::string& text, std::string& host, int& port, std::string& error) {
  const size_t colon = text.rfind(':');
  uint32_t p = 0;
  if (colon == std::string::npos || colon == 0 || !Number(std::string_view(text).substr(colon + 1), 65535, p) ||
      p == 0) {
    error = "\"" + text + "\" is not HOST:PORT (a serprog device over TCP needs both)";
    return false;
  }
  host = text.substr(0, colon);
  port = static_cast<int>(p);
  return true;
}

bool ParseConfig(const char* text, Config& out, std::string& error) {
  if (text == nullptr || *text == '\0') {
    error = std::string("PELLAM_BRIDGE is not set: it names the adapter, as ") + kGrammar + ".";
    return false;
  }
  Config c;
  const std::string_view all(text);
  std::string_view rest;
  if (all.starts_with("serprog:")) {
    c.kind = Kind::Serprog;
    rest = all.substr(8);
  } else if (all.starts_with("spidev:")) {
    c.kind = Kind::Spidev;
    rest = all.substr(7);
  } else {
    return Fail(error, "\"" + std::string(all) + "\" names no known kind (serprog: or spidev:)");
  }
  const size_t comma = rest.find(',');
  const std::string_view dev = rest.substr(0, comma);
  if (c.kind == Kind::Serprog && dev.starts_with("tcp:")) {
    std::string why;
    if (!ParseHostPort(std::string(dev.substr(4)), c.device, c.port, why)) return Fail(error, why);
  } else {
    c.device = dev;
  }
  if (c.device.empty()) return Fail(error, "the device is missing");
  std::string_view opts = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
  while (comma != std::string_view::npos) {
    const size_t next = opts.find(',');
    const std::string_view opt = opts.substr(0, next);
    const size_t eq = opt.find('=');
    const std::string_view key = opt.substr(0, eq);
    const std::string_view val = eq == std::string_view::npos ? std::string_view() : opt.substr(eq + 1);
    const std::string bad = "\"" + std::string(opt) + "\" is not a valid option";
    uint32_t v = 0;
    if (eq == std::string_view::npos) return Fail(error, bad);
    if (key == "vtarget") {
      if (!Number(val, 65535, v)) return Fail(error, bad + " (millivolts, 0 to 65535)");
      c.vtargetMv = static_cast<int>(v);
    } else if (key == "sn") {
      if (!Number(val, 0xFFFFFFFFu, c.sn)) return Fail(error, bad + " (a decimal serial number)");
      c.snSet = true;
    } else if (c.kind == Kind::Serprog && key == "baud" && c.port == 0) {
      if (!Number(val, 4000000, c.baud) || c.baud == 0) return Fail(error, bad);
    } else if (c.kind == Kind::Serprog && key == "cs") {
      if (!Number(val, 255, v)) return Fail(error, bad + " (a chip-select number, 0 to 255)");
      c.cs = static_cast<int>(v);
    } else if (c.kind == Kind::Spidev && key == "reset") {
      const size_t colon = val.rfind(':');
      if (colon == std::string_view::npos || colon == 0 || !Number(val.substr(colon + 1), 65535, c.resetLine))
        return Fail(error, bad + " (GPIOCHIP:LINE, e.g. /dev/gpiochip0:25)");
      c.resetChip = val.substr(0, colon);
    } else if (c.kind == Kind::Spidev && key == "reset-active" && (val == "low" || val == "high")) {
      c.resetActiveLow = val == "low";
    } else {
      return Fail(error, bad);
    }
    if (next == std::string_view::npos) break;
    opts = opts.substr(next + 1);
  }
  out = c;
  return true;
}

}  // namespace bridge
