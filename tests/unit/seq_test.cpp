// The init/exit sequence interpreter: log lines, clamping, the variable
// buffer's limits, branches, abort, and the bytes that reach the chip
// (through the simulated probe library beside the test).
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "app/log.h"
#include "flash/flash.h"
#include "flash/seq/seq.h"
#include "flash/seq/seqstep.h"
#include "project/project.h"

namespace {

std::string TracePath() { return testing::TempDir() + "seq_test_trace.txt"; }

// The simulated library reads its environment when it loads, so set it up
// before the first probe call of the process.
class SeqEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    std::remove(TracePath().c_str());
    setenv("TARLOSIM_TRACE", TracePath().c_str(), 1);
    setenv("TARLOSIM_FLASH", (testing::TempDir() + "seq_test_flash.bin").c_str(), 1);
    setenv("TARLOSIM_CHIP", "C22018", 1);
    unsetenv("TARLOSIM_SN");
    unsetenv("TARLOSIM_FAULT");
    unsetenv("TARLOSIM_VTARGET");
    setenv("HOME", testing::TempDir().c_str(), 1);
    LOG_SetVerbosity(9);
    PROJECT_New(nullptr);
  }
};
const auto* const kEnvironment = testing::AddGlobalTestEnvironment(new SeqEnvironment);

SeqStep Step(uint32_t action, uint32_t v0 = 0, uint32_t v1 = 0) {
  SeqStep s;
  std::memset(&s, 0, sizeof(s));
  s.Action = action;
  s.Value0 = v0;
  s.Value1 = v1;
  return s;
}

void SetInit(const std::vector<SeqStep>& steps) {
  auto seq = std::make_unique<ProjectSequences>();
  PROJECT_GetSequences(seq.get());
  std::memset(seq->InitSteps, 0, sizeof(seq->InitSteps));
  for (size_t i = 0; i < steps.size(); ++i) seq->InitSteps[i] = steps[i];
  seq->NumInitSteps = static_cast<uint32_t>(steps.size());
  PROJECT_SetSequences(seq.get());
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

TEST(Seq, EmptySequenceRunsAndSaysSo) {
  SetInit({});
  testing::internal::CaptureStdout();
  EXPECT_EQ(SEQ_Run(SEQ_INIT), 0);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(Has(out, "Executing init sequence ...")) << out;
  EXPECT_TRUE(Has(out, "Executed successfully")) << out;
}

TEST(Seq, StepLogLines) {
  SeqStep write = Step(SEQ_ACTION_WRITE_DATA, 20);
  for (int i = 0; i < 16; ++i) write.Data[i] = static_cast<uint8_t>(0xA0 + i);
  SeqStep writeNone = Step(SEQ_ACTION_WRITE_DATA, 0);
  writeNone.Data[0] = 0x5A;
  SeqStep comment = Step(SEQ_ACTION_COMMENT);
  std::strcpy(comment.Comment, "wake the chip");
  struct Case {
    SeqStep step;
    const char* line;
  };
  const Case cases[] = {
      {Step(SEQ_ACTION_DELAY, 5), "Executing Delay (5 ms)"},
      {Step(SEQ_ACTION_ACTIVATE_CS), "Executing Activate CS ()"},
      {comment, "//\r\n   // wake the chip\r\n   //"},
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

TEST(Seq, ReadingMayUseOneByteMoreThanWriting) {
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

TEST(Seq, BufferArithmeticAndVerify) {
  uint8_t* buffer = SEQ_GetVarBuffer();
  buffer[6] = 0x0F;
  RunStep(Step(SEQ_ACTION_VAR_OR, 6, 0xF0));
  RunStep(Step(SEQ_ACTION_VAR_AND, 6, 0x3C));
  RunStep(Step(SEQ_ACTION_VAR_XOR, 6, 0x01));
  EXPECT_EQ(buffer[6], 0x3D);
  const char* error = nullptr;
  std::string out = RunStep(Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x3D), &error);
  EXPECT_EQ(error, nullptr);
  EXPECT_TRUE(Has(out, "Verifying...O.K.")) << out;
  RunStep(Step(SEQ_ACTION_VAR_VERIFY_BYTE, 6, 0x3E), &error);
  ASSERT_NE(error, nullptr);
  EXPECT_STREQ(error, "Verification failed @ VarBufferIndex 6: Expected: 0x3E, Found: 0x3D");
}

TEST(Seq, BranchesSetTheNextStep) {
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

TEST(Seq, FailingStepEndsTheRun) {
  SEQ_GetVarBuffer()[0] = 1;
  SetInit({Step(SEQ_ACTION_VAR_VERIFY_BYTE, 0, 2), Step(SEQ_ACTION_DELAY, 1)});
  testing::internal::CaptureStdout();
  EXPECT_EQ(SEQ_Run(SEQ_INIT), 1);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(Has(out, "ERROR: Verification failed @ VarBufferIndex 0: Expected: 0x02, Found: 0x01"))
      << out;
  EXPECT_FALSE(Has(out, "Executing Delay")) << out;
  EXPECT_FALSE(Has(out, "Executed successfully")) << out;
  // Shown, not collected as an error of the operation.
  EXPECT_EQ(LOG_GetErrorCount(), 0u);
}

TEST(Seq, EndlessBranchLoopStopsOnCtrlC) {
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

// Chip-select frames appended to the trace since `from` bytes.
std::vector<std::string> FramesSince(size_t from) {
  std::ifstream in(TracePath());
  std::stringstream all;
  all << in.rdbuf();
  std::string text = all.str();
  text = from < text.size() ? text.substr(from) : "";
  std::vector<std::string> frames;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line[0] != '#') frames.push_back(line);
  }
  return frames;
}

size_t TraceSize() {
  std::ifstream in(TracePath(), std::ios::ate | std::ios::binary);
  return in ? static_cast<size_t>(in.tellg()) : 0;
}

TEST(Seq, BytesReachTheChipBetweenTheChipSelectSteps) {
  LOG_SetVerbosity(0);
  ASSERT_EQ(SPI_OpenProbe(), 0);
  const size_t from = TraceSize();
  auto send = [](uint32_t count, std::vector<uint8_t> bytes) {
    SeqStep s = Step(SEQ_ACTION_WRITE_DATA, count);
    std::memcpy(s.Data, bytes.data(), std::min(bytes.size(), sizeof(s.Data)));
    return s;
  };
  std::vector<uint8_t> sixteen;
  for (int i = 0; i < 16; ++i) sixteen.push_back(static_cast<uint8_t>(0x10 + i));
  SetInit({Step(SEQ_ACTION_ACTIVATE_CS), send(1, {0x05}), send(20, sixteen),
           Step(SEQ_ACTION_DEACTIVATE_CS),
           Step(SEQ_ACTION_ACTIVATE_CS), send(1, {0x9F}), Step(SEQ_ACTION_VAR_READ_DATA, 0, 3),
           Step(SEQ_ACTION_DEACTIVATE_CS),
           Step(SEQ_ACTION_VAR_VERIFY_BYTE, 0, 0xC2), Step(SEQ_ACTION_VAR_VERIFY_BYTE, 2, 0x18)});
  const int result = SEQ_Run(SEQ_INIT);
  SPI_CloseProbe();
  LOG_SetVerbosity(9);
  EXPECT_EQ(result, 0);
  const std::vector<std::string> frames = FramesSince(from);
  // First frame: 05, then 15 bytes of the 20-byte step; then the ID read.
  ASSERT_GE(frames.size(), 2u);
  EXPECT_EQ(frames[0], "05 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E");
  EXPECT_EQ(frames[1].substr(0, 2), "9F");
}

}  // namespace
