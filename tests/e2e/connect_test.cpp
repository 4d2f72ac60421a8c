// Connecting to the probe end to end: chip detection and ID verification,
// 4-byte address mode, the init sequence, and every way a connection can
// fail, against the simulated probe and chip.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

constexpr const char* kSerial = "123456";

struct Rig {
  TempDir dir;
  std::string chip = "C22018";

  // [FLASH]/[SPI] lines, init steps and production lines of the project.
  void WriteProject(const std::string& flash, const std::string& spi = "",
                    const std::string& cpu = "", const std::string& production = "") {
    dir.write("board.pellam", "[FLASH]\r\n" + flash + "[SPI]\r\n" + spi + "[CPU]\r\n" + cpu +
                                  "[PRODUCTION]\r\n" + production);
  }

  Rig() { WriteProject("  AutoDetect = 1\r\n"); }

  RunResult Run(std::vector<std::string> args, std::vector<std::string> env = {}) {
    std::remove(dir.file("trace.txt").c_str());
    args.insert(args.begin(), {"-openprj", dir.file("board.pellam")});
    std::vector<std::string> e = {"TARLOSIM_CHIP=" + chip,
                                  "TARLOSIM_FLASH=" + dir.file("flash.bin"),
                                  "TARLOSIM_TRACE=" + dir.file("trace.txt"),
                                  "HOME=" + dir.path(),
                                  std::string("TARLOSIM_SN=") + kSerial,
                                  "TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SIZE",
                                  "TARLOSIM_VTARGET"};
    e.insert(e.end(), env.begin(), env.end());
    RunResult r = RunProgram(args, dir.path(), e, 60);
    r.out = StripCR(r.out);
    return r;
  }

  // Chip-select frames of the last run, event lines left out.
  std::vector<Frame> Frames() const { return ParseTraceFrames(dir.read("trace.txt")); }

  // Frames of exactly one byte, in order (command-only frames).
  std::vector<uint8_t> SingleByteFrames() const {
    std::vector<uint8_t> r;
    for (const Frame& f : Frames()) {
      if (f.size() == 1) r.push_back(f[0]);
    }
    return r;
  }
};

// ---- Identity ----

TEST(Connect, DetectsAChipOfEveryCommandSetAndAddressType) {
  struct Case {
    const char* chip;
    const char* idLine;
    const char* found;  // null: not in the table
  };
  const Case cases[] = {
      {"C22018", "Read SPI Flash Id = 0xC2 20 18", "Found SPI Flash: Macronix MX25L12873F"},
      {"C22019", "Read SPI Flash Id = 0xC2 20 19", "Found SPI Flash: Macronix MX25L25735F"},
      {"EF4018", "Read SPI Flash Id = 0xEF 40 18", "Found SPI Flash: Spansion S25FL128K"},
      {"20BA18", "Read SPI Flash Id = 0x20 BA 18", "Found SPI Flash: Micron N25Q128A"},
      {"1F2600", "Read SPI Flash Id = 0x1F 26 00", "Found SPI Flash: Adesto AT25PE16"},
      {"BF2643", "Read SPI Flash Id = 0xBF 26 43", "Found SPI Flash: Microchip SST26VF064B"},
      {"042503", "Read SPI Flash Id = 0x04 25 03", "Found SPI Flash: Fujitsu MB85RS256TY"},
      // The continuation code is dropped, so the 7F 9D 46 row never matches.
      {"7F9D46", "Read SPI Flash Id = 0x9D 46 ", nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.chip);
    Rig rig;
    rig.chip = c.chip;
    RunResult r = rig.Run({"-connect"});
    EXPECT_TRUE(Has(r, c.idLine)) << r.out;
    if (c.found != nullptr) {
      EXPECT_EQ(r.exitStatus, 0) << r.out;
      EXPECT_TRUE(Has(r, c.found)) << r.out;
      EXPECT_TRUE(Has(r, "Connected successfully")) << r.out;
    } else {
      EXPECT_EQ(r.exitStatus, 1) << r.out;
      EXPECT_TRUE(Has(r, "ERROR: Failed to auto-detect SPI Flash.")) << r.out;
      EXPECT_FALSE(Has(r, "Found SPI Flash")) << r.out;
      EXPECT_FALSE(Has(r, "Connected successfully")) << r.out;
    }
    // The ID is always read with 0x9F, and reset is held while connected.
    const std::vector<Frame> frames = rig.Frames();
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames[0][0], 0x9F);
  }
}

TEST(Connect, DetectionPicksTheChipsOwnFourByteCommands) {
  // Detected as a chip with its own 4-byte opcodes: reading uses 0x13 and
  // four address bytes, and no mode switch is sent.
  Rig rig;
  rig.chip = "C22019";
  RunResult r = rig.Run({"-readrange0x1000000,0x100000F"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  bool sawRead = false;
  for (const Frame& f : rig.Frames()) {
    if (!f.empty() && f[0] == 0x13) {
      sawRead = true;
      ASSERT_GE(f.size(), 5u);
      EXPECT_EQ(f[1], 0x01);  // the address needs its fourth byte
    }
    EXPECT_FALSE(f.size() == 1 && (f[0] == 0xB7 || f[0] == 0xE9));
  }
  EXPECT_TRUE(sawRead);
}

TEST(Connect, VerifiesTheStoredIdWhenNotDetecting) {
  Rig rig;
  rig.WriteProject("  AutoDetect = 0\r\n  abID[3] = 0xC2,0x20,0x18\r\n"
                   "  NumPages = 0x00010000\r\n  PageSizeShift = 8\r\n  SectorSizeShift = 16\r\n");
  RunResult ok = rig.Run({"-connect"});
  EXPECT_EQ(ok.exitStatus, 0) << ok.out;
  EXPECT_TRUE(Has(ok, "Read SPI Flash Id = 0xC2 20 18 (Verified)")) << ok.out;
  EXPECT_FALSE(Has(ok, "Found SPI Flash")) << ok.out;

  rig.chip = "EF4018";
  RunResult bad = rig.Run({"-connect"});
  EXPECT_EQ(bad.exitStatus, 1) << bad.out;
  EXPECT_TRUE(Has(bad, "Read SPI Flash Id = 0xEF 40 18 (Failed)")) << bad.out;
  EXPECT_TRUE(Has(bad, "ERROR: Failed to verify Flash Id")) << bad.out;
  EXPECT_FALSE(Has(bad, "Connected successfully")) << bad.out;
  // The chip stays unnamed; its stored ID is not replaced either.
  EXPECT_FALSE(Has(bad, "Found SPI Flash")) << bad.out;
}

TEST(Connect, ContinuationCodesAreSkippedWhenVerifying) {
  Rig rig;
  rig.chip = "7F9D46";
  RunResult probe = rig.Run({"-connect"});
  // Learn the chip's third ID byte from the detection line.
  const std::string key = "Read SPI Flash Id = 0x9D 46 ";
  const size_t at = probe.out.find(key);
  ASSERT_NE(at, std::string::npos) << probe.out;
  const std::string third = probe.out.substr(at + key.size(), 2);
  rig.WriteProject("  AutoDetect = 0\r\n  abID[3] = 0x9D,0x46,0x" + third + "\r\n"
                   "  NumPages = 0x00004000\r\n  PageSizeShift = 8\r\n  SectorSizeShift = 16\r\n");
  RunResult r = rig.Run({"-connect"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, key + third + " (Verified)")) << r.out;
}

// ---- 4-byte address mode ----

TEST(Connect, DedicatedFourByteModeIsEnteredOnConnectAndLeftOnClose) {
  const std::string flash =
      "  AutoDetect = 0\r\n  abID[3] = 0xC2,0x20,0x19\r\n"
      "  NumPages = 0x00020000\r\n  PageSizeShift = 8\r\n  SectorSizeShift = 16\r\n";
  Rig rig;
  rig.chip = "C22019";
  rig.WriteProject(flash, "  NumAddrBytes = 0x04\r\n  Dedicated4BAddrMode = 0x01\r\n");
  RunResult r = rig.Run({"-connect", "-disconnect"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Disconnected")) << r.out;
  EXPECT_EQ(rig.SingleByteFrames(), (std::vector<uint8_t>{0x06, 0xB7, 0x06, 0xE9}));

  // Four address bytes without the dedicated mode: no switching at all.
  rig.WriteProject(flash, "  NumAddrBytes = 0x04\r\n  Dedicated4BAddrMode = 0x00\r\n");
  r = rig.Run({"-connect", "-disconnect"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(rig.SingleByteFrames().empty());
}

// ---- Connection state ----

TEST(Connect, SecondConnectDoesNothing) {
  Rig rig;
  RunResult r = rig.Run({"-connect", "-connect"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(Count(r.out, "Connecting ..."), 1u) << r.out;
  EXPECT_EQ(Count(r.out, "Connected successfully"), 1u) << r.out;
  EXPECT_EQ(Count(r.out, "Read SPI Flash Id"), 1u) << r.out;
}

TEST(Connect, TargetVoltageIsReported) {
  Rig rig;
  RunResult r = rig.Run({"-connect"}, {"TARLOSIM_VTARGET=1800"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "VTarget = 1.800V")) << r.out;
}

// ---- Faults ----

TEST(Connect, FaultsFailWithTheirMessage) {
  struct Case {
    const char* name;
    std::vector<std::string> env;
    std::vector<std::string> args;
    const char* message;
  };
  const Case cases[] = {
      {"no probe", {"TARLOSIM_SN="}, {"-connect"}, "ERROR: "},
      {"unknown serial", {}, {"-select", "USB=999", "-connect"},
       "ERROR: Tarlo with SN 999 not found.\nCheck the project settings and your connected Tarlo."},
      {"no SPI", {"TARLOSIM_FAULT=no-spi"}, {"-connect"},
       "ERROR: The connected probe (S/N 123456) does not support the SPI interface"},
      {"no power", {"TARLOSIM_VTARGET=0"}, {"-connect"}, "ERROR: Target system has no power"},
      {"low power", {"TARLOSIM_VTARGET=999"}, {"-connect"}, "ERROR: Target system has no power"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Rig rig;
    RunResult r = rig.Run(c.args, c.env);
    EXPECT_EQ(r.exitStatus, 1) << r.out;
    EXPECT_TRUE(Has(r, c.message)) << r.out;
    EXPECT_FALSE(Has(r, "Connected successfully")) << r.out;
    EXPECT_FALSE(Has(r, "Read SPI Flash Id")) << r.out;
  }
}

TEST(Connect, AfterAFailedConnectTheNextOneWorks) {
  Rig rig;
  RunResult r = rig.Run({"-select", "USB=999", "-connect", "-select", std::string("USB=") + kSerial,
                         "-connect"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Tarlo with SN 999 not found.")) << r.out;
  EXPECT_EQ(Count(r.out, "Connected successfully"), 1u) << r.out;
}

TEST(Connect, ProbePowersTheTargetWhenAsked) {
  Rig rig;
  rig.WriteProject("  AutoDetect = 1\r\n", "", "",
                   "  EnableTargetPower = 1\r\n  TargetPowerDelay = 0x00000000\r\n");
  RunResult r = rig.Run({"-connect", "-disconnect"}, {"TARLOSIM_VTARGET=0"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Connected successfully")) << r.out;
}

// ---- Init sequence ----

TEST(Connect, InitSequenceDrivesChipSelectAndTheVariableBuffer) {
  Rig rig;
  rig.WriteProject("  AutoDetect = 1\r\n", "",
                   "  NumInitSteps = 6\r\n"
                   "  InitStep0_Action = \"Activate CS\"\r\n"
                   "  InitStep1_Action = \"Write Data\"\r\n"
                   "  InitStep1_Value0 = 0x00000001\r\n"
                   "  InitStep1_Value1[1] = 0x9F\r\n"
                   "  InitStep2_Action = \"Var Read Data\"\r\n"
                   "  InitStep2_Value0 = 0x00000004\r\n"
                   "  InitStep2_Value1 = 0x00000003\r\n"
                   "  InitStep3_Action = \"Deactivate CS\"\r\n"
                   "  InitStep4_Action = \"Var Verify Byte\"\r\n"
                   "  InitStep4_Value0 = 0x00000005\r\n"
                   "  InitStep4_Value1 = 0x00000020\r\n"
                   "  InitStep5_Action = \"Comment\"\r\n"
                   "  InitStep5_Comment = \"chip answered\"\r\n");
  RunResult r = rig.Run({"-connect"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  const char* lines[] = {
      "Executing init sequence ...",
      "Executing Activate CS ()",
      "Executing Write Data - 0x9F",
      "Executing Var Read Data (4, 3)",
      "Read Data - 0xC2, 0x20, 0x18",
      "Executing Deactivate CS ()",
      "Executing Var Verify Byte (5, 0x20)",
      "Verifying...O.K.",
      "//\n   // chip answered\n   //",
      "Executed successfully",
  };
  size_t from = 0;
  for (const char* line : lines) {
    const size_t at = r.out.find(line, from);
    EXPECT_NE(at, std::string::npos) << line << "\n" << r.out;
    if (at != std::string::npos) from = at;
  }
  // The sequence's own frame, between its chip-select steps.
  bool sawFrame = false;
  for (const Frame& f : rig.Frames()) {
    if (!f.empty() && f[0] == 0x9F && f.size() < 14) sawFrame = true;
  }
  EXPECT_TRUE(sawFrame);
}

TEST(Connect, FailingInitSequenceIsShownButTheConnectionStays) {
  Rig rig;
  rig.WriteProject("  AutoDetect = 1\r\n", "",
                   "  NumInitSteps = 2\r\n"
                   "  InitStep0_Action = \"Var XOR\"\r\n"
                   "  InitStep0_Value0 = 0x00000002\r\n"
                   "  InitStep0_Value1 = 0x00000000\r\n"
                   "  InitStep1_Action = \"Var Verify Byte\"\r\n"
                   "  InitStep1_Value0 = 0x00000002\r\n"
                   "  InitStep1_Value1 = 0x00000055\r\n");
  RunResult r = rig.Run({"-connect"});
  EXPECT_TRUE(Has(r, "Connected successfully")) << r.out;
  EXPECT_TRUE(Has(r, "ERROR: Verification failed @ VarBufferIndex 2: Expected: 0x55, Found: 0x00"))
      << r.out;
  EXPECT_TRUE(Has(r, "Failed to connect.\n")) << r.out;
  EXPECT_TRUE(Has(r, "Could not perform custom init sequence.")) << r.out;
  EXPECT_FALSE(Has(r, "Executed successfully")) << r.out;
  // Information only: the exit status is that of the connect itself.
  EXPECT_EQ(r.exitStatus, 0) << r.out;

  // Still connected: the read needs no new connect.
  r = rig.Run({"-connect", "-readrange0x0,0xFF"});
  EXPECT_EQ(Count(r.out, "Connecting ..."), 1u) << r.out;
  EXPECT_TRUE(Has(r, "Target memory read successfully.")) << r.out;
}

}  // namespace
