// The buffered output file every data-file writer writes through.
#pragma once
#include <cstdint>

// Buffered output file of every writer (32 KiB buffer).
struct FileWriter {
  int      file;
  uint8_t* buffer;
  char*    errorText;
  uint32_t buffered;
  uint32_t errorTextSize;
  int      failed;      // set by the first failed write, even without an error buffer
};

// Clears the whole error buffer (errorTextSize bytes; may be null), then
// creates or truncates the file, making missing folders. Returns the writer,
// owned by the caller until FILEWRITER_Close; null after storing the
// message (invalid name, no memory, or the open's failure).
FileWriter* FILEWRITER_Open(const char* fileName, char* errorText, uint32_t errorTextSize);
// Appends count bytes from `bytes` (the caller's, copied), or count bytes of
// 0xFF when it is null. A failed write of the full buffer sets `failed` and
// stores "Error writing file." (first error wins). Null writer: nothing.
void FILEWRITER_Write(FileWriter* writer, const void* bytes, uint32_t count);
// Writes what is buffered, closes the file and frees the writer (also on
// failure). 0, or -1 when this or any earlier write failed or the writer
// is null.
int FILEWRITER_Close(FileWriter* writer);
