// The chip parameter record: command bytes, address handling, status-bit
// convention and geometry of the SPI flash. Held by the project, filled by
// chip detection, read by the connection, command layer and operations.
#pragma once
#include <cstdint>

struct FlashParams {
  uint8_t  CmdWriteEnable;
  uint8_t  CmdWriteDisable;
  uint8_t  CmdReadID;
  uint8_t  CmdReadStatus;
  uint8_t  CmdWriteStatus;
  uint8_t  CmdReadData;
  uint8_t  CmdWritePage;
  uint8_t  CmdEraseSector;
  uint8_t  CmdEraseBulk;
  uint8_t  CmdEnter4ByteMode;
  uint8_t  CmdExit4ByteMode;
  uint8_t  NumAddrBytes;
  uint8_t  Dedicated4BAddrMode;
  uint8_t  StatusIsReadyBit;
  uint8_t  StatusBitPos;
  uint32_t AutoDetect;
  uint32_t FlashType;
  uint32_t NumPages;
  uint32_t PageSizeShift;
  uint32_t SectorSizeShift;
  uint8_t  abID[3];
  uint8_t  ChipClass;
};

// Derived geometry.
inline uint64_t FLASHPARAMS_ChipSize(const FlashParams& p) {
  return p.PageSizeShift >= 64 ? 0 : (uint64_t)p.NumPages << p.PageSizeShift;
}
inline uint64_t FLASHPARAMS_NumSectors(const FlashParams& p) {
  return p.SectorSizeShift >= 64 ? 0 : FLASHPARAMS_ChipSize(p) >> p.SectorSizeShift;
}
