// The C ABI of the probe library "libtarloarm.so": the functions the program
// calls and the records it exchanges with them. Included by the program's
// binding (which defines same-named wrappers resolved with dlsym) and by the
// simulated library (which exports them). Nothing else is shared.
#pragma once
#include <cstdint>

extern "C" {

typedef void (*TARLO_LOG_FUNC)(const char* text);

// Hardware status; the program reads only VTarget (millivolts).
struct TARLO_HW_STATUS {
  uint16_t VTarget;
  uint8_t  tck, tdi, tdo, tms, tres, trst;
  uint32_t reserved[4];
};

// One indicator record: four 16-bit little-endian fields.
struct TARLO_INDICATOR_STATE {
  uint16_t Index;     // indicator number (0)
  uint16_t Override;  // 1 = program takes the indicator over, 0 = hand back
  uint16_t Reserved;
  uint16_t Rate;      // 80 while erasing, 100 while verifying
};

// Transfer flags as the program combines them.
enum : uint32_t {
  TARLO_SPI_FLAG_NONE = 0,    // leave chip select as it is
  TARLO_SPI_FLAG_BEGIN = 2,   // take chip select, keep it after the transfer
  TARLO_SPI_FLAG_END = 12,    // release chip select at the end
  TARLO_SPI_FLAG_WHOLE = 14,  // complete transaction
};

// Kinds of batch job.
enum : uint32_t {
  TARLO_SPI_JOB_TRANSFER = 1,  // one transfer
  TARLO_SPI_JOB_POLL = 2,      // a transfer repeated until the poll condition holds
};

// One record of the batched SPI command function (48 bytes, little-endian).
struct TARLO_SPI_JOB {
  uint32_t Type;        // TARLO_SPI_JOB_*
  uint32_t Reserved;
  const uint8_t* pOut;
  uint8_t* pIn;
  uint32_t NumBits;
  uint32_t Flags;
  const void* pParam;   // type 2: TARLO_SPI_POLL
  uint32_t ParamSize;   // type 2: 16
  int32_t  Result;      // bytes done, or a negative error code
};
static_assert(sizeof(TARLO_SPI_JOB) == 48, "batch job record is 48 bytes");

// Poll condition of a type-2 job: four 32-bit words.
struct TARLO_SPI_POLL {
  uint32_t Reserved;   // 0
  uint32_t Mask;
  uint32_t Expected;
  uint32_t MaxRepeat;  // 100000
};
static_assert(sizeof(TARLO_SPI_POLL) == 16, "poll condition is 16 bytes");

constexpr int TARLO_ERR_NOMEM = -263;
constexpr int TARLO_ERR_UNSUPPORTED = -262;

// Batched SPI command function returned by TARLO_GetpFunc(1).
typedef int (*TARLO_SPI_BATCH_FUNC)(TARLO_SPI_JOB* jobs, int numJobs);

// The library's functions. In the program each name is a wrapper that
// resolves the library's function on first use; a function the library lacks
// is reported ("Function not found") and the wrapper returns 0 or null, or
// does nothing. The results below are the library's.

// Version as a number (major * 10000 + minor * 100 + revision letter) and
// the compile date text the banner shows.
uint32_t    TARLOARM_GetDLLVersion(void);
const char* TARLOARM_GetCompileDateTime(void);
// The function the library hands each of its error texts to, synchronously.
void        TARLOARM_SetErrorOutHandler(TARLO_LOG_FUNC handler);
// Runs a text command ("SupplyPower = 1", ...); the answer, if any, goes to
// outBuffer. Returns the library's status (0 or positive: done).
int         TARLOARM_ExecCommand(const char* command, char* outBuffer, int outSize);
// The file the library logs each call to; null: none.
void        TARLOARM_SetLogFile(const char* path);
// Probe selection for the next open: by serial number (0 when found), by
// host and port, or by USB index.
int         TARLOARM_EMU_SelectByUSBSN(uint32_t serialNumber);
int         TARLOARM_SelectIP(const char* host, int port);
void        TARLOARM_SelectUSB(int index);
// Opens the selected probe. Null when open, else the reason as text.
const char* TARLOARM_OpenEx(TARLO_LOG_FUNC logHandler, TARLO_LOG_FUNC errorHandler);
// Target interfaces the probe offers (bit n: interface n; 5 is SPI), and
// the choice of one (0 done).
void        TARLOARM_TIF_GetAvailable(uint32_t* mask);
int         TARLOARM_TIF_Select(int interfaceNo);
void        TARLOARM_SetSpeed(uint32_t speedKHz);
// Fills *status (the target voltage among others); 0 done.
int         TARLOARM_GetHWStatus(TARLO_HW_STATUS* status);
// Serial number of the open probe.
int         TARLOARM_GetSN(void);
// Reset and TMS lines; with SPI, TMS low is chip select taken.
void        TARLOARM_ClrRESET(void);
void        TARLOARM_SetRESET(void);
void        TARLOARM_SetTMS(void);
void        TARLOARM_ClrTMS(void);
void        TARLOARM_Close(void);
// Clocks numBits (whole bytes) out of dataOut and into dataIn, either of
// which may be null; chip select as flags say (TARLO_SPI_FLAG_*). The
// program uses no result.
int         TARLO_SPI_Transfer(const uint8_t* dataOut, uint8_t* dataIn, uint32_t numBits, uint32_t flags);
// Extension functions by number; 1 is the batch function
// (TARLO_SPI_BATCH_FUNC). Null when the library has none.
void*       TARLO_GetpFunc(int index);
// Takes over or hands back the probe's indicators.
void        TARLOARM_INDICATORS_SetState(int count, const TARLO_INDICATOR_STATE* states);

}  // extern "C"
