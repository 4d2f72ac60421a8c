// The program on the hardware bridge, as pellam-spi-bridge runs it: against
// the simulated serprog device (pseudo-terminal and TCP) and the simulated
// spidev with its GPIO reset line, each with an emulated chip behind it.
// Judged by the chip's contents, the exit status, the messages and what the
// devices counted.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "tests/e2e/run_program.h"

extern char** environ;

namespace {

const std::string kBin = PELLAM_BIN_DIR;
const std::string kBridge = PELLAM_BRIDGE_BIN;
constexpr size_t kChipSize = 1u << 20;  // C22014: 1 MiB in 64 KiB sectors

std::map<std::string, long> Stats(const std::string& text) {
  std::map<std::string, long> m;
  std::istringstream in(text);
  for (std::string k; in >> k;) in >> m[k];
  return m;
}

// One chip, its device and the runs of the program against it.
struct BridgeRig {
  TempDir dir;
  std::string flash = dir.file("flash.bin");
  // Target power is asked for, which neither kind can switch.
  std::string project = "[FLASH]\n  AutoDetect = 1\n[PRODUCTION]\n  EnableTargetPower = 1\n  TargetPowerDelay = 0\n";
  std::string config;  // PELLAM_BRIDGE; empty: unset
  std::vector<std::string> env;
  pid_t device = -1;

  // The serprog device emulator, on a pseudo-terminal or a TCP port.
  void StartSerprog(bool tcp, std::vector<std::string> opts = {}) {
    const std::string at = dir.file(tcp ? "port" : "tty");
    std::vector<std::string> args = {kBin + "/tarlosim-serprog", tcp ? "--tcp" : "--pty", at, "--chip", "C22014",
                                     "--flash", flash, "--stats", dir.file("stats"), "--trace", dir.file("trace")};
    args.insert(args.end(), opts.begin(), opts.end());
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    ASSERT_EQ(posix_spawn(&device, argv[0], nullptr, nullptr, argv.data(), environ), 0);
    struct stat st;
    for (int i = 0; i < 1000 && lstat(at.c_str(), &st) != 0; i++) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(dir.exists(tcp ? "port" : "tty"));
    config = tcp ? "serprog:tcp:127.0.0.1:" + std::to_string(std::stoi(dir.read("port"))) : "serprog:" + at;
  }
  // The spidev fake, preloaded into the program.
  void UseSpidev(const std::string& fakeOptions, const std::string& configOptions = "") {
    config = "spidev:" + dir.file("spidev0.0") + configOptions;
    const char* asan = std::getenv("ASAN_OPTIONS");
    env = {"LD_PRELOAD=" + kBin + "/libtarlosim-spidev.so",
           "TARLOSIM_SPIDEV=dev=" + dir.file("spidev0.0") + ",gpio=" + dir.file("gpiochip0") + fakeOptions,
           "TARLOSIM_CHIP=C22014", "TARLOSIM_FLASH=" + flash, "TARLOSIM_SPIDEV_STATS=" + dir.file("stats"),
           "TARLOSIM_TRACE=" + dir.file("trace"),
           // The fake comes before the sanitizer's runtime in the sanitizer build.
           std::string("ASAN_OPTIONS=") + (asan ? asan : "") + ":verify_asan_link_order=0"};
  }
  ~BridgeRig() {
    if (device > 0) {
      kill(device, SIGTERM);
      waitpid(device, nullptr, 0);
    }
  }

  RunResult Run(std::vector<std::string> args, int timeout = 60) {
    dir.write("p.pellam", project);
    args.insert(args.begin(), {"-openprj", dir.file("p.pellam")});
    std::vector<std::string> e = env;
    e.push_back("HOME=" + dir.path());
    if (!config.empty()) e.push_back("PELLAM_BRIDGE=" + config);
    RunResult r = RunProgram(args, dir.path(), e, timeout, kBridge);
    r.out = StripCR(r.out);
    return r;
  }
  std::map<std::string, long> DeviceStats() const { return Stats(dir.read("stats")); }
};

std::string InitSequence() {
  // Chip select by TMS around a JEDEC ID read, then a check of its first
  // byte; at the end a write-disable frame.
  return "[CPU]\n  NumInitSteps = 5\n  NumExitSteps = 3\n"
         "  ExitStep0_Action = \"Activate CS\"\n  ExitStep2_Action = \"Deactivate CS\"\n"
         "  ExitStep1_Action = \"Write Data\"\n  ExitStep1_Value0 = 0x00000001\n  ExitStep1_Value1[1] = 0x04\n"
         "  InitStep0_Action = \"Activate CS\"\n"
         "  InitStep1_Action = \"Write Data\"\n  InitStep1_Value0 = 0x00000001\n  InitStep1_Value1[1] = 0x9F\n"
         "  InitStep2_Action = \"Var Read Data\"\n  InitStep2_Value0 = 0x00000000\n  InitStep2_Value1 = 0x00000003\n"
         "  InitStep3_Action = \"Deactivate CS\"\n"
         "  InitStep4_Action = \"Var Verify Byte\"\n  InitStep4_Value0 = 0x00000000\n  InitStep4_Value1 = 0x000000C2\n";
}

// -auto onto a chip with old contents, -verify, -readchip: the chip ends up
// with exactly the image, unchanged sectors are not touched, the read-back
// equals the chip, the init sequence's frames work where the device can
// hold chip select, and no device limit was overrun.
TEST(Bridge, ProgramVerifyAndReadBackOnEveryKindOfDevice) {
  struct Case {
    const char* name;
    enum { Pty, Tcp, ProjectHost, Spidev } kind;
    std::vector<std::string> opts;  // serprog emulator options, or the spidev fake's
    std::string configOptions;
    bool holdsCs;  // the device can keep chip select across operations
  };
  const Case cases[] = {
      {"serprog on a tty", Case::Pty, {}, ",baud=115200", true},
      {"serprog over TCP", Case::Tcp, {"--latency-us", "125"}, ",vtarget=1800", true},
      {"project's host name", Case::ProjectHost, {}, "", true},
      {"old firmware",
       Case::Pty,
       {"--no-limits", "--drop", "0x14,0x16,0x17,0x18", "--silent-unknown", "--latency-us", "125"},
       "",
       false},
      {"small limits", Case::Pty, {"--serbuf", "64", "--wrmax", "128", "--rdmax", "1000"}, "", true},
      {"spidev", Case::Spidev, {}, ",reset=GPIO:7", true},
      {"spidev, no sysfs, small buffer", Case::Spidev, {",sysfs=0,bufsiz=1024"}, ",reset=GPIO:3,reset-active=high", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    BridgeRig rig;
    std::string old = Pattern(kChipSize, 3);
    old.replace(0x40000, 0x10000, std::string(0x10000, '\xFF'));
    rig.dir.write("flash.bin", old);
    if (c.kind == Case::Spidev) {
      rig.UseSpidev(c.opts.empty() ? "" : c.opts[0], std::string(c.configOptions).replace(
                                                            c.configOptions.find("GPIO"), 4, rig.dir.file("gpiochip0")));
    } else {
      rig.StartSerprog(c.kind != Case::Pty, c.opts);
      if (c.kind == Case::ProjectHost) {
        rig.project += "[GENERAL]\n  ConnectMode = 2\n  HostName = \"" + rig.config.substr(12) + "\"\n";
        rig.config.clear();
      } else {
        rig.config += c.configOptions;
      }
    }
    if (!c.holdsCs) {
      // The sequence's read inside its chip-select frame needs chip select
      // held across operations: the step fails with the reason.
      const std::string base = rig.project;
      rig.project += InitSequence();
      RunResult r = rig.Run({"-connect"});
      EXPECT_EQ(r.exitStatus, 1) << r.out;
      EXPECT_TRUE(Has(r, "lacks S_CS_MODE (chip select held across operations), which a frame that reads and then "
                         "goes on needs")) << r.out;
      EXPECT_TRUE(Has(r, "Could not perform custom init sequence.")) << r.out;
      rig.project = base;
    } else {
      rig.project += InitSequence();
    }
    // Sectors 1 and 3 change, 2 stays, 4 is blank and gets data.
    std::string image = old.substr(0x10000, 0x30000) + Pattern(0x10000, 9);
    image.replace(0x8000, 0x100, Pattern(0x100, 4));
    image.replace(0x28000, 0x100, std::string(0x100, '\xFF'));
    rig.dir.write("d.bin", image);
    const std::string want = old.substr(0, 0x10000) + image + old.substr(0x50000);
    // The second -auto finds nothing to do and ends with the exit sequence.
    RunResult r = rig.Run({"-tarlolog" + rig.dir.file("lib.log"), "-open", rig.dir.file("d.bin"), "0x10000", "-auto",
                           "-verify", "-readchip", "-saveas", rig.dir.file("dump.bin"), "-auto"});
    EXPECT_EQ(r.exitStatus, 0) << r.out << r.err;
    for (const char* line : {"Target erased, programmed and verified successfully.", "All loaded bytes verified OK!",
                             "Target memory read successfully. (1048576 bytes"})
      EXPECT_TRUE(Has(r, line)) << line << "\n" << r.out;
    EXPECT_FALSE(Has(r, "ERROR")) << r.out;
    // The library's log: the calls, what the device said about itself, the clock.
    const std::string log = rig.dir.read("lib.log");
    for (const char* line : {"TARLOARM_ExecCommand(\"SupplyPower = 1\")\n# accepted, but", "TARLOARM_OpenEx()\n# s",
                             c.kind == Case::Spidev ? "): SPI clock 4000000 Hz\n" : "TARLOARM_SetSpeed(4000)",
                             "TARLO_SPI_Batch(160 jobs)\n", "TARLOARM_Close()\n# closed\n"})
      EXPECT_TRUE(log.find(line) != std::string::npos) << line << "\n" << log;
    EXPECT_TRUE(rig.dir.read("flash.bin") == want);
    EXPECT_TRUE(rig.dir.read("dump.bin") == want);
    const auto stats = rig.DeviceStats();
    if (c.kind == Case::Spidev) {
      // The exit sequence's frame reaches the chip before the target leaves
      // reset, and the line is let go out of reset.
      const bool low = c.configOptions.find("high") == std::string::npos;
      const std::string line = low ? "7" : "3";
      EXPECT_TRUE(rig.dir.read("trace").ends_with("\n04\n# reset line " + line + " = " + (low ? "1" : "0") +
                                                  "\n# reset line " + line + " released\n"));
      EXPECT_EQ(stats.at("emsgsize") > 0, !c.opts.empty());
    } else {
      EXPECT_EQ(stats.at("overflows") + stats.at("violations"), 0);
    }
    // Sector erases: only the two that change.
    EXPECT_EQ(Count(rig.dir.read("trace"), "\nD8 "), 2u);
  }
}

// Whatever goes wrong ends with exit 1 and one message a user can act on,
// within a few seconds, and a job cut short is never reported as done.
TEST(Bridge, BadConfigurationAndFailingDevicesEndWithAClearError) {
  struct Case {
    const char* name;
    std::string config;  // "@tty", "@tcp" or "@spidev" start the device; the rest is appended
    std::vector<std::string> opts;
    std::vector<std::string> args;
    const char* message;
  };
  const std::vector<std::string> autoArgs = {"-open", "d.bin", "0", "-auto"};
  const Case cases[] = {
      {"unset", "", {}, {"-connect"}, "PELLAM_BRIDGE is not set: it names the adapter, as serprog:DEVICE"},
      {"malformed", "serprog:/dev/ttyACM0,speed=9", {}, {"-connect"},
       "PELLAM_BRIDGE: \"speed=9\" is not a valid option. Expected serprog:DEVICE"},
      {"no such device", "serprog:/nonexistent/tty", {}, {"-connect"},
       "serprog device /nonexistent/tty cannot be opened (No such file or directory)"},
      {"silent device", "@tty", {"--stop-after", "0"}, {"-connect"}, "does not answer the serprog sync sequence"},
      {"other interface version", "@tcp", {"--iface", "2"}, {"-connect"},
       "speaks serprog interface version 2; this program speaks version 1"},
      {"chip select without S_SPI_CS", "@tty,cs=1", {"--drop", "0x16"}, {"-connect"},
       "lacks S_SPI_CS, which cs=1 needs"},
      {"other serial number", "@tty,sn=7", {}, {"-select", "USB=5", "-connect"}, "Tarlo with SN 5 not found."},
      {"device held by another program", "@held", {}, {"-connect"}, "is in use by another program"},
      {"stops answering mid-program", "@tty", {"--stop-after", "120"}, autoArgs,
       "stopped answering (nothing for 2 s)"},
      {"unplugged mid-program", "@tty", {"--vanish-after", "120"}, autoArgs, "was disconnected"},
      {"garbage mid-program", "@tcp", {"--garbage-after", "120"}, autoArgs, "where ACK or NAK was expected"},
      {"reads too long for the device", "@tty", {"--rdmax", "64", "--drop", "0x18"}, {"-readchip"},
       "lacks S_CS_MODE (chip select held across operations), which a frame reading 131072 bytes (it returns 64 "
       "per operation) needs"},
      {"spidev unplugged mid-program", "@spidev", {",fail-after=40"}, autoArgs, "failed a transfer (Input/output error)"},
      {"reset line held elsewhere", "@spidev,reset=GPIO:7", {",busy-line=7"}, {"-connect"},
       "cannot be requested (Device or resource busy: another program holds it)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    BridgeRig rig;
    rig.dir.write("flash.bin", std::string(kChipSize, '\xFF'));
    rig.dir.write("d.bin", Pattern(0x40000, 5));
    std::string rest = c.config;
    int held = -1;
    if (c.config.starts_with("@spidev")) {
      rest = c.config.substr(7);
      if (rest.find("GPIO") != std::string::npos) rest.replace(rest.find("GPIO"), 4, rig.dir.file("gpiochip0"));
      rig.UseSpidev(c.opts[0], rest);
    } else if (c.config.starts_with("@")) {
      rig.StartSerprog(c.config.starts_with("@tcp"), c.opts);
      if (c.config == "@held") {
        held = open(rig.dir.file("tty").c_str(), O_RDWR | O_NOCTTY);
        ASSERT_EQ(flock(held, LOCK_EX), 0);
      } else {
        rig.config += c.config.substr(4);
      }
    } else {
      rig.config = c.config;
    }
    const auto start = std::chrono::steady_clock::now();
    RunResult r = rig.Run(c.args);
    if (held >= 0) close(held);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    EXPECT_EQ(r.exitStatus, 1) << r.out;
    EXPECT_EQ(Count(r.out, c.message), 1u) << r.out;
    EXPECT_FALSE(Has(r, "Target erased, programmed and verified successfully.")) << r.out;
  }
}

}  // namespace
