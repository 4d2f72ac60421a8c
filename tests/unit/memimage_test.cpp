// The memory image: joins, splits, overlaps, block extraction, patches, and
// a randomised comparison with a plain byte map.
#include <gtest/gtest.h>
#include <malloc.h>

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
// model test below; these are the edges it does not reach: the top of the
// address space, and cuts after which appending must still work.
TEST(MemImage, TopOfTheAddressSpaceAndCutsThatKeepAppending) {
  Image top;
  EXPECT_EQ(top.Add(0xFFFFFF00, 0xFFFFFFFF), 0);
  EXPECT_EQ(top.Add(0xFFFFFE00, 0xFFFFFEFF), 0);
  EXPECT_EQ(top.Ranges(), (Ranges{{0xFFFFFE00, 0xFFFFFFFF}}));
  EXPECT_EQ(MEMIMAGE_ReadByte(top.p, 0xFFFFFFFF), 0xFF);
  Image past;
  uint8_t b[0x20] = {};
  EXPECT_EQ(MEMIMAGE_AddData(past.p, 0xFFFFFFF0u, 0x20, b, -1), -1);
  EXPECT_EQ(MEMIMAGE_GetNumRanges(past.p), 0u);

  for (auto [a, b] : {std::pair<uint32_t, uint32_t>{0x180, 0x18F}, {0x300, 0x3FF}, {0x0, 0xFFFFFFFF}}) {
    Image im;
    im.Add(0x100, 0x1FF);
    im.Add(0x300, 0x3FF);
    MEMIMAGE_RemoveArea(im.p, a, b);
    // The cached last range survives the removal: appending still works.
    EXPECT_EQ(im.Add(0x1000, 0x100F), 0) << std::hex << a;
    EXPECT_EQ(MEMIMAGE_GetLastAddr(im.p), 0x100Fu);
  }

  Image whole;
  EXPECT_EQ(MEMIMAGE_AddDataLocked(whole.p, 0, 0x80000000u, nullptr), 0);
  EXPECT_EQ(MEMIMAGE_AddDataLocked(whole.p, 0x80000000u, 0x80000000u, nullptr), 0);
  EXPECT_EQ(MEMIMAGE_GetLastAddr(whole.p), 0xFFFFFFFFu);
  EXPECT_EQ(MEMIMAGE_AddDataLocked(whole.p, 0x1000, 1, nullptr), -1);
  Image data;
  data.Add(0, 0xF);
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(whole.p, data.p, 0x7FFFFFF8u), 0);  // straddles the two halves
  EXPECT_EQ(MEMIMAGE_FindRangeNotIn(whole.p, data.p, 0xFFFFFFF0u), -1);
}

// Blocks: bounded by the window and the maximum length, bridging gaps of at
// most maxGap, widened to alignment units.
TEST(MemImage, GetBlockBoundsGapsAndAlignment) {
  Image im;
  im.Add(0x100, 0x10F);
  im.Add(0x120, 0x12F);
  im.Add(0x200, 0x2FF);
  im.Add(0x400, 0x400);
  struct Case {
    uint32_t from, to, maxGap;
    int32_t maxLength;
    uint32_t startShift, endShift;
    int32_t length;
    uint32_t start;
  } cases[] = {
      {0, 0xFFFFFFFF, 0, 0x1000, 0, 0, 0x10, 0x100},
      {0, 0xFFFFFFFF, 0x10, 0x1000, 0, 0, 0x30, 0x100},
      {0, 0xFFFFFFFF, 0x0F, 0x1000, 0, 0, 0x10, 0x100},    // gap one byte too large: no extension
      {0x104, 0x107, 0, 0x1000, 0, 0, 4, 0x104},           // inside a range, clipped by `to`
      {0x124, 0xFFFFFFFF, 0, 0x1000, 6, 6, 0x40, 0x100},   // start down, end up to 2^6
      {0x100, 0xFFFFFFFF, 0x10, 0x1C, 0, 3, 0x18, 0x100},  // the maximum keeps the end aligned
      {0x130, 0x200, 0, 0x1000, 0, 0, 0, 0},               // one byte at `to` of a longer range: none
      {0x130, 0x201, 0, 0x1000, 0, 0, 2, 0x200},
      {0x300, 0x400, 0, 0x1000, 0, 0, 1, 0x400},  // a one-byte range ending at `to` is returned
      {0x205, 0x2FF, 0, 4, 0, 4, 0, 0},           // maximum below one end unit: empty
      {0x205, 0x2FF, 0, 16, 0, 4, 11, 0x205},     // one unit exactly still fits
  };
  for (const Case& c : cases) {
    uint8_t data[0x100], mask[0x100];
    std::fill(std::begin(data), std::end(data), 0xCC);
    uint32_t bs = 0;
    const int32_t len =
        MEMIMAGE_GetBlock(im.p, c.from, c.to, c.maxGap, 0xEE, data, mask, &bs, c.maxLength, c.startShift, c.endShift);
    EXPECT_EQ(len, c.length) << std::hex << c.from << " " << c.to;
    if (len > 0) {
      EXPECT_EQ(bs, c.start) << std::hex << c.from << " " << c.to;
    } else {
      EXPECT_EQ(data[0], 0xCC) << "an empty answer leaves the buffer alone";
    }
    if (c.startShift == 6) {
      // The earlier range met by the aligned block is copied too; gaps are
      // filled and masked out.
      const std::pair<int, int> bytes[] = {{0x00, 0x00}, {0x0F, 0x0F}, {0x10, 0xEE}, {0x1F, 0xEE}, {0x24, 0x24}};
      for (auto [i, v] : bytes) EXPECT_EQ(data[i], v) << i;
      for (auto [i, m] : {std::pair{0x05, 1}, {0x10, 0}, {0x1F, 0}, {0x20, 1}, {0x3F, 0}}) EXPECT_EQ(mask[i], m) << i;
    }
  }
}

TEST(MemImage, SetsAndMerge) {
  Image chip;
  MEMIMAGE_AddDataLocked(chip.p, 0, 0x10000, nullptr);
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

// Patches overlay the ranges until committed; the locked forms give what
// the plain ones give; the range queries by table.
TEST(MemImage, PatchesLockedFormsAndRangeQueries) {
  Image a;
  a.Add(0x100, 0x1FF);
  a.Add(0x300, 0x3FF);
  MEMIMAGE_SetByte(a.p, 0x110, 0x55);
  MEMIMAGE_SetByte(a.p, 0x110, 0x66);
  EXPECT_EQ(MEMIMAGE_SetByteLocked(a.p, 0x500, 0x77), 2);  // the index of the new patch
  EXPECT_EQ(MEMIMAGE_ReadByte(a.p, 0x110), 0x166);
  for (uint32_t addr : {0x0FFu, 0x100u, 0x110u, 0x1FFu, 0x200u, 0x500u}) {
    EXPECT_EQ(MEMIMAGE_ReadByteLocked(a.p, addr), MEMIMAGE_ReadByte(a.p, addr)) << std::hex << addr;
  }
  uint8_t plain[0x40], locked[0x40];
  uint32_t ps = 0, ls = 0;
  EXPECT_EQ(MEMIMAGE_GetBlockLocked(a.p, 0x1F0, 0x310, 0x200, locked, &ls, 0x40, 0, 0),
            MEMIMAGE_GetBlock(a.p, 0x1F0, 0x310, 0x200, 0xFF, plain, nullptr, &ps, 0x40, 0, 0));
  EXPECT_EQ(ls, ps);
  EXPECT_EQ(std::vector<uint8_t>(locked, locked + 0x40), std::vector<uint8_t>(plain, plain + 0x40));
  MEMIMAGE_ReadArea(a.p, 0x10F, 4, plain, 0xEE);
  EXPECT_EQ(plain[0], 0x0F);
  EXPECT_EQ(plain[1], 0x66);
  EXPECT_EQ(MEMIMAGE_GetBlock(a.p, 0x4FF, 0x500, 0, 0xEE, plain, nullptr, &ps, 8, 0, 0), 0);  // not before commit
  EXPECT_EQ(MEMIMAGE_CommitPatches(a.p), 0);
  EXPECT_EQ(a.p->changeCount, 0u);
  EXPECT_EQ(MEMIMAGE_ReadByte(a.p, 0x110), 0x66);
  EXPECT_EQ(a.Ranges(), (Ranges{{0x100, 0x1FF}, {0x300, 0x3FF}, {0x500, 0x500}}));

  struct Area {
    uint32_t start, size;
    int inImage;
  } areas[] = {{0x100, 0x100, 1}, {0x180, 0x10, 1}, {0x1FF, 1, 1},     {0xFF, 2, 0},
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
  EXPECT_EQ(a.Ranges(), (Ranges{{0x100, 0x17F}, {0x310, 0x3FF}, {0x500, 0x500}}));
}

// Random adds, removes, shifts and reads against a byte map: wide ranges
// that overlap and cut each other often, and many small ones that join,
// prepend, insert between and move with every shift.
TEST(MemImage, RandomOperationsMatchByteMap) {
  struct Pattern {
    uint32_t seed, rounds, ops, slots, step, maxSize, adds, maxRemove;
  };
  for (const Pattern& pat : {Pattern{12345, 40, 300, 2048, 1, 96, 6, 96}, Pattern{777, 1, 6000, 4000, 3, 4, 8, 40}}) {
    std::mt19937 rng(pat.seed);
    for (uint32_t round = 0; round < pat.rounds; round++) {
      SCOPED_TRACE(testing::Message() << "seed " << pat.seed << " round " << round);
      Image im;
      std::map<uint32_t, uint8_t> model;
      for (uint32_t op = 0; op < pat.ops; op++) {
        const uint32_t start = (rng() % pat.slots) * pat.step;
        const uint32_t size = 1 + rng() % pat.maxSize;
        const uint32_t kind = rng() % 10;
        if (kind < pat.adds) {
          std::vector<uint8_t> bytes(size);
          for (auto& b : bytes) b = static_cast<uint8_t>(rng());
          bool overlaps = false;
          for (uint32_t a = start; a < start + size; a++) overlaps |= model.count(a) != 0;
          ASSERT_EQ(MEMIMAGE_AddData(im.p, start, size, bytes.data(), -1), overlaps ? -1 : 0) << "op " << op;
          if (!overlaps) {
            for (uint32_t i = 0; i < size; i++) model[start + i] = bytes[i];
          }
        } else if (kind < pat.adds + 2) {
          const uint32_t last = start + rng() % pat.maxRemove;
          MEMIMAGE_RemoveArea(im.p, start, last);
          for (uint32_t a = start; a <= last; a++) model.erase(a);
        } else {
          std::vector<uint8_t> got(size);
          MEMIMAGE_ReadArea(im.p, start, size, got.data(), 0xEE);
          for (uint32_t i = 0; i < size; i++) {
            auto it = model.find(start + i);
            ASSERT_EQ(got[i], it == model.end() ? 0xEE : it->second) << "op " << op;
          }
        }
        if (op % 500 == 499) {
          // Shifting moves every range; later adds must still find their place.
          MEMIMAGE_ShiftAddr(im.p, 0x10);
          std::map<uint32_t, uint8_t> shifted;
          for (const auto& [a, v] : model) shifted[a + 0x10] = v;
          model.swap(shifted);
        }
        // Invariants: sorted, not touching, counts agree.
        uint32_t count = 0, bytesTotal = 0;
        uint64_t prevEnd = 0;
        for (MemRange* r = im.p->first; r != nullptr; r = r->next, count++) {
          ASSERT_GT(r->size, 0u);
          ASSERT_TRUE(count == 0 || uint64_t(r->start) > prevEnd) << "range " << count;
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
        const int32_t len =
            MEMIMAGE_GetBlock(im.p, static_cast<uint32_t>(c), 0xFFFFFFFF, 0, 0, buf, nullptr, &bs, sizeof buf, 0, 0);
        if (len == 0) break;
        for (int32_t i = 0; i < len; i++) walked.emplace_back(bs + i, buf[i]);
        c = uint64_t(bs) + len;
      }
      ASSERT_EQ(walked, (std::vector<std::pair<uint32_t, uint8_t>>(model.begin(), model.end())));
    }
  }
  // A deleted image leaves nothing behind: ranges, buffers, and the index
  // an image filled out of order builds.
  const long heldBefore = static_cast<long>(mallinfo2().uordblks);
  for (int i = 0; i < 100; i++) {
    Image im;
    for (uint32_t r = 20; r > 0; r--) im.Add(r * 0x10, r * 0x10 + 7);
  }
  EXPECT_LT(static_cast<long>(mallinfo2().uordblks) - heldBefore, 20000) << "deleted images leak";
}

// An allocation failing anywhere in a run of adds (appends, prepends, joins,
// inserts, patches committed) is never silent: an add reports -3, or a range
// is left without bytes; otherwise every byte is right.
TEST(MemImage, AllocationFailuresAreNeverSilent) {
  const std::pair<uint32_t, uint32_t> adds[] = {{0x100, 0x40}, {0x140, 0x200},  {0x400, 0x10}, {0x80, 0x80},
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

}  // namespace
