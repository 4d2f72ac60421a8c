// The probe calls of one connect and disconnect, as the simulated probe
// records them in its call log and its frame trace.
#include <gtest/gtest.h>

#include "tests/e2e/run_program.h"

namespace {

// The order a real probe needs (select, open, interface, speed, power check,
// reset, ID read, release, close), and the library's own records of each
// call, which the other end-to-end tests read piecemeal.
TEST(ProbeCalls, ConnectAndDisconnectInTheirOrder) {
  TempDir dir;
  const std::string log = dir.file("probe.log");
  const RunResult r = RunProgram({"-tarlolog", log, "-connect", "-disconnect"}, dir.path(),
                                 {"HOME=" + dir.path(), "TARLOSIM_TRACE=" + dir.file("trace.txt"),
                                  "TARLOSIM_FLASH=" + dir.file("flash.bin"), "TARLOSIM_SIZE=64K"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(dir.read("probe.log"),
            "TARLOARM_SetLogFile(\"" + log + "\")\nTARLOARM_SelectUSB(0)\nTARLOARM_OpenEx() returns NULL\n"
            "TARLOARM_TIF_GetAvailable() mask 0x00000023\nTARLOARM_TIF_Select(5) returns 0\n"
            "TARLOARM_SetSpeed(12000 kHz)\nTARLOARM_GetHWStatus() returns 0, VTarget = 3300 mV\n"
            "TARLOARM_ClrRESET()\nTARLOARM_GetHWStatus() returns 0, VTarget = 3300 mV\n"
            "TARLO_SPI_Transfer(NumBits = 8, Flags = 2) returns 1; out: 9F; in: -\n"
            "TARLO_SPI_Transfer(NumBits = 104, Flags = 12) returns 13; out: -; in: C2 20 18 FF FF FF FF FF FF FF FF "
            "FF FF\nTARLOARM_ClrRESET()\nTARLOARM_SetRESET()\nTARLOARM_Close()\n");
  EXPECT_EQ(dir.read("trace.txt"),
            "# open probe S/N 123456\n# interface 5\n# speed 12000 kHz\n# reset low\n"
            "9F FF FF FF FF FF FF FF FF FF FF FF FF FF\n# reset low\n# reset high\n# close\n");
}

}  // namespace
