// What the end-to-end suite cannot reach with the simulated library: the
// 4-byte mode switch after a failed identity check or a detected type-2
// chip, a power supply that never brings the target up, and the refusal to
// open once the exit hook has run. The probe is a recording stand-in.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "app/log.h"
#include "flash/spi.h"
#include "flash/flash.h"
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

}  // namespace
