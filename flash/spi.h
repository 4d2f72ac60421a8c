// The SPI_ interface: the connection to the probe (selection, open, SPI
// interface, speed, target power, reset, init/exit sequences, chip
// detection) and the SPI flash command layer below the flash operations
// (command framing from the project's opcodes, status polling, write
// protection, erase, batched page programming, read-back).
//
// Everything here runs on the one program thread. Functions that talk to the
// chip need the probe open (SPI_OpenProbe, or a connection) and take the
// flash parameters from the open project; they report failures themselves
// through the operation log.
#pragma once
#include <cstdint>
#include "project/flashparams.h"

struct MemImage;

// Connection selection (command-line override or project).
struct ConnectionChoice {
  uint8_t  mode;            // PROJECT_CONNECT_*: 0 USB by index, 1 USB by serial number, 2 TCP/IP
  char     hostName[128];
  uint32_t serialOrIndex;
};

// ---- Connection ----

// Makes *choice the selection of every later open, ahead of the project's
// connection keys; null goes back to the project's. The host name is copied
// and terminated.
void SPI_SetConnectionOverride(const ConnectionChoice* choice);
// The file the probe library logs to from the next open on; null: no library
// log. The connection layer keeps its own copy (the program's only one) and
// hands at most 511 bytes of it to the library; when the copy cannot be
// allocated there is no library log.
void SPI_SetTarloLogPath(const char* path);
// Target power for later opens and closes: enabled non-zero switches the
// probe's supply on at open and off at close, waiting delayMs after each.
void SPI_SetTargetPower(uint32_t enabled, uint32_t delayMs);
// The -connect action: opens the probe, checks or detects the chip, switches
// a 4-byte chip into its mode, runs the init sequence. 0 when connected
// (also when already connected, then silently); 1 on failure, with the
// probe closed again unless only the init sequence failed.
int  SPI_Connect(void);
// The -disconnect action: closes the probe when connected (operation
// "Disconnecting ..."); nothing when not connected.
void SPI_Disconnect(void);
// Opens the probe library connection: selection, SPI interface and speed,
// target power, reset held low (the last three only with a project open).
// 0 on success or when already open; -1 after the exit hook ran or when the
// serial number is not found; -256 open failed; -259 no target power; -261
// no SPI interface. On failure the probe is left closed.
int  SPI_OpenProbe(void);
// Closes the probe when it is open: a 4-byte chip leaves its mode, target
// power goes off, reset is released. Does nothing when it is not open.
void SPI_CloseProbe(void);
// The stand-alone detection (operation "Detecting SPI flash ..."): opens the
// probe, detects the chip, closes the probe (a connection is gone after it).
// 0 when a chip was found, negative when not.
int  SPI_DetectFlash(void);
// The exit hook: disconnects, and refuses every later open.
void SPI_OnExit(void);

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
// above 4 behaves as 4) to out[0..4]; returns the number of bytes, 1 to 5.
int SPI_BuildAddressedCommand(const FlashParams* fp, uint8_t opcode, uint32_t address, uint8_t out[5]);
// 1 when the status byte means ready (bit StatusBitPos equals
// StatusIsReadyBit), else 0.
int SPI_IsReadyStatus(const FlashParams* fp, uint8_t status);
// Pages per batch for a page size of 2^pageSizeShift: at most 32 pages and
// 8 KiB, and at least one page.
uint32_t SPI_BatchPages(uint32_t pageSizeShift);

// ---- Bus work ----
// Removes write protection when the status shows any for the chip class
// (waiting for the status write to finish), and unlocks the global block
// protection of class 9 chips. Failures show in the erase or program after it.
void SPI_PrepareWrite(void);
// Erases sector sectorIndex and waits for ready. 0, or -1 after a reported
// time-out.
int  SPI_EraseSector(uint32_t sectorIndex);
// Erases the whole chip and waits for ready. 0, or -1 after a reported
// time-out.
int  SPI_EraseChip(void);
// Programs length bytes of data from address in whole pages, in batches,
// skipping all-0xFF pages unless the project says not to. 0, or -1 after a
// reported error.
int  SPI_ProgramPages(uint32_t address, uint32_t length, const uint8_t* data);
// Reads [start, end] widened to whole 4-byte words into image, in 128 KiB
// transactions, stopping at an error already reported in the operation.
// 0, or -1 after a reported error.
int  SPI_ReadRange(MemImage* image, uint32_t start, uint32_t end);
// One read transaction of length bytes from address into dest (no widening,
// no checks; a fast-read opcode gets its dummy byte).
void SPI_ReadBytes(const FlashParams* fp, uint32_t address, uint32_t length, uint8_t* dest);
