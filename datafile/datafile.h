// Readers and writers of the data file formats (binary, Intel HEX,
// S-record, C source), and opening or saving a data file chosen by its
// extension. Readers fill
// a caller's fresh image; writers store an image or an address window of it.
// Errors go into the caller's text buffer: the first message wins.
#pragma once
#include <cstdint>

struct MemImage;

struct DATAFILE_PROGRESS {
  uint32_t address;     // address of the chunk or record being handled
  uint32_t numRanges;   // the image's range count at that moment
};
typedef void (*DATAFILE_PROGRESS_FUNC)(void* context, const DATAFILE_PROGRESS* progress);

// Readers: 0 on success; -1 open failed; -3 out of memory; -4 wrong first
// character; -5 malformed record or overlapping data.
int DATAFILE_ReadBin(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                     uint32_t startAddr);
int DATAFILE_ReadBinEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       uint32_t startAddr, DATAFILE_PROGRESS_FUNC progress, void* context);
int DATAFILE_ReadHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_ReadHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context);
int DATAFILE_ReadMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_ReadMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context);

// Writers: 0 on success, -1 on failure (message in errorText).
int DATAFILE_WriteBin(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                      uint32_t firstAddr, uint32_t lastAddr);
int DATAFILE_WriteBinEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        uint32_t firstAddr, uint32_t lastAddr, DATAFILE_PROGRESS_FUNC progress, void* context);
int DATAFILE_WriteHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_WriteHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context);
int DATAFILE_WriteMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_WriteMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context);
int DATAFILE_WriteC(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                    uint32_t firstAddr, uint32_t lastAddr);
int DATAFILE_WriteCEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                      uint32_t firstAddr, uint32_t lastAddr, DATAFILE_PROGRESS_FUNC progress, void* context);

// Stores a message into the error buffer if it is still empty (first error wins).
void DATAFILE_StoreError(char* errorText, uint32_t errorTextSize, const char* message);

// Open or save a data file chosen by extension (".pellam" opens a project).
// Each is one top-level operation of the log; an opened image becomes the
// application's current image. They are defined in app/, beside the current
// image they replace and the project they may open.
// 0 on success, non-zero on failure.
int DATAFILE_Open(const char* path, int32_t baseAddress);
int DATAFILE_Save(MemImage* image, const char* path, int32_t startAddress, int32_t endAddress);
