// Projects as a user meets them: the default project at start-up, -openprj,
// and the options that change the open project (-speed, -select). Every run
// gets a fresh directory that is also its HOME.
#include <gtest/gtest.h>

#include <filesystem>
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

// Opening projects, at start-up and with -openprj: the result lines, the
// exit status, and the path recorded as the current project in the
// application settings; the new default project is never saved. A failed
// open ends with its failure line after the reason, shown from verbosity 1.
TEST(ProjectCommandLine, OpenProject) {
  const std::string opened = " ...\n- Project opened successfully\n";
  const std::string missing = "[missing.pellam] ...\n- ERROR: Could not open file [missing.pellam]\nFile not found!\n";
  const struct {
    std::vector<std::string> args;
    const char* file;  // written before the run as kDefault, or null
    int exitStatus;
    std::string shown;
    const char* current;  // the recorded current project, or null
  } cases[] = {
      {{"-verbose3"}, nullptr, 0, "- New project created successfully\nClose project\n- Project closed\n", nullptr},
      {{"-verbose3"}, "Default.pellam", 0, "Opening project file [Default.pellam]" + opened, "Default.pellam"},
      {{"-OPENPRJboard.PELLAM"}, "board.PELLAM", 0, "Opening project file [board.PELLAM]" + opened, "board.PELLAM"},
      {{"-verbose1", "-openprj", "missing.pellam"}, nullptr, 1, missing + "- Failed\n", nullptr},
      {{"-verbose0", "-openprj", "missing.pellam"}, nullptr, 1, "", nullptr},
  };
  for (const auto& c : cases) {
    TempDir dir;
    if (c.file != nullptr) dir.write(c.file, kDefault);
    const RunResult r = RunIn(dir, c.args);
    EXPECT_EQ(c.exitStatus, r.exitStatus) << c.args.back() << "\n" << r.out;
    EXPECT_TRUE(Has(r, c.shown)) << r.out;
    EXPECT_EQ(Has(r, "Failed"), c.exitStatus != 0 && !c.shown.empty()) << r.out;
    const std::string settings = dir.read(".config/Valmik/PellamSPI.ini");
    const std::string current = std::string("Current=\"") + (c.current ? c.current : "") + "\"";
    EXPECT_EQ(c.current != nullptr, settings.find(current) != std::string::npos) << settings;
    EXPECT_FALSE(c.file == nullptr && dir.exists("Default.pellam"));
  }
}

// An application settings file that cannot be read or written is reported
// by name, each time, in place of the open's result line; the walk goes on.
TEST(ProjectCommandLine, ApplicationSettingsThatCannotBeSaved) {
  TempDir dir;
  dir.write("p.pellam", kDefault);
  std::filesystem::create_directories(dir.file(".config/Valmik/PellamSPI.ini"));
  const RunResult r = RunIn(dir, {"-openprj", "p.pellam", "-select", "USB=5", "-connect"});
  const std::string ini = dir.file(".config/Valmik/PellamSPI.ini");
  EXPECT_TRUE(Has(r, "Opening project file [p.pellam] ...\n- ERROR: Could not open file [" + ini +
                         "]\nInvalid file handle!\n- ERROR: Could not save file [" + ini + "]\nInvalid file handle!\n"))
      << r.out;
  EXPECT_FALSE(Has(r, "Project opened successfully")) << r.out;
  EXPECT_TRUE(Has(r, "Connecting via USB to Tarlo with SN 5\n")) << r.out;
}

}  // namespace
