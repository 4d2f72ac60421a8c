// The small application settings store: program-wide values such as the
// path of the current project, kept in a settings file of their own apart
// from the project file. Every write saves the whole file at once.
#pragma once
#include <cstdint>

// Section and key names compare case-sensitively; a key is followed by '='
// or a space. Every operation takes the store's lock. The file is read on
// first use after its name was set (at most 29999 bytes). Every result is 0
// or -1; -1 also when no file name is set or the section or key is null.
// Parse and file errors go to the error function, none when it is null.

// Sets the file (a change of name makes the next access read it anew) and the
// function that reports its errors (none: errors are not reported).
void APPINI_SetFile(const char* fileName, void (*errorOut)(const char* text));
// The value's raw text, from after '=' and blanks up to the line end, cut
// to size-1 characters. -1 when the key is missing.
int  APPINI_GetRaw(const char* section, const char* key, char* buffer, int size);
// A quoted text on one line, cut to size-1 characters; a missing quote is a
// parse error. -1 when missing or not parsed (the buffer may hold a prefix).
int  APPINI_GetString(const char* section, const char* key, char* buffer, int size);
// "0x" and at least one hexadecimal digit; anything else is a parse error.
// *value is 0 unless 0 is returned.
int  APPINI_GetU32(const char* section, const char* key, uint32_t* value);
// Decimal digits, 0..2147483647; anything else is a parse error. *value is
// 0 unless 0 is returned.
int  APPINI_GetDec(const char* section, const char* key, int32_t* value);
// Each write takes out any line of the key, puts the new line directly
// after the section's header (appending "[section]" when missing) and saves
// the whole file. -1 when the text would exceed its 30000-byte buffer or the
// save fails (reported).
// "key=\"value\""; -1 for a null value.
int  APPINI_SetString(const char* section, const char* key, const char* value);
// "key = 0xHH" with the low 8 bits of the value.
int  APPINI_SetHex8(const char* section, const char* key, uint32_t value);
// "key = n".
int  APPINI_SetDec(const char* section, const char* key, int32_t value);
