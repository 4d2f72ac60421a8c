// The fixed table of sequence actions: names as the project file and the log
// show them, short names, and the limits of each action's two parameters.
#include "project/seq.h"
#include "util/util.h"

namespace {

constexpr SeqParam kNone{nullptr, "", 0, 0, 0};
constexpr SeqParam kOffset{"OffInBuffer", "", 0, 15, 0};
constexpr SeqParam kNumBytes{"NumByte(s)", "", 0, 16, 0};
constexpr SeqParam kByteValue{"Value", "", 0, 0xFF, 2};
constexpr SeqParam kIndex{"Index", "#", 0, 255, 0};

// Order is the index a step stores; do not reorder.
constexpr SeqAction kActions[SEQ_NUM_ACTIONS] = {
    {"Comment", nullptr, {kNone, kNone}},
    {"Delay", nullptr, {{"Delay", "ms", 0, 65535, 0}, kNone}},
    {"Activate CS", "ActivateCS", {kNone, kNone}},
    {"Deactivate CS", "DeactiveCS", {kNone, kNone}},
    // At most 15 bytes are sent although Data holds 16.
    {"Write Data", "WriteData", {{"NumByte(s)", "", 0, 15, 0}, {"ByteStream", "", 0, 0xFF, 2}}},
    {"Var Read Data", "VarReadData", {kOffset, kNumBytes}},
    {"Var Verify Byte", "VarVerifyByte", {kOffset, kByteValue}},
    {"Var Write Data", "VarWriteData", {kOffset, kNumBytes}},
    {"Var AND", "VarAND", {kOffset, kByteValue}},
    {"Var OR", "VarOR", {kOffset, kByteValue}},
    {"Var XOR", "VarXOR", {kOffset, kByteValue}},
    {"Var BEQ", "VarBEQ", {kOffset, kIndex}},
    {"Var BNE", "VarBNE", {kOffset, kIndex}},
};

}  // namespace

const SeqAction* SEQ_GetAction(uint32_t index) {
  return index < SEQ_NUM_ACTIONS ? &kActions[index] : nullptr;
}

int SEQ_FindAction(const char* displayName) {
  if (displayName == nullptr) return -1;
  for (int i = 0; i < SEQ_NUM_ACTIONS; ++i) {
    if (UTIL_stricmp(kActions[i].DisplayName, displayName) == 0) return i;
  }
  return -1;
}
