// The one simulated probe: its state, and the frame, transfer and batch
// work the exported functions share.
#pragma once
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "probe/tarlo_abi.h"
#include "tarlosim/chip.h"
#include "tarlosim/config.h"
#include "tarlosim/sinks.h"

namespace tarlosim {

constexpr uint32_t kVersion = 79204;  // 7.92d
constexpr const char* kCompileDate = "Nov 20 2026 10:00:00";
constexpr int kSpiInterface = 5;

struct Probe {
  std::recursive_mutex mu;
  Config cfg;
  bool configured = false;
  Chip chip;
  bool open = false, gone = false, dropReported = false, powerOn = false, disablePowerOnClose = false;
  enum { ByIndex, BySerial, ByIp } selMode = ByIndex;
  uint32_t selSerial = 0;
  int selIndex = 0;
  std::string selHost;
  uint32_t openSerial = 0;
  uint32_t speedKHz = 4000;
  long transfers = 0;
  uint64_t bytesOut = 0, bytesIn = 0;
  TARLO_LOG_FUNC errorOut = nullptr;
  TARLO_LOG_FUNC openErrorOut = nullptr;
  TextSink trace, log;
  std::vector<uint8_t> fileTail;  // bytes of a longer contents file beyond the chip
  std::string openError;
  std::string goneFaults;
  bool atexitSet = false;
  int flashFd = -1;  // the contents file, open and locked while the probe is open

  void Configure() {
    cfg = ReadConfig();
    configured = true;
  }
  void Report(const char* text) {
    TARLO_LOG_FUNC h = openErrorOut ? openErrorOut : errorOut;
    log.Line("ERROR: %s", text);
    if (h) h(text);
  }
};

// The probe; every exported function takes its mutex.
Probe& P();

// Releases chip select, if it is active, and traces the frame.
void EndFrame(Probe& p);
// Closes the probe: the frame, the contents written back, the stats. atExit:
// the process is ending, so a failed write-back goes to standard error.
void CloseLocked(Probe& p, bool atExit = false);
// Registered with atexit by the first SetLogFile or OpenEx.
void AtExit();
// A call that needs the probe: false (and one report) once it is unplugged.
bool Alive(Probe& p);
// Counts a transfer toward drop@N; true when this one is already too many.
bool CountTransfer(Probe& p);
// One SPI transfer on the chip; the number of bytes clocked.
int DoTransfer(Probe& p, const uint8_t* out, uint8_t* in, uint32_t numBits, uint32_t flags);
// The batch function TARLO_GetpFunc(1) hands out.
int Batch(TARLO_SPI_JOB* jobs, int numJobs);

}  // namespace tarlosim
