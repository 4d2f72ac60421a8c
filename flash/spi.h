// The SPI_ interface: the connection to the probe (selection, open, SPI
// interface, speed, target power, reset, init/exit sequences, chip
// detection) and the SPI flash command layer below the flash operations
// (command framing from the project's opcodes, status polling, write
// protection, erase, batched page programming, read-back).
#pragma once
#include <cstdint>
#include "project/flashparams.h"

struct MemImage;

// Connection selection (command-line override or project).
struct ConnectionChoice {
  uint8_t  mode;            // 0 USB by index, 1 USB by serial number, 2 TCP/IP
  char     hostName[128];
  uint32_t serialOrIndex;
};

// ---- Connection ----
void SPI_SetConnectionOverride(const ConnectionChoice* choice);  // null clears it
void SPI_SetTarloLogPath(const char* path);                      // null: none
void SPI_SetTargetPower(uint32_t enabled, uint32_t delayMs);
int  SPI_Connect(void);          // 0 connected, 1 failure
void SPI_Disconnect(void);
int  SPI_OpenProbe(void);        // 0, -1, -256, -259, -261
void SPI_CloseProbe(void);
int  SPI_DetectFlash(void);
void SPI_OnExit(void);
int  SPI_IsConnected(void);

// Time-outs in milliseconds, set at the start of every connect: status
// polling after a sector erase, and after a chip erase.
uint32_t SPI_GetSectorEraseTimeout(void);
uint32_t SPI_GetChipEraseTimeout(void);

// ---- SPI flash command layer ----
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
