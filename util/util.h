// Bounded text formatter and small string/number helpers.
// Every message and generated text of the program is built with UTIL_snprintf.
#pragma once
#include <cstdarg>
#include <cstdint>

// Formats into buffer (at most size-1 characters, always terminated when
// size > 0). Returns the address of the terminating zero, so formats can be
// chained. Conversions: %% d i u x X c s p, width, .precision, l / ll.
char* UTIL_snprintf(char* buffer, int size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
char* UTIL_vsnprintf(char* buffer, int size, const char* format, va_list args)
    __attribute__((format(printf, 3, 0)));

int  UTIL_strlen(const char* s);
void UTIL_strcpy(char* dest, const char* src, int size);
void UTIL_strcat(char* dest, const char* src, int size);
void UTIL_strncat(char* dest, const char* src, int count, int size);
int  UTIL_stricmp(const char* a, const char* b);
int  UTIL_strnicmp(const char* a, const char* b, int count);
int  UTIL_memcmp(const void* a, const void* b, int count);
int  UTIL_FindFirstByteNot(const void* data, uint8_t value, int count);
uint64_t UTIL_AbsDiff(uint64_t a, uint64_t b);
int  UTIL_ParseU32(const char* text, uint32_t* result);
// Value 0..15 of a hexadecimal digit in either case; -1 for any other character.
constexpr int UTIL_HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
void UTIL_StoreU32LE(uint8_t* bytes, uint32_t value);
void UTIL_StoreU32(uint8_t* bytes, uint32_t value, int bigEndian);
// Returns null on success (token copied, cursor advanced) or a complaint text.
const char* UTIL_ParseToken(const char** cursor, char* result, int maxLength, char delimiter);

// Formatting helpers (not used by the program itself, kept with the layer).
struct UTIL_REGION { uint32_t numSectors; uint32_t sectorSize; };
void UTIL_PrintBytes(char* buffer, int size, uint32_t numBytes);
void UTIL_PrintRegions(char* buffer, int size, const UTIL_REGION* regions, int numRegions);
void UTIL_PrintDuration(char* buffer, int size, uint64_t microseconds);
void UTIL_PrintFloatBits(char* buffer, int size, uint32_t bits);
void UTIL_PrintHWAddr(char* buffer, int size, const uint8_t* addr6, char separator);
void UTIL_PrintIPv4(char* buffer, int size, uint32_t addr);   // addr bytes a.b.c.d from high to low
const char* UTIL_GetOSName(uint32_t code);

// Copies a record exchanged with the probe library; both records begin with a
// 32-bit size field counting the whole record.
void UTIL_CopyAPIStruct(void* dest, const void* src, const char* structName);
