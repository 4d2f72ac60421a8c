// Command framing, status interpretation and batch sizing.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "flash/spi.h"

namespace {

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
