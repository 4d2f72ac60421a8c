// Placeholder exports so the program can load the library and start.
#include "probe/tarlo_abi.h"
#include <cstring>

#define TS_EXPORT extern "C" __attribute__((visibility("default")))

namespace {
int BatchStub(TARLO_SPI_JOB* jobs, int n) {
  for (int i = 0; i < n; ++i) {
    uint32_t bytes = (jobs[i].NumBits + 7) / 8;
    if (jobs[i].pIn) std::memset(jobs[i].pIn, 0xFF, bytes);
    jobs[i].Result = static_cast<int32_t>(bytes);
  }
  return 0;
}
}  // namespace

TS_EXPORT uint32_t TARLOARM_GetDLLVersion(void) { return 79201; }
TS_EXPORT const char* TARLOARM_GetCompileDateTime(void) { return "Jan  1 2026 12:00:00"; }
TS_EXPORT void TARLOARM_SetErrorOutHandler(TARLO_LOG_FUNC) {}
TS_EXPORT int TARLOARM_ExecCommand(const char*, char* out, int outSize) {
  if (out && outSize > 0) out[0] = 0;
  return 0;
}
TS_EXPORT void TARLOARM_SetLogFile(const char*) {}
TS_EXPORT int TARLOARM_EMU_SelectByUSBSN(uint32_t) { return 0; }
TS_EXPORT int TARLOARM_SelectIP(const char*, int) { return 0; }
TS_EXPORT void TARLOARM_SelectUSB(int) {}
TS_EXPORT const char* TARLOARM_OpenEx(TARLO_LOG_FUNC, TARLO_LOG_FUNC) { return nullptr; }
TS_EXPORT void TARLOARM_TIF_GetAvailable(uint32_t* mask) { if (mask) *mask = 1u << 5; }
TS_EXPORT int TARLOARM_TIF_Select(int) { return 0; }
TS_EXPORT void TARLOARM_SetSpeed(uint32_t) {}
TS_EXPORT int TARLOARM_GetHWStatus(TARLO_HW_STATUS* s) {
  if (s) { std::memset(s, 0, sizeof *s); s->VTarget = 3300; }
  return 0;
}
TS_EXPORT int TARLOARM_GetSN(void) { return 123456; }
TS_EXPORT void TARLOARM_ClrRESET(void) {}
TS_EXPORT void TARLOARM_SetRESET(void) {}
TS_EXPORT void TARLOARM_SetTMS(void) {}
TS_EXPORT void TARLOARM_ClrTMS(void) {}
TS_EXPORT void TARLOARM_Close(void) {}
TS_EXPORT int TARLO_SPI_Transfer(const uint8_t*, uint8_t* in, uint32_t numBits, uint32_t) {
  uint32_t bytes = (numBits + 7) / 8;
  if (in) std::memset(in, 0xFF, bytes);
  return static_cast<int>(bytes);
}
TS_EXPORT void* TARLO_GetpFunc(int index) {
  return index == 1 ? reinterpret_cast<void*>(&BatchStub) : nullptr;
}
TS_EXPORT void TARLOARM_INDICATORS_SetState(int, const TARLO_INDICATOR_STATE*) {}
