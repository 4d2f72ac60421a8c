// Data file readers and writers: byte-exact output, the readers' quirks and
// error texts, round trips, and files exchanged with GNU objcopy.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "dataimage/memimage.h"
#include "datafile/datafile.h"
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
  std::vector<uint8_t> Bytes(uint32_t start, uint32_t n) {
    std::vector<uint8_t> v(n);
    MEMIMAGE_ReadArea(p, start, n, v.data(), 0xEE);
    return v;
  }
};

struct Loaded {
  int result;
  std::string error;
  std::string layout;
};

Loaded LoadHex(const TempDir& d, const std::string& text, Image& im) {
  d.write("in.hex", text);
  char err[256] = {};
  const int r = DATAFILE_ReadHex(im.p, d.file("in.hex").c_str(), err, sizeof err);
  return {r, err, im.Layout()};
}

Loaded LoadMot(const TempDir& d, const std::string& text, Image& im) {
  d.write("in.mot", text);
  char err[256] = {};
  const int r = DATAFILE_ReadMot(im.p, d.file("in.mot").c_str(), err, sizeof err);
  return {r, err, im.Layout()};
}

// ---- Intel HEX ----

TEST(HexReader, RecordsAndQuirks) {
  const std::string eof = ":00000001FF\r\n";
  struct Case {
    const char* name;
    std::string text;
    int result;
    std::string error;
    std::string layout;
  } cases[] = {
      {"plain", ":0400000001020304F2\r\n" + eof, 0, "", "0:4"},
      {"lower case", ":0a0000000102030405060708090abf\n", 0, "", "0:A"},
      {"extended linear", ":020000040801F1\r\n:0400000001020304F2\r\n" + eof, 0, "", "8010000:4"},
      {"segment plus linear add up", ":020000021000EC\r\n:020000040001F9\r\n:0400000001020304F2\r\n", 0, "",
       "20000:4"},
      {"type FF as linear", ":020000FF0001FE\r\n:0400000001020304F2\r\n", 0, "", "10000:4"},
      {"data after end of file", eof + ":0400000001020304F2\r\n", 0, "", "0:4"},
      {"end mark at end", ":0400000001020304F2\r\n\x1A", -5,
       "Error in line 2: Unexpected character (Expected: :, Found: \x1A)", "0:4"},
      {"empty file", "", -4, "Error in line 1: Not a hex file", ""},
      {"leading blank", " :0400000001020304F2\r\n", -4, "Error in line 1: Not a hex file", ""},
      {"bad digit", ":04000000010G0304F2\r\n", -5, "Error in line 1: Expected Hex character : 0..9, A..F", ""},
      {"truncated", ":0400000001020304", -5, "Error in line 1: Expected Hex character : 0..9, A..F", ""},
      {"checksum as signed bytes", ":0100000000FF\r\n:0100010000FE\r\n:0100020000FE\r\n", -5,
       "Error in line 3: Checksum error !\nExpected: 0xFFFFFFFD, found: 0xFFFFFFFE", "0:2"},
      {"checksum small", ":0100000000FF\r\n:01000001801E\r\n", -5,
       "Error in line 2: Checksum error !\nExpected: 0x7E, found: 0x1E", "0:1"},
      {"overlap", ":0400000001020304F2\r\n:0400020001020304F0\r\n", -5, "Error in line 2: Areas overlap", "0:4"},
      {"junk after record", ":0400000001020304F2x\r\n", -5, "Error in line 1: Expected CR or LF", "0:4"},
      {"zero byte ends", std::string(":0400000001020304F2\r\n\0garbage", 30), 0, "", "0:4"},
  };
  for (const auto& c : cases) {
    TempDir d;
    Image im;
    const Loaded got = LoadHex(d, c.text, im);
    EXPECT_EQ(got.result, c.result) << c.name;
    EXPECT_EQ(got.error, c.error) << c.name;
    EXPECT_EQ(got.layout, c.layout) << c.name;
    EXPECT_EQ(im.p->changeCount, 0u) << c.name;
  }
}

// Blank lines are only skipped where a record follows a refill of the
// input buffer, which is every record of a short file.
TEST(HexReader, BlankLineAcceptedOnlyAfterRefill) {
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
  const Loaded got = LoadHex(d, first + "\r\n" + rest + tail, im);
  EXPECT_EQ(got.result, -5);
  EXPECT_EQ(got.error, "Error in line 2: Unexpected character (Expected: :, Found: \r)");
  Image ok;
  EXPECT_EQ(LoadHex(d, first + rest + tail, ok).result, 0);
  EXPECT_EQ(ok.Layout(), "0:50");
  Image shortFile;  // every record follows a refill
  const Loaded fine = LoadHex(d, first + "\r\n" + rest, shortFile);
  EXPECT_EQ(fine.result, 0) << fine.error;
  EXPECT_EQ(fine.layout, "0:28");
}

TEST(HexWriter, ExactOutput) {
  TempDir d;
  std::vector<uint8_t> bytes(40);
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<uint8_t>(i);
  Image im;
  im.Add(0x0001FFF0, bytes);
  char err[256] = "stale";
  ASSERT_EQ(DATAFILE_WriteHex(im.p, d.file("o.hex").c_str(), err, sizeof err), 0);
  EXPECT_STREQ(err, "");
  const std::string out = d.read("o.hex");
  std::vector<std::string> lines;
  std::stringstream ss(out);
  for (std::string l; std::getline(ss, l);) lines.push_back(l);
  ASSERT_EQ(lines.size(), 5u) << out;
  EXPECT_EQ(lines[0], ":020000040001F9\r");
  EXPECT_EQ(lines[1].substr(0, 9), ":20FFF000");
  EXPECT_EQ(lines[2], ":020000040002F8\r");
  EXPECT_EQ(lines[3], ":080010002021222324252627CC\r");
  EXPECT_EQ(lines[4], ":00000001FF\r");

  Image empty;
  ASSERT_EQ(DATAFILE_WriteHex(empty.p, d.file("e.hex").c_str(), err, sizeof err), 0);
  EXPECT_EQ(d.read("e.hex"), ":00000001FF\r\n");
}

// ---- S-record ----

TEST(MotReader, RecordsAndQuirks) {
  struct Case {
    const char* name;
    std::string text;
    int result;
    std::string error;
    std::string layout;
  } cases[] = {
      {"plain", "S107000001020304EE\r\nS9030000FC\r\n", 0, "", "0:4"},
      {"blank after S", "S 107000001020304EE\n", 0, "", "0:4"},
      {"S2 and S3", "S2060100000102F5\nS3090100000001020304EB\n", 0, "", "10000:2 1000000:4"},
      {"header ignored", "S00F000068656C6C6F202020202000003C\nS107000001020304EE\n", 0, "", "0:4"},
      {"type letter", "SA07000001020304EE\n", -5, "Error in line 1: Unexpected character", ""},
      {"empty file", "", -4, "Error in line 1: Not a mot file", ""},
      {"end mark", "S9030000FC\r\n\x1A", 0, "", ""},
      // An end mark with more than 999 bytes behind it is not where a
      // refill lands, so it is not seen as the end.
      {"end mark far from the end", "S107000001020304EE\n\x1A" + std::string(1200, ' '), -5,
       "Error in line 2: Unexpected character", "0:4"},
      {"bad digit", "S107000001020X04EE\n", -5, "Error in line 1: Expected Hex character : 0..9, A..F", ""},
      {"checksum", "S107000001020304EE\nS107000401020304EA\nS107000801020304EF\n", -5,
       "Error in line 3: Checksum error! Checksum in file: 0xEF, checksum calculated 0xE6", "0:8"},
      {"overlap", "S107000001020304EE\nS107000201020304EC\n", -5, "Error in line 2: Areas overlap", "0:4"},
      {"CR alone does not count", "S107000001020304EE\rS107000401020304EA\rSX", -5,
       "Error in line 1: Unexpected character", "0:8"},
  };
  for (const auto& c : cases) {
    TempDir d;
    Image im;
    const Loaded got = LoadMot(d, c.text, im);
    EXPECT_EQ(got.result, c.result) << c.name;
    EXPECT_EQ(got.error, c.error) << c.name;
    EXPECT_EQ(got.layout, c.layout) << c.name;
  }
}

TEST(MotWriter, ExactOutput) {
  struct Case {
    uint32_t start;
    std::string expect;
  } cases[] = {
      {0x00FFFFFE, "S30900FFFFFE01020304F0\r\nS9030000FC\r\n"},
      {0xFFF0, "S107FFF001020304FF\r\nS9030000FC\r\n"},
      {0x12345, "S2080123450102030484\r\nS9030000FC\r\n"},
  };
  for (const auto& c : cases) {
    TempDir d;
    Image im;
    im.Add(c.start, {1, 2, 3, 4});
    char err[256];
    ASSERT_EQ(DATAFILE_WriteMot(im.p, d.file("o.mot").c_str(), err, sizeof err), 0);
    EXPECT_EQ(d.read("o.mot"), c.expect);
  }
  TempDir d;
  Image empty;
  char err[256];
  ASSERT_EQ(DATAFILE_WriteMot(empty.p, d.file("e.mot").c_str(), err, sizeof err), 0);
  EXPECT_EQ(d.read("e.mot"), "S9030000FC\r\n");
}

// ---- Binary ----

TEST(Binary, ReadAtBaseAndWriteWindows) {
  TempDir d;
  std::string big(70000, '\0');
  for (size_t i = 0; i < big.size(); i++) big[i] = static_cast<char>(i * 7);
  d.write("big.bin", big);
  Image im;
  char err[256] = {};
  ASSERT_EQ(DATAFILE_ReadBin(im.p, d.file("big.bin").c_str(), err, sizeof err, 0x08000000), 0);
  EXPECT_EQ(im.Layout(), "8000000:11170");
  EXPECT_EQ(im.Bytes(0x0801116F, 1)[0], static_cast<uint8_t>(69999 * 7));

  Image two;
  two.Add(0x110, std::vector<uint8_t>(0x10, 0x11));
  two.Add(0x180, std::vector<uint8_t>(0x10, 0x22));
  struct Case {
    uint32_t first, last;
    std::string expect;
  } cases[] = {
      {0x100, 0x1FF,
       std::string(0x10, '\xFF') + std::string(0x10, '\x11') + std::string(0x60, '\xFF') +
           std::string(0x10, '\x22')},
      {0x0, 0xFF, ""},
      {0x118, 0x183, std::string(8, '\x11') + std::string(0x60, '\xFF') + std::string(4, '\x22')},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(DATAFILE_WriteBin(two.p, d.file("w.bin").c_str(), err, sizeof err, c.first, c.last), 0);
    EXPECT_EQ(d.read("w.bin"), c.expect) << std::hex << c.first;
  }
  Image longer;
  longer.Add(0x200, std::vector<uint8_t>(0x100, 1));
  ASSERT_EQ(DATAFILE_WriteBin(longer.p, d.file("w.bin").c_str(), err, sizeof err, 0x100, 0x200), 0);
  EXPECT_EQ(d.read("w.bin"), "");
}

// ---- C source ----

TEST(CSource, ExactOutput) {
  TempDir d;
  Image im;
  im.Add(0x100, {0x11, 0x22});
  char err[256];
  ASSERT_EQ(DATAFILE_WriteC(im.p, d.file("data.c").c_str(), err, sizeof err, 0x100, 0x102), 0);
  const std::string out = d.read("data.c");
  EXPECT_NE(out.find("\r\nMemory image: 0x0100 - 0x0102\r\n*/\r\n\r\n"
                     "static const unsigned char _acdata[0x3] = {\r\n"
                     "  0x11, 0x22, 0xFF\r\n"
                     "};\r\n\r\n/*** end of file ***/\r\n"),
            std::string::npos)
      << out;
  // The box is 73 characters wide on its first seven lines.
  std::stringstream ss(out);
  std::string line;
  for (int i = 0; i < 7 && std::getline(ss, line); i++) EXPECT_EQ(line.size(), 74u) << line;
  EXPECT_NE(out.find("You may use this feature at your own risc, Valmik assumes no liability\r\n"), std::string::npos);

  Image seventeen;
  seventeen.Add(0, std::vector<uint8_t>(17, 0xAB));
  ASSERT_EQ(DATAFILE_WriteC(seventeen.p, d.file("s.c").c_str(), err, sizeof err, 0, 16), 0);
  std::string row;
  for (int i = 0; i < 16; i++) row += " 0xAB,";
  EXPECT_NE(d.read("s.c").find("{\r\n " + row + "\r\n  0xAB\r\n};"), std::string::npos);

  ASSERT_EQ(DATAFILE_WriteC(im.p, d.file("r.c").c_str(), err, sizeof err, 0x102, 0x100), 0);
  const std::string reversed = d.read("r.c");
  EXPECT_NE(reversed.find("_acr[0xFFFFFFFF] = {\r\n};\r\n"), std::string::npos) << reversed;
}

// ---- Errors ----

TEST(Errors, OpenWriteAndFirstErrorWins) {
  TempDir d;
  Image im;
  char err[256] = {};
  EXPECT_EQ(DATAFILE_ReadHex(im.p, d.file("missing.hex").c_str(), err, sizeof err), -1);
  EXPECT_EQ(std::string(err), "Could not open file [" + d.file("missing.hex") + "]\nFile not found!");
  err[0] = 0;
  EXPECT_EQ(DATAFILE_ReadMot(im.p, (d.file("nodir") + "/x.mot").c_str(), err, sizeof err), -1);
  EXPECT_EQ(std::string(err), "Could not open file [" + d.file("nodir") + "/x.mot]\nFile not found!");

  im.Add(0, std::vector<uint8_t>(100000, 0x5A));
  // A full device: the buffer writes fail and the final write too; one message.
  EXPECT_EQ(DATAFILE_WriteHex(im.p, "/dev/full", err, sizeof err), -1);
  EXPECT_STREQ(err, "Error writing file.");
  EXPECT_EQ(DATAFILE_WriteBin(im.p, "/dev/full", err, 8, 0, 10), -1);  // small buffer: cut
  EXPECT_STREQ(err, "Error w");
  EXPECT_EQ(DATAFILE_WriteMot(im.p, "/dev/full", err, 0), -1);  // no room for a message: still a failure
  EXPECT_EQ(DATAFILE_WriteMot(im.p, "", err, sizeof err), -1);
  EXPECT_STREQ(err, "Could not write file. Invalid filename.");
  EXPECT_EQ(DATAFILE_WriteMot(im.p, d.file("a/b").c_str(), err, sizeof err), 0);  // directories are made
  d.write("file", "x");
  EXPECT_EQ(DATAFILE_WriteMot(im.p, (d.file("file") + "/y.mot").c_str(), err, sizeof err), -1);
  EXPECT_EQ(std::string(err), "Could not write file.\n" + d.file("file") + "/y.mot");

  // A failed save leaves the change count as it was.
  MEMIMAGE_SetByte(im.p, 5, 1);
  const uint32_t before = im.p->changeCount;
  EXPECT_EQ(DATAFILE_WriteHex(im.p, "/dev/full", err, sizeof err), -1);
  EXPECT_EQ(im.p->changeCount, before);
  EXPECT_EQ(DATAFILE_WriteHex(im.p, d.file("ok.hex").c_str(), err, sizeof err), 0);
  EXPECT_EQ(im.p->changeCount, 0u);

  if (geteuid() != 0) {
    d.write("ro.hex", "");
    chmod(d.file("ro.hex").c_str(), 0444);
    EXPECT_EQ(DATAFILE_WriteHex(im.p, d.file("ro.hex").c_str(), err, sizeof err), -1);
    EXPECT_EQ(std::string(err), "Could not write file.\n" + d.file("ro.hex"));
  }
}

// ---- Round trips and objcopy ----

void RandomImage(Image& im, uint32_t seed) {
  std::mt19937 rng(seed);
  uint32_t addr = rng() % 0x100;
  for (int i = 0; i < 30; i++) {
    std::vector<uint8_t> bytes(1 + rng() % 300);
    for (auto& b : bytes) b = static_cast<uint8_t>(rng());
    im.Add(addr, bytes);
    addr += static_cast<uint32_t>(bytes.size()) + 1 + rng() % (i % 5 == 0 ? 0x30000 : 40);
  }
  im.Add(0xFFFFFF00u, std::vector<uint8_t>(0x100, 0x42));  // the top of the address space
}

bool SameImage(Image& a, Image& b) {
  if (a.Layout() != b.Layout()) return false;
  for (int32_t i = 0; i < static_cast<int32_t>(a.p->rangeCount); i++) {
    uint32_t s = 0, n = 0;
    MEMIMAGE_GetRange(a.p, i, &s, &n);
    if (a.Bytes(s, n) != b.Bytes(s, n)) return false;
  }
  return true;
}

TEST(RoundTrip, HexAndMotKeepTheImage) {
  for (uint32_t seed = 1; seed <= 5; seed++) {
    TempDir d;
    Image im;
    RandomImage(im, seed);
    char err[256];
    ASSERT_EQ(DATAFILE_WriteHex(im.p, d.file("r.hex").c_str(), err, sizeof err), 0);
    ASSERT_EQ(DATAFILE_WriteMot(im.p, d.file("r.mot").c_str(), err, sizeof err), 0);
    Image hex, mot;
    ASSERT_EQ(DATAFILE_ReadHex(hex.p, d.file("r.hex").c_str(), err, sizeof err), 0) << err;
    ASSERT_EQ(DATAFILE_ReadMot(mot.p, d.file("r.mot").c_str(), err, sizeof err), 0) << err;
    EXPECT_TRUE(SameImage(im, hex)) << seed;
    EXPECT_TRUE(SameImage(im, mot)) << seed;
  }
}

int Shell(const std::string& cmd) { return std::system((cmd + " 2>/dev/null").c_str()); }

TEST(Objcopy, FilesExchangedBothWays) {
  if (Shell("objcopy --version >/dev/null") != 0) GTEST_SKIP() << "objcopy not installed";
  TempDir d;
  std::string bin(150000, '\0');
  std::mt19937 rng(7);
  for (auto& c : bin) c = static_cast<char>(rng());
  d.write("ref.bin", bin);
  for (const char* fmt : {"ihex", "srec"}) {
    const std::string name = std::string("objcopy.") + (fmt[0] == 'i' ? "hex" : "mot");
    ASSERT_EQ(Shell("objcopy -I binary -O " + std::string(fmt) + " " + d.file("ref.bin") + " " + d.file(name)), 0);
    Image im;
    char err[256] = {};
    const int r = fmt[0] == 'i' ? DATAFILE_ReadHex(im.p, d.file(name).c_str(), err, sizeof err)
                                : DATAFILE_ReadMot(im.p, d.file(name).c_str(), err, sizeof err);
    ASSERT_EQ(r, 0) << fmt << ": " << err;
    EXPECT_EQ(im.Layout(), "0:249F0") << fmt;
    const std::vector<uint8_t> got = im.Bytes(0, static_cast<uint32_t>(bin.size()));
    EXPECT_EQ(std::string(got.begin(), got.end()), bin) << fmt;
  }
  // Our files, placed high in the address space, back to binary by objcopy.
  Image im;
  char err[256] = {};
  ASSERT_EQ(DATAFILE_ReadBin(im.p, d.file("ref.bin").c_str(), err, sizeof err, 0x0801F000), 0);
  ASSERT_EQ(DATAFILE_WriteHex(im.p, d.file("ours.hex").c_str(), err, sizeof err), 0);
  ASSERT_EQ(DATAFILE_WriteMot(im.p, d.file("ours.mot").c_str(), err, sizeof err), 0);
  ASSERT_EQ(Shell("objcopy -I ihex -O binary " + d.file("ours.hex") + " " + d.file("back_hex.bin")), 0);
  ASSERT_EQ(Shell("objcopy -I srec -O binary " + d.file("ours.mot") + " " + d.file("back_mot.bin")), 0);
  EXPECT_EQ(d.read("back_hex.bin"), bin);
  EXPECT_EQ(d.read("back_mot.bin"), bin);
}

// ---- Progress ----

// The entry points with a progress function call it once per chunk, data
// record, block or C line, with the address and the range count before it.
TEST(Progress, EveryEntryPointReports) {
  using Calls = std::vector<std::pair<uint32_t, uint32_t>>;
  const DATAFILE_PROGRESS_FUNC record = [](void* context, const DATAFILE_PROGRESS* p) {
    static_cast<Calls*>(context)->emplace_back(p->address, p->numRanges);
  };
  TempDir d;
  d.write("in.hex", ":0400000001020304F2\r\n:020000040001F9\r\n:0400100001020304E2\r\n:00000001FF\r\n");
  d.write("in.mot", "S00600004844521B\nS107000001020304EE\nS20801001001020304DC\nS9030000FC\n");
  d.write("in.bin", std::string(70000, 'x'));
  Image src;
  src.Add(0x1FFF0, std::vector<uint8_t>(40, 0x5A));
  const std::string in = d.file("in"), out = d.file("out");
  char err[256] = {};
  struct Case {
    const char* name;
    std::function<int(MemImage*, Calls*)> run;
    Calls expect;
  } cases[] = {
      {"read hex", [&](MemImage* im, Calls* c) { return DATAFILE_ReadHexEx(im, (in + ".hex").c_str(), err, sizeof err, record, c); },
       {{0, 0}, {0x10010, 1}}},
      {"read mot", [&](MemImage* im, Calls* c) { return DATAFILE_ReadMotEx(im, (in + ".mot").c_str(), err, sizeof err, record, c); },
       {{0, 0}, {0x10010, 1}}},
      {"read bin",
       [&](MemImage* im, Calls* c) { return DATAFILE_ReadBinEx(im, (in + ".bin").c_str(), err, sizeof err, 0x1000, record, c); },
       {{0x1000, 0}, {0x9000, 1}, {0x11000, 1}}},
      {"write hex", [&](MemImage*, Calls* c) { return DATAFILE_WriteHexEx(src.p, out.c_str(), err, sizeof err, record, c); },
       {{0x1FFF0, 1}, {0x20010, 1}}},
      {"write mot", [&](MemImage*, Calls* c) { return DATAFILE_WriteMotEx(src.p, out.c_str(), err, sizeof err, record, c); },
       {{0x1FFF0, 1}, {0x20010, 1}}},
      {"write bin",
       [&](MemImage*, Calls* c) {
         return DATAFILE_WriteBinEx(src.p, out.c_str(), err, sizeof err, 0x1FFE0, 0x20017, record, c);
       },
       {{0x1FFF0, 1}}},
      {"write c",
       [&](MemImage*, Calls* c) {
         return DATAFILE_WriteCEx(src.p, (out + ".c").c_str(), err, sizeof err, 0x1FFF0, 0x20017, record, c);
       },
       {{0x1FFF0, 1}, {0x20000, 1}, {0x20010, 1}}},
  };
  for (const auto& c : cases) {
    Image im;
    Calls calls;
    EXPECT_EQ(c.run(im.p, &calls), 0) << c.name << ": " << err;
    EXPECT_EQ(calls, c.expect) << c.name;
  }
}

}  // namespace
