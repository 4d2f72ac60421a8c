// The simulated probe library, through its exported C functions only: SPI
// NOR datasheet behaviour, the families' special sequences, persistence,
// and the faults the end-to-end runs do not reach.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "probe/tarlo_abi.h"
#include "tests/e2e/run_program.h"

namespace {

using Bytes = std::vector<uint8_t>;
// Whole chip-select frames in order: the bytes sent, and the bytes expected
// back after them.
using Script = std::vector<std::pair<Bytes, Bytes>>;

void OnError(const char*) {}

// One simulated chip in a fresh directory; the environment is set before
// the open, which is the chip's power-up.
struct Sim {
  TempDir tmp;
  const std::string dir = tmp.path();
  explicit Sim(const std::string& chip = "C22018", std::vector<std::pair<const char*, std::string>> env = {},
               bool open = true) {
    for (const char* k : {"TARLOSIM_FAULT", "TARLOSIM_TIMING", "TARLOSIM_SIZE", "TARLOSIM_SN", "TARLOSIM_VTARGET"})
      unsetenv(k);
    setenv("TARLOSIM_CHIP", chip.c_str(), 1);
    setenv("TARLOSIM_FLASH", (dir + "/flash.bin").c_str(), 1);
    setenv("TARLOSIM_TRACE", (dir + "/trace.txt").c_str(), 1);
    for (auto& [k, v] : env) setenv(k, v.c_str(), 1);
    if (open) Open();
  }
  ~Sim() { TARLOARM_Close(); }
  void Open() {
    TARLOARM_SelectUSB(0);
    const char* e = TARLOARM_OpenEx(nullptr, OnError);
    ASSERT_EQ(e, nullptr) << e;
    TARLOARM_SetSpeed(4000);
  }
  // One whole chip-select frame; returns the bytes received after `out`.
  Bytes Cmd(const Bytes& out, size_t nIn = 0) {
    Bytes o = out, in(out.size() + nIn);
    o.resize(out.size() + nIn, 0xFF);
    TARLO_SPI_Transfer(o.data(), in.data(), static_cast<uint32_t>(o.size() * 8), TARLO_SPI_FLAG_WHOLE);
    return Bytes(in.begin() + static_cast<long>(out.size()), in.end());
  }
  void Play(const Script& script) {
    for (size_t i = 0; i < script.size(); i++)
      EXPECT_EQ(Cmd(script[i].first, script[i].second.size()), script[i].second) << "frame " << i;
  }
  // Write enable, then a page program with three address bytes.
  void Program(uint32_t a, const Bytes& data) {
    Cmd({0x06});
    Bytes b = Addr(0x02, a);
    b.insert(b.end(), data.begin(), data.end());
    Cmd(b);
  }
  Bytes Read(uint32_t a, size_t n) { return Cmd(Addr(0x03, a), n); }
  static Bytes Addr(uint8_t op, uint32_t a) { return {op, uint8_t(a >> 16), uint8_t(a >> 8), uint8_t(a)}; }
  std::string Flash() { return ReadFile(dir + "/flash.bin"); }
};

TEST(TarloSim, WriteEnableLatchGatesAndIsClearedByEveryWrite) {
  Sim s;
  s.Play({{{0x05}, {0x00}}, {{0x02, 0, 1, 0, 0x00}, {}}, {{0x03, 0, 1, 0}, {0xFF}}});  // no WEL: ignored
  const Bytes writes[] = {{0x02, 0x00, 0x01, 0x00, 0x12}, {0x20, 0x00, 0x20, 0x00}, {0x01, 0x00}, {0xC7}, {0x04}};
  for (const Bytes& frame : writes) {
    SCOPED_TRACE(int(frame[0]));
    s.Play({{{0x06}, {}}, {{0x05}, {0x02}}, {frame, {}}, {{0x05}, {0x00}}});
  }
}

TEST(TarloSim, ProgramOnlyClearsBitsWrapsInsideThePageAndErasesByUnit) {
  Sim s;
  s.Program(0x1000, {0xF0, 0x0F});
  s.Program(0x1000, {0x3C, 0xFF});
  EXPECT_EQ(s.Read(0x1000, 2), (Bytes{0x30, 0x0F}));
  // Four bytes from 0x20FE: the last two land at the start of the same page.
  s.Program(0x20FE, {1, 2, 3, 4});
  EXPECT_EQ(s.Read(0x20FE, 3), (Bytes{1, 2, 0xFF}));
  EXPECT_EQ(s.Read(0x2000, 2), (Bytes{3, 4}));
  // Each erase clears its whole aligned unit around an address inside it.
  for (const auto& [op, len] : {std::pair<uint8_t, uint32_t>{0x20, 0x1000}, {0x52, 0x8000}, {0xD8, 0x10000}}) {
    SCOPED_TRACE(int(op));
    for (uint32_t a = 0x30000; a < 0x60000; a += 256) s.Program(a, Bytes(256, 0));
    s.Cmd({0x06});
    s.Cmd(Sim::Addr(op, 0x40000 + len / 2 + 5));
    EXPECT_EQ(s.Read(0x40000 - 1, 1)[0], 0x00);
    EXPECT_EQ(s.Read(0x40000, len), Bytes(len, 0xFF));
    EXPECT_EQ(s.Read(0x40000 + len, 1)[0], 0x00);
  }
  s.Program(0xFFFF00, Bytes(4, 0));
  s.Play({{{0x06}, {}}, {{0x60}, {}}, {{0x03, 0xFF, 0xFF, 0x00}, Bytes(4, 0xFF)}});
}

// Each status poll is 16 bits, 4 us at 4 MHz; a page program is 0.7 ms on
// one part, 0.5 ms on the other. Commands other than status reads are
// ignored meanwhile.
TEST(TarloSim, ModelTimingKeepsTheChipBusy) {
  struct Case { const char* chip; uint8_t status, busyMask, busyValue; int minPolls, maxPolls; };
  const Case cases[] = {{"C22018", 0x05, 0x01, 0x01, 150, 200}, {"20BA18", 0x70, 0x80, 0x00, 100, 150}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.chip);
    Sim s(c.chip, {{"TARLOSIM_TIMING", "model"}});
    s.Program(0, {0x00});
    s.Program(0x100, {0x00});  // ignored while busy
    EXPECT_EQ(s.Read(0, 1)[0], 0xFF) << "reads are ignored while busy";
    int polls = 1;
    while ((s.Cmd({c.status}, 1)[0] & c.busyMask) == c.busyValue) polls++;
    EXPECT_GT(polls, c.minPolls);
    EXPECT_LT(polls, c.maxPolls);
    EXPECT_EQ(s.Read(0, 1)[0], 0x00);
    EXPECT_EQ(s.Read(0x100, 1)[0], 0xFF);
  }
}

// Each family's protection, unlock, program and erase, frame by frame.
TEST(TarloSim, FamiliesProtectWriteAndEraseTheirOwnWay) {
  const Bytes wren = {0x06}, rd0 = {0x03, 0, 0, 0};
  struct Case { const char* chip; const char* fault; Script script; };
  const Case cases[] = {
      // Block protection bits ignore writes until the status register is cleared.
      {"C22018", "protected",
       {{{0x05}, {0x3C}}, {wren, {}}, {{0x02, 0, 0, 0, 0}, {}}, {wren, {}}, {{0xC7}, {}}, {rd0, {0xFF}},
        {wren, {}}, {{0x01, 0x00}, {}}, {{0x05}, {0x00}}, {wren, {}}, {{0x02, 0, 0, 0, 0}, {}}, {rd0, {0x00}}}},
      // Flag status: protection and program error flags, cleared by 0x50.
      {"20BA18", "protected",
       {{{0x70}, {0x80}}, {wren, {}}, {{0x02, 0, 0, 0, 0}, {}}, {{0x70}, {0x92}}, {{0x50}, {}}, {{0x70}, {0x80}},
        {wren, {}}, {{0x01, 0x00}, {}}, {wren, {}}, {{0x02, 0, 0, 0, 0}, {}}, {rd0, {0x00}}}},
      // Page-based: status 0xD7, four-byte unprotect and chip erase, no write
      // enable, 2 KiB block erase 0x50.
      {"1F2600", "protected",
       {{{0xD7}, {0xAF}}, {{0x02, 0, 8, 0, 0}, {}}, {{0x03, 0, 8, 0}, {0xFF}}, {{0x3D, 0x2A, 0x7F, 0x9A}, {}},
        {{0xD7}, {0xAD}}, {{0x02, 0, 8, 0, 0}, {}}, {{0x02, 0, 0x10, 0, 0}, {}}, {{0x03, 0, 8, 0}, {0x00}},
        {{0x50, 0, 8, 0}, {}}, {{0x03, 0, 8, 0}, {0xFF}}, {{0x03, 0, 0x10, 0}, {0x00}},
        {{0xC7, 0x94, 0x80, 0x9A}, {}}, {{0x03, 0, 0x10, 0}, {0xFF}}}},
      // Global unlock: locked at power-up; 0x98 needs the write enable.
      {"BF2643", "",
       {{wren, {}}, {{0x02, 0, 0, 0, 0}, {}}, {rd0, {0xFF}}, {{0x98}, {}}, {wren, {}}, {{0x02, 0, 0, 0, 0}, {}},
        {rd0, {0xFF}}, {wren, {}}, {{0x98}, {}}, {wren, {}}, {{0x02, 0, 0, 0, 0}, {}}, {rd0, {0x00}}}},
      // Ferroelectric: two address bytes, written in place both ways,
      // wrapping at the end of the array, never busy.
      {"042503", "",
       {{wren, {}}, {{0x02, 0x7F, 0xFE, 0x00, 0x11, 0x22}, {}}, {wren, {}}, {{0x02, 0x7F, 0xFE, 0xA5}, {}},
        {{0x05}, {0x00}}, {{0x03, 0x7F, 0xFE}, {0xA5, 0x11}}, {{0x03, 0, 0}, {0x22}}}},
      // Four address bytes: own opcodes, 3-byte reads stay in the low 16 MiB,
      // the mode switch shows in bit 5 of 0x15, fast read has a dummy byte.
      {"C22019", "",
       {{wren, {}}, {{0x12, 1, 0, 0, 0x10, 0xAB}, {}}, {{0x13, 1, 0, 0, 0x10}, {0xAB}}, {{0x03, 0, 0, 0x10}, {0xFF}},
        {{0xB7}, {}}, {{0x15}, {0x20}}, {{0x03, 1, 0, 0, 0x10}, {0xAB}}, {{0x0B, 1, 0, 0, 0x10}, {0xFF, 0xAB}},
        {wren, {}}, {{0xDC, 1, 0, 0, 0}, {}}, {{0x13, 1, 0, 0, 0x10}, {0xFF}}, {{0xE9}, {}}, {{0x15}, {0x00}}}},
      // A part without 4-byte support ignores those opcodes.
      {"C22018", "", {{wren, {}}, {{0x12, 0, 0, 0, 0x10, 0x00}, {}}, {{0x03, 0, 0, 0x10}, {0xFF}}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.chip) + " " + c.fault);
    Sim s(c.chip, {{"TARLOSIM_FAULT", c.fault}});
    s.Play(c.script);
  }
  Sim s("BF2643");
  s.Cmd({0x06});
  s.Cmd({0x98});
  TARLOARM_Close();  // a power cycle locks again
  s.Open();
  s.Program(1, {0});
  EXPECT_EQ(s.Read(1, 1)[0], 0xFF);
}

TEST(TarloSim, ContentsPersistAndOtherSizesAreKept) {
  Sim s("C22018", {{"TARLOSIM_SIZE", "64K"}});
  EXPECT_EQ(s.Flash(), std::string(65536, '\xFF')) << "created erased at open";
  TARLOARM_Close();
  // A shorter file is padded erased; a longer one keeps its tail.
  s.tmp.write("flash.bin", std::string(0x20, '\0'));
  s.Open();
  EXPECT_EQ(s.Read(0x1F, 2), (Bytes{0x00, 0xFF}));
  s.Program(0x40, {0x00});
  TARLOARM_Close();
  EXPECT_EQ(s.Flash().size(), 65536u);
  s.tmp.write("flash.bin", s.Flash() + "tail");
  s.Open();
  s.Program(0x41, {0x00});
  TARLOARM_Close();
  const std::string flash = s.Flash();
  ASSERT_EQ(flash.size(), 65536u + 4);
  EXPECT_EQ(flash.substr(65536), "tail");
  EXPECT_EQ(flash[0x41], '\0');
  // The trace is complete once the probe is closed, not only at exit.
  EXPECT_TRUE(ReadFile(s.dir + "/trace.txt").ends_with("02 00 00 41 00\n# close\n"));
}

TEST(TarloSim, BadSettingsFailTheOpenNamingTheVariableAndValue) {
  const char* bad[] = {
      "TARLOSIM_FAULT=erase-timout", "TARLOSIM_FAULT=protected,nospi", "TARLOSIM_FAULT=stuck@",
      "TARLOSIM_FAULT=stuck@0x10:8", "TARLOSIM_FAULT=drop@",           "TARLOSIM_FAULT=drop@-1",
      "TARLOSIM_CHIP=C220",          "TARLOSIM_CHIP=C22018F",          "TARLOSIM_CHIP=0xC22018",
      "TARLOSIM_CHIP=0102030405060708090A0B0C0D0E",                    "TARLOSIM_SIZE=64Q",
      "TARLOSIM_SIZE=K",             "TARLOSIM_SIZE=-1",               "TARLOSIM_SIZE=0",
      "TARLOSIM_SIZE=4G",            "TARLOSIM_TIMING=fast",           "TARLOSIM_VTARGET=3.3",
      "TARLOSIM_VTARGET=-5",         "TARLOSIM_SN=123456,12a",
  };
  for (const std::string setting : bad) {
    SCOPED_TRACE(setting);
    const size_t eq = setting.find('=');
    Sim s("C22018", {{setting.substr(0, eq).c_str(), setting.substr(eq + 1)}}, false);
    EXPECT_EQ(TARLOARM_EMU_SelectByUSBSN(999), 0) << "the open, not the selection, reports the setting";
    const char* e = TARLOARM_OpenEx(nullptr, OnError);
    ASSERT_NE(e, nullptr);
    const std::string quoted = setting.substr(0, eq + 1) + "\"" + setting.substr(eq + 1) + "\"";
    EXPECT_NE(std::string(e).find("Bad simulator setting " + quoted), std::string::npos) << e;
    EXPECT_FALSE(s.tmp.exists("flash.bin")) << "nothing written for a refused open";
  }
  // Settings the end-to-end runs already use are left out here.
  const std::pair<const char*, const char*> good[] = {
      {"TARLOSIM_FAULT", " protected , stuck@16:7,,drop@40"}, {"TARLOSIM_SIZE", "0x8000"},
      {"TARLOSIM_SIZE", "1m"}, {"TARLOSIM_CHIP", "c22018"}, {"TARLOSIM_TIMING", "instant"},
      {"TARLOSIM_CHIP", "7F7F7F7F7F7F7F7F7F7F7FC220"}, {"TARLOSIM_SN", "123456,,7"}, {"TARLOSIM_SIZE", ""},
  };
  for (const auto& [name, value] : good) {
    SCOPED_TRACE(std::string(name) + "=" + value);
    Sim s("C22018", {{name, value}});
  }
}

}  // namespace
