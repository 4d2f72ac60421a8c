// Probe connection (being written).
#include "flash/connect.h"
#include "flash/flash.h"

namespace {
uint32_t SectorEraseTimeout = 5000;
uint32_t ChipEraseTimeout = 400000;
}

uint32_t SPI_GetSectorEraseTimeout(void) { return SectorEraseTimeout; }
uint32_t SPI_GetChipEraseTimeout(void) { return ChipEraseTimeout; }
void SPI_SetConnectionOverride(const ConnectionChoice*) {}
void SPI_SetTarloLogPath(const char*) {}
void SPI_SetTargetPower(uint32_t, uint32_t) {}
int  SPI_Connect(void) { return 1; }
void SPI_Disconnect(void) {}
int  SPI_OpenProbe(void) { return -1; }
void SPI_CloseProbe(void) {}
int  SPI_DetectFlash(void) { return -1; }
void SPI_OnExit(void) {}
int  SPI_IsConnected(void) { return 0; }
