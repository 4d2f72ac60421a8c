// The binding against the library built beside the program.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "probe/probelib.h"
#include "tests/unit/probe_test_util.h"

namespace {

TEST(Probe, ResolverReportsUnknownNames) {
  ASSERT_EQ(PROBELIB_Load(0), 0) << "libtarloarm.so beside the test program";
  void* fn = nullptr;
  std::string out = CaptureStdout([&] { fn = PROBELIB_GetFunc("TARLOARM_NoSuchFunction"); });
  EXPECT_EQ(fn, nullptr);
  const std::string prefix = "Function not found: TARLOARM_NoSuchFunction (";
  ASSERT_EQ(out.compare(0, prefix.size(), prefix), 0) << out;
  ASSERT_GE(out.size(), prefix.size() + 3);
  EXPECT_EQ(out.substr(out.size() - 3), ").\n");
  // The loader's error text names the library that was searched.
  EXPECT_NE(out.find("libtarloarm.so"), std::string::npos) << out;
}

TEST(Probe, ResolvesFromTheLibraryBesideTheProgram) {
  ASSERT_EQ(PROBELIB_Load(0), 0);
  void* own = dlopen((std::string(PELLAM_BIN_DIR) + "/libtarloarm.so").c_str(), RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(own, nullptr) << "the loaded library is the one in the program's directory";
  for (const char* name : {"TARLOARM_GetDLLVersion", "TARLOARM_GetCompileDateTime", "TARLO_SPI_Transfer"}) {
    void* expected = dlsym(own, name);
    std::string out = CaptureStdout([&] { EXPECT_EQ(PROBELIB_GetFunc(name), expected) << name; });
    EXPECT_EQ(out.empty(), expected != nullptr) << out;
  }
  dlclose(own);
}

}  // namespace
