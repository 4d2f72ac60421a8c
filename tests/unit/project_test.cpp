// The project model: every key loaded and saved byte-exact, the clamps and
// defaults, older files, steps, the modified counter and saving failures.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "project/project.h"
#include "tests/e2e/run_program.h"

namespace {

// What the body prints on standard output.
std::string Printed(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout();
}

// A private HOME and working files for this process.
class ProjectTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("HOME", tmp_.path().c_str(), 1); }
  void TearDown() override {
    if (PROJECT_IsOpen() == 1) Printed([] { PROJECT_Close(); });
  }
  std::string Write(const std::string& name, const std::string& text) {
    tmp_.write(name, text);
    return tmp_.file(name);
  }
  // Opens quietly; returns the open's result.
  int Open(const std::string& path) {
    int r = 0;
    out_ = Printed([&] { r = PROJECT_Open(path.c_str()); });
    return r;
  }
  int OpenText(const std::string& text) { return Open(Write("t.pellam", text)); }
  // The open project saved quietly, as the file reads.
  std::string Saved() {
    const std::string out = tmp_.file("saved.pellam");
    Printed([&] { EXPECT_EQ(0, PROJECT_SaveAs(out.c_str())); });
    return ReadFile(out);
  }
  static std::string Reference(const char* name) { return ReadFile(kReferences + name); }
  static inline const std::string kReferences = std::string(PELLAM_SOURCE_DIR) + "/tests/data/project/";
  TempDir tmp_;
  std::string out_;
};

TEST_F(ProjectTest, EveryKeyLoadsAndSavesByteExact) {
  ASSERT_EQ(0, Open(kReferences + "full.pellam"));
  EXPECT_EQ(0, PROJECT_IsModified());

  // Every key that was read shows in the saved file; the step and selection
  // getters are what the flash operations see.
  SeqStep s;
  PROJECT_GetStep(0, 1, &s);
  EXPECT_EQ(SEQ_ACTION_WRITE_DATA, s.Action);
  EXPECT_EQ(0, memcmp(s.Data, "\x06\x01\x02\x00", 4));
  EXPECT_STREQ("write enable", s.Comment);
  uint8_t sel[12];
  EXPECT_EQ(5u, PROJECT_GetSectorSelection(sel, 12));
  EXPECT_EQ(0, memcmp(sel, "\1\1\1\1\0\0\0\0\0\0\1\0", 12));

  const std::string out = tmp_.file("out.pellam");
  EXPECT_EQ("Saving project file [" + out + "] ...\r\n- Project saved successfully\r\n",
            Printed([&] { EXPECT_EQ(0, PROJECT_SaveAs(out.c_str())); }));
  EXPECT_EQ(Reference("full_saved.pellam"), ReadFile(out));
  // The saved project is recorded as the current one.
  EXPECT_NE(std::string::npos,
            tmp_.read(".config/Valmik/PellamSPI.ini").find("[PROJECT]\r\nCurrent=\"" + out + "\"\r\n"));

  // Reading the saved file back changes nothing.
  FlashParams f, f2;
  PROJECT_GetFlashParams(&f);
  ASSERT_EQ(0, Open(out));
  EXPECT_EQ(0, PROJECT_IsModified());
  PROJECT_GetFlashParams(&f2);
  EXPECT_EQ(0, memcmp(&f, &f2, sizeof f));
}

// Speed0 is clamped into 1000..25000 when loaded, missing it is 4000; set
// through its narrow setter it is the sequence record's Speed0, not clamped,
// counted only when it changes. The other keys of a file that names them
// badly are clamped, the missing ones take defaults that differ from a new
// project's.
TEST_F(ProjectTest, MissingKeysAndClamps) {
  const std::pair<const char*, uint32_t> speeds[] = {{"[JTAG]\r\nSpeed0 = 500\r\n", 1000},
                                                     {"[JTAG]\r\nSpeed0 = 30000\r\n", 25000},
                                                     {"[GENERAL]\r\n", 4000},
                                                     {"[JTAG]\r\nSpeed0 = 9999\r\n", 9999}};
  auto seq = std::make_unique<ProjectSequences>();
  for (const auto& [text, speed] : speeds) {
    ASSERT_EQ(0, OpenText(text));
    EXPECT_EQ(speed, PROJECT_GetInterfaceSpeed()) << text;
    PROJECT_SetInterfaceSpeed(speed);
    EXPECT_EQ(0, PROJECT_IsModified()) << text;
    const uint32_t other = speed == 9999 ? 0xFFFFFFFFu : 500;
    PROJECT_SetInterfaceSpeed(other);
    PROJECT_GetSequences(seq.get());
    EXPECT_EQ(other, seq->Speed0) << text;
    EXPECT_EQ(1, PROJECT_IsModified()) << text;
  }
  ASSERT_EQ(0, OpenText("[FLASH]\r\nFlashType = 0\r\nAutoDetect = 7\r\nPageSizeShift = 40\r\n"
                        "[SPI]\r\nStatusBitPos = 9\r\nNumAddrBytes = 0x40\r\n"
                        "[PRODUCTION]\r\nTargetPowerDelay = 20000\r\nEraseType = -1\r\n"
                        "[GENERAL]\r\nConnectMode = 5\r\nUSBPort = 9\r\n"));
  EXPECT_EQ(Reference("clamped_saved.pellam"), Saved());
  ASSERT_EQ(0, OpenText(""));
  EXPECT_EQ(Reference("empty_saved.pellam"), Saved());
}

// Older files: the connection mode from ConnectIP, the address length from
// any of the four AddrBytes* keys; saved under today's keys only.
TEST_F(ProjectTest, OlderFileKeys) {
  const struct {
    const char* text;
    const char* mode;
    const char* addrBytes;
  } cases[] = {
      {"[GENERAL]\r\nConnectIP = 1\r\n[SPI]\r\nAddrBytesReadFast = 4\r\n", "  ConnectMode = 2\r\n",
       "  NumAddrBytes = 0x04\r\n"},
      {"[GENERAL]\r\nConnectIP = 0\r\n[SPI]\r\nAddrBytesReadData = 2\r\n", "  ConnectMode = 0\r\n",
       "  NumAddrBytes = 0x03\r\n"},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(0, OpenText(c.text));
    const std::string saved = Saved();
    EXPECT_NE(std::string::npos, saved.find(c.mode)) << c.text;
    EXPECT_NE(std::string::npos, saved.find(c.addrBytes)) << c.text;
    for (const char* gone : {"AddrBytesRead", "ConnectIP", "SelectedSectors"}) {  // no selection, no key
      EXPECT_EQ(std::string::npos, saved.find(gone)) << c.text;
    }
  }
}

TEST_F(ProjectTest, Steps) {
  ASSERT_EQ(0, OpenText("[CPU]\r\nNumInitSteps = 300\r\n"));
  EXPECT_EQ(256u, PROJECT_GetStepCount(0));
  SeqStep s;
  PROJECT_GetStep(0, 255, &s);
  EXPECT_EQ(SEQ_ACTION_DELAY, s.Action);
  EXPECT_EQ(0u, s.Value0);
  PROJECT_GetStep(0, 256, &s);  // out of range: zero-filled
  EXPECT_EQ(0u, s.Action);
  EXPECT_EQ(0, PROJECT_IsModified());

  ASSERT_EQ(0, OpenText("[CPU]\r\nNumExitSteps = 3\r\n"
                        "ExitStep0_Action = \"Jump\"\r\nExitStep0_Value0 = 5\r\nExitStep0_Value1 = 6\r\n"
                        "ExitStep1_Action = \"var xor\"\r\nExitStep1_Value0 = 5\r\nExitStep1_Value1 = 0xFF\r\n"));
  EXPECT_EQ(3u, PROJECT_GetStepCount(1));
  PROJECT_GetStep(1, 0, &s);
  EXPECT_EQ(SEQ_ACTION_DELAY, s.Action);  // unknown action
  EXPECT_EQ(0u, s.Value0);
  EXPECT_EQ(0u, s.Value1);
  PROJECT_GetStep(1, 1, &s);
  EXPECT_EQ(SEQ_ACTION_VAR_XOR, s.Action);
  EXPECT_EQ(0xFFu, s.Value1);
  PROJECT_GetStep(1, 2, &s);  // counted but not in the file
  EXPECT_EQ(SEQ_ACTION_DELAY, s.Action);
}

// Value1 of a step is a byte array exactly when the action's name is "Write
// data" in any ASCII case; anything else, near misses included, is a number.
TEST_F(ProjectTest, WriteDataStepsByNameInAnyCase) {
  struct Case {
    const char* action;
    uint32_t wantAction;
    bool bytes;
  } cases[] = {
      {"Write Data", SEQ_ACTION_WRITE_DATA, true},  {"write data", SEQ_ACTION_WRITE_DATA, true},
      {"WRITE DATA", SEQ_ACTION_WRITE_DATA, true},  {"Write Data ", SEQ_ACTION_DELAY, false},
      {"Var Write Data", SEQ_ACTION_VAR_WRITE_DATA, false}, {"WriteData", SEQ_ACTION_DELAY, false},
  };
  for (const Case& c : cases) {
    ASSERT_EQ(0, OpenText(std::string("[CPU]\r\nNumInitSteps = 1\r\nInitStep0_Action = \"") + c.action +
                          "\"\r\nInitStep0_Value0 = 2\r\nInitStep0_Value1[2] = 0x11,0x22\r\n"));
    SeqStep s;
    PROJECT_GetStep(0, 0, &s);
    EXPECT_EQ(c.wantAction, s.Action) << c.action;
    EXPECT_EQ(c.bytes ? 0x11 : 0, s.Data[0]) << c.action;
  }
}

// Flips a byte of a record where no field is (padding) or anywhere else.
void Poke(void* record, size_t offset) { static_cast<uint8_t*>(record)[offset] ^= 0x5A; }

// Each setter counts a change exactly when its comparing query says the
// record differs: padding, bytes after a string's terminator and steps beyond
// the step counts are no difference, every field is; a record set again is
// no change.
TEST_F(ProjectTest, SettersCountWhatTheirQueriesCallADifference) {
  ASSERT_EQ(0, OpenText("[GENERAL]\r\nHostName = \"h\"\r\n[CPU]\r\nNumInitSteps = 1\r\n"
                        "InitStep0_Action = \"Delay\"\r\nInitStep0_Comment = \"c\"\r\n"));
  auto f = std::make_unique<FlashParams>();
  auto pr = std::make_unique<ProjectProduction>();
  auto perf = std::make_unique<ProjectPerformance>();
  auto g = std::make_unique<ProjectGeneral>();
  auto seq = std::make_unique<ProjectSequences>();
  PROJECT_GetFlashParams(f.get());
  PROJECT_GetProduction(pr.get());
  PROJECT_GetPerformance(perf.get());
  PROJECT_GetGeneral(g.get());
  PROJECT_GetSequences(seq.get());
  auto differs = [&] {
    return std::vector<int>{PROJECT_FlashParamsDiffer(f.get()), PROJECT_ProductionDiffers(pr.get()),
                            PROJECT_PerformanceDiffers(perf.get()), PROJECT_GeneralDiffers(g.get()),
                            PROJECT_SequencesDiffer(seq.get())};
  };
  const std::vector<std::function<void()>> setters = {
      [&] { PROJECT_SetFlashParams(f.get()); }, [&] { PROJECT_SetProduction(pr.get()); },
      [&] { PROJECT_SetPerformance(perf.get()); }, [&] { PROJECT_SetGeneral(g.get()); },
      [&] { PROJECT_SetSequences(seq.get()); }};
  // Sets each record on its own after a save; true when each counted a
  // change exactly when `want` says so.
  auto setEach = [&](const std::vector<int>& want) {
    for (size_t i = 0; i < setters.size(); ++i) {
      Saved();
      setters[i]();
      EXPECT_EQ(want[i], PROJECT_IsModified()) << "record " << i;
    }
  };
  Poke(f.get(), offsetof(FlashParams, StatusBitPos) + 1);
  Poke(pr.get(), sizeof *pr - 1);
  Poke(g.get(), sizeof *g - 1);
  g->CurrentFile[100] = 'x';
  seq->InitSteps[1].Value0 = 1;
  seq->ExitSteps[0].Value0 = 1;
  seq->InitSteps[0].Comment[50] = 'x';
  EXPECT_EQ(std::vector<int>(5, 0), differs());
  setEach(std::vector<int>(5, 0));

  f->abID[2] = 1;
  pr->PerformCompare = 3;
  perf->DisableSkipBlankDataOnProgram = 2;
  g->HostName[0] = 'H';
  seq->InitSteps[0].Data[15] = 1;
  EXPECT_EQ(std::vector<int>(5, 1), differs());
  setEach(std::vector<int>(5, 1));
  setEach(std::vector<int>(5, 0));  // the same records again
  f->ChipClass = 9;
  seq->NumExitSteps = 999;  // above 256: a difference, then held as 256
  EXPECT_EQ((std::vector<int>{1, 0, 0, 0, 1}), differs());
  setEach({1, 0, 0, 0, 1});
  EXPECT_EQ(std::vector<int>(5, 0), differs());
}

TEST_F(ProjectTest, NewProjectDefaults) {
  EXPECT_EQ("Creating new project ...\r\n- New project created successfully\r\n",
            Printed([] { ASSERT_EQ(0, PROJECT_New(nullptr)); }));
  EXPECT_EQ(1, PROJECT_IsModified());
  EXPECT_STREQ("", PROJECT_GetName());
  uint8_t sel[4];
  EXPECT_EQ(4u, PROJECT_GetSectorSelection(sel, 4));  // no selection: every sector
  // A data file name too long is refused, after its address was taken.
  uint32_t addr = 1;
  PROJECT_SetDataFile("a.hex", 0x100);
  const std::string longName(600, 'n');
  EXPECT_EQ("ERROR: Too large file name.\n", Printed([&] { PROJECT_SetDataFile(longName.c_str(), 0x200); }));
  EXPECT_STREQ("a.hex", PROJECT_GetDataFile(&addr));
  EXPECT_EQ(0x200u, addr);
  EXPECT_EQ(Reference("new_saved.pellam"), Saved());
  PROJECT_SetDataFile("b.hex", 0);
  // Closing drops the changes: the prompt is answered "No".
  EXPECT_EQ("Close project\r\n- Project closed\r\n", Printed([] { EXPECT_EQ(0, PROJECT_Close()); }));
  EXPECT_EQ(0, PROJECT_IsOpen());

  // Without a project: getters fill zeros, the speed setter does nothing,
  // closing still ends with its result line; each complains.
  FlashParams f;
  const std::string none = "ERROR: No project file opened.\n";
  EXPECT_EQ(none + none + none + "Close project\r\n" + none + "- Project closed\r\n", Printed([&] {
              PROJECT_GetFlashParams(&f);
              EXPECT_EQ(0u, PROJECT_GetInterfaceSpeed());
              PROJECT_SetInterfaceSpeed(100);
              EXPECT_EQ(0, PROJECT_Close());
            }));
  EXPECT_EQ(0u, f.NumPages);
  EXPECT_EQ(0, f.CmdEraseSector);
}

TEST_F(ProjectTest, SaveFailuresLeaveTheFile) {
  const std::string path = Write("ro.pellam", "[JTAG]\r\nSpeed0 = 4000\r\n");
  ASSERT_EQ(0, Open(path));
  const uint8_t flags[6] = {0, 1, 1, 0, 0, 1};
  PROJECT_SetSectorSelection(flags, 6);
  EXPECT_EQ(1, PROJECT_IsModified());
  PROJECT_SetInterfaceSpeed(6000);
  chmod(path.c_str(), 0444);
  const std::string out = Printed([] { EXPECT_EQ(-1, PROJECT_Save()); });
  EXPECT_NE(std::string::npos, out.find("ERROR: Failed to save project file")) << out;
  EXPECT_EQ("[JTAG]\r\nSpeed0 = 4000\r\n", ReadFile(path));
  chmod(path.c_str(), 0644);
  Printed([] { EXPECT_EQ(0, PROJECT_Save()); });
  EXPECT_NE(std::string::npos, ReadFile(path).find("  Speed0 = 6000\r\n"));
  EXPECT_NE(std::string::npos, ReadFile(path).find("  SelectedSectors[2] = 1-2,5\r\n"));
  EXPECT_EQ(0, PROJECT_IsModified());
}

TEST_F(ProjectTest, BadInputFallsBack) {
  std::string junk = "[GENERAL]\r\nHostName = \"unterminated\r\nUSBPort = 0x\r\nGUIMode = 99999999999\r\n"
                     "[CPU]\r\nNumInitSteps = 99999999999999999999\r\nInitStep0_Value1[40000] = 1,2\r\n"
                     "[FLASH]\r\nabID[ = 1\r\nSelectedSectors[9] = 5-,x\r\n";
  for (int i = 0; i < 256; ++i) junk += static_cast<char>(i);
  EXPECT_EQ(0, OpenText(junk));
  ProjectGeneral g;
  PROJECT_GetGeneral(&g);
  EXPECT_EQ(0, g.GUIMode);  // parse error: default
  EXPECT_EQ(0u, PROJECT_GetStepCount(0));
  EXPECT_EQ(0, PROJECT_IsModified());

  // A value out of range is reported and the key takes its default; a byte
  // array takes it as a whole, not the elements before the bad one.
  ASSERT_EQ(0, OpenText("[JTAG]\r\nSpeed0 = 4294967296\r\n[FLASH]\r\nAutoDetect = 0\r\nabID[3] = 0xC2,0x20,0x118\r\n"
                        "[CPU]\r\nNumInitSteps = 1\r\nInitStep0_Action = \"Write data\"\r\n"
                        "InitStep0_Value1[2] = 0x9F,256\r\n"));
  EXPECT_EQ(1u, Count(out_, "ERROR: Expected a value <= 4294967295\n")) << out_;
  EXPECT_EQ(2u, Count(out_, "ERROR: Expected a value <= 255\n")) << out_;
  EXPECT_TRUE(out_.ends_with("ERROR: Expected a value <= 255\n- Project opened successfully\r\n")) << out_;
  EXPECT_EQ(4000u, PROJECT_GetInterfaceSpeed());
  FlashParams f;
  PROJECT_GetFlashParams(&f);
  SeqStep s;
  PROJECT_GetStep(0, 0, &s);
  EXPECT_EQ(0, f.abID[0] | f.abID[1] | s.Data[0]);
}

}  // namespace
