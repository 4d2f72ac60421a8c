// The simulated probe library, through its exported C functions only: SPI
// NOR datasheet behaviour, the families' special sequences, persistence,
// the trace file, and the faults the end-to-end runs do not reach.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "probe/tarlo_abi.h"
#include "tests/e2e/run_program.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::vector<std::string> g_errors;
void OnError(const char* t) { g_errors.push_back(t); }

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
    setenv("TARLOSIM_STATS", (dir + "/stats.json").c_str(), 1);
    for (auto& [k, v] : env) setenv(k, v.c_str(), 1);
    g_errors.clear();
    if (open) Open();
  }
  ~Sim() { TARLOARM_Close(); }
  void Open() {
    TARLOARM_SelectUSB(0);
    const char* e = TARLOARM_OpenEx(nullptr, OnError);
    ASSERT_EQ(e, nullptr) << e;
    TARLOARM_SetSpeed(4000);
  }
  void Reopen() {
    TARLOARM_Close();
    Open();
  }
  // One whole chip-select frame; returns the bytes received after `out`.
  Bytes Cmd(const Bytes& out, size_t nIn = 0) {
    Bytes o = out, in(out.size() + nIn);
    o.resize(out.size() + nIn, 0xFF);
    TARLO_SPI_Transfer(o.data(), in.data(), static_cast<uint32_t>(o.size() * 8), TARLO_SPI_FLAG_WHOLE);
    return Bytes(in.begin() + static_cast<long>(out.size()), in.end());
  }
  uint8_t Status(uint8_t op = 0x05) { return Cmd({op}, 1)[0]; }
  void Wren() { Cmd({0x06}); }
  static Bytes Addr(uint8_t op, uint32_t a, int alen) {
    Bytes b{op};
    for (int i = alen - 1; i >= 0; i--) b.push_back(static_cast<uint8_t>(a >> (8 * i)));
    return b;
  }
  void Program(uint32_t a, const Bytes& data, uint8_t op = 0x02, int alen = 3) {
    Bytes b = Addr(op, a, alen);
    b.insert(b.end(), data.begin(), data.end());
    Cmd(b);
  }
  Bytes Read(uint32_t a, size_t n, uint8_t op = 0x03, int alen = 3) { return Cmd(Addr(op, a, alen), n); }
  std::string Trace() { return ReadFile(dir + "/trace.txt"); }
  std::string Flash() { return ReadFile(dir + "/flash.bin"); }
};

long JsonField(const std::string& json, const std::string& key) {
  size_t at = json.find("\"" + key + "\": ");
  if (at == std::string::npos) return -1;
  return std::atol(json.c_str() + at + key.size() + 4);
}

TEST(TarloSim, WriteEnableLatchGatesAndIsClearedByEveryWrite) {
  Sim s;
  EXPECT_EQ(s.Status() & 2, 0);
  s.Program(0x100, {0x00});  // no WEL: ignored
  EXPECT_EQ(s.Read(0x100, 1)[0], 0xFF);
  const std::vector<std::pair<const char*, Bytes>> writes = {
      {"program", {0x02, 0x00, 0x01, 0x00, 0x12}},
      {"sector erase", {0x20, 0x00, 0x20, 0x00}},
      {"write status", {0x01, 0x00}},
      {"chip erase", {0xC7}},
  };
  for (const auto& [name, frame] : writes) {
    SCOPED_TRACE(name);
    s.Wren();
    EXPECT_EQ(s.Status() & 2, 2);
    s.Cmd(frame);
    EXPECT_EQ(s.Status() & 3, 0);
  }
  s.Wren();
  s.Cmd({0x04});
  EXPECT_EQ(s.Status() & 2, 0);
}

TEST(TarloSim, ProgramOnlyClearsBitsAndWrapsInsideThePage) {
  Sim s;
  s.Wren();
  s.Program(0x1000, {0xF0, 0x0F});
  s.Wren();
  s.Program(0x1000, {0x3C, 0xFF});
  EXPECT_EQ(s.Read(0x1000, 2), (Bytes{0x30, 0x0F}));
  // Four bytes from 0x20FE: the last two land at the start of the same page.
  s.Wren();
  s.Program(0x20FE, {1, 2, 3, 4});
  EXPECT_EQ(s.Read(0x20FE, 2), (Bytes{1, 2}));
  EXPECT_EQ(s.Read(0x2000, 2), (Bytes{3, 4}));
  EXPECT_EQ(s.Read(0x2100, 1)[0], 0xFF);
}

TEST(TarloSim, EraseGranularity) {
  const struct { uint8_t op; uint32_t len; } cases[] = {{0x20, 0x1000}, {0x52, 0x8000}, {0xD8, 0x10000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.op);
    Sim s;
    // Zero 0x30000..0x60000 then erase at an address inside 0x40000's unit.
    for (uint32_t a = 0x30000; a < 0x60000; a += 256) {
      s.Wren();
      s.Program(a, Bytes(256, 0));
    }
    s.Wren();
    s.Cmd(Sim::Addr(c.op, 0x40000 + c.len / 2 + 5, 3));
    EXPECT_EQ(s.Read(0x40000 - 1, 1)[0], 0x00);
    EXPECT_EQ(s.Read(0x40000, c.len), Bytes(c.len, 0xFF));
    EXPECT_EQ(s.Read(0x40000 + c.len, 1)[0], 0x00);
  }
  Sim s;
  s.Wren();
  s.Program(0xFFFF00, Bytes(4, 0));
  s.Wren();
  s.Cmd({0x60});
  EXPECT_EQ(s.Read(0xFFFF00, 4), Bytes(4, 0xFF));
}

TEST(TarloSim, ModelTimingKeepsTheChipBusyAndIgnoresCommandsMeanwhile) {
  Sim s("C22018", {{"TARLOSIM_TIMING", "model"}});
  s.Wren();
  s.Program(0, {0x00});
  EXPECT_EQ(s.Status() & 1, 1);
  s.Wren();  // ignored while busy
  s.Program(0x100, {0x00});
  EXPECT_EQ(s.Read(0, 1)[0], 0xFF) << "reads are ignored while busy";
  // Each status poll is 16 bits, 4 us at 4 MHz; a page program is 0.7 ms.
  int polls = 1;
  while (s.Status() & 1) polls++;
  EXPECT_GT(polls, 150);
  EXPECT_LT(polls, 200);
  EXPECT_EQ(s.Read(0, 1)[0], 0x00);
  EXPECT_EQ(s.Read(0x100, 1)[0], 0xFF);
  TARLOARM_Close();
  const std::string stats = ReadFile(s.dir + "/stats.json");
  EXPECT_GE(JsonField(stats, "busy_ns"), 700000);
  EXPECT_GE(JsonField(stats, "model_ns"), 700000);
}

TEST(TarloSim, ProtectionBitsBlockUntilTheStatusRegisterIsCleared) {
  Sim s("C22018", {{"TARLOSIM_FAULT", "protected"}});
  EXPECT_NE(s.Status() & 0x3C, 0);
  s.Wren();
  s.Program(0, {0x00});
  s.Wren();
  s.Cmd({0xC7});
  EXPECT_EQ(s.Read(0, 1)[0], 0xFF);
  s.Wren();
  s.Cmd({0x01, 0x00});
  EXPECT_EQ(s.Status() & 0x3C, 0);
  s.Wren();
  s.Program(0, {0x00});
  EXPECT_EQ(s.Read(0, 1)[0], 0x00);
}

TEST(TarloSim, FourByteModeAndFourByteOpcodes) {
  Sim s("C22019");
  s.Wren();
  s.Program(0x01000010, {0xAB}, 0x12, 4);
  EXPECT_EQ(s.Read(0x01000010, 1, 0x13, 4)[0], 0xAB);
  EXPECT_EQ(s.Read(0x000010, 1)[0], 0xFF) << "3-byte read stays in the low 16 MiB";
  s.Cmd({0xB7});
  EXPECT_EQ(s.Status(0x15) & 0x20, 0x20);
  EXPECT_EQ(s.Read(0x01000010, 1, 0x03, 4)[0], 0xAB);
  EXPECT_EQ(s.Cmd(Sim::Addr(0x0B, 0x01000010, 4), 2)[1], 0xAB) << "fast read: dummy byte first";
  s.Wren();
  s.Cmd(Sim::Addr(0xDC, 0x01000000, 4));
  EXPECT_EQ(s.Read(0x01000010, 1, 0x13, 4)[0], 0xFF);
  s.Cmd({0xE9});
  EXPECT_EQ(s.Status(0x15) & 0x20, 0);
  // A part without 4-byte support ignores the opcodes.
  Sim t("C22018");
  t.Wren();
  t.Program(0x10, {0x00}, 0x12, 4);
  EXPECT_EQ(t.Read(0x10, 1)[0], 0xFF);
}

TEST(TarloSim, FlagStatusRegister) {
  Sim s("20BA18", {{"TARLOSIM_TIMING", "model"}, {"TARLOSIM_FAULT", "protected"}});
  EXPECT_EQ(s.Status(0x70) & 0x80, 0x80);
  s.Wren();
  s.Program(0, {0});
  EXPECT_EQ(s.Status(0x70), 0x80 | 0x12) << "protection and program error flags";
  s.Cmd({0x50});
  EXPECT_EQ(s.Status(0x70), 0x80);
  s.Wren();
  s.Cmd({0x01, 0x00});
  while (!(s.Status(0x70) & 0x80)) {}
  s.Wren();
  s.Program(0, {0});
  EXPECT_EQ(s.Status(0x70) & 0x80, 0);
  while (!(s.Status(0x70) & 0x80)) {}
  EXPECT_EQ(s.Read(0, 1)[0], 0);
}

TEST(TarloSim, PageBasedFamily) {
  Sim s("1F2600", {{"TARLOSIM_FAULT", "protected"}});
  uint8_t st = s.Status(0xD7);
  EXPECT_EQ(st & 0x80, 0x80);
  EXPECT_EQ(st & 0x02, 0x02);
  s.Program(0x800, {0x00});  // protected: ignored
  EXPECT_EQ(s.Read(0x800, 1)[0], 0xFF);
  s.Cmd({0x3D, 0x2A, 0x7F, 0x9A});
  EXPECT_EQ(s.Status(0xD7) & 0x02, 0);
  s.Program(0x800, {0x00});  // no write enable in this family
  s.Program(0x1000, {0x00});
  EXPECT_EQ(s.Read(0x800, 1)[0], 0x00);
  s.Cmd({0x50, 0x00, 0x08, 0x00});  // 2 KiB block
  EXPECT_EQ(s.Read(0x800, 1)[0], 0xFF);
  EXPECT_EQ(s.Read(0x1000, 1)[0], 0x00);
  s.Cmd({0xC7, 0x94, 0x80, 0x9A});
  EXPECT_EQ(s.Read(0x1000, 1)[0], 0xFF);
}

TEST(TarloSim, GlobalUnlockFamilyIsLockedAtPowerUp) {
  Sim s("BF2643");
  s.Wren();
  s.Program(0, {0});
  EXPECT_EQ(s.Read(0, 1)[0], 0xFF);
  s.Cmd({0x98});  // without WEL: no effect
  s.Wren();
  s.Program(0, {0});
  EXPECT_EQ(s.Read(0, 1)[0], 0xFF);
  s.Wren();
  s.Cmd({0x98});
  s.Wren();
  s.Program(0, {0});
  EXPECT_EQ(s.Read(0, 1)[0], 0x00);
  s.Reopen();  // power cycle locks again
  s.Wren();
  s.Program(1, {0});
  EXPECT_EQ(s.Read(1, 1)[0], 0xFF);
}

TEST(TarloSim, FerroelectricPartWritesInPlaceWithTwoAddressBytes) {
  Sim s("042503");
  s.Wren();
  s.Program(0x7FFE, {0x00, 0x11, 0x22}, 0x02, 2);  // wraps at the end of the array
  s.Wren();
  s.Program(0x7FFE, {0xA5}, 0x02, 2);  // no erase needed: bits go both ways
  EXPECT_EQ(s.Status() & 1, 0);
  EXPECT_EQ(s.Read(0x7FFE, 2, 0x03, 2), (Bytes{0xA5, 0x11}));
  EXPECT_EQ(s.Read(0, 1, 0x03, 2)[0], 0x22);
  TARLOARM_Close();
  EXPECT_EQ(s.Flash().size(), 32768u);
}

TEST(TarloSim, ContentsPersistAndOtherSizesAreKept) {
  Sim s("C22018", {{"TARLOSIM_SIZE", "64K"}});
  EXPECT_EQ(s.Flash(), std::string(65536, '\xFF')) << "created erased at open";
  s.Wren();
  s.Program(0x10, {0x12, 0x34});
  s.Reopen();
  EXPECT_EQ(s.Read(0x10, 2), (Bytes{0x12, 0x34}));
  TARLOARM_Close();
  EXPECT_EQ(s.Flash().substr(0x10, 2), "\x12\x34");
  // A shorter file is padded erased; a longer one keeps its tail.
  {
    std::ofstream f(s.dir + "/flash.bin", std::ios::binary | std::ios::trunc);
    f << std::string(0x20, '\0');
  }
  s.Open();
  EXPECT_EQ(s.Read(0x1F, 2), (Bytes{0x00, 0xFF}));
  s.Wren();
  s.Program(0x40, {0x00});
  TARLOARM_Close();
  EXPECT_EQ(s.Flash().size(), 65536u);
  {
    std::ofstream f(s.dir + "/flash.bin", std::ios::binary | std::ios::app);
    f << "tail";
  }
  s.Open();
  s.Wren();
  s.Program(0x41, {0x00});
  TARLOARM_Close();
  const std::string flash = s.Flash();
  ASSERT_EQ(flash.size(), 65536u + 4);
  EXPECT_EQ(flash.substr(65536), "tail");
  EXPECT_EQ(flash[0x41], '\0');
}

TEST(TarloSim, TraceHasOneLinePerFrameAndEventsAsComments) {
  Sim s;
  s.Cmd({0x05}, 1);
  TARLOARM_ClrTMS();
  uint8_t b = 0x9F, in[3];
  TARLO_SPI_Transfer(&b, nullptr, 8, TARLO_SPI_FLAG_NONE);
  TARLO_SPI_Transfer(nullptr, in, 24, TARLO_SPI_FLAG_NONE);
  TARLOARM_SetTMS();
  EXPECT_EQ(Bytes(in, in + 3), (Bytes{0xC2, 0x20, 0x18}));
  TARLO_SPI_Transfer(&b, nullptr, 8, TARLO_SPI_FLAG_NONE);  // chip not selected
  TARLOARM_ClrRESET();
  TARLOARM_Close();
  std::vector<std::string> frames, events;
  std::istringstream lines(s.Trace());
  for (std::string l; std::getline(lines, l);) (l[0] == '#' ? events : frames).push_back(l);
  EXPECT_EQ(frames, (std::vector<std::string>{"05 FF", "9F FF FF FF"}));
  EXPECT_GE(events.size(), 5u);
}

// The program's page job list: WREN, header, data, status opcode, poll.
struct PageJobs {
  uint8_t wren = 0x06, hdr[4] = {0x02, 0, 0, 0}, rdsr = 0x05, st = 0;
  Bytes data = Bytes(256, 0x5A);
  TARLO_SPI_POLL poll{0, 1, 0, 100000};
  TARLO_SPI_JOB jobs[5]{};
  explicit PageJobs(uint32_t a) {
    hdr[1] = static_cast<uint8_t>(a >> 16);
    hdr[2] = static_cast<uint8_t>(a >> 8);
    jobs[0] = {1, 0, &wren, nullptr, 8, 14, nullptr, 0, -1};
    jobs[1] = {1, 0, hdr, nullptr, 32, 2, nullptr, 0, -1};
    jobs[2] = {1, 0, data.data(), nullptr, 256 * 8, 12, nullptr, 0, -1};
    jobs[3] = {1, 0, &rdsr, nullptr, 8, 2, nullptr, 0, -1};
    jobs[4] = {2, 0, nullptr, &st, 8, 12, &poll, 16, -1};
  }
  int Run() { return reinterpret_cast<TARLO_SPI_BATCH_FUNC>(TARLO_GetpFunc(1))(jobs, 5); }
};

TEST(TarloSim, BatchRunsPageProgramsAndPolls) {
  for (const char* timing : {"instant", "model"}) {
    SCOPED_TRACE(timing);
    Sim s("C22018", {{"TARLOSIM_TIMING", timing}});
    PageJobs j(0x300);
    EXPECT_EQ(j.Run(), 0);
    EXPECT_EQ(j.jobs[0].Result, 1);
    EXPECT_EQ(j.jobs[1].Result, 4);
    EXPECT_EQ(j.jobs[2].Result, 256);
    EXPECT_EQ(j.jobs[3].Result, 1);
    EXPECT_GE(j.jobs[4].Result, 1);
    EXPECT_EQ(j.st & 1, 0);
    EXPECT_EQ(s.Read(0x300, 256), Bytes(256, 0x5A));
  }
}

TEST(TarloSim, DroppedProbeFailsLaterCallsAndReportsOnce) {
  Sim s("C22018", {{"TARLOSIM_FAULT", "drop@3"}});
  s.Wren();
  s.Wren();
  s.Status();
  EXPECT_LT(TARLO_SPI_Transfer(nullptr, nullptr, 8, 14), 0);
  EXPECT_LT(TARLO_SPI_Transfer(nullptr, nullptr, 8, 14), 0);
  TARLO_HW_STATUS hw{};
  EXPECT_LT(TARLOARM_GetHWStatus(&hw), 0);
  EXPECT_EQ(g_errors.size(), 1u);
  TARLOARM_Close();
  EXPECT_NE(TARLOARM_OpenEx(nullptr, OnError), nullptr) << "still unplugged";
}

TEST(TarloSim, BadSettingsFailTheOpenNamingTheVariableAndValue) {
  const std::pair<const char*, const char*> bad[] = {
      {"TARLOSIM_FAULT", "erase-timout"},   {"TARLOSIM_FAULT", "protected,nospi"},
      {"TARLOSIM_FAULT", "stuck@"},         {"TARLOSIM_FAULT", "stuck@0x10:8"},
      {"TARLOSIM_FAULT", "stuck@banana"},   {"TARLOSIM_FAULT", "drop@"},
      {"TARLOSIM_FAULT", "drop@-1"},        {"TARLOSIM_CHIP", "C220"},
      {"TARLOSIM_CHIP", "C22018F"},         {"TARLOSIM_CHIP", "0xC22018"},
      {"TARLOSIM_CHIP", "C2 20 18"},        {"TARLOSIM_CHIP", "0102030405060708090A0B0C0D0E"},
      {"TARLOSIM_SIZE", "64Q"},             {"TARLOSIM_SIZE", "K"},
      {"TARLOSIM_SIZE", "-1"},              {"TARLOSIM_SIZE", "0"},
      {"TARLOSIM_SIZE", "4G"},              {"TARLOSIM_SIZE", "1KK"},
      {"TARLOSIM_TIMING", "fast"},          {"TARLOSIM_VTARGET", "3.3"},
      {"TARLOSIM_VTARGET", "-5"},           {"TARLOSIM_SN", "123456,12a"},
  };
  for (const auto& [name, value] : bad) {
    SCOPED_TRACE(std::string(name) + "=" + value);
    Sim s("C22018", {{name, value}}, false);
    EXPECT_EQ(TARLOARM_EMU_SelectByUSBSN(999), 0) << "the open, not the selection, reports the setting";
    const char* e = TARLOARM_OpenEx(nullptr, OnError);
    ASSERT_NE(e, nullptr);
    EXPECT_NE(std::string(e).find(std::string("Bad simulator setting ") + name + "=\"" + value + "\""),
              std::string::npos) << e;
    EXPECT_FALSE(s.tmp.exists("flash.bin")) << "nothing written for a refused open";
  }
  const std::pair<const char*, const char*> good[] = {
      {"TARLOSIM_FAULT", "stuck@0x10003"},  {"TARLOSIM_FAULT", " protected , stuck@16:7,,drop@40"},
      {"TARLOSIM_SIZE", "0x8000"},          {"TARLOSIM_SIZE", "1m"},
      {"TARLOSIM_CHIP", "c22018"},          {"TARLOSIM_CHIP", "7F7F7F7F7F7F7F7F7F7F7FC220"},
      {"TARLOSIM_TIMING", "instant"},       {"TARLOSIM_VTARGET", "0"},
      {"TARLOSIM_SN", "123456,,7"},         {"TARLOSIM_SIZE", ""},
  };
  for (const auto& [name, value] : good) {
    SCOPED_TRACE(std::string(name) + "=" + value);
    Sim s("C22018", {{name, value}});
  }
}

// Another open of the contents file stands for another process: flock locks
// of different opens conflict even inside one process.
bool LockedByTheProbe(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool locked = flock(fd, LOCK_EX | LOCK_NB) != 0;
  close(fd);
  return locked;
}

TEST(TarloSim, ContentsFileIsLockedExactlyWhileTheProbeIsOpen) {
  Sim s;
  const std::string path = s.dir + "/flash.bin";
  EXPECT_TRUE(LockedByTheProbe(path));
  s.Wren();
  s.Program(0, {0x00});
  s.Reopen();  // the same process opens again after a close
  EXPECT_TRUE(LockedByTheProbe(path)) << "the lock follows the new file written back at close";
  EXPECT_EQ(s.Read(0, 1)[0], 0x00);
  TARLOARM_Close();
  EXPECT_FALSE(LockedByTheProbe(path));
  // Held by someone else: the open is refused and the file left as it is.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  const char* e = TARLOARM_OpenEx(nullptr, OnError);
  ASSERT_NE(e, nullptr);
  EXPECT_NE(std::string(e).find("the probe is in use"), std::string::npos) << e;
  EXPECT_NE(std::string(e).find(path), std::string::npos) << e;
  close(fd);
  s.Open();
}

TEST(TarloSim, ContentsFileThatCannotBeReadFailsTheOpen) {
  Sim s("C22018", {}, false);
  ASSERT_EQ(mkdir((s.dir + "/dir").c_str(), 0755), 0);
  ASSERT_EQ(mkfifo((s.dir + "/fifo").c_str(), 0644), 0);
  s.tmp.write("file", "x");
  ASSERT_EQ(symlink("missing", (s.dir + "/link").c_str()), 0);
  const std::pair<std::string, std::string> cases[] = {
      {"dir", "read the flash contents file DIR/dir: Is a directory"},
      {"fifo", "read the flash contents file DIR/fifo: not a regular file"},
      {"file/flash.bin", "read the flash contents file DIR/file/flash.bin: Not a directory"},
      {"link", "create the flash contents file DIR/link: it is a link to a missing file"}};
  for (const auto& [name, text] : cases) {
    SCOPED_TRACE(name);
    const std::string path = s.dir + "/" + name;
    setenv("TARLOSIM_FLASH", path.c_str(), 1);
    const char* e = TARLOARM_OpenEx(nullptr, OnError);
    ASSERT_NE(e, nullptr);
    std::string want = "Cannot " + text;
    want.replace(want.find("DIR"), 3, s.dir);
    EXPECT_EQ(std::string(e), want);
  }
  EXPECT_EQ(s.tmp.read("file"), "x");
}

TEST(TarloSim, FailedWriteBackIsReportedThroughTheErrorHandler) {
  TempDir tmp;
  const std::string folder = tmp.file("chip"), path = folder + "/flash.bin";
  Sim s("C22018", {{"TARLOSIM_FLASH", path}, {"TARLOSIM_SIZE", "64K"}});
  s.Wren();
  s.Program(0, {0x00});
  // The folder is replaced by a file: the write-back has nowhere to go.
  ASSERT_EQ(rename(folder.c_str(), tmp.file("moved").c_str()), 0);
  tmp.write("chip", "not a folder");
  TARLOARM_Close();
  ASSERT_EQ(g_errors.size(), 1u);
  EXPECT_EQ(g_errors[0], "Cannot write back the flash contents file " + path +
                             ": Not a directory. The chip's changes since the probe was opened are lost.");
  EXPECT_EQ(tmp.read("moved/flash.bin"), std::string(65536, '\xFF')) << "the old contents are kept";
  EXPECT_NE(s.Trace().find("# write-back failed"), std::string::npos);
  // Nothing changed, nothing to write: no report.
  ASSERT_EQ(rename(tmp.file("moved").c_str(), tmp.file("again").c_str()), 0);
  setenv("TARLOSIM_FLASH", tmp.file("again/flash.bin").c_str(), 1);
  g_errors.clear();
  s.Open();
  s.Read(0, 1);
  ASSERT_EQ(rename(tmp.file("again").c_str(), tmp.file("gone").c_str()), 0);
  TARLOARM_Close();
  EXPECT_TRUE(g_errors.empty());
}

}  // namespace
