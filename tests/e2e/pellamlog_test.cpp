// -pellamlog: the file holds exactly the bytes printed on standard output
// after the option, whatever they are (operation log with CR LF, plain
// "ERROR:"/"WARNING:" lines, help), up to the next -pellamlog or the end.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

const std::string kSample = std::string(PELLAM_SOURCE_DIR) + "/demo/sample.hex";

RunResult RunIn(const TempDir& dir, const std::vector<std::string>& args) {
  return RunProgram(args, dir.path(),
                    {"HOME=" + dir.path(), "TARLOSIM_FLASH=" + dir.file("flash.bin"), "TARLOSIM_CHIP",
                     "TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SIZE", "TARLOSIM_SN"});
}

// One log file given first: it holds the whole output after the start-up lines.
TEST(PellamLog, HoldsEverythingPrintedAfterTheOption) {
  struct Case {
    std::vector<std::string> args;
    int exitStatus;
    std::string logStart;      // what the copy begins with
    std::string inLog;         // a line the copy must hold
  };
  const std::vector<Case> cases = {
      // A successful job: the operation log, CR LF line ends included.
      {{"-open", kSample, "-auto"}, 0, "Opening data file [",
       "- Target erased, programmed and verified successfully.\r\n"},
      // A failing operation: its error lines and the failure text, then shutdown.
      {{"-open", kSample, "-verify"}, 1, "Opening data file [", "- ERROR: Failed to verify target.\r\n"},
      // Unconditional printers with bare line feeds, and a syntax error that ends the walk.
      {{"-bogus", "-verbose"}, 255, "WARNING: Unknown command line parameter -bogus found.\n",
       "ERROR: Missing command line parameter after option \"-verbose\".\n"},
      // The help.
      {{"-?"}, 0, "Available commands:\n", " -pellamlog<fname>                   Set a temporary Pellam log file\n"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    dir.write("run.log", "older contents, to be truncated");
    std::vector<std::string> args = {"-pellamlog", "run.log"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const RunResult r = RunIn(dir, args);
    const std::string log = dir.read("run.log");
    const std::string label = c.args[0] + " " + c.args.back();
    EXPECT_EQ(r.exitStatus, c.exitStatus) << label << "\n" << r.out;
    EXPECT_EQ(log.rfind(c.logStart, 0), 0u) << label << "\n" << log;
    EXPECT_NE(log.find(c.inLog), std::string::npos) << label << "\n" << log;
    EXPECT_TRUE(r.out.ends_with(log)) << label << "\nstdout:\n" << r.out << "\nlog:\n" << log;
    // Only the start-up lines come before it.
    EXPECT_EQ(r.out.substr(0, r.out.size() - log.size()).find("Opening"), std::string::npos) << label;
  }
}

// A later -pellamlog (any case; the glued form skips a blank) switches files;
// one that cannot be created is warned about by name, the copy stops, and the
// run goes on. The files are made for the user to read and write.
TEST(PellamLog, SwitchesAndSurvivesAFileThatCannotBeCreated) {
  TempDir dir;
  const std::string missing = dir.file("no-such-dir/x.log");
  const RunResult r = RunIn(dir, {"-pellamlog", "a.log", "-open", kSample, "-PellamLog b.log", "-erasechip",
                                  "-pellamlog", missing, "-verify", "-pellamlog", "c.log", "-readrange0,0xF"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  const std::string a = dir.read("a.log"), b = dir.read("b.log"), c = dir.read("c.log");
  const std::string warning = "WARNING: Could not create Pellam log file [" + missing +
                              "] (No such file or directory).\n";
  // The three copies and the uncopied stretch between them make up the output.
  const size_t at = r.out.find(a + b + warning);
  ASSERT_NE(at, std::string::npos) << r.out;
  const size_t verifyAt = at + a.size() + b.size() + warning.size();
  const size_t cAt = r.out.size() - c.size();
  ASSERT_LE(verifyAt, cAt);
  EXPECT_EQ(r.out.substr(cAt), c);
  EXPECT_EQ(r.out.compare(verifyAt, 17, "Verifying target "), 0) << r.out.substr(verifyAt);
  EXPECT_EQ(a.rfind("Opening data file [", 0), 0u) << a;
  EXPECT_EQ(b.rfind("Erasing chip ...\r\n", 0), 0u) << b;
  EXPECT_NE(b.find("Erase operation completed successfully."), std::string::npos) << b;
  EXPECT_EQ(c.rfind("Reading target memory (0x00000000 - 0x0000000F) ...\r\n", 0), 0u) << c;
  EXPECT_NE(c.find("Close project"), std::string::npos) << c;   // shutdown is copied too
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(std::filesystem::status(dir.file("a.log")).permissions(), std::filesystem::perms(0644 & ~mask));
}

}  // namespace
