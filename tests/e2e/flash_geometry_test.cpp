// Project files whose chip geometry is hostile or odd: sizes beyond the
// 32-bit addresses, sector tables too large to hold, sectors larger than the
// chip or not covering it. The program runs against the simulated 16 MiB
// chip; every run is bounded, and no run may crash, run away or report
// success for data it neither wrote nor compared.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/e2e/sim_rig.h"

namespace {

using Bytes = std::string;

struct Geometry {
  const char* numPages;
  int pageShift;
  int sectorShift;
};

std::string Project(const Geometry& g) {
  char text[512];
  std::snprintf(text, sizeof text,
                "[FLASH]\n  AutoDetect = 0\n  abID[3] = 0xC2,0x20,0x18\n  NumPages = %s\n"
                "  PageSizeShift = %d\n  SectorSizeShift = %d\n",
                g.numPages, g.pageShift, g.sectorShift);
  return text;
}

// A chip larger than the 32-bit addresses can reach, or one whose sector
// table would need a flag for each of billions of sectors, is refused by
// every operation that works from the geometry, naming the keys; the chip
// is left as it was.
TEST(FlashGeometry, GeometryBeyondTheAddressSpaceIsRefusedNamingItsKeys) {
  struct Case {
    Geometry g;
    std::vector<std::string> action;
    const char* failure;
  };
  const Geometry pages32 = {"0xFFFFFFFF", 8, 8};
  const Geometry pageShift32 = {"0x10000", 32, 0};
  const Geometry byteSectors = {"0x1000000", 8, 0};   // 4 GiB in 2^32 one-byte sectors
  const Case cases[] = {
      {pages32, {"-open", "d.bin", "0", "-auto"}, "Failed to auto program target."},
      {{"-1", 8, 8}, {"-open", "d.bin", "0", "-auto"}, "Failed to auto program target."},
      {pages32, {"-erasesectors"}, "Failed to erase sectors."},
      {pages32, {"-readchip"}, "Failed to read back target memory."},
      {pages32, {"-erasechip"}, "Failed to erase chip."},
      {pages32, {"-open", "d.bin", "0", "-program"}, "Failed to program target."},
      {pages32, {"-open", "d.bin", "0", "-programverify"}, "Failed to program and verify target."},
      {pageShift32, {"-open", "d.bin", "0", "-auto"}, "Failed to auto program target."},
      {pageShift32, {"-readchip"}, "Failed to read back target memory."},
      {byteSectors, {"-erasesectors"}, "Failed to erase sectors."},
      {byteSectors, {"-open", "d.bin", "0", "-auto"}, "Failed to auto program target."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.g.numPages << "/" << c.g.pageShift << "/" << c.g.sectorShift << " "
                                    << c.action.back());
    Rig rig;
    rig.project = Project(c.g);
    const Bytes before = Pattern(0x2000, 1);
    rig.SetFlash(0, before);
    rig.dir.write("d.bin", Pattern(0x1000, 2));
    RunResult r = rig.Run(c.action);
    EXPECT_EQ(r.exitStatus, 1) << r.out << r.err;
    EXPECT_TRUE(Has(r, "ERROR: Flash geometry") && Has(r, "NumPages = ") && Has(r, c.failure)) << r.out;
    EXPECT_EQ(rig.Flash().substr(0, before.size()), before);
  }
}

// A 32 MiB part driven with three address bytes reaches only its low 16 MiB:
// a command for an address above goes out cut to 24 bits and lands at the
// bottom of the chip. Every operation that names addresses refuses those
// beyond the reach before any of its commands, with one message naming the
// first such address and the key (reading the whole chip: the geometry);
// the chip keeps every byte, above the limit and where a cut address would
// land. Data just below the limit works as on any chip.
TEST(FlashGeometry, AddressesBeyondTheAddressBytesAreRefusedBeforeAnyCommand) {
  constexpr uint32_t kLimit = 1u << 24, kBelow = kLimit - 0x1000, kSector255 = kLimit - 0x10000;
  const char* kBeyond = "Address 0x01000000 is beyond what NumAddrBytes = 3 can address (0x00000000 - 0x00FFFFFF).";
  struct Case {
    uint32_t at;          // where the 4 KiB of data go
    const char* action;
    const char* error;    // null: the run succeeds
    bool erases = false;  // sector 255, in a good run
    bool writes = false;  // the data, in a good run
  };
  const Case cases[] = {
      {kBelow, "-program", nullptr, false, true},
      {kLimit, "-program", kBeyond},
      {kLimit - 0x800, "-programverify", kBeyond},
      {kBelow, "-auto", nullptr, true, true},
      {kLimit, "-auto", kBeyond},
      {kBelow, "-verify", nullptr},
      {kLimit, "-verify", kBeyond},
      {kBelow, "-readrange0xFFF000,0xFFFFFF", nullptr},
      {kLimit, "-readrange0x1000000,0x1000FFF", kBeyond},
      {kBelow, "-erasesectors", nullptr, true},
      {kLimit, "-erasesectors", kBeyond},
      {kLimit, "-readchip", "Flash geometry exceeds what NumAddrBytes = 3 can address (NumPages = 0x20000, "
                            "PageSizeShift = 8)."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.action) + " @ " + std::to_string(c.at));
    Rig rig;
    rig.chip = "C84019";    // 32 MiB, three address bytes by the chip table
    rig.project = "[FLASH]\n  AutoDetect = 1\n  SelectedSectors[1] = " + std::to_string(c.at >> 16) + "\n";
    const Bytes data = Pattern(0x1000, c.at);
    Bytes before(2 * kLimit, '\xFF');
    before.replace(0, 0x2000, Pattern(0x2000, 1));   // where a cut address would land
    before.replace(kSector255, 0x1000, Pattern(0x1000, 2));
    if (c.action == std::string("-verify")) {      // the data is there, also where a cut address reads
      before.replace(c.at, data.size(), data);
      before.replace(c.at % kLimit, data.size(), data);
    }
    rig.dir.write("flash.bin", before);
    rig.dir.write("d.bin", data);
    RunResult r = rig.Run({"-open", "d.bin", std::to_string(c.at), c.action});
    EXPECT_EQ(r.exitStatus, c.error ? 1 : 0) << r.out;
    EXPECT_TRUE(!c.error || Has(r, "ERROR: " + std::string(c.error) + "\n")) << r.out;
    EXPECT_EQ(Count(r.out, "ERROR: "), c.error ? 2u : 0u) << r.out;   // the reason and the failed operation
    if (!c.error && c.erases) before.replace(kSector255, 0x10000, 0x10000, '\xFF');
    if (!c.error && c.writes) before.replace(c.at, data.size(), data);
    EXPECT_TRUE(rig.Flash() == before);
  }
}

// Data that no sector of the table covers (a sector larger than the chip,
// or the tail of a chip that is no whole number of sectors) is still
// programmed and verified by -auto; where the flash already holds other
// bytes there, the verify fails loudly instead of reporting success.
TEST(FlashGeometry, AutoProgramsAndVerifiesDataNoSectorCovers) {
  struct Case {
    Geometry g;
    uint32_t at;
  };
  const Case cases[] = {
      {{"0x10000", 8, 25}, 0},          // one 32 MiB sector on a 16 MiB chip: no sector at all
      {{"0x10000", 8, 32}, 0x1000},
      {{"0xFFFF", 8, 16}, 0xFF0000},    // 255 whole sectors, then 0xFF00 bytes outside them
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.g.sectorShift) + " @ " + std::to_string(c.at));
    const Bytes image = Pattern(0x800, c.at + 4);
    // On a blank chip the data is programmed and verified; where the flash
    // already holds other data nothing can erase it, so the run must fail.
    for (const bool filled : {false, true}) {
      Rig rig;
      rig.project = Project(c.g);
      if (filled) rig.SetFlash(c.at, Bytes(image.size(), '\0'));
      rig.dir.write("d.bin", image);
      RunResult r = rig.Run({"-open", "d.bin", std::to_string(c.at), "-auto"});
      if (filled) {
        EXPECT_EQ(r.exitStatus, 1) << r.out;
        EXPECT_TRUE(Has(r, "Verification failed @ address")) << r.out;
        EXPECT_FALSE(Has(r, "Target erased, programmed and verified successfully.")) << r.out;
        continue;
      }
      EXPECT_EQ(r.exitStatus, 0) << r.out;
      EXPECT_TRUE(Has(r, "Programming target (2048 bytes, 1 range) ...")) << r.out;
      EXPECT_TRUE(Has(r, "Verifying target (2048 bytes, 1 range) ...")) << r.out;
      EXPECT_EQ(rig.Flash().substr(c.at, image.size()), image);
    }
  }
}

}  // namespace
