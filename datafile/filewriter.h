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

// Clears the whole error buffer, then opens (creates, truncates) the file.
// Null after storing a message.
FileWriter* FILEWRITER_Open(const char* fileName, char* errorText, uint32_t errorTextSize);
// Appends count bytes; a null source appends count bytes of 0xFF.
void FILEWRITER_Write(FileWriter* writer, const void* bytes, uint32_t count);
// Writes what is buffered, closes the file and frees the writer. 0, or -1
// when this or any earlier write of the writer failed.
int FILEWRITER_Close(FileWriter* writer);
