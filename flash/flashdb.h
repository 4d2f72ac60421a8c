// Built-in table of SPI NOR flash chips, lookup by JEDEC ID, applying a chip
// to the project's FlashParams, and reading the connected chip's ID.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include "project/flashparams.h"

// One chip of the table.
//   Id:       bits 0-7 manufacturer, 8-15 memory type, 16-23 capacity byte;
//             bits 24-31 flags: bit 0 = ignore the memory-type byte when
//             matching, bits 1-5 = PageSizeShift.
//   Geometry: bits 0-4 SectorSizeShift, 5-9 log2 of the chip size in bytes,
//             10-13 ChipClass, 14-16 4-byte address type.
//   Commands: the 15 bytes CmdWriteEnable..StatusBitPos of FlashParams.
// The table ends with an entry whose Manufacturer is null.
struct FlashChipEntry {
  uint32_t       Id;
  uint32_t       Geometry;
  const uint8_t* Commands;
  const char*    Manufacturer;
  const char*    Part;
};

constexpr int FLASHDB_NUM_CMD_BYTES = 15;

// Field accessors for an entry.
constexpr uint32_t FLASHDB_ID_MATCH_MFR_CAP = 1u << 24;
inline uint32_t FLASHDB_EntryPageSizeShift(const FlashChipEntry& e) { return (e.Id >> 25) & 0x1F; }
inline uint32_t FLASHDB_EntrySectorSizeShift(const FlashChipEntry& e) { return e.Geometry & 0x1F; }
inline uint32_t FLASHDB_EntrySizeShift(const FlashChipEntry& e) { return (e.Geometry >> 5) & 0x1F; }
inline uint32_t FLASHDB_EntryChipClass(const FlashChipEntry& e) { return (e.Geometry >> 10) & 0x0F; }
inline uint32_t FLASHDB_Entry4ByteType(const FlashChipEntry& e) { return (e.Geometry >> 14) & 0x07; }

// The command sets a row refers to by number (flash/flashdb.cpp).
constexpr int FLASHDB_NUM_COMMAND_SETS = 5;
extern const uint8_t FLASHDB_CommandSets[FLASHDB_NUM_COMMAND_SETS][FLASHDB_NUM_CMD_BYTES];

// One chip as the table file writes it, field by field; FLASHDB_PackRow
// turns it into the FlashChipEntry the lookup works on.
struct FlashChipRow {
  const char* Maker;       // manufacturer name as displayed
  const char* Part;        // part name as displayed
  uint8_t     Id[3];       // manufacturer, memory-type and capacity bytes
  bool        IgnoreType;  // match on the manufacturer and capacity bytes only
  uint8_t     SizeLog2;    // chip size is 2^SizeLog2 bytes
  uint8_t     SectorLog2;  // SectorSizeShift
  uint8_t     Addr4B;      // 4-byte address type, index into FLASHDB_4ByteTypes
  uint8_t     Class;       // ChipClass
  uint8_t     Set;         // index into FLASHDB_CommandSets
};

// Every chip of the table has 256-byte pages.
constexpr uint32_t FLASHDB_PAGE_SIZE_SHIFT = 8;
constexpr int FLASHDB_NUM_CHIPS = 163;

// The rules every row keeps: names present, indexes in range, page <=
// sector <= chip <= 4 GiB.
constexpr bool FLASHDB_RowIsValid(const FlashChipRow& r) {
  return r.Maker != nullptr && r.Maker[0] != '\0' && r.Part != nullptr && r.Part[0] != '\0' &&
         r.Set < FLASHDB_NUM_COMMAND_SETS && r.Addr4B < 4 && r.Class <= FLASHPARAMS_CLASS_PAGE_BASED &&
         FLASHDB_PAGE_SIZE_SHIFT <= r.SectorLog2 && r.SectorLog2 <= r.SizeLog2 && r.SizeLog2 <= 31;
}

// Packs a row into the Id and Geometry words. The table is packed at compile
// time, so a row that breaks a rule stops the build (std::abort cannot run
// there) instead of reaching a chip.
constexpr FlashChipEntry FLASHDB_PackRow(const FlashChipRow& r) {
  if (!FLASHDB_RowIsValid(r)) std::abort();
  const uint32_t flags = (FLASHDB_PAGE_SIZE_SHIFT << 1) | (r.IgnoreType ? 1u : 0u);
  return FlashChipEntry{
      .Id = r.Id[0] | (uint32_t(r.Id[1]) << 8) | (uint32_t(r.Id[2]) << 16) | (flags << 24),
      .Geometry =
          r.SectorLog2 | (uint32_t(r.SizeLog2) << 5) | (uint32_t(r.Class) << 10) | (uint32_t(r.Addr4B) << 14),
      .Commands = FLASHDB_CommandSets[r.Set],
      .Manufacturer = r.Maker,
      .Part = r.Part};
}

// The table: FLASHDB_NUM_CHIPS entries and the terminator (null Manufacturer).
using FlashChipTable = std::array<FlashChipEntry, FLASHDB_NUM_CHIPS + 1>;
// The rows packed in their order, then the terminator.
template <std::size_t N>
constexpr std::array<FlashChipEntry, N + 1> FLASHDB_PackRows(const FlashChipRow (&rows)[N]) {
  static_assert(N == FLASHDB_NUM_CHIPS, "the chip table holds FLASHDB_NUM_CHIPS rows");
  std::array<FlashChipEntry, N + 1> table{};
  for (std::size_t i = 0; i < N; ++i) table[i] = FLASHDB_PackRow(rows[i]);
  return table;
}
extern const FlashChipTable FLASHDB_ChipTable;  // flash/chiptable.cpp

// What a 4-byte address type does to FlashParams once the command set is
// copied; a negative field leaves the value of the command set.
struct Flash4ByteType {
  int16_t NumAddrBytes;
  int16_t Dedicated4BAddrMode;
  int16_t CmdEnter4ByteMode;
  int16_t CmdExit4ByteMode;
  int16_t CmdReadData;
  int16_t CmdWritePage;
  int16_t CmdEraseSector;
};
extern const Flash4ByteType FLASHDB_4ByteTypes[4];

// Number of entries before the terminator (FLASHDB_NUM_CHIPS).
int FLASHDB_GetNumEntries(void);
// Index of the first entry, in table order, matching the ID word (bytes 0-2
// = manufacturer, memory type, capacity; the memory type is ignored for
// entries that say so), or -1.
int FLASHDB_FindById(uint32_t id);
// Copies entry `index` to *out: 0, or -1 (and *out untouched) when out is
// null or index is out of range.
int FLASHDB_GetEntry(int index, FlashChipEntry* out);
// Applies entry `index` to the project's FlashParams (AutoDetect, FlashType
// and abID kept) and makes it the current chip: 0. An index out of range
// (negative: on purpose) only clears the current chip: -1.
int FLASHDB_SelectChip(int index);
// Applies entry `index` to *params as FLASHDB_SelectChip does, without the
// project or the current chip: 0, or -1 (nothing changed) when params is
// null or index is out of range.
int FLASHDB_ApplyEntry(int index, FlashParams* params);
// Index of the chip the last FLASHDB_SelectChip applied, or -1 when none is
// (the connect clears it before identifying the chip).
int FLASHDB_GetCurrentIndex(void);
// Number of sectors of the project's FlashParams, (NumPages <<
// PageSizeShift) >> SectorSizeShift, held at 0xFFFFFFFF instead of wrapping.
uint32_t FLASHDB_GetNumSectors(void);
// Start (sector << SectorSizeShift) and size (1 << SectorSizeShift) of a
// sector of the project's FlashParams, each held at 0xFFFFFFFF instead of
// wrapping; either output may be null.
void FLASHDB_GetSectorInfo(uint32_t sector, uint32_t* start, uint32_t* size);

// Reads the chip's ID (0x9F whatever CmdReadID holds, 13 bytes back) and
// drops the 0x7F continuation codes: id[0..2] are the manufacturer, memory
// type and capacity bytes. The probe must be open.
void FLASHDB_ReadId(uint8_t id[13]);
// In-place 0x7F compaction of a 13-byte answer (the part of FLASHDB_ReadId
// that needs no probe): the other bytes move to the front in their order;
// the bytes behind them stay as they were.
void FLASHDB_CompactId(uint8_t id[13]);
// Formats the first three bytes of id as "Read SPI Flash Id = 0xC2 20 18"
// into buffer, truncated at size less one and terminated.
void FLASHDB_FormatId(char* buffer, int size, const uint8_t* id);
