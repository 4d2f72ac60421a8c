// Chip lookup by ID, applying an entry, and the ID reader's
// continuation-code compaction.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "flash/flashdb.h"

namespace {

uint32_t IdWord(const uint8_t id[3]) { return id[0] | (uint32_t(id[1]) << 8) | (uint32_t(id[2]) << 16); }

// The first matching row wins; applying it sets geometry, command set and
// 4-byte address type, and leaves AutoDetect, FlashType and abID alone.
TEST(ChipLookup, FirstMatchWinsAndIsAppliedWithItsAddressType) {
  struct Case {
    uint8_t id[3];
    int index;
    const char* part;
    uint32_t pages, sectorShift;
    uint8_t addr, dedicated, enter, exit, read, write, erase, wren, status, readyBit, chipClass;
  };
  const Case cases[] = {
      // memory-type byte ignored; type 0 clears the set's mode switch
      {{0x20, 0xBA, 0x18}, 10, "N25Q128A", 65536, 16, 3, 0, 0x00, 0x00, 0x03, 0x02, 0xD8, 0x06, 0x70, 1, 0},
      {{0x20, 0x00, 0x18}, 10, "N25Q128A", 65536, 16, 3, 0, 0x00, 0x00, 0x03, 0x02, 0xD8, 0x06, 0x70, 1, 0},
      {{0xC2, 0x20, 0x19}, 89, "MX25L25735F", 131072, 16, 4, 0, 0x00, 0x00, 0x13, 0x12, 0xDC, 0x06, 0x05, 0, 4},
      {{0x20, 0xBA, 0x19}, 11, "N25Q256A", 131072, 16, 4, 1, 0xB7, 0xE9, 0x03, 0x02, 0xD8, 0x06, 0x70, 1, 0},
      {{0x1F, 0xA8, 0x00}, 54, "ATXP064B", 32768, 16, 4, 0, 0xB7, 0xE9, 0x0B, 0x02, 0xD8, 0x06, 0x05, 0, 8},
      {{0xBF, 0x26, 0x43}, 114, "SST26VF064B", 32768, 12, 3, 0, 0x00, 0x00, 0x03, 0x02, 0x20, 0x06, 0x05, 0, 9},
      {{0x04, 0x25, 0x03}, 162, "MB85RS256TY", 128, 15, 2, 0, 0x00, 0x00, 0x03, 0x02, 0x00, 0x06, 0x05, 0, 0},
      {{0x1F, 0x23, 0x00}, 18, "AT25PE20", 1024, 11, 3, 0, 0x00, 0x00, 0x03, 0x02, 0x50, 0x00, 0xD7, 1, 10},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.part);
    const int index = FLASHDB_FindById(IdWord(c.id));
    ASSERT_EQ(index, c.index);
    EXPECT_STREQ(FLASHDB_ChipTable[index].Part, c.part);
    FlashParams p;
    std::memset(&p, 0xEE, sizeof(p));
    p.AutoDetect = 1;
    p.FlashType = 2;
    std::memcpy(p.abID, "\x11\x22\x33", 3);
    ASSERT_EQ(FLASHDB_ApplyEntry(index, &p), 0);
    EXPECT_EQ(p.NumPages, c.pages);
    EXPECT_EQ(p.PageSizeShift, 8u);
    EXPECT_EQ(p.SectorSizeShift, c.sectorShift);
    const std::vector<uint8_t> got = {p.NumAddrBytes,  p.Dedicated4BAddrMode, p.CmdEnter4ByteMode, p.CmdExit4ByteMode,
                                      p.CmdReadData,   p.CmdWritePage,        p.CmdEraseSector,    p.CmdWriteEnable,
                                      p.CmdReadStatus, p.StatusIsReadyBit,    p.ChipClass};
    EXPECT_EQ(got, (std::vector<uint8_t>{c.addr, c.dedicated, c.enter, c.exit, c.read, c.write, c.erase, c.wren,
                                         c.status, c.readyBit, c.chipClass}));
    EXPECT_EQ(p.StatusBitPos, c.readyBit ? 7 : 0);
    EXPECT_EQ(p.AutoDetect, 1u);
    EXPECT_EQ(p.FlashType, 2u);
    EXPECT_EQ(std::memcmp(p.abID, "\x11\x22\x33", 3), 0);
  }
  // Rows sharing an ID (the earlier wins), and IDs no row has: the memory
  // type matters for this maker's rows.
  const struct {
    uint8_t id[3];
    int index;
  } lookups[] = {
      {{0x1F, 0x46, 0x02}, 45}, {{0x1F, 0x84, 0x01}, 39}, {{0x9D, 0x46, 0x00}, -1}, {{0xC2, 0x21, 0x18}, -1}};
  for (const auto& l : lookups) EXPECT_EQ(FLASHDB_FindById(IdWord(l.id)), l.index);
  FlashParams p{};
  EXPECT_EQ(FLASHDB_ApplyEntry(-1, &p), -1);
  EXPECT_EQ(FLASHDB_ApplyEntry(FLASHDB_GetNumEntries(), &p), -1);
  EXPECT_EQ(FLASHDB_ApplyEntry(0, nullptr), -1);
}

TEST(ReadId, ContinuationCodesAreDropped) {
  using V = std::vector<uint8_t>;
  const std::pair<V, V> cases[] = {
      {{0xC2, 0x20, 0x18, 0xC2, 0x20, 0x18}, {0xC2, 0x20, 0x18}},
      {{0x7F, 0x7F, 0xC2, 0x20, 0x18}, {0xC2, 0x20, 0x18}},
      {{0x9D, 0x7F, 0x46, 0x16}, {0x9D, 0x46, 0x16}},
      {V(13, 0x7F), {0x7F, 0x7F, 0x7F}},  // nothing but codes: left as it was
      {{0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0xAA}, {0xAA, 0x7F, 0x7F}},
      {{0xC2, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0xAA}, {0xC2, 0xAA, 0x7F}},
  };
  for (const auto& [in, first3] : cases) {
    V id = in;
    id.resize(13, 0x00);
    FLASHDB_CompactId(id.data());
    EXPECT_EQ(V(id.begin(), id.begin() + 3), first3);
  }
}

}  // namespace
