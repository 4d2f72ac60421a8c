// The chip parameter record: command bytes, address handling, status-bit
// convention and geometry of the SPI flash. Held by the project, filled by
// chip detection, read by the connection, command layer and operations.
#pragma once
#include <cstdint>

// Opcodes the program sends itself, whatever the chip's command set says.
constexpr uint8_t FLASHPARAMS_OP_READ_JEDEC_ID = 0x9F;  // detection, and the default CmdReadID
constexpr uint8_t FLASHPARAMS_OP_GLOBAL_UNLOCK = 0x98;  // class 9, before the status write
// Chip erase of the page-based family (class 10): four bytes in one transaction.
constexpr uint8_t FLASHPARAMS_PAGE_BASED_CHIP_ERASE[4] = {0xC7, 0x94, 0x80, 0x9A};

// FlashType: 2 marks a memory that is written without erasing.
constexpr uint32_t FLASHPARAMS_TYPE_FLASH = 1;
constexpr uint32_t FLASHPARAMS_TYPE_NO_ERASE = 2;

// ChipClass values with behaviour of their own (the others only pick the
// unprotect mask).
constexpr uint8_t FLASHPARAMS_CLASS_GLOBAL_UNLOCK = 9;
constexpr uint8_t FLASHPARAMS_CLASS_PAGE_BASED = 10;

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

  bool operator==(const FlashParams&) const = default;
};

// Bytes in the chip, NumPages << PageSizeShift; 0 for a shift of 64 or more.
inline uint64_t FLASHPARAMS_ChipSize(const FlashParams& p) {
  return p.PageSizeShift >= 64 ? 0 : (uint64_t)p.NumPages << p.PageSizeShift;
}
// Sectors in the chip, the chip size >> SectorSizeShift; 0 for a shift of
// 64 or more. Sector i starts at i << SectorSizeShift.
inline uint64_t FLASHPARAMS_NumSectors(const FlashParams& p) {
  return p.SectorSizeShift >= 64 ? 0 : FLASHPARAMS_ChipSize(p) >> p.SectorSizeShift;
}
