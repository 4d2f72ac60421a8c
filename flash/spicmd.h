// SPI flash command layer: frames commands from the project's opcodes, reads
// and tests the status register, removes write protection, erases sectors or
// the chip, programs pages in batches through the probe library's batch
// function, and reads ranges back.
#pragma once
#include <cstdint>
#include "project/flashparams.h"

struct MemImage;

constexpr uint32_t SPI_READ_CHUNK = 0x20000;      // bytes per read transaction
constexpr uint32_t SPI_MAX_BATCH_PAGES = 32;
constexpr uint32_t SPI_MAX_BATCH_BYTES = 8192;
constexpr uint32_t SPI_JOBS_PER_PAGE = 5;
constexpr uint32_t SPI_POLL_MAX_REPEAT = 100000;

// ---- Pieces that need no probe ----
// Writes the opcode and NumAddrBytes address bytes (most significant first;
// above 4 behaves as 4) to out[0..4]; returns the number of bytes.
int SPI_BuildAddressedCommand(const FlashParams* fp, uint8_t opcode, uint32_t address, uint8_t out[5]);
// 1 when the status byte means ready.
int SPI_IsReadyStatus(const FlashParams* fp, uint8_t status);
// Protection bits checked before writing, by chip class.
uint8_t SPI_ProtectMask(uint8_t chipClass);
// Pages per batch for a page size of 2^pageSizeShift (at least one).
uint32_t SPI_BatchPages(uint32_t pageSizeShift);

// ---- Bus work; the flash parameters come from the open project ----
// Reads the status register into *status.
void SPI_ReadStatus(const FlashParams* fp, uint8_t* status);
void SPI_PrepareWrite(void);
// 0, or -1 after a reported time-out.
int  SPI_EraseSector(uint32_t sectorIndex);
int  SPI_EraseChip(void);
// Programs whole pages from address; 0, or -1 after a reported error.
int  SPI_ProgramPages(uint32_t address, uint32_t length, const uint8_t* data);
// Reads [start, end] widened to 4-byte words into image; 0, or -1 after a
// reported error.
int  SPI_ReadRange(MemImage* image, uint32_t start, uint32_t end);
// One read transaction of length bytes into a caller's buffer (no widening).
void SPI_ReadBytes(const FlashParams* fp, uint32_t address, uint32_t length, uint8_t* dest);
