// Opening and saving data files chosen by their extension; ".pellam" paths
// open a project instead.
#include <cstdint>

#include "app/app.h"
#include "app/log.h"
#include "dataimage/memimage.h"
#include "datafile/datafile.h"
#include "project/project.h"
#include "sys/sys.h"
#include "util/util.h"

int32_t LastBinBaseAddress = 0;
int32_t LastSaveStart = 0;
int32_t LastSaveEnd = 0;

namespace {

bool IsExt(const char* ext, const char* want) { return UTIL_stricmp(ext, want) == 0; }

bool IsMotExt(const char* ext) {
  return IsExt(ext, ".mot") || IsExt(ext, ".srec") || IsExt(ext, ".s19") || IsExt(ext, ".s37") || IsExt(ext, ".s");
}

bool IsBinExt(const char* ext) { return IsExt(ext, ".bin") || IsExt(ext, ".raw"); }

const char* Plural(uint32_t n) { return n == 1 ? "" : "s"; }

// Reports the complaint and ends the operation with the failure line, which
// the reported error keeps from being shown.
void FailOp(const char* complaint, const char* fallback, const char* failure) {
  LOG_ReportError(complaint[0] != '\0' ? complaint : fallback);
  LOG_EndOp(failure);
}

}  // namespace

int DATAFILE_Open(const char* path, int32_t baseAddress) {
  if (path == nullptr || path[0] == '\0') return -1;
  char ext[256];
  SYS_GetFileExt(path, ext, sizeof ext);
  if (IsExt(ext, ".pellam")) return PROJECT_Open(path);

  char text[1024];
  UTIL_snprintf(text, sizeof text, "Opening data file [%s] ...", path);
  LOG_BeginOp(text);
  MemImage* image = MEMIMAGE_Create();
  char complaint[256] = {};
  int r;
  if (image == nullptr) {
    r = -3;
  } else if (IsMotExt(ext)) {
    r = DATAFILE_ReadMot(image, path, complaint, sizeof complaint);
  } else if (IsExt(ext, ".hex")) {
    r = DATAFILE_ReadHex(image, path, complaint, sizeof complaint);
  } else if (IsBinExt(ext)) {
    LastBinBaseAddress = baseAddress;
    if (baseAddress < 0) {
      MEMIMAGE_Delete(image);
      LOG_EndOp("Failed to open data file");
      return 0;
    }
    r = DATAFILE_ReadBin(image, path, complaint, sizeof complaint, static_cast<uint32_t>(baseAddress));
  } else {
    UTIL_snprintf(complaint, sizeof complaint, "Unsupported file type (*%s)", ext);
    r = -1;
  }
  if (r != 0) {
    // A failed open keeps the previous image; the half-loaded one goes.
    MEMIMAGE_Delete(image);
    FailOp(complaint, "Failed to open data file.", "Failed to open data file");
    return 1;
  }
  APP_SetCurrentImage(image);
  const uint32_t ranges = MEMIMAGE_GetNumRanges(image);
  UTIL_snprintf(text, sizeof text, "Data file opened successfully (%d bytes, %d range%s)",
                static_cast<int>(MEMIMAGE_GetNumBytesLocked(image)), static_cast<int>(ranges), Plural(ranges));
  LOG_EndOp(text);
  return 0;
}

int DATAFILE_Save(MemImage* image, const char* path, int32_t startAddress, int32_t endAddress) {
  if (image == nullptr || path == nullptr || path[0] == '\0') return -1;
  char ext[256];
  SYS_GetFileExt(path, ext, sizeof ext);
  char text[1024];
  UTIL_snprintf(text, sizeof text, "Saving data file [%s] ...", path);
  LOG_BeginOp(text);
  char complaint[256] = {};
  int r;
  const bool windowed = IsBinExt(ext) || IsExt(ext, ".c");
  if (windowed) {
    if (startAddress < 0 || endAddress < 0) {
      LOG_EndOp("Failed to save data file");
      return 0;
    }
    LastSaveStart = startAddress;
    LastSaveEnd = endAddress;
  }
  if (IsMotExt(ext)) {
    r = DATAFILE_WriteMot(image, path, complaint, sizeof complaint);
  } else if (IsExt(ext, ".hex")) {
    r = DATAFILE_WriteHex(image, path, complaint, sizeof complaint);
  } else if (IsBinExt(ext)) {
    r = DATAFILE_WriteBin(image, path, complaint, sizeof complaint, static_cast<uint32_t>(startAddress),
                          static_cast<uint32_t>(endAddress));
  } else if (IsExt(ext, ".c")) {
    r = DATAFILE_WriteC(image, path, complaint, sizeof complaint, static_cast<uint32_t>(startAddress),
                        static_cast<uint32_t>(endAddress));
  } else {
    UTIL_snprintf(complaint, sizeof complaint, "Unsupported file type (*%s)", ext);
    r = -1;
  }
  if (r != 0) {
    FailOp(complaint, "Failed to save data file.", "Failed to save data file");
    return 1;
  }
  const uint32_t ranges = MEMIMAGE_GetNumRanges(image);
  UTIL_snprintf(text, sizeof text, "Data file saved successfully (%d bytes, %d range%s)",
                static_cast<int>(MEMIMAGE_GetNumBytesLocked(image)), static_cast<int>(ranges), Plural(ranges));
  LOG_EndOp(text);
  return 0;
}
