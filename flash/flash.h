// The FLASH_ interface: the user-level flash operations behind the
// command-line actions, chip detection, and the pieces of those operations
// that need no probe (sector marking and runs, the fit check, range lists).
#pragma once
#include <cstdint>

struct MemImage;

// ---- User-level operations: each is one top-level operation; 0 ok, 1 failed ----
int FLASH_EraseChip(void);
int FLASH_EraseSelectedSectors(void);
int FLASH_Program(MemImage* image);
int FLASH_Verify(MemImage* image);
int FLASH_ProgramVerify(MemImage* image);
int FLASH_Auto(MemImage* image);
// Read operations return a new image (the caller takes ownership) or null.
MemImage* FLASH_ReadRange(uint32_t start, uint32_t end);
MemImage* FLASH_ReadChip(void);

// Reads the ID, stores it in abID and selects the matching chip.
// 0 when a chip was identified, -1 when not. The probe must be open.
int FLASH_DetectChip(void);

// ---- Pieces that need no probe ----
// Sets flags[i] to 1 for every sector (2^sectorShift bytes, numSectors of them)
// that a range of image touches; returns the number of sectors marked. Ranges
// beyond the last sector are ignored (the fit check refuses them first).
uint32_t FLASH_MarkSectors(MemImage* image, uint32_t sectorShift, uint8_t* flags, uint32_t numSectors);
// Number of runs of consecutive non-zero flags.
uint32_t FLASH_CountRuns(const uint8_t* flags, uint32_t count);
// Finds the next run of non-zero flags at or after *index: 1 with its first
// and last index (and *index moved past it), 0 when there is none.
int FLASH_NextRun(const uint8_t* flags, uint32_t count, uint32_t* index, uint32_t* first, uint32_t* last);
// 0 when every range of image lies inside [0, chipSize); 1 when one does not
// (its first and last address returned); -1 when out of memory.
int FLASH_CheckFit(MemImage* image, uint64_t chipSize, uint32_t* first, uint32_t* last);
// Appends ", 0x<first> - 0x<last>" to the text in list (bounded by size).
void FLASH_AppendRange(char* list, int size, uint32_t first, uint32_t last);
