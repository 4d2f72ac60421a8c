// Chip lookup, applying a table entry to FlashParams, and detection by the
// JEDEC Read-ID command.
#include "flash/flash.h"
#include "flash/flashdb.h"

#include <algorithm>
#include <cstring>

#include "app/log.h"
#include "probe/tarlo_abi.h"
#include "project/project.h"
#include "util/util.h"

namespace {

int CurrentIndex = -1;

constexpr uint8_t kContinuationCode = 0x7F;
constexpr int kIdAnswerBytes = 13;

int NumEntries() {
  static const int n = [] {
    int i = 0;
    while (FLASHDB_ChipTable[i].Manufacturer != nullptr) ++i;
    return i;
  }();
  return n;
}

bool Matches(const FlashChipEntry& e, uint32_t id) {
  const uint32_t mask = (e.Id & FLASHDB_ID_MATCH_MFR_CAP) ? 0xFF00FFu : 0xFFFFFFu;
  return ((e.Id ^ id) & mask) == 0;
}

void ApplyTo(const FlashChipEntry& e, FlashParams& p) {
  p.PageSizeShift = FLASHDB_EntryPageSizeShift(e);
  const uint32_t sizeShift = FLASHDB_EntrySizeShift(e);
  p.NumPages = sizeShift >= p.PageSizeShift ? 1u << (sizeShift - p.PageSizeShift) : 0;
  p.SectorSizeShift = FLASHDB_EntrySectorSizeShift(e);
  // The 15 command bytes are the leading members of FlashParams, in table order.
  uint8_t* cmd[FLASHDB_NUM_CMD_BYTES] = {
      &p.CmdWriteEnable, &p.CmdWriteDisable, &p.CmdReadID, &p.CmdReadStatus,
      &p.CmdWriteStatus, &p.CmdReadData, &p.CmdWritePage, &p.CmdEraseSector,
      &p.CmdEraseBulk, &p.CmdEnter4ByteMode, &p.CmdExit4ByteMode, &p.NumAddrBytes,
      &p.Dedicated4BAddrMode, &p.StatusIsReadyBit, &p.StatusBitPos};
  for (int i = 0; i < FLASHDB_NUM_CMD_BYTES; ++i) *cmd[i] = e.Commands[i];
  const Flash4ByteType& t = FLASHDB_4ByteTypes[FLASHDB_Entry4ByteType(e) & 3];
  auto set = [](uint8_t& field, int16_t v) {
    if (v >= 0) field = static_cast<uint8_t>(v);
  };
  set(p.NumAddrBytes, t.NumAddrBytes);
  set(p.Dedicated4BAddrMode, t.Dedicated4BAddrMode);
  set(p.CmdEnter4ByteMode, t.CmdEnter4ByteMode);
  set(p.CmdExit4ByteMode, t.CmdExit4ByteMode);
  set(p.CmdReadData, t.CmdReadData);
  set(p.CmdWritePage, t.CmdWritePage);
  set(p.CmdEraseSector, t.CmdEraseSector);
  p.ChipClass = static_cast<uint8_t>(FLASHDB_EntryChipClass(e));
}

}  // namespace

// Command sets, bytes in FlashParams order: WriteEnable, WriteDisable, ReadID,
// ReadStatus, WriteStatus, ReadData, WritePage, EraseSector, EraseBulk,
// Enter4ByteMode, Exit4ByteMode, NumAddrBytes, Dedicated4BAddrMode,
// StatusIsReadyBit, StatusBitPos.
const uint8_t FLASHDB_CommandSets[FLASHDB_NUM_COMMAND_SETS][FLASHDB_NUM_CMD_BYTES] = {
  // 0: most chips: 64 KiB sector erase, busy bit 0
  {0x06, 0x04, 0x9F, 0x05, 0x01, 0x03, 0x02, 0xD8, 0xC7, 0xB7, 0xE9, 0x03, 0x00, 0x00, 0x00},
  // 1: polled through the flag status register 0x70, ready bit 7
  {0x06, 0x04, 0x9F, 0x70, 0x01, 0x03, 0x02, 0xD8, 0xC7, 0xB7, 0xE9, 0x03, 0x00, 0x01, 0x07},
  // 2: page-based: status 0xD7 ready bit 7, block erase 0x50, no write enable, no chip erase
  {0x00, 0x00, 0x9F, 0xD7, 0x00, 0x03, 0x02, 0x50, 0x00, 0x00, 0x00, 0x03, 0x00, 0x01, 0x07},
  // 3: 4 KiB sector erase 0x20
  {0x06, 0x04, 0x9F, 0x05, 0x01, 0x03, 0x02, 0x20, 0xC7, 0xB7, 0xE9, 0x03, 0x00, 0x00, 0x00},
  // 4: no erase commands, 2 address bytes
  {0x06, 0x04, 0x9F, 0x05, 0x01, 0x03, 0x02, 0x00, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00},
};

// 4-byte address types, applied after the command set (-1: keep the set's value).
//   0: 3-byte addressing, no mode switch
//   1: the chip's own 4-byte opcodes (read 0x13, program 0x12, erase 0xDC)
//   2: switch into 4-byte mode with 0xB7 and out with 0xE9
//   3: 4 address bytes with fast read 0x0B
const Flash4ByteType FLASHDB_4ByteTypes[4] = {
  //  addr  ded  enter  exit  read  write  erase
  {   -1,    0,     0,    0,   -1,    -1,    -1},
  {    4,    0,     0,    0, 0x13,  0x12,  0xDC},
  {    4,    1,  0xB7, 0xE9,   -1,    -1,    -1},
  {    4,   -1,    -1,   -1, 0x0B,    -1,    -1},
};

int FLASHDB_GetNumEntries(void) { return NumEntries(); }

int FLASHDB_FindById(uint32_t id) {
  for (int i = 0; FLASHDB_ChipTable[i].Manufacturer != nullptr; ++i) {
    if (Matches(FLASHDB_ChipTable[i], id)) return i;
  }
  return -1;
}

int FLASHDB_GetEntry(int index, FlashChipEntry* out) {
  if (out == nullptr || index < 0 || index >= NumEntries()) return -1;
  *out = FLASHDB_ChipTable[index];
  return 0;
}

int FLASHDB_ApplyEntry(int index, FlashParams* params) {
  if (params == nullptr || index < 0 || index >= NumEntries()) return -1;
  ApplyTo(FLASHDB_ChipTable[index], *params);
  return 0;
}

int FLASHDB_SelectChip(int index) {
  CurrentIndex = -1;
  if (index < 0 || index >= NumEntries()) return -1;
  FlashParams p;
  PROJECT_GetFlashParams(&p);
  FLASHDB_ApplyEntry(index, &p);
  PROJECT_SetFlashParams(&p);
  CurrentIndex = index;
  return 0;
}

int FLASHDB_GetCurrentIndex(void) { return CurrentIndex; }

// Counts, addresses and sizes are worked out in 64 bits and held at the
// 32-bit limit instead of wrapping: a project may describe any geometry.
uint32_t FLASHDB_GetNumSectors(void) {
  FlashParams p;
  PROJECT_GetFlashParams(&p);
  return static_cast<uint32_t>(std::min<uint64_t>(FLASHPARAMS_NumSectors(p), 0xFFFFFFFFu));
}

void FLASHDB_GetSectorInfo(uint32_t sector, uint32_t* start, uint32_t* size) {
  FlashParams p;
  PROJECT_GetFlashParams(&p);
  const uint32_t shift = std::min<uint32_t>(p.SectorSizeShift, 32);
  if (start) *start = static_cast<uint32_t>(std::min<uint64_t>(static_cast<uint64_t>(sector) << shift, 0xFFFFFFFFu));
  if (size) *size = static_cast<uint32_t>(std::min<uint64_t>(1ull << shift, 0xFFFFFFFFu));
}

void FLASHDB_CompactId(uint8_t id[13]) {
  // Continuation codes are dropped so that the first other byte becomes the
  // manufacturer byte. What is left behind the kept bytes stays as it was.
  int w = 0;
  for (int r = 0; r < kIdAnswerBytes; ++r) {
    if (id[r] != kContinuationCode) id[w++] = id[r];
  }
}

void FLASHDB_ReadId(uint8_t id[13]) {
  const uint8_t cmd = FLASHPARAMS_OP_READ_JEDEC_ID;  // fixed: detection never uses CmdReadID
  std::memset(id, 0, kIdAnswerBytes);
  TARLO_SPI_Transfer(&cmd, nullptr, 8, TARLO_SPI_FLAG_BEGIN);
  TARLO_SPI_Transfer(nullptr, id, kIdAnswerBytes * 8, TARLO_SPI_FLAG_END);
  FLASHDB_CompactId(id);
}

void FLASHDB_FormatId(char* buffer, int size, const uint8_t* id) {
  char first[64];
  char second[64];
  UTIL_snprintf(first, sizeof(first), "Read SPI Flash Id = 0x%.2X", id[0]);
  UTIL_snprintf(second, sizeof(second), "%s %.2X", first, id[1]);
  UTIL_snprintf(buffer, size, "%s %.2X", second, id[2]);
}

int FLASH_DetectChip(void) {
  uint8_t id[kIdAnswerBytes];
  FLASHDB_ReadId(id);
  char line[256];
  FLASHDB_FormatId(line, sizeof(line), id);
  LOG_Info(line);

  FlashParams p;
  PROJECT_GetFlashParams(&p);
  std::memcpy(p.abID, id, sizeof(p.abID));
  PROJECT_SetFlashParams(&p);

  const uint32_t word = id[0] | (uint32_t(id[1]) << 8) | (uint32_t(id[2]) << 16);
  const int index = FLASHDB_FindById(word);
  if (index < 0) {
    const char* text = "Failed to auto-detect SPI Flash.";
    LOG_ReportError(text);
    LOG_Info(text);
    return -1;
  }
  const FlashChipEntry& e = FLASHDB_ChipTable[index];
  UTIL_snprintf(line, sizeof(line), "Found SPI Flash: %s %s", e.Manufacturer, e.Part);
  LOG_Info(line);
  FLASHDB_SelectChip(index);
  return 0;
}
