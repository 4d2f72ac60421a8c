// The FLASH_ interface: the user-level flash operations behind the
// command-line actions, chip detection, and the pieces of those operations
// that need no probe (sector marking and runs, the fit check, range lists).
#pragma once
#include <cstdint>

struct MemImage;

// ---- User-level operations ----
// Each is one top-level operation of the log: it connects when not
// connected, reports its own failures, and ends with its result line. They
// return 0 on success and 1 on failure; none changes the image it is given.

// -erasechip: erases the whole chip (skipped, with success, for a memory
// that takes no erase).
int FLASH_EraseChip(void);
// -erasesectors: erases the sectors selected in the project.
int FLASH_EraseSelectedSectors(void);
// -program: programs image (which must fit into the chip) without erasing.
int FLASH_Program(MemImage* image);
// -verify: compares the flash with image; the first difference fails it.
int FLASH_Verify(MemImage* image);
// -programverify: the fit check, program, then verify.
int FLASH_ProgramVerify(MemImage* image);
// -auto: reads back the sectors image touches, erases and programs only those
// that change, verifies, and runs the exit sequence.
int FLASH_Auto(MemImage* image);
// -readrange: a new image of the flash bytes [start, end] widened to whole
// 4-byte words (the caller owns it), or null after a reported failure.
MemImage* FLASH_ReadRange(uint32_t start, uint32_t end);
// -readchip: a new image of every address range of the chip (the caller
// owns it), or null after a reported failure.
MemImage* FLASH_ReadChip(void);

// Reads the ID, stores it in the project's abID and, when the table knows
// it, applies that chip to the project's FlashParams and makes it current.
// 0 when a chip was identified, -1 when not (reported). The probe must be
// open.
int FLASH_DetectChip(void);

// ---- Pieces that need no probe ----
// Sets flags[i] to 1 for every sector (2^sectorShift bytes, numSectors of them)
// that a range of image touches and to 0 for the others; returns the number
// of sectors marked. Ranges beyond the last sector are ignored (the fit check
// refuses them first). A null image marks nothing.
uint32_t FLASH_MarkSectors(MemImage* image, uint32_t sectorShift, uint8_t* flags, uint32_t numSectors);
// Number of runs of consecutive non-zero flags among flags[0..count).
uint32_t FLASH_CountRuns(const uint8_t* flags, uint32_t count);
// Finds the next run of non-zero flags at or after *index: 1 with its first
// and last index (and *index moved past it), 0 when there is none (*index
// then count).
int FLASH_NextRun(const uint8_t* flags, uint32_t count, uint32_t* index, uint32_t* first, uint32_t* last);
// 0 when every range of image lies inside [0, chipSize) (always for a chip
// of 4 GiB or more); 1 when one does not (the first such range's first and
// last address returned); -1 when out of memory.
int FLASH_CheckFit(MemImage* image, uint64_t chipSize, uint32_t* first, uint32_t* last);
// Appends ", 0x<first> - 0x<last>" to the text in list, truncating at size
// less one and always terminating.
void FLASH_AppendRange(char* list, int size, uint32_t first, uint32_t last);
