// What the text-record formats (Intel HEX, S-record) share: the reader
// frame, and the record line and file frame of the writers.
//
// The reader frame opens and buffers the file, checks its first character,
// decodes each record's hex pairs with their sum, tests the checksum, adds
// data records to the image, and reports a failure as "Error in line %d: %s".
// A format supplies only what differs, as a type with these members:
//
//   static constexpr char kLead;                 first character of a file
//   static constexpr const char* kNotThisFormat; message when it is not
//   static constexpr const char* kNoMemory;      message when no input buffer
//   static constexpr uint32_t kChecksumSum;      low byte of a good record's sum
//   int  Begin(RecordReader&);      find the record's start: 1 record, 0 end, else failure
//   bool ReadBody(RecordReader&);   its hex pairs, through ReadPairs; false on a non-digit
//   int  ChecksumError(RecordReader&);  store the checksum message; returns -5
//   int  Apply(RecordReader&);      act on the record; 0 or failure
//   int  End(RecordReader&);        what may follow a record; 0 or failure
#pragma once
#include <cstdint>
#include <cstring>
#include <string_view>

#include "datafile/datafile_internal.h"

namespace datafile {

constexpr char kExpectedHexDigit[] = "Expected Hex character : 0..9, A..F";

// The input is refilled whenever fewer than this many unparsed bytes are
// left, more than the longest record, so a record is always held whole.
constexpr uint32_t kRefillBelow = 1000;

// Parse state of one record file, handed to the format's steps.
class RecordReader {
 public:
  RecordReader(MemImage* image, InputBuffer& in, DATAFILE_PROGRESS_FUNC progress, void* context)
      : in(in), buf(in.data()), image_(image), progress_(progress), context_(context) {}

  InputBuffer& in;
  uint8_t* const buf;           // the input buffer (fixed; refills move bytes inside it)
  const uint8_t* p = nullptr;   // parse position within the current record
  uint32_t line = 0;            // line counter, 0-based
  uint32_t sum = 0;             // sum of the record's bytes read so far
  const char* message = nullptr;
  char text[128] = {};

  // Reads n hex pairs at p into out, adding each to sum. False at the first
  // character that is not a hex digit (p then stays on its pair). Works on
  // local copies: stores through `out` could otherwise alias p and sum. The
  // loop is the readers' hot spot, hence unrolled.
  bool ReadPairs(uint8_t* out, uint32_t n) {
    const uint8_t* q = p;
    uint32_t s = sum;
    bool ok = true;
#pragma GCC unroll 4
    for (uint8_t* const end = out + n; out != end; out++, q += 2) {
      const uint32_t hi = kHexValue[q[0]];
      if (hi > 15) {
        ok = false;
        break;
      }
      const uint32_t lo = kHexValue[q[1]];
      if (lo > 15) {
        ok = false;
        break;
      }
      const uint32_t v = hi << 4 | lo;
      *out = static_cast<uint8_t>(v);
      s += v;
    }
    p = q;
    sum = s;
    return ok;
  }

  // Stores the message (`text` is there for formatted ones); returns the
  // result of a bad record.
  int Fail(const char* m) {
    message = m;
    return -5;
  }

  // A data record: reports progress, then adds its bytes. 0 when added;
  // -5 when they run past the address space or overlap loaded data; -3 when
  // no memory was left for them; the message stored with either.
  int AddData(uint32_t address, uint32_t count, const uint8_t* data) {
    Progress(progress_, context_, image_, address);
    if (uint64_t(address) + count > 0x100000000ull) return Fail("Address range exceeds 0xFFFFFFFF");
    const int r = MEMIMAGE_AddData(image_, address, count, data, -1);
    if (r == 0) return 0;
    if (r == -1) return Fail("Areas overlap");
    message = "Out of memory";
    return -3;
  }

 private:
  MemImage* image_;
  DATAFILE_PROGRESS_FUNC progress_;
  void* context_;
};

// The record loop over an open input buffer: 0 at the end of the data, -4
// for a file of another format, -5 or -3 at the first bad record.
template <typename Format>
int ParseRecords(RecordReader& rd, Format& format) {
  for (bool first = true;; first = false) {
    if (rd.in.Remaining() < kRefillBelow) rd.in.Refill();
    if (first && rd.buf[0] != Format::kLead) {
      rd.message = Format::kNotThisFormat;
      return -4;
    }
    int r = format.Begin(rd);
    if (r != 1) return r;
    rd.sum = 0;
    if (!format.ReadBody(rd)) return rd.Fail(kExpectedHexDigit);
    if ((rd.sum & 0xFF) != Format::kChecksumSum) return format.ChecksumError(rd);
    if ((r = format.Apply(rd)) != 0) return r;
    if ((r = format.End(rd)) != 0) return r;
  }
}

// Stores a record failure as "Error in line %d: %s" (line counted from 1).
inline void StoreLineError(char* errorText, uint32_t errorTextSize, uint32_t line, const char* message) {
  char text[300];
  UTIL_snprintf(text, sizeof text, "Error in line %d: %s", static_cast<int>(line + 1),
                message != nullptr ? message : "");
  DATAFILE_StoreError(errorText, errorTextSize, text);
}

// A whole record file into the image, under the reader frame. A failure
// after the open is stored with its line.
template <typename Format>
int ReadRecordFile(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                   DATAFILE_PROGRESS_FUNC progress, void* context) {
  return ReadFrame(image, errorText, errorTextSize, [&]() -> int {
    const int fd = OpenForRead(fileName, errorText, errorTextSize);
    if (fd < 0) return -1;
    int result;
    {
      InputBuffer in(fd);
      RecordReader rd(image, in, progress, context);
      if (!in.ok()) {
        rd.message = Format::kNoMemory;
        result = -3;
      } else {
        Format format;
        result = ParseRecords(rd, format);
      }
      if (result != 0) StoreLineError(errorText, errorTextSize, rd.line, rd.message);
    }
    SYS_FILE_Close(fd);
    return result;
  });
}

// One text record being written: its lead characters, then hex pairs whose
// sum is kept for the checksum, then the checksum and CR LF.
class RecordLine {
 public:
  explicit RecordLine(std::string_view lead) : q_(line_ + lead.size()) {
    std::memcpy(line_, lead.data(), lead.size());
  }
  // Works on local copies: the character stores could alias the members
  // and the bytes.
  void Bytes(const uint8_t* __restrict data, uint32_t count) {
    char* __restrict q = q_;
    uint32_t s = sum;
    for (uint32_t i = 0; i < count; i++) {
      const uint32_t v = data[i];
      q = PutHexByte(q, v);
      s += v;
    }
    q_ = q;
    sum = s;
  }
  // Appends the checksum (computed by the caller from sum) and CR LF, and
  // writes the line.
  void Finish(FileWriter* w, uint32_t checksum) {
    char* q = PutHexByte(q_, checksum & 0xFF);
    *q++ = '\r';
    *q++ = '\n';
    FILEWRITER_Write(w, line_, static_cast<uint32_t>(q - line_));
  }
  uint32_t sum = 0;

 private:
  char line_[2 + 2 * (1 + 4 + 255 + 1) + 2];  // the longest record either format has
  char* q_;
};

// A whole image as a text-record file: each block of up to 32 bytes through
// emit(writer, start, bytes, length), then the closing record.
template <typename Emit>
int WriteRecordFile(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                    DATAFILE_PROGRESS_FUNC progress, void* context, std::string_view closing, Emit&& emit) {
  return WriteFrame(image, fileName, errorText, errorTextSize, [&](FileWriter* w) {
    uint8_t data[32];
    WalkBlocks(image, 0, 0xFFFFFFFFu, 0, data, sizeof data, progress, context,
               [&](uint32_t start, const uint8_t* bytes, uint32_t len) { emit(w, start, bytes, len); });
    FILEWRITER_Write(w, closing.data(), static_cast<uint32_t>(closing.size()));
  });
}

}  // namespace datafile
