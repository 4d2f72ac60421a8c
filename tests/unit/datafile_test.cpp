// Data file readers and writers: byte-exact output, the readers' quirks and
// error texts, running out of memory, and round trips.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "datafile/datafile.h"
#include "dataimage/memimage.h"
#include "sys/sys.h"
#include "tests/e2e/run_program.h"

namespace {

struct Image {
  MemImage* p = MEMIMAGE_Create();
  ~Image() { MEMIMAGE_Delete(p); }
  void Add(uint32_t start, const std::vector<uint8_t>& bytes) {
    ASSERT_EQ(MEMIMAGE_AddData(p, start, static_cast<uint32_t>(bytes.size()), bytes.data(), -1), 0);
  }
  // "start:size" per range, for compact comparisons.
  std::string Layout() {
    std::string out;
    char buf[40];
    for (int32_t i = 0;; i++) {
      uint32_t s = 0, n = 0;
      if (MEMIMAGE_GetRange(p, i, &s, &n) == nullptr && (i >= static_cast<int32_t>(p->rangeCount))) break;
      std::snprintf(buf, sizeof buf, "%s%X:%X", out.empty() ? "" : " ", s, n);
      out += buf;
    }
    return out;
  }
};

struct Loaded {
  int result;
  std::string error;
  std::string layout;
};

// Writes `text` as the file `name` and reads it with the reader its
// extension names (a binary at 0x1000), reporting progress when asked.
Loaded Load(const TempDir& d, const std::string& name, const std::string& text, Image& im,
            DATAFILE_PROGRESS_FUNC progress = nullptr, void* context = nullptr) {
  d.write(name, text);
  char err[256] = {};
  const std::string path = d.file(name);
  int r;
  if (name.ends_with(".hex")) {
    r = DATAFILE_ReadHexEx(im.p, path.c_str(), err, sizeof err, progress, context);
  } else if (name.ends_with(".bin")) {
    r = DATAFILE_ReadBinEx(im.p, path.c_str(), err, sizeof err, 0x1000, progress, context);
  } else {
    r = DATAFILE_ReadMotEx(im.p, path.c_str(), err, sizeof err, progress, context);
  }
  return {r, err, im.Layout()};
}

// Saves the image with the writer the extension names (binary and C over
// the window [first, last]), reporting progress when asked.
int Save(MemImage* im, const std::string& path, char* err, uint32_t errSize, uint32_t first = 0,
         uint32_t last = 0xFFFFFFFF, DATAFILE_PROGRESS_FUNC progress = nullptr, void* context = nullptr) {
  const char* p = path.c_str();
  if (path.ends_with(".hex")) return DATAFILE_WriteHexEx(im, p, err, errSize, progress, context);
  if (path.ends_with(".bin")) return DATAFILE_WriteBinEx(im, p, err, errSize, first, last, progress, context);
  if (path.ends_with(".c")) return DATAFILE_WriteCEx(im, p, err, errSize, first, last, progress, context);
  return DATAFILE_WriteMotEx(im, p, err, errSize, progress, context);
}

TEST(Readers, RecordsAndQuirks) {
  const std::string eof = ":00000001FF\r\n";
  struct Case {
    const char* name;
    std::string text;
    int result;
    std::string error;
    std::string layout;
  } cases[] = {
      {"lower.hex", ":0a0000000102030405060708090abf\n", 0, "", "0:A"},
      {"linear.hex", ":020000040801F1\r\n:0400000001020304F2\r\n" + eof, 0, "", "8010000:4"},
      {"segment-and-linear.hex", ":020000021000EC\r\n:020000040001F9\r\n:0400000001020304F2\r\n", 0, "", "20000:4"},
      {"typeFF-as-linear.hex", ":020000FF0001FE\r\n:0400000001020304F2\r\n", 0, "", "10000:4"},
      {"data-after-eof.hex", eof + ":0400000001020304F2\r\n", 0, "", "0:4"},
      {"end-mark.hex", ":0400000001020304F2\r\n\x1A", -5,
       "Error in line 2: Unexpected character (Expected: :, Found: \x1A)", "0:4"},
      {"empty.hex", "", -4, "Error in line 1: Not a hex file", ""},
      {"leading-blank.hex", " :0400000001020304F2\r\n", -4, "Error in line 1: Not a hex file", ""},
      {"bad-digit.hex", ":04000000010G0304F2\r\n", -5, "Error in line 1: Expected Hex character : 0..9, A..F", ""},
      {"truncated.hex", ":0400000001020304", -5, "Error in line 1: Expected Hex character : 0..9, A..F", ""},
      {"signed-checksum.hex", ":0100000000FF\r\n:0100010000FE\r\n:0100020000FE\r\n", -5,
       "Error in line 3: Checksum error !\nExpected: 0xFFFFFFFD, found: 0xFFFFFFFE", "0:2"},
      {"small-checksum.hex", ":0100000000FF\r\n:01000001801E\r\n", -5,
       "Error in line 2: Checksum error !\nExpected: 0x7E, found: 0x1E", "0:1"},
      {"overlap.hex", ":0400000001020304F2\r\n:0400020001020304F0\r\n", -5, "Error in line 2: Areas overlap", "0:4"},
      {"junk.hex", ":0400000001020304F2x\r\n", -5, "Error in line 1: Expected CR or LF", "0:4"},
      {"zero-byte-ends.hex", std::string(":0400000001020304F2\r\n\0garbage", 30), 0, "", "0:4"},
      {"plain.mot", "S107000001020304EE\r\nS9030000FC\r\n", 0, "", "0:4"},
      {"blank-after-S.mot", "S 107000001020304EE\n", 0, "", "0:4"},
      {"S2-and-S3.mot", "S2060100000102F5\nS3090100000001020304EB\n", 0, "", "10000:2 1000000:4"},
      {"header-and-count.mot", "S00F000068656C6C6F202020202000003C\nS107000001020304EE\nS5030001FB\n", 0, "", "0:4"},
      {"type-letter.mot", "SA07000001020304EE\n", -5, "Error in line 1: Unexpected character", ""},
      {"empty.mot", "", -4, "Error in line 1: Not a mot file", ""},
      {"end-mark.mot", "S9030000FC\r\n\x1A", 0, "", ""},
      // An end mark with more than 999 bytes behind it is not where a
      // refill lands, so it is not seen as the end.
      {"end-mark-far.mot", "S107000001020304EE\n\x1A" + std::string(1200, ' '), -5,
       "Error in line 2: Unexpected character", "0:4"},
      {"bad-digit.mot", "S107000001020X04EE\n", -5, "Error in line 1: Expected Hex character : 0..9, A..F", ""},
      {"checksum.mot", "S107000001020304EE\nS107000401020304EA\nS107000801020304EF\n", -5,
       "Error in line 3: Checksum error! Checksum in file: 0xEF, checksum calculated 0xE6", "0:8"},
      {"overlap.mot", "S107000001020304EE\nS107000201020304EC\n", -5, "Error in line 2: Areas overlap", "0:4"},
      {"CR-alone.mot", "S107000001020304EE\rS107000401020304EA\rSX", -5, "Error in line 1: Unexpected character",
       "0:8"},
  };
  for (const auto& c : cases) {
    TempDir d;
    Image im;
    const Loaded got = Load(d, c.name, c.text, im);
    EXPECT_EQ(got.result, c.result) << c.name;
    EXPECT_EQ(got.error, c.error) << c.name;
    EXPECT_EQ(got.layout, c.layout) << c.name;
    EXPECT_EQ(im.p->changeCount, 0u) << c.name;
  }
}

// Blank lines are only skipped where a record follows a refill of the
// input buffer, which is every record of a short file.
TEST(Readers, HexBlankLineAcceptedOnlyAfterRefill) {
  // One-byte records at addresses from..to-1.
  auto records = [](int from, int to) {
    std::string text;
    for (int i = from; i < to; i++) {
      char line[64];
      std::snprintf(line, sizeof line, ":01%04X00%02X%02X\r\n", i, i, (0x100 - ((1 + i + i) & 0xFF)) & 0xFF);
      text += line;
    }
    return text;
  };
  const std::string first = records(0, 1), rest = records(1, 40), tail = records(40, 80);
  TempDir d;
  Image im;  // long file with an empty line after the first record
  const Loaded got = Load(d, "in.hex", first + "\r\n" + rest + tail, im);
  EXPECT_EQ(got.result, -5);
  EXPECT_EQ(got.error, "Error in line 2: Unexpected character (Expected: :, Found: \r)");
  Image shortFile;  // every record follows a refill
  const Loaded fine = Load(d, "in.hex", first + "\r\n" + rest, shortFile);
  EXPECT_EQ(fine.result, 0) << fine.error;
  EXPECT_EQ(fine.layout, "0:28");
}

TEST(Writers, ExactOutput) {
  std::vector<uint8_t> forty(40);
  for (size_t i = 0; i < forty.size(); i++) forty[i] = static_cast<uint8_t>(i);
  const std::vector<uint8_t> four{1, 2, 3, 4}, none;
  struct Case {
    const char* name;
    uint32_t start;
    const std::vector<uint8_t>& bytes;
    std::string expect;
  } cases[] = {
      {"o.hex", 0x0001FFF0, forty,
       ":020000040001F9\r\n:20FFF000000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F01\r\n"
       ":020000040002F8\r\n:080010002021222324252627CC\r\n:00000001FF\r\n"},
      {"e.hex", 0, none, ":00000001FF\r\n"},
      {"s3.mot", 0x00FFFFFE, four, "S30900FFFFFE01020304F0\r\nS9030000FC\r\n"},
      {"s2.mot", 0x12345, four, "S2080123450102030484\r\nS9030000FC\r\n"},
      {"e.mot", 0, none, "S9030000FC\r\n"},
  };
  for (const auto& c : cases) {
    TempDir d;
    Image im;
    if (!c.bytes.empty()) im.Add(c.start, c.bytes);
    char err[256] = "stale";
    ASSERT_EQ(Save(im.p, d.file(c.name), err, sizeof err), 0) << c.name;
    EXPECT_STREQ(err, "") << c.name;
    EXPECT_EQ(d.read(c.name), c.expect) << c.name;
  }
}

TEST(Binary, ReadAtBaseAndWriteWindows) {
  TempDir d;
  std::string big(70000, '\0');
  for (size_t i = 0; i < big.size(); i++) big[i] = static_cast<char>(i * 7);
  d.write("big.bin", big);
  Image im;
  char err[256] = {};
  ASSERT_EQ(DATAFILE_ReadBin(im.p, d.file("big.bin").c_str(), err, sizeof err, 0x08000000), 0);
  EXPECT_EQ(im.Layout(), "8000000:11170");
  EXPECT_EQ(MEMIMAGE_ReadByte(im.p, 0x0801116F), static_cast<uint8_t>(69999 * 7));

  // Gaps before and inside the window are 0xFF; nothing follows the last
  // data byte in it.
  Image two;
  two.Add(0x110, std::vector<uint8_t>(0x10, 0x11));
  two.Add(0x180, std::vector<uint8_t>(0x10, 0x22));
  const std::string ff(0x60, '\xFF');
  const std::tuple<uint32_t, uint32_t, std::string> windows[] = {
      {0x100, 0x1FF, std::string(0x10, '\xFF') + std::string(0x10, '\x11') + ff + std::string(0x10, '\x22')},
      {0x0, 0xFF, ""},
      {0x118, 0x183, std::string(8, '\x11') + ff + std::string(4, '\x22')},
      {0x190, 0x200, ""},
  };
  for (const auto& [first, last, expect] : windows) {
    ASSERT_EQ(DATAFILE_WriteBin(two.p, d.file("w.bin").c_str(), err, sizeof err, first, last), 0);
    EXPECT_EQ(d.read("w.bin"), expect) << std::hex << first;
  }
}

TEST(CSource, ExactOutput) {
  TempDir d;
  Image im;
  im.Add(0x100, std::vector<uint8_t>(17, 0xAB));
  char err[256];
  ASSERT_EQ(DATAFILE_WriteC(im.p, d.file("s.c").c_str(), err, sizeof err, 0x100, 0x110), 0);
  std::string row;
  for (int i = 0; i < 16; i++) row += " 0xAB,";
  const std::string out = d.read("s.c");
  EXPECT_NE(out.find("\r\nMemory image: 0x0100 - 0x0110\r\n*/\r\n\r\nstatic const unsigned char _acs[0x11] = {\r\n " +
                     row + "\r\n  0xAB\r\n};\r\n\r\n/*** end of file ***/\r\n"),
            std::string::npos)
      << out;
  ASSERT_EQ(DATAFILE_WriteC(im.p, d.file("r.c").c_str(), err, sizeof err, 0x102, 0x100), 0);
  EXPECT_NE(d.read("r.c").find("_acr[0xFFFFFFFF] = {\r\n};\r\n"), std::string::npos);
}

// Failed writes: one message however often the device refuses, cut to the
// caller's buffer; directories on the way are made. The command-line runs
// pin the open and write-path messages.
TEST(Errors, FailedWritesKeepTheChangeCount) {
  TempDir d;
  Image im;
  char err[256] = {};
  im.Add(0, std::vector<uint8_t>(100000, 0x5A));
  // A full device: the buffer writes fail and the final write too; one message.
  EXPECT_EQ(DATAFILE_WriteHex(im.p, "/dev/full", err, sizeof err), -1);
  EXPECT_EQ(DATAFILE_WriteBin(im.p, "/dev/full", err, 8, 0, 10), -1);  // small buffer: cut
  EXPECT_STREQ(err, "Error w");
  EXPECT_EQ(DATAFILE_WriteMot(im.p, "/dev/full", err, 0), -1);  // no room for a message: still a failure
  EXPECT_EQ(DATAFILE_WriteMot(im.p, "", err, sizeof err), -1);
  EXPECT_STREQ(err, "Could not write file. Invalid filename.");
  EXPECT_EQ(DATAFILE_WriteMot(im.p, d.file("a/b").c_str(), err, sizeof err), 0);  // directories are made

  // A failed save leaves the change count as it was.
  MEMIMAGE_SetByte(im.p, 5, 1);
  const uint32_t before = im.p->changeCount;
  EXPECT_EQ(DATAFILE_WriteHex(im.p, "/dev/full", err, sizeof err), -1);
  EXPECT_EQ(im.p->changeCount, before);
  EXPECT_EQ(DATAFILE_WriteHex(im.p, d.file("ok.hex").c_str(), err, sizeof err), 0);
  EXPECT_EQ(im.p->changeCount, 0u);
}

// Every allocation of a save failing in turn (the writer, its buffer, the
// binary writer's block): each failure is told, the save is no success, and
// the change count stays. A failed open does not leak what it allocated.
TEST(Errors, OutOfMemoryWhileSaving) {
  TempDir d;
  Image im;
  im.Add(0x100, std::vector<uint8_t>(0x300, 0x5A));
  char err[256];
  for (const char* name : {"o.bin", "o.hex", "o.mot", "o.c"}) {
    uint32_t n = 1;
    for (;; n++) {
      MEMIMAGE_SetByte(im.p, 0x100, 1);
      const uint32_t before = im.p->changeCount;
      SYS_TEST_FailAllocation(n);
      const int r = Save(im.p, d.file(name), err, sizeof err, 0x100, 0x3FF);
      const bool reached = SYS_TEST_AllocFailurePending() == 0;
      SYS_TEST_FailAllocation(0);
      if (!reached) {
        EXPECT_EQ(r, 0) << name;
        break;
      }
      EXPECT_EQ(r, -1) << name << " allocation " << n;
      EXPECT_STREQ(err, "Could not write file. Out of memory.") << name << " allocation " << n;
      EXPECT_EQ(im.p->changeCount, before) << name << " allocation " << n;
    }
    EXPECT_GE(n, std::string(name) == "o.bin" ? 4u : 3u) << name;
  }

  const long heldBefore = static_cast<long>(mallinfo2().uordblks);
  for (int i = 0; i < 100; i++) EXPECT_EQ(Save(im.p, d.file("o.hex/x.hex"), err, sizeof err), -1);
  EXPECT_LT(static_cast<long>(mallinfo2().uordblks) - heldBefore, 100000) << "a failed open leaks its buffers";
}

// Random images, with a range at the very top of the address space and
// files long enough to refill the readers' input buffer, survive a round
// trip through both text formats: the image read back has the same ranges
// and writes the same file again.
TEST(RoundTrip, HexAndMotKeepTheImage) {
  for (uint32_t seed = 1; seed <= 5; seed++) {
    TempDir d;
    Image im;
    std::mt19937 rng(seed);
    uint32_t addr = rng() % 0x100;
    for (int i = 0; i < 30; i++) {
      std::vector<uint8_t> bytes(1 + rng() % 4000);
      for (auto& b : bytes) b = static_cast<uint8_t>(rng());
      im.Add(addr, bytes);
      addr += static_cast<uint32_t>(bytes.size()) + 1 + rng() % (i % 5 == 0 ? 0x30000 : 40);
    }
    im.Add(0xFFFFFF00u, std::vector<uint8_t>(0x100, 0x42));
    for (const char* name : {"r.hex", "r.mot"}) {
      char err[256];
      ASSERT_EQ(Save(im.p, d.file(name), err, sizeof err), 0);
      const std::string text = d.read(name);
      Image back;
      ASSERT_EQ(Load(d, name, text, back).result, 0);
      EXPECT_EQ(back.Layout(), im.Layout()) << seed << " " << name;
      ASSERT_EQ(Save(back.p, d.file(name), err, sizeof err), 0);
      EXPECT_TRUE(d.read(name) == text) << seed << " " << name;
    }
  }
}

// The entry points with a progress function call it once per chunk, data
// record, block or C line, with the address and the range count before it.
TEST(Progress, EveryEntryPointReports) {
  using Calls = std::vector<std::pair<uint32_t, uint32_t>>;
  const DATAFILE_PROGRESS_FUNC record = [](void* context, const DATAFILE_PROGRESS* p) {
    static_cast<Calls*>(context)->emplace_back(p->address, p->numRanges);
  };
  TempDir d;
  const struct {
    const char* name;
    std::string text;
    Calls expect;
  } reads[] = {
      {"in.hex",
       ":0400000001020304F2\r\n:020000040001F9\r\n:0400100001020304E2\r\n:00000001FF\r\n",
       {{0, 0}, {0x10010, 1}}},
      {"in.mot", "S00600004844521B\nS107000001020304EE\nS20801001001020304DC\nS9030000FC\n", {{0, 0}, {0x10010, 1}}},
      {"in.bin", std::string(70000, 'x'), {{0x1000, 0}, {0x9000, 1}, {0x11000, 1}}},
  };
  for (const auto& c : reads) {
    Image im;
    Calls calls;
    EXPECT_EQ(Load(d, c.name, c.text, im, record, &calls).result, 0) << c.name;
    EXPECT_EQ(calls, c.expect) << c.name;
  }
  Image src;
  src.Add(0x1FFF0, std::vector<uint8_t>(40, 0x5A));
  const std::pair<const char*, Calls> writes[] = {
      {"out.hex", {{0x1FFF0, 1}, {0x20010, 1}}},
      {"out.mot", {{0x1FFF0, 1}, {0x20010, 1}}},
      {"out.bin", {{0x1FFF0, 1}}},
      {"out.c", {{0x1FFF0, 1}, {0x20000, 1}, {0x20010, 1}}},
  };
  for (const auto& [name, expect] : writes) {
    Calls calls;
    char err[256];
    EXPECT_EQ(Save(src.p, d.file(name), err, sizeof err, 0x1FFF0, 0x20017, record, &calls), 0) << name;
    EXPECT_EQ(calls, expect) << name;
  }
}

}  // namespace
