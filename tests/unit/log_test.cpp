// The operation log as the console sees it (standard output captured).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <regex>
#include <string>
#include <utility>

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
  // Each input with what the writer makes of it.
  const std::pair<const char*, const char*> cases[] = {
      {"plain", "plain"},
      {"a\nb", "a\r\nb"},
      {"a\nb\r\n", "a\nb\r\n"},
      {"a\r\nb\nc", "a\r\nb\r\nc"},
      {"\n\n", "\r\n\r\n"},
      {"a\r\n\nb", "a\r\n\r\nb"},
  };
  LOG_SetVerbosity(0);   // the writer ignores verbosity
  for (const auto& [in, want] : cases) {
    // At indent 0 a partial line is the text exactly as the writer emits it.
    EXPECT_EQ(Capture([&] { LOG_OutPart(in); }), want) << "input: " << in;
    Capture([] { LOG_EndLine(); });
  }
}

// Nested operations indent their lines; a pending partial line is ended
// before the next line, and only then.
TEST_F(LogTest, NestedOperationsAndPartialLines) {
  LOG_SetVerbosity(9);
  const std::string out = Capture([] {
    LOG_BeginOp("Outer ...");
    LOG_Info("info 1");
    LOG_BeginOp("Inner ...");
    LOG_InfoDetail("detail 2");
    LOG_OutPart("Progress");
    LOG_OutPart("...");
    LOG_Info("next");
    LOG_EndLine();  // nothing pending: no output
    LOG_OutPart("y");
    LOG_Info("z\r\n");  // its CR LF does not keep the pending line's end bare
    LOG_EndOp("Inner done");
    LOG_EndOp("Outer done");
  });
  EXPECT_EQ(out,
            "Outer ...\r\n- info 1\r\n- Inner ...\r\n  - detail 2\r\n  - Progress...\r\n  - next\r\n  - y\r\n"
            "  - z\r\n\r\n  - Inner done\r\n- Outer done\r\n");
}

// Which calls show their line at which depth (0..4), per verbosity: '1'
// shown, '-' not tried (End closes the depth it is called at).
TEST_F(LogTest, DepthTestByVerbosity) {
  enum Call { Begin, Info, Detail, Error, End, Warning, Message };
  const int verbosities[] = {0, 1, 3, 4, 8, 9};
  const struct {
    Call call;
    const char* shown[6];
  } rows[] = {
      {Begin, {"00000", "10000", "11000", "11100", "11111", "11111"}},
      {Info, {"00000", "10000", "11000", "11100", "11111", "11111"}},
      {Detail, {"00000", "11000", "11100", "11100", "11111", "11111"}},
      {Error, {"00000", "11000", "11100", "11100", "11111", "11111"}},
      {End, {"-0000", "-1000", "-1100", "-1100", "-1111", "-1111"}},
      {Warning, {"11111", "11111", "11111", "11111", "11111", "11111"}},
      {Message, {"00000", "10000", "11000", "11100", "11111", "11111"}},  // gated like begin lines
  };
  for (const auto& row : rows) {
    for (int v = 0; v < 6; v++) {
      for (int depth = 0; depth <= 4; depth++) {
        if (row.shown[v][depth] == '-') continue;
        LOG_SetVerbosity(9);
        Open(depth);
        LOG_SetVerbosity(verbosities[v]);
        const std::string out = Capture([&] {
          switch (row.call) {
            case Begin: LOG_BeginOp("probe"); LOG_Pop(); break;
            case Info: LOG_Info("probe"); break;
            case Detail: LOG_InfoDetail("probe"); break;
            case Error: LOG_ReportError("probe"); break;
            case End: LOG_EndOp("probe"); break;
            case Warning: LOG_ReportWarning("probe"); break;
            case Message: LOG_Message("probe"); break;
          }
        });
        EXPECT_EQ(out.find("probe") != std::string::npos, row.shown[v][depth] == '1')
            << "verbosity " << verbosities[v] << " call " << row.call << " depth " << depth;
        TearDown();
      }
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

  // Verbosity 0 hides the log, not the warnings, and keeps the error state.
  LOG_SetVerbosity(0);
  const std::string quiet = Capture([] {
    LOG_BeginOp("Op");
    LOG_ReportError("failed");
    LOG_ReportWarning("still shown");
    LOG_EndOp("done");
  });
  EXPECT_EQ(quiet, "- WARNING: still shown\r\n");
  EXPECT_EQ(LOG_GetErrorCount(), 1u);
  EXPECT_EQ(DisconnectCalls, 2);
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

TEST_F(LogTest, TimedResultLineShowsDuration) {
  // A timed operation with the given body between its begin and its result.
  auto timed = [](void (*body)()) {
    return Capture([body] {
      LOG_BeginOp("Erasing ...");
      body();
      LOG_EndOpTimed("Erase done");
      LOG_Pop();
    });
  };
  const std::string out = timed([] { usleep(20000); });
  std::smatch m;
  ASSERT_TRUE(std::regex_match(
      out, m, std::regex("Erasing \\.\\.\\.\r\n- Erase done\r\n- Completed after (\\d+)\\.(\\d{3}) seconds\\.\r\n")))
      << out;
  EXPECT_GE(std::stoi(m[1]) * 1000 + std::stoi(m[2]), 20);
  EXPECT_EQ(DisconnectCalls, 0);

  // After an error neither the result nor the duration appear.
  EXPECT_EQ(timed([] { LOG_ReportError("bad"); }), "Erasing ...\r\n- ERROR: bad\r\n");
}

// One case hands in a format that is not a literal on purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
TEST_F(LogTest, UnconditionalPrintersUseBareLineFeeds) {
  LOG_SetVerbosity(0);
  const std::string tooLong(2048, 'x');
  // Each call with what it prints.
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[] { LOG_Error("code %d", -5); }, "ERROR: code -5\n"},
      {[] { LOG_Error("line\n"); }, "ERROR: line\n"},
      {[] { LOG_Warning("a\nb"); }, "WARNING: a\nb\n"},
      {[] { LOG_Printf("a\nb %s", "c"); }, "a\nb c"},
      {[&] { LOG_Printf("%s", tooLong.c_str()); }, tooLong},   // long argument is fine
      {[&] { LOG_Error(tooLong.c_str(), 0); }, ""},                // long format is dropped
  };
  for (const auto& [print, want] : cases) EXPECT_EQ(Capture(print), want);
  // The whole error line is at most 4096 bytes, line feed included.
  const std::string huge(5000, 'h');
  const std::string out = Capture([&] { LOG_Error("%s", huge.c_str()); });
  EXPECT_EQ(out.size(), 4096u);
  EXPECT_EQ(out.back(), '\n');
}
#pragma GCC diagnostic pop

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
