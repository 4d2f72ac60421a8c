// Data and project files that cannot be loaded whole: names that are no
// regular file, binaries too large for the address space, records that run
// past its top. Each fails its open with a message, quickly, and keeps the
// image opened before.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

const char kFourBytesHex[] = ":0400000001020304F2\r\n:00000001FF\r\n";
const char kFourBytesMot[] = "S107000001020304EE\r\nS9030000FC\r\n";

RunResult RunIn(const TempDir& dir, const std::vector<std::string>& args) {
  RunResult r = RunProgram(args, dir.path(), {"HOME=" + dir.path()}, 30);
  r.out = StripCR(r.out);
  return r;
}

// Opens good.hex, then the named file, then saves: the failure is reported,
// and the image saved is still good.hex.
void ExpectRefused(const TempDir& dir, std::vector<std::string> open, const std::string& message) {
  const std::string name = open[0];
  open.insert(open.begin(), "-open");
  std::vector<std::string> args{"-open", "good.hex"};
  args.insert(args.end(), open.begin(), open.end());
  const RunResult r = RunIn(dir, args);
  EXPECT_EQ(r.exitStatus, 1) << name << "\n" << r.out;
  EXPECT_TRUE(Has(r, "Opening data file [" + name + "] ...\n- ERROR: " + message + "\n")) << name << "\n" << r.out;
  EXPECT_FALSE(Has(r, "(0 bytes")) << r.out;

  args.insert(args.end(), {"-saveas", "kept.mot"});
  std::remove(dir.file("kept.mot").c_str());
  const RunResult s = RunIn(dir, args);
  EXPECT_EQ(s.exitStatus, 0) << name << "\n" << s.out;
  EXPECT_EQ(dir.read("kept.mot"), kFourBytesMot) << name;
}

TEST(DataFileInput, OnlyRegularFilesAreRead) {
  TempDir dir;
  dir.write("good.hex", kFourBytesHex);
  ASSERT_EQ(mkfifo(dir.file("fifo.hex").c_str(), 0644), 0);
  ASSERT_EQ(mkfifo(dir.file("fifo.bin").c_str(), 0644), 0);
  ASSERT_EQ(symlink("/dev/zero", dir.file("zero.bin").c_str()), 0);
  ASSERT_EQ(mkdir(dir.file("d.bin").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(dir.file("d.mot").c_str(), 0755), 0);
  struct Case {
    std::vector<std::string> open;
  } cases[] = {{{"fifo.hex"}}, {{"fifo.bin", "0"}}, {{"zero.bin", "0"}}, {{"d.bin", "0"}}, {{"d.mot"}}};
  for (const Case& c : cases) {
    ExpectRefused(dir, c.open, "Could not open file [" + c.open[0] + "]\nInvalid file handle!");
  }
}

TEST(DataFileInput, ProjectsAreRegularFilesToo) {
  TempDir dir;
  ASSERT_EQ(mkfifo(dir.file("fifo.pellam").c_str(), 0644), 0);
  ASSERT_EQ(mkdir(dir.file("d.pellam").c_str(), 0755), 0);
  for (const char* name : {"fifo.pellam", "d.pellam"}) {
    const RunResult r = RunIn(dir, {"-openprj", name});
    EXPECT_EQ(r.exitStatus, 1) << name << "\n" << r.out;
    EXPECT_TRUE(Has(r, "Opening project file [" + std::string(name) + "] ...\n- ERROR: Could not open file [" +
                           name + "]\nInvalid file handle!\n"))
        << r.out;
  }
  // A FIFO named as the default project does not hold up the start either.
  ASSERT_EQ(mkfifo(dir.file("Default.pellam").c_str(), 0644), 0);
  const RunResult r = RunIn(dir, {"-open", "x.hex"});
  EXPECT_NE(r.exitStatus, -1) << r.out;
}

// Sparse files: the sizes cost no disk.
TEST(DataFileInput, BinariesMustFitTheAddressSpace) {
  TempDir dir;
  dir.write("good.hex", kFourBytesHex);
  dir.write("big.bin", "");
  ASSERT_EQ(truncate(dir.file("big.bin").c_str(), 0x100000000ll), 0);
  dir.write("bigger.bin", "");
  ASSERT_EQ(truncate(dir.file("bigger.bin").c_str(), 0x100000010ll), 0);
  dir.write("half.bin", "");
  ASSERT_EQ(truncate(dir.file("half.bin").c_str(), 0x80000002ll), 0);
  ExpectRefused(dir, {"big.bin", "0"}, "Could not read file. File is 4 GiB or larger.");
  ExpectRefused(dir, {"bigger.bin", "0x100"}, "Could not read file. File is 4 GiB or larger.");
  ExpectRefused(dir, {"half.bin", "0x7FFFFFFF"}, "Could not read file. Address range exceeds 0xFFFFFFFF.");
}

TEST(DataFileInput, RecordsPastTheTopOfTheAddressSpace) {
  TempDir dir;
  dir.write("good.hex", kFourBytesHex);
  // Linear base 0xFFFF0000: 4 bytes at 0xFFFFFFFE run past the top; 2 bytes
  // there end on it exactly and load.
  dir.write("top.hex", ":02000004FFFFFC\r\n:04FFFE0001020304F5\r\n:00000001FF\r\n");
  dir.write("top.mot", "S309FFFFFFFE01020304F1\r\n");
  dir.write("end.hex", ":02000004FFFFFC\r\n:02FFFE000102FE\r\n:00000001FF\r\n");
  ExpectRefused(dir, {"top.hex"}, "Error in line 2: Address range exceeds 0xFFFFFFFF");
  ExpectRefused(dir, {"top.mot"}, "Error in line 1: Address range exceeds 0xFFFFFFFF");
  const RunResult r = RunIn(dir, {"-open", "end.hex"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Data file opened successfully (2 bytes, 1 range)")) << r.out;
}

}  // namespace
