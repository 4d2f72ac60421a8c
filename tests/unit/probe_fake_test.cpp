// The binding against a library that lacks most functions. This test program
// lives in a directory of its own beside that library, so the search finds
// it there first.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "probe/probelib.h"
#include "sys/sys.h"
#include "tests/e2e/run_program.h"

namespace {

TEST(ProbeFake, LibraryBesideTheProgramIsUsed) {
  EXPECT_EQ(PROBELIB_Load(1), 0);
  EXPECT_EQ(TARLOARM_GetDLLVersion(), 68054u);
  EXPECT_STREQ(TARLOARM_GetCompileDateTime(), "Fake build");
  EXPECT_EQ(PROBELIB_TryLoad(), 0);  // the handle is kept
}

// A function the library lacks makes its wrapper return 0 or null, or do
// nothing, and is reported (with the loader's reason, which names it) on
// every call: it is looked up again each time.
TEST(ProbeFake, MissingFunctionsAreReportedOnEveryCall) {
  testing::internal::CaptureStdout();
  uint8_t in[2] = {0x55, 0x55};
  EXPECT_EQ(TARLO_SPI_Transfer(nullptr, in, 16, TARLO_SPI_FLAG_WHOLE), 0);
  EXPECT_EQ(TARLO_SPI_Transfer(nullptr, in, 16, TARLO_SPI_FLAG_WHOLE), 0);
  EXPECT_EQ(in[0], 0x55);  // nothing was done
  TARLO_HW_STATUS hw{};
  hw.VTarget = 1234;
  uint32_t mask = 77;
  char result[8] = "keep";
  EXPECT_EQ(TARLOARM_ExecCommand("SilentUpdateFW", result, sizeof result), 0);
  EXPECT_STREQ(result, "keep");
  EXPECT_EQ(TARLOARM_EMU_SelectByUSBSN(123), 0);
  EXPECT_EQ(TARLOARM_SelectIP("localhost", 0), 0);
  EXPECT_EQ(TARLOARM_OpenEx(nullptr, nullptr), nullptr);
  TARLOARM_TIF_GetAvailable(&mask);
  EXPECT_EQ(mask, 77u);
  EXPECT_EQ(TARLOARM_TIF_Select(5), 0);
  EXPECT_EQ(TARLOARM_GetHWStatus(&hw), 0);
  EXPECT_EQ(hw.VTarget, 1234);
  EXPECT_EQ(TARLOARM_GetSN(), 0);
  EXPECT_EQ(TARLO_GetpFunc(1), nullptr);
  TARLOARM_SetErrorOutHandler(nullptr);
  TARLOARM_SetLogFile(nullptr);
  TARLOARM_SelectUSB(0);
  TARLOARM_SetSpeed(4000);
  TARLOARM_ClrRESET();
  TARLOARM_SetRESET();
  TARLOARM_SetTMS();
  TARLOARM_ClrTMS();
  TARLOARM_Close();
  TARLO_INDICATOR_STATE st{};
  TARLOARM_INDICATORS_SetState(1, &st);
  const std::string out = testing::internal::GetCapturedStdout();
  // One line per call: the function, then the loader's reason, which names it again.
  EXPECT_EQ(Count(out, "\n"), 21u) << out;
  EXPECT_EQ(Count(out, "Function not found: "), 21u) << out;
  EXPECT_EQ(Count(out, ").\n"), 21u) << out;
  EXPECT_EQ(Count(out, "Function not found: TARLOARM_GetSN ("), 1u) << out;
  EXPECT_NE(out.find("TARLOARM_GetSN).\n"), std::string::npos) << out;
  EXPECT_EQ(Count(out, "TARLO_SPI_Transfer ("), 2u) << out;
}

TEST(ProbeFake, LineEditingLibraryFromThirdPartyBesideTheProgram) {
  void* h = SYS_OpenLibEdit();
  ASSERT_NE(h, nullptr);
  EXPECT_NE(dlsym(h, "FakeEditMarker"), nullptr) << "the copy under ThirdParty/ comes first";
  dlclose(h);
}

}  // namespace
