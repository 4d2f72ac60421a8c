// Interpreter of the init and exit sequences: a list of steps from the
// project, a 16-byte variable buffer shared by all runs, and branches.
#include "project/seq.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "app/log.h"
#include "probe/tarlo_abi.h"
#include "project/project.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

// Neither buffer is cleared between steps, sequences or connections: a
// sequence may read a byte in the init run and test it in the exit run.
uint8_t VarBuffer[SEQ_VAR_BUFFER_SIZE];
// Error text of the last failing step; the runner prints it before the next
// step can overwrite it.
char ErrorText[256];

const char* kInvalidParameters = "Invalid parameters";

// "<label> - 0x%.2X" with bytes[0], then ", 0x%.2X" for each further byte.
// The first byte is shown even for an empty span, so its storage must exist.
void FormatBytes(char* buffer, int size, const char* label, std::span<const uint8_t> bytes) {
  char* p = UTIL_snprintf(buffer, size, "%s - 0x%.2X", label, bytes.data()[0]);
  for (size_t i = 1; i < bytes.size(); ++i) {
    const int used = static_cast<int>(p - buffer);
    p = UTIL_snprintf(p, size - used, ", 0x%.2X", bytes[i]);
  }
}

// Chip select and the bytes of a sequence are separate steps, so transfers
// leave chip select alone.
void SendBytes(const uint8_t* data, uint32_t count) {
  if (count > 0) TARLO_SPI_Transfer(data, nullptr, count * 8, TARLO_SPI_FLAG_NONE);
}

struct StepArgs {
  uint32_t* next;
  uint32_t v0;
  uint32_t v1;
  const uint8_t* data;
};

using Handler = const char* (*)(const StepArgs&);

const char* DoNothing(const StepArgs&) { return nullptr; }

const char* DoDelay(const StepArgs& a) {
  SYS_Sleep(a.v0);
  return nullptr;
}

// Chip select is wired to the probe's TMS line, active low.
const char* DoActivateCS(const StepArgs&) {
  TARLOARM_ClrTMS();
  return nullptr;
}

const char* DoDeactivateCS(const StepArgs&) {
  TARLOARM_SetTMS();
  return nullptr;
}

const char* DoWriteData(const StepArgs& a) {
  SendBytes(a.data, std::min<uint32_t>(a.v0, 16));
  return nullptr;
}

const char* DoVarReadData(const StepArgs& a) {
  if (a.v0 + a.v1 > SEQ_VAR_BUFFER_SIZE) return kInvalidParameters;
  uint8_t* dest = VarBuffer + a.v0;
  if (a.v1 > 0) TARLO_SPI_Transfer(nullptr, dest, a.v1 * 8, TARLO_SPI_FLAG_NONE);
  char line[256];
  FormatBytes(line, sizeof(line), "Read Data", {dest, a.v1});
  LOG_Info(line);
  return nullptr;
}

// One byte fewer than reading may use: the last buffer byte can be read into
// but never sent from.
const char* DoVarWriteData(const StepArgs& a) {
  if (a.v0 + a.v1 >= SEQ_VAR_BUFFER_SIZE) return kInvalidParameters;
  const uint8_t* src = VarBuffer + a.v0;
  char line[256];
  FormatBytes(line, sizeof(line), "Write Data", {src, a.v1});
  LOG_Info(line);
  SendBytes(src, a.v1);
  return nullptr;
}

const char* DoVarVerifyByte(const StepArgs& a) {
  if (a.v0 > 15) return kInvalidParameters;
  const uint8_t found = VarBuffer[a.v0];
  if (found == a.v1) {
    LOG_Info("Verifying...O.K.");
    return nullptr;
  }
  UTIL_snprintf(ErrorText, sizeof(ErrorText),
                "Verification failed @ VarBufferIndex %d: Expected: 0x%.2X, Found: 0x%.2X",
                static_cast<int>(a.v0), a.v1, found);
  return ErrorText;
}

const char* DoVarAnd(const StepArgs& a) {
  VarBuffer[a.v0 & 15] &= static_cast<uint8_t>(a.v1);
  return nullptr;
}

const char* DoVarOr(const StepArgs& a) {
  VarBuffer[a.v0 & 15] |= static_cast<uint8_t>(a.v1);
  return nullptr;
}

const char* DoVarXor(const StepArgs& a) {
  VarBuffer[a.v0 & 15] ^= static_cast<uint8_t>(a.v1);
  return nullptr;
}

const char* Branch(const StepArgs& a, bool taken) {
  if (taken) {
    *a.next = a.v1;
    LOG_Info("Branch operation performed");
  }
  return nullptr;
}

const char* DoVarBeq(const StepArgs& a) { return Branch(a, VarBuffer[a.v0 & 15] == 0); }
const char* DoVarBne(const StepArgs& a) { return Branch(a, VarBuffer[a.v0 & 15] != 0); }

// In the order of the action table.
constexpr Handler kHandlers[SEQ_NUM_ACTIONS] = {
    DoNothing,      DoDelay,    DoActivateCS, DoDeactivateCS, DoWriteData,
    DoVarReadData,  DoVarVerifyByte, DoVarWriteData, DoVarAnd, DoVarOr,
    DoVarXor,       DoVarBeq,   DoVarBne,
};

uint32_t Clamp(uint32_t value, const SeqParam& param) {
  if (param.Name == nullptr) return value;
  return std::clamp(value, param.Min, param.Max);
}

// The parameter as the log shows it: nothing when absent, hexadecimal with
// the parameter's digits, or decimal with its unit ("(s)" dropped for 1).
void RenderParam(char* buffer, int size, const SeqParam& param, uint32_t value) {
  buffer[0] = '\0';
  if (param.Name == nullptr) return;
  if (param.HexDigits > 0) {
    // "0x" and at least HexDigits digits, zeros in front (as "%.<n>X").
    char digits[16];
    UTIL_snprintf(digits, sizeof(digits), "%X", value);
    char zeros[64] = "";
    for (int i = UTIL_strlen(digits); i < param.HexDigits && i < static_cast<int>(sizeof(zeros)) - 1; ++i) {
      UTIL_strcat(zeros, "0", sizeof(zeros));
    }
    UTIL_snprintf(buffer, size, "0x%s%s", zeros, digits);
    return;
  }
  char unit[64] = "";
  if (param.Unit != nullptr && param.Unit[0] != '\0') {
    UTIL_snprintf(unit, sizeof(unit), " %s", param.Unit);
    const int len = UTIL_strlen(unit);
    if (value == 1 && len >= 3 && std::strcmp(unit + len - 3, "(s)") == 0) unit[len - 3] = '\0';
  }
  UTIL_snprintf(buffer, size, "%d%s", static_cast<int>(value), unit);
}

void LogStep(const SeqAction& action, const SeqStep& step, uint32_t v0, uint32_t v1) {
  char line[512];
  if (step.Action == SEQ_ACTION_WRITE_DATA) {
    char* p = UTIL_snprintf(line, sizeof(line), "Executing %s - 0x%.2X", action.DisplayName,
                            step.Data[0]);
    const uint32_t count = std::min<uint32_t>(v0, sizeof(step.Data));
    for (uint32_t i = 1; i < count; ++i) {
      p = UTIL_snprintf(p, static_cast<int>(sizeof(line) - (p - line)), ", 0x%.2X",
                        step.Data[i]);
    }
    LOG_Info(line);
    return;
  }
  const bool has0 = action.Param[0].Name != nullptr;
  const bool has1 = action.Param[1].Name != nullptr;
  char p0[128];
  char p1[128];
  RenderParam(p0, sizeof(p0), action.Param[0], v0);
  RenderParam(p1, sizeof(p1), action.Param[1], v1);
  if (has0 && has1) {
    UTIL_snprintf(line, sizeof(line), "Executing %s (%s, %s)", action.DisplayName, p0, p1);
  } else if (has0 || has1) {
    UTIL_snprintf(line, sizeof(line), "Executing %s (%s)", action.DisplayName, has0 ? p0 : p1);
  } else if (step.Action == SEQ_ACTION_COMMENT) {
    char comment[sizeof(step.Comment) + 1];
    UTIL_strcpy(comment, step.Comment, sizeof(comment));
    UTIL_snprintf(line, sizeof(line), "//\r\n   // %s\r\n   //", comment);
  } else {
    UTIL_snprintf(line, sizeof(line), "Executing %s ()", action.DisplayName);
  }
  LOG_Info(line);
}

}  // namespace

uint8_t* SEQ_GetVarBuffer(void) { return VarBuffer; }

const char* SEQ_ExecuteStep(int sequence, uint32_t* stepIndex) {
  const uint32_t current = *stepIndex;
  SeqStep step;
  PROJECT_GetStep(sequence, current, &step);
  const SeqAction* action = SEQ_GetAction(step.Action);
  if (action == nullptr || step.Action >= SEQ_NUM_ACTIONS) {
    // The project loader never produces such a step; skip it.
    *stepIndex = current + 1;
    return nullptr;
  }
  const uint32_t v0 = Clamp(step.Value0, action->Param[0]);
  const uint32_t v1 = Clamp(step.Value1, action->Param[1]);
  LogStep(*action, step, v0, v1);
  uint32_t next = current + 1;
  const char* result = kHandlers[step.Action](StepArgs{&next, v0, v1, step.Data});
  *stepIndex = next;
  return result;
}

int SEQ_Run(int sequence) {
  LOG_BeginOp(sequence == SEQ_INIT ? "Executing init sequence ..." : "Executing exit sequence ...");
  const uint32_t count = PROJECT_GetStepCount(sequence);
  uint32_t index = 0;
  while (index < count) {
    const char* error = SEQ_ExecuteStep(sequence, &index);
    if (LOG_AbortRequested()) {
      // Taken care of: a later Ctrl-C asks again.
      LOG_ClearAbort();
      LOG_Pop();
      return 1;
    }
    if (error != nullptr) {
      // Shown, not collected: a failing sequence is reported by its caller.
      LOG_Error("%s", error);
      LOG_Pop();
      return 1;
    }
  }
  LOG_EndOp("Executed successfully");
  return 0;
}
