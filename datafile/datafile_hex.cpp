// Intel HEX reader and writer.
#include <cstdint>
#include <cstring>

#include "datafile/datafile_records.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

// Intel HEX records: ":", count, address (2 bytes), type, data, checksum.
// The bases of type 2 and type 4 records add up to the address offset.
class HexFormat {
 public:
  static constexpr char kLead = ':';
  static constexpr const char* kNotThisFormat = "Not a hex file";
  static constexpr const char* kNoMemory = "malloc Problem";
  static constexpr uint32_t kChecksumSum = 0;

  int Begin(RecordReader& rd) {
    SkipBlanksAtBufferStart(rd);
    rd.p = rd.buf + rd.in.pos;
    if (*rd.p == 0) return 0;
    if (*rd.p != ':') {
      UTIL_snprintf(rd.text, sizeof rd.text, "Unexpected character (Expected: %c, Found: %c)", ':', *rd.p);
      return rd.Fail(rd.text);
    }
    rd.p++;
    return 1;
  }

  // Count, address and type; the data into the record area, which keeps
  // the bytes of earlier records behind a short one; the checksum.
  bool ReadBody(RecordReader& rd) {
    return rd.ReadPairs(header_, 4) && rd.ReadPairs(data_, header_[0]) && rd.ReadPairs(&checksum_, 1);
  }

  // Printed as signed bytes widened to int: 0x80 and above show as eight
  // digits.
  int ChecksumError(RecordReader& rd) {
    const uint8_t expected = static_cast<uint8_t>(0x100 - ((rd.sum - checksum_) & 0xFF));
    UTIL_snprintf(rd.text, sizeof rd.text, "Checksum error !\nExpected: 0x%.2X, found: 0x%.2X",
                  static_cast<int>(static_cast<int8_t>(expected)), static_cast<int>(static_cast<int8_t>(checksum_)));
    return rd.Fail(rd.text);
  }

  // Only the first two data bytes of a base record count, whatever its
  // count; end of file and the other types change nothing.
  int Apply(RecordReader& rd) {
    switch (header_[3]) {
      case 0:
        return rd.AddData(offset_ + (uint32_t(header_[1]) << 8 | header_[2]), header_[0], data_);
      case 2:
        segmentBase_ = (uint32_t(data_[0]) * 256 + data_[1]) * 16;
        break;
      case 4:
      case 0xFF:  // taken as an extended linear address too
        linearBase_ = (uint32_t(data_[0]) * 256 + data_[1]) * 65536;
        break;
      default:
        return 0;
    }
    offset_ = segmentBase_ + linearBase_;
    return 0;
  }

  // A line end (CR and LF count one line each, one more of either is taken
  // along uncounted), or a zero byte or 0x1A left for the next record.
  int End(RecordReader& rd) {
    rd.in.pos = static_cast<uint32_t>(rd.p - rd.buf);
    const uint8_t c = rd.p[0];
    if (c == '\r' || c == '\n') {
      rd.line++;
      rd.in.pos++;
      if (rd.p[1] == '\r' || rd.p[1] == '\n') rd.in.pos++;
    } else if (c != 0 && c != 0x1A) {
      return rd.Fail("Expected CR or LF");
    }
    return 0;
  }

 private:
  // Blanks are looked for at the start of the held buffer, not at the read
  // position: right after a refill the two agree; elsewhere the buffer
  // starts with a record and nothing is skipped.
  static void SkipBlanksAtBufferStart(RecordReader& rd) {
    InputBuffer& in = rd.in;
    for (uint32_t k = 0; k < in.held() && in.pos < in.held() && IsBlank(rd.buf[k]); k++) {
      if (rd.buf[k] == '\r' || rd.buf[k] == '\n') rd.line++;
      in.pos++;
    }
  }

  uint32_t segmentBase_ = 0;
  uint32_t linearBase_ = 0;
  uint32_t offset_ = 0;
  uint8_t header_[4] = {};  // count, address high, address low, type
  uint8_t data_[256] = {};
  uint8_t checksum_ = 0;
};

// Record checksum: the two's complement of the sum of its bytes.
uint32_t HexChecksum(const RecordLine& line) { return 0x100 - (line.sum & 0xFF); }

// An extended linear address record for the upper half of base.
void WriteLinearBase(FileWriter* w, uint32_t base) {
  const uint8_t record[] = {2, 0, 0, 4, static_cast<uint8_t>(base >> 24), static_cast<uint8_t>(base >> 16)};
  RecordLine line(":");
  line.Bytes(record, sizeof record);
  line.Finish(w, HexChecksum(line));
}

// A data record at the given distance from the base. The address field
// wraps when a record runs past a 64 KiB boundary.
void WriteDataRecord(FileWriter* w, uint32_t offset, const uint8_t* data, uint32_t len) {
  const uint8_t head[] = {static_cast<uint8_t>(len), static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(offset), 0};
  RecordLine line(":");
  line.Bytes(head, sizeof head);
  line.Bytes(data, len);
  line.Finish(w, HexChecksum(line));
}

}  // namespace

int DATAFILE_ReadHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context) {
  return ReadRecordFile<HexFormat>(image, fileName, errorText, errorTextSize, progress, context);
}

int DATAFILE_ReadHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_ReadHexEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}

int DATAFILE_WriteHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context) {
  uint64_t base = 0;
  return WriteRecordFile(image, fileName, errorText, errorTextSize, progress, context, ":00000001FF\r\n",
                         [&](FileWriter* w, uint32_t start, const uint8_t* bytes, uint32_t len) {
                           if (start > base + 0xFFFF) {
                             base = start & 0xFFFF0000u;
                             WriteLinearBase(w, static_cast<uint32_t>(base));
                           }
                           WriteDataRecord(w, static_cast<uint32_t>(start - base), bytes, len);
                         });
}

int DATAFILE_WriteHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_WriteHexEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}
