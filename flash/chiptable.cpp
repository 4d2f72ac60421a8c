// The built-in chip table: data only. The rows are kept exactly as they
// were collected, in this order, including the odd ones: lookup takes the
// first match, so where two rows share an ID the earlier row wins; rows whose
// first ID byte is 0x7F can never match because the ID reader drops
// continuation codes; a few sizes and names are known to be doubtful.
#include "flash/flashdb.h"

namespace {

// One row per line, so that the table reads column by column.
// clang-format off
constexpr FlashChipRow kRows[] = {
  {.Maker = "Numonyx",      .Part = "M25P10-A",         .Id = {0x20, 0x20, 0x11}, .IgnoreType = false, .SizeLog2 = 17, .SectorLog2 = 15, .Addr4B = 0, .Class =  3, .Set = 0},  // 0
  {.Maker = "ST",           .Part = "M25PE16",          .Id = {0x20, 0x80, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 1
  {.Maker = "ST",           .Part = "M25P16",           .Id = {0x20, 0x20, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 2
  {.Maker = "ST",           .Part = "M25P32",           .Id = {0x20, 0x20, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 3
  {.Maker = "ST",           .Part = "M25P64",           .Id = {0x20, 0x20, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 4
  {.Maker = "ST",           .Part = "M25P128",          .Id = {0x20, 0x20, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 18, .Addr4B = 0, .Class =  3, .Set = 0},  // 5
  {.Maker = "Micron",       .Part = "M25PX80",          .Id = {0x20, 0x00, 0x14}, .IgnoreType = true,  .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 6
  {.Maker = "Micron",       .Part = "N25Q016A",         .Id = {0x20, 0x00, 0x15}, .IgnoreType = true,  .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 1},  // 7
  {.Maker = "Micron",       .Part = "N25Q032A",         .Id = {0x20, 0x00, 0x16}, .IgnoreType = true,  .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 1},  // 8
  {.Maker = "Micron",       .Part = "N25Q064A",         .Id = {0x20, 0x00, 0x17}, .IgnoreType = true,  .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 1},  // 9
  {.Maker = "Micron",       .Part = "N25Q128A",         .Id = {0x20, 0x00, 0x18}, .IgnoreType = true,  .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 1},  // 10
  {.Maker = "Micron",       .Part = "N25Q256A",         .Id = {0x20, 0x00, 0x19}, .IgnoreType = true,  .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 2, .Class =  0, .Set = 1},  // 11
  {.Maker = "Micron",       .Part = "N25Q512A",         .Id = {0x20, 0x00, 0x20}, .IgnoreType = true,  .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 2, .Class =  0, .Set = 1},  // 12
  {.Maker = "Micron",       .Part = "MT25Qxxx1",        .Id = {0x20, 0x00, 0x21}, .IgnoreType = true,  .SizeLog2 = 27, .SectorLog2 = 16, .Addr4B = 2, .Class =  0, .Set = 1},  // 13
  {.Maker = "Micron",       .Part = "MT25Qxxx2",        .Id = {0x20, 0x00, 0x22}, .IgnoreType = true,  .SizeLog2 = 28, .SectorLog2 = 16, .Addr4B = 2, .Class =  0, .Set = 1},  // 14
  {.Maker = "Spansion",     .Part = "S25FL032P",        .Id = {0x01, 0x02, 0x15}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 15
  {.Maker = "Spansion",     .Part = "S25FL064P",        .Id = {0x01, 0x02, 0x16}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 16
  {.Maker = "Cypress",      .Part = "S25FL064L",        .Id = {0x01, 0x60, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 17
  {.Maker = "Adesto",       .Part = "AT25PE20",         .Id = {0x1F, 0x23, 0x00}, .IgnoreType = false, .SizeLog2 = 18, .SectorLog2 = 11, .Addr4B = 0, .Class = 10, .Set = 2},  // 18
  {.Maker = "Adesto",       .Part = "AT25PE40",         .Id = {0x1F, 0x24, 0x00}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 11, .Addr4B = 0, .Class = 10, .Set = 2},  // 19
  {.Maker = "Adesto",       .Part = "AT25PE80",         .Id = {0x1F, 0x25, 0x00}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 11, .Addr4B = 0, .Class = 10, .Set = 2},  // 20
  {.Maker = "Adesto",       .Part = "AT25PE16",         .Id = {0x1F, 0x26, 0x00}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 11, .Addr4B = 0, .Class = 10, .Set = 2},  // 21
  {.Maker = "Adesto",       .Part = "AT25PE32",         .Id = {0x1F, 0x27, 0x00}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 11, .Addr4B = 0, .Class = 10, .Set = 2},  // 22
  {.Maker = "Adesto",       .Part = "AT45DB641E",       .Id = {0x1F, 0x28, 0x00}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 11, .Addr4B = 0, .Class = 10, .Set = 2},  // 23
  {.Maker = "Adesto",       .Part = "AT25DN256",        .Id = {0x1F, 0x40, 0x00}, .IgnoreType = false, .SizeLog2 = 15, .SectorLog2 = 15, .Addr4B = 0, .Class =  5, .Set = 0},  // 24
  {.Maker = "Adesto",       .Part = "AT25xx011",        .Id = {0x1F, 0x42, 0x00}, .IgnoreType = false, .SizeLog2 = 17, .SectorLog2 = 15, .Addr4B = 0, .Class =  5, .Set = 0},  // 25
  {.Maker = "Adesto",       .Part = "AT25DF021",        .Id = {0x1F, 0x43, 0x00}, .IgnoreType = false, .SizeLog2 = 18, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 26
  {.Maker = "Adesto",       .Part = "AT25DF641x",       .Id = {0x1F, 0x48, 0x00}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 27
  {.Maker = "Adesto",       .Part = "AT25Bxx512B",      .Id = {0x1F, 0x65, 0x00}, .IgnoreType = false, .SizeLog2 = 16, .SectorLog2 = 15, .Addr4B = 0, .Class =  5, .Set = 0},  // 28
  {.Maker = "Adesto",       .Part = "AT25DQ161",        .Id = {0x1F, 0x86, 0x00}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 29
  {.Maker = "Adesto",       .Part = "AT25DQ321",        .Id = {0x1F, 0x87, 0x00}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 30
  {.Maker = "Adesto",       .Part = "AT45DQ321",        .Id = {0x1F, 0x27, 0x01}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 12, .Addr4B = 0, .Class = 10, .Set = 2},  // 31
  {.Maker = "Adesto",       .Part = "AT25xx021A",       .Id = {0x1F, 0x43, 0x01}, .IgnoreType = false, .SizeLog2 = 18, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 32
  {.Maker = "Adesto",       .Part = "AT25DF041A",       .Id = {0x1F, 0x44, 0x01}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 33
  {.Maker = "Adesto",       .Part = "AT2xDF081A",       .Id = {0x1F, 0x45, 0x01}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 34
  {.Maker = "Adesto",       .Part = "AT25DF321A",       .Id = {0x1F, 0x47, 0x01}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 35
  {.Maker = "Adesto",       .Part = "AT25XE321D",       .Id = {0x1F, 0x47, 0x02}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  7, .Set = 0},  // 36
  {.Maker = "Adesto",       .Part = "AT25FF321A",       .Id = {0x1F, 0x47, 0x08}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  7, .Set = 0},  // 37
  {.Maker = "Adesto",       .Part = "AT25xx512C",       .Id = {0x1F, 0x65, 0x01}, .IgnoreType = false, .SizeLog2 = 16, .SectorLog2 = 15, .Addr4B = 0, .Class =  5, .Set = 0},  // 38
  {.Maker = "Adesto",       .Part = "AT25SF041",        .Id = {0x1F, 0x84, 0x01}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 39
  {.Maker = "Adesto",       .Part = "AT25SF081",        .Id = {0x1F, 0x85, 0x01}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 40
  {.Maker = "Adesto",       .Part = "AT25SF161",        .Id = {0x1F, 0x86, 0x01}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 41
  {.Maker = "Adesto",       .Part = "AT25SF321",        .Id = {0x1F, 0x87, 0x01}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 42
  {.Maker = "Adesto",       .Part = "AT25xx041B",       .Id = {0x1F, 0x44, 0x02}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 43
  {.Maker = "Adesto",       .Part = "AT25Dx081",        .Id = {0x1F, 0x45, 0x02}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 44
  {.Maker = "Adesto",       .Part = "AT25DF256",        .Id = {0x1F, 0x46, 0x02}, .IgnoreType = false, .SizeLog2 = 16, .SectorLog2 = 15, .Addr4B = 0, .Class =  5, .Set = 0},  // 45
  {.Maker = "Adesto",       .Part = "AT25DF161",        .Id = {0x1F, 0x46, 0x02}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 46
  {.Maker = "Adesto",       .Part = "AT25DL161",        .Id = {0x1F, 0x46, 0x03}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 47
  {.Maker = "Adesto",       .Part = "AT25SL128A",       .Id = {0x1F, 0x42, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 48
  {.Maker = "Adesto",       .Part = "AT25SL641",        .Id = {0x1F, 0x43, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 49
  {.Maker = "Adesto",       .Part = "AT25SL321",        .Id = {0x1F, 0x42, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 50
  {.Maker = "Adesto",       .Part = "AT25SF641",        .Id = {0x1F, 0x32, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  5, .Set = 0},  // 51
  {.Maker = "Adesto",       .Part = "AT255SF128A",      .Id = {0x1F, 0x89, 0x01}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  8, .Set = 0},  // 52
  {.Maker = "Adesto",       .Part = "ATXP032R",         .Id = {0x43, 0xA7, 0x00}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 3, .Class =  8, .Set = 0},  // 53
  {.Maker = "Adesto",       .Part = "ATXP064B",         .Id = {0x1F, 0xA8, 0x00}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 3, .Class =  8, .Set = 0},  // 54
  {.Maker = "Adesto",       .Part = "ATXP128R",         .Id = {0x1F, 0xA9, 0x00}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 3, .Class =  8, .Set = 0},  // 55
  {.Maker = "Eon",          .Part = "EN25QH16",         .Id = {0x1C, 0x70, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 56
  {.Maker = "Eon",          .Part = "EN25F40",          .Id = {0x1C, 0x00, 0x13}, .IgnoreType = true,  .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 57
  {.Maker = "Eon",          .Part = "EN25F80",          .Id = {0x1C, 0x00, 0x14}, .IgnoreType = true,  .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 58
  {.Maker = "Eon",          .Part = "EN25F16",          .Id = {0x1C, 0x00, 0x15}, .IgnoreType = true,  .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 59
  {.Maker = "Eon",          .Part = "EN25F32",          .Id = {0x1C, 0x00, 0x16}, .IgnoreType = true,  .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 60
  {.Maker = "Eon",          .Part = "EN25QH64",         .Id = {0x1C, 0x00, 0x17}, .IgnoreType = true,  .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 61
  {.Maker = "Spansion",     .Part = "S25FL128SAGN",     .Id = {0x01, 0x20, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 62
  {.Maker = "Spansion",     .Part = "S25FL256SAIF",     .Id = {0x01, 0x02, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 63
  {.Maker = "Spansion",     .Part = "S25FS512S",        .Id = {0x01, 0x02, 0x20}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  2, .Set = 0},  // 64
  {.Maker = "Spansion",     .Part = "S25FL116K",        .Id = {0x01, 0x40, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 65
  {.Maker = "Spansion",     .Part = "S25FL132K",        .Id = {0x01, 0x40, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 66
  {.Maker = "Spansion",     .Part = "S25FL164K",        .Id = {0x01, 0x40, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 67
  {.Maker = "Spansion",     .Part = "S25FL128L",        .Id = {0x01, 0x60, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  2, .Set = 0},  // 68
  {.Maker = "Spansion",     .Part = "S25FL256L",        .Id = {0x01, 0x60, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  2, .Set = 0},  // 69
  {.Maker = "Spansion",     .Part = "W25Q20EW",         .Id = {0xEF, 0x00, 0x12}, .IgnoreType = true,  .SizeLog2 = 18, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 70
  {.Maker = "Spansion",     .Part = "S25FL004K",        .Id = {0xEF, 0x00, 0x13}, .IgnoreType = true,  .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 71
  {.Maker = "Spansion",     .Part = "S25FL008K",        .Id = {0xEF, 0x00, 0x14}, .IgnoreType = true,  .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 72
  {.Maker = "Spansion",     .Part = "S25FL016K",        .Id = {0xEF, 0x00, 0x15}, .IgnoreType = true,  .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 73
  {.Maker = "Spansion",     .Part = "S25FL032K",        .Id = {0xEF, 0x00, 0x16}, .IgnoreType = true,  .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 74
  {.Maker = "Spansion",     .Part = "S25FL064K",        .Id = {0xEF, 0x00, 0x17}, .IgnoreType = true,  .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 75
  {.Maker = "Spansion",     .Part = "S25FL128K",        .Id = {0xEF, 0x00, 0x18}, .IgnoreType = true,  .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 76
  {.Maker = "Winbond",      .Part = "W25Q256FV",        .Id = {0xEF, 0x00, 0x19}, .IgnoreType = true,  .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 77
  {.Maker = "Winbond",      .Part = "W25Q512JV",        .Id = {0xEF, 0x00, 0x20}, .IgnoreType = true,  .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 78
  {.Maker = "Cypress",      .Part = "S25HL256T",        .Id = {0x34, 0x2A, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  3, .Set = 0},  // 79
  {.Maker = "Cypress",      .Part = "S25HL512T",        .Id = {0x34, 0x2A, 0x1A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  3, .Set = 0},  // 80
  {.Maker = "Cypress",      .Part = "S25HL01GT",        .Id = {0x34, 0x2A, 0x1B}, .IgnoreType = false, .SizeLog2 = 27, .SectorLog2 = 16, .Addr4B = 1, .Class =  3, .Set = 0},  // 81
  {.Maker = "Cypress",      .Part = "S25HS256T",        .Id = {0x34, 0x2B, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  3, .Set = 0},  // 82
  {.Maker = "Cypress",      .Part = "S25HS512T",        .Id = {0x34, 0x2B, 0x1A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  3, .Set = 0},  // 83
  {.Maker = "Cypress",      .Part = "S25HS01GT",        .Id = {0x34, 0x2B, 0x1B}, .IgnoreType = false, .SizeLog2 = 27, .SectorLog2 = 16, .Addr4B = 1, .Class =  3, .Set = 0},  // 84
  {.Maker = "Macronix",     .Part = "MX25L1005A",       .Id = {0xC2, 0x20, 0x11}, .IgnoreType = false, .SizeLog2 = 17, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 85
  {.Maker = "Macronix",     .Part = "MX25V8006E",       .Id = {0xC2, 0x20, 0x14}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 86
  {.Maker = "Macronix",     .Part = "MX25L6405D",       .Id = {0xC2, 0x20, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 87
  {.Maker = "Macronix",     .Part = "MX25L12873F",      .Id = {0xC2, 0x20, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 88
  {.Maker = "Macronix",     .Part = "MX25L25735F",      .Id = {0xC2, 0x20, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 89
  {.Maker = "Macronix",     .Part = "MX66L51235F",      .Id = {0xC2, 0x20, 0x1A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 90
  {.Maker = "Macronix",     .Part = "MX66L1G45G",       .Id = {0xC2, 0x20, 0x1B}, .IgnoreType = false, .SizeLog2 = 27, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 91
  {.Maker = "Macronix",     .Part = "MX25U4035",        .Id = {0xC2, 0x25, 0x33}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 92
  {.Maker = "Macronix",     .Part = "MX25U803x",        .Id = {0xC2, 0x25, 0x34}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 93
  {.Maker = "Macronix",     .Part = "MX25V4035",        .Id = {0xC2, 0x25, 0x53}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 94
  {.Maker = "Macronix",     .Part = "MX25U1635F",       .Id = {0xC2, 0x25, 0x35}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 95
  {.Maker = "Macronix",     .Part = "MX25L3239E",       .Id = {0xC2, 0x25, 0x36}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 96
  {.Maker = "Macronix",     .Part = "MX25L6439E",       .Id = {0xC2, 0x25, 0x37}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 97
  {.Maker = "Macronix",     .Part = "MX25U12835F",      .Id = {0xC2, 0x25, 0x38}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 98
  {.Maker = "Macronix",     .Part = "MX25U25635F",      .Id = {0xC2, 0x25, 0x39}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 99
  {.Maker = "Macronix",     .Part = "MX66U51235F",      .Id = {0xC2, 0x25, 0x3A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 100
  {.Maker = "Macronix",     .Part = "MX66U1G45G",       .Id = {0xC2, 0x25, 0x3B}, .IgnoreType = false, .SizeLog2 = 27, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 101
  {.Maker = "Macronix",     .Part = "MX66UM1G45G",      .Id = {0xC2, 0x80, 0x3B}, .IgnoreType = false, .SizeLog2 = 27, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 102
  {.Maker = "Macronix",     .Part = "MX66LM1G45G",      .Id = {0xC2, 0x85, 0x3B}, .IgnoreType = false, .SizeLog2 = 27, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 103
  {.Maker = "Macronix",     .Part = "MX66U2G45G",       .Id = {0xC2, 0x25, 0x3C}, .IgnoreType = false, .SizeLog2 = 28, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 104
  {.Maker = "Macronix",     .Part = "MX25V8035",        .Id = {0xC2, 0x25, 0x54}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  3, .Set = 0},  // 105
  {.Maker = "Macronix",     .Part = "MX25R4035F",       .Id = {0xC2, 0x28, 0x13}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 106
  {.Maker = "Macronix",     .Part = "MX25R8035F",       .Id = {0xC2, 0x28, 0x14}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 107
  {.Maker = "Macronix",     .Part = "MX25R6435F",       .Id = {0xC2, 0x28, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 108
  {.Maker = "Macronix",     .Part = "MX25UM51245G",     .Id = {0xC2, 0x80, 0x3A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 109
  {.Maker = "Macronix",     .Part = "MX25LM51245G",     .Id = {0xC2, 0x85, 0x3A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 110
  {.Maker = "Macronix",     .Part = "MX25L1605D",       .Id = {0xC2, 0x00, 0x15}, .IgnoreType = true,  .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 111
  {.Maker = "Macronix",     .Part = "MX25L3273F",       .Id = {0xC2, 0x00, 0x16}, .IgnoreType = true,  .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  4, .Set = 0},  // 112
  {.Maker = "Microchip",    .Part = "SST25PF040C",      .Id = {0x62, 0x06, 0x13}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  7, .Set = 0},  // 113
  {.Maker = "Microchip",    .Part = "SST26VF064B",      .Id = {0xBF, 0x26, 0x43}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 12, .Addr4B = 0, .Class =  9, .Set = 3},  // 114
  {.Maker = "GigaDevice",   .Part = "GD25Q05B",         .Id = {0xC8, 0x40, 0x10}, .IgnoreType = false, .SizeLog2 = 16, .SectorLog2 = 16, .Addr4B = 0, .Class =  7, .Set = 0},  // 115
  {.Maker = "GigaDevice",   .Part = "GD25Q10B",         .Id = {0xC8, 0x40, 0x11}, .IgnoreType = false, .SizeLog2 = 17, .SectorLog2 = 16, .Addr4B = 0, .Class =  7, .Set = 0},  // 116
  {.Maker = "GigaDevice",   .Part = "GD25Q20C",         .Id = {0xC8, 0x40, 0x12}, .IgnoreType = false, .SizeLog2 = 18, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 117
  {.Maker = "GigaDevice",   .Part = "GD25Q40C",         .Id = {0xC8, 0x40, 0x13}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 118
  {.Maker = "GigaDevice",   .Part = "GD25Q80C",         .Id = {0xC8, 0x40, 0x14}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 119
  {.Maker = "GigaDevice",   .Part = "GD25Q16C",         .Id = {0xC8, 0x40, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 120
  {.Maker = "GigaDevice",   .Part = "GD25Q32C",         .Id = {0xC8, 0x40, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 121
  {.Maker = "GigaDevice",   .Part = "GD25Q64C",         .Id = {0xC8, 0x40, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 122
  {.Maker = "GigaDevice",   .Part = "GD25Q128E",        .Id = {0xC8, 0x40, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 123
  {.Maker = "GigaDevice",   .Part = "GD25Q256D",        .Id = {0xC8, 0x40, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 124
  {.Maker = "GigaDevice",   .Part = "GD25LQ05C",        .Id = {0xC8, 0x60, 0x10}, .IgnoreType = false, .SizeLog2 = 16, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 125
  {.Maker = "GigaDevice",   .Part = "GD25LQ10C",        .Id = {0xC8, 0x60, 0x11}, .IgnoreType = false, .SizeLog2 = 17, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 126
  {.Maker = "GigaDevice",   .Part = "GD25LQ20C",        .Id = {0xC8, 0x60, 0x12}, .IgnoreType = false, .SizeLog2 = 18, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 127
  {.Maker = "GigaDevice",   .Part = "GD25LQ40C",        .Id = {0xC8, 0x60, 0x13}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 128
  {.Maker = "GigaDevice",   .Part = "GD25LQ80C",        .Id = {0xC8, 0x60, 0x14}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 129
  {.Maker = "GigaDevice",   .Part = "GD25LQ16C",        .Id = {0xC8, 0x60, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 130
  {.Maker = "GigaDevice",   .Part = "GD25LQ32C",        .Id = {0xC8, 0x60, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 131
  {.Maker = "GigaDevice",   .Part = "GD25LQ64C",        .Id = {0xC8, 0x60, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 132
  {.Maker = "GigaDevice",   .Part = "GD25LQ128D",       .Id = {0xC8, 0x60, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 133
  {.Maker = "GigaDevice",   .Part = "GD25LQ256D",       .Id = {0xC8, 0x60, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 134
  {.Maker = "GigaDevice",   .Part = "GD25LF255E",       .Id = {0xC8, 0x63, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 135
  {.Maker = "GigaDevice",   .Part = "GD25LF255E",       .Id = {0xC8, 0x64, 0x12}, .IgnoreType = false, .SizeLog2 = 18, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 136
  {.Maker = "GigaDevice",   .Part = "GD25LF255E",       .Id = {0xC8, 0x64, 0x13}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  6, .Set = 0},  // 137
  {.Maker = "ISSI",         .Part = "IS25LQ080B",       .Id = {0x9D, 0x40, 0x14}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 138
  {.Maker = "ISSI",         .Part = "IS25LQ016B",       .Id = {0x9D, 0x40, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 139
  {.Maker = "ISSI",         .Part = "IS25LQ032B",       .Id = {0x9D, 0x40, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 140
  {.Maker = "ISSI",         .Part = "IS25LP080D",       .Id = {0x9D, 0x60, 0x14}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 141
  {.Maker = "ISSI",         .Part = "IS25LP016D",       .Id = {0x9D, 0x60, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 142
  {.Maker = "ISSI",         .Part = "IS25LP032D",       .Id = {0x9D, 0x60, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 143
  {.Maker = "ISSI",         .Part = "IS25LP064A",       .Id = {0x9D, 0x60, 0x17}, .IgnoreType = false, .SizeLog2 = 23, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 144
  {.Maker = "ISSI",         .Part = "IS25LP128-JBLE",   .Id = {0x9D, 0x60, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 145
  {.Maker = "ISSI",         .Part = "IS25LP256E",       .Id = {0x9D, 0x60, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 146
  {.Maker = "ISSI",         .Part = "IS25LP512M",       .Id = {0x9D, 0x60, 0x1A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 147
  {.Maker = "ISSI",         .Part = "IS25WP080D",       .Id = {0x9D, 0x70, 0x14}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 148
  {.Maker = "ISSI",         .Part = "IS25WP016D",       .Id = {0x9D, 0x70, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 149
  {.Maker = "ISSI",         .Part = "IS25WP032D",       .Id = {0x9D, 0x70, 0x16}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 150
  {.Maker = "ISSI",         .Part = "IS25WP128D",       .Id = {0x9D, 0x70, 0x18}, .IgnoreType = false, .SizeLog2 = 24, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 151
  {.Maker = "ISSI",         .Part = "IS25WP256D",       .Id = {0x9D, 0x70, 0x19}, .IgnoreType = false, .SizeLog2 = 25, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 152
  {.Maker = "ISSI",         .Part = "IS25WP512M",       .Id = {0x9D, 0x70, 0x1A}, .IgnoreType = false, .SizeLog2 = 26, .SectorLog2 = 16, .Addr4B = 1, .Class =  4, .Set = 0},  // 153
  {.Maker = "Micron",       .Part = "M25PX16-VMN6",     .Id = {0x20, 0x71, 0x15}, .IgnoreType = false, .SizeLog2 = 21, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 154
  {.Maker = "Micron",       .Part = "M45PE10-VMN6",     .Id = {0x20, 0x40, 0x11}, .IgnoreType = false, .SizeLog2 = 17, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 155
  {.Maker = "Micron",       .Part = "M25PE40-VMN6TP",   .Id = {0x20, 0x80, 0x13}, .IgnoreType = false, .SizeLog2 = 19, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 156
  {.Maker = "ISSI",         .Part = "IS25LD040-JNLE",   .Id = {0x7F, 0x9D, 0x7E}, .IgnoreType = false, .SizeLog2 = 28, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 157
  {.Maker = "ISSI",         .Part = "IS25LQ080-JKLE",   .Id = {0x7F, 0x9D, 0x44}, .IgnoreType = false, .SizeLog2 = 20, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 158
  {.Maker = "ISSI",         .Part = "IS25CD010-JNLE",   .Id = {0x7F, 0x9D, 0x21}, .IgnoreType = false, .SizeLog2 = 17, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 159
  {.Maker = "ISSI",         .Part = "IS25CQ032-JBLE",   .Id = {0x7F, 0x9D, 0x46}, .IgnoreType = false, .SizeLog2 = 22, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 160
  {.Maker = "Adesto/Atmel", .Part = "AT25SF041-SSHD-T", .Id = {0x1F, 0x84, 0x01}, .IgnoreType = false, .SizeLog2 = 28, .SectorLog2 = 16, .Addr4B = 0, .Class =  0, .Set = 0},  // 161
  {.Maker = "Fujitsu",      .Part = "MB85RS256TY",      .Id = {0x04, 0x25, 0x03}, .IgnoreType = false, .SizeLog2 = 15, .SectorLog2 = 15, .Addr4B = 0, .Class =  0, .Set = 4},  // 162
};
// clang-format on

}  // namespace

constinit const FlashChipTable FLASHDB_ChipTable = FLASHDB_PackRows(kRows);
