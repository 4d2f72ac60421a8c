// The emulated SPI NOR flash: a command state machine framed by chip select,
// with the contents array, the status registers and a busy model.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarlosim {

enum class Family : uint8_t {
  Standard,      // 05 status, WEL/WIP, 20/52/D8/C7 erases, optional 4-byte mode
  FlagStatus,    // as Standard, plus the flag status register 0x70 (bit 7 ready)
  PageBased,     // D7 status (bit 7 ready), 81/50/7C erases, 3D 2A 7F 9A unprotect
  GlobalUnlock,  // all blocks locked at power-up until WREN + 98
  Ferro,         // writes in place, no erase, no busy, 2 address bytes
};

struct Profile {
  const char* id;       // what the part answers to 0x9F, hex
  uint32_t size;        // bytes
  Family family;
  uint8_t bpMask;       // status bits that protect the array while any is set
  bool fourByte;        // has B7/E9 and the 13/12/DC/21/5C/0C opcodes
  uint32_t pageProgramNs, sectorEraseNs, block32EraseNs, block64EraseNs, chipErasePerMiBNs;
};

// Looks the profile up by the ID text; an unknown ID gets a standard part
// whose size comes from the capacity byte.
Profile FindProfile(const std::string& idHex, const std::vector<uint8_t>& idBytes);

enum class Timing : uint8_t { Instant, Model, Real };

struct Faults {
  bool eraseTimeout = false, programTimeout = false, isProtected = false;
  std::vector<std::pair<uint32_t, uint8_t>> stuck;  // byte address, bits that stay 1
};

struct ChipStats {
  uint64_t frames = 0, pagePrograms = 0, sectorErases = 0, chipErases = 0, statusReads = 0,
           busyNs = 0;
};

class Chip {
 public:
  // Power-up: registers to their defaults; the contents stay as they are.
  void PowerUp(const Profile& p, std::vector<uint8_t> id, Timing timing, const Faults& f);
  std::vector<uint8_t>& Mem() { return mem_; }
  bool Dirty() const { return dirty_; }
  void ClearDirty() { dirty_ = false; }

  // Chip select edges. Release executes the command the frame carried.
  void Select();
  void Release();
  bool Selected() const { return selected_; }
  // Clocks n bytes while selected (out may be null: 0xFF on MOSI; in may be null).
  void Clock(const uint8_t* out, uint8_t* in, size_t n);
  // The frame so far (for the trace).
  const std::vector<uint8_t>& Frame() const { return frame_; }

  void SetSpeedKHz(uint32_t khz) { khz_ = khz ? khz : 1; }
  // Wire time of n bytes at the set speed (also for bytes clocked while the
  // chip is not selected).
  void AdvanceBus(uint64_t bytes) { clockPs_ += bytes * 8000000000ull / khz_; }
  uint64_t ClockNs() const { return clockPs_ / 1000; }
  ChipStats& Stats() { return stats_; }
  Timing GetTiming() const { return timing_; }

 private:
  bool Busy();
  uint8_t StatusByte(uint8_t opcode);
  uint8_t ReadOut(size_t pos);
  int AddrLen(uint8_t op) const;
  uint32_t AddrAt(size_t pos, int len) const;
  bool HasAddress(uint8_t op) const;  // the frame carries the opcode's address bytes
  void Execute();
  void ExecutePageBased();
  void ExecuteRegister(uint8_t op);
  void ExecuteProgram(uint8_t op);
  void ExecuteErase(uint8_t op);
  void StartBusy(uint64_t ns, bool never);
  bool ProtectedNow() const;
  void Program(uint32_t addr, size_t dataAt);
  void Erase(uint32_t addr, uint32_t len, bool chip);
  void ApplyStuck(uint32_t from, uint32_t len);

  Profile p_{};
  std::vector<uint8_t> id_;
  std::vector<uint8_t> mem_;
  std::vector<uint8_t> frame_;
  Timing timing_ = Timing::Instant;
  Faults faults_;
  bool selected_ = false, dirty_ = false;
  uint8_t sr_ = 0, fsr_ = 0x80, ear_ = 0;
  bool fourByteMode_ = false, resetEnabled_ = false, pageProtect_ = false, globalLock_ = false;
  bool busyForever_ = false;
  uint64_t busyUntil_ = 0;  // simulated or wall ns, by timing mode
  uint32_t khz_ = 4000;
  uint64_t clockPs_ = 0;  // simulated clock: wire time at the set speed
  bool ignored_ = false;   // frame began while busy: the chip ignores it
  size_t readDataStart_ = 0;
  ChipStats stats_;
};

uint64_t WallNs();

}  // namespace tarlosim
