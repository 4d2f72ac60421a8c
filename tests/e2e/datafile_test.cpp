// Opening and saving data files from the command line: the operation lines,
// the failure lines, the exit status and the files written. Files that
// cannot be loaded whole (bad records, names that are no regular file,
// binaries too large for the address space, records past its top) fail their
// open with a message, quickly, and keep the image opened before.
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

TEST(DataFile, OpenAndSaveEveryFormat) {
  TempDir dir;
  dir.write("in.hex", kFourBytesHex);
  dir.write("in.bin", std::string("\x01\x02", 2));
  dir.write("in.mot", "S1050000AABB95\nS1051000CCDD41\n");
  const RunResult r =
      RunIn(dir, {"-open",      "in.hex",  "-saveas", "out.mot",      "-saveas", "out.hex", "-saveas",
                  "out.bin",    "0x1-0x3", "-saveas", "out.c",        "0x0-0x4", "-open",   "in.bin",
                  "0x08000000", "-saveas", "a.hex",   "-open",        "in.mot",  "-saveas", "one.s",
                  "-save",      "-saveas", "neg.bin", "0-0x80000000", "-open",   "in.bin",  "0x80000000"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Opening data file [in.hex] ...\n- Data file opened successfully (4 bytes, 1 range)\n")) << r.out;
  EXPECT_TRUE(Has(r, "Saving data file [out.mot] ...\n- Data file saved successfully (4 bytes, 1 range)\n")) << r.out;
  EXPECT_EQ(dir.read("out.mot"), kFourBytesMot);
  EXPECT_EQ(dir.read("out.hex"), kFourBytesHex);
  EXPECT_EQ(dir.read("out.bin"), "\x02\x03\x04");
  EXPECT_NE(dir.read("out.c").find("_acout[0x5] = {\r\n  0x01, 0x02, 0x03, 0x04, 0xFF\r\n};"), std::string::npos);
  // A binary at its base address; plural ranges; -save writes to the file
  // named last.
  EXPECT_EQ(dir.read("a.hex"), ":020000040800F2\r\n:020000000102FB\r\n:00000001FF\r\n");
  EXPECT_TRUE(Has(r, "Data file opened successfully (4 bytes, 2 ranges)")) << r.out;
  EXPECT_EQ(dir.read("one.s"), "S1050000AABB95\r\nS1051000CCDD41\r\nS9030000FC\r\n");
  EXPECT_TRUE(Has(r,
                  "Saving data file [one.s] ...\n- Data file saved successfully (4 bytes, 2 ranges)\n"
                  "Saving data file [one.s] ...\n- Data file saved successfully"))
      << r.out;
  // An address that does not fit a signed 32-bit value ends the operation
  // with its failure line but reports nothing: the exit status stays 0.
  EXPECT_TRUE(Has(r, "Saving data file [neg.bin] ...\n- Failed to save data file\n")) << r.out;
  EXPECT_TRUE(Has(r, "Opening data file [in.bin] ...\n- Failed to open data file\n")) << r.out;
}

// Each refused open is reported by its message (the failure line stays
// hidden behind it), and the image saved after it is still good.hex.
TEST(DataFile, RefusedOpensKeepThePreviousImage) {
  TempDir dir;
  dir.write("good.hex", kFourBytesHex);
  dir.write("bad.hex", "x");
  dir.write("data.txt", "abc");
  ASSERT_EQ(mkfifo(dir.file("fifo.hex").c_str(), 0644), 0);
  ASSERT_EQ(symlink("/dev/zero", dir.file("zero.bin").c_str()), 0);
  ASSERT_EQ(mkdir(dir.file("d.mot").c_str(), 0755), 0);
  // Sparse files: the sizes cost no disk.
  for (const auto& [name, size] :
       {std::pair{"big.bin", 0x100000000ll}, {"bigger.bin", 0x100000010ll}, {"half.bin", 0x80000002ll}}) {
    dir.write(name, "");
    ASSERT_EQ(truncate(dir.file(name).c_str(), size), 0);
  }
  // Linear base 0xFFFF0000: 4 bytes at 0xFFFFFFFE run past the top.
  dir.write("top.hex", ":02000004FFFFFC\r\n:04FFFE0001020304F5\r\n:00000001FF\r\n");
  dir.write("top.mot", "S309FFFFFFFE01020304F1\r\n");
  const std::string invalid = "]\nInvalid file handle!";
  const std::string tooLarge = "Could not read file. File is 4 GiB or larger.";
  const struct {
    std::vector<std::string> open;
    std::string message;
  } cases[] = {
      {{"bad.hex"}, "Error in line 1: Not a hex file"},
      {{"missing.hex"}, "Could not open file [missing.hex]\nFile not found!"},
      {{"data.txt"}, "Unsupported file type (*.txt)"},
      {{"fifo.hex"}, "Could not open file [fifo.hex" + invalid},
      {{"zero.bin", "0"}, "Could not open file [zero.bin" + invalid},
      {{"d.mot"}, "Could not open file [d.mot" + invalid},
      {{"big.bin", "0"}, tooLarge},
      {{"bigger.bin", "0x100"}, tooLarge},
      {{"half.bin", "0x7FFFFFFF"}, "Could not read file. Address range exceeds 0xFFFFFFFF."},
      {{"top.hex"}, "Error in line 2: Address range exceeds 0xFFFFFFFF"},
      {{"top.mot"}, "Error in line 1: Address range exceeds 0xFFFFFFFF"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> args{"-open", "good.hex", "-open"};
    args.insert(args.end(), c.open.begin(), c.open.end());
    args.insert(args.end(), {"-saveas", "kept.mot"});
    std::remove(dir.file("kept.mot").c_str());
    const RunResult r = RunIn(dir, args);
    EXPECT_EQ(r.exitStatus, 0) << c.open[0] << "\n" << r.out;
    EXPECT_TRUE(Has(r, "Opening data file [" + c.open[0] + "] ...\n- ERROR: " + c.message + "\n")) << c.open[0] << "\n"
                                                                                                   << r.out;
    EXPECT_FALSE(Has(r, "Failed to open data file")) << r.out;
    EXPECT_EQ(dir.read("kept.mot"), kFourBytesMot) << c.open[0];
  }
  // Two bytes that end on the top of the address space exactly load.
  dir.write("end.hex", ":02000004FFFFFC\r\n:02FFFE000102FE\r\n:00000001FF\r\n");
  const RunResult end = RunIn(dir, {"-open", "end.hex"});
  EXPECT_EQ(end.exitStatus, 0) << end.out;
  EXPECT_TRUE(Has(end, "Data file opened successfully (2 bytes, 1 range)")) << end.out;
}

TEST(DataFile, ProjectsAreRegularFilesToo) {
  TempDir dir;
  ASSERT_EQ(mkfifo(dir.file("fifo.pellam").c_str(), 0644), 0);
  const RunResult r = RunIn(dir, {"-openprj", "fifo.pellam"});
  EXPECT_EQ(r.exitStatus, 1) << r.out;
  EXPECT_TRUE(Has(r,
                  "Opening project file [fifo.pellam] ...\n- ERROR: Could not open file [fifo.pellam]\n"
                  "Invalid file handle!\n"))
      << r.out;
  // A FIFO named as the default project does not hold up the start either.
  ASSERT_EQ(mkfifo(dir.file("Default.pellam").c_str(), 0644), 0);
  EXPECT_NE(RunIn(dir, {"-open", "x.hex"}).exitStatus, -1);
}

TEST(DataFile, FailedSaveReportsAndExitsOne) {
  TempDir dir;
  dir.write("in.hex", kFourBytesHex);
  ASSERT_EQ(symlink("/dev/full", dir.file("full.hex").c_str()), 0);
  dir.write("plain", "x");
  const std::pair<std::string, std::string> cases[] = {
      {"full.hex", "ERROR: Error writing file.\n"},
      {"plain/sub.mot", "ERROR: Could not write file.\nplain/sub.mot\n"},
      {"out.elf", "ERROR: Unsupported file type (*.elf)\n"},
  };
  for (const auto& [target, message] : cases) {
    const RunResult r = RunIn(dir, {"-open", "in.hex", "-saveas", target});
    EXPECT_EQ(r.exitStatus, 1) << target << "\n" << r.out;
    EXPECT_TRUE(Has(r, "Saving data file [" + target + "] ...\n- " + message)) << target << "\n" << r.out;
    EXPECT_FALSE(Has(r, "Failed to save data file")) << r.out;
    EXPECT_FALSE(Has(r, "Data file saved successfully")) << r.out;
  }
}

}  // namespace
