// The functions the library exports, under the probe library's own names:
// each takes the probe's lock, does its work and writes one line to the
// library log.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "probe/tarlo_abi.h"
#include "tarlosim/probe.h"

#define TS_EXPORT extern "C" __attribute__((visibility("default")))

using tarlosim::P;
using tarlosim::Probe;

namespace {
struct Guard {
  Probe& p;
  std::lock_guard<std::recursive_mutex> g;
  Guard() : p(P()), g(p.mu) {}
};
}  // namespace

TS_EXPORT uint32_t TARLOARM_GetDLLVersion(void) {
  Guard g;
  g.p.log.Line("TARLOARM_GetDLLVersion() returns %u", tarlosim::kVersion);
  return tarlosim::kVersion;
}

TS_EXPORT const char* TARLOARM_GetCompileDateTime(void) {
  Guard g;
  g.p.log.Line("TARLOARM_GetCompileDateTime() returns \"%s\"", tarlosim::kCompileDate);
  return tarlosim::kCompileDate;
}

TS_EXPORT void TARLOARM_SetErrorOutHandler(TARLO_LOG_FUNC handler) {
  Guard g;
  g.p.errorOut = handler;
  g.p.log.Line("TARLOARM_SetErrorOutHandler(%s)", handler ? "handler" : "NULL");
}

TS_EXPORT int TARLOARM_ExecCommand(const char* command, char* out, int outSize) {
  Guard g;
  Probe& p = g.p;
  if (out && outSize > 0) out[0] = 0;
  std::string c = command ? command : "";
  std::string flat;
  for (char ch : c)
    if (ch != ' ' && ch != '\t') flat += ch;
  int rc = 0;
  if (flat == "SuppressEmuUSBDialog" || flat == "SupressInfoUpdateFW" || flat == "SilentUpdateFW") {
  } else if (flat.rfind("SupplyPower=", 0) == 0) {
    p.powerOn = std::atoi(flat.c_str() + 12) != 0;
    p.trace.Line("# target power %s", p.powerOn ? "on" : "off");
  } else if (flat == "DisablePowerSupplyOnClose") {
    p.disablePowerOnClose = true;
  } else {
    rc = -1;
    if (out && outSize > 0) std::snprintf(out, static_cast<size_t>(outSize), "Unknown command \"%s\"", c.c_str());
  }
  p.log.Line("TARLOARM_ExecCommand(\"%s\") returns %d", c.c_str(), rc);
  return rc;
}

TS_EXPORT void TARLOARM_SetLogFile(const char* path) {
  Guard g;
  g.p.log.Close();
  if (path && *path) g.p.log.Open(path);
  g.p.log.Line("TARLOARM_SetLogFile(\"%s\")", path ? path : "");
  if (!g.p.atexitSet) {
    g.p.atexitSet = true;
    std::atexit(tarlosim::AtExit);
  }
}

TS_EXPORT int TARLOARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  Guard g;
  Probe& p = g.p;
  p.Configure();
  // With a bad setting the selection is taken, so that the open which
  // follows reports the setting rather than a missing serial number.
  int rc = p.cfg.error.empty() ? -1 : 0;
  for (uint32_t s : p.cfg.serials)
    if (s == serialNumber) rc = 0;
  if (rc == 0) {
    p.selMode = Probe::BySerial;
    p.selSerial = serialNumber;
  }
  p.log.Line("TARLOARM_EMU_SelectByUSBSN(%u) returns %d", serialNumber, rc);
  return rc;
}

TS_EXPORT int TARLOARM_SelectIP(const char* host, int port) {
  Guard g;
  g.p.selMode = Probe::ByIp;
  g.p.selHost = host ? host : "";
  g.p.log.Line("TARLOARM_SelectIP(\"%s\", %d) returns 0", g.p.selHost.c_str(), port);
  return 0;
}

TS_EXPORT void TARLOARM_SelectUSB(int index) {
  Guard g;
  g.p.selMode = Probe::ByIndex;
  g.p.selIndex = index;
  g.p.log.Line("TARLOARM_SelectUSB(%d)", index);
}

namespace {

// The serial number of the probe the selection names, or the reason there is
// none in p.openError.
void FindSelected(Probe& p) {
  const tarlosim::Config& c = p.cfg;
  if (!c.error.empty()) {
    p.openError = c.error;
  } else if (p.gone || c.serials.empty()) {
    p.openError = "Cannot connect to the probe: no probe found on USB.";
  } else if (p.selMode == Probe::BySerial) {
    bool found = false;
    for (uint32_t s : c.serials) found = found || s == p.selSerial;
    if (found)
      p.openSerial = p.selSerial;
    else
      p.openError =
          "Cannot connect to the probe: no probe with serial number " + std::to_string(p.selSerial) + " found.";
  } else if (p.selMode == Probe::ByIp) {
    if (c.ipUnreachable || p.selHost.empty())
      p.openError = "Cannot connect to the probe at \"" + p.selHost + "\": host unreachable.";
    else
      p.openSerial = c.serials[0];
  } else {
    const size_t index = static_cast<size_t>(p.selIndex);
    if (p.selIndex >= 0 && index < c.serials.size()) p.openSerial = c.serials[index];
    else p.openError = "Cannot connect to the probe: no probe at USB index " + std::to_string(p.selIndex) + ".";
  }
}

// Locks and loads the contents file and powers the chip up; the reason in
// p.openError when it cannot.
void PowerUpChip(Probe& p) {
  using namespace tarlosim;
  const Config& c = p.cfg;
  bool created = false;
  if (!LockContents(p, created, p.openError)) return;
  std::vector<uint8_t> id = c.id;
  Profile prof = FindProfile(c.chipHex, id);
  if (c.sizeOverride) prof.size = c.sizeOverride;
  if (LoadContents(p, prof.size, created, p.openError)) {
    p.chip.PowerUp(prof, id, c.timing, c.faults);
    p.chip.SetSpeedKHz(p.speedKHz);
  } else {
    ReleaseContents(p);
  }
}

}  // namespace

TS_EXPORT const char* TARLOARM_OpenEx(TARLO_LOG_FUNC logHandler, TARLO_LOG_FUNC errorHandler) {
  (void)logHandler;
  Guard g;
  Probe& p = g.p;
  using namespace tarlosim;
  if (!p.atexitSet) {
    p.atexitSet = true;
    std::atexit(AtExit);
  }
  CloseLocked(p);
  p.Configure();
  // An unplugged probe stays away until the fault set changes (plugged in again).
  const std::string faults = tarlosim::Env("TARLOSIM_FAULT", "");
  if (p.gone && faults != p.goneFaults) {
    p.gone = p.dropReported = false;
    p.transfers = 0;
  }
  const char* err = nullptr;
  p.openError.clear();
  FindSelected(p);
  if (p.openError.empty()) PowerUpChip(p);
  if (!p.openError.empty()) {
    err = p.openError.c_str();
  } else {
    p.open = true;
    p.openErrorOut = errorHandler;
    p.trace.Open(p.cfg.tracePath);
    p.trace.Line("# open probe S/N %u", p.openSerial);
  }
  p.log.Line("TARLOARM_OpenEx() returns %s%s%s", err ? "\"" : "NULL", err ? err : "", err ? "\"" : "");
  return err;
}

TS_EXPORT void TARLOARM_TIF_GetAvailable(uint32_t* mask) {
  Guard g;
  if (!g.p.configured) g.p.Configure();
  uint32_t m = (1u << 0) | (1u << 1) | (g.p.cfg.noSpi ? 0 : 1u << tarlosim::kSpiInterface);
  if (mask) *mask = m;
  g.p.log.Line("TARLOARM_TIF_GetAvailable() mask 0x%.8X", m);
}

TS_EXPORT int TARLOARM_TIF_Select(int interfaceNo) {
  Guard g;
  int rc = (interfaceNo == tarlosim::kSpiInterface && !g.p.cfg.noSpi) || interfaceNo == 0 || interfaceNo == 1 ? 0 : -1;
  if (!tarlosim::Alive(g.p)) rc = -1;
  g.p.trace.Line("# interface %d", interfaceNo);
  g.p.log.Line("TARLOARM_TIF_Select(%d) returns %d", interfaceNo, rc);
  return rc;
}

TS_EXPORT void TARLOARM_SetSpeed(uint32_t speedKHz) {
  Guard g;
  g.p.speedKHz = speedKHz ? speedKHz : 4000;
  g.p.chip.SetSpeedKHz(g.p.speedKHz);
  g.p.trace.Line("# speed %u kHz", speedKHz);
  g.p.log.Line("TARLOARM_SetSpeed(%u kHz)", speedKHz);
}

TS_EXPORT int TARLOARM_GetHWStatus(TARLO_HW_STATUS* status) {
  Guard g;
  Probe& p = g.p;
  int rc = tarlosim::Alive(p) && status ? 0 : -1;
  int v = p.cfg.vtarget;
  if (p.powerOn && v < 1000) v = 3300;
  if (v < 0) v = 0;
  if (v > 65535) v = 65535;
  if (rc == 0) {
    std::memset(status, 0, sizeof *status);
    status->VTarget = static_cast<uint16_t>(v);
    status->tms = p.chip.Selected() ? 0 : 1;
    status->tres = 0;
  }
  p.log.Line("TARLOARM_GetHWStatus() returns %d, VTarget = %d mV", rc, rc == 0 ? v : 0);
  return rc;
}

TS_EXPORT int TARLOARM_GetSN(void) {
  Guard g;
  int sn = g.p.open ? static_cast<int>(g.p.openSerial) : -1;
  g.p.log.Line("TARLOARM_GetSN() returns %d", sn);
  return sn;
}

TS_EXPORT void TARLOARM_ClrRESET(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) g.p.trace.Line("# reset low");
  g.p.log.Line("TARLOARM_ClrRESET()");
}

TS_EXPORT void TARLOARM_SetRESET(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) g.p.trace.Line("# reset high");
  g.p.log.Line("TARLOARM_SetRESET()");
}

// TMS drives the chip select: low selects the chip.
TS_EXPORT void TARLOARM_SetTMS(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) {
    tarlosim::EndFrame(g.p);
    g.p.trace.Line("# TMS high");
  }
  g.p.log.Line("TARLOARM_SetTMS()");
}

TS_EXPORT void TARLOARM_ClrTMS(void) {
  Guard g;
  if (tarlosim::Alive(g.p)) {
    g.p.trace.Line("# TMS low");
    if (!g.p.chip.Selected()) g.p.chip.Select();
  }
  g.p.log.Line("TARLOARM_ClrTMS()");
}

TS_EXPORT void TARLOARM_Close(void) {
  Guard g;
  g.p.log.Line("TARLOARM_Close()");
  tarlosim::CloseLocked(g.p);
  g.p.log.Flush();
}

TS_EXPORT int TARLO_SPI_Transfer(const uint8_t* dataOut, uint8_t* dataIn, uint32_t numBits, uint32_t flags) {
  Guard g;
  Probe& p = g.p;
  int rc = -1;
  if (tarlosim::Alive(p)) {
    if (tarlosim::CountTransfer(p)) tarlosim::Alive(p);
    else rc = tarlosim::DoTransfer(p, dataOut, dataIn, numBits, flags);
  }
  if (p.log.On()) {
    // The first bytes each way make the log readable without flooding it.
    auto hex = [](const uint8_t* d, uint32_t bits) {
      std::string t;
      const uint32_t n = (bits + 7) / 8;
      for (uint32_t i = 0; d && i < n && i < 16; i++) {
        char b[4];
        std::snprintf(b, sizeof b, " %.2X", d[i]);
        t += b;
      }
      if (d && n > 16) t += " ...";
      return t.empty() ? std::string(" -") : t;
    };
    p.log.Line("TARLO_SPI_Transfer(NumBits = %u, Flags = %u) returns %d; out:%s; in:%s", numBits, flags, rc,
               hex(dataOut, numBits).c_str(), hex(rc >= 0 ? dataIn : nullptr, numBits).c_str());
  }
  return rc;
}

TS_EXPORT void* TARLO_GetpFunc(int index) {
  Guard g;
  if (!g.p.configured) g.p.Configure();
  void* f = index == 1 && !g.p.cfg.noBatch ? reinterpret_cast<void*>(&tarlosim::Batch) : nullptr;
  g.p.log.Line("TARLO_GetpFunc(%d) returns %s", index, f ? "function" : "NULL");
  return f;
}

TS_EXPORT void TARLOARM_INDICATORS_SetState(int count, const TARLO_INDICATOR_STATE* states) {
  Guard g;
  for (int i = 0; states && i < count; i++)
    g.p.log.Line("TARLOARM_INDICATORS_SetState(#%u: Override = %u, Rate = %u)", states[i].Index,
                 states[i].Override, states[i].Rate);
}

