// The operation log as the console sees it (standard output captured).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "app/log.h"
#include "sys/sys.h"

namespace {

std::string Capture(const std::function<void()>& body) {
  fflush(stdout);
  testing::internal::CaptureStdout();
  body();
  return testing::internal::GetCapturedStdout();
}

int DisconnectCalls = 0;
void CountDisconnect() { DisconnectCalls++; }

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DisconnectCalls = 0;
    LOG_SetDisconnectHook(CountDisconnect);
    LOG_SetVerbosity(3);
    ASSERT_EQ(LOG_GetDepth(), 0u);
  }
  void TearDown() override {
    Capture([] {
      while (LOG_GetDepth() > 0) LOG_Pop();
      LOG_EndLine();
    });
    LOG_SetVerbosity(3);
  }
  static void Open(int levels) {
    Capture([levels] {
      for (int i = 0; i < levels; i++) LOG_BeginOp("level");
    });
  }
};

TEST_F(LogTest, LineEndsBecomeCrLfUnlessCrLfFollowsLater) {
  struct Case {
    const char* in;
    const char* out;
  };
  const Case cases[] = {
      {"plain", "plain"},
      {"a\nb", "a\r\nb"},
      {"a\nb\r\n", "a\nb\r\n"},
      {"a\r\nb\nc", "a\r\nb\r\nc"},
      {"\n\n", "\r\n\r\n"},
      {"a\r\n\nb", "a\r\n\r\nb"},
  };
  LOG_SetVerbosity(0);   // the writer ignores verbosity
  for (const Case& c : cases) {
    // At indent 0 a partial line is the text exactly as the writer emits it.
    std::string out = Capture([&] { LOG_OutPart(c.in); });
    EXPECT_EQ(out, c.out) << "input: " << c.in;
    Capture([] { LOG_EndLine(); });
  }
}

TEST_F(LogTest, NestedOperationsIndentBeginAndResultLines) {
  LOG_SetVerbosity(9);
  const std::string out = Capture([] {
    LOG_BeginOp("Outer ...");
    LOG_Info("info 1");
    LOG_BeginOp("Inner ...");
    LOG_InfoDetail("detail 2");
    LOG_EndOp("Inner done");
    LOG_EndOp("Outer done");
  });
  EXPECT_EQ(out,
            "Outer ...\r\n"
            "- info 1\r\n"
            "- Inner ...\r\n"
            "  - detail 2\r\n"
            "  - Inner done\r\n"
            "- Outer done\r\n");
}

TEST_F(LogTest, PendingPartialLineIsEndedBeforeTheNextLine) {
  const std::string out = Capture([] {
    LOG_BeginOp("Op");
    LOG_OutPart("Progress");
    LOG_OutPart("...");
    LOG_Info("next");
    LOG_OutPart("x");
    LOG_EndLine();
    LOG_EndLine();   // nothing pending: no output
    LOG_OutPart("y");
    LOG_Info("z\r\n");  // its CR LF does not keep the pending line's end bare
    LOG_EndOp("done");
  });
  EXPECT_EQ(out, "Op\r\n- Progress...\r\n- next\r\n- x\r\n- y\r\n- z\r\n\r\n- done\r\n");
}

// Which calls show their line at which depth, per verbosity.
TEST_F(LogTest, DepthTestByVerbosity) {
  enum Call { Begin, Info, Detail, Error, End };
  struct Row {
    int verbosity;
    Call call;
    const char* shown;   // per depth 0..4 ('1' shown); End counts the depth before closing
  };
  const Row rows[] = {
      {0, Begin, "00000"}, {0, Info, "00000"}, {0, Detail, "00000"}, {0, Error, "00000"}, {0, End, "-0000"},
      {1, Begin, "10000"}, {1, Info, "10000"}, {1, Detail, "11000"}, {1, Error, "11000"}, {1, End, "-1000"},
      {3, Begin, "11000"}, {3, Info, "11000"}, {3, Detail, "11100"}, {3, Error, "11100"}, {3, End, "-1100"},
      {4, Begin, "11100"}, {4, Info, "11100"}, {4, Detail, "11100"}, {4, Error, "11100"}, {4, End, "-1100"},
      {8, Begin, "11111"}, {8, Info, "11111"}, {8, Detail, "11111"}, {8, Error, "11111"}, {8, End, "-1111"},
      {9, Begin, "11111"}, {9, Info, "11111"}, {9, Detail, "11111"}, {9, Error, "11111"}, {9, End, "-1111"},
  };
  for (const Row& row : rows) {
    for (int depth = 0; depth <= 4; depth++) {
      if (row.shown[depth] == '-') continue;
      LOG_SetVerbosity(9);
      Open(depth);
      LOG_SetVerbosity(row.verbosity);
      const std::string out = Capture([&] {
        switch (row.call) {
          case Begin: LOG_BeginOp("probe"); LOG_Pop(); break;
          case Info: LOG_Info("probe"); break;
          case Detail: LOG_InfoDetail("probe"); break;
          case Error: LOG_ReportError("probe"); break;
          case End: LOG_EndOp("probe"); break;
        }
      });
      EXPECT_EQ(out.find("probe") != std::string::npos, row.shown[depth] == '1')
          << "verbosity " << row.verbosity << " call " << row.call << " depth " << depth;
      TearDown();
    }
  }
}

TEST_F(LogTest, ErrorsAreCollectedAndAFailedTopLevelDisconnects) {
  const std::string out = Capture([] {
    LOG_BeginOp("Op");
    LOG_ReportError("first\n");
    LOG_BeginOp("Inner");
    LOG_ReportError("second");
    LOG_EndOp("not shown after an error");
    EXPECT_EQ(LOG_GetErrorCount(), 2u);
    EXPECT_EQ(DisconnectCalls, 0);
    LOG_EndOp("not shown either");
  });
  EXPECT_EQ(out, "Op\r\n- ERROR: first\r\n- Inner\r\n  - ERROR: second\r\n");
  EXPECT_STREQ(LOG_GetErrorText(), "first\nsecond");
  EXPECT_EQ(LOG_GetErrorCount(), 1u);
  EXPECT_EQ(DisconnectCalls, 1);

  // The next top-level operation starts clean.
  Capture([] { LOG_BeginOp("Next"); });
  EXPECT_EQ(LOG_GetErrorCount(), 0u);
  EXPECT_STREQ(LOG_GetErrorText(), "");
  Capture([] { LOG_EndOp("ok"); });
  EXPECT_EQ(LOG_GetErrorCount(), 0u);
  EXPECT_EQ(DisconnectCalls, 1);
}

TEST_F(LogTest, ErrorTextIsBoundedAndSeparatedByLineFeeds) {
  const std::string chunk(1000, 'e');
  Capture([&] {
    LOG_BeginOp("Op");
    for (int i = 0; i < 10; i++) LOG_ReportError(chunk.c_str());
  });
  EXPECT_EQ(LOG_GetErrorCount(), 10u);
  const std::string text = LOG_GetErrorText();
  EXPECT_EQ(text.size(), 4095u);
  EXPECT_EQ(text.substr(0, 1002), chunk + "\n" + "e");
}

TEST_F(LogTest, VerbosityZeroHidesTheLogButKeepsTheErrorFlag) {
  LOG_SetVerbosity(0);
  const std::string out = Capture([] {
    LOG_BeginOp("Op");
    LOG_ReportError("failed");
    LOG_ReportWarning("still shown");
    LOG_EndOp("done");
  });
  EXPECT_EQ(out, "- WARNING: still shown\r\n");
  EXPECT_EQ(LOG_GetErrorCount(), 1u);
  EXPECT_EQ(DisconnectCalls, 1);
}

TEST_F(LogTest, TimedResultLineShowsDuration) {
  const std::string out = Capture([] {
    LOG_BeginOp("Erasing ...");
    usleep(20000);
    LOG_EndOpTimed("Erase done");
    LOG_Pop();
  });
  const std::string head = "Erasing ...\r\n- Erase done\r\n- Completed after ";
  ASSERT_EQ(out.rfind(head, 0), 0u) << out;
  unsigned seconds = 0, millis = 0;
  char tail[32] = "";
  ASSERT_EQ(sscanf(out.c_str() + head.size(), "%u.%3u%31[^\n]", &seconds, &millis, tail), 3) << out;
  EXPECT_STREQ(tail, " seconds.\r");
  EXPECT_EQ(out.substr(head.size() + out.substr(head.size()).find('.') + 4), " seconds.\r\n") << out;   // three digits
  EXPECT_GE(seconds * 1000 + millis, 20u);
  EXPECT_EQ(LOG_GetErrorCount(), 0u);
  EXPECT_EQ(DisconnectCalls, 0);

  // After an error neither the result nor the duration appear.
  const std::string failed = Capture([] {
    LOG_BeginOp("Erasing ...");
    LOG_ReportError("bad");
    LOG_EndOpTimed("Erase done");
    LOG_Pop();
  });
  EXPECT_EQ(failed, "Erasing ...\r\n- ERROR: bad\r\n");
  EXPECT_EQ(LOG_GetErrorCount(), 1u);
}

// One case hands in a format that is not a literal on purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
TEST_F(LogTest, UnconditionalPrintersUseBareLineFeeds) {
  LOG_SetVerbosity(0);
  struct Case {
    std::function<void()> print;
    const char* out;
  };
  const std::string tooLong(2048, 'x');
  const Case cases[] = {
      {[] { LOG_Error("code %d", -5); }, "ERROR: code -5\n"},
      {[] { LOG_Error("line\n"); }, "ERROR: line\n"},
      {[] { LOG_Warning("a\nb"); }, "WARNING: a\nb\n"},
      {[] { LOG_Printf("a\nb %s", "c"); }, "a\nb c"},
      {[&] { LOG_Printf("%s", tooLong.c_str()); }, nullptr},   // long argument is fine
      {[&] { LOG_Error(tooLong.c_str(), 0); }, ""},                // long format is dropped
  };
  for (const Case& c : cases) {
    const std::string out = Capture(c.print);
    if (c.out != nullptr) EXPECT_EQ(out, c.out);
    else EXPECT_EQ(out, tooLong);
  }
  // The whole error line is at most 4096 bytes, line feed included.
  const std::string huge(5000, 'h');
  const std::string out = Capture([&] { LOG_Error("%s", huge.c_str()); });
  EXPECT_EQ(out.size(), 4096u);
  EXPECT_EQ(out.back(), '\n');
}
#pragma GCC diagnostic pop

TEST_F(LogTest, MessagePathIsGatedLikeBeginLines) {
  LOG_SetVerbosity(0);
  EXPECT_EQ(Capture([] { LOG_Message("hidden"); }), "");
  LOG_SetVerbosity(1);
  EXPECT_EQ(Capture([] { LOG_Message("shown\n"); }), "shown\r\n");
}

// A line the writer has no memory for is lost: the run must not end as if
// everything had been shown. Both writers (the line and its CR LF copy).
TEST_F(LogTest, OutOfMemoryWhileWritingFailsTheOperation) {
  for (uint32_t nth : {1u, 2u}) {
    const std::string out = Capture([nth] {
      LOG_BeginOp("op");
      SYS_TEST_FailAllocation(nth);
      LOG_Info("lost");
      SYS_TEST_FailAllocation(0);
    });
    EXPECT_NE(out.find("ERROR: Out of memory\n"), std::string::npos) << nth;
    EXPECT_EQ(LOG_GetErrorCount(), 1u) << nth;
    Capture([] { LOG_Pop(); });
    EXPECT_EQ(DisconnectCalls, (int)nth);
  }
}

}  // namespace
