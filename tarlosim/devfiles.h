// What the simulated devices (the serprog device and the preloaded spidev
// fake) share: the chip's ID from its hex text, the contents file, the trace
// and the stats file, all in the formats the simulated probe writes.
#pragma once
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tarlosim/chip.h"

namespace tarlosim {

// Upper-cases hex and splits it into ID bytes; false when it is not hex.
inline bool ParseChipId(std::string& hex, std::vector<uint8_t>& id) {
  id.clear();
  if (hex.empty() || hex.size() % 2) return false;
  for (char& c : hex) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  for (size_t i = 0; i < hex.size(); i += 2) id.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return true;
}

// Writes a whole file under a temporary name and renames it into place, so a
// reader never sees half of it.
inline bool ReplaceFile(const std::string& path, const void* data, size_t n) {
  const std::string tmp = path + ".tmp" + std::to_string(getpid());
  FILE* f = std::fopen(tmp.c_str(), "wb");
  if (!f) return false;
  bool ok = std::fwrite(data, 1, n, f) == n;
  ok = std::fclose(f) == 0 && ok;
  if (ok && std::rename(tmp.c_str(), path.c_str()) == 0) return true;
  std::remove(tmp.c_str());
  return false;
}

// Powers the chip up with the contents of path (none: erased and in memory
// only). A missing file is created erased; a short one reads as erased past
// its end.
inline bool PowerUpFromFile(Chip& chip, std::string hex, const std::string& path, std::string& err) {
  std::vector<uint8_t> id;
  if (!ParseChipId(hex, id)) {
    err = "chip ID is not hex: " + hex;
    return false;
  }
  const Profile prof = FindProfile(hex, id);
  std::vector<uint8_t>& mem = chip.Mem();
  mem.assign(prof.size, 0xFF);
  if (!path.empty()) {
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
      const size_t got = std::fread(mem.data(), 1, mem.size(), f);
      (void)got;  // the rest stays erased
      std::fclose(f);
    } else if (!ReplaceFile(path, mem.data(), mem.size())) {
      err = "cannot create the contents file " + path;
      return false;
    }
  }
  chip.PowerUp(prof, id, Timing::Instant, Faults{});
  chip.ClearDirty();
  return true;
}

// Writes the contents back when the chip changed them.
inline void SaveContents(Chip& chip, const std::string& path) {
  if (path.empty() || !chip.Dirty()) return;
  if (ReplaceFile(path, chip.Mem().data(), chip.Mem().size())) chip.ClearDirty();
}

// One trace line per chip-select frame: the bytes as upper-case hex.
inline void TraceFrame(FILE* f, const std::vector<uint8_t>& fr) {
  if (!f || fr.empty()) return;
  static const char* hex = "0123456789ABCDEF";
  char buf[3 * 1024];
  size_t k = 0;
  for (size_t i = 0; i < fr.size(); i++) {
    buf[k++] = hex[fr[i] >> 4];
    buf[k++] = hex[fr[i] & 15];
    buf[k++] = i + 1 < fr.size() ? ' ' : '\n';
    if (k == sizeof buf || i + 1 == fr.size()) {
      std::fwrite(buf, 1, k, f);
      k = 0;
    }
  }
}

// Ends the chip's frame, if one is open, and traces it.
inline void EndFrame(Chip& chip, FILE* trace) {
  if (!chip.Selected()) return;
  chip.Release();
  TraceFrame(trace, chip.Frame());
}

// Rewrites a stats file of "key value" lines.
inline void WriteStatsFile(const std::string& path, const std::vector<std::pair<const char*, uint64_t>>& kv) {
  if (path.empty()) return;
  std::string text;
  for (const auto& [k, v] : kv) text += std::string(k) + " " + std::to_string(v) + "\n";
  ReplaceFile(path, text.data(), text.size());
}

}  // namespace tarlosim
