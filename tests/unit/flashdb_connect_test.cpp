// What the end-to-end suite cannot reach with the simulated library: the
// 4-byte mode switch after a failed identity check or a detected type-2
// chip, a power supply that never brings the target up, and the refusal to
// open once the exit hook has run; and the interfaces the program itself
// does not call (stand-alone detection, closing, the unprotect step, the
// current chip and sector geometry). The probe is a recording stand-in.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "app/log.h"
#include "flash/spi.h"
#include "flash/flash.h"
#include "flash/flashdb.h"
#include "tests/unit/flashdb_fakes.h"

namespace {

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
  void TearDown() override { Quiet([] { SPI_Disconnect(); }); }
};

TEST_F(Connection, DedicatedFourByteModeFollowsTheConnection) {
  struct Case {
    const char* name;
    bool autoDetect;
    uint8_t numAddrBytes, dedicated;
    std::vector<uint8_t> id;
    std::vector<uint8_t> onConnect, onClose;
  };
  const std::vector<uint8_t> enter = {0x06, 0xB7}, both = {0x06, 0xB7, 0x06, 0xE9};
  const Case cases[] = {
      {"stored, own opcodes", false, 4, 0, {0xC2, 0x20, 0x18}, {}, {}},
      // Even a failed identity check switches the chip (and closing switches back).
      {"stored, wrong chip", false, 4, 1, {0xEF, 0x40, 0x18}, both, both},
      {"detected type 2", true, 3, 0, {0x20, 0xBA, 0x19}, enter, both},
      {"detected type 1", true, 3, 0, {0xC2, 0x20, 0x19}, {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    FlashParams& p = fake::project().flash;
    if (!c.autoDetect) {
      p.AutoDetect = 0;
      p.abID[0] = 0xC2;
      p.abID[1] = 0x20;
      p.abID[2] = 0x18;
    }
    p.NumAddrBytes = c.numAddrBytes;
    p.Dedicated4BAddrMode = c.dedicated;
    p.CmdWriteEnable = 0x06;
    p.CmdEnter4ByteMode = 0xB7;
    p.CmdExit4ByteMode = 0xE9;
    fake::QueueId(c.id);
    Quiet([] { SPI_Connect(); });
    EXPECT_EQ(fake::CommandBytes(), c.onConnect);
    Quiet([] { SPI_Disconnect(); });
    EXPECT_EQ(fake::CommandBytes(), c.onClose);
  }
}

TEST_F(Connection, SupplyThatDoesNotPowerTheTargetIsSwitchedOffAndClosed) {
  SPI_SetTargetPower(1, 0);
  fake::probe().vtarget = 0;
  fake::probe().supplyWorks = false;
  int open = 0;
  Quiet([&] { open = SPI_OpenProbe(); });
  EXPECT_EQ(open, -259);
  const std::vector<std::string>& calls = fake::probe().calls;
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[calls.size() - 2], "Exec DisablePowerSupplyOnClose");
  EXPECT_EQ(calls.back(), "Close");
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

TEST_F(Connection, CloseProbeUndoesTheOpenOnce) {
  struct Case {
    const char* name;
    uint32_t power;
    std::vector<std::string> onClose;
  };
  const Case cases[] = {
      {"no target power", 0, {"SetRESET", "Close"}},
      {"target power", 1, {"Exec DisablePowerSupplyOnClose", "SetRESET", "Close"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    SPI_SetTargetPower(c.power, 0);
    int open = -1;
    Quiet([&] { open = SPI_OpenProbe(); });
    ASSERT_EQ(open, 0);
    fake::probe().calls.clear();
    SPI_CloseProbe();
    EXPECT_EQ(fake::probe().calls, c.onClose);
    fake::probe().calls.clear();
    SPI_CloseProbe();  // already closed: nothing
    EXPECT_TRUE(fake::probe().calls.empty());
  }
}

// Stand-alone detection closes the probe whatever it finds; the current chip
// and its table entry follow what was found.
TEST_F(Connection, DetectFlashSelectsTheChipAndClosesTheProbe) {
  struct Case {
    std::vector<uint8_t> id;
    int result;
    const char* part;  // null: no chip
  };
  const Case cases[] = {
      {{0xC2, 0x20, 0x18}, 0, "MX25L12873F"},
      {{0x7F, 0x7F, 0x20, 0xBA, 0x18}, 0, "N25Q128A"},
      {{0x12, 0x34, 0x56}, -1, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.part ? c.part : "unknown");
    fake::Reset();
    FLASHDB_SelectChip(-1);
    fake::QueueId(c.id);
    int result = 1;
    Quiet([&] { result = SPI_DetectFlash(); });
    EXPECT_EQ(result, c.result);
    ASSERT_FALSE(fake::probe().calls.empty());
    EXPECT_EQ(fake::probe().calls.back(), "Close");
    const int current = FLASHDB_GetCurrentIndex();
    FlashChipEntry e{};
    if (c.part == nullptr) {
      EXPECT_EQ(current, -1);
      EXPECT_EQ(FLASHDB_GetEntry(current, &e), -1);
    } else {
      ASSERT_EQ(FLASHDB_GetEntry(current, &e), 0);
      EXPECT_STREQ(e.Part, c.part);
    }
  }
  FlashChipEntry e{};
  EXPECT_EQ(FLASHDB_GetEntry(0, nullptr), -1);
  EXPECT_EQ(FLASHDB_GetEntry(FLASHDB_GetNumEntries(), &e), -1);
}

TEST(ChipDatabase, SectorGeometryOfTheProjectHoldsAtTheLimit) {
  struct Case {
    uint32_t pageShift, sectorShift, numPages;
    uint32_t sectors, sector, start, size;
  };
  const Case cases[] = {
      {8, 12, 8192, 512, 3, 0x3000, 0x1000},                // 2 MiB of 4 KiB sectors
      {8, 16, 65536, 256, 255, 0xFF0000, 0x10000},
      {8, 0, 0xFFFFFFFF, 0xFFFFFFFF, 7, 7, 1},              // count held at 32 bits
      {8, 16, 65536, 256, 0x10000, 0xFFFFFFFF, 0x10000},    // start held at 32 bits
      {8, 40, 65536, 0, 0, 0, 0xFFFFFFFF},                  // a sector beyond the address space
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "sector shift " << c.sectorShift << ", pages " << c.numPages);
    fake::Reset();
    FlashParams& p = fake::project().flash;
    p.PageSizeShift = c.pageShift;
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

// Every frame the unprotect step sends, status reads included.
std::vector<std::vector<uint8_t>> Frames() {
  std::vector<std::vector<uint8_t>> r;
  for (const fake::Transfer& t : fake::probe().transfers) r.push_back(t.out);
  return r;
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
    EXPECT_EQ(Frames(), c.frames);
  }
}

}  // namespace
