// Shared pieces of the readers and writers: hex digit tables, the input
// buffer that the text readers refill, and the reader and writer frames
// (the text-record reader frame is in datafile_records.h).
#pragma once
#include <array>
#include <cstdint>
#include <cstring>

#include "dataimage/memimage.h"
#include "datafile/datafile.h"
#include "datafile/filewriter.h"
#include "sys/sys.h"
#include "util/util.h"

namespace datafile {

constexpr char kHexDigits[] = "0123456789ABCDEF";

// UTIL_HexDigitValue as a table for the readers' inner loops; 255 for non-digits.
constexpr std::array<uint8_t, 256> kHexValue = [] {
  std::array<uint8_t, 256> t{};
  for (int c = 0; c < 256; c++) {
    const int d = UTIL_HexDigitValue(static_cast<char>(c));
    t[static_cast<size_t>(c)] = d < 0 ? 255 : static_cast<uint8_t>(d);
  }
  return t;
}();

// The two upper-case digits of every byte value, for the writers' loops.
constexpr std::array<std::array<char, 2>, 256> kHexPairs = [] {
  std::array<std::array<char, 2>, 256> t{};
  for (int v = 0; v < 256; v++) t[static_cast<size_t>(v)] = {kHexDigits[v >> 4], kHexDigits[v & 0xF]};
  return t;
}();

// Writes the low byte of value as two digits; returns the position after.
inline char* PutHexByte(char* out, uint32_t value) {
  std::memcpy(out, kHexPairs[value & 0xFF].data(), 2);
  return out + 2;
}

inline bool IsBlank(uint8_t c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Input of the text readers: 60000 bytes plus a terminating zero, refilled
// when little is left so that a whole record is always held.
class InputBuffer {
 public:
  static constexpr uint32_t kSize = 60000;
  explicit InputBuffer(int fd);
  ~InputBuffer();
  InputBuffer(const InputBuffer&) = delete;
  InputBuffer& operator=(const InputBuffer&) = delete;
  bool ok() const { return data_ != nullptr; }
  // Moves the unparsed bytes to the front and reads behind them.
  void Refill();
  uint32_t Remaining() const { return held_ - pos; }
  uint8_t* data() { return data_; }
  uint32_t held() const { return held_; }
  uint32_t pos = 0;  // read position (kept public: the parsers move it)

 private:
  int fd_;
  uint8_t* data_;
  uint32_t held_ = 0;
  bool eof_ = false;
};

// Calls the progress function, if any.
inline void Progress(DATAFILE_PROGRESS_FUNC f, void* context, MemImage* image, uint32_t address) {
  if (f == nullptr) return;
  DATAFILE_PROGRESS p{address, image->rangeCount};
  f(context, &p);
}

// Opens a file for reading; on failure stores the open message and returns -1.
int OpenForRead(const char* fileName, char* errorText, uint32_t errorTextSize);

// The common writer frame around a format body.
template <typename Body>
int WriteFrame(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize, Body&& body) {
  if (errorText == nullptr || image == nullptr) return -1;
  MEMIMAGE_Lock(image);
  const uint32_t changeCount = image->changeCount;
  MEMIMAGE_CommitPatches(image);
  bool failed = true;
  if (FileWriter* w = FILEWRITER_Open(fileName, errorText, errorTextSize)) {
    body(w);
    failed = w->failed != 0;
    if (FILEWRITER_Close(w) != 0) failed = true;
  }
  if (failed || (errorTextSize != 0 && errorText[0] != '\0')) {
    image->changeCount = changeCount;
    MEMIMAGE_Unlock(image);
    return -1;
  }
  MEMIMAGE_Unlock(image);
  return 0;
}

// The writers' walk over the window [first, last] of the image: the blocks
// MEMIMAGE_GetBlock gives, of at most bufferSize bytes each, bridging gaps of
// at most maxGap bytes (filled with 0xFF), in address order. Calls progress
// and then emit(blockStart, bytes, length) for each; ends at the first
// empty block or when the cursor passes the top of the address space.
template <typename Emit>
void WalkBlocks(MemImage* image, uint32_t first, uint32_t last, uint32_t maxGap, uint8_t* buffer,
                uint32_t bufferSize, DATAFILE_PROGRESS_FUNC progress, void* context, Emit&& emit) {
  uint64_t cursor = first;
  while (cursor <= last) {
    const uint64_t room = uint64_t(last) + 1 - cursor;
    const int32_t maxLen = static_cast<int32_t>(room < bufferSize ? room : bufferSize);
    uint32_t blockStart = 0;
    const int32_t len = MEMIMAGE_GetBlock(image, static_cast<uint32_t>(cursor), last, maxGap, 0xFF, buffer, nullptr,
                                          &blockStart, maxLen, 0, 0);
    if (len <= 0) break;
    Progress(progress, context, image, blockStart);
    emit(blockStart, static_cast<const uint8_t*>(buffer), static_cast<uint32_t>(len));
    cursor = uint64_t(blockStart) + static_cast<uint32_t>(len);
  }
}

constexpr char kReadOutOfMemory[] = "Could not read file. Out of memory.";

// The common reader frame around a parser. An add whose bytes could not be
// allocated leaves a range without bytes; such an image is not a successful
// load, whatever the parser says.
template <typename Parser>
int ReadFrame(MemImage* image, char* errorText, uint32_t errorTextSize, Parser&& parser) {
  if (image == nullptr) return -1;
  MEMIMAGE_Lock(image);
  int r = parser();
  if (r == 0 && MEMIMAGE_HasRangeWithoutBytes(image)) {
    DATAFILE_StoreError(errorText, errorTextSize, kReadOutOfMemory);
    r = -3;
  }
  image->changeCount = 0;
  MEMIMAGE_Unlock(image);
  return r;
}

}  // namespace datafile
