// Platform layer: mutexes, events, threads, time, files, paths, allocation.
// No function here prints to the console or ends the process.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

// ---- Mutexes and events (fixed tables of 64 entries) ----
typedef void* SYS_HMUTEX;          // 0 = no mutex
typedef intptr_t SYS_HEVENT;       // -1 = failure
constexpr uint32_t SYS_INFINITE = 0xFFFFFFFFu;
constexpr int SYS_WAIT_TIMEOUT = 258;

// A recursive mutex from the table; name is only traced. 0 when all 64
// entries are in use.
SYS_HMUTEX SYS_CreateMutex(const char* name);
// Takes the mutex, waiting at most timeoutMs (SYS_INFINITE: no limit).
// 0 taken, SYS_WAIT_TIMEOUT when the time ran out, -1 for a handle that is
// not a live table entry.
int  SYS_WaitForMutex(SYS_HMUTEX h, uint32_t timeoutMs);
// Takes the mutex without a time limit; an invalid handle is ignored.
void SYS_LockMutex(SYS_HMUTEX h);
// Releases one level of the calling thread's hold. 0 done, 1 for an invalid
// handle or a mutex the thread does not hold.
int  SYS_ReleaseMutex(SYS_HMUTEX h);
// Frees the table entry and sets *ph to 0; null or invalid handles are ignored.
void SYS_CloseMutex(SYS_HMUTEX* ph);

// An auto-reset event from the table, signalled when initialState is set.
// -1 when manualReset is asked for (not supported) or the table is full.
SYS_HEVENT SYS_CreateEvent(int manualReset, int initialState);
// Signals the event; one waiter (present or next) takes the signal.
void SYS_SetEvent(SYS_HEVENT h);
// Waits for the signal and consumes it. 0 signalled, SYS_WAIT_TIMEOUT,
// -1 for an invalid handle.
int  SYS_WaitForEvent(SYS_HEVENT h, uint32_t timeoutMs);
// Frees the table entry; an invalid handle is ignored.
void SYS_CloseEvent(SYS_HEVENT h);

// Starts func(arg) on a detached thread. Returns its id (also stored in
// *threadId when given). The remaining thread calls return the system
// call's result (0 success, else an error number or -1).
typedef void* (*SYS_THREAD_FUNC)(void* arg);
uint64_t SYS_CreateThread(SYS_THREAD_FUNC func, void* arg, uint64_t* threadId);
int  SYS_CancelThread(uint64_t threadId);
int  SYS_SetThreadPriority(uint64_t threadId, int priority);
uint64_t SYS_GetCurrentThreadId(void);
int  SYS_GetNumProcessors(void);     // processors online

// ---- Time ----
// Every clock here is monotonic except the calendar; none goes backwards
// when the wall clock is set.
void     SYS_Sleep(uint32_t ms);      // at least ms, also beyond 4295 s
uint32_t SYS_GetTickCount(void);      // ms since first call (first call returns 0)
uint32_t SYS_GetTickCountAbs(void);   // ms of the monotonic clock
uint64_t SYS_GetTimeUs(void);         // us since first call
uint64_t SYS_GetTimeUsRel(uint64_t offset);  // SYS_GetTimeUs() - offset
struct SYS_DATETIME { uint16_t year, month, day, hour, minute, second, milliseconds; };
// Calendar time now (month 1..12, day 1..31); null is ignored.
void SYS_GetUTCTime(SYS_DATETIME* t);
void SYS_GetLocalTime(SYS_DATETIME* t);

// ---- Init, exit hook, debug trace ----
// Opens the system log, reads SYS_DEBUG_LEVEL, and with closeHandles set
// closes every descriptor from 3 up. SYS_Exit closes the system log.
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

// Opens path by SYS_FILE_FLAG_* flags; a failed open is tried again up to
// `retries` times, retryDelayMs apart. Returns a descriptor (close-on-exec)
// or -1 with errno set. Guarantees: an open for reading yields only regular
// files (a FIFO, device or directory fails, without blocking); a writer
// without a SHARE flag holds a whole-file write lock, so a second such
// writer in another process fails instead of interleaving; APPEND starts at
// the end. New files get permissions 0644 less the umask.
int  SYS_FILE_Open(const char* path, uint32_t flags, int retries, uint32_t retryDelayMs);
// SYS_FILE_Open without retries.
int  SYS_FILE_OpenSimple(const char* path, uint32_t flags);
// SYS_FILE_OpenSimple after replacing a leading "~" by the home directory
// (HOME, else the account's), and with CREATE making the missing
// directories of the path first. -1 with errno set on failure.
int  SYS_FILE_OpenEx(const char* path, uint32_t flags);
// One read or write system call: the count moved, or -1.
int  SYS_FILE_Read(int fd, void* buffer, uint32_t numBytes);
int  SYS_FILE_Write(int fd, const void* buffer, uint32_t numBytes);
void SYS_FILE_Close(int fd);           // negative descriptors are ignored
uint32_t SYS_FILE_GetSize(int fd);     // low 32 bits of the size; 0 when unknown
uint64_t SYS_FILE_GetSize64(int fd);   // 0 when unknown
// 1 when path can be opened for reading (never blocks), else 0.
int  SYS_FILE_Exists(const char* path);
// 1 for a regular file without any write permission bit, 0 for a writable
// file, anything else or null, -1 when path does not exist.
int  SYS_FILE_IsReadOnly(const char* path);
int  SYS_GetLastError(void);           // errno of the last failed call

// ---- Paths ----
// Splits path into drive (always empty), directory (without its last '/'),
// name and extension (from the last dot, with the dot; none when the dot
// begins the path or the name). Any output may be null; each is cut to its
// size and terminated.
void SYS_SplitPath(const char* path, char* drive, int driveSize, char* dir, int dirSize,
                   char* name, int nameSize, char* ext, int extSize);
// dir and name joined by one '/' (none added when dir is empty or ends in
// '/'), cut to resultSize - 1 characters.
void SYS_MakePath(char* result, int resultSize, const char* dir, const char* name);
// The name without directory and extension, and the extension with its dot,
// as SYS_SplitPath gives them.
void SYS_GetFileName(const char* path, char* result, int size);
void SYS_GetFileExt(const char* path, char* result, int size);
// Makes path and every missing directory above it, following links in it
// (at most 128 levels deep). 0 when the directory exists afterwards, else -1.
int  SYS_CreateDirRecursive(const char* path);
// "$HOME/.config/Valmik", made if missing. 0, or -1 without HOME or when it
// cannot be made.
int  SYS_GetConfigDir(char* result, int size);
// The running executable's file, and the directory (with a trailing '/') of
// the module holding this code after following its links. Empty when
// unknown.
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

// A copy of text with its terminator, or null when it cannot be allocated.
inline SYS_Ptr<char[]> SYS_CopyText(const char* text) {
  const size_t n = std::strlen(text) + 1;
  SYS_Ptr<char[]> copy = SYS_NewArray<char>(n);
  if (copy != nullptr) std::memcpy(copy.get(), text, n);
  return copy;
}
