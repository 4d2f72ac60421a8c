// Program-wide state owned by the command line, and the data-file dispatch
// by extension that the command line calls.
#pragma once
#include <cstdint>

struct MemImage;

// The one current data image, or null. Setting it frees the old one unless
// it is the same object.
MemImage* APP_GetCurrentImage(void);
void      APP_SetCurrentImage(MemImage* image);

// Open or save a data file chosen by extension (".pellam" opens a project).
// 0 on success, non-zero on failure.
int DATAFILE_Open(const char* path, int32_t baseAddress);
int DATAFILE_Save(MemImage* image, const char* path, int32_t startAddress, int32_t endAddress);

// Addresses remembered from the last binary open and the last range save.
extern int32_t LastBinBaseAddress;
extern int32_t LastSaveStart;
extern int32_t LastSaveEnd;

int  APP_Init(void);
void APP_Exit(void);
