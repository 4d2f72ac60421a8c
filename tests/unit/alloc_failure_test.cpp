// Allocation failures across the whole command-line walk, run as the
// program's main runs it: for every N, the Nth platform allocation of the run
// fails. Each run must end either exactly as the run without failures did, or
// with a reported error; whatever it reports as done (a file opened, a file
// saved, a chip programmed) must hold the data; and a sanitizer build finds
// no leak.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/cmdline.h"
#include "app/log.h"
#include "sys/sys.h"
#include "tests/e2e/run_program.h"

// The leak checker's entry point, present only in sanitizer builds.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

// Run times differ from run to run; nothing else in the log does.
std::string Normalise(const std::string& s) {
  static const std::regex kElapsed("Completed after [0-9.]+ seconds");
  return std::regex_replace(StripCR(s), kElapsed, "Completed after T seconds");
}

constexpr int kLeaked = 42;

struct Outcome {
  int status = -1;         // exit status of the walk, -1 when it did not end normally
  bool reached = false;    // the armed allocation happened
  std::string out;
};

// The walk of main() in `cwd`, in a child process of its own (the layers'
// program-wide state is set up once per process), with the nth allocation
// failing (0: none) and standard output captured.
Outcome RunWalk(const std::string& cwd, const std::vector<std::string>& args, uint32_t failAt) {
  const std::string outPath = cwd + "/stdout.txt";
  const std::string reachedPath = cwd + "/reached.txt";
  std::remove(reachedPath.c_str());
  fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0) {
    const int fd = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || dup2(fd, 1) < 0 || chdir(cwd.c_str()) != 0) _exit(99);
    close(fd);
    std::vector<std::string> all{"pellam-spi"};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    SYS_TEST_FailAllocation(failAt);
    SYS_Init(0);
    APP_Init();
    const int walk = CMDLINE_Execute(static_cast<int>(all.size()), argv.data());
    const int status = walk < 0 ? 255 : (LOG_GetErrorCount() != 0 ? 1 : 0);
    APP_Exit();
    SYS_Exit();
    const bool reached = failAt != 0 && SYS_TEST_AllocFailurePending() == 0;
    SYS_TEST_FailAllocation(0);
    if (reached) {
      const int r = open(reachedPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      if (r >= 0) close(r);
    }
    // In a sanitizer build, a leak is told by an exit status of its own.
    if (__lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0) _exit(kLeaked);
    std::exit(status);
  }
  Outcome o;
  if (pid < 0) return o;
  int wstatus = 0;
  for (int waited = 0; waitpid(pid, &wstatus, WNOHANG) == 0; waited += 10) {
    if (waited >= 60000) {
      kill(pid, SIGKILL);
      waitpid(pid, &wstatus, 0);
      o.out = "(killed after 60 s)";
      return o;
    }
    usleep(10000);
  }
  if (WIFEXITED(wstatus)) o.status = WEXITSTATUS(wstatus);
  o.reached = access(reachedPath.c_str(), F_OK) == 0;
  o.out = Normalise(ReadFile(outPath));
  return o;
}

std::string Bytes(size_t n, unsigned seed) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>((i * 7 + seed) & 0xFF);
  return s;
}

// One text record: its head, then the bytes in hex, then the checksum the
// format asks for over all of them.
std::string Record(const char* head, std::vector<uint8_t> b, const std::string& data, bool ones) {
  b.insert(b.end(), data.begin(), data.end());
  unsigned sum = 0;
  std::string line = head;
  char two[3];
  for (uint8_t v : b) {
    sum += v;
    std::snprintf(two, sizeof two, "%02X", v);
    line += two;
  }
  std::snprintf(two, sizeof two, "%02X", (ones ? ~sum : 0x100 - (sum & 0xFF)) & 0xFF);
  return line + two + "\r\n";
}

std::string HexRecord(uint32_t address, const std::string& data, int type = 0) {
  return Record(":", {static_cast<uint8_t>(data.size()), static_cast<uint8_t>(address >> 8),
                      static_cast<uint8_t>(address), static_cast<uint8_t>(type)},
                data, false);
}

std::string SRecord(uint32_t address, const std::string& data) {
  return Record("S1", {static_cast<uint8_t>(data.size() + 3), static_cast<uint8_t>(address >> 8),
                       static_cast<uint8_t>(address)},
                data, true);
}

// 300 bytes at 0 and 40 bytes at 0x10000, in 16-byte records.
const std::string kLow = Bytes(300, 3);
const std::string kHigh = Bytes(40, 11);

std::string HexFile() {
  std::string s;
  for (size_t i = 0; i < kLow.size(); i += 16) s += HexRecord(static_cast<uint32_t>(i), kLow.substr(i, 16));
  s += HexRecord(0, std::string("\x00\x01", 2), 4);
  for (size_t i = 0; i < kHigh.size(); i += 16) s += HexRecord(static_cast<uint32_t>(i), kHigh.substr(i, 16));
  return s + ":00000001FF\r\n";
}

std::string MotFile() {
  std::string s;
  for (size_t i = 0; i < kLow.size(); i += 16) s += SRecord(static_cast<uint32_t>(i), kLow.substr(i, 16));
  return s + "S9030000FC\r\n";
}

const char kProject[] =
    "[FLASH]\r\n  AutoDetect = 0\r\n  abID[3] = 0xC2,0x20,0x18\r\n  NumPages = 0x00001000\r\n"
    "  PageSizeShift = 8\r\n  SectorSizeShift = 16\r\n";

class AllocFailure : public ::testing::Test {
 protected:
  TempDir dir;

  void SetUp() override {
    setenv("HOME", dir.path().c_str(), 1);
    setenv("TARLOSIM_FLASH", dir.file("flash.bin").c_str(), 1);
    setenv("TARLOSIM_CHIP", "C22018", 1);
    setenv("TARLOSIM_SIZE", "1M", 1);
    for (const char* v : {"TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SN", "TARLOSIM_VTARGET",
                          "TARLOSIM_STATS", "TARLOSIM_TRACE", "SYS_DEBUG_LEVEL"}) {
      unsetenv(v);
    }
  }

  // Fresh inputs, an erased chip, no outputs of an earlier run.
  void Prepare() {
    dir.write("d.hex", HexFile());
    dir.write("d.mot", MotFile());
    dir.write("d.bin", kLow);
    dir.write("chip.pellam", kProject);
    dir.write("flash.bin", std::string(1 << 20, '\xFF'));
    std::remove(dir.file("out.hex").c_str());
    std::remove(dir.file("out.bin").c_str());
    std::remove(dir.file("back.mot").c_str());
    std::remove(dir.file(".config/Valmik/PellamSPI.ini").c_str());
  }

  // Runs args without failures (the reference), then once for every
  // allocation of the run with just that one failing. `truthful` checks
  // what a run claims against the files it left.
  template <typename Check>
  void ForEachFailure(const std::vector<std::string>& args, Check truthful) {
    Prepare();
    const Outcome ref = RunWalk(dir.path(), args, 0);
    ASSERT_EQ(ref.status, 0) << ref.out;
    truthful(ref.out);
    uint32_t failures = 0;
    for (uint32_t n = 1; n < 20000; n++) {
      Prepare();
      const Outcome o = RunWalk(dir.path(), args, n);
      if (!o.reached) {
        EXPECT_EQ(o.status, 0) << o.out;
        EXPECT_EQ(o.out, ref.out);
        EXPECT_GT(n, 1u);
        return;
      }
      // The status is that of the last action, so a run may end 0 after an
      // earlier action failed; what counts is that every failure is told.
      EXPECT_TRUE(o.status == 0 || o.status == 1) << "allocation " << n << "\n" << o.out;
      if (o.out != ref.out) {
        EXPECT_NE(o.out.find("ERROR: "), std::string::npos)
            << "allocation " << n << "\n" << o.out << "\nwithout failures:\n" << ref.out;
      }
      truthful(o.out);
      if (::testing::Test::HasFailure() && ++failures > 3) return;
    }
    ADD_FAILURE() << "the run never ran out of allocations";
  }

  bool Claims(const std::string& out, const std::string& line) const { return out.find(line) != std::string::npos; }
};

// A file written back right after the open shows whether the image the open
// reported held every byte of the file.
TEST_F(AllocFailure, LoadingDataFiles) {
  struct Case {
    std::vector<std::string> args;
    const char* opened;
  } cases[] = {
      {{"-open", "d.hex"}, "Data file opened successfully (340 bytes, 2 ranges)"},
      {{"-open", "d.mot"}, "Data file opened successfully (300 bytes, 1 range)"},
      {{"-open", "d.bin", "0x1000"}, "Data file opened successfully (300 bytes, 1 range)"},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.args[1]);
    c.args.insert(c.args.end(), {"-saveas", "back.mot"});
    std::string written;  // as the run without failures wrote it
    ForEachFailure(c.args, [&](const std::string& out) {
      if (written.empty()) written = dir.read("back.mot");
      if (Claims(out, "Data file opened successfully")) {
        EXPECT_TRUE(Claims(out, c.opened)) << out;
        if (Claims(out, "Data file saved successfully")) {
          EXPECT_EQ(dir.read("back.mot"), written) << out;
        }
      }
    });
  }
}

TEST_F(AllocFailure, SavingDataFiles) {
  std::string savedHex;  // as the run without failures wrote it
  ForEachFailure({"-open", "d.hex", "-saveas", "out.hex", "-saveas", "out.bin", "0-0x12B"},
                 [&](const std::string& out) {
                   if (savedHex.empty()) {
                     savedHex = dir.read("out.hex");
                     ASSERT_NE(savedHex.find(":0C012000E3EAF1F8FF060D141B22293061\r\n:020000040001F9\r\n"),
                               std::string::npos);
                   }
                   if (Claims(out, "Saving data file [out.hex] ...\n- Data file saved successfully")) {
                     EXPECT_EQ(dir.read("out.hex"), savedHex);
                   }
                   if (Claims(out, "Saving data file [out.bin] ...\n- Data file saved successfully")) {
                     EXPECT_EQ(dir.read("out.bin"), kLow);
                   }
                 });
}

// Programming must never succeed with data the open did not have.
TEST_F(AllocFailure, AutoAndProgramOnTheSimulatedProbe) {
  ForEachFailure({"-openprj", "chip.pellam", "-open", "d.hex", "-auto", "-program"}, [&](const std::string& out) {
    const bool claimed = Claims(out, "Target erased, programmed and verified successfully.") ||
                         Claims(out, "- Target programmed successfully.");
    if (claimed) {
      const std::string flash = dir.read("flash.bin");
      ASSERT_EQ(flash.size(), 1u << 20);
      EXPECT_EQ(flash.substr(0, kLow.size()), kLow);
      EXPECT_EQ(flash.substr(0x10000, kHigh.size()), kHigh);
    }
  });
}

TEST_F(AllocFailure, OpeningAProject) {
  ForEachFailure({"-openprj", "chip.pellam", "-open", "d.bin", "0", "-saveas", "out.bin", "0-0x12B"},
                 [&](const std::string& out) {
                   if (Claims(out, "Data file saved successfully")) {
                     EXPECT_EQ(dir.read("out.bin"), kLow);
                   }
                 });
}

}  // namespace
