// The probe's own work: frames, transfers, the batch function, closing.
#include "tarlosim/probe.h"

#include <cstdio>
#include <cstring>

namespace tarlosim {

namespace {

constexpr int kPollTimeout = -1;

}  // namespace

Probe& P() {
  static Probe* p = new Probe;  // never destroyed: exit handlers still use it
  return *p;
}

void EndFrame(Probe& p) {
  if (!p.chip.Selected()) return;
  p.chip.Release();
  const auto& fr = p.chip.Frame();
  if (!fr.empty()) p.trace.HexLine(fr.data(), fr.size());
}

// The program's error handler may no longer be usable at exit.
void CloseLocked(Probe& p, bool atExit) {
  if (!p.open) return;
  EndFrame(p);
  if (p.disablePowerOnClose && p.powerOn) p.trace.Line("# target power off");
  p.trace.Line("# close");
  if (p.chip.Dirty()) {
    std::string err;
    if (!SaveContents(p, err)) {
      p.trace.Line("# write-back failed");
      if (atExit) {
        p.log.Line("ERROR: %s", err.c_str());
        std::fprintf(stderr, "%s\n", err.c_str());
      } else {
        p.Report(err.c_str());
      }
    }
    p.chip.ClearDirty();
  }
  ReleaseContents(p);
  WriteStats(p);
  p.trace.Close();
  p.open = false;
  if (p.disablePowerOnClose) p.powerOn = false;
  p.disablePowerOnClose = false;
  p.openErrorOut = nullptr;
}

void AtExit() {
  Probe& p = P();
  std::lock_guard<std::recursive_mutex> g(p.mu);
  CloseLocked(p, true);
  p.log.Close();
}

bool Alive(Probe& p) {
  if (!p.open) return false;
  if (p.gone) {
    if (!p.dropReported) {
      p.dropReported = true;
      p.Report("Communication error: the probe does not respond (USB connection lost)");
    }
    return false;
  }
  return true;
}

bool CountTransfer(Probe& p) {
  if (p.cfg.dropAfter >= 0 && p.transfers >= p.cfg.dropAfter) {
    if (!p.gone) p.trace.Line("# probe lost");
    p.gone = true;
    p.goneFaults = Env("TARLOSIM_FAULT", "");
    return true;
  }
  p.transfers++;
  return false;
}

int DoTransfer(Probe& p, const uint8_t* out, uint8_t* in, uint32_t numBits, uint32_t flags) {
  const uint32_t n = (numBits + 7) / 8;
  if (flags & TARLO_SPI_FLAG_BEGIN) {
    if (!p.chip.Selected()) p.chip.Select();
  }
  p.bytesOut += n;
  if (in) p.bytesIn += n;
  if (p.chip.Selected()) {
    p.chip.Clock(out, in, n);
  } else {
    // Nobody drives MISO while chip select is released.
    p.chip.AdvanceBus(n);
    if (in) std::memset(in, 0xFF, n);
    if (n) p.trace.Line("# %u bytes clocked with chip select released", n);
  }
  if (flags & (TARLO_SPI_FLAG_END & ~TARLO_SPI_FLAG_BEGIN)) EndFrame(p);
  return static_cast<int>(n);
}

int Batch(TARLO_SPI_JOB* jobs, int numJobs) {
  Probe& p = P();
  std::lock_guard<std::recursive_mutex> g(p.mu);
  p.log.Line("TARLO_SPI_Batch(%d jobs)", numJobs);
  if (!Alive(p)) return -1;
  if (p.cfg.batchNoMem) return TARLO_ERR_NOMEM;
  if (p.cfg.batchUnsupported) return TARLO_ERR_UNSUPPORTED;
  if (numJobs < 0 || (numJobs > 0 && !jobs)) return -1;
  for (int i = 0; i < numJobs; i++) {
    TARLO_SPI_JOB& j = jobs[i];
    if (CountTransfer(p)) {
      Alive(p);
      return -1;
    }
    if (j.Type == TARLO_SPI_JOB_TRANSFER) {
      DoTransfer(p, j.pOut, j.pIn, j.NumBits, j.Flags);
      j.Result = j.pOut ? static_cast<int32_t>((j.NumBits + 7) / 8) : 0;
      continue;
    }
    if (j.Type != TARLO_SPI_JOB_POLL || !j.pParam || j.ParamSize < sizeof(TARLO_SPI_POLL)) {
      j.Result = TARLO_ERR_UNSUPPORTED;
      EndFrame(p);
      return 0;
    }
    TARLO_SPI_POLL poll;
    std::memcpy(&poll, j.pParam, sizeof poll);
    const uint32_t n = (j.NumBits + 7) / 8;
    std::vector<uint8_t> scratch(j.pIn ? 0 : n);
    uint8_t* in = j.pIn ? j.pIn : scratch.data();
    // Repeated inside one chip-select frame: the status register streams out.
    if ((j.Flags & TARLO_SPI_FLAG_BEGIN) && !p.chip.Selected()) p.chip.Select();
    bool met = false;
    uint32_t reps = 0;
    while (reps < poll.MaxRepeat && !met) {
      DoTransfer(p, j.pOut, in, j.NumBits, 0);
      reps++;
      uint32_t v = 0;
      for (uint32_t k = 0; k < n && k < 4; k++) v |= static_cast<uint32_t>(in[k]) << (8 * k);
      met = (v & poll.Mask) == poll.Expected;
    }
    if (j.Flags & (TARLO_SPI_FLAG_END & ~TARLO_SPI_FLAG_BEGIN)) EndFrame(p);
    if (!met) {
      // The probe gives up the batch at the first job that fails.
      j.Result = kPollTimeout;
      EndFrame(p);
      return 0;
    }
    j.Result = static_cast<int32_t>(reps);
  }
  return 0;
}

}  // namespace tarlosim
