// Opening and saving data files from the command line: the operation lines,
// the failure lines, the exit status and the files written.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/e2e/run_program.h"

namespace {

RunResult RunIn(const TempDir& dir, const std::vector<std::string>& args) {
  RunResult r = RunProgram(args, dir.path(), {"HOME=" + dir.path()});
  r.out = StripCR(r.out);
  return r;
}

const char kFourBytesHex[] = ":0400000001020304F2\r\n:00000001FF\r\n";

TEST(DataFile, OpenHexSaveAsEveryFormat) {
  TempDir dir;
  dir.write("in.hex", kFourBytesHex);
  const RunResult r = RunIn(dir, {"-open", "in.hex", "-saveas", "out.mot", "-saveas", "out.hex", "-saveas",
                                  "out.bin", "0x1-0x3", "-saveas", "out.c", "0x0-0x4"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_TRUE(Has(r, "Opening data file [in.hex] ...\n- Data file opened successfully (4 bytes, 1 range)\n"))
      << r.out;
  EXPECT_TRUE(Has(r, "Saving data file [out.mot] ...\n- Data file saved successfully (4 bytes, 1 range)\n"))
      << r.out;
  EXPECT_EQ(dir.read("out.mot"), "S107000001020304EE\r\nS9030000FC\r\n");
  EXPECT_EQ(dir.read("out.hex"), kFourBytesHex);
  EXPECT_EQ(dir.read("out.bin"), "\x02\x03\x04");
  EXPECT_NE(dir.read("out.c").find("_acout[0x5] = {\r\n  0x01, 0x02, 0x03, 0x04, 0xFF\r\n};"), std::string::npos);
}

TEST(DataFile, BinaryAtBaseAddressAndPluralRanges) {
  TempDir dir;
  dir.write("in.bin", std::string("\x01\x02", 2));
  dir.write("in.mot", "S1050000AABB95\nS1051000CCDD41\n");
  const RunResult r = RunIn(dir, {"-open", "in.bin", "0x08000000", "-saveas", "a.hex", "-open", "in.mot",
                                  "-saveas", "b.mot"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(dir.read("a.hex"), ":020000040800F2\r\n:020000000102FB\r\n:00000001FF\r\n");
  EXPECT_TRUE(Has(r, "Data file opened successfully (4 bytes, 2 ranges)")) << r.out;
  EXPECT_EQ(dir.read("b.mot"), "S1050000AABB95\r\nS1051000CCDD41\r\nS9030000FC\r\n");
}

// Bad input: the stated message (the failure line stays hidden behind it),
// exit status 1, and the image opened before stays current.
TEST(DataFile, FailedOpenKeepsPreviousImage) {
  struct Case {
    const char* file;
    std::string contents;  // empty name of contents: the file is not created
    std::string message;
  } cases[] = {
      {"bad.hex", "x", "ERROR: Error in line 1: Not a hex file"},
      {"bad.mot", "S107000001020304EE\nS1070004010203\n", "ERROR: Error in line 2: Expected Hex character : 0..9, A..F"},
      {"missing.hex", "-", "ERROR: Could not open file [missing.hex]\nFile not found!"},
      {"data.txt", "abc", "ERROR: Unsupported file type (*.txt)"},
  };
  for (const auto& c : cases) {
    TempDir dir;
    dir.write("good.hex", kFourBytesHex);
    if (c.contents != "-") dir.write(c.file, c.contents);
    const RunResult r = RunIn(dir, {"-open", "good.hex", "-open", c.file});
    EXPECT_EQ(r.exitStatus, 1) << c.file << "\n" << r.out;
    EXPECT_TRUE(Has(r, c.message + "\n")) << c.file << "\n" << r.out;
    EXPECT_FALSE(Has(r, "Failed to open data file")) << c.file << "\n" << r.out;
    const RunResult s = RunIn(dir, {"-open", "good.hex", "-open", c.file, "-saveas", "kept.mot"});
    EXPECT_EQ(s.exitStatus, 0) << c.file;
    EXPECT_EQ(dir.read("kept.mot"), "S107000001020304EE\r\nS9030000FC\r\n") << c.file;
  }
}

TEST(DataFile, FailedSaveReportsAndExitsOne) {
  TempDir dir;
  dir.write("in.hex", kFourBytesHex);
  ASSERT_EQ(symlink("/dev/full", dir.file("full.hex").c_str()), 0);
  dir.write("plain", "x");
  struct Case {
    std::string target;
    std::string message;
  } cases[] = {
      {"full.hex", "ERROR: Error writing file.\n"},
      {"plain/sub.mot", "ERROR: Could not write file.\nplain/sub.mot\n"},
      {"out.elf", "ERROR: Unsupported file type (*.elf)\n"},
  };
  for (const auto& c : cases) {
    const RunResult r = RunIn(dir, {"-open", "in.hex", "-saveas", c.target});
    EXPECT_EQ(r.exitStatus, 1) << c.target << "\n" << r.out;
    EXPECT_TRUE(Has(r, "Saving data file [" + c.target + "] ...\n")) << r.out;
    EXPECT_TRUE(Has(r, c.message)) << c.target << "\n" << r.out;
    EXPECT_FALSE(Has(r, "Failed to save data file")) << r.out;
    EXPECT_FALSE(Has(r, "Data file saved successfully")) << r.out;
  }
}

// An address that does not fit a signed 32-bit value ends the operation with
// its failure line but reports nothing: the exit status stays 0.
TEST(DataFile, NegativeAddressEndsWithoutError) {
  TempDir dir;
  dir.write("in.bin", "ab");
  const RunResult o = RunIn(dir, {"-open", "in.bin", "0x80000000"});
  EXPECT_EQ(o.exitStatus, 0) << o.out;
  EXPECT_TRUE(Has(o, "Opening data file [in.bin] ...\n- Failed to open data file\n")) << o.out;
  const RunResult s = RunIn(dir, {"-open", "in.bin", "0", "-saveas", "out.bin", "0-0x80000000"});
  EXPECT_EQ(s.exitStatus, 0) << s.out;
  EXPECT_TRUE(Has(s, "Saving data file [out.bin] ...\n- Failed to save data file\n")) << s.out;
}

TEST(DataFile, SaveWritesToTheLastNamedFile) {
  TempDir dir;
  dir.write("in.hex", kFourBytesHex);
  const RunResult r = RunIn(dir, {"-open", "in.hex", "-saveas", "one.s", "-save"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(dir.read("one.s"), "S107000001020304EE\r\nS9030000FC\r\n");
  EXPECT_TRUE(Has(r, "Saving data file [one.s] ...\n- Data file saved successfully (4 bytes, 1 range)\n"
                                       "Saving data file [one.s] ...\n"))
      << r.out;
}

}  // namespace
