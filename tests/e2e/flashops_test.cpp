// Flash operations end to end: the program against the simulated probe and
// chip, judged by its output, exit status, the chip contents file and the
// simulator's frame trace.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

constexpr uint32_t kChipSize = 16u << 20;
constexpr uint32_t kSector = 0x10000;

using Bytes = std::string;

// One chip set-up per test: flash contents, trace and home in a fresh
// directory, and a project that describes the chip explicitly so that the
// opcodes seen on the wire are known.
struct Bench {
  TempDir dir;
  std::string chip = "C22018";
  std::vector<std::string> extraEnv;

  struct Chip {
    uint8_t addrBytes = 3;
    uint8_t cmdWritePage = 0x02, cmdReadData = 0x03, cmdEraseSector = 0xD8;
    const char* abID = "0xC2,0x20,0x18";
    uint32_t numPages = kChipSize >> 8;
    int eraseType = 1;
    int disableSkipBlank = 0;
    std::string extra;   // more lines for [FLASH]
  };

  void WriteProject(const Chip& c) {
    char text[2048];
    std::snprintf(text, sizeof text,
                  "[FLASH]\r\n  AutoDetect = 0\r\n  abID[3] = %s\r\n  NumPages = 0x%.8X\r\n"
                  "  PageSizeShift = 8\r\n  SectorSizeShift = 16\r\n%s"
                  "[SPI]\r\n  NumAddrBytes = 0x%.2X\r\n  CmdWritePage = 0x%.2X\r\n  CmdReadData = 0x%.2X\r\n"
                  "  CmdEraseSector = 0x%.2X\r\n  Dedicated4BAddrMode = 0x00\r\n"
                  "[PRODUCTION]\r\n  EraseType = %d\r\n"
                  "[PERFORMANCE]\r\n  DisableSkipBlankDataOnProgram = 0x%.8X\r\n",
                  c.abID, c.numPages, c.extra.c_str(), c.addrBytes, c.cmdWritePage, c.cmdReadData,
                  c.cmdEraseSector, c.eraseType, c.disableSkipBlank);
    dir.write("chip.pellam", text);
  }

  Bench() { WriteProject(Chip{}); }

  // Runs the program with the project first; the trace starts empty.
  RunResult Run(std::vector<std::string> args, std::vector<std::string> env = {}, bool withProject = true) {
    std::remove(dir.file("trace.txt").c_str());
    if (withProject) args.insert(args.begin(), {"-openprj", dir.file("chip.pellam")});
    std::vector<std::string> e = {"TARLOSIM_CHIP=" + chip, "TARLOSIM_FLASH=" + dir.file("flash.bin"),
                                  "TARLOSIM_TRACE=" + dir.file("trace.txt"), "HOME=" + dir.path(),
                                  "TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SIZE", "TARLOSIM_SN",
                                  "TARLOSIM_VTARGET", "TARLOSIM_STATS"};
    e.insert(e.end(), extraEnv.begin(), extraEnv.end());
    e.insert(e.end(), env.begin(), env.end());
    RunResult r = RunProgram(args, dir.path(), e, 90);
    r.out = StripCR(r.out);
    return r;
  }

  // The chip-select frames of the last run (event lines left out).
  std::vector<Frame> Frames() const { return ParseTraceFrames(dir.read("trace.txt")); }

  std::vector<Frame> FramesWith(uint8_t opcode, size_t minLength = 1) const {
    std::vector<Frame> r;
    for (const Frame& f : Frames())
      if (!f.empty() && f[0] == opcode && f.size() >= minLength) r.push_back(f);
    return r;
  }

  Bytes Flash() const { return dir.read("flash.bin"); }

  // A chip whose contents are given (the rest erased).
  void SetFlash(uint32_t at, const Bytes& data) {
    Bytes flash = dir.exists("flash.bin") ? Flash() : Bytes(kChipSize, '\xFF');
    flash.replace(at, data.size(), data);
    dir.write("flash.bin", flash);
  }
};


uint32_t AddrOf(const Frame& f, int addrBytes) {
  uint32_t a = 0;
  for (int i = 1; i <= addrBytes; i++) a = a << 8 | f[i];
  return a;
}



// ---- Framing and batching ----

TEST(FlashOps, PageHeadersCarryThreeOrFourAddressBytesAndBlankPagesStayOff) {
  struct Case { const char* chip; uint8_t addrBytes, writePage, readData, erase; const char* id; uint32_t pages; };
  const Case cases[] = {
      {"C22018", 3, 0x02, 0x03, 0xD8, "0xC2,0x20,0x18", kChipSize >> 8},
      {"C22019", 4, 0x12, 0x13, 0xDC, "0xC2,0x20,0x19", (32u << 20) >> 8},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.chip);
    Bench b;
    b.chip = c.chip;
    Bench::Chip chip;
    chip.addrBytes = c.addrBytes;
    chip.cmdWritePage = c.writePage;
    chip.cmdReadData = c.readData;
    chip.cmdEraseSector = c.erase;
    chip.abID = c.id;
    chip.numPages = c.pages;
    b.WriteProject(chip);
    // Three pages at 0x1200, 0x1300 and 0x1500; everything else blank.
    Bytes data(0x1600, '\xFF');
    const Bytes payload = Pattern(0x400, 1);
    data.replace(0x1200, 0x200, payload.substr(0, 0x200));
    data.replace(0x1500, 0x100, payload.substr(0x200, 0x100));
    b.dir.write("d.bin", data);
    RunResult r = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-program", "-verify"});
    EXPECT_EQ(r.exitStatus, 0) << r.out;
    EXPECT_TRUE(Has(r, "Target programmed successfully.")) << r.out;
    EXPECT_TRUE(Has(r, "All loaded bytes verified OK!")) << r.out;
    const auto programs = b.FramesWith(c.writePage, 1u + c.addrBytes + 1);
    ASSERT_EQ(programs.size(), 3u);
    const uint32_t expected[] = {0x1200, 0x1300, 0x1500};
    for (size_t i = 0; i < 3; i++) {
      EXPECT_EQ(programs[i].size(), 1u + c.addrBytes + 256u);
      EXPECT_EQ(AddrOf(programs[i], c.addrBytes), expected[i]);
    }
    EXPECT_EQ(b.Flash().substr(0, 0x1600), data);
  }
}

TEST(FlashOps, BlankPagesAreProgrammedWhenTheProjectSaysSo) {
  Bench b;
  Bench::Chip chip;
  chip.disableSkipBlank = 1;
  b.WriteProject(chip);
  b.dir.write("d.bin", Bytes(0x800, '\xFF'));
  RunResult r = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-program"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(b.FramesWith(0x02, 5).size(), 8u);
}

TEST(FlashOps, EveryPageOfABatchIsEnabledProgrammedAndPolled) {
  // 40 pages: a batch of 32, then one of 8. Each page is write enable,
  // the page frame, and a status poll in the same order.
  Bench b;
  const Bytes data = Pattern(40 * 256, 2);
  b.dir.write("d.bin", data);
  RunResult r = b.Run({"-tarlolog", b.dir.file("probe.log"), "-open", b.dir.file("d.bin"), "0x0", "-program"});
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  // The probe's own call log names every batch with its job count.
  const std::string log = b.dir.read("probe.log");
  const size_t full = log.find("TARLO_SPI_Batch(160 jobs)");
  ASSERT_NE(full, std::string::npos) << log;
  EXPECT_NE(log.find("TARLO_SPI_Batch(40 jobs)", full), std::string::npos) << log;
  EXPECT_EQ(Count(log, "TARLO_SPI_Batch("), 2u) << log;
  const auto frames = b.Frames();
  size_t pages = 0;
  for (size_t i = 0; i < frames.size(); i++) {
    if (frames[i].size() != 4 + 256 || frames[i][0] != 0x02) continue;
    ASSERT_GT(i, 0u);
    EXPECT_EQ(frames[i - 1], Frame{0x06});
    ASSERT_LT(i + 1, frames.size());
    EXPECT_EQ(frames[i + 1][0], 0x05);
    EXPECT_EQ(AddrOf(frames[i], 3), pages * 256);
    pages++;
  }
  EXPECT_EQ(pages, 40u);
  EXPECT_EQ(b.Flash().substr(0, data.size()), data);
}

// ---- The automatic sequence ----

TEST(FlashOps, AutoTouchesOnlyWhatChanges) {
  Bench b;
  const Bytes image = Pattern(4 * kSector, 3);
  b.dir.write("d.bin", image);
  b.SetFlash(0, Bytes(2 * kSector, '\0'));   // sectors 0-1 hold old data, 2-3 are blank

  RunResult first = b.Run({"-verbose9", "-open", b.dir.file("d.bin"), "0x0", "-auto"});
  ASSERT_EQ(first.exitStatus, 0) << first.out;
  EXPECT_TRUE(Has(first, "- 4 of 256 sectors affected, 1 range, 0x0 - 0x3FFFF\n")) << first.out;
  EXPECT_TRUE(Has(first, "Target erased, programmed and verified successfully.")) << first.out;
  std::vector<uint32_t> erased;
  for (const Frame& f : b.FramesWith(0xD8, 4)) erased.push_back(AddrOf(f, 3));
  EXPECT_EQ(erased, (std::vector<uint32_t>{0, kSector})) << "blank sectors need no erase";
  EXPECT_EQ(b.FramesWith(0x02, 5).size(), 4 * kSector / 256);
  EXPECT_EQ(b.Flash().substr(0, image.size()), image);

  // The same image again: nothing to erase or program, still verified.
  RunResult again = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-auto"});
  ASSERT_EQ(again.exitStatus, 0) << again.out;
  EXPECT_TRUE(Has(again, "Target erased, programmed and verified successfully.")) << again.out;
  EXPECT_TRUE(b.FramesWith(0xD8).empty());
  EXPECT_TRUE(b.FramesWith(0x02).empty());
  EXPECT_TRUE(b.FramesWith(0xC7).empty());

  // One byte changed in sector 2: only that sector is erased and written.
  Bytes changed = image;
  changed[2 * kSector + 0x1234] ^= 0x55;
  b.dir.write("d.bin", changed);
  RunResult one = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-auto"});
  ASSERT_EQ(one.exitStatus, 0) << one.out;
  const auto erases = b.FramesWith(0xD8, 4);
  ASSERT_EQ(erases.size(), 1u);
  EXPECT_EQ(AddrOf(erases[0], 3), 2 * kSector);
  const auto programs = b.FramesWith(0x02, 5);
  EXPECT_EQ(programs.size(), kSector / 256);
  for (const Frame& f : programs) EXPECT_EQ(AddrOf(f, 3) / kSector, 2u);
  EXPECT_EQ(b.Flash().substr(0, changed.size()), changed);
}

TEST(FlashOps, AutoWithChipEraseTypeErasesTheChipAndRewritesEverything) {
  Bench b;
  Bench::Chip chip;
  chip.eraseType = 3;
  b.WriteProject(chip);
  const Bytes image = Pattern(3 * kSector, 4);
  b.SetFlash(0, image);
  Bytes changed = image;
  changed[kSector + 7] ^= 0x0F;
  b.dir.write("d.bin", changed);
  b.SetFlash(8 * kSector, "outside");   // erased along with the chip
  RunResult r = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-auto"});
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Erasing chip ...")) << r.out;
  EXPECT_TRUE(b.FramesWith(0xD8).empty());
  size_t chipErases = b.FramesWith(0xC7).size() + b.FramesWith(0x60).size();
  EXPECT_EQ(chipErases, 1u);
  const Bytes flash = b.Flash();
  EXPECT_EQ(flash.substr(0, changed.size()), changed);
  EXPECT_EQ(flash.substr(8 * kSector, 7), Bytes(7, '\xFF'));
}

TEST(FlashOps, AutoOnTheDefaultProjectDetectsTheChipAndWorks) {
  Bench b;
  const Bytes image = Pattern(0x3000, 5);
  b.dir.write("d.bin", image);
  RunResult r = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-auto"}, {}, false);
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Auto programming target (12288 bytes, 1 range) ...")) << r.out;
  EXPECT_EQ(b.Flash().substr(0, image.size()), image);
}

// ---- Program, verify, fit ----

TEST(FlashOps, ProgramWithoutEraseThenVerifyNamesTheFirstDifference) {
  Bench b;
  Bytes old(0x3000, '\xFF');
  old[0x2345] = 0x10;
  b.SetFlash(0, old);
  Bytes data(0x3000, '\xFF');
  data[0x2345] = 0x12;   // needs a bit set that only an erase can set
  data[0x2800] = 0x00;
  b.dir.write("d.bin", data);
  RunResult r = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-program", "-verify"});
  EXPECT_EQ(r.exitStatus, 1) << r.out;
  EXPECT_TRUE(Has(r, "Target programmed successfully.")) << r.out;
  EXPECT_TRUE(Has(r, "Verification failed @ address 0x00002345 (Read: 0x10, Expected: 0x12)")) << r.out;
  EXPECT_TRUE(Has(r, "Failed to verify target.")) << r.out;
}

TEST(FlashOps, ImageBeyondTheChipIsRefusedBeforeAnythingIsErased) {
  Bench b;
  b.SetFlash(0, Pattern(0x100, 6));
  const Bytes before = b.Flash();
  // Intel HEX: 16 bytes at 0x00FFFFF8 run past the 16 MiB chip.
  b.dir.write("d.hex",
              ":0200000400FFFB\r\n"
              ":10FFF80000112233445566778899AABBCCDDEEFF01\r\n"
              ":00000001FF\r\n");
  for (const char* action : {"-auto", "-program", "-programverify"}) {
    SCOPED_TRACE(action);
    RunResult r = b.Run({"-open", b.dir.file("d.hex"), action});
    EXPECT_EQ(r.exitStatus, 1) << r.out;
    EXPECT_TRUE(Has(r, "Program (0xFFFFF8 - 0x1000007) does not fit into flash chip.")) << r.out;
    EXPECT_FALSE(Has(r, "Failed to auto program target.")) << r.out;
    EXPECT_FALSE(Has(r, "Failed to program target.")) << r.out;
    EXPECT_TRUE(b.FramesWith(0xD8).empty());
    EXPECT_TRUE(b.FramesWith(0xC7).empty());
    EXPECT_TRUE(b.FramesWith(0x02).empty());
    EXPECT_EQ(b.Flash(), before);
  }
}

TEST(FlashOps, ActionsWithoutDataSayWhatIsMissing) {
  Bench b;
  struct Case { const char* action; const char* text; };
  const Case cases[] = {
      {"-program", "Could not program target, no data file opened."},
      {"-verify", "Could not verify target, no data file opened."},
      {"-programverify", "Could not program and verify target, no data file opened."},
      {"-auto", "Could not auto program target, no data file opened."},
  };
  for (const Case& c : cases) {
    RunResult r = b.Run({c.action});
    EXPECT_EQ(r.exitStatus, 1) << r.out;
    EXPECT_TRUE(Has(r, c.text)) << r.out;
    EXPECT_FALSE(Has(r, "Connecting ...")) << r.out;
  }
}

// ---- Erase ----

TEST(FlashOps, EraseChipAndSelectedSectors) {
  Bench b;
  b.SetFlash(0, Pattern(6 * kSector, 7));
  RunResult r = b.Run({"-erasechip"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Erasing 256 sectors, 1 range, 0x0 - 0xFFFFFF")) << r.out;
  EXPECT_TRUE(Has(r, "Erase operation completed successfully.")) << r.out;
  EXPECT_EQ(b.Flash(), Bytes(kChipSize, '\xFF'));

  Bench s;
  Bench::Chip chip;
  chip.extra = "  SelectedSectors[2] = 1,3-4\r\n";
  s.WriteProject(chip);
  const Bytes content = Pattern(6 * kSector, 8);
  s.SetFlash(0, content);
  r = s.Run({"-erasesectors"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "3 of 256 sectors selected, 2 ranges, 0x10000 - 0x1FFFF, 0x30000 - 0x4FFFF")) << r.out;
  EXPECT_TRUE(Has(r, "Affected sectors 3 to 4 (0x30000 - 0x4FFFF)")) << r.out;
  Bytes expected = content;
  for (uint32_t sec : {1u, 3u, 4u}) expected.replace(sec * kSector, kSector, Bytes(kSector, '\xFF'));
  EXPECT_EQ(s.Flash().substr(0, content.size()), expected);

  // A damaged selection selects nothing rather than every sector.
  Bench d;
  chip.extra = "  SelectedSectors[2] = 1,x\r\n";
  d.WriteProject(chip);
  d.SetFlash(0, content);
  r = d.Run({"-erasesectors"});
  EXPECT_TRUE(Has(r, "0 of 256 sectors selected")) << r.out;
  EXPECT_EQ(d.Flash().substr(0, content.size()), content);
}

// ---- Reading back ----

TEST(FlashOps, ReadBackRoundTripsThroughEveryFileFormat) {
  Bench b;
  const Bytes content = Pattern(0x3000, 9);
  b.SetFlash(0x10000, content);
  for (const char* ext : {"hex", "mot", "bin"}) {
    SCOPED_TRACE(ext);
    const std::string out = b.dir.file(std::string("r.") + ext);
    RunResult r = b.Run({"-readrange0x10001,0x12FFE", "-saveas", out});
    ASSERT_EQ(r.exitStatus, 0) << r.out;
    EXPECT_TRUE(Has(r, "Reading target memory (0x00010001 - 0x00012FFE) ...")) << r.out;
    EXPECT_TRUE(Has(r, "Target memory read successfully. (12288 bytes, 1 range)")) << r.out;
    if (std::string(ext) == "bin") {
      EXPECT_EQ(b.dir.read("r.bin"), content);
    }
    // Loaded again, the file verifies against the chip.
    // A binary file takes its base address glued to the option.
    RunResult v = std::string(ext) == "bin" ? b.Run({"-open" + out + ",0x10000", "-verify"})
                                            : b.Run({"-open", out, "-verify"});
    EXPECT_EQ(v.exitStatus, 0) << v.out;
    EXPECT_TRUE(Has(v, "Verifying target (12288 bytes, 1 range) ...")) << v.out;
    EXPECT_TRUE(Has(v, "All loaded bytes verified OK!")) << v.out;
  }
  RunResult chip = b.Run({"-readchip", "-saveas", b.dir.file("chip.bin")});
  ASSERT_EQ(chip.exitStatus, 0) << chip.out;
  EXPECT_TRUE(Has(chip, "256 sectors, 1 range, 0x0 - 0xFFFFFF")) << chip.out;
  EXPECT_EQ(b.dir.read("chip.bin"), b.Flash());
}

// ---- Faults during operations ----

struct FaultCase {
  const char* fault;
  std::vector<std::string> action;
  const char* message;
  bool probeGone;   // the next action needs a new run (the probe is unplugged)
};

TEST(FlashOps, FaultsFailCleanlyAndTheNextActionReconnects) {
  Bytes image = Pattern(2 * kSector, 10);
  image[0x10003] = 0;   // every bit of the stuck byte must be programmed
  const FaultCase cases[] = {
      {"no-batch", {"-program"}, "Programming failed @ address 0x00000000 (API function not found)", false},
      {"batch-nomem", {"-program"}, "Programming failed @ address 0x00000000 (not enough memory)", false},
      {"batch-unsupported", {"-program"}, "Programming failed @ address 0x00000000 (feature not supported)", false},
      {"program-timeout", {"-program"}, "Programming failed @ address 0x00000000 (timeout occurred)", false},
      {"erase-timeout", {"-auto"}, "Erasing failed @ address 0x00000000 (timeout occurred)", false},
      {"stuck@0x10003", {"-auto"}, "Verification failed @ address 0x00010003", false},
      {"drop@40", {"-auto"}, "ERROR: ", true},
  };
  for (const FaultCase& c : cases) {
    SCOPED_TRACE(c.fault);
    Bench b;
    b.SetFlash(0, Bytes(16, '\0'));   // sector 0 needs an erase
    b.dir.write("d.bin", image);
    std::vector<std::string> args = {"-open", b.dir.file("d.bin"), "0x0"};
    args.insert(args.end(), c.action.begin(), c.action.end());
    if (!c.probeGone) args.push_back("-readrange0x0,0xFF");
    RunResult r = b.Run(args, {std::string("TARLOSIM_FAULT=") + c.fault});
    EXPECT_TRUE(Has(r, c.message)) << r.out;
    EXPECT_TRUE(Has(r, "Disconnect")) << r.out;
    if (c.probeGone) {
      EXPECT_EQ(r.exitStatus, 1) << r.out;
      RunResult next = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-auto"});
      EXPECT_EQ(next.exitStatus, 0) << next.out;
      EXPECT_EQ(b.Flash().substr(0, image.size()), image);
    } else {
      // The read after the failure connects again and succeeds.
      EXPECT_EQ(r.exitStatus, 0) << r.out;
      EXPECT_EQ(Count(r.out, "Connecting ..."), 2u) << r.out;
      EXPECT_TRUE(Has(r, "Target memory read successfully. (256 bytes, 1 range)")) << r.out;
    }
  }
}

// With real timing the chip stays busy after the status-register write; the
// write enable of the following erase must not be sent into that busy time.
TEST(FlashOps, ProtectedChipIsUnprotectedBeforeWriting) {
  for (const char* timing : {"TARLOSIM_TIMING=instant", "TARLOSIM_TIMING=model"}) {
    SCOPED_TRACE(timing);
    Bench b;
    const Bytes image = Pattern(kSector, 11);
    b.dir.write("d.bin", image);
    b.SetFlash(0, Bytes(16, '\0'));
    RunResult r = b.Run({"-open", b.dir.file("d.bin"), "0x0", "-auto"}, {"TARLOSIM_FAULT=protected", timing});
    EXPECT_EQ(r.exitStatus, 0) << r.out;
    EXPECT_FALSE(b.FramesWith(0x01, 2).empty()) << "status register written";
    EXPECT_EQ(b.Flash().substr(0, image.size()), image);
  }
}

}  // namespace
