// The init/exit sequence interpreter: log lines, clamping, the variable
// buffer's limits, branches, abort, and the transfers it makes.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "app/log.h"
#include "flash/flash.h"
#include "flash/spi.h"
#include "project/seq.h"
#include "project/project.h"
#include "tests/unit/flashdb_fakes.h"

namespace {

class Seq : public testing::Test {
 protected:
  void SetUp() override {
    fake::Reset();
    LOG_SetVerbosity(9);
  }
};

SeqStep Step(uint32_t action, uint32_t v0 = 0, uint32_t v1 = 0) {
  SeqStep s;
  std::memset(&s, 0, sizeof(s));
  s.Action = action;
  s.Value0 = v0;
  s.Value1 = v1;
  return s;
}

void SetInit(const std::vector<SeqStep>& steps) {
  ProjectSequences& seq = fake::project().sequences;
  for (size_t i = 0; i < steps.size(); ++i) seq.InitSteps[i] = steps[i];
  seq.NumInitSteps = static_cast<uint32_t>(steps.size());
}

// Runs one step at index 0 of the init sequence; returns its log output.
std::string RunStep(const SeqStep& step, const char** error = nullptr, uint32_t* next = nullptr) {
  SetInit({step});
  uint32_t index = 0;
  testing::internal::CaptureStdout();
  const char* e = SEQ_ExecuteStep(SEQ_INIT, &index);
  std::string out = testing::internal::GetCapturedStdout();
  if (error) *error = e;
  if (next) *next = index;
  return out;
}

bool Has(const std::string& s, const std::string& what) { return s.find(what) != std::string::npos; }

// Project files name actions by display name, in any letter case.
TEST(SeqActions, FoundByDisplayNameOnly) {
  EXPECT_EQ(SEQ_FindAction("Var Verify Byte"), static_cast<int>(SEQ_ACTION_VAR_VERIFY_BYTE));
  EXPECT_EQ(SEQ_FindAction("write data"), static_cast<int>(SEQ_ACTION_WRITE_DATA));
  EXPECT_EQ(SEQ_FindAction("WriteData"), -1);
  EXPECT_EQ(SEQ_FindAction(nullptr), -1);
  EXPECT_EQ(SEQ_GetAction(SEQ_NUM_ACTIONS), nullptr);
}

TEST_F(Seq, StepLogLines) {
  SeqStep write = Step(SEQ_ACTION_WRITE_DATA, 20);
  for (int i = 0; i < 16; ++i) write.Data[i] = static_cast<uint8_t>(0xA0 + i);
  SeqStep writeNone = Step(SEQ_ACTION_WRITE_DATA, 0);
  writeNone.Data[0] = 0x5A;
  struct Case {
    SeqStep step;
    const char* line;
  };
  const Case cases[] = {
      {Step(SEQ_ACTION_DELAY, 5), "Executing Delay (5 ms)"},
      // A count above the maximum shows (and sends) 15 bytes.
      {write, "Executing Write Data - 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, "
              "0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE\r\n"},
      {writeNone, "Executing Write Data - 0x5A\r\n"},
      {Step(SEQ_ACTION_VAR_VERIFY_BYTE, 40, 0x1FF), "Executing Var Verify Byte (15, 0xFF)"},
      {Step(SEQ_ACTION_VAR_READ_DATA, 3, 99), "Executing Var Read Data (3, 16)"},
      {Step(SEQ_ACTION_VAR_BEQ, 1, 300), "Executing Var BEQ (1, 255 #)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    const std::string out = RunStep(c.step);
    EXPECT_TRUE(Has(out, c.line)) << out;
  }
}

TEST_F(Seq, ReadingMayUseOneByteMoreThanWriting) {
  struct Case {
    uint32_t action, offset, count;
    bool ok;
  };
  const Case cases[] = {
      {SEQ_ACTION_VAR_READ_DATA, 8, 8, true},
      {SEQ_ACTION_VAR_WRITE_DATA, 8, 8, false},
      {SEQ_ACTION_VAR_WRITE_DATA, 8, 7, true},
      {SEQ_ACTION_VAR_READ_DATA, 15, 2, false},
      {SEQ_ACTION_VAR_READ_DATA, 0, 16, true},
      {SEQ_ACTION_VAR_WRITE_DATA, 0, 16, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.action << " " << c.offset << " " << c.count);
    const char* error = nullptr;
    RunStep(Step(c.action, c.offset, c.count), &error);
    if (c.ok) {
      EXPECT_EQ(error, nullptr);
    } else {
      ASSERT_NE(error, nullptr);
      EXPECT_STREQ(error, "Invalid parameters");
    }
  }
}

TEST_F(Seq, BufferArithmetic) {
  uint8_t* buffer = SEQ_GetVarBuffer();
  buffer[6] = 0x0F;
  RunStep(Step(SEQ_ACTION_VAR_OR, 6, 0xF0));
  RunStep(Step(SEQ_ACTION_VAR_AND, 6, 0x3C));
  RunStep(Step(SEQ_ACTION_VAR_XOR, 6, 0x01));
  EXPECT_EQ(buffer[6], 0x3D);
}

TEST_F(Seq, BranchesSetTheNextStep) {
  uint8_t* buffer = SEQ_GetVarBuffer();
  buffer[2] = 0;
  buffer[3] = 7;
  struct Case {
    uint32_t action, offset, target, next;
  };
  const Case cases[] = {
      {SEQ_ACTION_VAR_BEQ, 2, 9, 9},
      {SEQ_ACTION_VAR_BEQ, 3, 9, 1},
      {SEQ_ACTION_VAR_BNE, 3, 0, 0},
      {SEQ_ACTION_VAR_BNE, 2, 9, 1},
  };
  for (const Case& c : cases) {
    uint32_t next = 99;
    const std::string out = RunStep(Step(c.action, c.offset, c.target), nullptr, &next);
    EXPECT_EQ(next, c.next);
    EXPECT_EQ(Has(out, "Branch operation performed"), c.next == c.target) << out;
  }
}

TEST_F(Seq, EndlessBranchLoopStopsOnCtrlC) {
  LOG_InstallAbortHandler();
  LOG_SetVerbosity(0);  // the loop logs every pass
  SEQ_GetVarBuffer()[4] = 1;
  // Step 1 branches to itself for as long as byte 4 is non-zero.
  SetInit({Step(SEQ_ACTION_COMMENT), Step(SEQ_ACTION_VAR_BNE, 4, 1)});
  std::thread interrupt([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    kill(getpid(), SIGINT);
  });
  const auto start = std::chrono::steady_clock::now();
  const int result = SEQ_Run(SEQ_INIT);
  interrupt.join();
  LOG_SetVerbosity(9);
  EXPECT_EQ(result, 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
  LOG_ClearAbort();
}

TEST_F(Seq, BytesGoOutBetweenTheChipSelectSteps) {
  auto send = [](uint32_t count, std::vector<uint8_t> bytes) {
    SeqStep s = Step(SEQ_ACTION_WRITE_DATA, count);
    std::memcpy(s.Data, bytes.data(), std::min(bytes.size(), sizeof(s.Data)));
    return s;
  };
  std::vector<uint8_t> sixteen;
  for (int i = 0; i < 16; ++i) sixteen.push_back(static_cast<uint8_t>(0x10 + i));
  SetInit({Step(SEQ_ACTION_ACTIVATE_CS), send(20, sixteen), send(1, {0x9F}),
           Step(SEQ_ACTION_VAR_READ_DATA, 1, 3), Step(SEQ_ACTION_DEACTIVATE_CS),
           Step(SEQ_ACTION_VAR_VERIFY_BYTE, 1, 0xC2), Step(SEQ_ACTION_VAR_VERIFY_BYTE, 3, 0x18),
           Step(SEQ_ACTION_VAR_WRITE_DATA, 1, 2)});
  fake::probe().readData = {0xC2, 0x20, 0x18};
  LOG_SetVerbosity(0);
  EXPECT_EQ(SEQ_Run(SEQ_INIT), 0);

  const auto& calls = fake::probe().calls;
  EXPECT_EQ(calls, (std::vector<std::string>{"ClrTMS", "SetTMS"}));
  const auto& t = fake::probe().transfers;
  ASSERT_EQ(t.size(), 4u);
  // At most 15 bytes of a Write Data step go out; chip select is left alone.
  EXPECT_EQ(t[0].out, std::vector<uint8_t>(sixteen.begin(), sixteen.begin() + 15));
  EXPECT_EQ(t[0].numBits, 120u);
  EXPECT_EQ(t[1].out, std::vector<uint8_t>{0x9F});
  EXPECT_TRUE(t[2].read);
  EXPECT_EQ(t[2].numBits, 24u);
  EXPECT_EQ(t[3].out, (std::vector<uint8_t>{0xC2, 0x20}));
  for (const auto& x : t) EXPECT_EQ(x.flags, 0u);
}

TEST_F(Seq, StepBeyondTheActionTableIsSkipped) {
  SetInit({Step(77, 1, 1), Step(SEQ_ACTION_DELAY, 0)});
  testing::internal::CaptureStdout();
  EXPECT_EQ(SEQ_Run(SEQ_INIT), 0);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(Has(out, "Executing Delay (0 ms)")) << out;
}

TEST_F(Seq, ExitSequenceIsRunFromItsOwnList) {
  fake::project().sequences.ExitSteps[0] = Step(SEQ_ACTION_DELAY, 1);
  fake::project().sequences.NumExitSteps = 1;
  testing::internal::CaptureStdout();
  EXPECT_EQ(SEQ_Run(SEQ_EXIT), 0);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(Has(out, "Executing exit sequence ...\r\n- Executing Delay (1 ms)")) << out;
}

}  // namespace
