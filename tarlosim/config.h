// The simulator's settings, read from the TARLOSIM_* environment variables
// each time the probe is selected or opened.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "tarlosim/chip.h"

namespace tarlosim {

constexpr uint32_t kDefaultSerial = 123456;

struct Config {
  std::string chipHex = "C22018";
  std::vector<uint8_t> id{0xC2, 0x20, 0x18};
  uint32_t sizeOverride = 0;
  std::string flashPath, tracePath, statsPath;
  int vtarget = 3300;
  std::vector<uint32_t> serials{kDefaultSerial};
  Timing timing = Timing::Instant;
  Faults faults;
  bool noSpi = false, noBatch = false, batchNoMem = false, batchUnsupported = false, ipUnreachable = false;
  long dropAfter = -1;
  // The first setting that does not parse; the probe then refuses to open,
  // so a misspelt fault never lets a test pass without it.
  std::string error;
};

// The variable's value, or def when it is unset; *set (if given) tells which.
std::string Env(const char* name, const char* def, bool* set = nullptr);
// Every setting; the first one that does not parse is described in error.
Config ReadConfig();

}  // namespace tarlosim
