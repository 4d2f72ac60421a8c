// Connection values read by the SPI command layer and the flash operations.
#pragma once
#include <cstdint>

// Time-outs in milliseconds, set at the start of every connect: status
// polling after a sector erase, and after a chip erase.
uint32_t SPI_GetSectorEraseTimeout(void);
uint32_t SPI_GetChipEraseTimeout(void);
