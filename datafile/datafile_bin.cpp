// The raw binary reader and writer.
#include <cstdlib>
#include <cstring>

#include "datafile/datafile_internal.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

// The binary reader takes the file in chunks of this size.
constexpr uint32_t kReadChunk = 32768;

}  // namespace

int DATAFILE_ReadBinEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       uint32_t startAddr, DATAFILE_PROGRESS_FUNC progress, void* context) {
  return ReadFrame(image, errorText, errorTextSize, [&]() -> int {
    const int fd = OpenForRead(fileName, errorText, errorTextSize);
    if (fd < 0) return -1;
    // The image's sizes are 32 bits: a file of 4 GiB or more, or one that
    // would run past the top of the address space, cannot be held whole.
    // At most 4 GiB - 1 bytes, ending at 0xFFFFFFFF at the highest.
    const uint64_t room = startAddr == 0 ? 0xFFFFFFFFull : 0x100000000ull - startAddr;
    const uint64_t fileSize = SYS_FILE_GetSize64(fd);
    const char* tooLarge = fileSize >= 0x100000000ull ? "Could not read file. File is 4 GiB or larger."
                                                      : "Could not read file. Address range exceeds 0xFFFFFFFF.";
    if (fileSize > room) {
      DATAFILE_StoreError(errorText, errorTextSize, tooLarge);
      SYS_FILE_Close(fd);
      return -1;
    }
    uint8_t* chunk = static_cast<uint8_t*>(SYS_Alloc(kReadChunk));
    if (chunk == nullptr) {
      DATAFILE_StoreError(errorText, errorTextSize, kReadOutOfMemory);
      SYS_FILE_Close(fd);
      return -1;
    }
    int result = 0;
    uint64_t loaded = 0;
    for (;;) {
      const int n = SYS_FILE_Read(fd, chunk, kReadChunk);
      if (n <= 0) break;
      const uint32_t address = static_cast<uint32_t>(startAddr + loaded);
      // The file may grow while it is read.
      if (loaded + static_cast<uint32_t>(n) > room) {
        DATAFILE_StoreError(errorText, errorTextSize, tooLarge);
        result = -1;
        break;
      }
      Progress(progress, context, image, address);
      if (MEMIMAGE_AddData(image, address, static_cast<uint32_t>(n), chunk, -1) == -3) {
        DATAFILE_StoreError(errorText, errorTextSize, kReadOutOfMemory);
        result = -3;
        break;
      }
      loaded += static_cast<uint32_t>(n);
    }
    SYS_Free(chunk);
    SYS_FILE_Close(fd);
    return result;
  });
}

int DATAFILE_ReadBin(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                     uint32_t startAddr) {
  return DATAFILE_ReadBinEx(image, fileName, errorText, errorTextSize, startAddr, nullptr, nullptr);
}

int DATAFILE_WriteBinEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        uint32_t firstAddr, uint32_t lastAddr, DATAFILE_PROGRESS_FUNC progress, void* context) {
  return WriteFrame(image, fileName, errorText, errorTextSize, [&](FileWriter* w) {
    constexpr uint32_t kBlock = 0x10000;
    uint8_t* block = static_cast<uint8_t*>(SYS_Alloc(kBlock));
    if (block == nullptr) {
      w->failed = 1;
      DATAFILE_StoreError(errorText, errorTextSize, "Could not write file. Out of memory.");
      return;
    }
    // Gaps, before a block and inside it, are written as 0xFF; nothing is
    // written after the last data byte of the window.
    uint64_t written = firstAddr;
    WalkBlocks(image, firstAddr, lastAddr, 0xFFFFFF, block, kBlock, progress, context,
               [&](uint32_t start, const uint8_t* bytes, uint32_t len) {
                 for (uint64_t gap = start - written; gap != 0;) {
                   const uint32_t n = static_cast<uint32_t>(gap < 0x40000000 ? gap : 0x40000000);
                   FILEWRITER_Write(w, nullptr, n);
                   gap -= n;
                 }
                 FILEWRITER_Write(w, bytes, len);
                 written = uint64_t(start) + len;
               });
    SYS_Free(block);
  });
}

int DATAFILE_WriteBin(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                      uint32_t firstAddr, uint32_t lastAddr) {
  return DATAFILE_WriteBinEx(image, fileName, errorText, errorTextSize, firstAddr, lastAddr, nullptr, nullptr);
}
