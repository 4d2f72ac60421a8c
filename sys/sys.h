// Platform layer: mutexes, events, threads, time, files, paths, allocation.
// No function here prints to the console or ends the process.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

// ---- Mutexes and events (fixed tables of 64 entries) ----
typedef void* SYS_HMUTEX;          // 0 = no mutex
typedef intptr_t SYS_HEVENT;       // -1 = failure
constexpr uint32_t SYS_INFINITE = 0xFFFFFFFFu;
constexpr int SYS_WAIT_TIMEOUT = 258;

SYS_HMUTEX SYS_CreateMutex(const char* name);
int  SYS_WaitForMutex(SYS_HMUTEX h, uint32_t timeoutMs);   // 0, 258, -1
void SYS_LockMutex(SYS_HMUTEX h);
int  SYS_ReleaseMutex(SYS_HMUTEX h);                       // 0 ok, 1 error
void SYS_CloseMutex(SYS_HMUTEX* ph);

SYS_HEVENT SYS_CreateEvent(int manualReset, int initialState);
void SYS_SetEvent(SYS_HEVENT h);
int  SYS_WaitForEvent(SYS_HEVENT h, uint32_t timeoutMs);   // 0, 258, -1
void SYS_CloseEvent(SYS_HEVENT h);

typedef void* (*SYS_THREAD_FUNC)(void* arg);
uint64_t SYS_CreateThread(SYS_THREAD_FUNC func, void* arg, uint64_t* threadId);
int  SYS_CancelThread(uint64_t threadId);
int  SYS_SetThreadPriority(uint64_t threadId, int priority);
uint64_t SYS_GetCurrentThreadId(void);
int  SYS_GetNumProcessors(void);

// ---- Time ----
void     SYS_Sleep(uint32_t ms);
uint32_t SYS_GetTickCount(void);      // ms since first call (first call returns 0)
uint32_t SYS_GetTickCountAbs(void);   // ms of the monotonic clock
uint64_t SYS_GetTimeUs(void);         // us since first call
uint64_t SYS_GetTimeUsRel(uint64_t offset);
struct SYS_DATETIME { uint16_t year, month, day, hour, minute, second, milliseconds; };
void SYS_GetUTCTime(SYS_DATETIME* t);
void SYS_GetLocalTime(SYS_DATETIME* t);

// ---- Init, exit hook, debug trace ----
void SYS_Init(int closeHandles);
void SYS_Exit(void);
// Trace at a level: produced only when the debug level is above `level`
// (errors use level 0, entry/exit traces level 1). The sink discards text.
void SYS_Trace(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
// Process exit hook (functions run at normal process exit, last registered first).
int  SYS_AtExit(void (*func)(void));

// ---- Files ----
enum : uint32_t {
  SYS_FILE_FLAG_READ = 1, SYS_FILE_FLAG_WRITE = 2, SYS_FILE_FLAG_SHARE_READ = 4,
  SYS_FILE_FLAG_SHARE_WRITE = 8, SYS_FILE_FLAG_CREATE = 16, SYS_FILE_FLAG_TRUNC = 32,
  SYS_FILE_FLAG_APPEND = 64, SYS_FILE_FLAG_EXCL = 128,
};
constexpr uint32_t SYS_FILE_READ_FLAGS = 5;    // read, others may read
constexpr uint32_t SYS_FILE_WRITE_FLAGS = 54;  // write, others may read, create, truncate

int  SYS_FILE_Open(const char* path, uint32_t flags, int retries, uint32_t retryDelayMs);
int  SYS_FILE_OpenSimple(const char* path, uint32_t flags);
int  SYS_FILE_OpenEx(const char* path, uint32_t flags);
int  SYS_FILE_Read(int fd, void* buffer, uint32_t numBytes);
int  SYS_FILE_Write(int fd, const void* buffer, uint32_t numBytes);
void SYS_FILE_Close(int fd);
uint32_t SYS_FILE_GetSize(int fd);
uint64_t SYS_FILE_GetSize64(int fd);   // 0 when unknown
int  SYS_FILE_Exists(const char* path);
int  SYS_FILE_IsReadOnly(const char* path);
int  SYS_GetLastError(void);

// ---- Paths ----
void SYS_SplitPath(const char* path, char* drive, int driveSize, char* dir, int dirSize,
                   char* name, int nameSize, char* ext, int extSize);
void SYS_MakePath(char* result, int resultSize, const char* dir, const char* name);
void SYS_GetFileName(const char* path, char* result, int size);
void SYS_GetFileExt(const char* path, char* result, int size);
int  SYS_CreateDirRecursive(const char* path);
int  SYS_GetConfigDir(char* result, int size);
void SYS_GetModulePath(char* result, int size);
void SYS_GetModuleDir(char* result, int size);
// Handle of the line-editing library "libedit.so.0" (lazy binding), or null.
void* SYS_OpenLibEdit(void);

// ---- Console ----
// Writes bytes to standard output unbuffered (whole buffer, retrying partial
// writes). Every console printer of the program goes through it, so the
// order of lines from different layers is kept.
void SYS_ConsoleWrite(const char* text, int length);
// Installs the function SYS_ConsoleWrite hands every text to just before it
// writes it (null: none). The console layer copies the output to a log file
// and clears its live status line through it.
void SYS_SetConsoleHook(void (*hook)(const char* text, int length));

// ---- Allocation (never throws; null on failure) ----
void* SYS_Alloc(uint32_t size);
void* SYS_Calloc(uint32_t count, uint32_t size);   // zeroed; null also when count * size overflows
// Like realloc: on failure the old block stays valid and null is returned.
void* SYS_Realloc(void* p, uint32_t size);
void  SYS_Free(void* p);
// Test hook: make the nth allocation from now (SYS_Alloc, SYS_Calloc,
// SYS_Realloc, SYS_AllocGuarded) fail once; 0 disarms. Pending: 1 while the
// armed allocation has not happened yet.
void SYS_TEST_FailAllocation(uint32_t nth);
int   SYS_TEST_AllocFailurePending(void);
// Guarded blocks: a length and a marker in front of the data, a guard byte
// behind it. SYS_CheckGuarded: 0 for null or intact, -1 when damaged.
void* SYS_AllocGuarded(uint32_t size);
int   SYS_CheckGuarded(void* p);
void  SYS_FreeGuarded(void* p);

// C++ owners of platform-allocated blocks, so that every allocation whose
// failure the program reports goes through SYS_Alloc (and its test hook).
struct SYS_FreeDeleter {
  void operator()(void* p) const { SYS_Free(p); }
};
template <typename T>
using SYS_Ptr = std::unique_ptr<T, SYS_FreeDeleter>;

// A value-initialised record, or null.
template <typename T>
SYS_Ptr<T> SYS_New() {
  static_assert(std::is_trivially_destructible_v<T>);
  void* p = SYS_Alloc(static_cast<uint32_t>(sizeof(T)));
  return SYS_Ptr<T>(p != nullptr ? new (p) T() : nullptr);
}

// An uninitialised array of n plain values, or null.
template <typename T>
SYS_Ptr<T[]> SYS_NewArray(size_t n) {
  static_assert(std::is_trivial_v<T>);
  if (n > 0xFFFFFFFFu / sizeof(T)) return SYS_Ptr<T[]>();
  return SYS_Ptr<T[]>(static_cast<T*>(SYS_Alloc(static_cast<uint32_t>(n * sizeof(T)))));
}
