// One step of an init or exit sequence, and the fixed table of 13 actions.
#pragma once
#include <cstdint>

struct SeqStep {
  char     Comment[80];
  uint8_t  Data[16];
  uint32_t Value0;
  uint32_t Value1;
  uint32_t Action;
};

constexpr int SEQ_MAX_STEPS = 256;
constexpr int SEQ_NUM_ACTIONS = 13;

enum SeqActionIndex : uint32_t {
  SEQ_ACTION_COMMENT = 0, SEQ_ACTION_DELAY, SEQ_ACTION_ACTIVATE_CS, SEQ_ACTION_DEACTIVATE_CS,
  SEQ_ACTION_WRITE_DATA, SEQ_ACTION_VAR_READ_DATA, SEQ_ACTION_VAR_VERIFY_BYTE,
  SEQ_ACTION_VAR_WRITE_DATA, SEQ_ACTION_VAR_AND, SEQ_ACTION_VAR_OR, SEQ_ACTION_VAR_XOR,
  SEQ_ACTION_VAR_BEQ, SEQ_ACTION_VAR_BNE,
};

// Parameter descriptor. A parameter with a null name is absent.
struct SeqParam {
  const char* Name;
  const char* Unit;      // "" when none
  uint32_t    Min;
  uint32_t    Max;
  int         HexDigits; // > 0: shown as hexadecimal with that many digits; 0: decimal
};

struct SeqAction {
  const char* DisplayName;
  const char* ShortName;  // null when none
  SeqParam    Param[2];
};

// Table entry by index, or null for an index above 12.
const SeqAction* SEQ_GetAction(uint32_t index);
// Index 0..12 whose display name equals the text (case-insensitive), else -1.
int SEQ_FindAction(const char* displayName);
