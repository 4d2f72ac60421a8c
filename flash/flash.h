// Connection to the probe, SPI command layer, chip detection and the
// user-level flash operations behind the command-line actions.
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
