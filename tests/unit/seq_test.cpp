// The init/exit sequence interpreter: log lines, clamping, the variable
// buffer's limits and arithmetic, branches, and the transfers it makes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "app/log.h"
#include "project/project.h"
#include "project/seq.h"
#include "tests/unit/flashdb_fakes.h"

namespace {

SeqStep Step(uint32_t action, uint32_t v0 = 0, uint32_t v1 = 0, std::vector<uint8_t> data = {}) {
  SeqStep s;
  std::memset(&s, 0, sizeof(s));
  s.Action = action;
  s.Value0 = v0;
  s.Value1 = v1;
  std::memcpy(s.Data, data.data(), std::min(data.size(), sizeof(s.Data)));
  return s;
}

void SetInit(const std::vector<SeqStep>& steps) {
  fake::Reset();
  LOG_SetVerbosity(9);
  ProjectSequences& seq = fake::project().sequences;
  for (size_t i = 0; i < steps.size(); ++i) seq.InitSteps[i] = steps[i];
  seq.NumInitSteps = static_cast<uint32_t>(steps.size());
}

// One sequence through every kind of step. A branch that goes the wrong way
// either runs a failing check or ends the sequence early at its target 255.
TEST(Seq, WholeSequenceLogsClampsBranchesAndTransfers) {
  std::vector<uint8_t> sixteen;
  for (int i = 0; i < 16; ++i) sixteen.push_back(static_cast<uint8_t>(0x10 + i));
  const std::vector<SeqStep> steps = {
      Step(SEQ_ACTION_ACTIVATE_CS),
      Step(SEQ_ACTION_WRITE_DATA, 20, 0, sixteen),  // at most 15 bytes go out
      Step(SEQ_ACTION_WRITE_DATA, 1, 0, {0x9F}),
      Step(SEQ_ACTION_WRITE_DATA, 0, 0, {0x5A}),  // shown, not sent
      Step(SEQ_ACTION_VAR_READ_DATA, 1, 3),
      Step(SEQ_ACTION_DEACTIVATE_CS),
      Step(SEQ_ACTION_VAR_AND, 6, 0),
      Step(SEQ_ACTION_VAR_OR, 6, 0xF3),
      Step(SEQ_ACTION_VAR_AND, 6, 0x3C),
      Step(SEQ_ACTION_VAR_XOR, 6, 0x21),
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x11),
      Step(SEQ_ACTION_VAR_AND, 7, 0),
      Step(SEQ_ACTION_VAR_BEQ, 7, 14),  // 12: taken
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x00),
      Step(SEQ_ACTION_VAR_BNE, 6, 16),  // 14: taken
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x00),
      Step(SEQ_ACTION_VAR_BEQ, 6, 300),  // 16: not taken
      Step(SEQ_ACTION_VAR_BNE, 7, 255),  // not taken
      Step(77, 1, 1),                    // no such action: skipped
      Step(SEQ_ACTION_VAR_OR, 15, 0xFF),
      Step(SEQ_ACTION_VAR_VERIFY_BYTE, 40, 0x1FF),
      Step(SEQ_ACTION_VAR_WRITE_DATA, 1, 2),
      Step(SEQ_ACTION_DELAY, 5),
      Step(SEQ_ACTION_COMMENT),
  };
  SetInit(steps);
  fake::probe().readData = {0xC2, 0x20, 0x18};
  testing::internal::CaptureStdout();
  EXPECT_EQ(SEQ_Run(SEQ_INIT), 0);
  const std::string out = testing::internal::GetCapturedStdout();
  const char* lines[] = {
      "Executing init sequence ...",
      "Executing Activate CS ()",
      "Executing Write Data - 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, "
      "0x1D, 0x1E\r\n",
      "Executing Write Data - 0x9F\r\n",
      "Executing Write Data - 0x5A\r\n",
      "Executing Var Read Data (1, 3)",
      "Read Data - 0xC2, 0x20, 0x18\r\n",
      "Executing Var XOR (6, 0x21)",
      "Executing Var Verify Byte (6, 0x11)",
      "Verifying...O.K.",
      "Branch operation performed",
      "Executing Var BNE (6, 16 #)",
      "Branch operation performed",
      "Executing Var BEQ (6, 255 #)\r\n",
      "Executing Var BNE (7, 255 #)\r\n",
      "Executing Var Verify Byte (15, 0xFF)",
      "Verifying...O.K.",
      "Executing Var Write Data (1, 2)",
      "Write Data - 0xC2, 0x20\r\n",
      "Executing Delay (5 ms)",
      "//\r\n",
      "Executed successfully",
  };
  size_t from = 0;
  for (const char* line : lines) {
    const size_t at = out.find(line, from);
    ASSERT_NE(at, std::string::npos) << line << "\n" << out;
    from = at + 1;
  }
  EXPECT_EQ(out.find("Branch operation performed", out.find("Executing Var BEQ (6, 255 #)")), std::string::npos);

  // Chip select is left to its own steps: every transfer has flags 0.
  EXPECT_EQ(fake::probe().calls, (std::vector<std::string>{"ClrTMS", "SetTMS"}));
  const auto& t = fake::probe().transfers;
  ASSERT_EQ(t.size(), 4u);
  EXPECT_EQ(t[0].out, std::vector<uint8_t>(sixteen.begin(), sixteen.begin() + 15));
  EXPECT_EQ(t[0].numBits, 120u);
  EXPECT_EQ(t[1].out, std::vector<uint8_t>{0x9F});
  EXPECT_TRUE(t[2].read);
  EXPECT_EQ(t[2].numBits, 24u);
  EXPECT_EQ(t[3].out, (std::vector<uint8_t>{0xC2, 0x20}));
  for (const auto& x : t) EXPECT_EQ(x.flags, 0u);
}

// Reading may fill the buffer to its end; writing must leave the last byte.
TEST(Seq, BufferLimitsOfReadingAndWriting) {
  const struct {
    uint32_t action, offset, count;
    bool ok;
  } cases[] = {
      {SEQ_ACTION_VAR_READ_DATA, 8, 8, true},  {SEQ_ACTION_VAR_WRITE_DATA, 8, 8, false},
      {SEQ_ACTION_VAR_WRITE_DATA, 8, 7, true}, {SEQ_ACTION_VAR_READ_DATA, 15, 2, false},
      {SEQ_ACTION_VAR_READ_DATA, 0, 99, true}, {SEQ_ACTION_VAR_WRITE_DATA, 0, 16, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.action << " " << c.offset << " " << c.count);
    SetInit({Step(c.action, c.offset, c.count), Step(SEQ_ACTION_COMMENT)});
    testing::internal::CaptureStdout();
    EXPECT_EQ(SEQ_Run(SEQ_INIT), c.ok ? 0 : 1);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("ERROR: Invalid parameters") != std::string::npos, !c.ok) << out;
    EXPECT_EQ(out.find("//") != std::string::npos, c.ok) << "a failing step ends the sequence\n" << out;
  }
}

}  // namespace
