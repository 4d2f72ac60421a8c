// One wrapper per probe-library function the program calls, under the
// library's own name. Each wrapper resolves its function by name on its first
// call and keeps the address in a slot of its own; a function the library
// lacks makes the wrapper return 0 (or null) or do nothing, and is looked up
// (and reported) again on the next call.
#include "probe/probelib.h"

namespace {

template <typename Fn>
Fn Resolve(Fn& slot, const char* name) {
  if (slot == nullptr) {
    slot = reinterpret_cast<Fn>(PROBELIB_GetFunc(name));
  }
  return slot;
}

}  // namespace

// Declares the wrapper's own slot and resolves it into `f`.
#define PROBE_RESOLVE(fn)          \
  static decltype(&fn) s_slot;     \
  const auto f = Resolve(s_slot, #fn)

extern "C" {

uint32_t TARLOARM_GetDLLVersion(void) {
  PROBE_RESOLVE(TARLOARM_GetDLLVersion);
  return f != nullptr ? f() : 0;
}

const char* TARLOARM_GetCompileDateTime(void) {
  PROBE_RESOLVE(TARLOARM_GetCompileDateTime);
  return f != nullptr ? f() : nullptr;
}

void TARLOARM_SetErrorOutHandler(TARLO_LOG_FUNC handler) {
  PROBE_RESOLVE(TARLOARM_SetErrorOutHandler);
  if (f != nullptr) f(handler);
}

int TARLOARM_ExecCommand(const char* command, char* outBuffer, int outSize) {
  PROBE_RESOLVE(TARLOARM_ExecCommand);
  return f != nullptr ? f(command, outBuffer, outSize) : 0;
}

void TARLOARM_SetLogFile(const char* path) {
  PROBE_RESOLVE(TARLOARM_SetLogFile);
  if (f != nullptr) f(path);
}

int TARLOARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  PROBE_RESOLVE(TARLOARM_EMU_SelectByUSBSN);
  return f != nullptr ? f(serialNumber) : 0;
}

int TARLOARM_SelectIP(const char* host, int port) {
  PROBE_RESOLVE(TARLOARM_SelectIP);
  return f != nullptr ? f(host, port) : 0;
}

void TARLOARM_SelectUSB(int index) {
  PROBE_RESOLVE(TARLOARM_SelectUSB);
  if (f != nullptr) f(index);
}

const char* TARLOARM_OpenEx(TARLO_LOG_FUNC logHandler, TARLO_LOG_FUNC errorHandler) {
  PROBE_RESOLVE(TARLOARM_OpenEx);
  return f != nullptr ? f(logHandler, errorHandler) : nullptr;
}

void TARLOARM_TIF_GetAvailable(uint32_t* mask) {
  PROBE_RESOLVE(TARLOARM_TIF_GetAvailable);
  if (f != nullptr) f(mask);
}

int TARLOARM_TIF_Select(int interfaceNo) {
  PROBE_RESOLVE(TARLOARM_TIF_Select);
  return f != nullptr ? f(interfaceNo) : 0;
}

void TARLOARM_SetSpeed(uint32_t speedKHz) {
  PROBE_RESOLVE(TARLOARM_SetSpeed);
  if (f != nullptr) f(speedKHz);
}

int TARLOARM_GetHWStatus(TARLO_HW_STATUS* status) {
  PROBE_RESOLVE(TARLOARM_GetHWStatus);
  return f != nullptr ? f(status) : 0;
}

int TARLOARM_GetSN(void) {
  PROBE_RESOLVE(TARLOARM_GetSN);
  return f != nullptr ? f() : 0;
}

void TARLOARM_ClrRESET(void) {
  PROBE_RESOLVE(TARLOARM_ClrRESET);
  if (f != nullptr) f();
}

void TARLOARM_SetRESET(void) {
  PROBE_RESOLVE(TARLOARM_SetRESET);
  if (f != nullptr) f();
}

void TARLOARM_SetTMS(void) {
  PROBE_RESOLVE(TARLOARM_SetTMS);
  if (f != nullptr) f();
}

void TARLOARM_ClrTMS(void) {
  PROBE_RESOLVE(TARLOARM_ClrTMS);
  if (f != nullptr) f();
}

void TARLOARM_Close(void) {
  PROBE_RESOLVE(TARLOARM_Close);
  if (f != nullptr) f();
}

int TARLO_SPI_Transfer(const uint8_t* dataOut, uint8_t* dataIn, uint32_t numBits, uint32_t flags) {
  PROBE_RESOLVE(TARLO_SPI_Transfer);
  return f != nullptr ? f(dataOut, dataIn, numBits, flags) : 0;
}

void* TARLO_GetpFunc(int index) {
  PROBE_RESOLVE(TARLO_GetpFunc);
  return f != nullptr ? f(index) : nullptr;
}

void TARLOARM_INDICATORS_SetState(int count, const TARLO_INDICATOR_STATE* states) {
  PROBE_RESOLVE(TARLOARM_INDICATORS_SetState);
  if (f != nullptr) f(count, states);
}

}  // extern "C"
