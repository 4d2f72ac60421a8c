// The simulated chip never loses data silently: a second run on the same
// chip while one holds the probe, a bad simulator setting, a contents file
// that cannot be read, and one that cannot be written back all end the run
// with an error and exit status 1, the contents file untouched.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

using namespace std::chrono_literals;

std::string Pattern(size_t n, int seed) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>((i * 7 + static_cast<size_t>(seed)) & 0xFF);
  return s;
}

struct Rig {
  TempDir dir;
  std::string flash = dir.file("flash.bin");

  Rig() {
    dir.write("a.bin", Pattern(512, 1));
    dir.write("b.bin", Pattern(512, 2));
    // An init sequence that keeps the probe open for a while after connecting.
    HoldProject(4000);
  }
  void HoldProject(unsigned ms) {
    char delay[16];
    std::snprintf(delay, sizeof delay, "0x%.8X", ms);
    dir.write("hold.pellam", std::string("[FLASH]\r\n  AutoDetect = 1\r\n[SPI]\r\n[CPU]\r\n  NumInitSteps = 1\r\n") +
                                 "  InitStep0_Action = \"Delay\"\r\n  InitStep0_Value0 = " + delay + "\r\n");
  }
  // args after "-openprj hold.pellam" when hold is set.
  RunResult Run(std::vector<std::string> args, bool hold = false, std::vector<std::string> env = {},
                int timeout = 60) {
    if (hold) args.insert(args.begin(), {"-openprj", dir.file("hold.pellam")});
    std::vector<std::string> e = {"TARLOSIM_CHIP=C22018", "TARLOSIM_FLASH=" + flash, "HOME=" + dir.path(),
                                  "TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SIZE", "TARLOSIM_SN",
                                  "TARLOSIM_VTARGET", "TARLOSIM_TRACE", "TARLOSIM_STATS"};
    e.insert(e.end(), env.begin(), env.end());
    RunResult r = RunProgram(args, dir.path(), e, timeout);
    r.out = StripCR(r.out);
    return r;
  }
};

// Waits (bounded) until path exists: the holding run has opened the probe.
bool WaitFor(const std::string& path) {
  struct stat st;
  for (auto end = std::chrono::steady_clock::now() + 30s; std::chrono::steady_clock::now() < end;) {
    if (stat(path.c_str(), &st) == 0) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

TEST(SimSafety, SecondRunOnTheSameChipIsRefusedAndNothingIsLost) {
  Rig rig;
  RunResult first;
  std::thread holder([&] {
    first = rig.Run({"-open", rig.dir.file("a.bin"), "0x0", "-connect", "-program"}, true);
  });
  ASSERT_TRUE(WaitFor(rig.flash));
  std::this_thread::sleep_for(300ms);
  RunResult second = rig.Run({"-open", rig.dir.file("b.bin"), "0x0", "-program"});
  holder.join();
  EXPECT_EQ(second.exitStatus, 1) << second.out;
  EXPECT_TRUE(Has(second, "ERROR: Cannot connect to the probe: the probe is in use by another program "
                          "(its flash contents file " + rig.flash + " is locked).")) << second.out;
  EXPECT_FALSE(Has(second, "Target programmed successfully.")) << second.out;
  EXPECT_EQ(first.exitStatus, 0) << first.out;
  EXPECT_EQ(ReadFile(rig.flash).substr(0, 512), Pattern(512, 1));

  // Once the first run has ended the chip is free again.
  RunResult third = rig.Run({"-open", rig.dir.file("b.bin"), "0x0", "-auto"});
  EXPECT_EQ(third.exitStatus, 0) << third.out;
  EXPECT_EQ(ReadFile(rig.flash).substr(0, 512), Pattern(512, 2));
}

TEST(SimSafety, KilledRunLeavesNoLockBehind) {
  Rig rig;
  RunResult killed = rig.Run({"-connect"}, true, {}, 1);
  EXPECT_EQ(killed.exitStatus, -1) << "killed while the init sequence waits\n" << killed.out;
  RunResult next = rig.Run({"-open", rig.dir.file("a.bin"), "0x0", "-auto"});
  EXPECT_EQ(next.exitStatus, 0) << next.out;
  EXPECT_EQ(ReadFile(rig.flash).substr(0, 512), Pattern(512, 1));
}

TEST(SimSafety, MisspelledFaultIsRejectedWithItsName) {
  Rig rig;
  RunResult r = rig.Run({"-open", rig.dir.file("a.bin"), "0x0", "-auto"}, false, {"TARLOSIM_FAULT=erase-timout"});
  EXPECT_EQ(r.exitStatus, 1) << r.out;
  EXPECT_TRUE(Has(r, "ERROR: Bad simulator setting TARLOSIM_FAULT=\"erase-timout\": unknown fault \"erase-timout\""))
      << r.out;
  EXPECT_FALSE(Has(r, "successfully.")) << r.out;
  EXPECT_FALSE(rig.dir.exists("flash.bin"));
}

TEST(SimSafety, UnreadableContentsFileFailsTheRunNamingIt) {
  struct Case {
    const char* name;
    const char* reason;
  };
  // A FIFO must not hang the run either.
  const Case cases[] = {{"folder", "Is a directory"}, {"fifo", "not a regular file"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Rig rig;
    const std::string path = rig.dir.file(c.name);
    ASSERT_EQ(std::string(c.name) == "fifo" ? mkfifo(path.c_str(), 0644) : mkdir(path.c_str(), 0755), 0);
    RunResult r = rig.Run({"-open", rig.dir.file("a.bin"), "0x0", "-auto"}, false, {"TARLOSIM_FLASH=" + path}, 20);
    EXPECT_EQ(r.exitStatus, 1) << r.out;
    EXPECT_TRUE(Has(r, "ERROR: Cannot read the flash contents file " + path + ": " + c.reason)) << r.out;
    EXPECT_FALSE(Has(r, "successfully.")) << r.out;
  }
}

// The contents file's folder is replaced by a file while the probe is open:
// the changes cannot be written back when the probe closes, be it by
// -disconnect or at the end of the run.
TEST(SimSafety, FailedWriteBackEndsTheRunWithAnError) {
  const std::vector<std::vector<std::string>> tails = {{}, {"-disconnect"}};
  for (const auto& tail : tails) {
    SCOPED_TRACE(tail.empty() ? "closed at the end of the run" : "closed by -disconnect");
    Rig rig;
    rig.HoldProject(2000);
    const std::string folder = rig.dir.file("chip"), path = folder + "/flash.bin";
    std::vector<std::string> args = {"-open", rig.dir.file("a.bin"), "0x0", "-connect", "-program"};
    args.insert(args.end(), tail.begin(), tail.end());
    RunResult r;
    std::thread run([&] { r = rig.Run(args, true, {"TARLOSIM_FLASH=" + path}); });
    const bool opened = WaitFor(path);
    if (opened) {
      std::rename(folder.c_str(), rig.dir.file("chip.old").c_str());
      rig.dir.write("chip", "not a folder");
    }
    run.join();
    ASSERT_TRUE(opened);
    EXPECT_EQ(r.exitStatus, 1) << r.out;
    EXPECT_TRUE(Has(r, "Target programmed successfully.")) << r.out;
    EXPECT_TRUE(Has(r, "ERROR: Cannot write back the flash contents file " + path +
                           ": Not a directory. The chip's changes since the probe was opened are lost."))
        << r.out;
    EXPECT_EQ(rig.dir.read("chip.old/flash.bin").substr(0, 512), std::string(512, '\xFF'));
  }
}

}  // namespace
