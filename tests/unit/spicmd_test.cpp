// Command framing, status interpretation and batch sizing.
#include <gtest/gtest.h>

#include <vector>

#include "flash/spi.h"

namespace {

FlashParams WithAddrBytes(uint8_t n) {
  FlashParams fp{};
  fp.NumAddrBytes = n;
  return fp;
}

std::vector<uint8_t> Header(uint8_t addrBytes, uint8_t opcode, uint32_t address) {
  const FlashParams fp = WithAddrBytes(addrBytes);
  uint8_t out[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
  const int n = SPI_BuildAddressedCommand(&fp, opcode, address, out);
  return std::vector<uint8_t>(out, out + n);
}

TEST(SpiCmd, AddressedCommandKeepsTheLowBytesMostSignificantFirst) {
  using V = std::vector<uint8_t>;
  EXPECT_EQ(Header(0, 0x06, 0x01234567), (V{0x06}));
  EXPECT_EQ(Header(1, 0x02, 0x01234567), (V{0x02, 0x67}));
  EXPECT_EQ(Header(2, 0x02, 0x01234567), (V{0x02, 0x45, 0x67}));
  EXPECT_EQ(Header(3, 0x02, 0x01234567), (V{0x02, 0x23, 0x45, 0x67}));
  EXPECT_EQ(Header(4, 0x12, 0x01234567), (V{0x12, 0x01, 0x23, 0x45, 0x67}));
  EXPECT_EQ(Header(9, 0x12, 0xFEDCBA98), (V{0x12, 0xFE, 0xDC, 0xBA, 0x98}));
}

TEST(SpiCmd, ReadyBitFollowsPositionAndPolarity) {
  struct Case { uint8_t readyBit, pos, status; int ready; };
  const Case cases[] = {
      {0, 0, 0x02, 1}, {0, 0, 0x03, 0},   // busy bit 0 (most chips)
      {1, 7, 0x80, 1}, {1, 7, 0x7F, 0},   // ready bit 7 (page-based family)
      {0, 1, 0x01, 1}, {0, 1, 0x02, 0},
  };
  for (const Case& c : cases) {
    FlashParams fp{};
    fp.StatusIsReadyBit = c.readyBit;
    fp.StatusBitPos = c.pos;
    EXPECT_EQ(SPI_IsReadyStatus(&fp, c.status), c.ready)
        << "readyBit " << int(c.readyBit) << " pos " << int(c.pos) << " status " << int(c.status);
  }
}

TEST(SpiCmd, BatchHoldsAtMost32PagesOr8KiBButNeverNone) {
  EXPECT_EQ(SPI_BatchPages(6), 32u);    // 64-byte pages: capped by the page count
  EXPECT_EQ(SPI_BatchPages(8), 32u);
  EXPECT_EQ(SPI_BatchPages(9), 16u);
  EXPECT_EQ(SPI_BatchPages(10), 8u);
  EXPECT_EQ(SPI_BatchPages(13), 1u);
  EXPECT_EQ(SPI_BatchPages(14), 1u);    // a page above 8 KiB still goes alone
  EXPECT_EQ(SPI_BatchPages(40), 1u);
}

}  // namespace
