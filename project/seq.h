// The SEQ_ interface: one step of an init or exit sequence, the fixed table
// of 13 actions, and the interpreter that carries the steps out.
//
// The records and the action table are what the project stores and loads,
// so they sit with the project. The interpreter (SEQ_ExecuteStep, SEQ_Run,
// SEQ_GetVarBuffer) drives the probe and is defined in flash/seq/seq.cpp;
// only the flash layer and above may call it.
#pragma once
#include <cstdint>

struct SeqStep {
  char     Comment[80];
  uint8_t  Data[16];
  uint32_t Value0;
  uint32_t Value1;
  uint32_t Action;

  bool operator==(const SeqStep&) const = default;
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

// ---- Interpreter (flash/seq/seq.cpp) ----
constexpr int SEQ_INIT = 0;
constexpr int SEQ_EXIT = 1;
constexpr int SEQ_VAR_BUFFER_SIZE = 16;

// Executes step *stepIndex of the project's sequence (SEQ_INIT or SEQ_EXIT),
// logging it, and sets *stepIndex to the next step (index + 1, or a branch
// target; a step with no table action is skipped). Values are clamped to the
// action's parameter limits. Returns null on success, else the error text
// (a process-wide buffer, valid until the next step).
const char* SEQ_ExecuteStep(int sequence, uint32_t* stepIndex);
// Runs the sequence's steps as one logged operation, following branches,
// until the index reaches the step count: 0 when it does, 1 on a step's
// error (printed) or an abort request (cleared).
int SEQ_Run(int sequence);

// The 16-byte variable buffer the "Var" actions work on; process-wide and
// kept between runs (for tests and diagnostics).
uint8_t* SEQ_GetVarBuffer(void);
