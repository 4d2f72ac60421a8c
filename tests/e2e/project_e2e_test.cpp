// Projects as a user meets them: the default project at start-up, -openprj,
// and the options that change the open project (-speed, -select). Every run
// gets a fresh directory that is also its HOME.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

const char kDefault[] = "[JTAG]\r\n  Speed0 = 4000\r\n[GENERAL]\r\n  HostName = \"probe.local\"\r\n";

RunResult RunIn(const TempDir& dir, const std::vector<std::string>& args) {
  RunResult r = RunProgram(args, dir.path(), {"HOME=" + dir.path()}, 60);
  r.out = StripCR(r.out);
  return r;
}

TEST(ProjectCommandLine, DefaultProjectAtStartUp) {
  TempDir dir;
  RunResult r = RunIn(dir, {"-verbose3"});
  EXPECT_EQ(0, r.exitStatus);
  EXPECT_TRUE(Has(r, "Creating new project ...\n- New project created successfully\n")) << r.out;
  EXPECT_TRUE(Has(r, "Close project\n- Project closed\n")) << r.out;
  EXPECT_FALSE(dir.exists("Default.pellam"));  // the new project is never saved

  dir.write("Default.pellam", kDefault);
  r = RunIn(dir, {"-verbose3"});
  EXPECT_EQ(0, r.exitStatus);
  EXPECT_TRUE(Has(r, "Opening project file [Default.pellam] ...\n- Project opened successfully\n")) << r.out;
  EXPECT_NE(std::string::npos, dir.read(".config/Valmik/PellamSPI.ini").find("Current=\"Default.pellam\""));
}

TEST(ProjectCommandLine, OpenProject) {
  TempDir dir;
  dir.write("board.PELLAM", kDefault);
  struct Case {
    std::vector<std::string> args;
    int exitStatus;
    std::string expected;
  } cases[] = {
      {{"-openprj", "missing.pellam"}, 1,
       "Opening project file [missing.pellam] ...\n- ERROR: Could not open file [missing.pellam]\nFile not found!"},
      {{"-OPENPRJboard.PELLAM"}, 0, "Opening project file [board.PELLAM] ...\n- Project opened successfully\n"},
  };
  for (const Case& c : cases) {
    const RunResult r = RunIn(dir, c.args);
    EXPECT_EQ(c.exitStatus, r.exitStatus) << c.args[0];
    EXPECT_TRUE(Has(r, c.expected)) << r.out;
  }
}

// A value that does not parse is printed as an error, the key keeps its
// default and the open still succeeds; the connect that follows shows which
// value was taken (a byte array takes its default as a whole, not the
// elements before the bad one).
TEST(ProjectCommandLine, ValueThatDoesNotParseTakesTheDefault) {
  struct Case {
    const char* label;
    std::string file;
    std::string message;
    std::string chip;       // TARLOSIM_CHIP
    std::string evidence;   // in the output or the trace of "-verbose9 -connect"
  } cases[] = {
      {"speed", "[JTAG]\r\n  Speed0 = 4294967296\r\n", "Expected a value <= 4294967295", "C22018",
       "# speed 4000 kHz\n"},
      {"negative speed", "[JTAG]\r\n  Speed0 = -4294967297\r\n", "Expected a value >= -4294967296", "C22018",
       "# speed 4000 kHz\n"},
      {"abID", "[FLASH]\r\n  AutoDetect = 0x00000000\r\n  abID[3] = 0xC2,0x20,0x118\r\n",
       "Expected a value <= 255", "000000", "00 00 00 (Verified)\n"},
      {"write data",
       "[CPU]\r\n  NumInitSteps = 1\r\n  InitStep0_Action = \"Write data\"\r\n  InitStep0_Value0 = 0x00000002\r\n"
       "  InitStep0_Value1[2] = 0x9F,256\r\n",
       "Expected a value <= 255", "C22018", "Executing Write Data - 0x00, 0x00\n"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    dir.write("p.pellam", c.file);
    RunResult r = RunIn(dir, {"-openprj", "p.pellam"});
    EXPECT_EQ(0, r.exitStatus) << c.label << "\n" << r.out;
    EXPECT_TRUE(Has(r, "Opening project file [p.pellam] ...\nERROR: " + c.message +
                           "\n- Project opened successfully\n"))
        << c.label << "\n" << r.out;

    r = RunProgram({"-openprj", "p.pellam", "-verbose9", "-connect"}, dir.path(),
                   {"HOME=" + dir.path(), "TARLOSIM_CHIP=" + c.chip, "TARLOSIM_FLASH=" + dir.file("chip.bin"),
                    "TARLOSIM_TRACE=" + dir.file("trace.txt")},
                   60);
    EXPECT_EQ(0, r.exitStatus) << c.label << "\n" << r.out;
    const std::string seen = StripCR(r.out) + dir.read("trace.txt");
    EXPECT_NE(std::string::npos, seen.find(c.evidence)) << c.label << "\n" << seen;
  }
}

// A failed open ends with its failure line after the reason, and fails.
TEST(ProjectCommandLine, FailedOpenEndsWithFailed) {
  TempDir dir;
  for (const char* verbosity : {"-verbose1", "-verbose3"}) {
    const RunResult r = RunIn(dir, {verbosity, "-openprj", "missing.pellam"});
    EXPECT_EQ(1, r.exitStatus) << r.out;
    EXPECT_TRUE(Has(r, "Opening project file [missing.pellam] ...\n- ERROR: Could not open file [missing.pellam]\n"
                       "File not found!\n- Failed\n"))
        << r.out;
  }
  const RunResult quiet = RunIn(dir, {"-verbose0", "-openprj", "missing.pellam"});
  EXPECT_EQ(1, quiet.exitStatus) << quiet.out;
  EXPECT_FALSE(Has(quiet, "Failed")) << quiet.out;
}

}  // namespace
