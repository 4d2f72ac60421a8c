// Motorola S-record reader and writer.
#include <cstdint>
#include <cstring>

#include "datafile/datafile_internal.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

constexpr uint32_t kRefillAtMost = 999;

struct MotParse {
  const char* message = nullptr;
  char text[128] = {};
};

// Skips tabs, spaces, CR and LF; only LF counts a line (CR does not).
inline void SkipBlanks(const uint8_t* buf, uint32_t& pos, uint32_t& line) {
  while (IsBlank(buf[pos])) {
    if (buf[pos] == '\n') line++;
    pos++;
  }
}

int ParseMot(MemImage* image, InputBuffer& in, uint32_t& line, MotParse& out, DATAFILE_PROGRESS_FUNC progress,
             void* context) {
  bool firstChecked = false;
  uint8_t record[256];
  for (;;) {
    if (in.Remaining() <= kRefillAtMost) in.Refill();
    uint8_t* buf = in.data();
    if (!firstChecked) {
      firstChecked = true;
      if (buf[0] != 'S') {
        out.message = "Not a mot file";
        return -4;
      }
    }
    // The end mark is looked for at the start of the held buffer, which is
    // the read position right after a refill; the real end of a file always
    // follows a refill.
    if (buf[0] == 0 || buf[0] == 0x1A) return 0;
    SkipBlanks(buf, in.pos, line);
    const uint8_t* p = buf + in.pos;
    if (*p != 'S') {
      out.message = "Unexpected character";
      return -5;
    }
    p++;
    {
      uint32_t pos = static_cast<uint32_t>(p - buf);
      SkipBlanks(buf, pos, line);
      p = buf + pos;
    }
    const uint8_t type = kHexValue[*p];
    if (type > 9) {
      out.message = "Unexpected character";
      return -5;
    }
    p++;
    auto readByte = [&](uint32_t& v) -> bool {
      const uint8_t hi = kHexValue[p[0]];
      if (hi > 15) return false;
      const uint8_t lo = kHexValue[p[1]];
      if (lo > 15) return false;
      p += 2;
      v = uint32_t(hi) << 4 | lo;
      return true;
    };
    uint32_t count = 0;
    if (!readByte(count)) {
      out.message = "Expected Hex character : 0..9, A..F";
      return -5;
    }
    uint32_t sum = count;
    for (uint32_t i = 0; i < count; i++) {
      uint32_t v;
      if (!readByte(v)) {
        out.message = "Expected Hex character : 0..9, A..F";
        return -5;
      }
      record[i] = static_cast<uint8_t>(v);
      sum += v;
    }
    if ((sum & 0xFF) != 0xFF) {
      const uint32_t found = count != 0 ? record[count - 1] : 0;
      const uint32_t calculated = ~(sum - found) & 0xFF;
      UTIL_snprintf(out.text, sizeof out.text, "Checksum error! Checksum in file: 0x%.2X, checksum calculated 0x%.2X",
                    found, calculated);
      out.message = out.text;
      return -5;
    }
    if (type >= 1 && type <= 3) {
      const uint32_t addrBytes = type + 1u;
      // A record too short to hold its address carries no data.
      if (count >= addrBytes + 1) {
        uint32_t address = 0;
        for (uint32_t i = 0; i < addrBytes; i++) address = address << 8 | record[i];
        Progress(progress, context, image, address);
        const int added = AddRecord(image, address, count - addrBytes - 1, record + addrBytes, out.message);
        if (added != 0) return added;
      }
    }
    in.pos = static_cast<uint32_t>(p - buf);
    SkipBlanks(buf, in.pos, line);
  }
}

}  // namespace

int DATAFILE_ReadMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context) {
  return ReadRecordFile<MotParse>(image, fileName, errorText, errorTextSize, "Malloc problem",
                                [&](InputBuffer& in, uint32_t& line, MotParse& parse) {
                                  return ParseMot(image, in, line, parse, progress, context);
                                });
}

int DATAFILE_ReadMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_ReadMotEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}

int DATAFILE_WriteMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context) {
  return WriteFrame(image, fileName, errorText, errorTextSize, [&](FileWriter* w) {
    uint8_t data[32];
    char line[2 + 2 * (1 + 4 + 32 + 1) + 2];
    uint64_t c = 0;
    while (c <= 0xFFFFFFFFull) {
      uint32_t bs = 0;
      const int32_t len =
          MEMIMAGE_GetBlock(image, static_cast<uint32_t>(c), 0xFFFFFFFFu, 0, 0xFF, data, nullptr, &bs, 32, 0, 0);
      if (len <= 0) break;
      Progress(progress, context, image, bs);
      const uint32_t e = bs + static_cast<uint32_t>(len) - 1;
      const uint32_t addrBytes = e <= 0xFFFF ? 2 : e <= 0xFFFFFF ? 3 : 4;
      const uint32_t count = static_cast<uint32_t>(len) + addrBytes + 1;
      uint32_t sum = count;
      char* q = line;
      *q++ = 'S';
      *q++ = static_cast<char>('0' + addrBytes - 1);
      q = PutHexByte(q, count);
      for (uint32_t i = addrBytes; i-- > 0;) {
        const uint32_t b = (bs >> (8 * i)) & 0xFF;
        sum += b;
        q = PutHexByte(q, b);
      }
      for (int32_t i = 0; i < len; i++) {
        sum += data[i];
        q = PutHexByte(q, data[i]);
      }
      q = PutHexByte(q, ~sum & 0xFF);
      *q++ = '\r';
      *q++ = '\n';
      FILEWRITER_Write(w, line, static_cast<uint32_t>(q - line));
      c = uint64_t(bs) + static_cast<uint32_t>(len);
    }
    FILEWRITER_Write(w, "S9030000FC\r\n", 12);
  });
}

int DATAFILE_WriteMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_WriteMotEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}
