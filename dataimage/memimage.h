// The data image: a sorted list of non-overlapping, non-touching address
// ranges in a 32-bit address space, each with its bytes or without bytes
// (range sets), plus single-byte patches that overlay the ranges until
// committed. Plain functions assume the caller holds the image's lock; the
// Locked forms take it themselves.
#pragma once
#include <cstdint>
#include "sys/sys.h"

struct MemRange {
  MemRange* next;
  uint8_t*  data;        // null: the range reserves addresses only
  uint32_t  start;
  uint32_t  size;
  uint32_t  allocated;
};

struct MemPatch {
  uint32_t address;
  uint32_t value;
};

struct MemImage {
  MemRange*  first;
  MemRange*  last;       // cached highest range, may be null (unknown)
  uint32_t   rangeCount;
  uint32_t   changeCount;
  uint32_t   patchCount;
  uint32_t   patchCapacity;
  MemPatch*  patches;
  SYS_HMUTEX mutex;
  int32_t    cursorIndex;
  MemRange*  cursorRange;
  MemRange*  addHint;    // range touched by the last add, may be null
  void*      index;      // ranges by start address, built on demand; may be null
};

MemImage* MEMIMAGE_Create(void);
void      MEMIMAGE_Delete(MemImage* image);
int       MEMIMAGE_Lock(MemImage* image);
void      MEMIMAGE_Unlock(MemImage* image);

uint32_t  MEMIMAGE_GetNumRanges(MemImage* image);
uint8_t*  MEMIMAGE_GetRange(MemImage* image, int32_t index, uint32_t* start, uint32_t* size);

// 0 added; -1 overlaps loaded data, runs past 0xFFFFFFFF, or no image; -3 no
// memory for the range itself. A range whose bytes could not be allocated is
// kept without bytes and not reported here: see MEMIMAGE_HasRangeWithoutBytes.
int  MEMIMAGE_AddData(MemImage* image, uint32_t start, uint32_t size, const void* src, int32_t fill);
int  MEMIMAGE_AddDataLocked(MemImage* image, uint32_t start, uint32_t size, const void* src);
int  MEMIMAGE_AddFill(MemImage* image, uint32_t start, uint32_t size, uint8_t fill);
void MEMIMAGE_RemoveArea(MemImage* image, uint32_t first, uint32_t last);
void MEMIMAGE_RemoveAreaLocked(MemImage* image, uint32_t first, uint32_t last);

uint32_t MEMIMAGE_GetFirstAddr(MemImage* image);
uint32_t MEMIMAGE_GetFirstAddrLocked(MemImage* image);
uint32_t MEMIMAGE_GetLastAddr(MemImage* image);
uint32_t MEMIMAGE_GetLastAddrLocked(MemImage* image);
uint32_t MEMIMAGE_GetNumBytes(MemImage* image);
// 1 when a range lacks its bytes (their allocation failed), else 0.
int      MEMIMAGE_HasRangeWithoutBytes(MemImage* image);
uint32_t MEMIMAGE_GetNumBytesLocked(MemImage* image);

int  MEMIMAGE_ReadByte(MemImage* image, uint32_t address);
int  MEMIMAGE_ReadByteLocked(MemImage* image, uint32_t address);
int  MEMIMAGE_ReadArea(MemImage* image, uint32_t start, uint32_t length, uint8_t* dest, uint8_t fill);
int  MEMIMAGE_ReadAreaLocked(MemImage* image, uint32_t start, uint32_t length, uint8_t* dest, uint8_t fill);

// Returns the block length (0 when nothing of the image lies in [from, to]).
int32_t MEMIMAGE_GetBlock(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap,
                          uint8_t fill, uint8_t* data, uint8_t* mask, uint32_t* blockStart,
                          int32_t maxLength, uint32_t startAlignShift, uint32_t endAlignShift);
int32_t MEMIMAGE_GetBlockLocked(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap,
                                uint8_t* data, uint32_t* blockStart, int32_t maxLength,
                                uint32_t startAlignShift, uint32_t endAlignShift);
int32_t MEMIMAGE_GetBlockLockedFill(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap,
                                    uint8_t fill, uint8_t* data, uint8_t* mask, uint32_t* blockStart,
                                    int32_t maxLength, uint32_t startAlignShift, uint32_t endAlignShift);

int  MEMIMAGE_IsAreaInImage(MemImage* image, uint32_t start, uint32_t size);
int  MEMIMAGE_FindRangeNotIn(MemImage* container, MemImage* other, uint32_t offset);
int  MEMIMAGE_Merge(MemImage* dest, MemImage* src);
int  MEMIMAGE_MergeLocked(MemImage* dest, MemImage* src);
int  MEMIMAGE_Overlaps(MemImage* a, MemImage* b);
int  MEMIMAGE_ShiftAddr(MemImage* image, uint32_t offset);
int  MEMIMAGE_SetByte(MemImage* image, uint32_t address, uint8_t value);
int  MEMIMAGE_SetByteLocked(MemImage* image, uint32_t address, uint8_t value);
int  MEMIMAGE_CommitPatches(MemImage* image);
int  MEMIMAGE_AddSkipBlank(MemImage* image, uint32_t start, uint32_t length, const uint8_t* src,
                           uint32_t minBlankRun, uint8_t blank);
int  MEMIMAGE_RemoveBlank(MemImage* image, uint32_t minBlankRun);
