// What the end-to-end suite cannot reach with the simulated library: the
// 4-byte mode switch after a failed identity check, what detection leaves in
// the project, a power supply that never brings the target up, the refusal
// to open once the exit hook has run, and the unprotect step of every chip
// class. The probe is a recording stand-in.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "app/log.h"
#include "flash/flash.h"
#include "flash/flashdb.h"
#include "flash/spi.h"
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
      {"detected type 1", true, 3, 0, {0xC2, 0x20, 0x19}, {}, {}, {0xC2, 0x20, 0x19}, 131072},
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
    if (part) EXPECT_STREQ(e.Part, part);
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
      {16, 65536, 256, 255, 0xFF0000, 0x10000},
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
