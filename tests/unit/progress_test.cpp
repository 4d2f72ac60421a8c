// The progress phases of the operation log and the progress line's text.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/log.h"
#include "app/progress.h"

namespace {

// A display that writes down what it is asked to do.
std::vector<std::string> Calls;
void RecBegin(const char* phase, uint64_t total, int unit) {
  Calls.push_back(std::string("begin ") + phase + " " + std::to_string(total) + (unit ? " sectors" : " bytes"));
}
void RecAdvance(uint64_t amount) { Calls.push_back("advance " + std::to_string(amount)); }
void RecEnd() { Calls.push_back("end"); }
void RecHide() { Calls.push_back("hide"); }
constexpr LOG_PROGRESS_DISPLAY kRecorder{RecBegin, RecAdvance, RecEnd, RecHide};

class ProgressPhases : public ::testing::Test {
 protected:
  void SetUp() override {
    LOG_SetDisconnectHook(nullptr);
    LOG_SetVerbosity(0);  // keep the begin and result lines out of the way
    LOG_SetProgressDisplay(&kRecorder);
    Calls.clear();
  }
  void TearDown() override {
    while (LOG_GetDepth() > 0) LOG_Pop();
    LOG_EndLine();
    LOG_SetProgressDisplay(nullptr);
    LOG_SetVerbosity(3);
  }
};

// A phase lasts until the operation that was open when it began closes:
// nested operations inside it do not end it, the next phase does.
TEST_F(ProgressPhases, APhaseEndsWithItsOperationOrTheNextPhase) {
  LOG_ProgressAdvance(5);                      // no phase: nothing
  LOG_ProgressBegin("Outside", 10, LOG_PROGRESS_BYTES);  // no operation: nothing would end it
  LOG_BeginOp("top");
  LOG_BeginOp("auto step");
  LOG_ProgressBegin("Reading back", 4096, LOG_PROGRESS_BYTES);
  LOG_BeginOp("nested");
  LOG_ProgressAdvance(1024);
  LOG_EndOp("");
  LOG_ProgressAdvance(0);
  LOG_ProgressBegin("Erasing", 3, LOG_PROGRESS_SECTORS);
  LOG_ProgressAdvance(1);
  LOG_EndOp("");                               // closes "auto step": the phase ends
  LOG_ProgressAdvance(1);
  LOG_Pop();
  const std::vector<std::string> expected = {"begin Reading back 4096 bytes", "advance 1024", "advance 0",
                                             "end", "begin Erasing 3 sectors", "advance 1", "end"};
  EXPECT_EQ(Calls, expected);
}

// Standard output never lands on the progress line: the display is told
// before every write, and it is not redrawn over a partial log line.
TEST_F(ProgressPhases, OutputHidesTheLineAndAPartialLineHoldsItBack) {
  LOG_SetVerbosity(3);
  testing::internal::CaptureStdout();
  LOG_BeginOp("Programming ...");
  Calls.clear();
  LOG_ProgressBegin("Programming", 100, LOG_PROGRESS_BYTES);
  LOG_Info("a line");
  LOG_Printf("plain\n");
  LOG_OutPart("part");
  LOG_ProgressAdvance(50);  // held back: "part" is still open
  LOG_EndLine();
  LOG_ProgressAdvance(50);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Programming ...\r\n- a line\r\nplain\n- part\r\n");
  const std::vector<std::string> expected = {"begin Programming 100 bytes", "hide", "hide", "hide", "hide",
                                             "advance 50"};
  EXPECT_EQ(Calls, expected);
}

TEST(ProgressLine, Text) {
  struct Case {
    const char* phase;
    uint64_t done, total;
    int unit;
    uint32_t elapsedMs;
    const char* text;
  };
  const Case cases[] = {
      {"Programming", 0, 16u << 20, LOG_PROGRESS_BYTES, 1500, "Programming: 0.0 of 16.0 MiB, 0 %, 0:01 elapsed"},
      {"Programming", 4u << 20, 16u << 20, LOG_PROGRESS_BYTES, 20000,
       "Programming: 4.0 of 16.0 MiB, 25 %, 204.8 KiB/s, 1:00 left"},
      {"Verifying", 3u << 20, 16u << 20, LOG_PROGRESS_BYTES, 1000,
       "Verifying: 3.0 of 16.0 MiB, 18 %, 3.0 MiB/s, 0:05 left"},
      {"Reading back", 98304, 131072, LOG_PROGRESS_BYTES, 300,
       "Reading back: 96.0 of 128.0 KiB, 75 %, 320.0 KiB/s, 0:01 left"},
      {"Erasing", 12, 256, LOG_PROGRESS_SECTORS, 4000, "Erasing: 12 of 256 sectors, 4 %, 3.0 sectors/s, 1:22 left"},
      {"Erasing", 0, 4096, LOG_PROGRESS_SECTORS, 75000, "Erasing: 0 of 4096 sectors, 0 %, 1:15 elapsed"},
      {"Erasing", 1, 4096, LOG_PROGRESS_SECTORS, 1000, "Erasing: 1 of 4096 sectors, 0 %, 1.0 sectors/s, 1:08:15 left"},
      {"Reading", 64, 64, LOG_PROGRESS_BYTES, 1, "Reading: 0.1 of 0.1 KiB, 100 %, 62.5 KiB/s, 0:00 left"},
      {"Reading", 70, 64, LOG_PROGRESS_BYTES, 0, "Reading: 0.1 of 0.1 KiB, 100 %, 0:00 elapsed"},
  };
  for (const Case& c : cases) {
    char line[160];
    PROGRESS_FormatLine(line, sizeof line, c.phase, c.done, c.total, c.unit, c.elapsedMs);
    EXPECT_STREQ(line, c.text);
  }
  char small[12];
  PROGRESS_FormatLine(small, sizeof small, "Programming", 1, 2, LOG_PROGRESS_BYTES, 10);
  EXPECT_STREQ(small, "Programming");  // cut at the buffer, always terminated
}

}  // namespace
