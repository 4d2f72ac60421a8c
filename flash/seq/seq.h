// Interpreter of the project's init (0) and exit (1) sequences.
#pragma once
#include <cstdint>

constexpr int SEQ_INIT = 0;
constexpr int SEQ_EXIT = 1;
constexpr int SEQ_VAR_BUFFER_SIZE = 16;

// Executes step *stepIndex of the sequence and sets *stepIndex to the next
// step (index + 1, or a branch target). Returns null on success, else the
// error text (a process-wide buffer, valid until the next step).
const char* SEQ_ExecuteStep(int sequence, uint32_t* stepIndex);
// Runs all steps: 0 when all ran, 1 on an error or an abort request.
int SEQ_Run(int sequence);

// The 16-byte variable buffer (for tests and diagnostics).
uint8_t* SEQ_GetVarBuffer(void);
