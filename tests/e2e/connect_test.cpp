// Connecting to the probe end to end: the project's connection settings,
// chip detection and ID verification, the init and exit sequences (Ctrl-C in
// them included), every way a connection can fail, and the simulated chip's
// own safety: one run at a time, and contents that are never lost silently.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/sim_rig.h"

namespace {

using namespace std::chrono_literals;

// ---- Probe selection and connection faults ----

// Two probes, S/N 111 and 222. Detection names the chip; a stored ID is only
// compared, continuation codes left out (so the 7F 9D 46 row never matches).
TEST(Connect, ProjectSettingsChooseTheProbeAndFaultsFailWithTheirMessage) {
  const char* host = "[GENERAL]\n  ConnectMode = 2\n  HostName = \"lab-7\"\n";
  struct Case {
    const char* name;
    bool ok;
    std::string project;  // before [FLASH] AutoDetect = 1
    std::vector<std::string> env, args;
    std::vector<std::string> lines;
    const char* call;    // in the probe's call log
    const char* opened;  // the serial number the trace names at the open; null: none
  };
  const Case cases[] = {
      {"serial number", true, "[GENERAL]\n  ConnectMode = 1\n  USBSerialNo = 0x000000DE\n", {"TARLOSIM_VTARGET=1800"},
       {"-connect", "-connect"},  // the second does nothing
       {"Connecting via USB to Tarlo with SN 222", "VTarget = 1.800V"}, "TARLOARM_EMU_SelectByUSBSN(222) returns 0",
       "222"},
      {"USB index", true, "[GENERAL]\n  USBPort = 1\n", {}, {"-connect"},
       {"Connecting via USB to Tarlo device 1", "Read SPI Flash Id = 0xC2 20 18\n",
        "Found SPI Flash: Macronix MX25L12873F"},
       "TARLOARM_SelectUSB(1)", "222"},
      {"continuation code", false, "", {"TARLOSIM_CHIP=7F9D46"}, {"-connect"},
       {"Read SPI Flash Id = 0x9D 46 FF\n", "ERROR: Failed to auto-detect SPI Flash."}, "", "111"},
      {"continuation code verified", true, "[FLASH]\n  AutoDetect = 0\n  abID[3] = 0x9D,0x46,0xFF\n",
       {"TARLOSIM_CHIP=7F9D46"}, {"-connect"}, {"Read SPI Flash Id = 0x9D 46 FF (Verified)"}, "", "111"},
      {"wrong chip", false, "[FLASH]\n  AutoDetect = 0\n  abID[3] = 0xC2,0x20,0x18\n", {"TARLOSIM_CHIP=EF4018"},
       {"-connect"}, {"Read SPI Flash Id = 0xEF 40 18 (Failed)", "ERROR: Failed to verify Flash Id"}, "", "111"},
      {"host name", true, host, {}, {"-connect"}, {"Connecting via TCP/IP to lab-7"},
       "TARLOARM_SelectIP(\"lab-7\", 0)", "111"},
      {"command line over project", true, host, {}, {"-select", "USB=111", "-connect"},
       {"Connecting via USB to Tarlo with SN 111"}, "TARLOARM_EMU_SelectByUSBSN(111) returns 0", "111"},
      {"after a failed connect", true, "", {}, {"-select", "USB=999", "-connect", "-select", "USB=222", "-connect"},
       {"ERROR: Tarlo with SN 999 not found.\nCheck the project settings and your connected Tarlo."},
       "TARLOARM_EMU_SelectByUSBSN(222) returns 0", "222"},
      {"target powered by the probe", true, "[PRODUCTION]\n  EnableTargetPower = 1\n  TargetPowerDelay = 0x00000000\n",
       {"TARLOSIM_VTARGET=0"}, {"-connect"}, {"VTarget = 3.300V"},
       "TARLOARM_ExecCommand(\"SupplyPower = 1\") returns 0", "111"},
      {"unknown serial number", false, "[GENERAL]\n  ConnectMode = 1\n  USBSerialNo = 0x00000100\n", {}, {"-connect"},
       {"ERROR: Tarlo with SN 256 not found."}, "TARLOARM_EMU_SelectByUSBSN(256) returns -1", nullptr},
      {"unreachable host", false, host, {"TARLOSIM_FAULT=ip-unreachable"}, {"-connect"},
       {"ERROR: Cannot connect to the probe at \"lab-7\": host unreachable."}, "TARLOARM_SelectIP", nullptr},
      {"no probe", false, "", {"TARLOSIM_SN="}, {"-connect"},
       {"ERROR: Cannot connect to the probe: no probe found on USB."},
       "TARLOARM_OpenEx", nullptr},
      {"no SPI", false, "", {"TARLOSIM_FAULT=no-spi"}, {"-connect"},
       {"ERROR: The connected probe (S/N 111) does not support the SPI interface"}, "TARLOARM_Close()", "111"},
      {"low power", false, "", {"TARLOSIM_VTARGET=999"}, {"-connect"}, {"ERROR: Target system has no power"}, "",
       "111"},
      // A FIFO must not hang the run either.
      {"contents file a folder", false, "", {"TARLOSIM_FLASH=folder"}, {"-connect"},
       {"ERROR: Cannot read the flash contents file folder: Is a directory"}, "", nullptr},
      {"contents file a FIFO", false, "", {"TARLOSIM_FLASH=fifo"}, {"-connect"},
       {"ERROR: Cannot read the flash contents file fifo: not a regular file"}, "", nullptr},
      {"contents file a dangling link", false, "", {"TARLOSIM_FLASH=link"}, {"-connect"},
       {"ERROR: Cannot create the flash contents file link: it is a link to a missing file"}, "", nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Rig rig;
    rig.project = c.project + "[FLASH]\n  AutoDetect = 1\n";  // the first section of a name counts
    ASSERT_EQ(mkdir(rig.dir.file("folder").c_str(), 0755), 0);
    ASSERT_EQ(mkfifo(rig.dir.file("fifo").c_str(), 0644), 0);
    ASSERT_EQ(symlink("missing", rig.dir.file("link").c_str()), 0);
    std::vector<std::string> env = {"TARLOSIM_SN=111,222"}, args = {"-tarlolog", rig.dir.file("probe.log")};
    env.insert(env.end(), c.env.begin(), c.env.end());
    args.insert(args.end(), c.args.begin(), c.args.end());
    RunResult r = rig.Run(args, env, 60);
    EXPECT_EQ(r.exitStatus, c.ok ? 0 : 1) << r.out;
    size_t idLines = c.ok;  // a failed identity check shows the ID too
    for (const std::string& line : c.lines) {
      EXPECT_TRUE(Has(r, line)) << line << "\n" << r.out;
      if (!c.ok) idLines += Count(line, "Read SPI Flash Id");
    }
    EXPECT_EQ(Count(r.out, "Connected successfully"), c.ok ? 1u : 0u) << r.out;
    EXPECT_EQ(Count(r.out, "Read SPI Flash Id"), idLines) << r.out;
    EXPECT_EQ(rig.FramesWith(0x9F).size(), idLines) << "the ID is read once, with 0x9F";
    EXPECT_NE(rig.dir.read("probe.log").find(c.call), std::string::npos) << c.call;
    const std::string trace = rig.dir.read("trace.txt");
    EXPECT_EQ(trace.find("# open probe S/N"), c.opened ? trace.find(std::string("# open probe S/N ") + c.opened + "\n")
                                                       : std::string::npos) << trace;
  }
}

// ---- Init and exit sequences ----

std::string Steps(const char* list, std::vector<std::vector<std::string>> steps) {
  std::string text = "[CPU]\n  Num" + std::string(list) + "Steps = " + std::to_string(steps.size()) + "\n";
  for (size_t i = 0; i < steps.size(); i++) {
    const std::string key = "  " + std::string(list) + "Step" + std::to_string(i) + "_";
    text += key + "Action = \"" + steps[i][0] + "\"\n";
    for (size_t v = 1; v < steps[i].size(); v++) text += key + steps[i][v] + "\n";
  }
  return text;
}

// The sequence runs once the connect has ended. A failing step is shown,
// but the connection stays and the exit status is that of the last action.
TEST(Connect, InitSequenceDrivesChipSelectAndTheVariableBuffer) {
  Rig rig;
  rig.project = "[FLASH]\n  AutoDetect = 1\n" +
                Steps("Init", {{"Activate CS"},
                               {"Write Data", "Value0 = 0x00000001", "Value1[1] = 0x9F"},
                               {"Var Read Data", "Value0 = 0x00000004", "Value1 = 0x00000003"},
                               {"Deactivate CS"},
                               {"Var Verify Byte", "Value0 = 0x00000005", "Value1 = 0x00000020"},
                               {"Comment", "Comment = \"chip answered\""},
                               {"Var Verify Byte", "Value0 = 0x00000002", "Value1 = 0x00000055"}});
  RunResult r = rig.Run({"-connect", "-readrange0x0,0xFF"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  size_t from = r.out.find("Connected successfully");
  for (const char* line : {"Executing init sequence ...", "Executing Write Data - 0x9F",
                           "Read Data - 0xC2, 0x20, 0x18", "Verifying...O.K.", "//\n   // chip answered\n   //",
                           "ERROR: Verification failed @ VarBufferIndex 2: Expected: 0x55, Found: 0x00",
                           "Failed to connect.\nCould not perform custom init sequence.",
                           "Target memory read successfully."}) {
    from = r.out.find(line, from);
    ASSERT_NE(from, std::string::npos) << line << "\n" << r.out;
  }
  EXPECT_FALSE(Has(r, "Executed successfully")) << r.out;
  EXPECT_EQ(Count(r.out, "Connecting ..."), 1u) << r.out;
  // The sequence's own frame, between its chip-select steps.
  EXPECT_EQ(rig.FramesWith(0x9F).back(), (Frame{0x9F, 0xFF, 0xFF, 0xFF}));
}

// A branch back to itself loops until Ctrl-C; the sequence then ends as
// failed and the run goes on with the next action.
TEST(Connect, CtrlCEndsAnEndlessSequence) {
  const std::vector<std::vector<std::string>> loop = {{"Var OR", "Value0 = 0x00000003", "Value1 = 0x00000001"},
                                                      {"Var BNE", "Value0 = 0x00000003", "Value1 = 0x00000001"}};
  for (const char* list : {"Init", "Exit"}) {
    SCOPED_TRACE(list);
    Rig rig;
    rig.project = "[FLASH]\n  AutoDetect = 1\n" + Steps(list, loop);
    rig.dir.write("d.bin", Pattern(0x1000, 1));
    const std::vector<std::string> args = {"-verbose1", "-connect", "-open", rig.dir.file("d.bin"), "0x0", "-auto",
                                           "-readrange0x0,0xFF"};
    RunResult r = rig.Run(args, {}, 60, {"/usr/bin/timeout", "--preserve-status", "-s", "INT", "-k", "10", "1"});
    EXPECT_EQ(r.exitStatus, 0) << r.out;
    EXPECT_EQ(Has(r, "Could not perform custom init sequence."), list == std::string("Init")) << r.out;
    EXPECT_TRUE(Has(r, "Target memory read successfully.")) << r.out;
    EXPECT_EQ(ReadFile(rig.flash).substr(0, 0x1000), Pattern(0x1000, 1));
  }
}

// ---- The simulated chip's safety ----

// Waits (bounded) until path exists. The simulated probe starts its trace
// only once it holds and has loaded the contents file; the contents file
// itself exists earlier, while the probe still checks that its path leads
// to the file it locked.
bool WaitFor(const std::string& path) {
  struct stat st;
  for (auto end = std::chrono::steady_clock::now() + 30s; std::chrono::steady_clock::now() < end;) {
    if (stat(path.c_str(), &st) == 0) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

// An init sequence that keeps the probe open for a while after connecting.
std::string Hold(const std::string& ms) {
  return "[FLASH]\n  AutoDetect = 1\n" + Steps("Init", {{"Delay", "Value0 = " + ms}});
}

TEST(SimSafety, SecondRunOnTheSameChipIsRefused) {
  Rig rig;
  rig.dir.write("a.bin", Pattern(512, 1));
  rig.dir.write("b.bin", Pattern(512, 2));
  Rig second;
  second.flash = rig.flash;
  RunResult first;
  rig.project = Hold("0x000007D0");
  std::thread holder([&] { first = rig.Run({"-open", rig.dir.file("a.bin"), "0x0", "-connect", "-program"}); });
  ASSERT_TRUE(WaitFor(rig.dir.file("trace.txt")));
  std::this_thread::sleep_for(300ms);
  RunResult refused = second.Run({"-open", rig.dir.file("b.bin"), "0x0", "-program"});
  holder.join();
  EXPECT_EQ(refused.exitStatus, 1) << refused.out;
  EXPECT_TRUE(Has(refused, "ERROR: Cannot connect to the probe: the probe is in use by another program "
                           "(its flash contents file " + rig.flash + " is locked).")) << refused.out;
  EXPECT_FALSE(Has(refused, "Target programmed successfully.")) << refused.out;
  EXPECT_EQ(first.exitStatus, 0) << first.out;
  EXPECT_EQ(ReadFile(rig.flash).substr(0, 512), Pattern(512, 1));
}

// The contents file's folder is replaced by a file while the probe is open:
// changes cannot be written back when the probe closes, be it by -disconnect
// or at the end of the run; without a change nothing is written, so nothing
// can fail.
TEST(SimSafety, FailedWriteBackEndsTheRunWithAnError) {
  const struct { const char* name; const char* action; const char* close; } cases[] = {
      {"closed at the end of the run", "-program", nullptr},
      {"closed by -disconnect", "-program", "-disconnect"},
      {"nothing changed", "-connect", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Rig rig;
    rig.project = Hold("0x000007D0");
    rig.dir.write("a.bin", Pattern(512, 1));
    const std::string folder = rig.dir.file("chip");
    rig.flash = folder + "/flash.bin";
    std::vector<std::string> args = {"-open", rig.dir.file("a.bin"), "0x0", "-connect", c.action};
    if (c.close) args.push_back(c.close);
    RunResult r;
    std::thread run([&] { r = rig.Run(args); });
    const bool opened = WaitFor(rig.dir.file("trace.txt"));
    if (opened) {
      std::rename(folder.c_str(), rig.dir.file("chip.old").c_str());
      rig.dir.write("chip", "not a folder");
    }
    run.join();
    ASSERT_TRUE(opened);
    const bool changed = c.action == std::string("-program");
    EXPECT_EQ(r.exitStatus, changed ? 1 : 0) << r.out;
    EXPECT_EQ(Has(r, "Target programmed successfully."), changed) << r.out;
    EXPECT_EQ(Count(r.out, "ERROR: Cannot write back the flash contents file " + rig.flash +
                               ": Not a directory. The chip's changes since the probe was opened are lost."),
              changed ? 1u : 0u)
        << r.out;
    EXPECT_EQ(rig.dir.read("chip.old/flash.bin").substr(0, 512), std::string(512, '\xFF'));
  }
}

}  // namespace
