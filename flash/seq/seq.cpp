// Init/exit sequence interpreter (being written).
#include "flash/seq/seq.h"

namespace {
uint8_t VarBuffer[SEQ_VAR_BUFFER_SIZE];
}

uint8_t* SEQ_GetVarBuffer(void) { return VarBuffer; }
const char* SEQ_ExecuteStep(int, uint32_t* stepIndex) {
  if (stepIndex) ++*stepIndex;
  return nullptr;
}
int SEQ_Run(int) { return 0; }
