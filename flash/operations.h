// Pieces of the user-level flash operations that need no probe: sector
// marking and runs, the fit check, and the range-list text.
#pragma once
#include <cstdint>

struct MemImage;

// Sets flags[i] to 1 for every sector (2^sectorShift bytes, numSectors of them)
// that a range of image touches; returns the number of sectors marked. Ranges
// beyond the last sector are ignored (the fit check refuses them first).
uint32_t FLASHOPS_MarkSectors(MemImage* image, uint32_t sectorShift, uint8_t* flags, uint32_t numSectors);
// Number of runs of consecutive non-zero flags.
uint32_t FLASHOPS_CountRuns(const uint8_t* flags, uint32_t count);
// Finds the next run of non-zero flags at or after *index: 1 with its first
// and last index (and *index moved past it), 0 when there is none.
int FLASHOPS_NextRun(const uint8_t* flags, uint32_t count, uint32_t* index, uint32_t* first, uint32_t* last);
// 0 when every range of image lies inside [0, chipSize); 1 when one does not
// (its first and last address returned); -1 when out of memory.
int FLASHOPS_CheckFit(MemImage* image, uint64_t chipSize, uint32_t* first, uint32_t* last);
// Appends ", 0x<first> - 0x<last>" to the text in list (bounded by size).
void FLASHOPS_AppendRange(char* list, int size, uint32_t first, uint32_t last);
