// The built-in chip table: data only. The rows are kept exactly as they
// were collected, in this order, including the odd ones: lookup takes the
// first match, so where two rows share an ID the earlier row wins; rows whose
// first ID byte is 0x7F can never match because the ID reader drops
// continuation codes; a few sizes and names are known to be doubtful.
#include "flash/flashdb.h"

namespace {

constexpr bool kAllBytes = false;    // match manufacturer, memory type and capacity
constexpr bool kTypeIgnored = true;  // match manufacturer and capacity only
constexpr uint32_t kPageSizeShift = 8;  // every chip here has 256-byte pages

}  // namespace

// Command sets, bytes in FlashParams order: WriteEnable, WriteDisable, ReadID,
// ReadStatus, WriteStatus, ReadData, WritePage, EraseSector, EraseBulk,
// Enter4ByteMode, Exit4ByteMode, NumAddrBytes, Dedicated4BAddrMode,
// StatusIsReadyBit, StatusBitPos.
const uint8_t FLASHDB_CommandSets[5][FLASHDB_NUM_CMD_BYTES] = {
  // 0: most chips: 64 KiB sector erase, busy bit 0
  {0x06, 0x04, 0x9F, 0x05, 0x01, 0x03, 0x02, 0xD8, 0xC7, 0xB7, 0xE9, 0x03, 0x00, 0x00, 0x00},
  // 1: polled through the flag status register 0x70, ready bit 7
  {0x06, 0x04, 0x9F, 0x70, 0x01, 0x03, 0x02, 0xD8, 0xC7, 0xB7, 0xE9, 0x03, 0x00, 0x01, 0x07},
  // 2: page-based: status 0xD7 ready bit 7, block erase 0x50, no write enable, no chip erase
  {0x00, 0x00, 0x9F, 0xD7, 0x00, 0x03, 0x02, 0x50, 0x00, 0x00, 0x00, 0x03, 0x00, 0x01, 0x07},
  // 3: 4 KiB sector erase 0x20
  {0x06, 0x04, 0x9F, 0x05, 0x01, 0x03, 0x02, 0x20, 0xC7, 0xB7, 0xE9, 0x03, 0x00, 0x00, 0x00},
  // 4: no erase commands, 2 address bytes
  {0x06, 0x04, 0x9F, 0x05, 0x01, 0x03, 0x02, 0x00, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00},
};

// 4-byte address types, applied after the command set (-1: keep the set's value).
//   0: 3-byte addressing, no mode switch
//   1: the chip's own 4-byte opcodes (read 0x13, program 0x12, erase 0xDC)
//   2: switch into 4-byte mode with 0xB7 and out with 0xE9
//   3: 4 address bytes with fast read 0x0B
const Flash4ByteType FLASHDB_4ByteTypes[4] = {
  //  addr  ded  enter  exit  read  write  erase
  {   -1,    0,     0,    0,   -1,    -1,    -1},
  {    4,    0,     0,    0, 0x13,  0x12,  0xDC},
  {    4,    1,  0xB7, 0xE9,   -1,    -1,    -1},
  {    4,   -1,    -1,   -1, 0x0B,    -1,    -1},
};

namespace {

constexpr FlashChipEntry Chip(const char* manufacturer, const char* part, uint8_t mfr,
                              uint8_t type, uint8_t capacity, bool ignoreType,
                              uint32_t sizeShift, uint32_t sectorShift, uint32_t type4B,
                              uint32_t chipClass, int commandSet) {
  const uint32_t flags = (kPageSizeShift << 1) | (ignoreType ? 1u : 0u);
  return FlashChipEntry{
      mfr | (uint32_t(type) << 8) | (uint32_t(capacity) << 16) | (flags << 24),
      sectorShift | (sizeShift << 5) | (chipClass << 10) | (type4B << 14),
      FLASHDB_CommandSets[commandSet], manufacturer, part};
}

}  // namespace

// Columns: manufacturer, part, ID bytes, match rule, log2 size, log2 sector,
// 4-byte address type, chip class, command set.
const FlashChipEntry FLASHDB_ChipTable[] = {
  Chip("Numonyx",      "M25P10-A",         0x20, 0x20, 0x11, kAllBytes,    17, 15, 0,  3, 0),  // 0
  Chip("ST",           "M25PE16",          0x20, 0x80, 0x15, kAllBytes,    21, 16, 0,  3, 0),  // 1
  Chip("ST",           "M25P16",           0x20, 0x20, 0x15, kAllBytes,    21, 16, 0,  3, 0),  // 2
  Chip("ST",           "M25P32",           0x20, 0x20, 0x16, kAllBytes,    22, 16, 0,  3, 0),  // 3
  Chip("ST",           "M25P64",           0x20, 0x20, 0x17, kAllBytes,    23, 16, 0,  3, 0),  // 4
  Chip("ST",           "M25P128",          0x20, 0x20, 0x18, kAllBytes,    24, 18, 0,  3, 0),  // 5
  Chip("Micron",       "M25PX80",          0x20, 0x00, 0x14, kTypeIgnored, 20, 16, 0,  0, 0),  // 6
  Chip("Micron",       "N25Q016A",         0x20, 0x00, 0x15, kTypeIgnored, 21, 16, 0,  0, 1),  // 7
  Chip("Micron",       "N25Q032A",         0x20, 0x00, 0x16, kTypeIgnored, 22, 16, 0,  0, 1),  // 8
  Chip("Micron",       "N25Q064A",         0x20, 0x00, 0x17, kTypeIgnored, 23, 16, 0,  0, 1),  // 9
  Chip("Micron",       "N25Q128A",         0x20, 0x00, 0x18, kTypeIgnored, 24, 16, 0,  0, 1),  // 10
  Chip("Micron",       "N25Q256A",         0x20, 0x00, 0x19, kTypeIgnored, 25, 16, 2,  0, 1),  // 11
  Chip("Micron",       "N25Q512A",         0x20, 0x00, 0x20, kTypeIgnored, 26, 16, 2,  0, 1),  // 12
  Chip("Micron",       "MT25Qxxx1",        0x20, 0x00, 0x21, kTypeIgnored, 27, 16, 2,  0, 1),  // 13
  Chip("Micron",       "MT25Qxxx2",        0x20, 0x00, 0x22, kTypeIgnored, 28, 16, 2,  0, 1),  // 14
  Chip("Spansion",     "S25FL032P",        0x01, 0x02, 0x15, kAllBytes,    22, 16, 0,  2, 0),  // 15
  Chip("Spansion",     "S25FL064P",        0x01, 0x02, 0x16, kAllBytes,    23, 16, 0,  2, 0),  // 16
  Chip("Cypress",      "S25FL064L",        0x01, 0x60, 0x17, kAllBytes,    23, 16, 0,  2, 0),  // 17
  Chip("Adesto",       "AT25PE20",         0x1F, 0x23, 0x00, kAllBytes,    18, 11, 0, 10, 2),  // 18
  Chip("Adesto",       "AT25PE40",         0x1F, 0x24, 0x00, kAllBytes,    19, 11, 0, 10, 2),  // 19
  Chip("Adesto",       "AT25PE80",         0x1F, 0x25, 0x00, kAllBytes,    20, 11, 0, 10, 2),  // 20
  Chip("Adesto",       "AT25PE16",         0x1F, 0x26, 0x00, kAllBytes,    21, 11, 0, 10, 2),  // 21
  Chip("Adesto",       "AT25PE32",         0x1F, 0x27, 0x00, kAllBytes,    22, 11, 0, 10, 2),  // 22
  Chip("Adesto",       "AT45DB641E",       0x1F, 0x28, 0x00, kAllBytes,    23, 11, 0, 10, 2),  // 23
  Chip("Adesto",       "AT25DN256",        0x1F, 0x40, 0x00, kAllBytes,    15, 15, 0,  5, 0),  // 24
  Chip("Adesto",       "AT25xx011",        0x1F, 0x42, 0x00, kAllBytes,    17, 15, 0,  5, 0),  // 25
  Chip("Adesto",       "AT25DF021",        0x1F, 0x43, 0x00, kAllBytes,    18, 16, 0,  5, 0),  // 26
  Chip("Adesto",       "AT25DF641x",       0x1F, 0x48, 0x00, kAllBytes,    23, 16, 0,  5, 0),  // 27
  Chip("Adesto",       "AT25Bxx512B",      0x1F, 0x65, 0x00, kAllBytes,    16, 15, 0,  5, 0),  // 28
  Chip("Adesto",       "AT25DQ161",        0x1F, 0x86, 0x00, kAllBytes,    21, 16, 0,  5, 0),  // 29
  Chip("Adesto",       "AT25DQ321",        0x1F, 0x87, 0x00, kAllBytes,    22, 16, 0,  5, 0),  // 30
  Chip("Adesto",       "AT45DQ321",        0x1F, 0x27, 0x01, kAllBytes,    22, 12, 0, 10, 2),  // 31
  Chip("Adesto",       "AT25xx021A",       0x1F, 0x43, 0x01, kAllBytes,    18, 16, 0,  5, 0),  // 32
  Chip("Adesto",       "AT25DF041A",       0x1F, 0x44, 0x01, kAllBytes,    19, 16, 0,  5, 0),  // 33
  Chip("Adesto",       "AT2xDF081A",       0x1F, 0x45, 0x01, kAllBytes,    20, 16, 0,  5, 0),  // 34
  Chip("Adesto",       "AT25DF321A",       0x1F, 0x47, 0x01, kAllBytes,    22, 16, 0,  5, 0),  // 35
  Chip("Adesto",       "AT25XE321D",       0x1F, 0x47, 0x02, kAllBytes,    22, 16, 0,  7, 0),  // 36
  Chip("Adesto",       "AT25FF321A",       0x1F, 0x47, 0x08, kAllBytes,    22, 16, 0,  7, 0),  // 37
  Chip("Adesto",       "AT25xx512C",       0x1F, 0x65, 0x01, kAllBytes,    16, 15, 0,  5, 0),  // 38
  Chip("Adesto",       "AT25SF041",        0x1F, 0x84, 0x01, kAllBytes,    19, 16, 0,  3, 0),  // 39
  Chip("Adesto",       "AT25SF081",        0x1F, 0x85, 0x01, kAllBytes,    20, 16, 0,  3, 0),  // 40
  Chip("Adesto",       "AT25SF161",        0x1F, 0x86, 0x01, kAllBytes,    21, 16, 0,  3, 0),  // 41
  Chip("Adesto",       "AT25SF321",        0x1F, 0x87, 0x01, kAllBytes,    22, 16, 0,  3, 0),  // 42
  Chip("Adesto",       "AT25xx041B",       0x1F, 0x44, 0x02, kAllBytes,    19, 16, 0,  5, 0),  // 43
  Chip("Adesto",       "AT25Dx081",        0x1F, 0x45, 0x02, kAllBytes,    20, 16, 0,  5, 0),  // 44
  Chip("Adesto",       "AT25DF256",        0x1F, 0x46, 0x02, kAllBytes,    16, 15, 0,  5, 0),  // 45
  Chip("Adesto",       "AT25DF161",        0x1F, 0x46, 0x02, kAllBytes,    21, 16, 0,  5, 0),  // 46
  Chip("Adesto",       "AT25DL161",        0x1F, 0x46, 0x03, kAllBytes,    21, 16, 0,  5, 0),  // 47
  Chip("Adesto",       "AT25SL128A",       0x1F, 0x42, 0x18, kAllBytes,    24, 16, 0,  5, 0),  // 48
  Chip("Adesto",       "AT25SL641",        0x1F, 0x43, 0x17, kAllBytes,    23, 16, 0,  5, 0),  // 49
  Chip("Adesto",       "AT25SL321",        0x1F, 0x42, 0x16, kAllBytes,    22, 16, 0,  5, 0),  // 50
  Chip("Adesto",       "AT25SF641",        0x1F, 0x32, 0x17, kAllBytes,    23, 16, 0,  5, 0),  // 51
  Chip("Adesto",       "AT255SF128A",      0x1F, 0x89, 0x01, kAllBytes,    24, 16, 0,  8, 0),  // 52
  Chip("Adesto",       "ATXP032R",         0x43, 0xA7, 0x00, kAllBytes,    22, 16, 3,  8, 0),  // 53
  Chip("Adesto",       "ATXP064B",         0x1F, 0xA8, 0x00, kAllBytes,    23, 16, 3,  8, 0),  // 54
  Chip("Adesto",       "ATXP128R",         0x1F, 0xA9, 0x00, kAllBytes,    24, 16, 3,  8, 0),  // 55
  Chip("Eon",          "EN25QH16",         0x1C, 0x70, 0x15, kAllBytes,    21, 16, 0,  3, 0),  // 56
  Chip("Eon",          "EN25F40",          0x1C, 0x00, 0x13, kTypeIgnored, 19, 16, 0,  3, 0),  // 57
  Chip("Eon",          "EN25F80",          0x1C, 0x00, 0x14, kTypeIgnored, 20, 16, 0,  3, 0),  // 58
  Chip("Eon",          "EN25F16",          0x1C, 0x00, 0x15, kTypeIgnored, 21, 16, 0,  3, 0),  // 59
  Chip("Eon",          "EN25F32",          0x1C, 0x00, 0x16, kTypeIgnored, 22, 16, 0,  3, 0),  // 60
  Chip("Eon",          "EN25QH64",         0x1C, 0x00, 0x17, kTypeIgnored, 23, 16, 0,  3, 0),  // 61
  Chip("Spansion",     "S25FL128SAGN",     0x01, 0x20, 0x18, kAllBytes,    24, 16, 0,  2, 0),  // 62
  Chip("Spansion",     "S25FL256SAIF",     0x01, 0x02, 0x19, kAllBytes,    25, 16, 0,  2, 0),  // 63
  Chip("Spansion",     "S25FS512S",        0x01, 0x02, 0x20, kAllBytes,    26, 16, 1,  2, 0),  // 64
  Chip("Spansion",     "S25FL116K",        0x01, 0x40, 0x15, kAllBytes,    21, 16, 0,  2, 0),  // 65
  Chip("Spansion",     "S25FL132K",        0x01, 0x40, 0x16, kAllBytes,    22, 16, 0,  2, 0),  // 66
  Chip("Spansion",     "S25FL164K",        0x01, 0x40, 0x17, kAllBytes,    23, 16, 0,  2, 0),  // 67
  Chip("Spansion",     "S25FL128L",        0x01, 0x60, 0x18, kAllBytes,    24, 16, 0,  2, 0),  // 68
  Chip("Spansion",     "S25FL256L",        0x01, 0x60, 0x19, kAllBytes,    25, 16, 1,  2, 0),  // 69
  Chip("Spansion",     "W25Q20EW",         0xEF, 0x00, 0x12, kTypeIgnored, 18, 16, 0,  3, 0),  // 70
  Chip("Spansion",     "S25FL004K",        0xEF, 0x00, 0x13, kTypeIgnored, 19, 16, 0,  3, 0),  // 71
  Chip("Spansion",     "S25FL008K",        0xEF, 0x00, 0x14, kTypeIgnored, 20, 16, 0,  3, 0),  // 72
  Chip("Spansion",     "S25FL016K",        0xEF, 0x00, 0x15, kTypeIgnored, 21, 16, 0,  3, 0),  // 73
  Chip("Spansion",     "S25FL032K",        0xEF, 0x00, 0x16, kTypeIgnored, 22, 16, 0,  3, 0),  // 74
  Chip("Spansion",     "S25FL064K",        0xEF, 0x00, 0x17, kTypeIgnored, 23, 16, 0,  4, 0),  // 75
  Chip("Spansion",     "S25FL128K",        0xEF, 0x00, 0x18, kTypeIgnored, 24, 16, 0,  4, 0),  // 76
  Chip("Winbond",      "W25Q256FV",        0xEF, 0x00, 0x19, kTypeIgnored, 25, 16, 1,  4, 0),  // 77
  Chip("Winbond",      "W25Q512JV",        0xEF, 0x00, 0x20, kTypeIgnored, 26, 16, 1,  4, 0),  // 78
  Chip("Cypress",      "S25HL256T",        0x34, 0x2A, 0x19, kAllBytes,    25, 16, 1,  3, 0),  // 79
  Chip("Cypress",      "S25HL512T",        0x34, 0x2A, 0x1A, kAllBytes,    26, 16, 1,  3, 0),  // 80
  Chip("Cypress",      "S25HL01GT",        0x34, 0x2A, 0x1B, kAllBytes,    27, 16, 1,  3, 0),  // 81
  Chip("Cypress",      "S25HS256T",        0x34, 0x2B, 0x19, kAllBytes,    25, 16, 1,  3, 0),  // 82
  Chip("Cypress",      "S25HS512T",        0x34, 0x2B, 0x1A, kAllBytes,    26, 16, 1,  3, 0),  // 83
  Chip("Cypress",      "S25HS01GT",        0x34, 0x2B, 0x1B, kAllBytes,    27, 16, 1,  3, 0),  // 84
  Chip("Macronix",     "MX25L1005A",       0xC2, 0x20, 0x11, kAllBytes,    17, 16, 0,  3, 0),  // 85
  Chip("Macronix",     "MX25V8006E",       0xC2, 0x20, 0x14, kAllBytes,    20, 16, 0,  3, 0),  // 86
  Chip("Macronix",     "MX25L6405D",       0xC2, 0x20, 0x17, kAllBytes,    23, 16, 0,  4, 0),  // 87
  Chip("Macronix",     "MX25L12873F",      0xC2, 0x20, 0x18, kAllBytes,    24, 16, 0,  4, 0),  // 88
  Chip("Macronix",     "MX25L25735F",      0xC2, 0x20, 0x19, kAllBytes,    25, 16, 1,  4, 0),  // 89
  Chip("Macronix",     "MX66L51235F",      0xC2, 0x20, 0x1A, kAllBytes,    26, 16, 1,  4, 0),  // 90
  Chip("Macronix",     "MX66L1G45G",       0xC2, 0x20, 0x1B, kAllBytes,    27, 16, 1,  4, 0),  // 91
  Chip("Macronix",     "MX25U4035",        0xC2, 0x25, 0x33, kAllBytes,    19, 16, 0,  3, 0),  // 92
  Chip("Macronix",     "MX25U803x",        0xC2, 0x25, 0x34, kAllBytes,    20, 16, 0,  3, 0),  // 93
  Chip("Macronix",     "MX25V4035",        0xC2, 0x25, 0x53, kAllBytes,    19, 16, 0,  3, 0),  // 94
  Chip("Macronix",     "MX25U1635F",       0xC2, 0x25, 0x35, kAllBytes,    21, 16, 0,  3, 0),  // 95
  Chip("Macronix",     "MX25L3239E",       0xC2, 0x25, 0x36, kAllBytes,    22, 16, 0,  4, 0),  // 96
  Chip("Macronix",     "MX25L6439E",       0xC2, 0x25, 0x37, kAllBytes,    23, 16, 0,  4, 0),  // 97
  Chip("Macronix",     "MX25U12835F",      0xC2, 0x25, 0x38, kAllBytes,    24, 16, 0,  4, 0),  // 98
  Chip("Macronix",     "MX25U25635F",      0xC2, 0x25, 0x39, kAllBytes,    25, 16, 1,  4, 0),  // 99
  Chip("Macronix",     "MX66U51235F",      0xC2, 0x25, 0x3A, kAllBytes,    26, 16, 1,  4, 0),  // 100
  Chip("Macronix",     "MX66U1G45G",       0xC2, 0x25, 0x3B, kAllBytes,    27, 16, 1,  4, 0),  // 101
  Chip("Macronix",     "MX66UM1G45G",      0xC2, 0x80, 0x3B, kAllBytes,    27, 16, 1,  4, 0),  // 102
  Chip("Macronix",     "MX66LM1G45G",      0xC2, 0x85, 0x3B, kAllBytes,    27, 16, 1,  4, 0),  // 103
  Chip("Macronix",     "MX66U2G45G",       0xC2, 0x25, 0x3C, kAllBytes,    28, 16, 1,  4, 0),  // 104
  Chip("Macronix",     "MX25V8035",        0xC2, 0x25, 0x54, kAllBytes,    20, 16, 0,  3, 0),  // 105
  Chip("Macronix",     "MX25R4035F",       0xC2, 0x28, 0x13, kAllBytes,    19, 16, 0,  4, 0),  // 106
  Chip("Macronix",     "MX25R8035F",       0xC2, 0x28, 0x14, kAllBytes,    20, 16, 0,  4, 0),  // 107
  Chip("Macronix",     "MX25R6435F",       0xC2, 0x28, 0x17, kAllBytes,    23, 16, 0,  4, 0),  // 108
  Chip("Macronix",     "MX25UM51245G",     0xC2, 0x80, 0x3A, kAllBytes,    26, 16, 1,  4, 0),  // 109
  Chip("Macronix",     "MX25LM51245G",     0xC2, 0x85, 0x3A, kAllBytes,    26, 16, 1,  4, 0),  // 110
  Chip("Macronix",     "MX25L1605D",       0xC2, 0x00, 0x15, kTypeIgnored, 21, 16, 0,  4, 0),  // 111
  Chip("Macronix",     "MX25L3273F",       0xC2, 0x00, 0x16, kTypeIgnored, 22, 16, 0,  4, 0),  // 112
  Chip("Microchip",    "SST25PF040C",      0x62, 0x06, 0x13, kAllBytes,    19, 16, 0,  7, 0),  // 113
  Chip("Microchip",    "SST26VF064B",      0xBF, 0x26, 0x43, kAllBytes,    23, 12, 0,  9, 3),  // 114
  Chip("GigaDevice",   "GD25Q05B",         0xC8, 0x40, 0x10, kAllBytes,    16, 16, 0,  7, 0),  // 115
  Chip("GigaDevice",   "GD25Q10B",         0xC8, 0x40, 0x11, kAllBytes,    17, 16, 0,  7, 0),  // 116
  Chip("GigaDevice",   "GD25Q20C",         0xC8, 0x40, 0x12, kAllBytes,    18, 16, 0,  6, 0),  // 117
  Chip("GigaDevice",   "GD25Q40C",         0xC8, 0x40, 0x13, kAllBytes,    19, 16, 0,  6, 0),  // 118
  Chip("GigaDevice",   "GD25Q80C",         0xC8, 0x40, 0x14, kAllBytes,    20, 16, 0,  6, 0),  // 119
  Chip("GigaDevice",   "GD25Q16C",         0xC8, 0x40, 0x15, kAllBytes,    21, 16, 0,  6, 0),  // 120
  Chip("GigaDevice",   "GD25Q32C",         0xC8, 0x40, 0x16, kAllBytes,    22, 16, 0,  6, 0),  // 121
  Chip("GigaDevice",   "GD25Q64C",         0xC8, 0x40, 0x17, kAllBytes,    23, 16, 0,  6, 0),  // 122
  Chip("GigaDevice",   "GD25Q128E",        0xC8, 0x40, 0x18, kAllBytes,    24, 16, 0,  6, 0),  // 123
  Chip("GigaDevice",   "GD25Q256D",        0xC8, 0x40, 0x19, kAllBytes,    25, 16, 0,  6, 0),  // 124
  Chip("GigaDevice",   "GD25LQ05C",        0xC8, 0x60, 0x10, kAllBytes,    16, 16, 0,  6, 0),  // 125
  Chip("GigaDevice",   "GD25LQ10C",        0xC8, 0x60, 0x11, kAllBytes,    17, 16, 0,  6, 0),  // 126
  Chip("GigaDevice",   "GD25LQ20C",        0xC8, 0x60, 0x12, kAllBytes,    18, 16, 0,  6, 0),  // 127
  Chip("GigaDevice",   "GD25LQ40C",        0xC8, 0x60, 0x13, kAllBytes,    19, 16, 0,  6, 0),  // 128
  Chip("GigaDevice",   "GD25LQ80C",        0xC8, 0x60, 0x14, kAllBytes,    20, 16, 0,  6, 0),  // 129
  Chip("GigaDevice",   "GD25LQ16C",        0xC8, 0x60, 0x15, kAllBytes,    21, 16, 0,  6, 0),  // 130
  Chip("GigaDevice",   "GD25LQ32C",        0xC8, 0x60, 0x16, kAllBytes,    22, 16, 0,  6, 0),  // 131
  Chip("GigaDevice",   "GD25LQ64C",        0xC8, 0x60, 0x17, kAllBytes,    23, 16, 0,  6, 0),  // 132
  Chip("GigaDevice",   "GD25LQ128D",       0xC8, 0x60, 0x18, kAllBytes,    24, 16, 0,  6, 0),  // 133
  Chip("GigaDevice",   "GD25LQ256D",       0xC8, 0x60, 0x19, kAllBytes,    25, 16, 0,  6, 0),  // 134
  Chip("GigaDevice",   "GD25LF255E",       0xC8, 0x63, 0x19, kAllBytes,    25, 16, 0,  6, 0),  // 135
  Chip("GigaDevice",   "GD25LF255E",       0xC8, 0x64, 0x12, kAllBytes,    18, 16, 0,  6, 0),  // 136
  Chip("GigaDevice",   "GD25LF255E",       0xC8, 0x64, 0x13, kAllBytes,    19, 16, 0,  6, 0),  // 137
  Chip("ISSI",         "IS25LQ080B",       0x9D, 0x40, 0x14, kAllBytes,    20, 16, 0,  0, 0),  // 138
  Chip("ISSI",         "IS25LQ016B",       0x9D, 0x40, 0x15, kAllBytes,    21, 16, 0,  0, 0),  // 139
  Chip("ISSI",         "IS25LQ032B",       0x9D, 0x40, 0x16, kAllBytes,    22, 16, 0,  0, 0),  // 140
  Chip("ISSI",         "IS25LP080D",       0x9D, 0x60, 0x14, kAllBytes,    20, 16, 0,  0, 0),  // 141
  Chip("ISSI",         "IS25LP016D",       0x9D, 0x60, 0x15, kAllBytes,    21, 16, 0,  0, 0),  // 142
  Chip("ISSI",         "IS25LP032D",       0x9D, 0x60, 0x16, kAllBytes,    22, 16, 0,  0, 0),  // 143
  Chip("ISSI",         "IS25LP064A",       0x9D, 0x60, 0x17, kAllBytes,    23, 16, 0,  0, 0),  // 144
  Chip("ISSI",         "IS25LP128-JBLE",   0x9D, 0x60, 0x18, kAllBytes,    24, 16, 0,  0, 0),  // 145
  Chip("ISSI",         "IS25LP256E",       0x9D, 0x60, 0x19, kAllBytes,    25, 16, 1,  4, 0),  // 146
  Chip("ISSI",         "IS25LP512M",       0x9D, 0x60, 0x1A, kAllBytes,    26, 16, 1,  4, 0),  // 147
  Chip("ISSI",         "IS25WP080D",       0x9D, 0x70, 0x14, kAllBytes,    20, 16, 0,  0, 0),  // 148
  Chip("ISSI",         "IS25WP016D",       0x9D, 0x70, 0x15, kAllBytes,    21, 16, 0,  0, 0),  // 149
  Chip("ISSI",         "IS25WP032D",       0x9D, 0x70, 0x16, kAllBytes,    22, 16, 0,  0, 0),  // 150
  Chip("ISSI",         "IS25WP128D",       0x9D, 0x70, 0x18, kAllBytes,    24, 16, 0,  0, 0),  // 151
  Chip("ISSI",         "IS25WP256D",       0x9D, 0x70, 0x19, kAllBytes,    25, 16, 1,  4, 0),  // 152
  Chip("ISSI",         "IS25WP512M",       0x9D, 0x70, 0x1A, kAllBytes,    26, 16, 1,  4, 0),  // 153
  Chip("Micron",       "M25PX16-VMN6",     0x20, 0x71, 0x15, kAllBytes,    21, 16, 0,  0, 0),  // 154
  Chip("Micron",       "M45PE10-VMN6",     0x20, 0x40, 0x11, kAllBytes,    17, 16, 0,  0, 0),  // 155
  Chip("Micron",       "M25PE40-VMN6TP",   0x20, 0x80, 0x13, kAllBytes,    19, 16, 0,  0, 0),  // 156
  Chip("ISSI",         "IS25LD040-JNLE",   0x7F, 0x9D, 0x7E, kAllBytes,    28, 16, 0,  0, 0),  // 157
  Chip("ISSI",         "IS25LQ080-JKLE",   0x7F, 0x9D, 0x44, kAllBytes,    20, 16, 0,  0, 0),  // 158
  Chip("ISSI",         "IS25CD010-JNLE",   0x7F, 0x9D, 0x21, kAllBytes,    17, 16, 0,  0, 0),  // 159
  Chip("ISSI",         "IS25CQ032-JBLE",   0x7F, 0x9D, 0x46, kAllBytes,    22, 16, 0,  0, 0),  // 160
  Chip("Adesto/Atmel", "AT25SF041-SSHD-T", 0x1F, 0x84, 0x01, kAllBytes,    28, 16, 0,  0, 0),  // 161
  Chip("Fujitsu",      "MB85RS256TY",      0x04, 0x25, 0x03, kAllBytes,    15, 15, 0,  0, 4),  // 162
  {0, 0, nullptr, nullptr, nullptr},
};
