// The project file's text store: lookup, value forms, insertion order, and
// the file round trip.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "project/appini.h"
#include "project/settings.h"
#include "project/settings_internal.h"
#include "tests/e2e/run_program.h"

namespace {

void Load(const std::string& text) { ASSERT_EQ(0, SETTINGS_OpenText(text.data(), static_cast<uint32_t>(text.size()))); }

std::string Text() {
  uint32_t n = 0;
  const char* t = SETTINGS_GetText(&n);
  return t != nullptr ? std::string(t, n) : std::string();
}

std::string Printed(const std::function<void()>& body) {
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout();
}

std::string TempPath(const char* name) {
  return ::testing::TempDir() + "settings_" + std::to_string(getpid()) + "_" + name;
}

// "Key" of [S] read from each text: the result, the value, what is printed.
TEST(SettingsRead, U32ValueFormsAndLookup) {
  const std::string above = "ERROR: Expected a value <= 4294967295\n";
  const struct {
    const char* text;
    int result;
    uint32_t value;
    std::string printed;
  } cases[] = {
      {"[S]\r\nKey=0x1F\r\n", 0, 31, ""},
      {"[S]\r\n  key =31\r\n", 0, 31, ""},
      {"[S]\r\nKEY = +31\r\n", 0, 31, ""},
      {"[S]\r\n\tKey \t=\t 31\r\n", 0, 31, ""},
      {"[S]\r\nKey = 0X1F\r\n", 0, 0, ""},  // upper-case X is not hexadecimal
      {"[S]\r\nKey =\r\n", 0, 0, ""},       // an empty value reads as 0
      {"[S]\r\nKey = -1\r\n", 0, 4294967295u, ""},
      {"[S]\r\nKey = 4294967295\r\n", 0, 4294967295u, ""},
      {"[S]\r\nKey = 4294967296\r\n", -1, 0, above},
      {"[S]\r\nKey = -4294967297\r\n", -1, 0, "ERROR: Expected a value >= -4294967296\n"},
      {"[S]\r\nKey = 12abc\r\n", 0, 12, ""},  // text after the number is ignored
      {"[S]\r\nKey[2] = 7\r\n", 0, 7, ""},
      {"[S]\r\nKey x = 1\r\n", -1, 0, ""},  // not a key line of "Key": missing, quietly
      {"[S]\r\nKeyboard = 5\r\n", -1, 0, ""},
      {"[ S]\r\nKey = 1\r\n", -1, 0, ""},
      {"[SX]\r\nKey = 1\r\n", -1, 0, ""},
      {"[s] trailing\r\nKey = 1\r\n", 0, 1, ""},
      {"  [S]\nKey = 2\n", 0, 2, ""},
      {"[S]\r\nKey = 1\r\nKey = 2\r\n", 0, 1, ""},        // first key wins
      {"[S]\r\nA = 1\r\n[S]\r\nKey = 3\r\n", -1, 0, ""},  // first section only
      {"[S]\r\n[OTHER]\r\nKey = 1\r\n", -1, 0, ""},
      {"[S]\r\n\r\n\r\n  Key = 4\r\n", 0, 4, ""},
      {"[S]\rKey = 5\r", 0, 5, ""},
      {"Key = 9\r\n[S]", -1, 0, ""},  // header without line end
  };
  for (const auto& c : cases) {
    Load(c.text);
    uint32_t v = 123;
    EXPECT_EQ(c.printed, Printed([&] { EXPECT_EQ(c.result, SETTINGS_GetU32("S", "Key", &v)) << c.text; })) << c.text;
    EXPECT_EQ(c.value, v) << c.text;
  }
  Load("Key = 9\r\n[S]\r\nKey = 1\r\n");
  uint32_t v;
  EXPECT_EQ(0, SETTINGS_GetU32(nullptr, "Key", &v));
  EXPECT_EQ(9u, v);
}

// Strings, byte arrays (hexadecimal or decimal) and index sets, each cut
// to its buffer.
TEST(SettingsRead, StringsArraysAndIndexSets) {
  Load("[S]\r\nA = \"abc\"\r\nB = abc\r\nD = \"abcdefghij\"\r\nE = \"\"\r\n"
       "abID[3] = 0xC2,0x20 0x17\r\nOne = 0xC2\r\nBig[2] = 1,256\r\nDec[3] = 1, 300 ,7\r\n"
       "Sel[3] = 0-2,5,7-8\r\nFar[2] = 4, 30-40\r\nBack[1] = 6-2\r\n");
  char buf[8];
  EXPECT_EQ(-1, SETTINGS_GetString("S", "A", buf, sizeof buf));  // -1 even on success
  EXPECT_STREQ("abc", buf);
  Printed([&] { SETTINGS_GetString("S", "B", buf, sizeof buf); });
  EXPECT_STREQ("", buf);
  Printed([&] { SETTINGS_GetString("S", "D", buf, sizeof buf); });
  EXPECT_STREQ("abcdefg", buf);  // the cut prefix stays
  SETTINGS_GetString("S", "E", buf, sizeof buf);
  EXPECT_STREQ("", buf);

  uint8_t b[4];
  EXPECT_EQ(0, SETTINGS_GetByteArray("S", "abID", b, 4));
  EXPECT_EQ((std::array<uint8_t, 4>{0xC2, 0x20, 0x17, 0}), (std::array<uint8_t, 4>{b[0], b[1], b[2], b[3]}));
  EXPECT_EQ(0, SETTINGS_GetByteArray("S", "One", b, 4));
  EXPECT_EQ(0, b[0]);
  EXPECT_EQ("ERROR: Expected a value <= 255\n",
            Printed([&] { EXPECT_EQ(-1, SETTINGS_GetByteArray("S", "Big", b, 4)); }));
  EXPECT_EQ(0, SETTINGS_GetDecByteArray("S", "Dec", b, 4));
  EXPECT_EQ(255, b[1]);  // clamped, not reported
  EXPECT_EQ(7, b[2]);
  EXPECT_EQ(0, SETTINGS_GetByteArray("S", "abID", b, 2));  // capacity limits
  EXPECT_EQ(0x20, b[1]);

  // Each index set as the flags it reads to: the buffer is cleared first.
  uint8_t f[10];
  for (const auto& [key, flags] : {std::pair<const char*, std::string>{"Sel", {"\1\1\1\0\0\1\0\1\1\0", 10}},
                                   {"Far", {"\0\0\0\0\1\0\0\0\0\0", 10}},
                                   {"Back", {"\0\0\0\0\0\0\1\0\0\0", 10}}}) {
    EXPECT_EQ(0, SETTINGS_GetIndexSet("S", key, f, 10)) << key;
    EXPECT_EQ(flags, std::string(reinterpret_cast<char*>(f), 10)) << key;
  }
}

// The line forms and the section order are pinned by the project save
// reference (project_test); these are the writer's own corners.
TEST(SettingsWrite, CornersOfTheWriter) {
  Load("[GENERAL]\r\n  HostName = \"h\"\r\n  USBPort = 0\r\n");
  const uint8_t bytes[] = {1, 0xAB, 255};
  SETTINGS_SetHex8("GENERAL", "H8", 0x1FF);
  SETTINGS_SetDec("GENERAL", "usbport", -5);    // replaces, keeping its place and new spelling
  SETTINGS_SetString("GENERAL", "Null", nullptr);
  SETTINGS_SetByteArray("GENERAL", "None", bytes, 0);
  SETTINGS_SetDecByteArray("GENERAL", "DecBytes", bytes, 3);
  EXPECT_EQ("[GENERAL]\r\n  DecBytes[3] = 1,171,255\r\n  H8 = 0xFF\r\n  HostName = \"h\"\r\n  usbport = -5\r\n",
            Text());
  int32_t d;
  EXPECT_EQ(0, SETTINGS_GetI32("GENERAL", "USBPort", &d));
  EXPECT_EQ(-5, d);
  EXPECT_EQ(3, SETTINGS_GetModified());  // the two empty writes do nothing
  SETTINGS_DeleteKey("GENERAL", "HostName");
  SETTINGS_DeleteKey("GENERAL", "Missing");
  EXPECT_EQ(std::string::npos, Text().find("HostName"));

  // An array line is cut at 4095 characters and still ends its line.
  const std::vector<uint8_t> many(1000, 0xAB);
  Load("[S]\r\n");
  SETTINGS_SetByteArray("S", "Big", many.data(), 1000);
  EXPECT_EQ(5u + 4095 + 2, Text().size());
  EXPECT_EQ("0xAB,0\r\n", Text().substr(Text().size() - 8));

  // A last line without its end, a header at the very end.
  Load("[A]\r\n  X = 1");
  SETTINGS_SetDec("A", "Y", 2);
  EXPECT_EQ("[A]\r\n  X = 1\r\n  Y = 2\r\n", Text());
  Load("[A]\r\n  X = 1\r\n[FLASH]");
  SETTINGS_SetDec("FLASH", "Z", 3);  // the trailing header is no section
  EXPECT_EQ("[A]\r\n  X = 1\r\n[FLASH]\r\n[FLASH]\r\n  Z = 3\r\n", Text());

  // A text of several 8 KiB buffers, every key still found.
  Load("");
  for (uint32_t i = 0; i < 1000; ++i) SETTINGS_SetHex32("BIG", ("Key" + std::to_string(i)).c_str(), i);
  EXPECT_GT(Text().size(), 2u * 8192);
  for (uint32_t i = 0; i < 1000; i += 97) {
    uint32_t v = 0;
    EXPECT_EQ(0, SETTINGS_GetU32("BIG", ("Key" + std::to_string(i)).c_str(), &v));
    EXPECT_EQ(i, v);
  }
}

// Lookups through the index of key lines and lookups by scanning the text
// must agree on every text: the same answers to reads, and the same text
// after writes and deletions that find their lines either way. The texts
// are made of the lines and line ends that sit on the lookup rules' edges.
struct Trace {
  std::vector<std::string> answers;
  std::string text;
  bool operator==(const Trace&) const = default;
};

Trace Exercise(const std::string& text, bool indexed) {
  static const char* const kSections[] = {nullptr, "S", "s", "T", "K", "S]x", "[S"};
  static const char* const kKeys[] = {"K", "k", "Ka", "K x", "K=", "x", "S"};
  SETTINGS_SetIndexed(indexed ? 1 : 0);
  Load(text);
  Trace t;
  auto readAll = [&] {
    for (const char* section : kSections) {
      for (const char* key : kKeys) {
        uint32_t v = 0;
        const int r = SETTINGS_GetU32(section, key, &v);
        t.answers.push_back(std::to_string(SETTINGS_HasKey(section, key)) + ":" + std::to_string(r) + ":" +
                            std::to_string(v));
      }
    }
  };
  testing::internal::CaptureStdout();  // parse messages
  readAll();
  SETTINGS_SetDec("S", "K", 1);
  readAll();
  SETTINGS_SetDec(nullptr, "k", 2);
  SETTINGS_DeleteKey("T", "Ka");
  readAll();
  SETTINGS_DeleteKey("s", "k");
  SETTINGS_SetDec("T", "K x", 3);
  SETTINGS_SetDec("U", "K", 4);
  readAll();
  t.answers.push_back(testing::internal::GetCapturedStdout());
  t.text = Text();
  return t;
}

TEST(SettingsIndex, AgreesWithScanning) {
  static const char* const kLines[] = {"[S]",   "[s] tail", "  [S]",  "[ S]",   "[S",     "[]",    "[T]",
                                       "[S]x]", "[K]",      "K = 1",  "k=2",    "K[2] = 3", "\tK\t= 4", "Ka = 5",
                                       "K x = 6", "K",      "K =",    "=7",     "  ",     "KA =0x8", "Kb[1]=9"};
  static const char* const kEnds[] = {"\r\n", "\n", "\r", "\r\n\r\n", " \r\n"};
  std::mt19937 rng(12345);
  for (int round = 0; round < 1500; ++round) {
    std::string text;
    const int lines = static_cast<int>(rng() % 12);
    for (int i = 0; i < lines; ++i) {
      text += kLines[rng() % std::size(kLines)];
      // The last line sometimes has no line end.
      if (i + 1 < lines || rng() % 3 != 0) text += kEnds[rng() % std::size(kEnds)];
    }
    const Trace scanned = Exercise(text, false);
    const Trace indexed = Exercise(text, true);
    ASSERT_TRUE(scanned == indexed) << "text: " << testing::PrintToString(text) << "\nscanned: "
                                    << testing::PrintToString(scanned.text)
                                    << "\nindexed: " << testing::PrintToString(indexed.text);
  }
}

// New, save, open and close; an unmodified save does not touch the disk; a
// file that exists is not made new, a read-only one not saved over; without
// an open store, every operation warns.
TEST(SettingsFile, LifecycleAndRefusals) {
  const std::string path = TempPath("a.pellam");
  unlink(path.c_str());
  ASSERT_EQ(0, SETTINGS_New(path.c_str()));
  EXPECT_EQ(1, SETTINGS_GetModified());
  SETTINGS_SetDec("S", "K", 1);
  EXPECT_EQ(0, SETTINGS_Save(nullptr));
  EXPECT_EQ(0, SETTINGS_GetModified());
  EXPECT_EQ("[S]\r\n  K = 1\r\n", ReadFile(path));
  ASSERT_EQ(0, SETTINGS_Open(path.c_str()));
  EXPECT_EQ(0, SETTINGS_GetModified());
  unlink(path.c_str());
  EXPECT_EQ(0, SETTINGS_Save(nullptr));  // nothing to write: the disk is not touched
  EXPECT_NE(0, access(path.c_str(), F_OK));
  EXPECT_EQ(0, SETTINGS_Close());
  EXPECT_EQ(0, SETTINGS_IsOpen());

  { std::ofstream(path) << "[S]\r\n"; }
  EXPECT_EQ("ERROR: File already exist:\n" + path + "\n", Printed([&] { EXPECT_EQ(-1, SETTINGS_New(path.c_str())); }));
  EXPECT_EQ(0, SETTINGS_IsOpen());
  EXPECT_EQ(nullptr, SETTINGS_GetText(nullptr));
  EXPECT_EQ("WARNING: No project file opened.\nWARNING: No project file opened.\n", Printed([] {
              uint32_t v;
              EXPECT_EQ(-1, SETTINGS_GetU32("S", "K", &v));
              SETTINGS_SetDec("S", "K", 1);
            }));

  ASSERT_EQ(0, SETTINGS_Open(path.c_str()));
  chmod(path.c_str(), 0444);
  SETTINGS_SetDec("S", "K", 1);
  EXPECT_EQ("ERROR: Could not save file [" + path + "]\nFile has read only attribute!\n",
            Printed([] { EXPECT_EQ(-2, SETTINGS_Save(nullptr)); }));
  EXPECT_EQ("[S]\r\n", ReadFile(path));
  EXPECT_GT(SETTINGS_GetModified(), 0);
  chmod(path.c_str(), 0644);
  unlink(path.c_str());
}

// Writes the store's file anew and has the store read it: a new name does.
void Rewrite(const std::string& path, const std::string& text) {
  { std::ofstream(path, std::ios::binary) << text; }
  APPINI_SetFile("", nullptr);
  APPINI_SetFile(path.c_str(), nullptr);
}

TEST(AppSettings, CaseSensitiveStoreWrittenAfterEveryChange) {
  const std::string path = TempPath("app.ini");
  unlink(path.c_str());
  APPINI_SetFile(path.c_str(), nullptr);
  char buf[64] = "stale";
  EXPECT_EQ(-1, APPINI_GetString("PROJECT", "Current", buf, sizeof buf));
  EXPECT_STREQ("", buf);
  EXPECT_EQ(0, APPINI_SetString("PROJECT", "Current", "a.pellam"));
  EXPECT_EQ("[PROJECT]\r\nCurrent=\"a.pellam\"\r\n", ReadFile(path));
  EXPECT_EQ(0, APPINI_SetHex8("PROJECT", "Flags", 0x1A5));
  EXPECT_EQ(0, APPINI_SetString("PROJECT", "Current", "b.pellam"));  // replaces, moves to the top
  EXPECT_EQ(0, APPINI_SetDec("OTHER", "Count", 42));
  EXPECT_EQ("[PROJECT]\r\nCurrent=\"b.pellam\"\r\nFlags = 0xA5\r\n[OTHER]\r\nCount = 42\r\n", ReadFile(path));

  // A new name makes the store read the file anew. A key is followed by '='
  // or a space, nothing else.
  Rewrite(path,
          "[project]\r\nCurrent=\"x\"\r\n[PROJECT]\r\nFlags = 0x1F\r\nN = 7\r\nBad = 7\r\nTab\t= 0x2\r\nSp 0x3\r\n");
  EXPECT_EQ(-1, APPINI_GetString("PROJECT", "Current", buf, sizeof buf));  // [project] is another section
  uint32_t u = 0;
  EXPECT_EQ(0, APPINI_GetU32("PROJECT", "Flags", &u));
  EXPECT_EQ(0x1Fu, u);
  int32_t d = 0;
  EXPECT_EQ(0, APPINI_GetDec("PROJECT", "N", &d));
  EXPECT_EQ(7, d);
  EXPECT_EQ(-1, APPINI_GetU32("PROJECT", "flags", &u));  // key names are case-sensitive
  EXPECT_EQ(-1, APPINI_GetU32("PROJECT", "Tab", &u));
  EXPECT_EQ(0, APPINI_GetU32("PROJECT", "Sp", &u));
  EXPECT_EQ(3u, u);
  EXPECT_EQ(0, APPINI_GetRaw("PROJECT", "Flags", buf, sizeof buf));
  EXPECT_STREQ("0x1F", buf);
  static std::string reported;
  APPINI_SetFile(path.c_str(), [](const char* text) { reported = text; });
  EXPECT_EQ(-1, APPINI_GetU32("PROJECT", "Bad", &u));  // only "0x" numbers
  EXPECT_EQ("Error while parsing subkey \"Bad\" in settings file. Syntax error.", reported);
  // A write takes out only the key's line and puts the new one directly after the header.
  Rewrite(path, "[PROJECT]\r\n\r\nN = 7\r\n\r\nM = 1\r\n");
  EXPECT_EQ(0, APPINI_SetDec("PROJECT", "N", 8));
  EXPECT_EQ("[PROJECT]\r\nN = 8\r\n\r\n\r\nM = 1\r\n", ReadFile(path));
  EXPECT_EQ(0, APPINI_GetDec("PROJECT", "M", &d));
  EXPECT_EQ(1, d);

  // File errors go by the error number as it stands: "not a directory" (20) is no "Path not found!".
  const std::string under = path + "/app.ini";
  APPINI_SetFile(under.c_str(), [](const char* text) { reported = text; });
  EXPECT_EQ(-1, APPINI_SetDec("PROJECT", "N", 1));
  EXPECT_EQ("Could not save file [" + under + "]\nInvalid file handle!", reported);
  APPINI_SetFile("", nullptr);
  EXPECT_EQ(-1, APPINI_SetDec("PROJECT", "N", 1));  // no file: the write has no effect
  unlink(path.c_str());
}

}  // namespace
