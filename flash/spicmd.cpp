// SPI flash command layer.
#include "flash/spi.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <memory>
#include <new>

#include "app/log.h"
#include "dataimage/memimage.h"
#include "probe/tarlo_abi.h"
#include "project/project.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

FlashParams ProjectParams() {
  FlashParams fp{};
  PROJECT_GetFlashParams(&fp);
  return fp;
}

void SendWhole(const uint8_t* bytes, uint32_t count) {
  TARLO_SPI_Transfer(bytes, nullptr, count * 8, TARLO_SPI_FLAG_WHOLE);
}

void SendByte(uint8_t b) { SendWhole(&b, 1); }

// The status register: CmdReadStatus and one byte clocked in.
uint8_t ReadStatus(const FlashParams& fp) {
  const uint8_t out[2] = {fp.CmdReadStatus, 0xFF};
  uint8_t in[2] = {0xFF, 0xFF};
  TARLO_SPI_Transfer(out, in, 16, TARLO_SPI_FLAG_WHOLE);
  return in[1];
}

// Status bits that mean some of the array is write-protected, by chip class.
uint8_t ProtectMask(uint8_t chipClass) {
  static constexpr std::array<uint8_t, 11> kMask = {0x5C, 0x5C, 0x1C, 0x1C, 0x3C, 0x1C,
                                                    0x7C, 0x1C, 0x0C, 0x10, 0x02};
  return chipClass < kMask.size() ? kMask[chipClass] : 0x1C;
}

// A poll reads flat out for its first milliseconds (most waits end there),
// then alternates bursts of reads with short sleeps, so that a chip that
// stays busy for seconds does not hold a whole core. Reads are not spaced
// out one by one: some probes (and the simulated one) let the chip's time
// pass only with bus traffic, and a pause after every read would stretch
// such a wait beyond its deadline.
// After kPollLongUs the wait is a long one (a chip erase, or a chip that
// never gets ready) and the pauses grow.
constexpr uint64_t kPollSpinUs = 5000;
constexpr uint64_t kPollBurstUs = 500;
constexpr uint64_t kPollLongUs = 100000;

// Polls the status until ready or the deadline passes; an error reported
// meanwhile (the probe went away) ends the wait early. 0 ready, -1 not.
// The clock is taken before each read, so a time-out is only reported after
// a read that began past the deadline: a process kept off the processor for
// longer than the limit still sees the chip's state once more.
int WaitReady(const FlashParams& fp, uint32_t timeoutMs) {
  const uint32_t begin = SYS_GetTickCount();
  const uint64_t beginUs = SYS_GetTimeUs();
  uint64_t burstUs = beginUs;
  for (;;) {
    const bool late = SYS_GetTickCount() - begin > timeoutMs;
    if (SPI_IsReadyStatus(&fp, ReadStatus(fp))) return 0;
    if (LOG_HasError() || late) return -1;
    LOG_ProgressAdvance(0);  // a long wait (a chip erase) still shows time passing
    const uint64_t nowUs = SYS_GetTimeUs();
    if (nowUs - beginUs >= kPollSpinUs && nowUs - burstUs >= kPollBurstUs) {
      SYS_Sleep(nowUs - beginUs >= kPollLongUs ? 2 : 1);
      burstUs = SYS_GetTimeUs();
    }
  }
}

__attribute__((format(printf, 1, 2))) void ReportAt(const char* format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  UTIL_vsnprintf(text, sizeof text, format, args);
  va_end(args);
  LOG_ReportError(text);
}

// The read opcode that wants a dummy byte between address and data.
constexpr uint8_t kOpFastRead = 0x0B;

// Sector-protection disable of the page-based family: four bytes in one
// transaction, sent instead of a status write.
constexpr uint8_t kPageBasedUnprotect[4] = {0x3D, 0x2A, 0x7F, 0x9A};

}  // namespace

int SPI_BuildAddressedCommand(const FlashParams* fp, uint8_t opcode, uint32_t address, uint8_t out[5]) {
  const int n = std::min<int>(fp->NumAddrBytes, 4);
  out[0] = opcode;
  for (int i = 0; i < n; i++) out[1 + i] = (uint8_t)(address >> (8 * (n - 1 - i)));
  return 1 + n;
}

int SPI_IsReadyStatus(const FlashParams* fp, uint8_t status) {
  return ((status >> (fp->StatusBitPos & 7)) & 1) == fp->StatusIsReadyBit;
}

uint32_t SPI_BatchPages(uint32_t pageSizeShift) {
  if (pageSizeShift >= 32) return 1;
  const uint32_t byBytes = SPI_MAX_BATCH_BYTES >> std::min<uint32_t>(pageSizeShift, 31);
  return std::max<uint32_t>(1, std::min(SPI_MAX_BATCH_PAGES, byBytes));
}

void SPI_PrepareWrite(void) {
  const FlashParams fp = ProjectParams();
  if (ReadStatus(fp) & ProtectMask(fp.ChipClass)) {
    if (fp.ChipClass == FLASHPARAMS_CLASS_PAGE_BASED) {
      SendWhole(kPageBasedUnprotect, sizeof kPageBasedUnprotect);
    } else {
      SendByte(fp.CmdWriteEnable);
      const uint8_t ws[2] = {fp.CmdWriteStatus, 0x00};
      SendWhole(ws, 2);
    }
    // A status-register write keeps the chip busy for milliseconds; a write
    // enable sent meanwhile is ignored, and the erase or program after it
    // would silently do nothing. A failed wait shows up in that next step.
    WaitReady(fp, SPI_GetSectorEraseTimeout());
  }
  if (fp.ChipClass == FLASHPARAMS_CLASS_GLOBAL_UNLOCK) {
    SendByte(fp.CmdWriteEnable);
    SendByte(FLASHPARAMS_OP_GLOBAL_UNLOCK);
  }
}

int SPI_EraseSector(uint32_t sectorIndex) {
  SPI_PrepareWrite();
  const FlashParams fp = ProjectParams();
  const uint32_t address = fp.SectorSizeShift >= 32 ? 0 : sectorIndex << fp.SectorSizeShift;
  SendByte(fp.CmdWriteEnable);
  uint8_t cmd[5];
  SendWhole(cmd, (uint32_t)SPI_BuildAddressedCommand(&fp, fp.CmdEraseSector, address, cmd));
  if (WaitReady(fp, SPI_GetSectorEraseTimeout()) == 0) return 0;
  ReportAt("Erasing failed @ address 0x%.8X (timeout occurred)", address);
  return -1;
}

int SPI_EraseChip(void) {
  SPI_PrepareWrite();
  const FlashParams fp = ProjectParams();
  SendByte(fp.CmdWriteEnable);
  if (fp.ChipClass == FLASHPARAMS_CLASS_PAGE_BASED) {
    SendWhole(FLASHPARAMS_PAGE_BASED_CHIP_ERASE, sizeof FLASHPARAMS_PAGE_BASED_CHIP_ERASE);
  } else {
    SendByte(fp.CmdEraseBulk);
  }
  if (WaitReady(fp, SPI_GetChipEraseTimeout()) == 0) return 0;
  LOG_ReportError("Erasing chip failed (timeout occurred)");
  return -1;
}

namespace {

// A job that sends bytes; its result is filled in by the library.
TARLO_SPI_JOB SendJob(const uint8_t* out, uint32_t numBits, uint32_t flags) {
  return TARLO_SPI_JOB{TARLO_SPI_JOB_TRANSFER, 0, out, nullptr, numBits, flags, nullptr, 0, -1};
}

// One batch of page-program jobs with the per-page buffers they point into.
struct PageBatch {
  std::array<TARLO_SPI_JOB, SPI_MAX_BATCH_PAGES * SPI_JOBS_PER_PAGE> jobs{};
  std::array<std::array<uint8_t, 5>, SPI_MAX_BATCH_PAGES> headers{};
  std::array<uint8_t, SPI_MAX_BATCH_PAGES> status{};
  std::array<uint32_t, SPI_MAX_BATCH_PAGES> pageAddr{};
  TARLO_SPI_POLL poll{};
  uint8_t writeEnable = 0;
  uint8_t readStatus = 0;
  uint32_t pages = 0;

  void Add(const FlashParams& fp, uint32_t address, const uint8_t* data, uint32_t bytes) {
    const uint32_t n = pages++;
    pageAddr[n] = address;
    const int hdrLen = SPI_BuildAddressedCommand(&fp, fp.CmdWritePage, address, headers[n].data());
    TARLO_SPI_JOB* j = &jobs[n * SPI_JOBS_PER_PAGE];
    j[0] = SendJob(&writeEnable, 8, TARLO_SPI_FLAG_WHOLE);
    j[1] = SendJob(headers[n].data(), (uint32_t)hdrLen * 8, TARLO_SPI_FLAG_BEGIN);
    j[2] = SendJob(data, bytes * 8, TARLO_SPI_FLAG_END);
    j[3] = SendJob(&readStatus, 8, TARLO_SPI_FLAG_BEGIN);
    j[4] = TARLO_SPI_JOB{TARLO_SPI_JOB_POLL, 0, nullptr, &status[n], 8, TARLO_SPI_FLAG_END, &poll, sizeof poll, -1};
  }

  // Runs the collected jobs; 0, or -1 after a reported error.
  int Run() {
    if (pages == 0) return 0;
    const uint32_t count = pages;
    pages = 0;
    auto batch = reinterpret_cast<TARLO_SPI_BATCH_FUNC>(TARLO_GetpFunc(1));
    if (!batch) {
      ReportAt("Programming failed @ address 0x%.8X (API function not found)", pageAddr[0]);
      return -1;
    }
    const int r = batch(jobs.data(), (int)(count * SPI_JOBS_PER_PAGE));
    if (r < 0) {
      ReportAt(r == TARLO_ERR_NOMEM         ? "Programming failed @ address 0x%.8X (not enough memory)"
               : r == TARLO_ERR_UNSUPPORTED ? "Programming failed @ address 0x%.8X (feature not supported)"
                                            : "Programming failed @ address 0x%.8X (unspecified error)",
               pageAddr[0]);
      return -1;
    }
    for (uint32_t i = 0; i < count * SPI_JOBS_PER_PAGE; i++) {
      const TARLO_SPI_JOB& j = jobs[i];
      const uint32_t at = pageAddr[i / SPI_JOBS_PER_PAGE];
      if (j.Type == TARLO_SPI_JOB_POLL) {
        if (j.Result < 0) {
          ReportAt("Programming failed @ address 0x%.8X (timeout occurred)", at);
          return -1;
        }
        continue;
      }
      if (j.Result == TARLO_ERR_NOMEM) {
        ReportAt("Programming failed @ address 0x%.8X (not enough memory)", at);
        return -1;
      }
      const int32_t expected = j.pOut ? (int32_t)((j.NumBits + 7) / 8) : 0;
      if (j.Result != expected) {
        ReportAt("Programming failed @ address 0x%.8X (program error)", at);
        return -1;
      }
    }
    return 0;
  }
};

}  // namespace

int SPI_ProgramPages(uint32_t address, uint32_t length, const uint8_t* data) {
  SPI_PrepareWrite();
  const FlashParams fp = ProjectParams();
  ProjectPerformance perf{};
  PROJECT_GetPerformance(&perf);
  const bool skipBlank = perf.DisableSkipBlankDataOnProgram == 0;
  const uint32_t pageShift = std::min<uint32_t>(fp.PageSizeShift, 31);
  const uint32_t pageSize = 1u << pageShift;
  const uint32_t batchPages = SPI_BatchPages(fp.PageSizeShift);

  SYS_Ptr<PageBatch> batch = SYS_New<PageBatch>();
  if (!batch) {
    ReportAt("Programming failed @ address 0x%.8X (not enough memory)", address);
    return -1;
  }
  batch->writeEnable = fp.CmdWriteEnable;
  batch->readStatus = fp.CmdReadStatus;
  const uint32_t bit = fp.StatusBitPos & 7;
  batch->poll = TARLO_SPI_POLL{0, 1u << bit, (uint32_t)(fp.StatusIsReadyBit & 1) << bit, SPI_POLL_MAX_REPEAT};

  for (uint32_t done = 0; done < length;) {
    const uint32_t bytes = std::min(pageSize, length - done);
    const uint8_t* page = data + done;
    if (!skipBlank || UTIL_FindFirstByteNot(page, 0xFF, static_cast<int>(bytes)) >= 0) {
      batch->Add(fp, address + done, page, bytes);
      if (batch->pages == batchPages && batch->Run() != 0) return -1;
    }
    done += bytes;
  }
  return batch->Run();
}

void SPI_ReadBytes(const FlashParams* fp, uint32_t address, uint32_t length, uint8_t* dest) {
  uint8_t cmd[6];
  int n = SPI_BuildAddressedCommand(fp, fp->CmdReadData, address, cmd);
  if (fp->CmdReadData == kOpFastRead) cmd[n++] = 0x00;  // one dummy byte after the address
  TARLO_SPI_Transfer(cmd, nullptr, (uint32_t)n * 8, TARLO_SPI_FLAG_BEGIN);
  TARLO_SPI_Transfer(nullptr, dest, length * 8, TARLO_SPI_FLAG_END);
}

int SPI_ReadRange(MemImage* image, uint32_t start, uint32_t end) {
  const uint32_t first = start & ~3u;
  const uint32_t last = end | 3u;
  if (first > last) return 0;
  const FlashParams fp = ProjectParams();
  SYS_Ptr<uint8_t[]> buf = SYS_NewArray<uint8_t>(SPI_READ_CHUNK);
  char text[256];
  if (!buf) {
    UTIL_snprintf(text, sizeof text, "Failed to allocate %d bytes of memory", (int)SPI_READ_CHUNK);
    LOG_ReportError(text);
    return -1;
  }
  uint32_t address = first;
  for (;;) {
    if (LOG_HasError()) return -1;
    const uint32_t chunk = (uint32_t)std::min<uint64_t>(SPI_READ_CHUNK, (uint64_t)last - address + 1);
    SPI_ReadBytes(&fp, address, chunk, buf.get());
    if (MEMIMAGE_AddDataLocked(image, address, chunk, buf.get()) != 0) {
      UTIL_snprintf(text, sizeof text, "Failed to allocate %d bytes of memory", (int)chunk);
      LOG_ReportError(text);
      return -1;
    }
    LOG_ProgressAdvance(chunk);
    const uint32_t next = address + chunk;
    if (next - 1 >= last || next < address || next == 0) break;
    address = next;
  }
  return LOG_HasError() ? -1 : 0;
}
