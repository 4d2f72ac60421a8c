#include "tests/unit/flashdb_fakes.h"

#include <cstring>

#include "probe/tarlo_abi.h"
#include "project/seq.h"
#include "util/util.h"

namespace fake {

// Never destroyed: the connection's exit hook may still call the probe
// while the process ends.
Probe& probe() {
  static Probe* p = new Probe;
  return *p;
}

Project& project() {
  static Project* p = new Project{};
  return *p;
}

void Reset() {
  probe() = Probe{};
  Project& p = project();
  p = Project{};
  p.sequences.Speed0 = 4000;
  p.flash.AutoDetect = 1;
  p.flash.FlashType = 1;
}

void QueueId(std::vector<uint8_t> bytes) {
  bytes.resize(13, 0x00);
  probe().readData.insert(probe().readData.end(), bytes.begin(), bytes.end());
}

std::vector<uint8_t> CommandBytes() {
  std::vector<uint8_t> r;
  for (const Transfer& t : probe().transfers)
    if (!t.read && t.out.size() == 1 && t.flags == 14) r.push_back(t.out[0]);
  return r;
}

}  // namespace fake

using fake::probe;
using fake::project;

// ---- Project model ----

int PROJECT_IsOpen(void) { return project().open ? 1 : 0; }
void PROJECT_GetGeneral(ProjectGeneral* out) { *out = project().general; }
uint32_t PROJECT_GetInterfaceSpeed(void) { return project().sequences.Speed0; }
void PROJECT_GetFlashParams(FlashParams* out) { *out = project().flash; }
void PROJECT_SetFlashParams(const FlashParams* in) { project().flash = *in; }
void PROJECT_GetPerformance(ProjectPerformance* out) { std::memset(out, 0, sizeof(*out)); }
uint32_t PROJECT_GetStepCount(int list) {
  return list == 0 ? project().sequences.NumInitSteps : project().sequences.NumExitSteps;
}
void PROJECT_GetStep(int list, uint32_t index, SeqStep* out) {
  const ProjectSequences& s = project().sequences;
  if (index >= PROJECT_GetStepCount(list) || index >= SEQ_MAX_STEPS) {
    std::memset(out, 0, sizeof(*out));
    return;
  }
  *out = list == 0 ? s.InitSteps[index] : s.ExitSteps[index];
}

// The action table is the real one (flash/seq/seqactions.cpp).

// ---- Probe library ----

namespace {
void Call(const std::string& text) { probe().calls.push_back(text); }
}  // namespace

extern "C" {

int TARLOARM_ExecCommand(const char* command, char*, int) {
  Call(std::string("Exec ") + command);
  if (std::strcmp(command, "SupplyPower = 1") == 0) probe().suppliesPower = true;
  return 0;
}
void TARLOARM_SetLogFile(const char* path) { Call(std::string("SetLogFile ") + (path ? path : "none")); }
int TARLOARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  Call("SelectByUSBSN " + std::to_string(serialNumber));
  return 0;
}
int TARLOARM_SelectIP(const char* host, int port) {
  Call(std::string("SelectIP ") + host + " " + std::to_string(port));
  return 0;
}
void TARLOARM_SelectUSB(int index) { Call("SelectUSB " + std::to_string(index)); }
const char* TARLOARM_OpenEx(TARLO_LOG_FUNC, TARLO_LOG_FUNC) {
  Call("OpenEx");
  return nullptr;
}
void TARLOARM_TIF_GetAvailable(uint32_t* mask) { *mask = 1u << 5; }
int TARLOARM_TIF_Select(int interfaceNo) {
  Call("TIF_Select " + std::to_string(interfaceNo));
  return 0;
}
void TARLOARM_SetSpeed(uint32_t speedKHz) { Call("SetSpeed " + std::to_string(speedKHz)); }
int TARLOARM_GetHWStatus(TARLO_HW_STATUS* status) {
  std::memset(status, 0, sizeof(*status));
  status->VTarget = probe().suppliesPower && probe().supplyWorks ? 3300 : probe().vtarget;
  return 0;
}
int TARLOARM_GetSN(void) { return 123456; }
void TARLOARM_ClrRESET(void) { Call("ClrRESET"); }
void TARLOARM_SetRESET(void) { Call("SetRESET"); }
void TARLOARM_SetTMS(void) { Call("SetTMS"); }
void TARLOARM_ClrTMS(void) { Call("ClrTMS"); }
void TARLOARM_Close(void) {
  Call("Close");
  probe().suppliesPower = false;
}
int TARLO_SPI_Transfer(const uint8_t* dataOut, uint8_t* dataIn, uint32_t numBits, uint32_t flags) {
  const uint32_t n = numBits / 8;
  fake::Transfer t{{}, numBits, flags, dataIn != nullptr};
  if (dataOut != nullptr) t.out.assign(dataOut, dataOut + n);
  if (dataIn != nullptr) {
    for (uint32_t i = 0; i < n; ++i) {
      auto& q = probe().readData;
      dataIn[i] = q.empty() ? 0xFF : q.front();
      if (!q.empty()) q.pop_front();
    }
  }
  probe().transfers.push_back(std::move(t));
  return static_cast<int>(n);
}
void* TARLO_GetpFunc(int) { return nullptr; }

}  // extern "C"
