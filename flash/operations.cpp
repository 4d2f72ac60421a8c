// User-level flash operations behind the command-line actions. Each public
// FLASH_ function is one top-level operation of the operation log; it
// connects by itself and uses the SPI command layer for the bus traffic.
#include "flash/flash.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <new>

#include "app/log.h"
#include "dataimage/memimage.h"
#include "project/seq.h"
#include "flash/spi.h"
#include "probe/tarlo_abi.h"
#include "project/project.h"
#include "util/util.h"

namespace {

constexpr uint32_t kProgramBufferSize = 0x80000;
constexpr uint32_t kProgramPiece = 0x10000;
constexpr uint32_t kVerifyPiece = 0x20000;
// Small holes between ranges are read along with the data when verifying:
// one longer transaction costs less than a new command header.
constexpr uint32_t kVerifyMaxGap = 0x100;

constexpr uint16_t kRateProgram = 90;
constexpr uint16_t kRateErase = 80;
constexpr uint16_t kRateVerify = 100;

const char* Plural(uint32_t n) { return n == 1 ? "" : "s"; }

template <typename T>
SYS_Ptr<T[]> TryAlloc(size_t n) {
  return SYS_NewArray<T>(n);
}

struct ImageDeleter {
  void operator()(MemImage* image) const { MEMIMAGE_Delete(image); }
};
using ImagePtr = std::unique_ptr<MemImage, ImageDeleter>;

FlashParams ProjectParams() {
  FlashParams fp{};
  PROJECT_GetFlashParams(&fp);
  return fp;
}

// Addresses are 32 bits wide: a chip can have at most this many bytes.
constexpr uint64_t kAddressSpace = 1ull << 32;
// Sector tables are held as a flag per sector; more than this many sectors
// (256-byte sectors on a 4 GiB chip) describe no real chip.
constexpr uint64_t kMaxSectors = 1u << 24;
// Sectors are compared in pieces of at most this size.
constexpr uint32_t kComparePiece = 0x100000;

// A sector of 2^32 bytes or more is the whole address space; every use below
// works in 64 bits, so the shift is kept up to 32 (not more: no sector of a
// chip that passed CheckGeometry starts past address 0 then).
uint32_t SectorShift(const FlashParams& fp) { return std::min<uint32_t>(fp.SectorSizeShift, 32); }

// Valid after CheckGeometry, which bounds it by kMaxSectors.
uint32_t NumSectors(const FlashParams& fp) {
  return (uint32_t)std::min<uint64_t>(FLASHPARAMS_NumSectors(fp), kMaxSectors);
}

uint32_t SectorFirst(uint32_t sector, uint32_t shift) { return (uint32_t)((uint64_t)sector << shift); }
uint32_t SectorLast(uint32_t sector, uint32_t shift) {
  return (uint32_t)(std::min(((uint64_t)sector + 1) << shift, kAddressSpace) - 1);
}

// The probe's activity indicator, taken over for the life of the object.
class Indicator {
 public:
  explicit Indicator(uint16_t rate) {
    const TARLO_INDICATOR_STATE on{0, 1, 0, rate};
    TARLOARM_INDICATORS_SetState(1, &on);
  }
  ~Indicator() {
    const TARLO_INDICATOR_STATE off{0, 0, 0, 0};
    TARLOARM_INDICATORS_SetState(1, &off);
  }
  Indicator(const Indicator&) = delete;
  Indicator& operator=(const Indicator&) = delete;
};

// Formats a line and hands it to one of the log's printers.
__attribute__((format(printf, 2, 0))) void Emit(void (*print)(const char*), const char* format, va_list args) {
  char text[1024];
  UTIL_vsnprintf(text, sizeof text, format, args);
  print(text);
}

__attribute__((format(printf, 1, 2))) void Info(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Emit(LOG_Info, format, args);
  va_end(args);
}

__attribute__((format(printf, 1, 2))) void ReportError(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Emit(LOG_ReportError, format, args);
  va_end(args);
}

struct OpTexts {
  const char* success;
  const char* failure;
  const char* notConnected;
  const char* noData;   // null: the operation needs no data image
};

// Work results: done (the log decides), or failed with the failure text
// already replaced by a more precise report.
enum WorkResult { kWorkDone = 0, kWorkQuietFail = 1 };

// The frame every operation shares: begin, data and connection checks, the
// work, the result line. Top-level operations show the duration. Returns 0
// when no error was reported in the operation.
template <typename Work>
int RunOp(bool topLevel, const char* beginText, const OpTexts& t, bool hasImage, Work&& work) {
  LOG_BeginOp(beginText);
  if (t.noData && !hasImage) {
    LOG_ReportError(t.noData);
    LOG_Pop();
    return 1;
  }
  if (SPI_Connect() != 0) {
    LOG_ReportError(t.notConnected);
    LOG_Pop();
    return 1;
  }
  const int r = work();
  const bool failed = LOG_HasError() != 0;
  if (!failed) {
    if (topLevel) {
      LOG_EndOpTimed(t.success);
      LOG_Pop();
    } else {
      LOG_EndOp(t.success);
    }
    return 0;
  }
  if (r != kWorkQuietFail) LOG_ReportError(t.failure);
  LOG_Pop();
  return 1;
}

// "Target memory read successfully. (%d bytes, %d range%s)" for an image.
void FormatReadSuccess(char* text, int size, MemImage* image) {
  const uint32_t ranges = MEMIMAGE_GetNumRanges(image);
  UTIL_snprintf(text, size, "Target memory read successfully. (%d bytes, %d range%s)",
                (int)MEMIMAGE_GetNumBytesLocked(image), (int)ranges, Plural(ranges));
}

// "<action> target (%d bytes, %d range%s) ..." for an image.
void FormatImageBegin(char* text, int size, const char* action, MemImage* image) {
  const uint32_t ranges = image ? MEMIMAGE_GetNumRanges(image) : 0;
  const uint32_t bytes = image ? MEMIMAGE_GetNumBytesLocked(image) : 0;
  UTIL_snprintf(text, size, "%s target (%d bytes, %d range%s) ...", action, (int)bytes, (int)ranges,
                Plural(ranges));
}

// The chip's size and sector table must fit the 32-bit addresses; a project
// that says otherwise is refused before anything is sent. Reports itself.
bool CheckGeometry(const FlashParams& fp) {
  if (fp.PageSizeShift >= 32 || FLASHPARAMS_ChipSize(fp) > kAddressSpace) {
    ReportError("Flash geometry exceeds the 32-bit address space (NumPages = 0x%X, PageSizeShift = %u).",
                fp.NumPages, fp.PageSizeShift);
    return false;
  }
  if (FLASHPARAMS_NumSectors(fp) > kMaxSectors) {
    ReportError("Flash geometry has too many sectors (NumPages = 0x%X, PageSizeShift = %u, SectorSizeShift = %u).",
                fp.NumPages, fp.PageSizeShift, fp.SectorSizeShift);
    return false;
  }
  return true;
}

// The addresses the chip's commands can carry: NumAddrBytes bytes of them,
// as the command layer sends them (at most four). Exclusive bound.
uint64_t AddressReach(const FlashParams& fp) { return 1ull << (8 * std::clamp<int>(fp.NumAddrBytes, 0, 4)); }

// Reading the whole chip walks every address the geometry names; addresses
// the command's address bytes cannot carry would only read the start of the
// chip again (and a chip declared far larger than the one fitted would take
// minutes and gigabytes to read). Reports itself.
bool CheckAddressReach(const FlashParams& fp) {
  if (FLASHPARAMS_ChipSize(fp) <= AddressReach(fp)) return true;
  ReportError("Flash geometry exceeds what NumAddrBytes = %d can address (NumPages = 0x%X, PageSizeShift = %u).",
              (int)fp.NumAddrBytes, fp.NumPages, fp.PageSizeShift);
  return false;
}

// A command for an address its address bytes cannot carry goes out with the
// top of the address cut off and lands low in the chip: a program or erase
// would overwrite data there and report success. So an operation whose
// addresses run from first to last is refused before any of its commands when
// last is out of reach; the message names the first address that is.
// A chip larger than the reach still serves data below it. Reports itself.
bool CheckReach(const FlashParams& fp, uint64_t first, uint64_t last) {
  const uint64_t reach = AddressReach(fp);
  if (last < reach) return true;
  ReportError("Address 0x%.8X is beyond what NumAddrBytes = %d can address (0x00000000 - 0x%.8X).",
              (uint32_t)std::max(first, reach), (int)fp.NumAddrBytes, (uint32_t)(reach - 1));
  return false;
}

// CheckReach over the image's ranges.
bool CheckImageReach(const FlashParams& fp, MemImage* image) {
  const uint32_t ranges = image ? MEMIMAGE_GetNumRanges(image) : 0;
  for (uint32_t i = 0; i < ranges; i++) {
    uint32_t start = 0, size = 0;
    MEMIMAGE_GetRange(image, (int32_t)i, &start, &size);
    if (size && !CheckReach(fp, start, (uint64_t)start + size - 1)) return false;
  }
  return true;
}

// CheckReach over the flagged sectors (an array of count flags).
bool CheckSectorsReach(const FlashParams& fp, const uint8_t* flags, uint32_t count) {
  const uint32_t shift = SectorShift(fp);
  uint32_t index = 0, first = 0, last = 0;
  while (FLASH_NextRun(flags, count, &index, &first, &last)) {
    if (!CheckReach(fp, SectorFirst(first, shift), SectorLast(last, shift))) return false;
  }
  return true;
}

// Fit check; reports itself. 0 fits.
int CheckFit(MemImage* image) {
  if (!image) {
    LOG_ReportError("Could not program target, no data file opened");
    return 1;
  }
  uint32_t first = 0, last = 0;
  const int r = FLASH_CheckFit(image, FLASHPARAMS_ChipSize(ProjectParams()), &first, &last);
  if (r < 0) {
    ReportError("Failed to allocate %d bytes of memory", (int)sizeof(MemImage));
    return 1;
  }
  if (r > 0) {
    ReportError("Program (0x%X - 0x%X) does not fit into flash chip.", first, last);
    return 1;
  }
  return 0;
}

// ---- Erase ----

void EraseChipWork() {
  const FlashParams fp = ProjectParams();
  if (fp.FlashType == FLASHPARAMS_TYPE_NO_ERASE) {
    LOG_Info("Selected memory does not support erase. Skipped.");
    return;
  }
  if (!CheckGeometry(fp)) return;
  const uint32_t sectors = NumSectors(fp);
  const uint64_t size = FLASHPARAMS_ChipSize(fp);
  char list[512] = "";
  if (size) FLASH_AppendRange(list, sizeof list, 0, (uint32_t)(size - 1));
  const uint32_t ranges = size ? 1 : 0;
  Info("Erasing %d sector%s, %d range%s%s", (int)sectors, Plural(sectors), (int)ranges, Plural(ranges), list);
  Indicator busy(kRateErase);
  LOG_ProgressBegin("Erasing", sectors, LOG_PROGRESS_SECTORS);
  if (SPI_EraseChip() == 0) LOG_ProgressAdvance(sectors);
}

int EraseChipOp(bool topLevel) {
  static constexpr OpTexts t{"Erase operation completed successfully.", "Failed to erase chip.",
                             "Could not erase chip, not connected.", nullptr};
  return RunOp(topLevel, "Erasing chip ...", t, true, [] {
    EraseChipWork();
    return kWorkDone;
  });
}

// Erases the flagged sectors in ascending order, one run announced at a time.
void EraseFlagged(const FlashParams& fp, const uint8_t* flags, uint32_t count) {
  const uint32_t shift = SectorShift(fp);
  Indicator busy(kRateErase);
  LOG_ProgressBegin("Erasing", (uint64_t)std::count_if(flags, flags + count, [](uint8_t f) { return f != 0; }),
                    LOG_PROGRESS_SECTORS);
  uint32_t index = 0, first = 0, last = 0;
  while (!LOG_HasError() && FLASH_NextRun(flags, count, &index, &first, &last)) {
    const uint32_t a = SectorFirst(first, shift);
    const uint32_t b = SectorLast(last, shift);
    if (first == last) {
      Info("Affected sector %d (0x%X - 0x%X)", (int)first, a, b);
    } else {
      Info("Affected sectors %d to %d (0x%X - 0x%X)", (int)first, (int)last, a, b);
    }
    for (uint32_t s = first; s <= last && !LOG_HasError(); s++) {
      if (SPI_EraseSector(s) == 0) LOG_ProgressAdvance(1);
    }
  }
}

// Erases the sectors flagged (in an array of NumSectors entries) as the
// nested step of the automatic sequence.
int EraseAffectedOp(const uint8_t* flags) {
  static constexpr OpTexts t{"Erase operation completed successfully.", "Failed to erase affected sectors.",
                             "Could not erase affected sectors, not connected.",
                             "Could not erase affected sectors, no data file opened."};
  return RunOp(false, "Erasing affected sectors ...", t, true, [flags] {
    const FlashParams fp = ProjectParams();
    if (fp.FlashType == FLASHPARAMS_TYPE_NO_ERASE) {
      LOG_Info("Selected memory does not support erase. Skipped.");
      return kWorkDone;
    }
    const uint32_t n = NumSectors(fp);
    const uint32_t marked = (uint32_t)std::count_if(flags, flags + n, [](uint8_t f) { return f != 0; });
    const uint32_t runs = FLASH_CountRuns(flags, n);
    Info("%d of %d sectors affected, %d range%s", (int)marked, (int)n, (int)runs, Plural(runs));
    EraseFlagged(fp, flags, n);
    return kWorkDone;
  });
}

// ---- Program and verify ----

void ProgramWork(MemImage* image) {
  auto buffer = TryAlloc<uint8_t>(kProgramBufferSize);
  if (!buffer) {
    ReportError("Failed to allocate %d bytes of memory", (int)kProgramBufferSize);
    return;
  }
  const FlashParams fp = ProjectParams();
  const uint32_t pageShift = std::min<uint32_t>(fp.PageSizeShift, 16);
  Indicator busy(kRateProgram);
  if (MEMIMAGE_GetNumRanges(image) == 0) return;
  const uint32_t last = MEMIMAGE_GetLastAddrLocked(image);
  uint32_t from = MEMIMAGE_GetFirstAddrLocked(image);
  LOG_ProgressBegin("Programming", (uint64_t)last - from + 1, LOG_PROGRESS_BYTES);
  while (!LOG_HasError()) {
    uint32_t start = 0;
    const int32_t len = MEMIMAGE_GetBlockLockedFill(image, from, last, kProgramPiece, 0xFF, buffer.get(),
                                                    nullptr, &start, kProgramPiece, pageShift, pageShift);
    if (len <= 0) break;
    const uint32_t end = start + (uint32_t)len - 1;
    Info("Programming range 0x%.8X - 0x%.8X (Bank %d)", start, end, 1);
    if (SPI_ProgramPages(start, (uint32_t)len, buffer.get()) != 0) break;
    LOG_ProgressAdvance((uint64_t)end + 1 - from);  // the address span passed, gaps included
    if (end >= last || end < start) break;
    from = end + 1;
  }
}

void VerifyWork(MemImage* image) {
  auto data = TryAlloc<uint8_t>(kVerifyPiece);
  auto mask = TryAlloc<uint8_t>(kVerifyPiece);
  auto flash = TryAlloc<uint8_t>(kVerifyPiece);
  if (!data || !mask || !flash) {
    ReportError("Failed to allocate %d bytes of memory", (int)(3 * kVerifyPiece));
    return;
  }
  const FlashParams fp = ProjectParams();
  Indicator busy(kRateVerify);
  if (MEMIMAGE_GetNumRanges(image) == 0) return;
  const uint32_t last = MEMIMAGE_GetLastAddrLocked(image) | 3u;
  uint32_t from = MEMIMAGE_GetFirstAddrLocked(image) & ~3u;
  LOG_ProgressBegin("Verifying", (uint64_t)last - from + 1, LOG_PROGRESS_BYTES);
  while (!LOG_HasError()) {
    uint32_t start = 0;
    const int32_t len = MEMIMAGE_GetBlockLockedFill(image, from, last, kVerifyMaxGap, 0xFF, data.get(),
                                                    mask.get(), &start, kVerifyPiece, 2, 2);
    if (len <= 0) break;
    Info("Verifying @ address 0x%.8X", start);
    SPI_ReadBytes(&fp, start, (uint32_t)len, flash.get());
    if (LOG_HasError()) break;
    for (int32_t i = 0; i < len; i++) {
      if (mask[i] && flash[i] != data[i]) {
        ReportError("Verification failed @ address 0x%.8X (Read: 0x%.2X, Expected: 0x%.2X)",
                    start + (uint32_t)i, flash[i], data[i]);
        return;
      }
    }
    const uint32_t end = start + (uint32_t)len - 1;
    LOG_ProgressAdvance((uint64_t)end + 1 - from);
    if (end >= last || end < start) break;
    from = end + 1;
  }
}

constexpr OpTexts kProgramTexts{"Target programmed successfully.", "Failed to program target.",
                                "Could not program target, not connected.",
                                "Could not program target, no data file opened."};
constexpr OpTexts kVerifyTexts{"All loaded bytes verified OK!", "Failed to verify target.",
                               "Could not verify target, not connected.",
                               "Could not verify target, no data file opened."};

// The geometry and fit checks, then programming; a work result for RunOp.
int CheckAndProgram(MemImage* image) {
  const FlashParams fp = ProjectParams();
  if (!CheckGeometry(fp)) return kWorkDone;
  if (CheckFit(image) != 0) return kWorkQuietFail;
  if (!CheckImageReach(fp, image)) return kWorkDone;
  ProgramWork(image);
  return kWorkDone;
}

int ProgramOp(bool topLevel, MemImage* image) {
  char begin[256];
  FormatImageBegin(begin, sizeof begin, "Programming", image);
  return RunOp(topLevel, begin, kProgramTexts, image != nullptr, [image] { return CheckAndProgram(image); });
}

int VerifyOp(bool topLevel, MemImage* image) {
  char begin[256];
  FormatImageBegin(begin, sizeof begin, "Verifying", image);
  return RunOp(topLevel, begin, kVerifyTexts, image != nullptr, [image] {
    if (CheckImageReach(ProjectParams(), image)) VerifyWork(image);
    return kWorkDone;
  });
}

// ---- Reads ----

// Reads the flagged sectors, one run after the other, into image.
void ReadFlagged(MemImage* image, const FlashParams& fp, const uint8_t* flags, uint32_t count) {
  const uint32_t shift = SectorShift(fp);
  const uint32_t runs = FLASH_CountRuns(flags, count);
  uint32_t index = 0, first = 0, last = 0, i = 0;
  while (!LOG_HasError() && FLASH_NextRun(flags, count, &index, &first, &last)) {
    const uint32_t a = SectorFirst(first, shift);
    const uint32_t b = SectorLast(last, shift);
    Info("Range %d/%d, 0x%X - 0x%X", (int)++i, (int)runs, a, b);
    SPI_ReadRange(image, a, b);
  }
}

constexpr OpTexts kReadTexts{nullptr, "Failed to read back target memory.",
                             "Could not read target memory, not connected.", nullptr};

// Runs a read operation that fills a new image; returns it, or null.
template <typename Work>
MemImage* ReadOp(bool topLevel, const char* beginText, Work&& work) {
  ImagePtr image(MEMIMAGE_Create());
  char success[256] = "";
  OpTexts t = kReadTexts;
  t.success = success;
  const int r = RunOp(topLevel, beginText, t, true, [&] {
    if (!image) {
      LOG_ReportError("Could not read target memory, out of memory.");
      return kWorkQuietFail;
    }
    work(image.get());
    // A range whose bytes could not be allocated must not pass as read.
    if (!LOG_HasError() && MEMIMAGE_HasRangeWithoutBytes(image.get())) {
      LOG_ReportError("Could not read target memory, out of memory.");
      return kWorkQuietFail;
    }
    FormatReadSuccess(success, sizeof success, image.get());
    return kWorkDone;
  });
  return r == 0 ? image.release() : nullptr;
}

// ---- The automatic sequence ----

// Adds to dest the bytes of src that lie in flagged sectors or outside the
// sector table (a chip whose size is no multiple of its sector size, or a
// sector larger than the chip): what no sector covers was never compared,
// so it has to be programmed and verified.
int CopyFlaggedSectors(MemImage* dest, MemImage* src, uint32_t shift, const uint8_t* flags, uint32_t count) {
  const uint32_t ranges = MEMIMAGE_GetNumRanges(src);
  for (uint32_t i = 0; i < ranges; i++) {
    uint32_t start = 0, size = 0;
    const uint8_t* data = MEMIMAGE_GetRange(src, (int32_t)i, &start, &size);
    const uint64_t end = (uint64_t)start + size;  // exclusive
    for (uint64_t a = start; a < end;) {
      const uint64_t sector = a >> shift;
      const uint64_t sectorEnd = std::min<uint64_t>(end, (sector + 1) << shift);
      if (sector >= count || flags[sector]) {
        const uint32_t n = (uint32_t)(sectorEnd - a);
        const int r = data ? MEMIMAGE_AddDataLocked(dest, (uint32_t)a, n, data + (a - start))
                           : MEMIMAGE_AddFill(dest, (uint32_t)a, n, 0xFF);
        if (r != 0) return -1;
      }
      a = sectorEnd;
    }
  }
  return 0;
}

// The sectors of the automatic sequence: those the data touches (cleared
// again where nothing changes) and those that need an erase.
struct AutoSectors {
  uint32_t shift = 0;
  uint32_t count = 0;
  SYS_Ptr<uint8_t[]> touched;
  SYS_Ptr<uint8_t[]> toErase;
};

// Reads back every sector the data touches: the image, or null.
MemImage* ReadAffected(const FlashParams& fp, const AutoSectors& sectors, uint32_t marked) {
  const uint32_t shift = sectors.shift;
  const uint32_t numSectors = sectors.count;
  const uint8_t* touched = sectors.touched.get();
  return ReadOp(false, "Reading affected sectors ...", [&](MemImage* r) {
    const uint32_t runs = FLASH_CountRuns(touched, numSectors);
    char list[512] = "";
    uint32_t index = 0, first = 0, last = 0;
    while (FLASH_NextRun(touched, numSectors, &index, &first, &last)) {
      FLASH_AppendRange(list, sizeof list, SectorFirst(first, shift), SectorLast(last, shift));
    }
    Info("%d of %d sectors affected, %d range%s%s", (int)marked, (int)numSectors, (int)runs, Plural(runs), list);
    LOG_ProgressBegin("Reading back", (uint64_t)marked << shift, LOG_PROGRESS_BYTES);
    ReadFlagged(r, fp, touched, numSectors);
  });
}

// Keeps only the sectors whose contents change; the blank ones among them
// need no erase. Erasing the whole chip wipes unchanged sectors as well, so
// then every touched sector is written again. want and have hold `piece`
// bytes each.
void CompareSectors(MemImage* image, MemImage* readBack, bool chipErase, AutoSectors& sectors, uint32_t piece,
                    uint8_t* want, uint8_t* have) {
  const uint32_t shift = sectors.shift;
  for (uint32_t s = 0; s < sectors.count; s++) {
    if (!sectors.touched[s]) continue;
    bool same = true, blank = true;
    for (uint64_t a = SectorFirst(s, shift), end = (uint64_t)SectorLast(s, shift) + 1; a < end; a += piece) {
      MEMIMAGE_ReadAreaLocked(image, (uint32_t)a, piece, want, 0xFF);
      MEMIMAGE_ReadAreaLocked(readBack, (uint32_t)a, piece, have, 0xFF);
      same = same && std::memcmp(want, have, piece) == 0;
      blank = blank && UTIL_FindFirstByteNot(have, 0xFF, static_cast<int>(piece)) < 0;
    }
    if (same && !chipErase) sectors.touched[s] = 0;
    sectors.toErase[s] = !same && !blank;
  }
}

// Erases what needs it, then programs and verifies the sectors still marked.
void WriteChanged(MemImage* image, const AutoSectors& sectors, bool chipErase) {
  ImagePtr work(MEMIMAGE_Create());
  if (!work || CopyFlaggedSectors(work.get(), image, sectors.shift, sectors.touched.get(), sectors.count) != 0 ||
      MEMIMAGE_HasRangeWithoutBytes(work.get())) {
    ReportError("Failed to allocate %d bytes of memory", (int)MEMIMAGE_GetNumBytesLocked(image));
  }
  if (!LOG_HasError()) {
    if (chipErase) {
      EraseChipOp(false);
    } else {
      EraseAffectedOp(sectors.toErase.get());
    }
  }
  if (!LOG_HasError()) ProgramOp(false, work.get());
  if (!LOG_HasError()) VerifyOp(false, work.get());
}

int AutoWork(MemImage* image) {
  const FlashParams fp = ProjectParams();
  if (!CheckGeometry(fp)) return kWorkDone;
  if (CheckFit(image) != 0) return kWorkQuietFail;
  if (!CheckImageReach(fp, image)) return kWorkDone;
  ProjectProduction production{};
  PROJECT_GetProduction(&production);
  AutoSectors sectors;
  sectors.shift = SectorShift(fp);
  sectors.count = NumSectors(fp);
  const uint32_t piece = (uint32_t)std::min<uint64_t>(1ull << sectors.shift, kComparePiece);

  sectors.touched = TryAlloc<uint8_t>((size_t)sectors.count + 1);
  sectors.toErase = TryAlloc<uint8_t>((size_t)sectors.count + 1);
  auto want = TryAlloc<uint8_t>(piece);
  auto have = TryAlloc<uint8_t>(piece);
  if (!want || !have) {
    ReportError("Failed to allocate %d bytes of memory", (int)(2 * (uint64_t)piece));
    return kWorkDone;
  }
  if (!sectors.touched || !sectors.toErase) {
    LOG_ReportError("Could not erase affected sectors, not enough memory.");
    return kWorkDone;
  }
  const uint32_t marked = FLASH_MarkSectors(image, sectors.shift, sectors.touched.get(), sectors.count);
  std::fill_n(sectors.toErase.get(), sectors.count, 0);
  // Sectors are read back and erased whole, also beyond the data in them.
  if (!CheckSectorsReach(fp, sectors.touched.get(), sectors.count)) return kWorkDone;

  ImagePtr readBack(ReadAffected(fp, sectors, marked));
  if (!readBack || LOG_HasError()) return kWorkDone;
  const bool chipErase = production.EraseType == PROJECT_ERASE_TYPE_CHIP;
  CompareSectors(image, readBack.get(), chipErase, sectors, piece, want.get(), have.get());
  want.reset();
  have.reset();
  readBack.reset();  // compared; holding it on would only raise the peak

  WriteChanged(image, sectors, chipErase);
  SEQ_Run(SEQ_EXIT);
  return kWorkDone;
}

}  // namespace

// ---- Pieces without the probe ----

uint32_t FLASH_MarkSectors(MemImage* image, uint32_t sectorShift, uint8_t* flags, uint32_t numSectors) {
  std::fill_n(flags, numSectors, 0);
  uint32_t marked = 0;
  if (!image || sectorShift >= 64) return 0;
  const uint32_t ranges = MEMIMAGE_GetNumRanges(image);
  for (uint32_t i = 0; i < ranges; i++) {
    uint32_t start = 0, size = 0;
    MEMIMAGE_GetRange(image, (int32_t)i, &start, &size);
    if (size == 0) continue;
    const uint64_t first = (uint64_t)start >> sectorShift;
    const uint64_t last = ((uint64_t)start + size - 1) >> sectorShift;
    for (uint64_t s = first; s <= last && s < numSectors; s++) {
      if (!flags[s]) {
        flags[s] = 1;
        marked++;
      }
    }
  }
  return marked;
}

uint32_t FLASH_CountRuns(const uint8_t* flags, uint32_t count) {
  uint32_t runs = 0;
  for (uint32_t i = 0; i < count; i++) {
    if (flags[i] && (i == 0 || !flags[i - 1])) runs++;
  }
  return runs;
}

int FLASH_NextRun(const uint8_t* flags, uint32_t count, uint32_t* index, uint32_t* first, uint32_t* last) {
  uint32_t i = *index;
  while (i < count && !flags[i]) i++;
  if (i >= count) {
    *index = count;
    return 0;
  }
  *first = i;
  while (i < count && flags[i]) i++;
  *last = i - 1;
  *index = i;
  return 1;
}

int FLASH_CheckFit(MemImage* image, uint64_t chipSize, uint32_t* first, uint32_t* last) {
  if (chipSize > 0xFFFFFFFFu) return 0;  // the whole address space: a range can't be 2^32 long
  ImagePtr chip(MEMIMAGE_Create());
  if (!chip) return -1;
  if (chipSize) MEMIMAGE_AddData(chip.get(), 0, (uint32_t)chipSize, nullptr, -1);
  const int index = MEMIMAGE_FindRangeNotIn(chip.get(), image, 0);
  if (index < 0) return 0;
  uint32_t start = 0, size = 0;
  MEMIMAGE_GetRange(image, index, &start, &size);
  *first = start;
  *last = start + size - 1;
  return 1;
}

void FLASH_AppendRange(char* list, int size, uint32_t first, uint32_t last) {
  char previous[512];
  UTIL_strcpy(previous, list, sizeof previous);
  UTIL_snprintf(list, size, "%s, 0x%X - 0x%X", previous, first, last);
}

// ---- User-level operations ----

int FLASH_EraseChip(void) { return EraseChipOp(true); }

int FLASH_EraseSelectedSectors(void) {
  static constexpr OpTexts t{"Erase operation completed successfully.", "Failed to erase sectors.",
                             "Could not erase sectors, not connected.", nullptr};
  return RunOp(true, "Erasing selected sectors ...", t, true, [] {
    const FlashParams fp = ProjectParams();
    if (fp.FlashType == FLASHPARAMS_TYPE_NO_ERASE) {
      LOG_Info("Selected memory does not support erase. Skipped.");
      return kWorkDone;
    }
    if (!CheckGeometry(fp)) return kWorkDone;
    const uint32_t n = NumSectors(fp);
    auto flags = TryAlloc<uint8_t>((size_t)n + 1);
    if (!flags) {
      LOG_ReportError("Could not alloc memory.");
      return kWorkDone;
    }
    const uint32_t selected = PROJECT_GetSectorSelection(flags.get(), n);
    const uint32_t runs = FLASH_CountRuns(flags.get(), n);
    const uint32_t shift = SectorShift(fp);
    char list[512] = "";
    uint32_t index = 0, first = 0, last = 0;
    while (FLASH_NextRun(flags.get(), n, &index, &first, &last)) {
      FLASH_AppendRange(list, sizeof list, SectorFirst(first, shift), SectorLast(last, shift));
    }
    Info("%d of %d sectors selected, %d range%s%s", (int)selected, (int)n, (int)runs, Plural(runs), list);
    if (CheckSectorsReach(fp, flags.get(), n)) EraseFlagged(fp, flags.get(), n);
    return kWorkDone;
  });
}

int FLASH_Program(MemImage* image) { return ProgramOp(true, image); }

int FLASH_Verify(MemImage* image) { return VerifyOp(true, image); }

int FLASH_ProgramVerify(MemImage* image) {
  static constexpr OpTexts t{"Target programmed and verified successfully.",
                             "Failed to program and verify target.",
                             "Could not program and verify target, not connected.",
                             "Could not program and verify target, no data file opened."};
  char begin[256];
  FormatImageBegin(begin, sizeof begin, "Programming and verifying", image);
  return RunOp(true, begin, t, image != nullptr, [image] {
    const int result = CheckAndProgram(image);
    if (!LOG_HasError()) VerifyWork(image);  // a failed check has reported its error
    return result;
  });
}

int FLASH_Auto(MemImage* image) {
  static constexpr OpTexts t{"Target erased, programmed and verified successfully.",
                             "Failed to auto program target.", "Could not auto program target, not connected.",
                             "Could not auto program target, no data file opened."};
  char begin[256];
  FormatImageBegin(begin, sizeof begin, "Auto programming", image);
  return RunOp(true, begin, t, image != nullptr, [image] { return (WorkResult)AutoWork(image); });
}

MemImage* FLASH_ReadRange(uint32_t start, uint32_t end) {
  char begin[256];
  UTIL_snprintf(begin, sizeof begin, "Reading target memory (0x%.8X - 0x%.8X) ...", start, end);
  return ReadOp(true, begin, [start, end](MemImage* image) {
    if (!CheckReach(ProjectParams(), start, std::max(start, end))) return;
    const uint64_t first = start & ~3u, last = end | 3u;
    LOG_ProgressBegin("Reading", last >= first ? last - first + 1 : 0, LOG_PROGRESS_BYTES);
    SPI_ReadRange(image, start, end);
  });
}

MemImage* FLASH_ReadChip(void) {
  return ReadOp(true, "Reading entire flash chip ...", [](MemImage* image) {
    const FlashParams fp = ProjectParams();
    if (!CheckGeometry(fp) || !CheckAddressReach(fp)) return;
    const uint32_t sectors = NumSectors(fp);
    const uint64_t size = FLASHPARAMS_ChipSize(fp);
    const uint32_t ranges = size ? 1 : 0;
    char list[512] = "";
    if (size) FLASH_AppendRange(list, sizeof list, 0, (uint32_t)(size - 1));
    Info("%d sector%s, %d range%s%s", (int)sectors, Plural(sectors), (int)ranges, Plural(ranges), list);
    if (!size) return;
    Info("Range %d/%d, 0x%X - 0x%X", 1, 1, 0u, (uint32_t)(size - 1));
    LOG_ProgressBegin("Reading", size, LOG_PROGRESS_BYTES);
    SPI_ReadRange(image, 0, (uint32_t)(size - 1));
  });
}
