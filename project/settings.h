// The project file's text store: the whole file held as one text in memory,
// keys looked up by scanning it and changed by splicing lines into it.
// One store per process. A null or empty section names the lines before the
// first header. Results: 0 success, -1 failure unless stated.
#pragma once
#include <cstdint>

// Every operation but SETTINGS_Open, SETTINGS_New, SETTINGS_OpenText and
// the queries needs an open store: without one it prints the warning "No
// project file opened." and fails (-1, null) or does nothing.

// ---- File operations ----
// Discards the current text and reads the whole file (null: the stored
// name; a name under 512 characters becomes the stored name). 0: open,
// modified 0. -1: the reason is reported; the store is closed, its name empty.
int  SETTINGS_Open(const char* fileName);
// Discards the current text and starts an empty store (null: no name),
// modified 1; nothing is written. -1, reported, for a name of 512
// characters or more or an existing file; the store is then closed.
int  SETTINGS_New(const char* fileName);
// Writes the text to the file (null: the stored name; a name under 512
// characters becomes it) only when modified is not 0; modified is 0 after a
// successful write. 0 (also when nothing had to be written); -1 or -2 (could
// not open for writing, or the file is read-only), reported; a failed save
// leaves the text and the file as they were.
int  SETTINGS_Save(const char* fileName);
// Frees the text and empties the name without writing. 0 or -1.
int  SETTINGS_Close(void);
// Empties the text (the store stays open) and counts one change. 0 or -1.
int  SETTINGS_Clear(void);
// 1 open, 0 closed, -1 after shutdown. Never prints.
int  SETTINGS_IsOpen(void);
// The stored name (valid until the next open, new or close), or null
// without an open store.
const char* SETTINGS_GetFileName(void);
// Changes since the last open or save; -1 without an open store. Never prints.
int  SETTINGS_GetModified(void);
// Opens the store on a copy of `length` bytes of `text` (no file name,
// modified 0). 0, or -1 when the copy cannot be allocated. For tests and the
// parser fuzz entry point.
int  SETTINGS_OpenText(const char* text, uint32_t length);
// The current text, zero-terminated, and its length in *length (may be
// null), valid until the next change; null and 0 without an open store.
const char* SETTINGS_GetText(uint32_t* length);
// 1 when the key has a line in the section, else 0. Never prints.
int  SETTINGS_HasKey(const char* section, const char* key);
// Lookups go through an index of the text's header and key lines (on, the
// default) or scan the text line by line (0). Both give the same answers;
// tests and benchmarks compare them. Drops the index.
void SETTINGS_SetIndexed(int on);

// ---- Typed reads ----
// Each clears its output first. A missing key gives -1 and prints nothing;
// a value that does not parse gives -1 and prints the parse message as an
// error. Numbers are "0x" and hexadecimal digits, or optionally signed
// decimal; no digit at all reads as 0 without complaint.

// 0 with a value in -4294967296..4294967295, stored modulo 2^32.
int SETTINGS_GetU32(const char* section, const char* key, uint32_t* value);
// 0 with a value in -2147483648..2147483647.
int SETTINGS_GetI32(const char* section, const char* key, int32_t* value);
// A quoted text, cut to size-1 characters (the cut prefix stays and counts
// as a parse error). Returns -1 in every case, also on success; callers
// look at the text.
int SETTINGS_GetString(const char* section, const char* key, char* buffer, int size);
// The first min([count], capacity) elements after "Key[count] =", each 0..255
// ("0x" or decimal), separated by ',' or blanks; no [count] reads none. 0 or -1.
int SETTINGS_GetByteArray(const char* section, const char* key, uint8_t* bytes, int capacity);
// As SETTINGS_GetByteArray with decimal elements only; values above 255
// become 255 without complaint.
int SETTINGS_GetDecByteArray(const char* section, const char* key, uint8_t* bytes, int capacity);
// Sets flags[i] to 1 for every index i named by the [count] items "a" or
// "a-b" (0..32767); an item starting at or beyond numFlags ends the read. 0 or -1.
int SETTINGS_GetIndexSet(const char* section, const char* key, uint8_t* flags, int numFlags);

// ---- Typed writes ----
// Each replaces the key's line, or inserts it (in name order in every
// section but "CPU", which keeps the order of writing; a missing section is
// appended with its header), and counts one change. A line is cut at 2048
// bytes (4096 for arrays). A write that cannot grow the text does nothing.

// "  key = 0xHH" with the low 8 bits of the value.
void SETTINGS_SetHex8(const char* section, const char* key, uint32_t value);
// "  key = n".
void SETTINGS_SetDec(const char* section, const char* key, int32_t value);
// "  key = 0xHHHHHHHH".
void SETTINGS_SetHex32(const char* section, const char* key, uint32_t value);
// "  key = \"text\""; nothing for a null text.
void SETTINGS_SetString(const char* section, const char* key, const char* text);
// "  key[count] = 0xHH,..."; nothing for null bytes or a count below 1.
void SETTINGS_SetByteArray(const char* section, const char* key, const uint8_t* bytes, int count);
// "  key[count] = n,..."; nothing for null bytes or a count below 1.
void SETTINGS_SetDecByteArray(const char* section, const char* key, const uint8_t* bytes, int count);
// "  key[items] = " and one item "a" or "a-b" per run of set flags; items
// beyond a 3968-character line are left out. Nothing for null flags or a
// count below 1.
void SETTINGS_SetIndexSet(const char* section, const char* key, const uint8_t* flags, int numFlags);
// Removes the key's line, if present (one change).
void SETTINGS_DeleteKey(const char* section, const char* key);
