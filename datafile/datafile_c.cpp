// C source output: one constant byte array holding an address window.
#include <cstdint>

#include "datafile/datafile_internal.h"
#include "sys/sys.h"
#include "util/util.h"

using namespace datafile;

namespace {

// The box is 73 characters wide; every line of it is spelled out so that
// its width can be checked by eye.
constexpr char kHeaderFormat[] =
    "/************************************************************************\r\n"
    "*                                                                       *\r\n"
    "*               Generated C-File                                        *\r\n"
    "*                                                                       *\r\n"
    "*         (c) Valmik Microcontroller - Pellam SPI command-line          *\r\n"
    "*                                                                       *\r\n"
    "*************************************************************************\r\n"
    "\r\n"
    "Please note:\r\n"
    "\r\n"
    "Valmik Microcontroller has provided the feature of being able to save a file\r\n"
    "in ANSI \"C\" format as convenience feature.\r\n"
    "You may use this feature at your own risc, Valmik assumes no liability\r\n"
    "in any form.\r\n"
    "\r\n"
    "Memory image: 0x%.4X - 0x%.4X\r\n"
    "*/\r\n"
    "\r\n"
    "static const unsigned char _ac%s[0x%X] = {\r\n";

constexpr char kFooter[] = "};\r\n\r\n/*** end of file ***/\r\n";

}  // namespace

int DATAFILE_WriteCEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                      uint32_t firstAddr, uint32_t lastAddr, DATAFILE_PROGRESS_FUNC progress, void* context) {
  return WriteFrame(image, fileName, errorText, errorTextSize, [&](FileWriter* w) {
    char name[256];
    SYS_GetFileName(fileName, name, sizeof name);
    char header[2048];
    UTIL_snprintf(header, sizeof header, kHeaderFormat, firstAddr, lastAddr, name, lastAddr - firstAddr + 1);
    FILEWRITER_Write(w, header, static_cast<uint32_t>(UTIL_strlen(header)));
    if (lastAddr >= firstAddr) {
      char line[1 + 16 * 6 + 2];
      uint64_t a = firstAddr;
      while (a <= lastAddr) {
        Progress(progress, context, image, static_cast<uint32_t>(a));
        const uint64_t left = uint64_t(lastAddr) + 1 - a;
        const uint32_t n = static_cast<uint32_t>(left < 16 ? left : 16);
        char* q = line;
        *q++ = ' ';
        for (uint32_t i = 0; i < n; i++, a++) {
          const int v = MEMIMAGE_ReadByte(image, static_cast<uint32_t>(a));
          *q++ = ' ';
          *q++ = '0';
          *q++ = 'x';
          q = PutHexByte(q, v < 0 ? 0xFFu : static_cast<uint32_t>(v & 0xFF));
          if (a != lastAddr) *q++ = ',';
        }
        *q++ = '\r';
        *q++ = '\n';
        FILEWRITER_Write(w, line, static_cast<uint32_t>(q - line));
      }
    }
    FILEWRITER_Write(w, kFooter, sizeof kFooter - 1);
  });
}

int DATAFILE_WriteC(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                    uint32_t firstAddr, uint32_t lastAddr) {
  return DATAFILE_WriteCEx(image, fileName, errorText, errorTextSize, firstAddr, lastAddr, nullptr, nullptr);
}
