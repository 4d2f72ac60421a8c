// FileWriter, the error-buffer rule, the read-open messages, and the raw
// binary reader and writer.
#include <cstdlib>
#include <cstring>

#include "datafile/datafile_internal.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

constexpr uint32_t kWriteBufferSize = 32768;
constexpr uint32_t kReadChunk = 32768;

// Writes all of `count` bytes (a partial write is retried; an error or a
// write of nothing is a failure).
bool WriteAll(int fd, const uint8_t* p, uint32_t count) {
  while (count != 0) {
    const int n = SYS_FILE_Write(fd, p, count);
    if (n <= 0) return false;
    p += n;
    count -= static_cast<uint32_t>(n);
  }
  return true;
}

void Flush(FileWriter* w) {
  if (w->buffered == 0) return;
  if (!WriteAll(w->file, w->buffer, w->buffered)) {
    w->failed = 1;
    DATAFILE_StoreError(w->errorText, w->errorTextSize, "Error writing file.");
  }
  w->buffered = 0;
}

}  // namespace

namespace datafile {

InputBuffer::InputBuffer(int fd) : fd_(fd), data_(static_cast<uint8_t*>(SYS_Alloc(kSize + 1))) {
  if (data_ != nullptr) data_[0] = 0;
}

InputBuffer::~InputBuffer() { SYS_Free(data_); }

void InputBuffer::Refill() {
  const uint32_t rest = held_ - pos;
  if (rest != 0 && pos != 0) std::memmove(data_, data_ + pos, rest);
  held_ = rest;
  pos = 0;
  while (!eof_ && held_ < kSize) {
    const int n = SYS_FILE_Read(fd_, data_ + held_, kSize - held_);
    if (n <= 0) {
      eof_ = true;
      break;
    }
    held_ += static_cast<uint32_t>(n);
  }
  data_[held_] = 0;
}

int OpenForRead(const char* fileName, char* errorText, uint32_t errorTextSize) {
  const int fd = SYS_FILE_OpenSimple(fileName, SYS_FILE_READ_FLAGS);
  if (fd < 0) DATAFILE_StoreOpenError(errorText, errorTextSize, fileName, SYS_GetLastError());
  return fd;
}

}  // namespace datafile

void DATAFILE_StoreError(char* errorText, uint32_t errorTextSize, const char* message) {
  if (errorText == nullptr || errorTextSize == 0 || errorText[0] != '\0') return;
  UTIL_strcpy(errorText, message, static_cast<int>(errorTextSize > 0x7FFFFFFF ? 0x7FFFFFFF : errorTextSize));
}

void DATAFILE_StoreOpenError(char* errorText, uint32_t errorTextSize, const char* fileName, int errorNumber) {
  // The numbers are those of another platform's error list, compared as they
  // stand: a missing file (2) gets its message, a refused permission does not.
  const char* reason;
  switch (errorNumber) {
    case 2: reason = "File not found!"; break;
    case 3: reason = "Path not found!"; break;
    case 5: reason = "Access is denied!"; break;
    case 15: reason = "Invalid drive!"; break;
    case 123: reason = "The filename syntax is incorrect!"; break;
    default: reason = "Invalid file handle!"; break;
  }
  char text[512];
  UTIL_snprintf(text, sizeof text, "Could not open file [%s]\n%s", fileName != nullptr ? fileName : "", reason);
  DATAFILE_StoreError(errorText, errorTextSize, text);
}

FileWriter* FILEWRITER_Open(const char* fileName, char* errorText, uint32_t errorTextSize) {
  if (errorText != nullptr && errorTextSize != 0) std::memset(errorText, 0, errorTextSize);
  if (fileName == nullptr || fileName[0] == '\0') {
    DATAFILE_StoreError(errorText, errorTextSize, "Could not write file. Invalid filename.");
    return nullptr;
  }
  FileWriter* w = static_cast<FileWriter*>(SYS_Calloc(1, sizeof(FileWriter)));
  uint8_t* buffer = static_cast<uint8_t*>(SYS_Alloc(kWriteBufferSize));
  if (w == nullptr || buffer == nullptr) {
    SYS_Free(w);
    SYS_Free(buffer);
    DATAFILE_StoreError(errorText, errorTextSize, "Could not write file. Out of memory.");
    return nullptr;
  }
  const int fd = SYS_FILE_OpenEx(fileName, SYS_FILE_WRITE_FLAGS);
  if (fd < 0) {
    const int err = SYS_GetLastError();
    char text[512];
    if (err == 5 && SYS_FILE_IsReadOnly(fileName) == 1) {
      UTIL_snprintf(text, sizeof text, "Could not write file. File has read only attribute.\n%s", fileName);
    } else if (err == 5) {
      UTIL_snprintf(text, sizeof text, "Could not write file. Access denied.\n%s", fileName);
    } else {
      UTIL_snprintf(text, sizeof text, "Could not write file.\n%s", fileName);
    }
    DATAFILE_StoreError(errorText, errorTextSize, text);
    SYS_Free(w);
    SYS_Free(buffer);
    return nullptr;
  }
  w->file = fd;
  w->buffer = buffer;
  w->errorText = errorText;
  w->errorTextSize = errorTextSize;
  return w;
}

void FILEWRITER_Write(FileWriter* w, const void* bytes, uint32_t count) {
  if (w == nullptr) return;
  const uint8_t* src = static_cast<const uint8_t*>(bytes);
  while (count != 0) {
    uint32_t n = kWriteBufferSize - w->buffered;
    if (n > count) n = count;
    if (src != nullptr) {
      std::memcpy(w->buffer + w->buffered, src, n);
      src += n;
    } else {
      std::memset(w->buffer + w->buffered, 0xFF, n);
    }
    w->buffered += n;
    count -= n;
    if (w->buffered == kWriteBufferSize) Flush(w);
  }
}

int FILEWRITER_Close(FileWriter* w) {
  if (w == nullptr) return -1;
  Flush(w);
  SYS_FILE_Close(w->file);
  const int result = w->failed ? -1 : 0;
  SYS_Free(w->buffer);
  SYS_Free(w);
  return result;
}

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
    uint64_t c = firstAddr;
    while (c <= lastAddr) {
      const uint64_t room = uint64_t(lastAddr) + 1 - c;
      const int32_t maxLen = static_cast<int32_t>(room < kBlock ? room : kBlock);
      uint32_t bs = 0;
      const int32_t len = MEMIMAGE_GetBlock(image, static_cast<uint32_t>(c), lastAddr, 0xFFFFFF, 0xFF, block,
                                            nullptr, &bs, maxLen, 0, 0);
      if (len <= 0) break;
      Progress(progress, context, image, bs);
      if (bs > c) {
        // The gap before the block: 0xFF, written in pieces of the block size.
        for (uint64_t gap = bs - c; gap != 0;) {
          const uint32_t n = static_cast<uint32_t>(gap < 0x40000000 ? gap : 0x40000000);
          FILEWRITER_Write(w, nullptr, n);
          gap -= n;
        }
        c = bs;
      }
      FILEWRITER_Write(w, block, static_cast<uint32_t>(len));
      c += static_cast<uint32_t>(len);
    }
    SYS_Free(block);
  });
}

int DATAFILE_WriteBin(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                      uint32_t firstAddr, uint32_t lastAddr) {
  return DATAFILE_WriteBinEx(image, fileName, errorText, errorTextSize, firstAddr, lastAddr, nullptr, nullptr);
}
