// The flash layer on its own: chip lookup by ID, applying an entry, the ID
// reader's continuation-code compaction, the project's sector geometry, and
// what the end-to-end suite cannot reach with the simulated library: the
// 4-byte mode switch after a failed identity check, what detection leaves in
// the project, a power supply that never brings the target up, the refusal
// to open once the exit hook has run, the unprotect step of every chip class,
// and the init/exit sequence interpreter (log lines, clamping, the variable
// buffer's limits and arithmetic, branches, and the transfers it makes).
// The project model and the probe are recording stand-ins.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "app/log.h"
#include "flash/flash.h"
#include "flash/flashdb.h"
#include "flash/spi.h"
#include "project/seq.h"
#include "tests/unit/flashdb_fakes.h"

namespace {

uint32_t IdWord(const uint8_t id[3]) { return id[0] | (uint32_t(id[1]) << 8) | (uint32_t(id[2]) << 16); }

// The first matching row wins; applying it sets geometry, command set and
// 4-byte address type, and leaves AutoDetect, FlashType and abID alone.
TEST(ChipLookup, FirstMatchWinsAndIsAppliedWithItsAddressType) {
  struct Case {
    uint8_t id[3];
    int index;
    const char* part;
    uint32_t pages, sectorShift;
    uint8_t addr, dedicated, enter, exit, read, write, erase, wren, status, readyBit, chipClass;
  };
  const Case cases[] = {
      // memory-type byte ignored; type 0 clears the set's mode switch
      {{0x20, 0xBA, 0x18}, 10, "N25Q128A", 65536, 16, 3, 0, 0x00, 0x00, 0x03, 0x02, 0xD8, 0x06, 0x70, 1, 0},
      {{0x20, 0x00, 0x18}, 10, "N25Q128A", 65536, 16, 3, 0, 0x00, 0x00, 0x03, 0x02, 0xD8, 0x06, 0x70, 1, 0},
      {{0xC2, 0x20, 0x19}, 89, "MX25L25735F", 131072, 16, 4, 0, 0x00, 0x00, 0x13, 0x12, 0xDC, 0x06, 0x05, 0, 4},
      {{0x20, 0xBA, 0x19}, 11, "N25Q256A", 131072, 16, 4, 1, 0xB7, 0xE9, 0x03, 0x02, 0xD8, 0x06, 0x70, 1, 0},
      {{0x1F, 0xA8, 0x00}, 54, "ATXP064B", 32768, 16, 4, 0, 0xB7, 0xE9, 0x0B, 0x02, 0xD8, 0x06, 0x05, 0, 8},
      {{0xBF, 0x26, 0x43}, 114, "SST26VF064B", 32768, 12, 3, 0, 0x00, 0x00, 0x03, 0x02, 0x20, 0x06, 0x05, 0, 9},
      {{0x04, 0x25, 0x03}, 162, "MB85RS256TY", 128, 15, 2, 0, 0x00, 0x00, 0x03, 0x02, 0x00, 0x06, 0x05, 0, 0},
      {{0x1F, 0x23, 0x00}, 18, "AT25PE20", 1024, 11, 3, 0, 0x00, 0x00, 0x03, 0x02, 0x50, 0x00, 0xD7, 1, 10},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.part);
    const int index = FLASHDB_FindById(IdWord(c.id));
    ASSERT_EQ(index, c.index);
    EXPECT_STREQ(FLASHDB_ChipTable[index].Part, c.part);
    FlashParams p;
    std::memset(&p, 0xEE, sizeof(p));
    p.AutoDetect = 1;
    p.FlashType = 2;
    std::memcpy(p.abID, "\x11\x22\x33", 3);
    ASSERT_EQ(FLASHDB_ApplyEntry(index, &p), 0);
    EXPECT_EQ(p.NumPages, c.pages);
    EXPECT_EQ(p.PageSizeShift, 8u);
    EXPECT_EQ(p.SectorSizeShift, c.sectorShift);
    const std::vector<uint8_t> got = {p.NumAddrBytes,  p.Dedicated4BAddrMode, p.CmdEnter4ByteMode, p.CmdExit4ByteMode,
                                      p.CmdReadData,   p.CmdWritePage,        p.CmdEraseSector,    p.CmdWriteEnable,
                                      p.CmdReadStatus, p.StatusIsReadyBit,    p.ChipClass};
    EXPECT_EQ(got, (std::vector<uint8_t>{c.addr, c.dedicated, c.enter, c.exit, c.read, c.write, c.erase, c.wren,
                                         c.status, c.readyBit, c.chipClass}));
    EXPECT_EQ(p.StatusBitPos, c.readyBit ? 7 : 0);
    EXPECT_EQ(p.AutoDetect, 1u);
    EXPECT_EQ(p.FlashType, 2u);
    EXPECT_EQ(std::memcmp(p.abID, "\x11\x22\x33", 3), 0);
  }
  // Rows sharing an ID (the earlier wins), and IDs no row has: the memory
  // type matters for this maker's rows.
  const struct {
    uint8_t id[3];
    int index;
  } lookups[] = {
      {{0x1F, 0x46, 0x02}, 45}, {{0x1F, 0x84, 0x01}, 39}, {{0x9D, 0x46, 0x00}, -1}, {{0xC2, 0x21, 0x18}, -1}};
  for (const auto& l : lookups) EXPECT_EQ(FLASHDB_FindById(IdWord(l.id)), l.index);
  FlashParams p{};
  EXPECT_EQ(FLASHDB_ApplyEntry(-1, &p), -1);
  EXPECT_EQ(FLASHDB_ApplyEntry(FLASHDB_GetNumEntries(), &p), -1);
  EXPECT_EQ(FLASHDB_ApplyEntry(0, nullptr), -1);
}

TEST(ReadId, ContinuationCodesAreDropped) {
  using V = std::vector<uint8_t>;
  const std::pair<V, V> cases[] = {
      {{0x9D, 0x7F, 0x46, 0x16}, {0x9D, 0x46, 0x16}},
      {V(13, 0x7F), {0x7F, 0x7F, 0x7F}},  // nothing but codes: left as it was
      {{0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0xAA}, {0xAA, 0x7F, 0x7F}},
      {{0xC2, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0xAA}, {0xC2, 0xAA, 0x7F}},
  };
  for (const auto& [in, first3] : cases) {
    V id = in;
    id.resize(13, 0x00);
    FLASHDB_CompactId(id.data());
    EXPECT_EQ(V(id.begin(), id.begin() + 3), first3);
  }
}

// ---- Connection and command layer ----

// Runs f with standard output captured and dropped.
template <typename F>
void Quiet(F f) {
  testing::internal::CaptureStdout();
  f();
  testing::internal::GetCapturedStdout();
}

class Connection : public testing::Test {
 protected:
  void SetUp() override {
    fake::Reset();
    SPI_SetConnectionOverride(nullptr);
    SPI_SetTarloLogPath(nullptr);
    SPI_SetTargetPower(0, 0);
    LOG_SetVerbosity(9);
  }
  void TearDown() override {
    Quiet([] { SPI_Disconnect(); });
  }
};

// The detected ID and the parameters of its row land in the project (an
// unknown chip leaves all but the ID as they were); a stored ID is only
// compared. Even a failed identity check switches the chip into 4-byte mode,
// and closing switches it back.
TEST_F(Connection, DetectionFillsTheProjectAndFourByteModeFollowsTheConnection) {
  struct Case {
    const char* name;
    bool autoDetect;
    uint8_t numAddrBytes, dedicated;
    std::vector<uint8_t> id, onConnect, onClose, abID;
    uint32_t pages;
  };
  const std::vector<uint8_t> enter = {0x06, 0xB7}, both = {0x06, 0xB7, 0x06, 0xE9}, stored = {0xC2, 0x20, 0x18};
  const Case cases[] = {
      {"stored, dedicated mode", false, 4, 1, {0xC2, 0x20, 0x18}, enter, both, stored, 7},
      {"stored, wrong chip", false, 4, 1, {0xEF, 0x40, 0x18}, both, both, stored, 7},
      {"detected type 2", true, 3, 0, {0x7F, 0x20, 0xBA, 0x19}, enter, both, {0x20, 0xBA, 0x19}, 131072},
      {"unknown chip", true, 4, 1, {0x12, 0x34, 0x56}, both, both, {0x12, 0x34, 0x56}, 7},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    FlashParams& p = fake::project().flash;
    p.AutoDetect = c.autoDetect ? 1 : 0;
    std::copy(stored.begin(), stored.end(), p.abID);
    p.NumPages = 7;
    p.NumAddrBytes = c.numAddrBytes;
    p.Dedicated4BAddrMode = c.dedicated;
    p.CmdWriteEnable = 0x06;
    p.CmdEnter4ByteMode = 0xB7;
    p.CmdExit4ByteMode = 0xE9;
    fake::QueueId(c.id);
    Quiet([] { SPI_Connect(); });
    EXPECT_EQ(fake::CommandBytes(), c.onConnect);
    EXPECT_EQ(std::vector<uint8_t>(p.abID, p.abID + 3), c.abID);
    EXPECT_EQ(p.NumPages, c.pages);
    EXPECT_EQ(p.AutoDetect, c.autoDetect ? 1u : 0u);
    Quiet([] { SPI_Disconnect(); });
    EXPECT_EQ(fake::CommandBytes(), c.onClose);
  }
}

// Closing undoes the open once; a supply that does not bring the target up
// is switched off again and the probe closed at once.
TEST_F(Connection, TargetPowerIsSwitchedOffWhenTheProbeCloses) {
  struct Case {
    const char* name;
    uint32_t power;
    bool supplyWorks;
    int open;
    std::vector<std::string> last;
  };
  const Case cases[] = {
      {"no target power", 0, true, 0, {"SetRESET", "Close"}},
      {"target power", 1, true, 0, {"Exec DisablePowerSupplyOnClose", "SetRESET", "Close"}},
      {"supply without effect", 1, false, -259, {"Exec DisablePowerSupplyOnClose", "Close"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    SPI_SetTargetPower(c.power, 0);
    fake::probe().vtarget = c.power ? 0 : 3300;
    fake::probe().supplyWorks = c.supplyWorks;
    int open = 1;
    const auto start = std::chrono::steady_clock::now();
    Quiet([&] { open = SPI_OpenProbe(); });
    EXPECT_EQ(open, c.open);
    // Reset is held low a while before the chip is driven.
    EXPECT_TRUE(open != 0 || std::chrono::steady_clock::now() - start >= std::chrono::milliseconds(20));
    SPI_CloseProbe();
    SPI_CloseProbe();  // closed already: nothing more
    const std::vector<std::string>& calls = fake::probe().calls;
    ASSERT_GE(calls.size(), c.last.size());
    EXPECT_EQ(std::vector<std::string>(calls.end() - static_cast<long>(c.last.size()), calls.end()), c.last);
  }
}

TEST_F(Connection, NoOpenAfterTheExitHookRan) {
  EXPECT_EXIT(
      {
        testing::internal::CaptureStdout();
        SPI_OnExit();
        const int open = SPI_OpenProbe();
        const int connect = SPI_Connect();
        std::exit(open == -1 && connect == 1 && fake::probe().calls.empty() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// Stand-alone detection closes the probe whatever it finds; the current chip
// and its table entry follow what was found.
TEST_F(Connection, DetectFlashSelectsTheChipAndClosesTheProbe) {
  const std::pair<std::vector<uint8_t>, const char*> cases[] = {
      {{0xC2, 0x20, 0x18}, "MX25L12873F"}, {{0x7F, 0x7F, 0x20, 0xBA, 0x18}, "N25Q128A"}, {{0x12, 0x34, 0x56}, nullptr}};
  for (const auto& [id, part] : cases) {
    SCOPED_TRACE(part ? part : "unknown");
    fake::Reset();
    FLASHDB_SelectChip(-1);
    fake::QueueId(id);
    int result = 1;
    Quiet([&] { result = SPI_DetectFlash(); });
    EXPECT_EQ(result, part ? 0 : -1);
    ASSERT_FALSE(fake::probe().calls.empty());
    EXPECT_EQ(fake::probe().calls.back(), "Close");
    FlashChipEntry e{};
    EXPECT_EQ(FLASHDB_GetEntry(FLASHDB_GetCurrentIndex(), &e), part ? 0 : -1);
    EXPECT_STREQ(part ? e.Part : nullptr, part);  // none found: no entry to name
  }
  FlashChipEntry e{};
  EXPECT_EQ(FLASHDB_GetEntry(0, nullptr), -1);
  EXPECT_EQ(FLASHDB_GetEntry(FLASHDB_GetNumEntries(), &e), -1);
}

// The project's sector count and a sector's place, held at 32 bits.
TEST(ChipDatabase, SectorGeometryOfTheProjectHoldsAtTheLimit) {
  struct Case {
    uint32_t sectorShift, numPages, sectors, sector, start, size;
  };
  const Case cases[] = {
      {12, 8192, 512, 3, 0x3000, 0x1000},  // 2 MiB of 4 KiB sectors
      {0, 0xFFFFFFFF, 0xFFFFFFFF, 7, 7, 1},            // count held at 32 bits
      {16, 65536, 256, 0x10000, 0xFFFFFFFF, 0x10000},  // start held at 32 bits
      {40, 65536, 0, 0, 0, 0xFFFFFFFF},                // a sector beyond the address space
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "sector shift " << c.sectorShift << ", pages " << c.numPages);
    fake::Reset();
    FlashParams& p = fake::project().flash;
    p.PageSizeShift = 8;
    p.SectorSizeShift = c.sectorShift;
    p.NumPages = c.numPages;
    EXPECT_EQ(FLASHDB_GetNumSectors(), c.sectors);
    uint32_t start = 1, size = 1;
    FLASHDB_GetSectorInfo(c.sector, &start, &size);
    EXPECT_EQ(start, c.start);
    EXPECT_EQ(size, c.size);
    FLASHDB_GetSectorInfo(c.sector, nullptr, nullptr);  // outputs are optional
  }
}

TEST(CommandLayer, PrepareWriteUnprotectsByChipClass) {
  using F = std::vector<std::vector<uint8_t>>;
  const std::vector<uint8_t> rdsr = {0x05, 0xFF}, wren = {0x06}, wrsr = {0x01, 0x00};
  struct Case {
    const char* name;
    uint8_t chipClass, status;
    F frames;
  };
  const Case cases[] = {
      {"unprotected", 0, 0x00, {rdsr}},
      {"protected: status written, then waited for", 0, 0x1C, {rdsr, wren, wrsr, rdsr}},
      {"bits outside the class's mask", 10, 0x1C, {rdsr}},
      {"page-based family", 10, 0x02, {rdsr, {0x3D, 0x2A, 0x7F, 0x9A}, rdsr}},
      {"global unlock, unprotected", 9, 0x00, {rdsr, wren, {0x98}}},
      {"global unlock, protected", 9, 0x10, {rdsr, wren, wrsr, rdsr, wren, {0x98}}},
      {"class beyond the table", 11, 0x04, {rdsr, wren, wrsr, rdsr}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    FlashParams& p = fake::project().flash;
    p.ChipClass = c.chipClass;
    p.CmdWriteEnable = 0x06;
    p.CmdReadStatus = 0x05;
    p.CmdWriteStatus = 0x01;
    // Busy bit 0: the first read answers the status, the next one is ready.
    fake::probe().readData = {0xFF, c.status, 0xFF, 0x00};
    SPI_PrepareWrite();
    // Every frame the unprotect step sends, status reads included.
    F frames;
    for (const fake::Transfer& t : fake::probe().transfers) frames.push_back(t.out);
    EXPECT_EQ(frames, c.frames);
  }
}

// ---- Sequences ----

SeqStep Step(uint32_t action, uint32_t v0 = 0, uint32_t v1 = 0, std::vector<uint8_t> data = {}) {
  SeqStep s;
  std::memset(&s, 0, sizeof(s));
  s.Action = action;
  s.Value0 = v0;
  s.Value1 = v1;
  std::copy_n(data.begin(), std::min(data.size(), sizeof(s.Data)), s.Data);
  return s;
}

void SetInit(const std::vector<SeqStep>& steps) {
  fake::Reset();
  LOG_SetVerbosity(9);
  ProjectSequences& seq = fake::project().sequences;
  for (size_t i = 0; i < steps.size(); ++i) seq.InitSteps[i] = steps[i];
  seq.NumInitSteps = static_cast<uint32_t>(steps.size());
}

// One sequence through every kind of step. A branch that goes the wrong way
// either runs a failing check or ends the sequence early at its target 255.
TEST(Seq, WholeSequenceLogsClampsBranchesAndTransfers) {
  std::vector<uint8_t> sixteen;
  for (int i = 0; i < 16; ++i) sixteen.push_back(static_cast<uint8_t>(0x10 + i));
  const std::vector<SeqStep> steps = {
      Step(SEQ_ACTION_ACTIVATE_CS),
      Step(SEQ_ACTION_WRITE_DATA, 20, 0, sixteen),  // at most 15 bytes go out
      Step(SEQ_ACTION_WRITE_DATA, 1, 0, {0x9F}),
      Step(SEQ_ACTION_WRITE_DATA, 0, 0, {0x5A}),  // shown, not sent
      Step(SEQ_ACTION_VAR_READ_DATA, 1, 3),
      Step(SEQ_ACTION_DEACTIVATE_CS),
      Step(SEQ_ACTION_VAR_AND, 6, 0),
      Step(SEQ_ACTION_VAR_OR, 6, 0xF3),
      Step(SEQ_ACTION_VAR_AND, 6, 0x3C),
      Step(SEQ_ACTION_VAR_XOR, 6, 0x21),
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x11),
      Step(SEQ_ACTION_VAR_AND, 7, 0),
      Step(SEQ_ACTION_VAR_BEQ, 7, 14),  // 12: taken
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x00),
      Step(SEQ_ACTION_VAR_BNE, 6, 16),  // 14: taken
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x00),
      Step(SEQ_ACTION_VAR_BEQ, 6, 300),  // 16: not taken
      Step(SEQ_ACTION_VAR_BNE, 7, 255),  // not taken
      Step(77, 1, 1),                    // no such action: skipped
      Step(SEQ_ACTION_VAR_OR, 15, 0xFF),
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 40, 0x1FF),
      Step(SEQ_ACTION_VAR_WRITE_DATA, 1, 2),
      Step(SEQ_ACTION_DELAY, 5),
      Step(SEQ_ACTION_COMMENT),
  };
  SetInit(steps);
  fake::probe().readData = {0xC2, 0x20, 0x18};
  testing::internal::CaptureStdout();
  EXPECT_EQ(SEQ_Run(SEQ_INIT), 0);
  const std::string out = testing::internal::GetCapturedStdout();
  const char* lines[] = {
      "Executing Activate CS ()",
      "Executing Write Data - 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, "
      "0x1D, 0x1E\r\n",
      "Executing Write Data - 0x5A\r\n",
      "Executing Var Read Data (1, 3)",
      "Executing Var XOR (6, 0x21)",
      "Executing Var Verify Byte (6, 0x11)",
      "Branch operation performed",
      "Executing Var BNE (6, 16 #)",
      "Branch operation performed",
      "Executing Var BEQ (6, 255 #)\r\n",
      "Executing Var BNE (7, 255 #)\r\n",
      "Executing Var Verify Byte (15, 0xFF)",
      "Verifying...O.K.",
      "Executing Var Write Data (1, 2)",
      "Write Data - 0xC2, 0x20\r\n",
      "Executing Delay (5 ms)",
      "//\r\n",
      "Executed successfully",
  };
  size_t from = 0;
  for (const char* line : lines) {
    const size_t at = out.find(line, from);
    ASSERT_NE(at, std::string::npos) << line << "\n" << out;
    from = at + 1;
  }
  EXPECT_EQ(out.find("Branch operation performed", out.find("Executing Var BEQ (6, 255 #)")), std::string::npos);

  // Chip select is left to its own steps: every transfer has flags 0.
  EXPECT_EQ(fake::probe().calls, (std::vector<std::string>{"ClrTMS", "SetTMS"}));
  const auto& t = fake::probe().transfers;
  ASSERT_EQ(t.size(), 4u);
  EXPECT_EQ(t[0].out, std::vector<uint8_t>(sixteen.begin(), sixteen.begin() + 15));
  EXPECT_EQ(t[0].numBits, 120u);
  EXPECT_TRUE(t[2].read);
  EXPECT_EQ(t[2].numBits, 24u);
  EXPECT_EQ(t[3].out, (std::vector<uint8_t>{0xC2, 0x20}));
  for (const auto& x : t) EXPECT_EQ(x.flags, 0u);
}

// Reading may fill the buffer to its end; writing must leave the last byte.
TEST(Seq, BufferLimitsOfReadingAndWriting) {
  const struct {
    uint32_t action, offset, count;
    bool ok;
  } cases[] = {
      {SEQ_ACTION_VAR_READ_DATA, 8, 8, true},  {SEQ_ACTION_VAR_WRITE_DATA, 8, 8, false},
      {SEQ_ACTION_VAR_WRITE_DATA, 8, 7, true}, {SEQ_ACTION_VAR_READ_DATA, 15, 2, false},
      {SEQ_ACTION_VAR_READ_DATA, 0, 99, true}, {SEQ_ACTION_VAR_WRITE_DATA, 0, 16, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.action << " " << c.offset << " " << c.count);
    SetInit({Step(c.action, c.offset, c.count), Step(SEQ_ACTION_COMMENT)});
    testing::internal::CaptureStdout();
    EXPECT_EQ(SEQ_Run(SEQ_INIT), c.ok ? 0 : 1);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("ERROR: Invalid parameters") != std::string::npos, !c.ok) << out;
    EXPECT_EQ(out.find("//") != std::string::npos, c.ok) << "a failing step ends the sequence\n" << out;
  }
}

}  // namespace
