// The data image: sorted, non-overlapping, non-touching ranges with their
// bytes, plus pending single-byte patches. Loading is sequential in practice,
// so the cached last range answers appends without walking, and the cursor
// makes in-order lookups constant per step.
#include "dataimage/memimage.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <new>

#include "sys/sys.h"

namespace {

constexpr uint32_t kLockTimeoutMs = 10000;
constexpr uint32_t kMinAlloc = 128;
constexpr uint32_t kPatchGrowth = 100;
// A range's size is 32 bits: ranges covering the whole address space stay
// two touching ranges.
constexpr uint64_t kMaxSize = 0xFFFFFFFFull;
// Out-of-order adds to an image of at least this many ranges build the
// side index.
constexpr uint32_t kIndexFrom = 8;

// Exclusive end in 64 bits: a range may end exactly at 0xFFFFFFFF.
inline uint64_t EndOf(const MemRange* r) { return uint64_t(r->start) + r->size; }
inline uint32_t LastOf(const MemRange* r) { return r->start + r->size - 1; }

// Side index of the ranges by start address. Built only once adds stop
// arriving in order, then kept in step with every change of a range's start
// and every range freed. It only tells an add where to start its walk, so
// losing it (no memory for a node) costs speed, never correctness.
struct RangeIndex {
  std::map<uint32_t, MemRange*> byStart;
};

RangeIndex* IndexOf(MemImage* image) { return static_cast<RangeIndex*>(image->index); }

void DropIndex(MemImage* image) {
  delete IndexOf(image);
  image->index = nullptr;
}

void IndexPut(MemImage* image, MemRange* r) {
  RangeIndex* ix = IndexOf(image);
  if (ix == nullptr) return;
  try {
    ix->byStart[r->start] = r;
  } catch (...) {
    DropIndex(image);
  }
}

void IndexErase(MemImage* image, uint32_t start) {
  if (RangeIndex* ix = IndexOf(image)) ix->byStart.erase(start);
}

void BuildIndex(MemImage* image) {
  RangeIndex* ix = new (std::nothrow) RangeIndex;
  if (ix == nullptr) return;
  try {
    for (MemRange* r = image->first; r != nullptr; r = r->next) ix->byStart.emplace_hint(ix->byStart.end(), r->start, r);
  } catch (...) {
    delete ix;
    return;
  }
  image->index = ix;
}

// The range with the highest start at or below `address`, or null.
MemRange* IndexFloor(MemImage* image, uint32_t address) {
  const auto& m = IndexOf(image)->byStart;
  auto it = m.upper_bound(address);
  return it == m.begin() ? nullptr : std::prev(it)->second;
}

void FreeRange(MemRange* r) {
  SYS_Free(r->data);
  SYS_Free(r);
}

// Grows a buffer to `want` bytes. On failure the range loses its bytes
// (allocation failures are not reported by adds; the range keeps its addresses).
void Regrow(MemRange* r, uint64_t want) {
  if (want > 0xFFFFFFFFull) want = 0xFFFFFFFFull;
  void* p = SYS_Realloc(r->data, static_cast<uint32_t>(want));
  if (p == nullptr) {
    SYS_Free(r->data);
    r->data = nullptr;
    r->allocated = 0;
    return;
  }
  r->data = static_cast<uint8_t*>(p);
  r->allocated = static_cast<uint32_t>(want);
}

void PutBytes(uint8_t* dest, uint32_t n, const void* src, int32_t fill) {
  if (src != nullptr) {
    std::memcpy(dest, src, n);
  } else {
    std::memset(dest, fill & 0xFF, n);
  }
}

MemRange* NewRange(uint32_t start, uint32_t n, const void* src, int32_t fill, bool hasData) {
  MemRange* r = static_cast<MemRange*>(SYS_Alloc(static_cast<uint32_t>(sizeof(MemRange))));
  if (r == nullptr) return nullptr;
  r->next = nullptr;
  r->start = start;
  r->size = n;
  r->data = nullptr;
  r->allocated = 0;
  if (hasData) {
    const uint32_t cap = n > kMinAlloc ? n : kMinAlloc;
    r->data = static_cast<uint8_t*>(SYS_Alloc(cap));
    if (r->data != nullptr) {
      r->allocated = cap;
      PutBytes(r->data, n, src, fill);
    }
  }
  return r;
}

MemRange* FindLast(MemImage* image) {
  if (image->last == nullptr) {
    MemRange* r = image->first;
    while (r != nullptr && r->next != nullptr) r = r->next;
    image->last = r;
  }
  return image->last;
}

// Joins r with its successor when they touch. Joining doubles the joined
// length as capacity, unlike the one-eighth growth for new bytes.
void JoinNext(MemImage* image, MemRange* r) {
  MemRange* t = r->next;
  if (t == nullptr || EndOf(r) != t->start) return;
  const uint64_t joined = uint64_t(r->size) + t->size;
  if (joined > kMaxSize) return;
  if (r->data != nullptr && t->data != nullptr) {
    if (joined > r->allocated) Regrow(r, (joined > kMinAlloc ? joined : kMinAlloc) * 2);
    if (r->data != nullptr) std::memcpy(r->data + r->size, t->data, t->size);
  } else if (r->data != nullptr) {
    // A range without bytes joins one with bytes: the joined range cannot
    // keep part of its bytes, so it becomes an address reservation.
    SYS_Free(r->data);
    r->data = nullptr;
    r->allocated = 0;
  }
  r->size = static_cast<uint32_t>(joined);
  r->next = t->next;
  if (image->last == t) image->last = nullptr;
  if (image->addHint == t) image->addHint = r;
  IndexErase(image, t->start);
  FreeRange(t);
  image->rangeCount--;
  image->cursorIndex = -1;
}

void AppendTo(MemImage* image, MemRange* r, uint32_t n, const void* src, int32_t fill, bool hasData) {
  if (hasData && r->data != nullptr) {
    if (n > r->allocated - r->size) Regrow(r, uint64_t(r->allocated) + r->allocated / 8 + kMinAlloc + n);
    if (r->data != nullptr) PutBytes(r->data + r->size, n, src, fill);
  } else if (r->data != nullptr) {
    SYS_Free(r->data);
    r->data = nullptr;
    r->allocated = 0;
  }
  r->size += n;
  JoinNext(image, r);
}

void PrependTo(MemImage* image, MemRange* prev, MemRange* r, uint32_t s, uint32_t n, const void* src,
               int32_t fill, bool hasData) {
  if (hasData && r->data != nullptr) {
    if (n > r->allocated - r->size) Regrow(r, uint64_t(r->allocated) + r->allocated / 8 + kMinAlloc + n);
    if (r->data != nullptr) {
      std::memmove(r->data + n, r->data, r->size);
      PutBytes(r->data, n, src, fill);
    }
  } else if (r->data != nullptr) {
    SYS_Free(r->data);
    r->data = nullptr;
    r->allocated = 0;
  }
  r->size += n;
  IndexErase(image, r->start);
  r->start = s;
  IndexPut(image, r);
  if (prev != nullptr) JoinNext(image, prev);
}

// One add: its area, and its bytes (copied from src, else set to the low
// byte of fill) unless it carries none.
struct Addition {
  uint32_t start;
  uint32_t size;
  const void* src;
  int32_t fill;
  bool hasData;
  uint64_t End() const { return uint64_t(start) + size; }
};

// Links a new range for the addition after prev (at the head for null).
// No join is tried. 0, or -3 without memory for the range.
int InsertAfter(MemImage* image, MemRange* prev, const Addition& add) {
  MemRange* r = NewRange(add.start, add.size, add.src, add.fill, add.hasData);
  if (r == nullptr) return -3;
  if (prev == nullptr) {
    r->next = image->first;
    image->first = r;
  } else {
    r->next = prev->next;
    prev->next = r;
  }
  image->rangeCount++;
  if (r->next == nullptr) image->last = r;
  image->addHint = r;
  IndexPut(image, r);
  return 0;
}

// Appends to r, which ends where the addition starts; a range of its own
// when the joined size would not fit 32 bits.
int AppendOrInsert(MemImage* image, MemRange* r, const Addition& add) {
  if (uint64_t(r->size) + add.size > kMaxSize) return InsertAfter(image, r, add);
  AppendTo(image, r, add.size, add.src, add.fill, add.hasData);
  image->addHint = r;
  return 0;
}

// Prepends to r, which starts where the addition ends (prev before it).
int PrependOrInsert(MemImage* image, MemRange* prev, MemRange* r, const Addition& add) {
  if (uint64_t(r->size) + add.size > kMaxSize) return InsertAfter(image, prev, add);
  PrependTo(image, prev, r, add.start, add.size, add.src, add.fill, add.hasData);
  // Joining with the predecessor frees r.
  image->addHint = prev != nullptr ? prev : r;
  return 0;
}

// Where the walk of an add begins: the last range beginning at or below
// `start`, found by the side index, or, while the image is small, the range
// the last add touched when that lies there (out-of-order adds mostly land
// just after the previous one); else the first range. Starting there needs
// no predecessor: the first step can only append to that range, refuse an
// overlap, or move on.
MemRange* WalkStart(MemImage* image, uint32_t start) {
  if (image->index == nullptr && image->rangeCount >= kIndexFrom) BuildIndex(image);
  if (image->index != nullptr) {
    if (MemRange* floor = IndexFloor(image, start)) return floor;
  } else if (image->addHint != nullptr && image->addHint->start <= start) {
    return image->addHint;
  }
  return image->first;
}

// An add that does not lie behind the last range: appends, prepends,
// inserts between, or refuses an overlap (-1).
int AddAmongRanges(MemImage* image, const Addition& add) {
  MemRange* prev = nullptr;
  for (MemRange* r = WalkStart(image, add.start); r != nullptr; r = r->next) {
    const uint64_t end = EndOf(r);
    if (add.start == end) {
      // Appending must not run into the next range.
      if (r->next != nullptr && add.End() > r->next->start) return -1;
      return AppendOrInsert(image, r, add);
    }
    if (r->start == add.End()) return PrependOrInsert(image, prev, r, add);
    if (add.start <= r->start) {
      if (add.End() - 1 >= r->start) return -1;
      return InsertAfter(image, prev, add);
    }
    if (add.start <= end - 1) return -1;
    prev = r;
  }
  return InsertAfter(image, prev, add);
}

// Cuts a range down to its first headSize bytes, giving the buffer back
// down to that size.
void KeepHead(MemRange* r, uint32_t headSize) {
  if (r->data != nullptr) {
    uint8_t* p = static_cast<uint8_t*>(SYS_Alloc(headSize));
    if (p != nullptr) std::memcpy(p, r->data, headSize);
    SYS_Free(r->data);
    r->data = p;
    r->allocated = p != nullptr ? headSize : 0;
  }
  r->size = headSize;
}

// Removes r (after prev, null at the head) from the list and frees it.
void Unlink(MemImage* image, MemRange* prev, MemRange* r) {
  if (prev == nullptr) image->first = r->next; else prev->next = r->next;
  if (image->last == r) image->last = nullptr;
  IndexErase(image, r->start);
  FreeRange(r);
  image->rangeCount--;
}

// Cuts r, which begins at or below b and ends after it, down to the bytes
// after b, in a buffer of exactly their size.
void KeepTailAfter(MemImage* image, MemRange* r, uint32_t b) {
  const uint32_t cut = b - r->start + 1;
  const uint32_t keep = r->size - cut;
  if (r->data != nullptr) {
    uint8_t* p = static_cast<uint8_t*>(SYS_Alloc(keep));
    if (p != nullptr) std::memcpy(p, r->data + cut, keep);
    SYS_Free(r->data);
    r->data = p;
    r->allocated = p != nullptr ? keep : 0;
  }
  IndexErase(image, r->start);
  r->start = b + 1;
  r->size = keep;
  IndexPut(image, r);
}

// Takes [a, b], strictly inside r, out of it: the bytes after b move to a
// new range linked behind r, r keeps those before a. Without memory for the
// new range its addresses are lost with [a, b].
void SplitAround(MemImage* image, MemRange* r, uint32_t a, uint32_t b) {
  const uint32_t tailSize = LastOf(r) - b;
  const uint32_t headSize = a - r->start;
  MemRange* t = static_cast<MemRange*>(SYS_Alloc(static_cast<uint32_t>(sizeof(MemRange))));
  if (t != nullptr) {
    t->start = b + 1;
    t->size = tailSize;
    t->data = nullptr;
    t->allocated = 0;
    if (r->data != nullptr) {
      const uint32_t cap = tailSize > kMinAlloc ? tailSize : kMinAlloc;
      t->data = static_cast<uint8_t*>(SYS_Alloc(cap));
      if (t->data != nullptr) {
        t->allocated = cap;
        std::memcpy(t->data, r->data + (b + 1 - r->start), tailSize);
      }
    }
    t->next = r->next;
    r->next = t;
    if (image->last == r) image->last = t;
    image->rangeCount++;
    IndexPut(image, t);
  }
  KeepHead(r, headSize);
}

// Finds the range holding `address` (or the first range after it), moving
// the cursor. Returns null when no range ends at or after the address.
MemRange* Seek(MemImage* image, uint32_t address) {
  MemRange* r;
  int32_t index;
  if (image->cursorIndex >= 0 && image->cursorRange != nullptr && image->cursorRange->start <= address) {
    r = image->cursorRange;
    index = image->cursorIndex;
  } else {
    r = image->first;
    index = 0;
  }
  while (r != nullptr && LastOf(r) < address) {
    r = r->next;
    index++;
  }
  if (r != nullptr) {
    image->cursorIndex = index;
    image->cursorRange = r;
  }
  return r;
}

int FindPatch(const MemImage* image, uint32_t address) {
  for (uint32_t i = image->patchCount; i-- > 0;) {
    if (image->patches[i].address == address) return static_cast<int>(image->patches[i].value & 0xFF);
  }
  return -1;
}

bool EnsureMutex(MemImage* image) {
  if (image->mutex == nullptr) image->mutex = SYS_CreateMutex(nullptr);
  return image->mutex != nullptr;
}

// Locked operations proceed even when the wait times out: the timeout is
// deliberately not an error, the operation then runs unprotected.
class Guard {
 public:
  explicit Guard(MemImage* image) : image_(image) {
    if (image_ != nullptr && EnsureMutex(image_)) {
      SYS_WaitForMutex(image_->mutex, kLockTimeoutMs);
      held_ = true;
    }
  }
  ~Guard() {
    if (held_) SYS_ReleaseMutex(image_->mutex);
  }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  MemImage* image_;
  bool held_ = false;
};

// A block of MEMIMAGE_GetBlock, in 64 bits: it may end at the top of the
// address space.
struct Block {
  uint64_t start = 0;
  uint64_t length = 0;
};

// The part of the first range meeting [from, to]. Returns that range, or
// null when nothing of the image lies there. The partial block needs `to`
// strictly above the range start: a single byte at `to` of a longer range
// is not returned.
MemRange* FirstBlock(MemImage* image, uint32_t from, uint32_t to, Block& b) {
  MemRange* r = Seek(image, from);
  if (r == nullptr) return nullptr;
  const uint32_t rLast = LastOf(r);
  if (r->start <= from) {
    b = {from, uint64_t(rLast < to ? rLast : to) - from + 1};
  } else if (rLast <= to) {
    b = {r->start, r->size};
  } else if (to > r->start) {
    b = {r->start, uint64_t(to) + 1 - r->start};
  } else {
    return nullptr;
  }
  return r;
}

// Takes in the ranges after r while the gap before each is at most maxGap,
// up to `to`, until the block reaches maxLen.
void ExtendOverGaps(const MemRange* r, uint32_t to, uint32_t maxGap, uint64_t maxLen, Block& b) {
  for (const MemRange* n = r->next; n != nullptr; n = n->next) {
    if (n->start > to) break;
    const uint64_t gap = n->start - (b.start + b.length);
    if (gap > maxGap) break;
    const uint32_t nLast = LastOf(n);
    b.length += gap + (uint64_t(nLast < to ? nLast : to) - n->start + 1);
    if (b.length >= maxLen || nLast > to) break;
  }
}

// Moves the start down to a multiple of 2^startShift and the end up to a
// multiple of 2^endShift, then cuts the block to maxLen keeping its end
// aligned. A maximum below one end unit can leave nothing: length 0.
void AlignAndClamp(Block& b, uint32_t startShift, uint32_t endShift, uint64_t maxLen) {
  if (startShift != 0) {
    const uint64_t aligned = b.start & ~((uint64_t(1) << startShift) - 1);
    b.length += b.start - aligned;
    b.start = aligned;
  }
  const uint64_t endUnit = uint64_t(1) << endShift;
  if (endShift != 0) b.length = ((b.start + b.length + endUnit - 1) & ~(endUnit - 1)) - b.start;
  if (b.length > maxLen) {
    const uint64_t cut = (b.start + maxLen) % endUnit;
    b.length = cut < maxLen ? maxLen - cut : 0;
  }
}

// With patches pending every byte is looked up on its own, as a read would.
void FillByteByByte(MemImage* image, const Block& b, uint8_t fill, uint8_t* data, uint8_t* mask) {
  for (size_t i = 0; i < b.length; i++) {
    const int v = MEMIMAGE_ReadByte(image, static_cast<uint32_t>(b.start + i));
    if (data != nullptr) data[i] = v < 0 ? fill : static_cast<uint8_t>(v);
    if (mask != nullptr) mask[i] = v < 0 ? 0 : 1;
  }
}

// Without patches: fill and clear the mask, then copy each range meeting
// the block. Alignment may have moved the start below the range found;
// earlier ranges can then meet the block too.
void FillFromRanges(MemImage* image, MemRange* found, const Block& b, uint8_t fill, uint8_t* data, uint8_t* mask) {
  const size_t n = static_cast<size_t>(b.length);
  if (data != nullptr) std::memset(data, fill, n);
  if (mask != nullptr) std::memset(mask, 0, n);
  MemRange* q = found;
  if (b.start < found->start && found != image->first) {
    q = image->first;
    while (q != found && EndOf(q) <= b.start) q = q->next;
  }
  const uint64_t blockEnd = b.start + b.length;
  for (; q != nullptr && q->start < blockEnd; q = q->next) {
    const uint64_t from = q->start > b.start ? q->start : b.start;
    const uint64_t to = EndOf(q) < blockEnd ? EndOf(q) : blockEnd;
    if (from >= to) continue;
    if (data != nullptr && q->data != nullptr) {
      std::memcpy(data + (from - b.start), q->data + (from - q->start), static_cast<size_t>(to - from));
    }
    if (mask != nullptr) std::memset(mask + (from - b.start), 1, static_cast<size_t>(to - from));
  }
}

}  // namespace

MemImage* MEMIMAGE_Create(void) {
  MemImage* image = static_cast<MemImage*>(SYS_Calloc(1, sizeof(MemImage)));
  if (image == nullptr) return nullptr;
  image->changeCount = 1;
  image->cursorIndex = -1;
  image->mutex = SYS_CreateMutex(nullptr);
  return image;
}

void MEMIMAGE_Delete(MemImage* image) {
  if (image == nullptr) return;
  if (image->mutex != nullptr) SYS_CloseMutex(&image->mutex);
  DropIndex(image);
  MemRange* r = image->first;
  while (r != nullptr) {
    MemRange* next = r->next;
    FreeRange(r);
    r = next;
  }
  SYS_Free(image->patches);
  SYS_Free(image);
}

int MEMIMAGE_Lock(MemImage* image) {
  if (image == nullptr || !EnsureMutex(image)) return -2;
  return SYS_WaitForMutex(image->mutex, kLockTimeoutMs) == SYS_WAIT_TIMEOUT ? -1 : 0;
}

void MEMIMAGE_Unlock(MemImage* image) {
  if (image != nullptr && image->mutex != nullptr) SYS_ReleaseMutex(image->mutex);
}

uint32_t MEMIMAGE_GetNumRanges(MemImage* image) {
  if (image == nullptr) return 0;
  uint32_t n = 0;
  for (MemRange* r = image->first; r != nullptr; r = r->next) n++;
  return n;
}

uint8_t* MEMIMAGE_GetRange(MemImage* image, int32_t index, uint32_t* start, uint32_t* size) {
  if (image == nullptr || index < 0) return nullptr;
  MemRange* r;
  int32_t i;
  if (image->cursorIndex >= 0 && image->cursorRange != nullptr && image->cursorIndex <= index) {
    r = image->cursorRange;
    i = image->cursorIndex;
  } else {
    r = image->first;
    i = 0;
  }
  while (r != nullptr && i < index) {
    r = r->next;
    i++;
  }
  if (r == nullptr) return nullptr;
  image->cursorIndex = i;
  image->cursorRange = r;
  if (start != nullptr) *start = r->start;
  if (size != nullptr) *size = r->size;
  return r->data;
}

int MEMIMAGE_AddData(MemImage* image, uint32_t start, uint32_t size, const void* src, int32_t fill) {
  if (image == nullptr) return -1;
  image->changeCount++;
  image->cursorIndex = -1;
  // An empty add changes nothing; an add that would run past the top of the
  // address space cannot be held and is refused like an overlap.
  if (size == 0) return 0;
  if (uint64_t(start) + size > 0x100000000ull) return -1;
  const Addition add{start, size, src, fill, !(fill < 0 && src == nullptr)};
  if (image->first == nullptr) return InsertAfter(image, nullptr, add);
  MemRange* last = FindLast(image);
  if (start == EndOf(last)) return AppendOrInsert(image, last, add);
  if (start > EndOf(last)) return InsertAfter(image, last, add);
  return AddAmongRanges(image, add);
}

int MEMIMAGE_AddDataLocked(MemImage* image, uint32_t start, uint32_t size, const void* src) {
  Guard g(image);
  return MEMIMAGE_AddData(image, start, size, src, -1);
}

int MEMIMAGE_AddFill(MemImage* image, uint32_t start, uint32_t size, uint8_t fill) {
  Guard g(image);
  return MEMIMAGE_AddData(image, start, size, nullptr, fill);
}

void MEMIMAGE_RemoveArea(MemImage* image, uint32_t a, uint32_t b) {
  if (image == nullptr) return;
  image->changeCount++;
  image->cursorIndex = -1;
  image->addHint = nullptr;
  if (b < a) return;
  MemRange* prev = nullptr;
  MemRange* r = image->first;
  while (r != nullptr) {
    MemRange* next = r->next;
    const uint32_t rLast = LastOf(r);
    if (r->start >= a && rLast <= b) {
      Unlink(image, prev, r);
      r = next;
      continue;
    }
    if (r->start >= a && r->start <= b) {
      KeepTailAfter(image, r, b);
    } else if (a > r->start && b < rLast) {
      SplitAround(image, r, a, b);
      next = r->next;
    } else if (r->start < a && rLast >= a && rLast <= b) {
      KeepHead(r, a - r->start);
    }
    prev = r;
    r = next;
  }
}

void MEMIMAGE_RemoveAreaLocked(MemImage* image, uint32_t first, uint32_t last) {
  Guard g(image);
  MEMIMAGE_RemoveArea(image, first, last);
}

uint32_t MEMIMAGE_GetFirstAddr(MemImage* image) {
  return (image != nullptr && image->first != nullptr) ? image->first->start : 0;
}

uint32_t MEMIMAGE_GetFirstAddrLocked(MemImage* image) {
  Guard g(image);
  return MEMIMAGE_GetFirstAddr(image);
}

uint32_t MEMIMAGE_GetLastAddr(MemImage* image) {
  if (image == nullptr || image->first == nullptr) return 0;
  return LastOf(FindLast(image));
}

uint32_t MEMIMAGE_GetLastAddrLocked(MemImage* image) {
  Guard g(image);
  return MEMIMAGE_GetLastAddr(image);
}

uint32_t MEMIMAGE_GetNumBytes(MemImage* image) {
  if (image == nullptr) return 0;
  uint32_t n = 0;
  for (MemRange* r = image->first; r != nullptr; r = r->next) n += r->size;
  return n;
}

int MEMIMAGE_HasRangeWithoutBytes(MemImage* image) {
  if (image == nullptr) return 0;
  for (MemRange* r = image->first; r != nullptr; r = r->next) {
    if (r->data == nullptr && r->size != 0) return 1;
  }
  return 0;
}

uint32_t MEMIMAGE_GetNumBytesLocked(MemImage* image) {
  Guard g(image);
  return MEMIMAGE_GetNumBytes(image);
}

int MEMIMAGE_ReadByte(MemImage* image, uint32_t address) {
  if (image == nullptr) return -1;
  const int patched = FindPatch(image, address);
  if (patched >= 0) return patched | 0x100;
  MemRange* r = Seek(image, address);
  if (r == nullptr || r->start > address) return -1;
  if (r->data == nullptr) return -2;
  return r->data[address - r->start];
}

int MEMIMAGE_ReadByteLocked(MemImage* image, uint32_t address) {
  Guard g(image);
  return MEMIMAGE_ReadByte(image, address);
}

int MEMIMAGE_ReadArea(MemImage* image, uint32_t start, uint32_t length, uint8_t* dest, uint8_t fill) {
  if (dest == nullptr || length == 0) return 0;
  std::memset(dest, fill, length);
  if (image == nullptr) return 0;
  const uint64_t areaEnd = uint64_t(start) + length;  // exclusive
  for (MemRange* r = Seek(image, start); r != nullptr && r->start < areaEnd; r = r->next) {
    const uint64_t from = r->start > start ? r->start : start;
    const uint64_t to = EndOf(r) < areaEnd ? EndOf(r) : areaEnd;
    if (from < to && r->data != nullptr) {
      std::memcpy(dest + (from - start), r->data + (from - r->start), static_cast<size_t>(to - from));
    }
  }
  for (uint32_t i = 0; i < image->patchCount; i++) {
    const uint32_t addr = image->patches[i].address;
    if (addr >= start && addr < areaEnd) dest[addr - start] = static_cast<uint8_t>(image->patches[i].value);
  }
  return 0;
}

int MEMIMAGE_ReadAreaLocked(MemImage* image, uint32_t start, uint32_t length, uint8_t* dest, uint8_t fill) {
  Guard g(image);
  return MEMIMAGE_ReadArea(image, start, length, dest, fill);
}

int32_t MEMIMAGE_GetBlock(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap, uint8_t fill,
                          uint8_t* data, uint8_t* mask, uint32_t* blockStart, int32_t maxLength,
                          uint32_t startAlignShift, uint32_t endAlignShift) {
  if (image == nullptr || to < from || maxLength <= 0) return 0;
  const uint64_t maxLen = static_cast<uint64_t>(maxLength);
  Block b;
  MemRange* found = FirstBlock(image, from, to, b);
  if (found == nullptr) return 0;
  if (b.length < maxLen && maxGap != 0) ExtendOverGaps(found, to, maxGap, maxLen, b);
  AlignAndClamp(b, startAlignShift, endAlignShift, maxLen);
  if (blockStart != nullptr) *blockStart = static_cast<uint32_t>(b.start);
  if (data != nullptr || mask != nullptr) {
    if (image->patchCount != 0) {
      FillByteByByte(image, b, fill, data, mask);
    } else {
      FillFromRanges(image, found, b, fill, data, mask);
    }
  }
  return static_cast<int32_t>(b.length);
}

int32_t MEMIMAGE_GetBlockLocked(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap, uint8_t* data,
                                uint32_t* blockStart, int32_t maxLength, uint32_t startAlignShift,
                                uint32_t endAlignShift) {
  Guard g(image);
  return MEMIMAGE_GetBlock(image, from, to, maxGap, 0xFF, data, nullptr, blockStart, maxLength,
                           startAlignShift, endAlignShift);
}

int32_t MEMIMAGE_GetBlockLockedFill(MemImage* image, uint32_t from, uint32_t to, uint32_t maxGap, uint8_t fill,
                                    uint8_t* data, uint8_t* mask, uint32_t* blockStart, int32_t maxLength,
                                    uint32_t startAlignShift, uint32_t endAlignShift) {
  Guard g(image);
  return MEMIMAGE_GetBlock(image, from, to, maxGap, fill, data, mask, blockStart, maxLength, startAlignShift,
                           endAlignShift);
}

int MEMIMAGE_IsAreaInImage(MemImage* image, uint32_t start, uint32_t size) {
  if (image == nullptr) return 0;
  MemRange* r = Seek(image, start);
  if (r == nullptr || r->start > start) return 0;
  return uint64_t(start) + size <= EndOf(r) ? 1 : 0;
}

int MEMIMAGE_FindRangeNotIn(MemImage* container, MemImage* other, uint32_t offset) {
  if (other == nullptr || other->first == nullptr) return -1;
  if (container == nullptr || container->first == nullptr) return 0;
  int index = 0;
  for (MemRange* r = other->first; r != nullptr; r = r->next, index++) {
    const uint32_t s = r->start + offset;
    if (uint64_t(s) + r->size > 0x100000000ull || !MEMIMAGE_IsAreaInImage(container, s, r->size)) return index;
  }
  return -1;
}

int MEMIMAGE_Overlaps(MemImage* a, MemImage* b) {
  if (a == nullptr || b == nullptr) return 0;
  const MemRange* x = a->first;
  const MemRange* y = b->first;
  while (x != nullptr && y != nullptr) {
    if (EndOf(x) <= y->start) {
      x = x->next;
    } else if (EndOf(y) <= x->start) {
      y = y->next;
    } else {
      return 1;
    }
  }
  return 0;
}

int MEMIMAGE_Merge(MemImage* dest, MemImage* src) {
  if (dest == nullptr || src == nullptr) return 1;
  if (MEMIMAGE_Overlaps(dest, src)) return 1;
  for (MemRange* r = src->first; r != nullptr; r = r->next) {
    if (MEMIMAGE_AddData(dest, r->start, r->size, r->data, 0xFF) != 0) return 1;
  }
  for (uint32_t i = 0; i < src->patchCount; i++) {
    MEMIMAGE_SetByte(dest, src->patches[i].address, static_cast<uint8_t>(src->patches[i].value));
  }
  return 0;
}

int MEMIMAGE_MergeLocked(MemImage* dest, MemImage* src) {
  Guard gd(dest);
  Guard gs(src);  // destroyed first: the source is released first
  return MEMIMAGE_Merge(dest, src);
}

int MEMIMAGE_ShiftAddr(MemImage* image, uint32_t offset) {
  if (image == nullptr) return 0;
  image->changeCount++;
  image->cursorIndex = -1;
  image->addHint = nullptr;
  DropIndex(image);  // rebuilt by the next add that needs it
  for (MemRange* r = image->first; r != nullptr; r = r->next) r->start += offset;
  for (uint32_t i = 0; i < image->patchCount; i++) image->patches[i].address += offset;
  return 0;
}

int MEMIMAGE_SetByte(MemImage* image, uint32_t address, uint8_t value) {
  if (image == nullptr) return -1;
  image->changeCount++;
  const int index = static_cast<int>(image->patchCount);
  if (image->patchCount == image->patchCapacity) {
    const uint32_t cap = image->patchCapacity + kPatchGrowth;
    void* p = SYS_Realloc(image->patches, static_cast<uint32_t>(sizeof(MemPatch) * cap));
    if (p == nullptr) return index;  // dropped silently
    image->patches = static_cast<MemPatch*>(p);
    image->patchCapacity = cap;
  }
  image->patches[image->patchCount++] = MemPatch{address, value};
  return index;
}

int MEMIMAGE_SetByteLocked(MemImage* image, uint32_t address, uint8_t value) {
  Guard g(image);
  return MEMIMAGE_SetByte(image, address, value);
}

int MEMIMAGE_CommitPatches(MemImage* image) {
  if (image == nullptr) return 1;
  Guard g(image);
  int result = 0;
  for (uint32_t i = 0; i < image->patchCount; i++) {
    const uint32_t addr = image->patches[i].address;
    const uint8_t v = static_cast<uint8_t>(image->patches[i].value);
    MemRange* r = Seek(image, addr);
    if (r != nullptr && r->start <= addr) {
      if (r->data != nullptr) {
        r->data[addr - r->start] = v;
      } else {
        result = 1;
      }
    } else if (MEMIMAGE_AddData(image, addr, 1, &v, -1) != 0) {
      result = 1;
    }
  }
  SYS_Free(image->patches);
  image->patches = nullptr;
  image->patchCount = 0;
  image->patchCapacity = 0;
  image->changeCount = 0;
  return result;
}

int MEMIMAGE_AddSkipBlank(MemImage* image, uint32_t start, uint32_t length, const uint8_t* src,
                          uint32_t minBlankRun, uint8_t blank) {
  if (length == 0 || src == nullptr) return 1;
  uint32_t i = 0;
  while (i < length && src[i] == blank) i++;
  if (i == length) return 0;
  uint32_t pieceStart = i;
  uint32_t run = 0;
  for (; i < length; i++) {
    if (src[i] != blank) {
      run = 0;
      continue;
    }
    if (++run != minBlankRun) continue;
    const uint32_t pieceEnd = i + 1 - run;
    MEMIMAGE_AddDataLocked(image, start + pieceStart, pieceEnd - pieceStart, src + pieceStart);
    while (i < length && src[i] == blank) i++;
    if (i == length) return 0;
    pieceStart = i;
    run = 0;
  }
  MEMIMAGE_AddDataLocked(image, start + pieceStart, length - pieceStart, src + pieceStart);
  return 1;
}

int MEMIMAGE_RemoveBlank(MemImage* image, uint32_t minBlankRun) {
  if (image == nullptr) return 0;
  constexpr int32_t kBlock = 0x10000;
  uint8_t* buf = static_cast<uint8_t*>(SYS_Alloc(kBlock));
  if (buf == nullptr) return 0;
  if (minBlankRun == 0) minBlankRun = 1;
  Guard g(image);
  uint32_t cursor = 0;
  for (;;) {
    uint32_t bs = 0;
    const int32_t len = MEMIMAGE_GetBlock(image, cursor, 0xFFFFFFFFu, 1, 0xFF, buf, nullptr, &bs, kBlock, 2, 2);
    if (len <= 0) break;
    uint32_t runStart = 0;
    uint32_t run = 0;
    for (int32_t i = 0; i <= len; i++) {
      if (i < len && buf[i] == 0xFF) {
        if (run++ == 0) runStart = static_cast<uint32_t>(i);
        continue;
      }
      if (run >= minBlankRun) MEMIMAGE_RemoveArea(image, bs + runStart, bs + runStart + run - 1);
      run = 0;
    }
    const uint64_t next = uint64_t(bs) + static_cast<uint32_t>(len);
    if (next > 0xFFFFFFFFull) break;
    cursor = static_cast<uint32_t>(next);
  }
  SYS_Free(buf);
  return 0;
}
