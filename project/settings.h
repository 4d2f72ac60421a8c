// The project file's text store: the whole file held as one text in memory,
// keys looked up by scanning it and changed by splicing lines into it.
// One store per process. A null or empty section names the lines before the
// first header. Results: 0 success, -1 failure unless stated.
#pragma once
#include <cstdint>

// ---- File operations ----
int  SETTINGS_Open(const char* fileName);   // null: reuse the stored name
int  SETTINGS_New(const char* fileName);    // null: no name
int  SETTINGS_Save(const char* fileName);   // 0, -1, -2 (could not open for writing / read-only)
int  SETTINGS_Close(void);
int  SETTINGS_Clear(void);
int  SETTINGS_IsOpen(void);                 // 1, 0, -1 after shutdown
const char* SETTINGS_GetFileName(void);     // null when no file is open
int  SETTINGS_GetModified(void);            // -1 when no file is open
// Opens the store on a text held in memory (no file name). For tests and the
// parser fuzz entry point.
int  SETTINGS_OpenText(const char* text, uint32_t length);
// The current text and its length (valid until the next change), or null.
const char* SETTINGS_GetText(uint32_t* length);
// 1 when the key has a line in the section, else 0. Never prints.
int  SETTINGS_HasKey(const char* section, const char* key);

// ---- Typed reads (each clears its output first) ----
int SETTINGS_GetU32(const char* section, const char* key, uint32_t* value);
int SETTINGS_GetI32(const char* section, const char* key, int32_t* value);
// Returns -1 in every case, also on success; callers look at the text.
int SETTINGS_GetString(const char* section, const char* key, char* buffer, int size);
int SETTINGS_GetByteArray(const char* section, const char* key, uint8_t* bytes, int capacity);
int SETTINGS_GetDecByteArray(const char* section, const char* key, uint8_t* bytes, int capacity);
int SETTINGS_GetIndexSet(const char* section, const char* key, uint8_t* flags, int numFlags);

// ---- Typed writes (replace or insert one line; each counts as a change) ----
void SETTINGS_SetHex8(const char* section, const char* key, uint32_t value);
void SETTINGS_SetDec(const char* section, const char* key, int32_t value);
void SETTINGS_SetHex32(const char* section, const char* key, uint32_t value);
void SETTINGS_SetString(const char* section, const char* key, const char* text);
void SETTINGS_SetByteArray(const char* section, const char* key, const uint8_t* bytes, int count);
void SETTINGS_SetDecByteArray(const char* section, const char* key, const uint8_t* bytes, int count);
void SETTINGS_SetIndexSet(const char* section, const char* key, const uint8_t* flags, int numFlags);
void SETTINGS_DeleteKey(const char* section, const char* key);
