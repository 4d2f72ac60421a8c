// The memory image: joins, splits, overlaps, block extraction, patches, and
// a randomised comparison with a plain byte map.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include "dataimage/memimage.h"

namespace {

struct Image {
  MemImage* p = MEMIMAGE_Create();
  ~Image() { MEMIMAGE_Delete(p); }
  // Adds [start, last] with bytes equal to the low byte of their address.
  int Add(uint32_t start, uint32_t last) {
    std::vector<uint8_t> bytes(last - start + 1);
    for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<uint8_t>(start + i);
    return MEMIMAGE_AddData(p, start, last - start + 1, bytes.data(), -1);
  }
  std::vector<std::pair<uint32_t, uint32_t>> Ranges() {
    std::vector<std::pair<uint32_t, uint32_t>> out;
    for (int32_t i = 0;; i++) {
      uint32_t s = 0, n = 0;
      if (MEMIMAGE_GetRange(p, i, &s, &n) == nullptr) break;
      out.emplace_back(s, s + n - 1);
    }
    return out;
  }
};

using Ranges = std::vector<std::pair<uint32_t, uint32_t>>;

// Joins, overlaps and cuts in the low addresses are covered by the random
// model test below; these are the edges it does not reach.
TEST(MemImage, JoinAtTheTopAndCutsThatKeepAppending) {
  Image top;
  EXPECT_EQ(top.Add(0xFFFFFF00, 0xFFFFFFFF), 0);
  EXPECT_EQ(top.Add(0xFFFFFE00, 0xFFFFFEFF), 0);
  EXPECT_EQ(top.Ranges(), (Ranges{{0xFFFFFE00, 0xFFFFFFFF}}));
  EXPECT_EQ(MEMIMAGE_ReadByte(top.p, 0xFFFFFFFF), 0xFF);

  for (auto [a, b] : {std::pair<uint32_t, uint32_t>{0x180, 0x18F}, {0x300, 0x3FF}, {0x0, 0xFFFFFFFF}}) {
    Image im;
    im.Add(0x100, 0x1FF);
    im.Add(0x300, 0x3FF);
    MEMIMAGE_RemoveArea(im.p, a, b);
    // The cached last range survives the removal: appending still works.
    EXPECT_EQ(im.Add(0x1000, 0x100F), 0) << std::hex << a;
    EXPECT_EQ(MEMIMAGE_GetLastAddr(im.p), 0x100Fu);
  }
}

TEST(MemImage, WholeAddressSpaceWithoutBytes) {
  Image im;
  EXPECT_EQ(MEMIMAGE_AddDataLocked(im.p, 0, 0x80000000u, nullptr), 0);
  EXPECT_EQ(MEMIMAGE_AddDataLocked(im.p, 0x80000000u, 0x80000000u, nullptr), 0);
  EXPECT_EQ(MEMIMAGE_GetLastAddr(im.p), 0xFFFFFFFFu);
  EXPECT_EQ(MEMIMAGE_AddDataLocked(im.p, 0x1000, 1, nullptr), -1);
  Image data;
  data.Add(0, 0xF);
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(im.p, data.p, 0x7FFFFFF8u), 0);  // straddles the two halves
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(im.p, data.p, 0xFFFFFFF0u), -1);
}

TEST(MemImage, AddPastTopOfAddressSpaceIsRefused) {
  Image im;
  uint8_t b[0x20] = {};
  EXPECT_EQ(MEMIMAGE_AddData(im.p, 0xFFFFFFF0u, 0x20, b, -1), -1);
  EXPECT_EQ(MEMIMAGE_GetNumRanges(im.p), 0u);
}

TEST(MemImage, GetBlockBoundsGapsAndAlignment) {
  Image im;
  im.Add(0x100, 0x10F);
  im.Add(0x120, 0x12F);
  uint8_t data[0x100];
  uint8_t mask[0x100];
  uint32_t bs = 0;
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0, 0xFFFFFFFF, 0, 0xEE, data, mask, &bs, 0x1000, 0, 0), 0x10);
  EXPECT_EQ(bs, 0x100u);
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0, 0xFFFFFFFF, 0x10, 0xEE, data, mask, &bs, 0x1000, 0, 0), 0x30);
  EXPECT_EQ(bs, 0x100u);
  EXPECT_EQ(data[0x0F], 0x0F);
  EXPECT_EQ(data[0x10], 0xEE);
  EXPECT_EQ(mask[0x10], 0);
  EXPECT_EQ(mask[0x1F], 0);
  EXPECT_EQ(data[0x20], 0x20);
  EXPECT_EQ(mask[0x20], 1);
  // Gap one byte too large: no extension.
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0, 0xFFFFFFFF, 0x0F, 0xEE, nullptr, nullptr, &bs, 0x1000, 0, 0), 0x10);
  // Inside a range, clipped by `to`.
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x104, 0x107, 0, 0xFF, nullptr, nullptr, &bs, 0x1000, 0, 0), 4);
  EXPECT_EQ(bs, 0x104u);
  // Alignment: start down to 0x100-multiples of 2^6, end up to 2^6.
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x124, 0xFFFFFFFF, 0, 0xEE, data, mask, &bs, 0x1000, 6, 6), 0x40);
  EXPECT_EQ(bs, 0x100u);
  // The earlier range met by the aligned block is copied too.
  EXPECT_EQ(data[0x00], 0x00);
  EXPECT_EQ(mask[0x05], 1);
  EXPECT_EQ(mask[0x10], 0);
  EXPECT_EQ(data[0x24], 0x24);
  // Maximum length keeps the end aligned.
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x100, 0xFFFFFFFF, 0x10, 0xFF, nullptr, nullptr, &bs, 0x1C, 0, 3), 0x18);
}

TEST(MemImage, GetBlockSingleByteAtToOfLongerRangeIsNotReturned) {
  Image im;
  im.Add(0x200, 0x2FF);
  uint32_t bs = 0;
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x100, 0x200, 0, 0xFF, nullptr, nullptr, &bs, 0x1000, 0, 0), 0);
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x100, 0x201, 0, 0xFF, nullptr, nullptr, &bs, 0x1000, 0, 0), 2);
  EXPECT_EQ(bs, 0x200u);
  Image one;
  one.Add(0x200, 0x200);
  EXPECT_EQ(MEMIMAGE_GetBlock(one.p, 0x100, 0x200, 0, 0xFF, nullptr, nullptr, &bs, 0x1000, 0, 0), 1);
}

TEST(MemImage, PatchesOverlayAndCommit) {
  Image im;
  im.Add(0x100, 0x1FF);
  MEMIMAGE_SetByte(im.p, 0x110, 0x55);
  MEMIMAGE_SetByte(im.p, 0x110, 0x66);
  MEMIMAGE_SetByte(im.p, 0x400, 0x77);
  EXPECT_EQ(MEMIMAGE_ReadByte(im.p, 0x110), 0x166);
  uint8_t buf[4];
  MEMIMAGE_ReadArea(im.p, 0x10F, 4, buf, 0xEE);
  EXPECT_EQ(buf[0], 0x0F);
  EXPECT_EQ(buf[1], 0x66);
  uint8_t data[8];
  uint32_t bs = 0;
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x3FF, 0x400, 0, 0xEE, data, nullptr, &bs, 8, 0, 0), 0);
  EXPECT_EQ(MEMIMAGE_CommitPatches(im.p), 0);
  EXPECT_EQ(im.p->changeCount, 0u);
  EXPECT_EQ(MEMIMAGE_ReadByte(im.p, 0x110), 0x66);
  EXPECT_EQ(MEMIMAGE_ReadByte(im.p, 0x400), 0x77);
  EXPECT_EQ(im.Ranges(), (Ranges{{0x100, 0x1FF}, {0x400, 0x400}}));
}

TEST(MemImage, SetsAndMerge) {
  Image chip;
  MEMIMAGE_AddDataLocked(chip.p, 0, 0x10000, nullptr);
  EXPECT_EQ(chip.p->first->data, nullptr);
  Image img;
  img.Add(0x100, 0x1FF);
  img.Add(0xFFF0, 0x1000F);
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(chip.p, img.p, 0), 1);
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(chip.p, img.p, 0xFFFF0000u), 0);
  Image empty;
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(chip.p, empty.p, 0), -1);
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(empty.p, img.p, 0), 0);

  Image dest;
  dest.Add(0x300, 0x3FF);
  Image src;
  src.Add(0x200, 0x2FF);
  MEMIMAGE_AddDataLocked(src.p, 0x500, 0x10, nullptr);
  EXPECT_EQ(MEMIMAGE_MergeLocked(dest.p, src.p), 0);
  EXPECT_EQ(dest.Ranges(), (Ranges{{0x200, 0x3FF}, {0x500, 0x50F}}));
  EXPECT_EQ(MEMIMAGE_ReadByte(dest.p, 0x505), 0xFF);  // a byteless range arrives as 0xFF
  EXPECT_EQ(MEMIMAGE_Merge(dest.p, src.p), 1);
}

TEST(MemImage, AddSkipBlankAndRemoveBlank) {
  std::vector<uint8_t> src(64, 0xFF);
  for (int i = 4; i < 8; i++) src[i] = 1;
  for (int i = 10; i < 12; i++) src[i] = 2;  // two blanks between: shorter than the run
  for (int i = 30; i < 32; i++) src[i] = 3;
  Image im;
  EXPECT_EQ(MEMIMAGE_AddSkipBlank(im.p, 0x1000, 64, src.data(), 8, 0xFF), 0);
  EXPECT_EQ(im.Ranges(), (Ranges{{0x1004, 0x100B}, {0x101E, 0x101F}}));
  Image tail;
  EXPECT_EQ(MEMIMAGE_AddSkipBlank(tail.p, 0, 34, src.data(), 8, 0xFF), 1);
  EXPECT_EQ(tail.Ranges(), (Ranges{{4, 11}, {30, 33}}));
  Image none;
  EXPECT_EQ(MEMIMAGE_AddSkipBlank(none.p, 0, 0, src.data(), 8, 0xFF), 1);

  Image rb;
  MEMIMAGE_AddData(rb.p, 0x1000, 64, src.data(), -1);
  EXPECT_EQ(MEMIMAGE_RemoveBlank(rb.p, 8), 0);
  // The leading run of four blanks is shorter than the minimum and stays.
  EXPECT_EQ(rb.Ranges(), (Ranges{{0x1000, 0x100B}, {0x101E, 0x101F}}));
}

// A maximum length below one end-alignment unit cannot hold an aligned
// block: the answer is empty and the caller's buffer is left alone.
TEST(MemImage, GetBlockMaximumBelowEndUnitIsEmpty) {
  Image im;
  im.Add(0x100, 0x1FF);
  uint8_t data[64];
  std::fill(std::begin(data), std::end(data), 0xCC);
  uint32_t bs = 0;
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x105, 0x1FF, 0, 0xFF, data, nullptr, &bs, 4, 0, 4), 0);
  EXPECT_EQ(data[0], 0xCC);
  // One unit exactly still fits.
  EXPECT_EQ(MEMIMAGE_GetBlock(im.p, 0x105, 0x1FF, 0, 0xFF, data, nullptr, &bs, 16, 0, 4), 11);
  EXPECT_EQ(bs, 0x105u);
}

// The locked forms give what the plain ones give; the range queries by table.
TEST(MemImage, LockedFormsAndRangeQueries) {
  Image a;
  a.Add(0x100, 0x1FF);
  a.Add(0x300, 0x3FF);
  MEMIMAGE_SetByte(a.p, 0x150, 0x99);
  for (uint32_t addr : {0x0FFu, 0x100u, 0x150u, 0x1FFu, 0x200u}) {
    EXPECT_EQ(MEMIMAGE_ReadByteLocked(a.p, addr), MEMIMAGE_ReadByte(a.p, addr)) << std::hex << addr;
  }
  uint8_t plain[0x40], locked[0x40];
  uint32_t ps = 0, ls = 0;
  EXPECT_EQ(MEMIMAGE_GetBlockLocked(a.p, 0x1F0, 0x310, 0x200, locked, &ls, 0x40, 0, 0),
            MEMIMAGE_GetBlock(a.p, 0x1F0, 0x310, 0x200, 0xFF, plain, nullptr, &ps, 0x40, 0, 0));
  EXPECT_EQ(ls, ps);
  EXPECT_EQ(std::vector<uint8_t>(locked, locked + 0x40), std::vector<uint8_t>(plain, plain + 0x40));
  EXPECT_EQ(MEMIMAGE_SetByteLocked(a.p, 0x160, 0x11), 1);  // the index of the new patch
  EXPECT_EQ(MEMIMAGE_ReadByte(a.p, 0x160), 0x111);

  struct Area {
    uint32_t start, size;
    int inImage;
  } areas[] = {{0x100, 0x100, 1}, {0x180, 0x10, 1}, {0x1FF, 1, 1},    {0xFF, 2, 0},
               {0x1F0, 0x20, 0},  {0x200, 1, 0},    {0x1F0, 0x120, 0}, {0x3FF, 1, 1}};
  for (const Area& t : areas) {
    EXPECT_EQ(MEMIMAGE_IsAreaInImage(a.p, t.start, t.size), t.inImage) << std::hex << t.start << "+" << t.size;
  }

  struct Pair {
    uint32_t first, last;
    int overlaps;
  } others[] = {{0x200, 0x2FF, 0}, {0x1FF, 0x1FF, 1}, {0x0, 0xFF, 0}, {0x3FF, 0x500, 1}, {0x0, 0xFFFFFF, 1}};
  for (const Pair& t : others) {
    Image b;
    MEMIMAGE_AddDataLocked(b.p, t.first, t.last - t.first + 1, nullptr);
    EXPECT_EQ(MEMIMAGE_Overlaps(a.p, b.p), t.overlaps) << std::hex << t.first;
    EXPECT_EQ(MEMIMAGE_Overlaps(b.p, a.p), t.overlaps) << std::hex << t.first;
  }
  Image empty;
  EXPECT_EQ(MEMIMAGE_Overlaps(a.p, empty.p), 0);

  MEMIMAGE_RemoveAreaLocked(a.p, 0x180, 0x30F);
  EXPECT_EQ(a.Ranges(), (Ranges{{0x100, 0x17F}, {0x310, 0x3FF}}));
}

// Random adds, removes and reads against a byte map.
TEST(MemImage, RandomOperationsMatchByteMap) {
  std::mt19937 rng(12345);
  for (int round = 0; round < 40; round++) {
    Image im;
    std::map<uint32_t, uint8_t> model;
    for (int op = 0; op < 300; op++) {
      const uint32_t start = rng() % 2048;
      const uint32_t size = 1 + rng() % 96;
      const int kind = static_cast<int>(rng() % 10);
      if (kind < 6) {
        std::vector<uint8_t> bytes(size);
        for (auto& b : bytes) b = static_cast<uint8_t>(rng());
        bool overlaps = false;
        for (uint32_t a = start; a < start + size; a++) overlaps |= model.count(a) != 0;
        EXPECT_EQ(MEMIMAGE_AddData(im.p, start, size, bytes.data(), -1), overlaps ? -1 : 0);
        if (!overlaps) {
          for (uint32_t i = 0; i < size; i++) model[start + i] = bytes[i];
        }
      } else if (kind < 8) {
        MEMIMAGE_RemoveArea(im.p, start, start + size - 1);
        for (uint32_t a = start; a < start + size; a++) model.erase(a);
      } else {
        std::vector<uint8_t> got(size);
        MEMIMAGE_ReadArea(im.p, start, size, got.data(), 0xEE);
        for (uint32_t i = 0; i < size; i++) {
          auto it = model.find(start + i);
          ASSERT_EQ(got[i], it == model.end() ? 0xEE : it->second) << "round " << round << " op " << op;
        }
      }
      // Invariants: sorted, not touching, counts agree.
      uint32_t count = 0;
      uint32_t bytesTotal = 0;
      uint64_t prevEnd = 0;
      for (MemRange* r = im.p->first; r != nullptr; r = r->next, count++) {
        ASSERT_GT(r->size, 0u);
        if (count > 0) {
          ASSERT_GT(uint64_t(r->start), prevEnd);
        }
        prevEnd = uint64_t(r->start) + r->size;
        bytesTotal += r->size;
      }
      ASSERT_EQ(count, im.p->rangeCount);
      ASSERT_EQ(bytesTotal, model.size());
    }
    // Walking with GetBlock sees every byte once, in order.
    std::vector<std::pair<uint32_t, uint8_t>> walked;
    uint64_t c = 0;
    uint8_t buf[64];
    for (;;) {
      uint32_t bs = 0;
      const int32_t len = MEMIMAGE_GetBlock(im.p, static_cast<uint32_t>(c), 0xFFFFFFFF, 0, 0, buf, nullptr, &bs,
                                            sizeof buf, 0, 0);
      if (len == 0) break;
      for (int32_t i = 0; i < len; i++) walked.emplace_back(bs + i, buf[i]);
      c = uint64_t(bs) + len;
    }
    ASSERT_EQ(walked, (std::vector<std::pair<uint32_t, uint8_t>>(model.begin(), model.end())));
  }
}

// An allocation failing anywhere in a run of adds (appends, prepends, joins,
// inserts, patches committed) is never silent: an add reports -3, or a range
// is left without bytes; otherwise every byte is right.
TEST(MemImage, AllocationFailuresAreNeverSilent) {
  const std::pair<uint32_t, uint32_t> adds[] = {{0x100, 0x40}, {0x140, 0x200}, {0x400, 0x10}, {0x80, 0x80},
                                                {0x340, 0xC0}, {0x1000, 0x300}, {0x410, 0x10}};
  std::map<uint32_t, uint8_t> model;
  for (const auto& [start, size] : adds) {
    for (uint32_t a = start; a < start + size; a++) model[a] = static_cast<uint8_t>(a * 5);
  }
  bool reachedEnd = false;
  for (uint32_t n = 1; n < 200 && !reachedEnd; n++) {
    MemImage* im = nullptr;
    SYS_TEST_FailAllocation(n);
    im = MEMIMAGE_Create();
    bool reported = im == nullptr;
    if (im != nullptr) {
      for (const auto& [start, size] : adds) {
        std::vector<uint8_t> bytes(size);
        for (uint32_t i = 0; i < size; i++) bytes[i] = static_cast<uint8_t>((start + i) * 5);
        const int r = MEMIMAGE_AddData(im, start, size, bytes.data(), -1);
        EXPECT_TRUE(r == 0 || r == -3) << "allocation " << n;
        reported |= r != 0;
      }
      MEMIMAGE_SetByte(im, 0x2000, 0x5A);
      reported |= MEMIMAGE_CommitPatches(im) != 0;
    }
    reachedEnd = SYS_TEST_AllocFailurePending() != 0;
    SYS_TEST_FailAllocation(0);
    if (im == nullptr) continue;
    if (!reported && !MEMIMAGE_HasRangeWithoutBytes(im)) {
      std::map<uint32_t, uint8_t> want = model;
      if (MEMIMAGE_ReadByte(im, 0x2000) >= 0) want[0x2000] = 0x5A;  // a dropped patch is allowed
      EXPECT_EQ(MEMIMAGE_GetNumBytes(im), want.size()) << "allocation " << n;
      for (const auto& [a, v] : want) ASSERT_EQ(MEMIMAGE_ReadByte(im, a), v) << "allocation " << n;
    }
    MEMIMAGE_Delete(im);
  }
  EXPECT_TRUE(reachedEnd);
}

// Many small ranges, added in no order and cut by removes: adds that join,
// prepend, insert between or overlap agree with a byte map throughout.
TEST(MemImage, ScatteredAddsAndRemovesMatchByteMap) {
  std::mt19937 rng(777);
  Image im;
  std::map<uint32_t, uint8_t> model;
  for (int op = 0; op < 6000; op++) {
    const uint32_t start = (rng() % 4000) * 3;
    const uint32_t size = 1 + rng() % 4;
    if (rng() % 8 != 0) {
      std::vector<uint8_t> bytes(size);
      for (auto& b : bytes) b = static_cast<uint8_t>(rng());
      bool overlaps = false;
      for (uint32_t a = start; a < start + size; a++) overlaps |= model.count(a) != 0;
      ASSERT_EQ(MEMIMAGE_AddData(im.p, start, size, bytes.data(), -1), overlaps ? -1 : 0) << "op " << op;
      if (!overlaps) {
        for (uint32_t i = 0; i < size; i++) model[start + i] = bytes[i];
      }
    } else {
      const uint32_t last = start + rng() % 40;
      MEMIMAGE_RemoveArea(im.p, start, last);
      for (uint32_t a = start; a <= last; a++) model.erase(a);
    }
    if (op % 500 == 499) {
      // Shifting moves every range; later adds must still find their place.
      MEMIMAGE_ShiftAddr(im.p, 0x10);
      std::map<uint32_t, uint8_t> shifted;
      for (const auto& [a, v] : model) shifted[a + 0x10] = v;
      model.swap(shifted);
    }
  }
  uint32_t ranges = 0;
  uint64_t prevEnd = 0;
  for (MemRange* r = im.p->first; r != nullptr; r = r->next, ranges++) {
    if (ranges > 0) {
      ASSERT_GT(uint64_t(r->start), prevEnd);
    }
    prevEnd = uint64_t(r->start) + r->size;
  }
  EXPECT_GT(ranges, 100u);
  EXPECT_EQ(ranges, im.p->rangeCount);
  ASSERT_EQ(MEMIMAGE_GetNumBytes(im.p), model.size());
  for (const auto& [a, v] : model) ASSERT_EQ(MEMIMAGE_ReadByte(im.p, a), v) << a;
}

}  // namespace
