// The functions the library exports, under the probe library's own names.
// Each takes the bridge's lock and writes a line to the library log (when
// the program asks for one); failures go to the program's error handler.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "bridge/config.h"
#include "bridge/frame.h"
#include "bridge/link.h"
#include "probe/tarlo_abi.h"

#define BRIDGE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using bridge::Config;

constexpr uint32_t kVersion = 10000;  // 1.00
constexpr const char* kCompileDate = "Nov 25 2026 12:00:00";
constexpr int kSpiInterface = 5;

struct Bridge {
  std::recursive_mutex mu;
  FILE* log = nullptr;
  TARLO_LOG_FUNC errorOut = nullptr;
  enum { ByIndex, BySerial, ByIp } sel = ByIndex;
  std::string host;
  Config cfg;
  std::unique_ptr<bridge::Link> link;
  std::unique_ptr<bridge::Frames> frames;
  bool open = false, atexitSet = false;
  uint32_t speedKHz = 0;
  std::string openError;

  void Log(const char* fmt, ...) __attribute__((format(printf, 2, 3))) {
    if (!log) return;
    va_list ap;
    va_start(ap, fmt);
    std::vfprintf(log, fmt, ap);
    va_end(ap);
    std::fputc('\n', log);
    std::fflush(log);
  }
  void Report(const std::string& text) {
    Log("ERROR: %s", text.c_str());
    if (errorOut) errorOut(text.c_str());
  }
  void Close() {
    if (!open) return;
    link->Close();
    frames.reset();
    link.reset();
    open = false;
    Log("# closed");
  }
};

Bridge& B() {
  static Bridge* b = new Bridge;  // never destroyed: the exit handler still uses it
  return *b;
}

struct Guard {
  Bridge& b;
  std::lock_guard<std::recursive_mutex> g;
  Guard() : b(B()), g(b.mu) {}
};

// Chip select, pins and the reset line are let go however the program ends.
void AtExit() {
  Guard g;
  g.b.Close();
  if (g.b.log) std::fclose(g.b.log);
  g.b.log = nullptr;
}

// The configuration for the next open: PELLAM_BRIDGE, with the project's
// host when it connects by TCP/IP. False with the reason.
bool Configure(Bridge& b, std::string& error) {
  const char* env = std::getenv("PELLAM_BRIDGE");
  Config c;
  if (b.sel == Bridge::ByIp) {
    if (env && *env && !bridge::ParseConfig(env, c, error)) return false;
    if (c.kind != bridge::Kind::Serprog) c = Config{};
    if (!bridge::ParseHostPort(b.host, c.device, c.port, error)) {
      error = "The project connects via TCP/IP to " + error;
      return false;
    }
  } else if (!bridge::ParseConfig(env, c, error)) {
    return false;
  }
  b.cfg = c;
  return true;
}

}  // namespace

BRIDGE_EXPORT uint32_t TARLOARM_GetDLLVersion(void) { return kVersion; }

BRIDGE_EXPORT const char* TARLOARM_GetCompileDateTime(void) { return kCompileDate; }

BRIDGE_EXPORT void TARLOARM_SetErrorOutHandler(TARLO_LOG_FUNC handler) {
  Guard g;
  g.b.errorOut = handler;
}

BRIDGE_EXPORT int TARLOARM_ExecCommand(const char* command, char* out, int outSize) {
  Guard g;
  if (out && outSize > 0) out[0] = 0;
  const std::string c = command ? command : "";
  g.b.Log("TARLOARM_ExecCommand(\"%s\")", c.c_str());
  if (c.find("SupplyPower") != std::string::npos)
    g.b.Log("# accepted, but neither a serprog adapter nor spidev can switch the target's power");
  return 0;
}

BRIDGE_EXPORT void TARLOARM_SetLogFile(const char* path) {
  Guard g;
  if (g.b.log) std::fclose(g.b.log);
  g.b.log = path && *path ? std::fopen(path, "a") : nullptr;
  g.b.Log("TARLOARM_SetLogFile(\"%s\")", path ? path : "");
}

BRIDGE_EXPORT int TARLOARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  Guard g;
  g.b.sel = Bridge::BySerial;
  Config c;
  std::string ignored;
  // Another number than the configured one is another adapter: not found.
  // A configuration that does not parse is explained by the open.
  const bool other = bridge::ParseConfig(std::getenv("PELLAM_BRIDGE"), c, ignored) && c.snSet &&
                     c.sn != serialNumber;
  g.b.Log("TARLOARM_EMU_SelectByUSBSN(%u) returns %d", serialNumber, other ? -1 : 0);
  return other ? -1 : 0;
}

BRIDGE_EXPORT int TARLOARM_SelectIP(const char* host, int port) {
  Guard g;
  g.b.sel = Bridge::ByIp;
  g.b.host = host ? host : "";
  if (port > 0 && g.b.host.find(':') == std::string::npos) g.b.host += ":" + std::to_string(port);
  g.b.Log("TARLOARM_SelectIP(\"%s\", %d)", host ? host : "", port);
  return 0;
}

BRIDGE_EXPORT void TARLOARM_SelectUSB(int index) {
  Guard g;
  g.b.sel = Bridge::ByIndex;
  g.b.Log("TARLOARM_SelectUSB(%d)", index);
}

BRIDGE_EXPORT const char* TARLOARM_OpenEx(TARLO_LOG_FUNC logHandler, TARLO_LOG_FUNC errorHandler) {
  (void)logHandler;
  Guard g;
  Bridge& b = g.b;
  b.Log("TARLOARM_OpenEx()");
  if (b.open) return nullptr;
  if (!b.atexitSet) {
    b.atexitSet = true;
    std::atexit(AtExit);
  }
  std::string error;
  if (Configure(b, error)) {
    b.link.reset(b.cfg.kind == bridge::Kind::Serprog ? bridge::NewSerprog() : bridge::NewSpidev());
    if (!b.link)
      error = "Not enough memory for the adapter";
    else if (b.link->Open(b.cfg, error))
      b.open = true;
  }
  if (!b.open) {
    b.link.reset();
    b.openError = error;
    b.Log("ERROR: %s", error.c_str());
    return b.openError.c_str();
  }
  b.errorOut = errorHandler ? errorHandler : b.errorOut;
  b.link->SetReporter([](const std::string& text) { B().Report(text); });
  b.frames = std::make_unique<bridge::Frames>(*b.link);
  b.Log("# %s", b.link->Info().c_str());
  return nullptr;
}

BRIDGE_EXPORT void TARLOARM_TIF_GetAvailable(uint32_t* mask) {
  if (mask) *mask = 1u << kSpiInterface;
}

BRIDGE_EXPORT int TARLOARM_TIF_Select(int interfaceNo) { return interfaceNo == kSpiInterface ? 0 : -1; }

BRIDGE_EXPORT void TARLOARM_SetSpeed(uint32_t speedKHz) {
  Guard g;
  g.b.speedKHz = speedKHz;
  if (!g.b.open) return;
  const uint32_t hz = g.b.link->SetSpeed(speedKHz * 1000);
  if (hz)
    g.b.Log("TARLOARM_SetSpeed(%u): SPI clock %u Hz", speedKHz, hz);
  else
    g.b.Log("TARLOARM_SetSpeed(%u): the adapter keeps its own clock", speedKHz);
}

BRIDGE_EXPORT int TARLOARM_GetHWStatus(TARLO_HW_STATUS* status) {
  Guard g;
  if (!status) return -1;
  std::memset(status, 0, sizeof *status);
  // Neither kind can measure it: the configured value stands in.
  status->VTarget = static_cast<uint16_t>(g.b.cfg.vtargetMv);
  return g.b.open ? 0 : -1;
}

BRIDGE_EXPORT int TARLOARM_GetSN(void) {
  Guard g;
  return g.b.cfg.snSet ? static_cast<int>(g.b.cfg.sn) : 0;
}

BRIDGE_EXPORT void TARLOARM_ClrRESET(void) {
  Guard g;
  if (g.b.open) g.b.link->SetReset(true);
}

BRIDGE_EXPORT void TARLOARM_SetRESET(void) {
  Guard g;
  if (g.b.open) g.b.link->SetReset(false);
}

BRIDGE_EXPORT void TARLOARM_SetTMS(void) {
  Guard g;
  if (g.b.open) g.b.frames->Release();
}

BRIDGE_EXPORT void TARLOARM_ClrTMS(void) {
  Guard g;
  if (g.b.open) g.b.frames->Select();
}

BRIDGE_EXPORT void TARLOARM_Close(void) {
  Guard g;
  g.b.Log("TARLOARM_Close()");
  g.b.Close();
}

BRIDGE_EXPORT int TARLO_SPI_Transfer(const uint8_t* dataOut, uint8_t* dataIn, uint32_t numBits, uint32_t flags) {
  Guard g;
  if (!g.b.open) return -1;
  return g.b.frames->Transfer(dataOut, dataIn, numBits, flags);
}

namespace {

int Batch(TARLO_SPI_JOB* jobs, int numJobs) {
  Guard g;
  g.b.Log("TARLO_SPI_Batch(%d jobs)", numJobs);
  if (!g.b.open) return -1;
  return g.b.frames->Batch(jobs, numJobs);
}

}  // namespace

BRIDGE_EXPORT void* TARLO_GetpFunc(int index) {
  return index == 1 ? reinterpret_cast<void*>(static_cast<TARLO_SPI_BATCH_FUNC>(Batch)) : nullptr;
}

BRIDGE_EXPORT void TARLOARM_INDICATORS_SetState(int count, const TARLO_INDICATOR_STATE* states) {
  (void)count;
  (void)states;
}
