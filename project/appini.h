// The small application settings store: program-wide values such as the
// path of the current project, kept in a settings file of their own apart
// from the project file. Every write saves the whole file at once.
#pragma once
#include <cstdint>

// Sets the file (a change of name makes the next access read it anew) and the
// function that reports its errors (none: errors are not reported).
void APPINI_SetFile(const char* fileName, void (*errorOut)(const char* text));
// Raw value text up to the line end; 0 or -1.
int  APPINI_GetRaw(const char* section, const char* key, char* buffer, int size);
int  APPINI_GetString(const char* section, const char* key, char* buffer, int size);
int  APPINI_GetU32(const char* section, const char* key, uint32_t* value);   // "0x" form only
int  APPINI_GetDec(const char* section, const char* key, int32_t* value);    // 0..2147483647
// Writes replace the key's line and save the whole file; 0 or -1.
int  APPINI_SetString(const char* section, const char* key, const char* value);
int  APPINI_SetHex8(const char* section, const char* key, uint32_t value);
int  APPINI_SetDec(const char* section, const char* key, int32_t value);
