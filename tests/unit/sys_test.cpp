// Platform layer: mutex and event tables across threads, clocks, files with
// flags and locks between processes, home expansion, path splitting.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "sys/sys.h"
#include "tests/e2e/run_program.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

long MsSince(Clock::time_point t0) {
  return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count());
}

// Kept first: nothing before it may have asked for the tick count. The
// thread and calendar services are not called by the program, but the
// layer offers them and they must work.
TEST(SysTime, ClocksCalendarAndThreads) {
  EXPECT_EQ(SYS_GetTickCount(), 0u);
  EXPECT_EQ(SYS_GetTimeUs(), 0u);
  SYS_Sleep(30);
  const uint32_t t = SYS_GetTickCount();
  EXPECT_GE(t, 30u);
  EXPECT_LT(t, 2000u);
  const uint64_t us = SYS_GetTimeUs();
  EXPECT_GE(us, 30000u);
  EXPECT_LE(SYS_GetTimeUsRel(us), 1000000u);
  const uint32_t a = SYS_GetTickCountAbs();
  EXPECT_LE(SYS_GetTickCountAbs() - a, 1000u);

  SYS_DATETIME utc{}, local{};
  const time_t now = time(nullptr);
  tm ref{}, localRef{};
  gmtime_r(&now, &ref);
  localtime_r(&now, &localRef);
  SYS_GetUTCTime(&utc);
  SYS_GetLocalTime(&local);
  SYS_GetUTCTime(nullptr);  // tolerated
  SYS_GetLocalTime(nullptr);
  EXPECT_EQ(utc.year, ref.tm_year + 1900);
  EXPECT_EQ(utc.month, ref.tm_mon + 1);
  EXPECT_EQ(utc.day, ref.tm_mday);
  EXPECT_EQ(utc.milliseconds, 0);
  EXPECT_EQ(local.hour, localRef.tm_hour);

  // A thread that tells its id, then waits until cancelled.
  static std::atomic<uint64_t> seenId{0};
  uint64_t id = 0;
  const uint64_t result = SYS_CreateThread(
      [](void*) -> void* {
        seenId = SYS_GetCurrentThreadId();
        for (;;) SYS_Sleep(1000);
      },
      nullptr, &id);
  EXPECT_EQ(result, id);
  for (int i = 0; i < 500 && seenId == 0; ++i) SYS_Sleep(2);
  EXPECT_EQ(seenId.load(), id);
  EXPECT_NE(SYS_GetCurrentThreadId(), id);
  EXPECT_EQ(SYS_CancelThread(id), 0);
}

TEST(SysMutex, RecursiveAndTimedAcrossThreads) {
  SYS_HMUTEX m = SYS_CreateMutex("image");
  ASSERT_NE(m, nullptr);
  // The owner may take it again; each take needs its release.
  ASSERT_EQ(SYS_WaitForMutex(m, 0), 0);
  ASSERT_EQ(SYS_WaitForMutex(m, SYS_INFINITE), 0);
  SYS_LockMutex(m);

  std::atomic<int> zeroWait{-2}, timedWait{-2}, releaseByOther{-2};
  std::atomic<long> timedMs{0};
  std::thread([&] {
    zeroWait = SYS_WaitForMutex(m, 0);
    auto t0 = Clock::now();
    timedWait = SYS_WaitForMutex(m, 150);
    timedMs = MsSince(t0);
    releaseByOther = SYS_ReleaseMutex(m);  // not the owner
  }).join();
  EXPECT_EQ(zeroWait, SYS_WAIT_TIMEOUT);
  EXPECT_EQ(timedWait, SYS_WAIT_TIMEOUT);
  EXPECT_GE(timedMs, 140);
  EXPECT_LT(timedMs, 2000);
  EXPECT_EQ(releaseByOther, 1);

  // Released twice of three: still held.
  EXPECT_EQ(SYS_ReleaseMutex(m), 0);
  EXPECT_EQ(SYS_ReleaseMutex(m), 0);
  std::thread([&] { zeroWait = SYS_WaitForMutex(m, 0); }).join();
  EXPECT_EQ(zeroWait, SYS_WAIT_TIMEOUT);

  // A waiter without limit gets it as soon as the last release happens.
  std::atomic<bool> got{false};
  std::thread waiter([&] {
    if (SYS_WaitForMutex(m, SYS_INFINITE) == 0) {
      got = true;
      SYS_ReleaseMutex(m);
    }
  });
  SYS_Sleep(50);
  EXPECT_FALSE(got);
  EXPECT_EQ(SYS_ReleaseMutex(m), 0);
  waiter.join();
  EXPECT_TRUE(got);
  SYS_CloseMutex(&m);
  EXPECT_EQ(m, nullptr);
}

// 64 entries, the first free one reused; null and stale handles refused.
TEST(SysMutex, TableAndInvalidHandles) {
  std::vector<SYS_HMUTEX> all;
  for (SYS_HMUTEX h; all.size() < 100 && (h = SYS_CreateMutex(nullptr)) != nullptr;) all.push_back(h);
  ASSERT_EQ(all.size(), 64u);
  SYS_HMUTEX freed = all[10];
  SYS_CloseMutex(&all[10]);
  SYS_CloseMutex(&all[20]);
  all[10] = SYS_CreateMutex("again");
  EXPECT_EQ(all[10], freed);
  for (SYS_HMUTEX& h : all) {
    if (h != nullptr) SYS_CloseMutex(&h);
  }

  EXPECT_EQ(SYS_WaitForMutex(nullptr, 10), -1);
  EXPECT_EQ(SYS_ReleaseMutex(nullptr), 1);
  SYS_CloseMutex(nullptr);
  SYS_HMUTEX none = nullptr;
  SYS_CloseMutex(&none);
  SYS_HMUTEX stale = freed;
  EXPECT_EQ(SYS_WaitForMutex(stale, 10), -1);
  EXPECT_EQ(SYS_ReleaseMutex(stale), 1);
  SYS_CloseMutex(&stale);  // not in use: left as it is
  EXPECT_EQ(stale, freed);
}

TEST(SysEvent, AutoResetAndTimeout) {
  EXPECT_EQ(SYS_CreateEvent(1, 0), -1);
  EXPECT_EQ(SYS_WaitForEvent(-1, 0), -1);
  SYS_HEVENT e = SYS_CreateEvent(0, 1);  // created set: the first wait takes it
  ASSERT_NE(e, -1);
  EXPECT_EQ(SYS_WaitForEvent(e, 0), 0);
  EXPECT_EQ(SYS_WaitForEvent(e, 0), SYS_WAIT_TIMEOUT);
  SYS_SetEvent(e);
  SYS_SetEvent(e);  // set twice: still only one wait satisfied
  EXPECT_EQ(SYS_WaitForEvent(e, 0), 0);
  auto t0 = Clock::now();
  EXPECT_EQ(SYS_WaitForEvent(e, 100), SYS_WAIT_TIMEOUT);
  EXPECT_GE(MsSince(t0), 90);

  std::atomic<int> r{-2};
  std::thread waiter([&] { r = SYS_WaitForEvent(e, SYS_INFINITE); });
  SYS_Sleep(30);
  SYS_SetEvent(e);
  waiter.join();
  EXPECT_EQ(r, 0);
  SYS_CloseEvent(e);
  EXPECT_EQ(SYS_WaitForEvent(e, 0), -1);
}

// Locks between processes, and retries that wait between attempts.
TEST(SysFile, WriteLockAndRetries) {
  TempDir dir;
  const std::string path = dir.file("locked.bin");
  dir.write("locked.bin", "data");
  int fd = SYS_FILE_Open(path.c_str(), SYS_FILE_FLAG_WRITE, 0, 0);
  ASSERT_GE(fd, 0);
  // Another process asking for exclusive write is refused; one that lets
  // others read takes no lock and gets the file; readers always do.
  // The answer is the exit status of a child process that tries.
  auto opens = [&](uint32_t flags) {
    const pid_t pid = fork();
    if (pid == 0) _exit(SYS_FILE_OpenSimple(path.c_str(), flags) >= 0);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  EXPECT_EQ(opens(SYS_FILE_FLAG_WRITE), 0);
  EXPECT_EQ(opens(SYS_FILE_WRITE_FLAGS), 1);
  EXPECT_EQ(opens(SYS_FILE_READ_FLAGS), 1);
  SYS_FILE_Close(fd);
  EXPECT_EQ(opens(SYS_FILE_FLAG_WRITE), 1);

  const std::string missing = dir.file("missing");
  auto t0 = Clock::now();
  EXPECT_EQ(SYS_FILE_Open(missing.c_str(), SYS_FILE_READ_FLAGS, 3, 100), -1);
  const long ms = MsSince(t0);
  EXPECT_GE(ms, 295);  // three sleeps between four attempts
  EXPECT_LT(ms, 1500);
  EXPECT_EQ(SYS_GetLastError(), ENOENT);
  // The file appearing during the retries is picked up.
  std::thread maker([&] {
    SYS_Sleep(120);
    dir.write("missing", "x");
  });
  fd = SYS_FILE_Open(missing.c_str(), SYS_FILE_READ_FLAGS, 10, 50);
  maker.join();
  EXPECT_GE(fd, 0);
  SYS_FILE_Close(fd);
}

TEST(SysFile, CreationFlags) {
  TempDir dir;
  const std::string path = dir.file("f.txt");
  // No create bit: a missing file stays missing.
  EXPECT_EQ(SYS_FILE_OpenSimple(path.c_str(), SYS_FILE_FLAG_WRITE), -1);
  int fd = SYS_FILE_OpenSimple(path.c_str(), SYS_FILE_WRITE_FLAGS);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(SYS_FILE_Write(fd, "hello", 5), 5);
  SYS_FILE_Close(fd);
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);

  // Exclusive create refuses an existing file.
  EXPECT_EQ(SYS_FILE_OpenSimple(path.c_str(), SYS_FILE_FLAG_WRITE | SYS_FILE_FLAG_CREATE | SYS_FILE_FLAG_EXCL), -1);
  // Append positions at the end; read-write without truncation keeps the data.
  fd = SYS_FILE_OpenSimple(path.c_str(), 3 | SYS_FILE_FLAG_APPEND);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(SYS_FILE_Write(fd, "!", 1), 1);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 6);
  SYS_FILE_Close(fd);

  fd = SYS_FILE_OpenSimple(path.c_str(), SYS_FILE_READ_FLAGS);
  ASSERT_GE(fd, 0);
  char buf[16] = {};
  EXPECT_EQ(SYS_FILE_Read(fd, buf, 2), 2);
  EXPECT_EQ(SYS_FILE_GetSize(fd), 6u);
  EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 2);  // size query leaves the position
  EXPECT_EQ(SYS_FILE_GetSize(-1), 0u);   // a closed handle has no size
  EXPECT_EQ(SYS_FILE_Read(fd, buf + 2, 10), 4);
  EXPECT_STREQ(buf, "hello!");
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);  // a regular file blocks as usual
  SYS_FILE_Close(fd);

  // Truncate alone empties an existing file.
  fd = SYS_FILE_OpenSimple(path.c_str(), SYS_FILE_FLAG_WRITE | SYS_FILE_FLAG_SHARE_READ | SYS_FILE_FLAG_TRUNC);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(SYS_FILE_GetSize(fd), 0u);
  SYS_FILE_Close(fd);

  EXPECT_EQ(SYS_FILE_Exists(path.c_str()), 1);
  EXPECT_EQ(SYS_FILE_Exists(dir.file("nope").c_str()), 0);
  EXPECT_EQ(SYS_FILE_IsReadOnly(path.c_str()), 0);
  chmod(path.c_str(), 0444);
  EXPECT_EQ(SYS_FILE_IsReadOnly(path.c_str()), 1);
  EXPECT_EQ(SYS_FILE_IsReadOnly(dir.path().c_str()), 0);
  EXPECT_EQ(SYS_FILE_IsReadOnly(dir.file("nope").c_str()), -1);
  EXPECT_EQ(SYS_FILE_IsReadOnly(nullptr), 0);
}

TEST(SysFile, HomeExpansionAndDirectories) {
  TempDir home;
  const char* old = getenv("HOME");
  const std::string oldHome = old != nullptr ? old : "";
  setenv("HOME", home.path().c_str(), 1);
  int fd = SYS_FILE_OpenEx("~/one/two/file.cfg", SYS_FILE_WRITE_FLAGS);
  ASSERT_GE(fd, 0);
  SYS_FILE_Close(fd);
  EXPECT_TRUE(fs::is_regular_file(home.file("one/two/file.cfg")));
  // Without the create bit no directory is made.
  EXPECT_EQ(SYS_FILE_OpenEx("~/three/file.cfg", SYS_FILE_READ_FLAGS), -1);
  EXPECT_FALSE(fs::exists(home.file("three")));
  EXPECT_EQ(SYS_FILE_OpenEx("", SYS_FILE_WRITE_FLAGS), -1);
  char cfg[512];
  ASSERT_EQ(SYS_GetConfigDir(cfg, sizeof cfg), 0);
  EXPECT_EQ(std::string(cfg), home.file(".config/Valmik"));
  EXPECT_TRUE(fs::is_directory(cfg));
  unsetenv("HOME");
  EXPECT_EQ(SYS_GetConfigDir(cfg, sizeof cfg), -1);
  if (old != nullptr) setenv("HOME", oldHome.c_str(), 1);

  // Links in the path are followed; files in the way and depth end it.
  fs::create_directory(home.file("real"));
  fs::create_symlink("real", home.file("link"));
  EXPECT_EQ(SYS_CreateDirRecursive(home.file("link/a/b/").c_str()), 0);
  EXPECT_TRUE(fs::is_directory(home.file("real/a/b")));
  EXPECT_EQ(SYS_CreateDirRecursive(home.file("link").c_str()), 0);
  home.write("file", "x");
  EXPECT_EQ(SYS_CreateDirRecursive(home.file("file").c_str()), -1);
  EXPECT_EQ(SYS_CreateDirRecursive(home.file("file/sub").c_str()), -1);
  std::string deep = home.path();
  for (int i = 0; i < 130; ++i) deep += "/d";
  EXPECT_EQ(SYS_CreateDirRecursive(deep.c_str()), -1);

  char path[512], moduleDir[512];
  SYS_GetModulePath(path, sizeof path);
  SYS_GetModuleDir(moduleDir, sizeof moduleDir);
  EXPECT_TRUE(fs::exists(path)) << path;
  EXPECT_EQ(std::string(path).rfind(moduleDir, 0), 0u) << path << " / " << moduleDir;
  char untouched[2] = "x";  // a buffer of size 0 is left alone
  SYS_GetModulePath(untouched, 0);
  SYS_GetModuleDir(untouched, 0);
  EXPECT_STREQ(untouched, "x");
}

TEST(SysPath, SplitAndJoin) {
  struct Case {
    const char* path;
    const char* dir;
    const char* name;
    const char* ext;
  } cases[] = {
      {"/home/u/app.hex", "/home/u", "app", ".hex"},
      {"app.tar.gz", "", "app.tar", ".gz"},
      {".bashrc", "", ".bashrc", ""},  // the only dot starts the name
      {"dir/.hidden", "dir", ".hidden", ""},
      {"my.dir/file", "my.dir", "file", ""},  // a dot in a directory is no extension
      {"/file", "", "file", ""},
      {"a/b/", "a/b", "", ""},
      {"", "", "", ""},
  };
  for (const Case& c : cases) {
    char drive[3] = "x", dir[256], name[256], ext[256];
    SYS_SplitPath(c.path, drive, sizeof drive, dir, sizeof dir, name, sizeof name, ext, sizeof ext);
    EXPECT_STREQ(drive, "") << c.path;
    EXPECT_STREQ(dir, c.dir) << c.path;
    EXPECT_STREQ(name, c.name) << c.path;
    EXPECT_STREQ(ext, c.ext) << c.path;
  }
  char out[8];
  SYS_GetFileName("/p/board.pellam", out, sizeof out);
  EXPECT_STREQ(out, "board");
  SYS_GetFileExt("/p/board.pellam", out, sizeof out);
  EXPECT_STREQ(out, ".pellam");
  SYS_GetFileName("/p/averylongname.x", out, sizeof out);
  EXPECT_STREQ(out, "");  // does not fit

  const char* joins[][3] = {{"/a", "b.bin", "/a/b.bin"}, {"/a/", "b.bin", "/a/b.bin"}, {"", "b.bin", "b.bin"}};
  char joined[32];
  for (const auto& j : joins) {
    SYS_MakePath(joined, sizeof joined, j[0], j[1]);
    EXPECT_STREQ(joined, j[2]);
  }
  SYS_MakePath(joined, 6, "/abc", "def");
  EXPECT_STREQ(joined, "/abc/");
}

// Guarded blocks catch a byte written past the end. The test hook fails
// exactly the nth allocation from the moment it is armed, once; a failed
// reallocation leaves the old block alone.
TEST(SysAlloc, GuardsAndTheFailureHook) {
  EXPECT_EQ(SYS_CheckGuarded(nullptr), 0);
  auto* g = static_cast<uint8_t*>(SYS_AllocGuarded(10));
  ASSERT_NE(g, nullptr);
  for (int i = 0; i < 10; ++i) g[i] = 0xCE ^ 1;
  EXPECT_EQ(SYS_CheckGuarded(g), 0);
  g[10] = 0;  // one byte past the end
  EXPECT_EQ(SYS_CheckGuarded(g), -1);
  g[10] = 0xCE;
  EXPECT_EQ(SYS_CheckGuarded(g), 0);
  SYS_FreeGuarded(g);
  const long heldBefore = static_cast<long>(mallinfo2().uordblks);
  for (int i = 0; i < 100; ++i) SYS_FreeGuarded(SYS_AllocGuarded(1000));
  EXPECT_LT(static_cast<long>(mallinfo2().uordblks) - heldBefore, 50000) << "freed blocks leak";

  SYS_TEST_FailAllocation(3);
  void* a = SYS_Alloc(8);
  void* b = SYS_Calloc(2, 4);
  EXPECT_EQ(SYS_TEST_AllocFailurePending(), 1);
  void* c = SYS_Realloc(a, 32);
  EXPECT_EQ(SYS_TEST_AllocFailurePending(), 0);
  void* d = SYS_AllocGuarded(4);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(c, nullptr);
  EXPECT_NE(d, nullptr);
  a = SYS_Realloc(a, 64);
  ASSERT_NE(a, nullptr);
  SYS_Free(a);
  SYS_Free(b);
  SYS_Free(nullptr);
  SYS_FreeGuarded(d);

  SYS_TEST_FailAllocation(1);
  EXPECT_FALSE(SYS_NewArray<uint8_t>(16));
  EXPECT_TRUE(SYS_NewArray<uint8_t>(16));
  SYS_TEST_FailAllocation(1);
  SYS_TEST_FailAllocation(0);
  EXPECT_EQ(SYS_TEST_AllocFailurePending(), 0);
  EXPECT_TRUE(SYS_New<uint64_t>());
  EXPECT_EQ(SYS_Calloc(0x10000, 0x10000), nullptr);  // the size does not fit 32 bits
}

}  // namespace
