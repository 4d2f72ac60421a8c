#include "tarlosim/chip.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace tarlosim {

namespace {

constexpr uint32_t KiB = 1024, MiB = 1024 * 1024;
constexpr uint64_t us = 1000, ms = 1000 * us;

// Our own parts: geometry and datasheet-typical times. An ID not listed is a
// standard part sized by its capacity byte.
const Profile kProfiles[] = {
    // id      size      family                bp    4B     page    4K      32K      64K      chip/MiB
    {"C22018", 16 * MiB, Family::Standard,     0x3C, false, 700 * us, 45 * ms, 150 * ms, 300 * ms, 3000 * ms},
    {"C22019", 32 * MiB, Family::Standard,     0x3C, true,  700 * us, 45 * ms, 150 * ms, 300 * ms, 3000 * ms},
    {"C22017", 8 * MiB,  Family::Standard,     0x3C, false, 700 * us, 45 * ms, 150 * ms, 300 * ms, 3000 * ms},
    {"EF4018", 16 * MiB, Family::Standard,     0x1C, false, 700 * us, 45 * ms, 120 * ms, 150 * ms, 2500 * ms},
    {"EF4019", 32 * MiB, Family::Standard,     0x3C, true,  700 * us, 45 * ms, 120 * ms, 150 * ms, 2500 * ms},
    {"20BA18", 16 * MiB, Family::FlagStatus,   0x5C, false, 500 * us, 50 * ms, 150 * ms, 400 * ms, 2500 * ms},
    {"20BA19", 32 * MiB, Family::FlagStatus,   0x5C, true,  500 * us, 50 * ms, 150 * ms, 400 * ms, 2500 * ms},
    {"1F2600", 2 * MiB,  Family::PageBased,    0x00, false, 1500 * us, 15 * ms, 15 * ms, 400 * ms, 1000 * ms},
    {"BF2643", 8 * MiB,  Family::GlobalUnlock, 0x00, false, 1500 * us, 18 * ms, 18 * ms, 18 * ms, 5 * ms},
    {"042503", 32 * KiB, Family::Ferro,        0x0C, false, 0, 0, 0, 0, 0},
    {"7F9D46", 4 * MiB,  Family::Standard,     0x3C, false, 800 * us, 70 * ms, 150 * ms, 300 * ms, 3000 * ms},
    {"C22020", 128 * MiB, Family::Standard,    0x3C, true,  700 * us, 45 * ms, 150 * ms, 300 * ms, 3000 * ms},
};

// The opcodes the emulated parts answer to. Some bytes mean different
// things by family (0x50 clears the flag status of one family and erases a
// block of the page-based one).
constexpr uint8_t kOpWriteEnable = 0x06, kOpWriteDisable = 0x04, kOpWriteStatus = 0x01;
constexpr uint8_t kOpReadStatus = 0x05, kOpReadStatus2 = 0x35, kOpReadConfig = 0x15, kOpReadFlagStatus = 0x70;
constexpr uint8_t kOpClearFlagStatus = 0x50, kOpResetEnable = 0x66, kOpReset = 0x99, kOpGlobalUnlock = 0x98;
constexpr uint8_t kOpEnter4Byte = 0xB7, kOpExit4Byte = 0xE9, kOpWriteExtAddr = 0xC5, kOpReadExtAddr = 0xC8;
constexpr uint8_t kOpReadId = 0x9F, kOpRead = 0x03, kOpRead4B = 0x13, kOpFastRead = 0x0B, kOpFastRead4B = 0x0C;
constexpr uint8_t kOpPageProgram = 0x02, kOpPageProgram4B = 0x12;
constexpr uint8_t kOpErase4K = 0x20, kOpErase4K4B = 0x21, kOpErase32K = 0x52, kOpErase32K4B = 0x5C;
constexpr uint8_t kOpErase64K = 0xD8, kOpErase64K4B = 0xDC, kOpChipErase = 0xC7, kOpChipErase2 = 0x60;
// The page-based family.
constexpr uint8_t kOpPageBasedStatus = 0xD7, kOpPageErase = 0x81, kOpPageBasedBlockErase = 0x50;
constexpr uint8_t kOpPageBasedSectorErase = 0x7C;

bool IsStatusOp(const Profile& p, uint8_t op) {
  if (p.family == Family::PageBased) return op == kOpPageBasedStatus;
  return op == kOpReadStatus || op == kOpReadStatus2 || op == kOpReadConfig ||
         (p.family == Family::FlagStatus && op == kOpReadFlagStatus);
}

bool IsFourByteOp(uint8_t op) {
  return op == kOpRead4B || op == kOpFastRead4B || op == kOpPageProgram4B || op == kOpErase4K4B ||
         op == kOpErase32K4B || op == kOpErase64K4B;
}

}  // namespace

uint64_t WallNs() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

Profile FindProfile(const std::string& idHex, const std::vector<uint8_t>& idBytes) {
  for (const Profile& p : kProfiles)
    if (idHex == p.id) return p;
  // Skip continuation codes and match manufacturer, type and capacity.
  std::vector<uint8_t> core;
  for (uint8_t b : idBytes)
    if (b != 0x7F || !core.empty()) core.push_back(b);
  Profile g = kProfiles[0];
  g.id = "";
  if (core.size() >= 3) {
    char key[8];
    static const char* hex = "0123456789ABCDEF";
    for (int i = 0; i < 3; i++) {
      key[2 * i] = hex[core[i] >> 4];
      key[2 * i + 1] = hex[core[i] & 15];
    }
    key[6] = 0;
    for (const Profile& p : kProfiles)
      if (std::strcmp(key, p.id) == 0) return p;
    // Capacity byte: 2^n bytes for the usual 0x10..0x1B; 0x20.. continue at 64 MiB.
    uint8_t c = core[2];
    if (c >= 0x10 && c <= 0x1B) g.size = 1u << c;
    else if (c >= 0x20 && c <= 0x21) g.size = (64 * MiB) << (c - 0x20);
    else g.size = 1 * MiB;
  }
  g.fourByte = g.size > 16 * MiB;
  return g;
}

void Chip::PowerUp(const Profile& p, std::vector<uint8_t> id, Timing timing, const Faults& f) {
  p_ = p;
  id_ = std::move(id);
  timing_ = timing;
  faults_ = f;
  selected_ = false;
  frame_.clear();
  sr_ = f.isProtected ? p.bpMask : 0;
  fsr_ = 0x80;
  ear_ = 0;
  fourByteMode_ = resetEnabled_ = false;
  pageProtect_ = f.isProtected && p.family == Family::PageBased;
  globalLock_ = p.family == Family::GlobalUnlock;  // these parts lock every block at power-up
  busyForever_ = false;
  busyUntil_ = 0;
  ignored_ = false;
  readDataStart_ = 0;
  mem_.resize(p.size, 0xFF);
  for (auto [a, bits] : faults_.stuck)
    if (a < mem_.size()) mem_[a] |= bits;
}

bool Chip::Busy() {
  if (busyForever_) return true;
  switch (timing_) {
    case Timing::Model: return ClockNs() < busyUntil_;
    case Timing::Real: return busyUntil_ != 0 && WallNs() < busyUntil_;
    default: return false;
  }
}

void Chip::StartBusy(uint64_t ns, bool never) {
  if (never) {
    busyForever_ = true;
    return;
  }
  stats_.busyNs += ns;
  if (timing_ == Timing::Model) busyUntil_ = ClockNs() + ns;
  else if (timing_ == Timing::Real) busyUntil_ = WallNs() + ns;
}

bool Chip::ProtectedNow() const {
  if (p_.family == Family::PageBased) return pageProtect_;
  if (p_.family == Family::GlobalUnlock) return globalLock_;
  return (sr_ & p_.bpMask) != 0;
}

void Chip::Select() {
  selected_ = true;
  frame_.clear();
  ignored_ = false;
  readDataStart_ = 0;
}

int Chip::AddrLen(uint8_t op) const {
  if (p_.family == Family::Ferro) return 2;
  if (IsFourByteOp(op)) return 4;
  if (p_.family == Family::PageBased) return 3;
  return fourByteMode_ ? 4 : 3;
}

uint32_t Chip::AddrAt(size_t pos, int len) const {
  uint32_t a = 0;
  for (int i = 0; i < len; i++) a = a << 8 | frame_[pos + i];
  if (len == 3 && p_.fourByte) a |= static_cast<uint32_t>(ear_) << 24;
  return mem_.empty() ? 0 : static_cast<uint32_t>(a % mem_.size());
}

uint8_t Chip::StatusByte(uint8_t op) {
  stats_.statusReads++;
  const uint8_t busy = Busy() ? 1 : 0;
  switch (op) {
    case kOpReadStatus:
      if (p_.family == Family::GlobalUnlock) return (sr_ & 0x7E) | busy | busy << 7;
      return (sr_ & 0xFE) | busy;
    case kOpReadStatus2: return 0x00;
    case kOpReadConfig: return fourByteMode_ ? 0x20 : 0x00;
    case kOpReadFlagStatus: return static_cast<uint8_t>((fsr_ & 0x7E) | (busy ? 0 : 0x80) | (fourByteMode_ ? 1 : 0));
    case kOpPageBasedStatus:  // ready, density code, protection enabled, binary page size
      return static_cast<uint8_t>((busy ? 0 : 0x80) | 0x2C | (pageProtect_ ? 2 : 0) | 1);
  }
  return 0xFF;
}

uint8_t Chip::ReadOut(size_t pos) {
  const uint8_t op = frame_[0];
  if (ignored_ || pos == 0) return 0xFF;
  if (IsStatusOp(p_, op)) return StatusByte(op);
  switch (op) {
    case kOpReadId: return pos - 1 < id_.size() ? id_[pos - 1] : 0xFF;
    case kOpReadExtAddr: return p_.fourByte ? ear_ : 0xFF;
  }
  if (readDataStart_ && pos >= readDataStart_) {
    const int alen = AddrLen(op);
    return mem_[(AddrAt(1, alen) + (pos - readDataStart_)) % mem_.size()];
  }
  return 0xFF;
}

void Chip::Clock(const uint8_t* out, uint8_t* in, size_t n) {
  size_t i = 0;
  while (i < n) {
    const size_t pos = frame_.size();
    if (readDataStart_ && !ignored_ && pos >= readDataStart_ && !mem_.empty()) {
      // Bulk read: the rest of this transfer streams out of the array.
      const size_t k = n - i;
      if (out) frame_.insert(frame_.end(), out + i, out + n);
      else frame_.resize(frame_.size() + k, 0xFF);
      AdvanceBus(k);
      if (in) {
        size_t a = (AddrAt(1, AddrLen(frame_[0])) + (pos - readDataStart_)) % mem_.size();
        for (size_t done = 0; done < k;) {
          const size_t run = std::min(k - done, mem_.size() - a);
          std::memcpy(in + i + done, mem_.data() + a, run);
          done += run;
          a = 0;
        }
      }
      return;
    }
    const uint8_t b = out ? out[i] : 0xFF;
    frame_.push_back(b);
    AdvanceBus(1);
    if (pos == 0) {
      ignored_ = Busy() && !IsStatusOp(p_, b);
      readDataStart_ = 0;
      const bool fourOk = p_.fourByte || !IsFourByteOp(b);
      if (fourOk && (b == kOpRead || b == kOpRead4B)) readDataStart_ = 1 + AddrLen(b);
      if (fourOk && (b == kOpFastRead || b == kOpFastRead4B) && p_.family != Family::Ferro)
        readDataStart_ = 2 + AddrLen(b);
    }
    const uint8_t r = ReadOut(pos);
    if (in) in[i] = r;
    i++;
  }
}

void Chip::ApplyStuck(uint32_t from, uint32_t len) {
  for (auto [a, bits] : faults_.stuck)
    if (a >= from && a - from < len && a < mem_.size()) mem_[a] |= bits;
}

void Chip::Program(uint32_t addr, size_t dataAt) {
  const size_t count = frame_.size() - dataAt;
  if (faults_.programTimeout) {
    StartBusy(0, true);
    return;
  }
  stats_.pagePrograms++;
  StartBusy(p_.pageProgramNs, false);
  if (count == 0) return;
  // The page buffer wraps: bytes past the page end go to its start, later
  // bytes replace earlier ones, and programming only clears bits.
  const uint32_t page = 256;
  const uint32_t base = addr & ~(page - 1), off = addr & (page - 1);
  uint8_t buf[page];
  std::memset(buf, 0xFF, sizeof buf);
  for (size_t i = 0; i < count; i++) buf[(off + i) & (page - 1)] = frame_[dataAt + i];
  for (uint32_t j = 0; j < page && base + j < mem_.size(); j++) mem_[base + j] &= buf[j];
  ApplyStuck(base, page);
  dirty_ = true;
}

void Chip::Erase(uint32_t addr, uint32_t len, bool chip) {
  if (faults_.eraseTimeout) {
    StartBusy(0, true);
    return;
  }
  uint64_t ns;
  if (chip) {
    stats_.chipErases++;
    ns = p_.chipErasePerMiBNs * std::max<uint64_t>(1, mem_.size() / MiB);
    addr = 0;
    len = static_cast<uint32_t>(mem_.size());
  } else {
    stats_.sectorErases++;
    ns = len <= 4 * KiB ? p_.sectorEraseNs : len <= 32 * KiB ? p_.block32EraseNs : p_.block64EraseNs;
    addr -= addr % len;
  }
  StartBusy(ns, false);
  const uint32_t end = static_cast<uint32_t>(std::min<uint64_t>(mem_.size(), uint64_t{addr} + len));
  if (addr < end) std::memset(mem_.data() + addr, 0xFF, end - addr);
  ApplyStuck(addr, len);
  dirty_ = true;
}

bool Chip::HasAddress(uint8_t op) const { return frame_.size() >= static_cast<size_t>(1 + AddrLen(op)); }

// The page-based family frames its commands differently: four-byte
// sequences for protection and chip erase, no write enable.
void Chip::ExecutePageBased() {
  static const uint8_t kUnprotect[] = {0x3D, 0x2A, 0x7F, 0x9A};
  static const uint8_t kProtect[] = {0x3D, 0x2A, 0x7F, 0xA9};
  static const uint8_t kChipErase[] = {0xC7, 0x94, 0x80, 0x9A};
  const size_t n = frame_.size();
  const uint8_t op = frame_[0];
  if (n == 4 && std::memcmp(frame_.data(), kUnprotect, 4) == 0) pageProtect_ = false;
  else if (n == 4 && std::memcmp(frame_.data(), kProtect, 4) == 0) pageProtect_ = true;
  else if (n == 4 && std::memcmp(frame_.data(), kChipErase, 4) == 0) {
    if (!pageProtect_) Erase(0, 0, true);
  } else if (op == kOpPageProgram && HasAddress(op)) {
    if (!pageProtect_) Program(AddrAt(1, 3), 4);
  } else if ((op == kOpPageErase || op == kOpPageBasedBlockErase || op == kOpPageBasedSectorErase) &&
             HasAddress(op)) {
    const uint32_t len = op == kOpPageErase ? 256 : op == kOpPageBasedBlockErase ? 2 * KiB : 64 * KiB;
    if (!pageProtect_) Erase(AddrAt(1, 3), len, false);
  }
}

// Reset, status and mode registers.
void Chip::ExecuteRegister(uint8_t op) {
  const size_t n = frame_.size();
  const bool wel = (sr_ & 2) != 0;
  switch (op) {
    case kOpReset:
      if (resetEnabled_) {
        fourByteMode_ = false;
        ear_ = 0;
        sr_ &= ~2;
        fsr_ = 0x80;
      }
      break;
    case kOpWriteStatus:
      if (wel && n >= 2) {
        if (p_.family != Family::GlobalUnlock) sr_ = static_cast<uint8_t>((sr_ & 0x03) | (frame_[1] & 0xFC));
        sr_ &= ~2;
        if (p_.family != Family::Ferro) StartBusy(2 * ms, false);
      }
      break;
    case kOpClearFlagStatus:
      if (p_.family == Family::FlagStatus) fsr_ = 0x80;
      break;
    case kOpGlobalUnlock:
      if (p_.family == Family::GlobalUnlock && wel) {
        globalLock_ = false;
        sr_ &= ~2;
      }
      break;
    case kOpEnter4Byte:
    case kOpExit4Byte:
      if (p_.fourByte) fourByteMode_ = op == kOpEnter4Byte;
      break;
    case kOpWriteExtAddr:
      if (p_.fourByte && wel && n >= 2) {
        ear_ = frame_[1];
        sr_ &= ~2;
      }
      break;
    default: break;
  }
}

// Page program, with 3 or 4 address bytes.
void Chip::ExecuteProgram(uint8_t op) {
  const bool fourOk = p_.fourByte || !IsFourByteOp(op);
  if (!fourOk || !HasAddress(op) || (sr_ & 2) == 0) return;
  sr_ &= ~2;
  if (ProtectedNow()) {
    fsr_ |= 0x12;  // protection error, program error
  } else if (p_.family == Family::Ferro) {
    // Ferroelectric: bytes are written in place, no page, no erase, no wait.
    uint32_t a = AddrAt(1, 2);
    for (size_t i = 3; i < frame_.size(); i++, a = static_cast<uint32_t>((a + 1) % mem_.size())) mem_[a] = frame_[i];
    ApplyStuck(0, static_cast<uint32_t>(mem_.size()));
    dirty_ = true;
  } else {
    Program(AddrAt(1, AddrLen(op)), 1 + AddrLen(op));
  }
}

// Sector, block and chip erase.
void Chip::ExecuteErase(uint8_t op) {
  const bool fourOk = p_.fourByte || !IsFourByteOp(op);
  if (p_.family == Family::Ferro || !fourOk || (sr_ & 2) == 0) return;
  const bool chip = op == kOpChipErase || op == kOpChipErase2;
  if (!chip && !HasAddress(op)) return;
  sr_ &= ~2;
  if (ProtectedNow()) {
    fsr_ |= 0x22;  // protection error, erase error
    return;
  }
  const bool block32 = op == kOpErase32K || op == kOpErase32K4B;
  const uint32_t len = (op == kOpErase4K || op == kOpErase4K4B) ? 4 * KiB : block32 ? 32 * KiB : 64 * KiB;
  if (p_.family == Family::GlobalUnlock && block32) return;
  Erase(chip ? 0 : AddrAt(1, AddrLen(op)), len, chip);
}

void Chip::Execute() {
  if (p_.family == Family::PageBased) {
    ExecutePageBased();
    return;
  }
  const uint8_t op = frame_[0];
  switch (op) {
    // The latches: a reset-enable stays armed only up to the next command.
    case kOpWriteEnable: sr_ |= 2; return;
    case kOpWriteDisable: sr_ &= ~2; return;
    case kOpResetEnable: resetEnabled_ = true; return;
    case kOpReset: case kOpWriteStatus: case kOpClearFlagStatus: case kOpGlobalUnlock:
    case kOpEnter4Byte: case kOpExit4Byte: case kOpWriteExtAddr:
      ExecuteRegister(op);
      break;
    case kOpPageProgram: case kOpPageProgram4B:
      ExecuteProgram(op);
      break;
    case kOpErase4K: case kOpErase4K4B: case kOpErase32K: case kOpErase32K4B:
    case kOpErase64K: case kOpErase64K4B: case kOpChipErase: case kOpChipErase2:
      ExecuteErase(op);
      break;
    default: break;
  }
  resetEnabled_ = false;
}

void Chip::Release() {
  if (!selected_) return;
  selected_ = false;
  if (frame_.empty()) return;
  stats_.frames++;
  if (!ignored_) Execute();
}

}  // namespace tarlosim
