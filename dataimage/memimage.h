// The data image: a sorted list of non-overlapping, non-touching address
// ranges in a 32-bit address space, each with its bytes or without bytes
// (range sets), plus single-byte patches that overlay the ranges until
// committed. Plain functions assume the caller holds the image's lock (or
// is its only user); the Locked forms take it themselves.
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

// Image lifetime and lock.
//
// A new empty image (changeCount 1, no ranges, no patches, its mutex made
// when it can be: the locked calls make it later otherwise). Null when
// memory is short. The caller owns it and frees it with MEMIMAGE_Delete.
MemImage* MEMIMAGE_Create(void);
// Frees the image with every range, range buffer and patch, and closes its
// mutex. Null: nothing happens. Must not be locked by another thread.
void      MEMIMAGE_Delete(MemImage* image);
// Takes the image's recursive mutex, making it first when missing, waiting
// up to 10000 ms. 0 when taken (a failed wait counts as taken too: the
// caller then runs unprotected), to be paired with MEMIMAGE_Unlock; -1 on a
// timeout (not held); -2 for a null image or a mutex that cannot be made.
int       MEMIMAGE_Lock(MemImage* image);
// Releases one hold taken by MEMIMAGE_Lock. Null or mutex-less: nothing.
void      MEMIMAGE_Unlock(MemImage* image);

// A ...Locked form takes and releases the lock around exactly its plain
// call, and runs even when the wait times out. Functions without a Locked
// form say whether they lock.

// Number of ranges, counted by walking the list; 0 for a null image.
uint32_t  MEMIMAGE_GetNumRanges(MemImage* image);
// The range at `index` (from 0, in address order): its bytes, owned by the
// image and valid until the next change, or null when it has none. Stores
// its start and size through the pointers that are not null. Null with
// nothing stored when index is negative or past the last range. Moves the
// cursor, so stepping through indexes in order is constant per step.
uint8_t*  MEMIMAGE_GetRange(MemImage* image, int32_t index, uint32_t* start, uint32_t* size);

// Adds [start, start + size - 1] with `size` bytes copied from src; with a
// null src, bytes of the low byte of fill when fill >= 0, or no bytes at all
// (an address reservation) when fill < 0. Touching ranges join; data
// already there is never overwritten. 0 added (size 0 adds nothing);
// -1 overlaps a range, runs past 0xFFFFFFFF, or no image, and the image is
// unchanged but for changeCount; -3 no memory for the range itself. A range
// whose bytes could not be allocated is kept without bytes and not reported
// here: see MEMIMAGE_HasRangeWithoutBytes.
int  MEMIMAGE_AddData(MemImage* image, uint32_t start, uint32_t size, const void* src, int32_t fill);
// MEMIMAGE_AddData under the lock, always with fill -1 (a null src adds a
// reservation without bytes).
int  MEMIMAGE_AddDataLocked(MemImage* image, uint32_t start, uint32_t size, const void* src);
// Under the lock, adds [start, start + size - 1] as bytes all equal to fill.
// Results as MEMIMAGE_AddData.
int  MEMIMAGE_AddFill(MemImage* image, uint32_t start, uint32_t size, uint8_t fill);
// Removes every address of [first, last] (inclusive) from the ranges,
// cutting or splitting those that stick out. first > last removes nothing.
// Null image: nothing.
void MEMIMAGE_RemoveArea(MemImage* image, uint32_t first, uint32_t last);
void MEMIMAGE_RemoveAreaLocked(MemImage* image, uint32_t first, uint32_t last);

// Start of the lowest range; 0 for an empty or null image.
uint32_t MEMIMAGE_GetFirstAddr(MemImage* image);
uint32_t MEMIMAGE_GetFirstAddrLocked(MemImage* image);
// Last address of the highest range; 0 for an empty or null image (as for
// an image whose only byte is at 0).
uint32_t MEMIMAGE_GetLastAddr(MemImage* image);
uint32_t MEMIMAGE_GetLastAddrLocked(MemImage* image);
// Sum of the range sizes (gaps not counted, wraps past 4 GiB); 0 for null.
uint32_t MEMIMAGE_GetNumBytes(MemImage* image);
uint32_t MEMIMAGE_GetNumBytesLocked(MemImage* image);
// 1 when a non-empty range lacks its bytes, else 0 (also for null). After
// adds with bytes, 1 means an allocation failed.
int      MEMIMAGE_HasRangeWithoutBytes(MemImage* image);

// The byte at address: 0..255 from a range; the latest patch's value OR
// 0x100 when the address is patched; -1 when no range holds it (or null
// image); -2 when the range holding it has no bytes.
int  MEMIMAGE_ReadByte(MemImage* image, uint32_t address);
int  MEMIMAGE_ReadByteLocked(MemImage* image, uint32_t address);
// Copies [start, start + length - 1] into dest (length bytes, the caller's
// buffer): gaps and byteless ranges as fill, pending patches laid over last.
// Always 0; a null dest or length 0 does nothing, a null image gives fill.
int  MEMIMAGE_ReadArea(MemImage* image, uint32_t start, uint32_t length, uint8_t* dest, uint8_t fill);
int  MEMIMAGE_ReadAreaLocked(MemImage* image, uint32_t start, uint32_t length, uint8_t* dest, uint8_t fill);

// The next block of the image within [from, to] (inclusive): it starts in
// the first range meeting that window, takes in later ranges across gaps of
// at most maxGap bytes, has its start moved down to a multiple of
// 2^startAlignShift and its end up to a multiple of 2^endAlignShift, and is
// cut to maxLength keeping the end aligned. Returns its length; 0 when
// nothing of the image lies in the window, when the first range meets it
// only at `to` while holding more bytes, when a cut to maxLength leaves no
// aligned end, or for a null image, to < from or maxLength <= 0. Stores the
// block's start through blockStart (not null) unless nothing was found.
// When data or mask is given (each must hold the returned length), data
// receives the bytes with fill where there are none, mask 1 where a byte
// exists and 0 elsewhere; patches count as bytes. Moves the cursor, so
// walking the image block by block is linear.
int32_t MEMIMAGE_GetBlock(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap,
                          uint8_t fill, uint8_t* data, uint8_t* mask, uint32_t* blockStart,
                          int32_t maxLength, uint32_t startAlignShift, uint32_t endAlignShift);
// MEMIMAGE_GetBlock under the lock with fill 0xFF and no mask.
int32_t MEMIMAGE_GetBlockLocked(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap,
                                uint8_t* data, uint32_t* blockStart, int32_t maxLength,
                                uint32_t startAlignShift, uint32_t endAlignShift);
// MEMIMAGE_GetBlock under the lock.
int32_t MEMIMAGE_GetBlockLockedFill(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap,
                                    uint8_t fill, uint8_t* data, uint8_t* mask, uint32_t* blockStart,
                                    int32_t maxLength, uint32_t startAlignShift, uint32_t endAlignShift);

// 1 when [start, start + size - 1] lies wholly inside one range, else 0
// (also for null). Plain.
int  MEMIMAGE_IsAreaInImage(MemImage* image, uint32_t start, uint32_t size);
// Index of the first range of `other` that, moved up by offset (modulo
// 2^32), does not lie wholly inside one range of `container`, or runs past
// 0xFFFFFFFF; -1 when every range does, or when other is null or empty; 0
// when container is null or empty. Plain.
int  MEMIMAGE_FindRangeNotIn(MemImage* container, MemImage* other, uint32_t offset);
// Adds every range of src to dest (a byteless range arrives as bytes of
// 0xFF), then appends src's patches to dest's. 0 done; 1 when a range of
// src overlaps one of dest (nothing added), an add fails (those before it
// stay), or either image is null. src is unchanged. The Locked form locks
// dest, then src, and releases src first.
int  MEMIMAGE_Merge(MemImage* dest, MemImage* src);
int  MEMIMAGE_MergeLocked(MemImage* dest, MemImage* src);
// 1 when a range of a intersects a range of b, else 0 (also for null). Plain.
int  MEMIMAGE_Overlaps(MemImage* a, MemImage* b);
// Adds offset (modulo 2^32) to every range start and patch address. The
// caller keeps the order valid (no range may wrap past 0xFFFFFFFF). Returns
// 0. Plain.
int  MEMIMAGE_ShiftAddr(MemImage* image, uint32_t offset);
// Records a pending patch of one byte, which overlays the ranges (and gaps)
// for reads until committed; the latest patch of an address wins. Returns
// the patch's index; when the patch list cannot grow the patch is dropped,
// still with that index. -1 for a null image.
int  MEMIMAGE_SetByte(MemImage* image, uint32_t address, uint8_t value);
int  MEMIMAGE_SetByteLocked(MemImage* image, uint32_t address, uint8_t value);
// Under the lock, writes every patch into its range, or adds it as a
// one-byte range where no range holds it; then drops the patch list and
// sets changeCount to 0. 0 when every patch was stored; 1 when one was not
// (its range has no bytes or the add failed), or for a null image.
int  MEMIMAGE_CommitPatches(MemImage* image);
// Adds [start, start + length - 1] from src, leaving out leading blank bytes
// and every run of at least minBlankRun blank bytes; each piece is added
// with MEMIMAGE_AddDataLocked. 0 when src ends in skipped blanks (a wholly
// blank src adds nothing); else 1, also for length 0 or a null src.
int  MEMIMAGE_AddSkipBlank(MemImage* image, uint32_t start, uint32_t length, const uint8_t* src,
                           uint32_t minBlankRun, uint8_t blank);
// Under the lock, removes every run of at least minBlankRun (0 taken as 1)
// bytes of 0xFF found in 4-byte-aligned blocks of up to 64 KiB, gaps of one
// byte bridged. Returns 0 (also when its work buffer cannot be allocated,
// which leaves the image unchanged).
int  MEMIMAGE_RemoveBlank(MemImage* image, uint32_t minBlankRun);
