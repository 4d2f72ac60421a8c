// The buffered output file of the writers, the input buffer of the readers,
// the error-buffer rule and the read-open messages: the file handling every
// format shares.
#include <cstdlib>
#include <cstring>

#include "datafile/datafile_internal.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

constexpr uint32_t kWriteBufferSize = 32768;

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

// Stores the read-open message picked by the system error number.
void StoreOpenError(char* errorText, uint32_t errorTextSize, const char* fileName, int errorNumber) {
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
  if (fd < 0) StoreOpenError(errorText, errorTextSize, fileName, SYS_GetLastError());
  return fd;
}

}  // namespace datafile

void DATAFILE_StoreError(char* errorText, uint32_t errorTextSize, const char* message) {
  if (errorText == nullptr || errorTextSize == 0 || errorText[0] != '\0') return;
  UTIL_strcpy(errorText, message, static_cast<int>(errorTextSize > 0x7FFFFFFF ? 0x7FFFFFFF : errorTextSize));
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
