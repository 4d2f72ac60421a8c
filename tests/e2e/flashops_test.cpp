// Flash operations end to end: the program against the simulated probe and
// chip, judged by its output, exit status, the chip contents file and the
// simulator's frame trace.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/e2e/sim_rig.h"

namespace {

constexpr uint32_t kSector = 0x10000;

using Bytes = std::string;

// Runs the program, expecting success and each of `lines` in its output.
RunResult RunOk(Rig& b, const std::vector<std::string>& args, const std::vector<const char*>& lines = {},
                const std::vector<std::string>& env = {}) {
  RunResult r = b.Run(args, env);
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  for (const char* line : lines) EXPECT_TRUE(Has(r, line)) << line << "\n" << r.out;
  return r;
}

// ---- Framing and batching ----

// Page frames carry their address bytes, each after a write enable and
// before a status poll, at most 32 pages a batch; blank pages stay off the
// wire unless the project says otherwise. A protected chip is unprotected
// first; with real timing it stays busy after the status-register write, and
// the first write enable must not be sent into that busy time.
TEST(FlashOps, PagesAreFramedBatchedAndBlankOnesSkipped) {
  struct Case { const char* project; bool skipBlank; std::vector<std::string> env; };
  const Case cases[] = {
      {"", true, {}},
      {"[PERFORMANCE]\n  DisableSkipBlankDataOnProgram = 0x00000001\n", false, {}},
      {"", true, {"TARLOSIM_FAULT=protected", "TARLOSIM_TIMING=model"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.project + (c.env.empty() ? "" : c.env[0]));
    Rig b;
    b.project += c.project;
    // 40 pages, all blank but those at 0x1200, 0x1300 and 0x1500.
    Bytes data(0x2800, '\xFF');
    const Bytes payload = Pattern(0x300, 1);
    data.replace(0x1200, 0x200, payload.substr(0, 0x200));
    data.replace(0x1500, 0x100, payload.substr(0x200));
    b.dir.write("d.bin", data);
    RunOk(b, {"-tarlolog", b.dir.file("probe.log"), "-open", b.dir.file("d.bin"), "0x0", "-program", "-verify"},
          {"Target programmed successfully.", "All loaded bytes verified OK!"}, c.env);
    EXPECT_EQ(b.FramesWith(0x01, 2).empty(), c.env.empty()) << "status register written";
    std::vector<uint32_t> expected = {0x1200, 0x1300, 0x1500}, pages;
    if (!c.skipBlank) {
      expected.clear();
      for (uint32_t a = 0; a < 0x2800; a += 0x100) expected.push_back(a);
    }
    const auto frames = ParseTraceFrames(b.dir.read("trace.txt"));
    for (size_t i = 1; i + 1 < frames.size(); i++) {
      if (frames[i][0] != 0x02 || frames[i].size() < 5) continue;
      EXPECT_EQ(frames[i].size(), 4u + 256u);
      EXPECT_EQ(frames[i - 1], Frame{0x06});
      EXPECT_EQ(frames[i + 1][0], 0x05);
      pages.push_back(AddrOf(frames[i], 3));
    }
    EXPECT_EQ(pages, expected);
    EXPECT_EQ(b.Flash().substr(0, data.size()), data);
    if (c.skipBlank) continue;
    // The probe's own call log names every batch with its job count.
    const std::string log = b.dir.read("probe.log");
    EXPECT_NE(log.find("TARLO_SPI_Batch(160 jobs)"), std::string::npos) << log;
    EXPECT_LT(log.find("TARLO_SPI_Batch(160 jobs)"), log.find("TARLO_SPI_Batch(40 jobs)")) << log;
    EXPECT_EQ(Count(log, "TARLO_SPI_Batch("), 2u) << log;
  }
}

// ---- The automatic sequence ----

TEST(FlashOps, AutoTouchesOnlyWhatChanges) {
  Rig b;
  const Bytes image = Pattern(4 * kSector, 3);
  b.dir.write("d.bin", image);
  b.SetFlash(0, Bytes(2 * kSector, '\0'));  // sectors 0-1 hold old data, 2-3 are blank

  const char* done = "Target erased, programmed and verified successfully.";
  RunOk(b, {"-verbose9", "-open", b.dir.file("d.bin"), "0x0", "-auto"},
        {"- 4 of 256 sectors affected, 1 range, 0x0 - 0x3FFFF\n", done});
  EXPECT_EQ(AddrsOf(b.FramesWith(0xD8, 4), 3), (std::vector<uint32_t>{0, kSector})) << "blank sectors need no erase";
  EXPECT_EQ(b.FramesWith(0x02, 5).size(), 4 * kSector / 256);
  EXPECT_EQ(b.Flash().substr(0, image.size()), image);

  // The same image again: nothing to erase or program, still verified.
  RunOk(b, {"-open", b.dir.file("d.bin"), "0x0", "-auto"}, {done});
  EXPECT_TRUE(b.FramesWith(0xD8).empty() && b.FramesWith(0x02).empty() && b.FramesWith(0xC7).empty());

  // One byte changed in sector 2: only that sector is erased and written.
  Bytes changed = image;
  changed[2 * kSector + 0x1234] ^= 0x55;
  b.dir.write("d.bin", changed);
  RunOk(b, {"-open", b.dir.file("d.bin"), "0x0", "-auto"});
  EXPECT_EQ(AddrsOf(b.FramesWith(0xD8, 4), 3), std::vector<uint32_t>{2 * kSector});
  const auto programs = b.FramesWith(0x02, 5);
  EXPECT_EQ(programs.size(), kSector / 256);
  for (const Frame& f : programs) EXPECT_EQ(AddrOf(f, 3) / kSector, 2u);
  EXPECT_EQ(b.Flash().substr(0, changed.size()), changed);

  // With the chip erase type one byte changed erases the whole chip, data
  // outside the image included, and every sector is written again.
  b.project += "[PRODUCTION]\n  EraseType = 3\n";
  changed[kSector + 7] ^= 0x0F;
  b.dir.write("d.bin", changed);
  b.SetFlash(8 * kSector, "outside");
  RunOk(b, {"-open", b.dir.file("d.bin"), "0x0", "-auto"}, {"Erasing chip ..."});
  EXPECT_TRUE(b.FramesWith(0xD8).empty());
  EXPECT_EQ(b.FramesWith(0xC7).size() + b.FramesWith(0x60).size(), 1u);
  EXPECT_EQ(b.FramesWith(0x02, 5).size(), 4 * kSector / 256);
  EXPECT_EQ(b.Flash().substr(0, changed.size()), changed);
  EXPECT_EQ(b.Flash().substr(8 * kSector, 7), Bytes(7, '\xFF'));
}

// ---- Program, verify, fit ----

// Without data, or with data past the end of the chip, nothing is sent;
// the precise reason replaces the generic failure line.
TEST(FlashOps, ActionsWithoutDataOrBeyondTheChipAreRefused) {
  Rig b;
  b.SetFlash(0, Pattern(0x100, 6));
  const Bytes before = b.Flash();
  // Intel HEX: 16 bytes at 0x00FFFFF8 run past the 16 MiB chip.
  b.dir.write("d.hex", ":0200000400FFFB\n:10FFF80000112233445566778899AABBCCDDEEFF01\n:00000001FF\n");
  const char* beyond = "Program (0xFFFFF8 - 0x1000007) does not fit into flash chip.";
  const struct { const char* action; bool data; const char* message; } cases[] = {
      {"-program", false, "Could not program target, no data file opened."},
      {"-verify", false, "Could not verify target, no data file opened."},
      {"-programverify", false, "Could not program and verify target, no data file opened."},
      {"-auto", false, "Could not auto program target, no data file opened."},
      {"-auto", true, beyond}, {"-program", true, beyond}, {"-programverify", true, beyond},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.action) + (c.data ? " beyond" : ""));
    RunResult r = c.data ? b.Run({"-open", b.dir.file("d.hex"), c.action}) : b.Run({c.action});
    EXPECT_EQ(r.exitStatus, 1) << r.out;
    EXPECT_TRUE(Has(r, c.message)) << r.out;
    EXPECT_EQ(Has(r, "Connecting ..."), c.data) << r.out;
    EXPECT_FALSE(Has(r, "Failed to auto program target.") || Has(r, "Failed to program target.")) << r.out;
    EXPECT_TRUE(b.FramesWith(0xD8).empty() && b.FramesWith(0x02).empty());
    EXPECT_EQ(b.Flash(), before);
  }
}

// A chip with 4-byte opcodes. The default project detects it at the
// connect, and the action then uses its size and own opcodes, with no mode
// switch. Given as 4 GiB, data ending at the last address is read, erased,
// programmed, verified and read back without running past it (the simulated
// part is smaller and takes the addresses modulo its size).
TEST(FlashOps, DetectedChipAndDataEndingAtTheLastAddressOf4GiB) {
  Rig b;
  b.chip = "C22019";
  b.project = "";
  Bytes image = Pattern(0x3000, 5);
  b.dir.write("d.bin", image);
  b.SetFlash(0x1000000, Bytes(16, '\0'), 32u << 20);
  RunOk(b, {"-verbose9", "-open", b.dir.file("d.bin"), "0x1000000", "-auto"},
        {"Found SPI Flash: Macronix MX25L25735F", "Auto programming target (12288 bytes, 1 range) ..."});
  EXPECT_EQ(AddrsOf(b.FramesWith(0xDC, 5), 4), std::vector<uint32_t>{0x1000000});
  EXPECT_EQ(b.FramesWith(0x12, 5 + 256).size(), 0x30u);
  EXPECT_FALSE(b.FramesWith(0x13, 5).empty());
  EXPECT_TRUE(b.FramesWith(0xB7).empty());
  EXPECT_EQ(b.Flash().substr(0x1000000, image.size()), image);

  b.project = "[FLASH]\n  AutoDetect = 0\n  abID[3] = 0xC2,0x20,0x19\n  NumPages = 0x01000000\n"
              "[SPI]\n  NumAddrBytes = 0x04\n  CmdWritePage = 0x12\n  CmdReadData = 0x13\n  CmdEraseSector = 0xDC\n";
  // The image as Intel HEX, read from the chip; then the chip is made to
  // need an erase there.
  const uint32_t simAt = (32u << 20) - 0x300;  // where 0xFFFFFD00 lands
  image = Pattern(0x300, 12);
  b.SetFlash(simAt, image);
  RunOk(b, {"-readrange0xFFFFFD00,0xFFFFFFFF", "-saveas", b.dir.file("d.hex")});
  b.SetFlash(simAt, Bytes(16, '\0') + Bytes(0x2F0, '\xFF'));
  RunOk(b,
        {"-verbose9", "-open", b.dir.file("d.hex"), "-auto", "-readrange0xFFFFFD00,0xFFFFFFFF", "-saveas",
         b.dir.file("r.hex")},
        {"- 1 of 65536 sectors affected, 1 range, 0xFFFF0000 - 0xFFFFFFFF\n",
         "Target erased, programmed and verified successfully.", "Target memory read successfully. (768 bytes, 1 range)"});
  EXPECT_EQ(AddrsOf(b.FramesWith(0xDC, 5), 4), std::vector<uint32_t>{0xFFFF0000});
  EXPECT_EQ(AddrsOf(b.FramesWith(0x12, 5 + 256), 4), (std::vector<uint32_t>{0xFFFFFD00, 0xFFFFFE00, 0xFFFFFF00}));
  EXPECT_EQ(b.Flash().substr(simAt), image);
  EXPECT_EQ(b.dir.read("r.hex"), b.dir.read("d.hex"));
}

// ---- Erase ----

TEST(FlashOps, EraseChipAndSelectedSectors) {
  struct Case {
    const char* action;
    const char* selection;
    std::vector<const char*> lines;
    std::vector<uint32_t> erased;
  };
  const Case cases[] = {
      {"-erasechip", "1,3-4", {"Erasing 256 sectors, 1 range, 0x0 - 0xFFFFFF"}, {0, 1, 2, 3, 4, 5}},
      {"-erasesectors", "1,3-4",
       {"3 of 256 sectors selected, 2 ranges, 0x10000 - 0x1FFFF, 0x30000 - 0x4FFFF",
        "Affected sector 1 (0x10000 - 0x1FFFF)", "Affected sectors 3 to 4 (0x30000 - 0x4FFFF)"},
       {1, 3, 4}},
      // A damaged selection selects nothing rather than every sector.
      {"-erasesectors", "1,x", {"0 of 256 sectors selected"}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.action) + " " + c.selection);
    Rig b;
    b.project += std::string("  SelectedSectors[2] = ") + c.selection + "\n";
    const Bytes content = Pattern(6 * kSector, 7);
    b.SetFlash(0, content);
    // Read back whole, the chip is what the erase left.
    std::vector<const char*> lines = c.lines;
    lines.insert(lines.end(), {"Erase operation completed successfully.", "256 sectors, 1 range, 0x0 - 0xFFFFFF"});
    RunOk(b, {c.action, "-readchip", "-saveas", b.dir.file("chip.bin")}, lines);
    Bytes expected = content;
    for (uint32_t s : c.erased) expected.replace(s * kSector, kSector, Bytes(kSector, '\xFF'));
    const Bytes chip = b.dir.read("chip.bin");
    EXPECT_EQ(chip, b.Flash());
    EXPECT_EQ(chip.substr(0, content.size()), expected);
  }
}

// A memory type that cannot erase: every erase is skipped, nothing sent.
TEST(FlashOps, MemoryWithoutEraseSkipsEveryErase) {
  for (const char* action : {"-erasechip", "-erasesectors", "-auto"}) {
    SCOPED_TRACE(action);
    Rig b;
    b.project += "  FlashType = 0x00000002\n  SelectedSectors[1] = 0-3\n";
    const Bytes old = Pattern(0x100, 8), image = Pattern(0x800, 9);
    b.SetFlash(5 * kSector, old);
    b.dir.write("d.bin", image);
    RunResult r = RunOk(b, {"-verbose9", "-open", b.dir.file("d.bin"), "0x0", action},
                        {"Selected memory does not support erase. Skipped."});
    EXPECT_FALSE(Has(r, "sectors selected")) << r.out;
    EXPECT_TRUE(b.FramesWith(0xD8).empty() && b.FramesWith(0xC7).empty() && b.FramesWith(0x60).empty());
    const Bytes flash = b.Flash();
    EXPECT_EQ(flash.substr(5 * kSector, old.size()), old);
    EXPECT_EQ(flash.substr(0, image.size()) == image, action == std::string("-auto"));
  }
}

// ---- Faults during operations ----

TEST(FlashOps, FaultsFailCleanlyAndTheNextActionReconnects) {
  struct Case { const char* fault; const char* action; const char* message; bool probeGone; };
  const Case cases[] = {
      {"no-batch", "-program", "Programming failed @ address 0x00000000 (API function not found)", false},
      {"batch-nomem", "-program", "Programming failed @ address 0x00000000 (not enough memory)", false},
      {"batch-unsupported", "-program", "Programming failed @ address 0x00000000 (feature not supported)", false},
      {"program-timeout", "-program", "Programming failed @ address 0x00000000 (timeout occurred)", false},
      {"erase-timeout", "-auto", "Erasing failed @ address 0x00000000 (timeout occurred)", false},
      {"stuck@0x10003", "-auto", "Verification failed @ address 0x00010003", false},
      {"drop@40", "-auto", "ERROR: ", true},
  };
  Bytes image = Pattern(2 * kSector, 10);
  image[0x10003] = 0;  // every bit of the stuck byte must be programmed
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fault);
    Rig b;
    b.SetFlash(0, Bytes(16, '\0'));  // sector 0 needs an erase
    b.dir.write("d.bin", image);
    std::vector<std::string> args = {"-open", b.dir.file("d.bin"), "0x0", c.action};
    if (!c.probeGone) args.push_back("-readrange0x0,0xFF");
    RunResult r = b.Run(args, {std::string("TARLOSIM_FAULT=") + c.fault});
    EXPECT_TRUE(Has(r, c.message)) << r.out;
    EXPECT_TRUE(Has(r, "Disconnect")) << r.out;
    if (c.probeGone) {
      EXPECT_EQ(r.exitStatus, 1) << r.out;
      RunOk(b, {"-open", b.dir.file("d.bin"), "0x0", "-auto"});
      EXPECT_EQ(b.Flash().substr(0, image.size()), image);
    } else {
      // The read after the failure connects again and succeeds.
      EXPECT_EQ(r.exitStatus, 0) << r.out;
      EXPECT_EQ(Count(r.out, "Connecting ..."), 2u) << r.out;
      EXPECT_TRUE(Has(r, "Target memory read successfully. (256 bytes, 1 range)")) << r.out;
    }
  }
}

}  // namespace
