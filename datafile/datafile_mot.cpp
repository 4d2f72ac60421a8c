// Motorola S-record reader and writer.
#include <cstdint>
#include <cstring>

#include "datafile/datafile_records.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

// Skips tabs, spaces, CR and LF; only LF counts a line (CR does not).
inline void SkipBlanks(const uint8_t* buf, uint32_t& pos, uint32_t& line) {
  while (IsBlank(buf[pos])) {
    if (buf[pos] == '\n') line++;
    pos++;
  }
}

// S-records: "S", a type digit, then count, address (2, 3 or 4 bytes by
// type), data and checksum, the count covering all after it.
class MotFormat {
 public:
  static constexpr char kLead = 'S';
  static constexpr const char* kNotThisFormat = "Not a mot file";
  static constexpr const char* kNoMemory = "Malloc problem";
  static constexpr uint32_t kChecksumSum = 0xFF;

  // The end mark is looked for at the start of the held buffer, which is
  // the read position right after a refill; the real end of a file always
  // follows a refill. Blanks between "S" and the type are passed over.
  int Begin(RecordReader& rd) {
    if (rd.buf[0] == 0 || rd.buf[0] == 0x1A) return 0;
    SkipBlanks(rd.buf, rd.in.pos, rd.line);
    uint32_t pos = rd.in.pos;
    if (rd.buf[pos] != 'S') return rd.Fail("Unexpected character");
    pos++;
    SkipBlanks(rd.buf, pos, rd.line);
    type_ = kHexValue[rd.buf[pos]];
    if (type_ > 9) return rd.Fail("Unexpected character");
    rd.p = rd.buf + pos + 1;
    return 1;
  }

  bool ReadBody(RecordReader& rd) { return rd.ReadPairs(&count_, 1) && rd.ReadPairs(record_, count_); }

  int ChecksumError(RecordReader& rd) {
    const uint32_t found = count_ != 0 ? record_[count_ - 1] : 0;
    const uint32_t calculated = ~(rd.sum - found) & 0xFF;
    UTIL_snprintf(rd.text, sizeof rd.text, "Checksum error! Checksum in file: 0x%.2X, checksum calculated 0x%.2X",
                  found, calculated);
    return rd.Fail(rd.text);
  }

  // S1 to S3 carry data; a record too short to hold its address carries
  // none. The other types are checked and passed over.
  int Apply(RecordReader& rd) {
    if (type_ < 1 || type_ > 3) return 0;
    const uint32_t addrBytes = type_ + 1u;
    if (count_ < addrBytes + 1) return 0;
    uint32_t address = 0;
    for (uint32_t i = 0; i < addrBytes; i++) address = address << 8 | record_[i];
    return rd.AddData(address, count_ - addrBytes - 1, record_ + addrBytes);
  }

  int End(RecordReader& rd) {
    rd.in.pos = static_cast<uint32_t>(rd.p - rd.buf);
    SkipBlanks(rd.buf, rd.in.pos, rd.line);
    return 0;
  }

 private:
  uint8_t type_ = 0;
  uint8_t count_ = 0;
  uint8_t record_[256];  // address, data, checksum
};

// An S1, S2 or S3 record, by the block's last address: one file can mix
// them. The checksum is the one's complement of the sum of its bytes.
void WriteDataRecord(FileWriter* w, uint32_t start, const uint8_t* data, uint32_t len) {
  const uint32_t last = start + len - 1;
  const uint32_t addrBytes = last <= 0xFFFF ? 2 : last <= 0xFFFFFF ? 3 : 4;
  uint8_t head[5] = {static_cast<uint8_t>(len + addrBytes + 1)};  // count, then the address high first
  for (uint32_t i = 0; i < addrBytes; i++) head[1 + i] = static_cast<uint8_t>(start >> (8 * (addrBytes - 1 - i)));
  const char type[] = {'S', static_cast<char>('0' + addrBytes - 1)};
  RecordLine line(std::string_view(type, sizeof type));
  line.Bytes(head, 1 + addrBytes);
  line.Bytes(data, len);
  line.Finish(w, ~line.sum);
}

}  // namespace

int DATAFILE_ReadMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context) {
  return ReadRecordFile<MotFormat>(image, fileName, errorText, errorTextSize, progress, context);
}

int DATAFILE_ReadMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_ReadMotEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}

int DATAFILE_WriteMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context) {
  return WriteRecordFile(image, fileName, errorText, errorTextSize, progress, context, "S9030000FC\r\n",
                         WriteDataRecord);
}

int DATAFILE_WriteMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_WriteMotEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}
