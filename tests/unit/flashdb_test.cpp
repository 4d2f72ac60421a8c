// Chip lookup by ID, applying an entry, and the ID reader's
// continuation-code compaction.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "flash/flashdb.h"

namespace {

uint32_t IdWord(uint8_t a, uint8_t b, uint8_t c) {
  return a | (uint32_t(b) << 8) | (uint32_t(c) << 16);
}

TEST(ChipLookup, FirstMatchWins) {
  struct Case {
    uint8_t id[3];
    int index;  // -1: no chip
    const char* part;
  };
  const Case cases[] = {
      {{0x20, 0xBA, 0x18}, 10, "N25Q128A"},     // memory-type byte ignored
      {{0x20, 0x00, 0x18}, 10, "N25Q128A"},
      {{0x1F, 0x46, 0x02}, 45, "AT25DF256"},    // shares its ID with a later row
      {{0x1F, 0x84, 0x01}, 39, "AT25SF041"},    // likewise
      {{0xC2, 0x20, 0x19}, 89, "MX25L25735F"},
      {{0xC2, 0x99, 0x15}, 111, "MX25L1605D"},
      {{0x9D, 0x46, 0x00}, -1, nullptr},
      {{0xC2, 0x21, 0x18}, -1, nullptr},        // memory type matters for this maker's rows
      {{0x00, 0x00, 0x00}, -1, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.part ? c.part : "none");
    const int index = FLASHDB_FindById(IdWord(c.id[0], c.id[1], c.id[2]));
    EXPECT_EQ(index, c.index);
    if (index >= 0) {
      EXPECT_STREQ(FLASHDB_ChipTable[index].Part, c.part);
    }
  }
}

TEST(ChipLookup, RowsStartingWithContinuationCodeAreUnreachable) {
  for (int i = 0; i < FLASHDB_GetNumEntries(); ++i) {
    const FlashChipEntry& e = FLASHDB_ChipTable[i];
    if ((e.Id & 0xFF) != 0x7F) continue;
    SCOPED_TRACE(e.Part);
    uint8_t answer[13];
    std::memset(answer, 0xFF, sizeof(answer));
    answer[0] = 0x7F;
    answer[1] = uint8_t(e.Id >> 8);
    answer[2] = uint8_t(e.Id >> 16);
    FLASHDB_CompactId(answer);
    const int found = FLASHDB_FindById(IdWord(answer[0], answer[1], answer[2]));
    EXPECT_NE(found, i);
  }
}

FlashParams Blank() {
  FlashParams p;
  std::memset(&p, 0xEE, sizeof(p));
  p.AutoDetect = 1;
  p.FlashType = 2;
  p.abID[0] = 0x11;
  p.abID[1] = 0x22;
  p.abID[2] = 0x33;
  return p;
}

TEST(ChipApply, FlagStatusChip) {
  FlashParams p = Blank();
  ASSERT_EQ(FLASHDB_ApplyEntry(FLASHDB_FindById(IdWord(0x20, 0xBA, 0x18)), &p), 0);
  EXPECT_EQ(p.NumPages, 65536u);
  EXPECT_EQ(p.PageSizeShift, 8u);
  EXPECT_EQ(p.SectorSizeShift, 16u);
  EXPECT_EQ(p.CmdReadStatus, 0x70);
  EXPECT_EQ(p.StatusIsReadyBit, 1);
  EXPECT_EQ(p.StatusBitPos, 7);
  EXPECT_EQ(p.NumAddrBytes, 3);
  EXPECT_EQ(p.CmdEnter4ByteMode, 0);  // type 0 clears the mode switch of the set
  EXPECT_EQ(p.CmdExit4ByteMode, 0);
  EXPECT_EQ(p.ChipClass, 0);
  // Not part of a table entry.
  EXPECT_EQ(p.AutoDetect, 1u);
  EXPECT_EQ(p.FlashType, 2u);
  EXPECT_EQ(p.abID[0], 0x11);
  EXPECT_EQ(p.abID[2], 0x33);
}

// Each 4-byte address type, on top of its command set.
TEST(ChipApply, FourByteTypes) {
  struct Case {
    uint8_t id[3];
    uint8_t addr, dedicated, enter, exit, read, write, erase;
  };
  const Case cases[] = {
      {{0xC2, 0x20, 0x19}, 4, 0, 0x00, 0x00, 0x13, 0x12, 0xDC},  // type 1
      {{0x20, 0xBA, 0x19}, 4, 1, 0xB7, 0xE9, 0x03, 0x02, 0xD8},  // type 2
      {{0x1F, 0xA8, 0x00}, 4, 0, 0xB7, 0xE9, 0x0B, 0x02, 0xD8},  // type 3
      {{0xBF, 0x26, 0x43}, 3, 0, 0x00, 0x00, 0x03, 0x02, 0x20},  // 4 KiB erase set
      {{0x04, 0x25, 0x03}, 2, 0, 0x00, 0x00, 0x03, 0x02, 0x00},  // no-erase set
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << int(c.id[0]) << " " << int(c.id[1]) << " "
                                    << int(c.id[2]));
    FlashParams p = Blank();
    ASSERT_EQ(FLASHDB_ApplyEntry(FLASHDB_FindById(IdWord(c.id[0], c.id[1], c.id[2])), &p), 0);
    EXPECT_EQ(p.NumAddrBytes, c.addr);
    EXPECT_EQ(p.Dedicated4BAddrMode, c.dedicated);
    EXPECT_EQ(p.CmdEnter4ByteMode, c.enter);
    EXPECT_EQ(p.CmdExit4ByteMode, c.exit);
    EXPECT_EQ(p.CmdReadData, c.read);
    EXPECT_EQ(p.CmdWritePage, c.write);
    EXPECT_EQ(p.CmdEraseSector, c.erase);
  }
}

TEST(ChipApply, GeometryAndClass) {
  FlashParams p = Blank();
  ASSERT_EQ(FLASHDB_ApplyEntry(162, &p), 0);  // 32 KiB ferroelectric part
  EXPECT_EQ(p.NumPages, 128u);
  EXPECT_EQ(FLASHPARAMS_ChipSize(p), 32768u);
  EXPECT_EQ(FLASHPARAMS_NumSectors(p), 1u);
  ASSERT_EQ(FLASHDB_ApplyEntry(18, &p), 0);  // page-based, 2 KiB blocks
  EXPECT_EQ(p.ChipClass, 10);
  EXPECT_EQ(p.CmdWriteEnable, 0x00);
  EXPECT_EQ(p.CmdReadStatus, 0xD7);
  EXPECT_EQ(p.CmdEraseSector, 0x50);
  EXPECT_EQ(FLASHPARAMS_NumSectors(p), 128u);
  EXPECT_EQ(FLASHDB_ApplyEntry(-1, &p), -1);
  EXPECT_EQ(FLASHDB_ApplyEntry(0, nullptr), -1);
}

TEST(ReadId, ContinuationCodesAreDropped) {
  struct Case {
    const char* name;
    uint8_t in[13];
    uint8_t first3[3];
  };
  const Case cases[] = {
      {"plain", {0xC2, 0x20, 0x18, 0xC2, 0x20, 0x18, 0, 0, 0, 0, 0, 0, 0}, {0xC2, 0x20, 0x18}},
      {"two codes", {0x7F, 0x7F, 0xC2, 0x20, 0x18, 0, 0, 0, 0, 0, 0, 0, 0}, {0xC2, 0x20, 0x18}},
      {"one code", {0x7F, 0x9D, 0x46, 0x16, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {0x9D, 0x46, 0x16}},
      {"code inside", {0x9D, 0x7F, 0x46, 0x16, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {0x9D, 0x46, 0x16}},
      // Nothing but codes: the buffer is left as it was.
      {"all codes", {0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F},
       {0x7F, 0x7F, 0x7F}},
      // The last byte is placed without advancing.
      {"last only", {0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0xAA},
       {0xAA, 0x7F, 0x7F}},
      {"first and last", {0xC2, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0xAA},
       {0xC2, 0xAA, 0x7F}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    uint8_t id[13];
    std::memcpy(id, c.in, sizeof(id));
    FLASHDB_CompactId(id);
    EXPECT_EQ(id[0], c.first3[0]);
    EXPECT_EQ(id[1], c.first3[1]);
    EXPECT_EQ(id[2], c.first3[2]);
  }
}

}  // namespace

// The table is data typed in by hand: every row must be internally
// consistent, or detection hands the operations a geometry no chip has.
TEST(ChipTable, EveryRowIsConsistent) {
  const int n = FLASHDB_GetNumEntries();
  EXPECT_EQ(n, 163);
  for (int i = 0; i < n; ++i) {
    SCOPED_TRACE("row " + std::to_string(i));
    const FlashChipEntry& e = FLASHDB_ChipTable[i];
    ASSERT_NE(e.Manufacturer, nullptr);
    ASSERT_NE(e.Part, nullptr);
    EXPECT_NE(e.Manufacturer[0], '\0');
    EXPECT_NE(e.Part[0], '\0');
    bool knownSet = false;
    for (const auto& set : FLASHDB_CommandSets) knownSet = knownSet || e.Commands == set;
    EXPECT_TRUE(knownSet);
    EXPECT_LT(FLASHDB_Entry4ByteType(e), 4u);
    EXPECT_LE(FLASHDB_EntryChipClass(e), FLASHPARAMS_CLASS_PAGE_BASED);  // the highest class the command layer knows
    EXPECT_LE(FLASHDB_EntrySizeShift(e), 31u);  // fits the 32-bit address space
    EXPECT_LE(FLASHDB_EntrySectorSizeShift(e), FLASHDB_EntrySizeShift(e));
    EXPECT_LE(FLASHDB_EntryPageSizeShift(e), FLASHDB_EntrySectorSizeShift(e));
    EXPECT_EQ(e.Id >> 31, 0u);  // no flag bits above the page-size field
  }
  EXPECT_EQ(FLASHDB_ChipTable[n].Manufacturer, nullptr);
}
