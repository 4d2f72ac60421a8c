// Sector marking and runs, the fit check and the range-list text; command
// framing, status interpretation and batch sizing.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "dataimage/memimage.h"
#include "flash/flash.h"
#include "flash/spi.h"

namespace {

using Span = std::pair<uint32_t, uint32_t>;  // start, size for images; first, last for runs

struct Image {
  MemImage* p = MEMIMAGE_Create();
  explicit Image(const std::vector<Span>& ranges) {
    for (auto [start, size] : ranges) EXPECT_EQ(MEMIMAGE_AddData(p, start, size, nullptr, -1), 0);
  }
  ~Image() { MEMIMAGE_Delete(p); }
};

// Every sector a range touches is marked once, data past the last sector is
// left out, and sectors as large as the address space do not wrap.
TEST(FlashOps, MarkedSectorsAndTheirRuns) {
  struct Case {
    std::vector<Span> ranges;
    uint32_t shift, marked;
    std::vector<uint8_t> flags;
    std::vector<Span> runs;
  };
  const Case cases[] = {
      {{{0x0FFF, 1}, {0x2800, 0x2000}, {0x7000, 0x1000}, {0x9000, 0x10}, {0x9F00, 0x10}, {0xF000, 0x2000}},
       12,
       7,
       {1, 0, 1, 1, 1, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 1},
       {{0, 0}, {2, 4}, {7, 7}, {9, 9}, {15, 15}}},
      {{{0, 0x3000}}, 12, 3, {1, 1, 1}, {{0, 2}}},
      {{}, 12, 0, {0, 0, 0}, {}},
      {{{0xFFFFFF00, 0x100}}, 31, 1, {0, 1}, {{1, 1}}},
      {{{0xFFFFFF00, 0x100}}, 40, 1, {1}, {{0, 0}}},
  };
  for (const Case& c : cases) {
    Image image(c.ranges);
    std::vector<uint8_t> flags(c.flags.size(), 0xEE);
    EXPECT_EQ(FLASH_MarkSectors(image.p, c.shift, flags.data(), (uint32_t)flags.size()), c.marked);
    EXPECT_EQ(flags, c.flags);
    std::vector<Span> runs;
    uint32_t index = 0, first = 0, last = 0;
    while (FLASH_NextRun(flags.data(), (uint32_t)flags.size(), &index, &first, &last)) runs.push_back({first, last});
    EXPECT_EQ(runs, c.runs);
    EXPECT_EQ(FLASH_CountRuns(flags.data(), (uint32_t)flags.size()), c.runs.size());
  }
}

TEST(FlashOps, FitCheckNamesTheFirstRangeOutsideTheChip) {
  struct Case {
    std::vector<Span> ranges;
    uint64_t chip;
    int result;
    uint32_t first, last;
  };
  const Case cases[] = {
      {{{0, 0x1000}}, 0x1000, 0, 0, 0},
      {{{0, 0x10}, {0xFF0, 0x20}}, 0x1000, 1, 0xFF0, 0x100F},  // straddles the end
      {{{0x2000, 0x10}, {0x10, 0x10}}, 0x1000, 1, 0x2000, 0x200F},
      {{{0xFFFFFF00, 0x100}}, 0x100000000ull, 0, 0, 0},  // a 4 GiB chip
      {{{0, 1}}, 0, 1, 0, 0},                            // no geometry at all
  };
  for (const Case& c : cases) {
    Image image(c.ranges);
    uint32_t first = 0, last = 0;
    EXPECT_EQ(FLASH_CheckFit(image.p, c.chip, &first, &last), c.result);
    EXPECT_EQ(first, c.first);
    EXPECT_EQ(last, c.last);
  }
  // The list text itself is pinned by the end-to-end erase runs.
  char small[12] = "";
  FLASH_AppendRange(small, sizeof small, 0x10000000, 0x1FFFFFFF);  // cut, not overrun
  EXPECT_STREQ(small, ", 0x1000000");
}

using V = std::vector<uint8_t>;

TEST(SpiCmd, FramingStatusAndBatchSize) {
  // Address bytes: the low ones, most significant first; more than four are four.
  const std::pair<uint8_t, V> headers[] = {
      {0, {0x12}}, {2, {0x12, 0x45, 0x67}}, {3, {0x12, 0x23, 0x45, 0x67}}, {9, {0x12, 0x81, 0x23, 0x45, 0x67}}};
  for (const auto& [addrBytes, want] : headers) {
    FlashParams fp{};
    fp.NumAddrBytes = addrBytes;
    uint8_t out[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(V(out, out + SPI_BuildAddressedCommand(&fp, 0x12, 0x81234567, out)), want);
  }
  // Busy bit 0 (most chips), ready bit 7 (page-based family), busy bit 1.
  const struct {
    uint8_t readyBit, pos, status;
    int ready;
  } statuses[] = {{0, 0, 0x02, 1}, {0, 0, 0x03, 0}, {1, 7, 0x80, 1}, {1, 7, 0x7F, 0}, {0, 1, 0x01, 1}, {0, 1, 0x02, 0}};
  for (const auto& c : statuses) {
    FlashParams fp{};
    fp.StatusIsReadyBit = c.readyBit;
    fp.StatusBitPos = c.pos;
    EXPECT_EQ(SPI_IsReadyStatus(&fp, c.status), c.ready) << int(c.pos) << " " << int(c.status);
  }
  // At most 32 pages or 8 KiB a batch, but never no page at all.
  const std::pair<uint32_t, uint32_t> batches[] = {{6, 32}, {8, 32}, {9, 16}, {13, 1}, {14, 1}, {40, 1}};
  for (const auto& [pageShift, pages] : batches) EXPECT_EQ(SPI_BatchPages(pageShift), pages) << pageShift;
}

}  // namespace
