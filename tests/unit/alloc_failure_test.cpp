// Allocation failures across the whole command-line walk, run as the
// program's main runs it: for every N, the Nth platform allocation of the run
// fails. Each run must end either exactly as the run without failures did, or
// with a reported error; whatever it reports as done (a file opened, a file
// saved, a chip programmed) must hold the data; and a sanitizer build finds
// no leak.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/cmdline.h"
#include "app/log.h"
#include "datafile/datafile.h"
#include "dataimage/memimage.h"
#include "sys/sys.h"
#include "tests/e2e/run_program.h"

// The leak checker's entry point, present only in sanitizer builds.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

constexpr int kLeaked = 42;

struct Outcome {
  int status = -1;       // exit status of the walk, -1 when it did not end normally
  bool reached = false;  // the armed allocation happened
  std::string out;
};

// Starts the walk of main() in `cwd`, in a child process of its own (the
// layers' program-wide state is set up once per process), with the nth
// allocation failing (0: none) and standard output captured.
pid_t StartWalk(const std::string& cwd, const std::vector<std::string>& args, uint32_t failAt) {
  fflush(stdout);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  alarm(60);  // a run that hangs ends as a failure
  const int fd = open((cwd + "/stdout.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || dup2(fd, 1) < 0 || chdir(cwd.c_str()) != 0) _exit(99);
  close(fd);
  setenv("HOME", cwd.c_str(), 1);
  setenv("TARLOSIM_FLASH", (cwd + "/flash.bin").c_str(), 1);
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
  if (reached) close(open("reached.txt", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  // In a sanitizer build, a leak is told by an exit status of its own.
  if (__lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0) _exit(kLeaked);
  std::exit(status);
}

// Waits for a walk and collects what it left. Run times differ from run to
// run; nothing else in the log does.
Outcome FinishWalk(pid_t pid, const std::string& cwd) {
  Outcome o;
  int wstatus = 0;
  if (pid < 0 || waitpid(pid, &wstatus, 0) != pid) return o;
  if (WIFEXITED(wstatus)) o.status = WEXITSTATUS(wstatus);
  o.reached = access((cwd + "/reached.txt").c_str(), F_OK) == 0;
  static const std::regex kElapsed("Completed after [0-9.]+ seconds");
  o.out = std::regex_replace(StripCR(ReadFile(cwd + "/stdout.txt")), kElapsed, "Completed after T seconds");
  return o;
}

std::string Bytes(size_t n, unsigned seed) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>((i * 7 + seed) & 0xFF);
  return s;
}

// 300 bytes at 0 and 40 bytes at 0x10000.
const std::string kLow = Bytes(300, 3);
const std::string kHigh = Bytes(40, 11);

const char kProject[] =
    "[FLASH]\r\n  AutoDetect = 0\r\n  abID[3] = 0xC2,0x20,0x18\r\n  NumPages = 0x00000200\r\n"
    "  PageSizeShift = 8\r\n  SectorSizeShift = 16\r\n";

// Fresh inputs (the binary and S-record files hold the low range, the HEX
// file both), an erased chip, no outputs of an earlier run.
void Prepare(const TempDir& d) {
  MemImage* im = MEMIMAGE_Create();
  char err[256];
  MEMIMAGE_AddData(im, 0, static_cast<uint32_t>(kLow.size()), reinterpret_cast<const uint8_t*>(kLow.data()), -1);
  DATAFILE_WriteMot(im, d.file("d.mot").c_str(), err, sizeof err);
  MEMIMAGE_AddData(im, 0x10000, static_cast<uint32_t>(kHigh.size()), reinterpret_cast<const uint8_t*>(kHigh.data()),
                   -1);
  DATAFILE_WriteHex(im, d.file("d.hex").c_str(), err, sizeof err);
  MEMIMAGE_Delete(im);
  d.write("d.bin", kLow);
  d.write("chip.pellam", kProject);
  d.write("flash.bin", std::string(1 << 17, '\xFF'));
  for (const char* out :
       {"out.hex", "out.bin", "back.mot", "back.hex", ".config/Valmik/PellamSPI.ini", "reached.txt"}) {
    std::remove(d.file(out).c_str());
  }
}

bool Claims(const std::string& out, const std::string& line) { return out.find(line) != std::string::npos; }

class AllocFailure : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TARLOSIM_CHIP", "C22018", 1);
    setenv("TARLOSIM_SIZE", "128K", 1);
    for (const char* v : {"TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SN", "TARLOSIM_VTARGET", "TARLOSIM_STATS",
                          "TARLOSIM_TRACE", "SYS_DEBUG_LEVEL"}) {
      unsetenv(v);
    }
  }

  // Runs args without failures (the reference), then once for every
  // allocation of the run with just that one failing, several runs at a
  // time (a run mostly waits on the probe's settle times). `truthful`
  // checks what a run claims against the files it left in its directory.
  template <typename Check>
  void ForEachFailure(const std::vector<std::string>& args, Check truthful) {
    constexpr uint32_t kParallel = 16;
    TempDir dirs[kParallel];
    Prepare(dirs[0]);
    const Outcome ref = FinishWalk(StartWalk(dirs[0].path(), args, 0), dirs[0].path());
    ASSERT_EQ(ref.status, 0) << ref.out;
    truthful(ref.out, dirs[0]);
    uint32_t failures = 0;
    for (uint32_t first = 1; first < 20000; first += kParallel) {
      pid_t pids[kParallel];
      Outcome outcomes[kParallel];
      for (uint32_t i = 0; i < kParallel; i++) {
        Prepare(dirs[i]);
        pids[i] = StartWalk(dirs[i].path(), args, first + i);
      }
      for (uint32_t i = 0; i < kParallel; i++) outcomes[i] = FinishWalk(pids[i], dirs[i].path());
      for (uint32_t i = 0; i < kParallel; i++) {
        const Outcome& o = outcomes[i];
        const uint32_t n = first + i;
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
          EXPECT_TRUE(Claims(o.out, "ERROR: ")) << "allocation " << n << "\n"
                                                << o.out << "\nwithout failures:\n"
                                                << ref.out;
        }
        truthful(o.out, dirs[i]);
        if (::testing::Test::HasFailure() && ++failures > 3) return;
      }
    }
    ADD_FAILURE() << "the run never ran out of allocations";
  }
};

// A file written back right after each open shows whether the image the open
// reported held every byte of the file; a project opened first adds its own
// allocations. The HEX reader is walked by the saving test below.
TEST_F(AllocFailure, LoadingDataFiles) {
  const std::pair<std::string, std::string> opens[] = {{"d.mot", "back.mot"}, {"d.bin", "back.hex"}};
  std::map<std::string, std::string> written;  // as the run without failures wrote them
  ForEachFailure({"-openprj", "chip.pellam", "-open", "d.mot", "-saveas", "back.mot", "-open", "d.bin", "0x1000",
                  "-saveas", "back.hex"},
                 [&](const std::string& out, const TempDir& d) {
                   for (const auto& [in, back] : opens) {
                     if (written.count(back) == 0) written[back] = d.read(back);
                     const std::string opened = "Opening data file [" + in + "] ...\n- Data file opened successfully";
                     if (!Claims(out, opened)) continue;
                     EXPECT_TRUE(Claims(out, opened + " (300 bytes, 1 range)")) << out;
                     if (Claims(out, "Saving data file [" + back + "] ...\n- Data file saved successfully")) {
                       EXPECT_EQ(d.read(back), written[back]) << out;
                     }
                   }
                 });
}

// A save that runs out of memory says so and is not reported as saved;
// whatever is reported as saved holds all of its data.
TEST_F(AllocFailure, SavingDataFiles) {
  std::string savedHex;  // as the run without failures wrote it
  bool binOutOfMemory = false;
  ForEachFailure({"-open", "d.hex", "-saveas", "out.hex", "-saveas", "out.bin", "0-0x12B"}, [&](const std::string& out,
                                                                                                const TempDir& d) {
    if (savedHex.empty()) savedHex = d.read("out.hex");
    if (Claims(out, "Saving data file [out.hex] ...\n- Data file saved successfully")) {
      EXPECT_EQ(d.read("out.hex"), savedHex);
    }
    if (Claims(out, "Saving data file [out.bin] ...\n- Data file saved successfully")) {
      EXPECT_EQ(d.read("out.bin"), kLow);
    }
    binOutOfMemory |= Claims(out, "Saving data file [out.bin] ...\n- ERROR: Could not write file. Out of memory.\n");
  });
  EXPECT_NE(savedHex.find(":0C012000E3EAF1F8FF060D141B22293061\r\n:020000040001F9\r\n"), std::string::npos);
  EXPECT_TRUE(binOutOfMemory);
}

// Programming must never succeed with data the open did not have.
TEST_F(AllocFailure, AutoAndProgramOnTheSimulatedProbe) {
  ForEachFailure({"-openprj", "chip.pellam", "-open", "d.hex", "-auto", "-program"},
                 [&](const std::string& out, const TempDir& d) {
                   if (Claims(out, "Target erased, programmed and verified successfully.") ||
                       Claims(out, "- Target programmed successfully.")) {
                     const std::string flash = d.read("flash.bin");
                     ASSERT_EQ(flash.size(), 1u << 17);
                     EXPECT_EQ(flash.substr(0, kLow.size()), kLow);
                     EXPECT_EQ(flash.substr(0x10000, kHigh.size()), kHigh);
                   }
                 });
}

}  // namespace
