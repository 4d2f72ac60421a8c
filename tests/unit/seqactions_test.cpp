// The action table as the project file and the interpreter see it.
#include <gtest/gtest.h>

#include <cstring>

#include "flash/seq/seqstep.h"

namespace {

TEST(SeqActions, NamesInOrder) {
  const char* display[] = {"Comment", "Delay", "Activate CS", "Deactivate CS", "Write Data",
                           "Var Read Data", "Var Verify Byte", "Var Write Data", "Var AND", "Var OR",
                           "Var XOR", "Var BEQ", "Var BNE"};
  const char* shortName[] = {nullptr, nullptr, "ActivateCS", "DeactiveCS", "WriteData", "VarReadData",
                             "VarVerifyByte", "VarWriteData", "VarAND", "VarOR", "VarXOR", "VarBEQ", "VarBNE"};
  for (uint32_t i = 0; i < SEQ_NUM_ACTIONS; ++i) {
    const SeqAction* a = SEQ_GetAction(i);
    ASSERT_NE(nullptr, a);
    EXPECT_STREQ(display[i], a->DisplayName);
    if (shortName[i] == nullptr) {
      EXPECT_EQ(nullptr, a->ShortName);
    } else {
      EXPECT_STREQ(shortName[i], a->ShortName);
    }
    EXPECT_EQ(static_cast<int>(i), SEQ_FindAction(display[i]));
  }
  EXPECT_EQ(nullptr, SEQ_GetAction(13));
  EXPECT_EQ(4, SEQ_FindAction("write data"));
  EXPECT_EQ(-1, SEQ_FindAction("WriteData"));
  EXPECT_EQ(-1, SEQ_FindAction(nullptr));
}

TEST(SeqActions, ParameterLimits) {
  struct Case {
    uint32_t action;
    int param;
    const char* name;
    const char* unit;
    uint32_t max;
    int hexDigits;
  } cases[] = {
      {SEQ_ACTION_DELAY, 0, "Delay", "ms", 65535, 0},
      {SEQ_ACTION_WRITE_DATA, 0, "NumByte(s)", "", 15, 0},  // Data holds 16, at most 15 are sent
      {SEQ_ACTION_WRITE_DATA, 1, "ByteStream", "", 0xFF, 2},
      {SEQ_ACTION_VAR_READ_DATA, 1, "NumByte(s)", "", 16, 0},
      {SEQ_ACTION_VAR_VERIFY_BYTE, 0, "OffInBuffer", "", 15, 0},
      {SEQ_ACTION_VAR_VERIFY_BYTE, 1, "Value", "", 0xFF, 2},
      {SEQ_ACTION_VAR_BNE, 1, "Index", "#", 255, 0},
  };
  for (const Case& c : cases) {
    const SeqParam& p = SEQ_GetAction(c.action)->Param[c.param];
    EXPECT_STREQ(c.name, p.Name) << c.action;
    EXPECT_STREQ(c.unit, p.Unit) << c.action;
    EXPECT_EQ(0u, p.Min);
    EXPECT_EQ(c.max, p.Max) << c.action;
    EXPECT_EQ(c.hexDigits, p.HexDigits) << c.action;
  }
  for (uint32_t i : {0u, 2u, 3u}) {
    EXPECT_EQ(nullptr, SEQ_GetAction(i)->Param[0].Name);
    EXPECT_EQ(nullptr, SEQ_GetAction(i)->Param[1].Name);
  }
  EXPECT_EQ(nullptr, SEQ_GetAction(SEQ_ACTION_DELAY)->Param[1].Name);
}

}  // namespace
