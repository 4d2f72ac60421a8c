// Where the program looks for the probe library: beside its own file (links
// followed), else the install directory; with none it stops at start-up.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/e2e/run_program.h"

namespace fs = std::filesystem;

namespace {

bool InstalledLibraryPresent() {
  return fs::exists("/opt/Valmik/Tarlo/libtarloarm.so") || fs::exists("/opt/Valmik/Tarlo/libtarloarm.so.5");
}

std::string CopyProgram(const TempDir& dir) {
  const std::string copy = dir.file("pellam-spi");
  fs::copy_file(PellamBinary(), copy);
  return copy;
}

// With no library anywhere the program looks, it stops at start-up.
TEST(ProbeSearch, NoLibraryAnywhereEndsTheProgramAtStart) {
  if (InstalledLibraryPresent()) GTEST_SKIP() << "a probe library is installed on this machine";
  TempDir dir;
  const std::string copy = CopyProgram(dir);
#ifdef __SANITIZE_ADDRESS__
  // A sanitizer runtime must come first in the process; nothing may be preloaded before it.
  RunResult r = RunProgram({"-erasechip"}, dir.path(), {}, 60, copy);
#else
  RunResult r =
      RunProgram({"-erasechip"}, dir.path(),
                 {"LD_PRELOAD=" PELLAM_DLOPEN_LOG_LIB, "PELLAM_DLOPEN_LOG=" + dir.file("opened.txt")}, 60, copy);
  // Beside the program, then the install directory and its versioned file.
  const std::string beside = dir.file("libtarloarm.so") + "\n";
  EXPECT_EQ(dir.read("opened.txt"),
            beside + beside + "/opt/Valmik/Tarlo/libtarloarm.so\n/opt/Valmik/Tarlo/libtarloarm.so.5\n");
#endif
  EXPECT_EQ(r.exitStatus, 1);
  EXPECT_TRUE(r.out.ends_with("Could not open Tarlo shared library. Exiting now.\n")) << r.out;
  EXPECT_EQ(r.out.find("TarloARM.dll"), std::string::npos) << r.out;
}

TEST(ProbeSearch, LinkToTheProgramFindsTheLibraryBesideTheRealFile) {
  TempDir dir;
  fs::create_symlink(PellamBinary(), dir.file("pellam-spi"));
  // A chain with a relative step: link -> ./pellam-spi -> the real program.
  fs::create_symlink("pellam-spi", dir.file("chained"));
  for (const char* name : {"pellam-spi", "chained"}) {
    RunResult r = RunProgram({}, dir.path(), {}, 60, dir.file(name));
    EXPECT_EQ(r.exitStatus, 0) << name << "\n" << r.out;
    EXPECT_NE(r.out.find("TarloARM.dll V"), std::string::npos) << name << "\n" << r.out;
    EXPECT_EQ(r.out.find("Could not open Tarlo shared library"), std::string::npos) << r.out;
  }
}

TEST(ProbeSearch, LibraryBesideTheProgramIsTakenFirst) {
  TempDir dir;
  const std::string copy = CopyProgram(dir);
  fs::copy_file(PELLAM_FAKE_LIB, dir.file("libtarloarm.so"));
  RunResult r = RunProgram({}, dir.path(), {}, 60, copy);
  // The stand-in reports version 68054: 6.80 with the revision suffix "z28".
  EXPECT_NE(StripCR(r.out).find("TarloARM.dll V6.80z28 (DLL compiled Fake build)\n"), std::string::npos) << r.out;
}

}  // namespace
