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

// String helpers. All tolerate null pointers and sizes below 1 by doing
// nothing (or returning 0); the copying ones always terminate the result
// within `size` bytes.
int  UTIL_strlen(const char* s);
// Copies at most size - 1 characters.
void UTIL_strcpy(char* dest, const char* src, int size);
// Appends as much of src as fits in size - 1 characters in total.
void UTIL_strcat(char* dest, const char* src, int size);
// Appends at most count characters of src, within size - 1 in total.
void UTIL_strncat(char* dest, const char* src, int count, int size);
// Case-insensitive comparisons ("A".."Z" folded): the difference of the first
// differing folded characters as signed values, 0 when equal. The n-form
// compares at most count characters.
int  UTIL_stricmp(const char* a, const char* b);
int  UTIL_strnicmp(const char* a, const char* b, int count);
// Index of the first differing byte, or -1 when all count bytes are equal
// (also for count below 1). Not an ordering, unlike memcmp.
int  UTIL_memcmp(const void* a, const void* b, int count);
// Index of the first byte that is not value, or -1 when there is none.
int  UTIL_FindFirstByteNot(const void* data, uint8_t value, int count);
uint64_t UTIL_AbsDiff(uint64_t a, uint64_t b);
// A decimal number, or hexadecimal after "0x"/"0X", at the start of text
// (32-bit, wraps). 0 with *result set, -1 when text does not start with a
// digit or "0x" has no hex digit after it.
int  UTIL_ParseU32(const char* text, uint32_t* result);
// Value 0..15 of a hexadecimal digit in either case; -1 for any other character.
constexpr int UTIL_HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
// Stores value in 4 bytes: little-endian, or big-endian when bigEndian is set.
void UTIL_StoreU32LE(uint8_t* bytes, uint32_t value);
void UTIL_StoreU32(uint8_t* bytes, uint32_t value, int bigEndian);
// Skips blanks, then takes the token up to the end of the text, a line end, a
// space or delimiter. Returns null on success (token copied, cursor advanced
// past it) or a complaint: "Expected a string" when empty, "Maximum string
// length exceeded" when it has maxLength characters or more.
const char* UTIL_ParseToken(const char** cursor, char* result, int maxLength, char delimiter);

// Formatting helpers (not used by the program itself, kept with the layer).
// Each writes a terminated text of at most size - 1 characters.
struct UTIL_REGION { uint32_t numSectors; uint32_t sectorSize; };
// "0 Bytes", "1 Byte", "1.5 KB", "4 MB", "2 GB": the largest unit that
// divides the count, or a half of it, else bytes.
void UTIL_PrintBytes(char* buffer, int size, uint32_t numBytes);
// Each region's total as UTIL_PrintBytes writes it, joined by " + ".
void UTIL_PrintRegions(char* buffer, int size, const UTIL_REGION* regions, int numRegions);
// "[h:][m:]s.mmm uuu" from microseconds.
void UTIL_PrintDuration(char* buffer, int size, uint64_t microseconds);
// A single-precision value from its bit pattern ("%.6G"; "Infinite",
// "NaNq"/"NaNs", signed zero).
void UTIL_PrintFloatBits(char* buffer, int size, uint32_t bits);
// Six bytes as upper-case hex pairs joined by separator.
void UTIL_PrintHWAddr(char* buffer, int size, const uint8_t* addr6, char separator);
void UTIL_PrintIPv4(char* buffer, int size, uint32_t addr);   // addr bytes a.b.c.d from high to low
// Name of an operating-system code, "Unknown" for codes not known.
const char* UTIL_GetOSName(uint32_t code);

// Copies a record exchanged with the probe library; both records begin with a
// 32-bit size field counting the whole record.
void UTIL_CopyAPIStruct(void* dest, const void* src, const char* structName);
