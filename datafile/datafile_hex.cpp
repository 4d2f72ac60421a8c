// Intel HEX reader and writer.
#include <cstdint>
#include <cstring>

#include "datafile/datafile_internal.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

// Keeps this many unparsed bytes ahead, more than the longest record.
constexpr uint32_t kRefillBelow = 1000;

// Result of the record parser with the message it stored.
struct HexParse {
  int result = 0;
  const char* message = nullptr;
  char text[128] = {};
};

int ParseHex(MemImage* image, InputBuffer& in, uint32_t& line, HexParse& out, DATAFILE_PROGRESS_FUNC progress,
             void* context) {
  uint32_t segmentBase = 0;
  uint32_t linearBase = 0;
  uint32_t offset = 0;
  bool firstChecked = false;
  uint8_t record[256] = {};
  auto fail = [&](const char* message) {
    out.message = message;
    return -5;
  };
  for (;;) {
    if (in.Remaining() < kRefillBelow) in.Refill();
    uint8_t* buf = in.data();
    if (!firstChecked) {
      firstChecked = true;
      if (buf[0] != ':') {
        out.message = "Not a hex file";
        return -4;
      }
    }
    // Blanks are looked for at the start of the held buffer, not at the read
    // position: right after a refill the two agree; elsewhere the buffer
    // starts with a record and nothing is skipped.
    for (uint32_t k = 0; k < in.held() && in.pos < in.held() && IsBlank(buf[k]); k++) {
      if (buf[k] == '\r' || buf[k] == '\n') line++;
      in.pos++;
    }
    const uint8_t* p = buf + in.pos;
    if (*p == 0) return 0;
    if (*p != ':') {
      UTIL_snprintf(out.text, sizeof out.text, "Unexpected character (Expected: %c, Found: %c)", ':', *p);
      return fail(out.text);
    }
    p++;
    uint32_t sum = 0;
    bool bad = false;
    auto readByte = [&]() -> uint32_t {
      const uint8_t hi = kHexValue[p[0]];
      if (hi > 15) {
        bad = true;
        return 0;
      }
      const uint8_t lo = kHexValue[p[1]];
      if (lo > 15) {
        bad = true;
        return 0;
      }
      p += 2;
      const uint32_t v = uint32_t(hi) << 4 | lo;
      sum += v;
      return v;
    };
    const uint32_t count = readByte();
    const uint32_t addrHi = bad ? 0 : readByte();
    const uint32_t addrLo = bad ? 0 : readByte();
    const uint32_t type = bad ? 0 : readByte();
    for (uint32_t i = 0; i < count && !bad; i++) record[i] = static_cast<uint8_t>(readByte());
    const uint32_t found = bad ? 0 : readByte();
    if (bad) return fail("Expected Hex character : 0..9, A..F");
    if ((sum & 0xFF) != 0) {
      // Printed as signed bytes widened to int: 0x80 and above show as
      // eight digits.
      const uint8_t expected = static_cast<uint8_t>(0x100 - ((sum - found) & 0xFF));
      UTIL_snprintf(out.text, sizeof out.text, "Checksum error !\nExpected: 0x%.2X, found: 0x%.2X",
                    static_cast<int>(static_cast<int8_t>(expected)), static_cast<int>(static_cast<int8_t>(found)));
      return fail(out.text);
    }
    switch (type) {
      case 0: {
        const uint32_t address = offset + (addrHi << 8 | addrLo);
        Progress(progress, context, image, address);
        const char* refusal = nullptr;
        const int added = AddRecord(image, address, count, record, refusal);
        if (added != 0) {
          fail(refusal);
          return added;
        }
        break;
      }
      case 2:
        segmentBase = (uint32_t(record[0]) * 256 + record[1]) * 16;
        offset = segmentBase + linearBase;
        break;
      case 4:
      case 0xFF:  // taken as an extended linear address too
        linearBase = (uint32_t(record[0]) * 256 + record[1]) * 65536;
        offset = segmentBase + linearBase;
        break;
      default:  // end of file and the rest: reading goes on
        break;
    }
    in.pos = static_cast<uint32_t>(p - buf);
    const uint8_t c = *p;
    if (c == '\r' || c == '\n') {
      line++;
      in.pos++;
      if (p[1] == '\r' || p[1] == '\n') in.pos++;
    } else if (c != 0 && c != 0x1A) {
      return fail("Expected CR or LF");
    }
  }
}

}  // namespace

int DATAFILE_ReadHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context) {
  return ReadRecordFile<HexParse>(image, fileName, errorText, errorTextSize, "malloc Problem",
                                [&](InputBuffer& in, uint32_t& line, HexParse& parse) {
                                  return ParseHex(image, in, line, parse, progress, context);
                                });
}

int DATAFILE_ReadHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_ReadHexEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}

int DATAFILE_WriteHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context) {
  return WriteFrame(image, fileName, errorText, errorTextSize, [&](FileWriter* w) {
    uint8_t data[32];
    char line[1 + 2 * (4 + 32 + 1) + 2];
    uint64_t c = 0;
    uint64_t base = 0;
    while (c <= 0xFFFFFFFFull) {
      uint32_t bs = 0;
      const int32_t len =
          MEMIMAGE_GetBlock(image, static_cast<uint32_t>(c), 0xFFFFFFFFu, 0, 0xFF, data, nullptr, &bs, 32, 0, 0);
      if (len <= 0) break;
      Progress(progress, context, image, bs);
      if (bs > base + 0xFFFF) {
        base = bs & 0xFFFF0000u;
        const uint32_t hi = static_cast<uint32_t>(base >> 24) & 0xFF;
        const uint32_t lo = static_cast<uint32_t>(base >> 16) & 0xFF;
        char* q = line;
        std::memcpy(q, ":02000004", 9);
        q += 9;
        q = PutHexByte(q, hi);
        q = PutHexByte(q, lo);
        q = PutHexByte(q, (0x100 - ((2 + 4 + hi + lo) & 0xFF)) & 0xFF);
        *q++ = '\r';
        *q++ = '\n';
        FILEWRITER_Write(w, line, static_cast<uint32_t>(q - line));
      }
      // The address field wraps when a record runs past a 64 KiB boundary.
      const uint32_t rel = static_cast<uint32_t>(bs - base) & 0xFFFF;
      uint32_t sum = static_cast<uint32_t>(len) + (rel >> 8) + (rel & 0xFF);
      char* q = line;
      *q++ = ':';
      q = PutHexByte(q, static_cast<uint32_t>(len));
      q = PutHexByte(q, rel >> 8);
      q = PutHexByte(q, rel & 0xFF);
      *q++ = '0';
      *q++ = '0';
      for (int32_t i = 0; i < len; i++) {
        sum += data[i];
        q = PutHexByte(q, data[i]);
      }
      q = PutHexByte(q, (0x100 - (sum & 0xFF)) & 0xFF);
      *q++ = '\r';
      *q++ = '\n';
      FILEWRITER_Write(w, line, static_cast<uint32_t>(q - line));
      c = uint64_t(bs) + static_cast<uint32_t>(len);
    }
    FILEWRITER_Write(w, ":00000001FF\r\n", 13);
  });
}

int DATAFILE_WriteHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize) {
  return DATAFILE_WriteHexEx(image, fileName, errorText, errorTextSize, nullptr, nullptr);
}
