// The binding with no library anywhere it looks, when the caller survives
// the failure (the fatal path is checked end to end). This test program
// lives in a directory of its own without a library beside it.
#include <sys/stat.h>
#include <gtest/gtest.h>

#include <string>

#include "probe/probelib.h"

namespace {

bool InstallDirPresent() {
  struct stat st;
  return stat("/opt/Valmik/Tarlo/libtarloarm.so", &st) == 0 ||
         stat("/opt/Valmik/Tarlo/libtarloarm.so.5", &st) == 0;
}

TEST(ProbeNone, NonFatalLoadReportsAndRetries) {
  if (InstallDirPresent()) GTEST_SKIP() << "a probe library is installed on this machine";
  testing::internal::CaptureStdout();
  EXPECT_EQ(PROBELIB_Load(0), 1);
  EXPECT_EQ(PROBELIB_TryLoad(), -1);  // searched again, not remembered
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "Could not open Tarlo shared library.\nCould not open Tarlo shared library.\n");
}

}  // namespace
