// The binding with no library anywhere it looks. This test program lives in
// a directory of its own without a library beside it.
#include <sys/stat.h>
#include <sys/wait.h>
#include <gtest/gtest.h>

#include <string>

#include "probe/probelib.h"
#include "tests/unit/probe_test_util.h"

namespace {

bool InstallDirPresent() {
  struct stat st;
  return stat("/opt/Valmik/Tarlo/libtarloarm.so", &st) == 0 ||
         stat("/opt/Valmik/Tarlo/libtarloarm.so.5", &st) == 0;
}

TEST(ProbeNone, NonFatalLoadReportsAndRetries) {
  if (InstallDirPresent()) GTEST_SKIP() << "a probe library is installed on this machine";
  std::string out = CaptureStdout([] {
    EXPECT_EQ(PROBELIB_Load(0), 1);
    EXPECT_EQ(PROBELIB_TryLoad(), -1);  // searched again, not remembered
  });
  EXPECT_EQ(out, "Could not open Tarlo shared library.\nCould not open Tarlo shared library.\n");
}

TEST(ProbeNone, FirstWrapperCallEndsTheProcess) {
  if (InstallDirPresent()) GTEST_SKIP() << "a probe library is installed on this machine";
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(fds[1], 1);
    close(fds[0]);
    TARLOARM_GetDLLVersion();
    _exit(42);  // not reached
  }
  close(fds[1]);
  std::string out;
  char buf[256];
  ssize_t n;
  while ((n = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(out, "Could not open Tarlo shared library. Exiting now.\n");
}

}  // namespace
