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

// Readers. Each fills a caller's image (meant to be fresh: nothing is
// cleared, overlapping data fails) under its lock, sets its changeCount to 0
// whatever the outcome, and keeps what it loaded before a failure (the
// caller discards the image then). errorText (errorTextSize bytes, may be
// null) receives the first failure's message, cut to fit. Results: 0 read
// to the end; -1 null image, file not opened (its open message) or, for
// binary files, too large for the address space or no chunk buffer; -3 out of memory; -4 the
// first character does not fit the format; -5 a malformed record, data past
// 0xFFFFFFFF or overlapping data, with "Error in line %d: %s". The Ex forms
// call progress (when not null) with context before each chunk or data
// record is added; the plain forms pass none.
//
// Binary file at startAddr upwards, in chunks of 32 KiB. 0, -1 or -3.
int DATAFILE_ReadBin(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                     uint32_t startAddr);
int DATAFILE_ReadBinEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       uint32_t startAddr, DATAFILE_PROGRESS_FUNC progress, void* context);
// Intel HEX file. 0, -1, -3, -4 or -5.
int DATAFILE_ReadHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_ReadHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context);
// S-record file. 0, -1, -3, -4 or -5.
int DATAFILE_ReadMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_ReadMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                       DATAFILE_PROGRESS_FUNC progress, void* context);

// Writers. Each locks the image, commits its patches, and creates or
// truncates the file through a FileWriter (which clears errorText first).
// 0 written, the image left marked unchanged (changeCount 0); -1 when
// errorText or image is null, or the file could not be written (the first
// message in errorText, when it has room; changeCount is then restored).
// The Ex forms call progress (when not null) with context before each
// record, block or line is written; the plain forms pass none.
//
// Binary: [firstAddr, lastAddr], from firstAddr up to the last byte of the
// image in it, gaps as 0xFF; nothing in the window gives an empty file.
int DATAFILE_WriteBin(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                      uint32_t firstAddr, uint32_t lastAddr);
int DATAFILE_WriteBinEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        uint32_t firstAddr, uint32_t lastAddr, DATAFILE_PROGRESS_FUNC progress, void* context);
// Intel HEX: the whole image in records of up to 32 bytes, with extended
// linear address records, ending with the end-of-file record.
int DATAFILE_WriteHex(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_WriteHexEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context);
// S-records: the whole image in S1, S2 or S3 records of up to 32 bytes,
// ending with an S9 record.
int DATAFILE_WriteMot(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize);
int DATAFILE_WriteMotEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                        DATAFILE_PROGRESS_FUNC progress, void* context);
// C source: one byte array of [firstAddr, lastAddr], 16 values a line,
// addresses without a byte as 0xFF; lastAddr below firstAddr writes no
// values.
int DATAFILE_WriteC(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                    uint32_t firstAddr, uint32_t lastAddr);
int DATAFILE_WriteCEx(MemImage* image, const char* fileName, char* errorText, uint32_t errorTextSize,
                      uint32_t firstAddr, uint32_t lastAddr, DATAFILE_PROGRESS_FUNC progress, void* context);

// Stores message (cut to errorTextSize - 1 characters and terminated) when
// errorText is not null, has room and is still empty: the first error wins.
void DATAFILE_StoreError(char* errorText, uint32_t errorTextSize, const char* message);

// Open or save a data file chosen by extension (".pellam" opens a project).
// Each is one top-level operation of the log; an opened image becomes the
// application's current image. They are defined in app/, beside the current
// image they replace and the project they may open.
// 0 on success, non-zero on failure.
int DATAFILE_Open(const char* path, int32_t baseAddress);
int DATAFILE_Save(MemImage* image, const char* path, int32_t startAddress, int32_t endAddress);
