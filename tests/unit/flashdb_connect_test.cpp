// Connecting, detecting and disconnecting against a recording stand-in for
// the probe library: the calls made, their order, the results and messages.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "app/log.h"
#include "flash/connect.h"
#include "flash/flash.h"
#include "flash/flashdb.h"
#include "flash/seq/seq.h"
#include "tests/unit/flashdb_fakes.h"

namespace {

using Calls = std::vector<std::string>;

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
    testing::internal::CaptureStdout();
    SPI_Disconnect();
    testing::internal::GetCapturedStdout();
  }

  // Runs f with standard output captured; returns the output.
  template <typename F>
  std::string Quiet(F f) {
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
  }

  static void UseStoredId(uint8_t a, uint8_t b, uint8_t c) {
    FlashParams& p = fake::project().flash;
    p.AutoDetect = 0;
    p.abID[0] = a;
    p.abID[1] = b;
    p.abID[2] = c;
  }
};

bool Has(const std::string& s, const std::string& what) { return s.find(what) != std::string::npos; }

TEST_F(Connection, ConnectDetectsHoldsResetAndRunsTheInitSequence) {
  fake::QueueId({0xC2, 0x20, 0x18});
  int result = -1;
  const std::string out = Quiet([&] { result = SPI_Connect(); });
  EXPECT_EQ(result, 0) << out;
  EXPECT_TRUE(SPI_IsConnected());
  const Calls expected = {"Exec SuppressEmuUSBDialog", "Exec SupressInfoUpdateFW",
                          "Exec SilentUpdateFW",       "SetLogFile none",
                          "SelectUSB 0",               "OpenEx",
                          "TIF_Select 5",              "SetSpeed 4000",
                          "ClrRESET",                  "ClrRESET"};
  EXPECT_EQ(fake::probe().calls, expected);
  // The ID is read with 0x9F whatever CmdReadID holds.
  const auto& t = fake::probe().transfers;
  ASSERT_EQ(t.size(), 2u);
  EXPECT_EQ(t[0].out, std::vector<uint8_t>{0x9F});
  EXPECT_EQ(t[0].flags, 2u);
  EXPECT_EQ(t[1].numBits, 104u);
  EXPECT_EQ(t[1].flags, 12u);

  const char* lines[] = {"Connecting ...\r\n",
                         "- Connecting via USB to Tarlo device 0\r\n",
                         "- VTarget = 3.300V\r\n",
                         "- Read SPI Flash Id = 0xC2 20 18\r\n",
                         "- Found SPI Flash: Macronix MX25L12873F\r\n",
                         "- Connected successfully\r\n",
                         "Executing init sequence ...\r\n",
                         "- Executed successfully\r\n"};
  size_t from = 0;
  for (const char* line : lines) {
    const size_t at = out.find(line, from);
    EXPECT_NE(at, std::string::npos) << line << "\n" << out;
    if (at != std::string::npos) from = at;
  }
  const FlashParams& p = fake::project().flash;
  EXPECT_EQ(FLASHDB_GetCurrentIndex(), 88);
  EXPECT_EQ(p.NumPages, 65536u);
  EXPECT_EQ(p.abID[0], 0xC2);
  EXPECT_EQ(p.abID[2], 0x18);
  EXPECT_EQ(SPI_GetSectorEraseTimeout(), 5000u);
  EXPECT_EQ(SPI_GetChipEraseTimeout(), 400000u);

  // Connected: a second connect does nothing and says nothing.
  fake::probe().calls.clear();
  std::string again = Quiet([&] { result = SPI_Connect(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(again, "");
  EXPECT_TRUE(fake::probe().calls.empty());

  std::string closing = Quiet([] { SPI_Disconnect(); });
  EXPECT_EQ(closing, "Disconnecting ...\r\n- Disconnected\r\n");
  EXPECT_EQ(fake::probe().calls, (Calls{"SetRESET", "Close"}));
  EXPECT_FALSE(SPI_IsConnected());
  EXPECT_EQ(Quiet([] { SPI_Disconnect(); }), "");
}

TEST_F(Connection, SelectionByOverrideOrProject) {
  struct Case {
    const char* name;
    bool useOverride;
    ConnectionChoice choice;
    uint8_t projectMode;
    const char* call;
    const char* line;
  };
  const Case cases[] = {
      {"override SN", true, {1, "", 77}, 0, "SelectByUSBSN 77", "Connecting via USB to Tarlo with SN 77"},
      {"override IP", true, {2, "10.0.0.9", 0}, 0, "SelectIP 10.0.0.9 0", "Connecting via TCP/IP to 10.0.0.9"},
      {"override index", true, {0, "", 2}, 1, "SelectUSB 2", "Connecting via USB to Tarlo device 2"},
      {"project SN", false, {}, 1, "SelectByUSBSN 55", "Connecting via USB to Tarlo with SN 55"},
      {"project IP", false, {}, 2, "SelectIP probe.local 0", "Connecting via TCP/IP to probe.local"},
      {"project index", false, {}, 0, "SelectUSB 3", "Connecting via USB to Tarlo device 3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    ProjectGeneral& g = fake::project().general;
    g.ConnectMode = c.projectMode;
    g.USBSerialNo = 55;
    g.USBPort = 3;
    std::strcpy(g.HostName, "probe.local");
    SPI_SetConnectionOverride(c.useOverride ? &c.choice : nullptr);
    fake::QueueId({0xC2, 0x20, 0x18});
    const std::string out = Quiet([] { SPI_Connect(); });
    EXPECT_TRUE(fake::Called(c.call)) << out;
    EXPECT_TRUE(Has(out, c.line)) << out;
    Quiet([] { SPI_Disconnect(); });
  }
}

TEST_F(Connection, OpenFailures) {
  struct Case {
    const char* name;
    void (*setUp)();
    int openResult;
    const char* error;
    bool closed;  // the probe was opened and had to be closed again
  };
  const Case cases[] = {
      {"serial number not found",
       [] {
         static const ConnectionChoice choice = {1, "", 999};
         SPI_SetConnectionOverride(&choice);
         fake::probe().selectBySnResult = -1;
       },
       -1, "Tarlo with SN 999 not found.\nCheck the project settings and your connected Tarlo.", false},
      {"library open failed", [] { fake::probe().openError = "No probe attached."; }, -256,
       "No probe attached.", false},
      {"no SPI interface", [] { fake::probe().tifMask = 0x0F; }, -261,
       "The connected probe (S/N 123456) does not support the SPI interface", true},
      {"no target power", [] { fake::probe().vtarget = 999; }, -259, "Target system has no power", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    SPI_SetConnectionOverride(nullptr);
    c.setUp();
    int open = 0;
    Quiet([&] { open = SPI_OpenProbe(); });
    EXPECT_EQ(open, c.openResult);
    EXPECT_EQ(fake::Called("Close"), c.closed);
    EXPECT_FALSE(fake::Called("ClrRESET"));

    fake::Reset();
    c.setUp();
    int result = 0;
    const std::string out = Quiet([&] { result = SPI_Connect(); });
    EXPECT_EQ(result, 1);
    EXPECT_FALSE(SPI_IsConnected());
    EXPECT_TRUE(Has(LOG_GetErrorText(), c.error)) << LOG_GetErrorText();
    EXPECT_EQ(LOG_GetErrorCount(), 1u);
    EXPECT_FALSE(Has(out, "Connected successfully")) << out;
    EXPECT_TRUE(fake::probe().transfers.empty());
  }
}

TEST_F(Connection, ProbeSuppliesTargetPowerAndSwitchesItOffAgain) {
  SPI_SetTargetPower(1, 0);
  fake::probe().vtarget = 0;
  fake::QueueId({0xC2, 0x20, 0x18});
  int result = -1;
  Quiet([&] { result = SPI_Connect(); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(fake::Called("Exec SupplyPower = 1"));
  fake::probe().calls.clear();
  Quiet([] { SPI_Disconnect(); });
  EXPECT_EQ(fake::probe().calls, (Calls{"Exec DisablePowerSupplyOnClose", "SetRESET", "Close"}));

  // A supply that does not bring the target up: refused, supply off, closed.
  fake::Reset();
  fake::probe().vtarget = 0;
  fake::probe().supplyWorks = false;
  int open = 0;
  Quiet([&] { open = SPI_OpenProbe(); });
  EXPECT_EQ(open, -259);
  const Calls& calls = fake::probe().calls;
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[calls.size() - 2], "Exec DisablePowerSupplyOnClose");
  EXPECT_EQ(calls.back(), "Close");
}

TEST_F(Connection, DedicatedFourByteModeFollowsTheConnection) {
  struct Case {
    const char* name;
    bool autoDetect;
    uint8_t numAddrBytes, dedicated;
    std::vector<uint8_t> id;
    std::vector<uint8_t> onConnect, onClose;
  };
  const Case cases[] = {
      {"stored, dedicated", false, 4, 1, {0xC2, 0x20, 0x18}, {0x06, 0xB7}, {0x06, 0xB7, 0x06, 0xE9}},
      {"stored, own opcodes", false, 4, 0, {0xC2, 0x20, 0x18}, {}, {}},
      {"stored, 3 bytes", false, 3, 1, {0xC2, 0x20, 0x18}, {}, {}},
      // Even a failed identity check switches the chip (and closing switches back).
      {"stored, wrong chip", false, 4, 1, {0xEF, 0x40, 0x18}, {0x06, 0xB7, 0x06, 0xE9}, {0x06, 0xB7, 0x06, 0xE9}},
      {"detected type 2", true, 3, 0, {0x20, 0xBA, 0x19}, {0x06, 0xB7}, {0x06, 0xB7, 0x06, 0xE9}},
      {"detected type 1", true, 3, 0, {0xC2, 0x20, 0x19}, {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake::Reset();
    FlashParams& p = fake::project().flash;
    if (!c.autoDetect) UseStoredId(0xC2, 0x20, 0x18);
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

TEST_F(Connection, DetectFlashNeverLeavesTheProbeOpen) {
  fake::QueueId({0x20, 0xBA, 0x18});
  int result = -1;
  std::string out = Quiet([&] { result = SPI_DetectFlash(); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(Has(out, "Detecting SPI flash ...\r\n")) << out;
  EXPECT_TRUE(Has(out, "Found SPI Flash: Micron N25Q128A")) << out;
  EXPECT_TRUE(Has(out, "- SPI flash detected successfully.\r\n")) << out;
  EXPECT_EQ(fake::probe().calls.back(), "Close");
  EXPECT_FALSE(SPI_IsConnected());

  fake::Reset();
  fake::QueueId({0x12, 0x34, 0x56});
  out = Quiet([&] { result = SPI_DetectFlash(); });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(Has(out, "ERROR: Failed to auto-detect SPI Flash.")) << out;
  EXPECT_EQ(fake::probe().calls.back(), "Close");
  // Only the ID changes when no chip matches.
  EXPECT_EQ(fake::project().flash.abID[0], 0x12);
  EXPECT_EQ(fake::project().flash.NumPages, 0u);
}

TEST_F(Connection, SelectedChipGivesTheSectorGeometry) {
  Quiet([] { FLASHDB_SelectChip(10); });  // N25Q128A: 16 MiB in 64 KiB sectors
  EXPECT_EQ(FLASHDB_GetCurrentIndex(), 10);
  EXPECT_EQ(FLASHDB_GetNumSectors(), 256u);
  uint32_t start = 0, size = 0;
  FLASHDB_GetSectorInfo(3, &start, &size);
  EXPECT_EQ(start, 0x30000u);
  EXPECT_EQ(size, 0x10000u);
  EXPECT_EQ(FLASHDB_SelectChip(-1), -1);
  EXPECT_EQ(FLASHDB_GetCurrentIndex(), -1);
  EXPECT_EQ(FLASHDB_SelectChip(163), -1);
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

}  // namespace
