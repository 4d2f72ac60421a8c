// Sector marking and runs, the fit check and the range-list text.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "dataimage/memimage.h"
#include "flash/flash.h"

namespace {

using Span = std::pair<uint32_t, uint32_t>;  // start, size

struct Image {
  MemImage* p = MEMIMAGE_Create();
  explicit Image(const std::vector<Span>& ranges) {
    for (auto [start, size] : ranges) {
      std::vector<uint8_t> bytes(size, 0x5A);
      EXPECT_EQ(MEMIMAGE_AddData(p, start, size, bytes.data(), -1), 0);
    }
  }
  ~Image() { MEMIMAGE_Delete(p); }
};

std::vector<Span> Runs(const std::vector<uint8_t>& flags) {
  std::vector<Span> runs;
  uint32_t index = 0, first = 0, last = 0;
  while (FLASH_NextRun(flags.data(), (uint32_t)flags.size(), &index, &first, &last))
    runs.push_back({first, last});
  EXPECT_EQ(runs.size(), FLASH_CountRuns(flags.data(), (uint32_t)flags.size()));
  return runs;
}

TEST(FlashOps, MarksEverySectorARangeTouchesOnce) {
  // 16 sectors of 4 KiB: one byte at the end of sector 0, a range spanning
  // sectors 2-4 partially, one filling sector 7 exactly, two ranges in sector 9.
  Image image({{0x0FFF, 1}, {0x2800, 0x2000}, {0x7000, 0x1000}, {0x9000, 0x10}, {0x9F00, 0x10}});
  std::vector<uint8_t> flags(16, 0xEE);
  EXPECT_EQ(FLASH_MarkSectors(image.p, 12, flags.data(), 16), 6u);
  EXPECT_EQ(flags, (std::vector<uint8_t>{1, 0, 1, 1, 1, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Runs(flags), (std::vector<Span>{{0, 0}, {2, 4}, {7, 7}, {9, 9}}));
}

TEST(FlashOps, MarkingIgnoresDataPastTheLastSector) {
  Image image({{0x3F00, 0x200}});
  std::vector<uint8_t> flags(4, 0);
  EXPECT_EQ(FLASH_MarkSectors(image.p, 12, flags.data(), 4), 1u);
  EXPECT_EQ(flags, (std::vector<uint8_t>{0, 0, 0, 1}));
}

// Sectors of 2 GiB and of the whole 32-bit address space: data at the top
// of the addresses lies in the last sector, nothing wraps.
TEST(FlashOps, MarkingWorksForSectorsAsLargeAsTheAddressSpace) {
  struct Case { uint32_t shift, numSectors; std::vector<uint8_t> expected; };
  const Case cases[] = {
      {31, 2, {0, 1}},
      {32, 1, {1}},
      {40, 1, {1}},
  };
  Image image({{0xFFFFFF00, 0x100}});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.shift);
    std::vector<uint8_t> flags(c.numSectors, 0xEE);
    EXPECT_EQ(FLASH_MarkSectors(image.p, c.shift, flags.data(), c.numSectors), 1u);
    EXPECT_EQ(flags, c.expected);
  }
}

TEST(FlashOps, RunsAtTheEdgesAndNone) {
  EXPECT_EQ(Runs({}), std::vector<Span>{});
  EXPECT_EQ(Runs({0, 0, 0}), std::vector<Span>{});
  EXPECT_EQ(Runs({1, 1, 1}), (std::vector<Span>{{0, 2}}));
  EXPECT_EQ(Runs({1, 0, 1}), (std::vector<Span>{{0, 0}, {2, 2}}));
}

TEST(FlashOps, FitCheckNamesTheFirstRangeOutsideTheChip) {
  struct Case { std::vector<Span> ranges; uint64_t chip; int result; uint32_t first, last; };
  const Case cases[] = {
      {{{0, 0x1000}}, 0x1000, 0, 0, 0},
      {{{0, 0x10}, {0xFF0, 0x20}}, 0x1000, 1, 0xFF0, 0x100F},   // straddles the end
      {{{0x2000, 0x10}, {0x10, 0x10}}, 0x1000, 1, 0x2000, 0x200F},
      {{{0xFFFFFF00, 0x100}}, 0x100000000ull, 0, 0, 0},          // a 4 GiB chip
      {{{0, 1}}, 0, 1, 0, 0},                                    // no geometry at all
  };
  for (const Case& c : cases) {
    Image image(c.ranges);
    uint32_t first = 0, last = 0;
    EXPECT_EQ(FLASH_CheckFit(image.p, c.chip, &first, &last), c.result);
    if (c.result == 1) {
      EXPECT_EQ(first, c.first);
      EXPECT_EQ(last, c.last);
    }
  }
}

TEST(FlashOps, RangeListGrowsItemByItemAndStaysBounded) {
  char list[64] = "";
  FLASH_AppendRange(list, sizeof list, 0, 0xFFF);
  FLASH_AppendRange(list, sizeof list, 0x8000, 0x9FFF);
  EXPECT_STREQ(list, ", 0x0 - 0xFFF, 0x8000 - 0x9FFF");
  char small[12] = "";
  FLASH_AppendRange(small, sizeof small, 0x10000000, 0x1FFFFFFF);
  EXPECT_EQ(std::string(small), ", 0x1000000");
}

}  // namespace
