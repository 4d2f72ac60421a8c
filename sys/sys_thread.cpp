// Mutexes and events from fixed tables, threads, clocks, calendar, the debug
// trace and process start/exit services.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "sys/sys.h"
#include "util/util.h"

namespace {

constexpr int kNumEntries = 64;

struct MutexEntry {
  volatile int inUse;
  char name[32];
  pthread_mutex_t mutex;
  pthread_mutexattr_t attr;
};

struct EventEntry {
  volatile int inUse;
  volatile int signalled;
  pthread_mutex_t mutex;
  pthread_cond_t cond;
};

MutexEntry g_mutexes[kNumEntries];
EventEntry g_events[kNumEntries];
int g_debugLevel = 0;

// Trace levels: error traces are produced from level 1 on, entry and exit
// traces above level 1.
constexpr int kTraceError = 0;
constexpr int kTraceInfo = 1;

const char* ErrText(int err) { return std::strerror(err); }

// Absolute deadline from the time of day, as the timed waits need it.
// Returns 0, or the error number when the time of day can't be read.
int ComputeDeadline(uint32_t timeoutMs, timespec* deadline) {
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    int err = errno;
    SYS_Trace(kTraceError, "Cannot compute timeout (Time of day error: %s)!\n", ErrText(err));
    return err != 0 ? err : EINVAL;
  }
  long sec = now.tv_sec + static_cast<long>(timeoutMs / 1000);
  long usec = now.tv_usec + static_cast<long>(timeoutMs % 1000) * 1000;
  if (usec >= 1000000) {
    sec += 1;
    usec -= 1000000;
  }
  deadline->tv_sec = sec;
  deadline->tv_nsec = usec * 1000;
  return 0;
}

MutexEntry* AsMutex(SYS_HMUTEX h) { return static_cast<MutexEntry*>(h); }

EventEntry* AsEvent(SYS_HEVENT h) {
  if (h == -1 || h == 0) {
    return nullptr;
  }
  return reinterpret_cast<EventEntry*>(h);
}

uint32_t MonotonicMs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint32_t>(ts.tv_sec) * 1000u + static_cast<uint32_t>(ts.tv_nsec / 1000000);
}

uint64_t MonotonicUs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec / 1000);
}

// The first unused entry of a handle table, or null when all are in use.
template <typename Entry, size_t N>
Entry* FirstFree(Entry (&table)[N]) {
  for (Entry& e : table) {
    if (e.inUse == 0) return &e;
  }
  return nullptr;
}

// A clock that reads 0 at its first call and the time since then after.
template <typename T>
struct SinceFirstCall {
  bool started = false;
  T base = 0;
  T Read(T now) {
    if (!started) {
      base = now;
      started = true;
      return 0;
    }
    return now - base;
  }
};

}  // namespace

// ---------------------------------------------------------------- trace

void SYS_Trace(int level, const char* format, ...) {
  if (g_debugLevel <= level) {
    return;
  }
  char text[512];
  va_list args;
  va_start(args, format);
  UTIL_vsnprintf(text, sizeof text, format, args);
  va_end(args);
  // The sink discards the text: a build that wants traces sends them to the
  // system log opened by SYS_Init.
  (void)text;
}

// ---------------------------------------------------------------- mutexes

SYS_HMUTEX SYS_CreateMutex(const char* name) {
  SYS_Trace(kTraceInfo, "SYS_CreateMutex(sName = %s) entry\n", name != nullptr ? name : "<unnamed>");
  MutexEntry* e = FirstFree(g_mutexes);
  if (e == nullptr) {
    SYS_Trace(kTraceError, "SYS_CreateMutex() exit: No more entries\n");
    return nullptr;
  }
  int r = pthread_mutexattr_init(&e->attr);
  if (r != 0) {
    SYS_Trace(kTraceError, "SYS_CreateMutex() exit: Attr init error: (%s)\n", ErrText(r));
    return nullptr;
  }
  r = pthread_mutexattr_settype(&e->attr, PTHREAD_MUTEX_RECURSIVE);
  if (r != 0) {
    SYS_Trace(kTraceError, "SYS_CreateMutex() exit: Set type error: (%s)\n", ErrText(r));
    pthread_mutexattr_destroy(&e->attr);
    return nullptr;
  }
  r = pthread_mutex_init(&e->mutex, &e->attr);
  if (r != 0) {
    SYS_Trace(kTraceError, "SYS_CreateMutex() exit: Mutex init error: (%s).\n", ErrText(r));
    pthread_mutexattr_destroy(&e->attr);
    return nullptr;
  }
  UTIL_strcpy(e->name, name != nullptr ? name : "", sizeof e->name);
  e->inUse = 1;
  SYS_Trace(kTraceInfo, "SYS_CreateMutex() exit: %p\n", static_cast<void*>(e));
  return e;
}

int SYS_WaitForMutex(SYS_HMUTEX h, uint32_t timeoutMs) {
  SYS_Trace(kTraceInfo, "SYS_WaitForMutex(hMutex = %p, TimeOut = %d) entry\n", h,
            static_cast<int>(timeoutMs));
  MutexEntry* e = AsMutex(h);
  if (e == nullptr) {
    SYS_Trace(kTraceError, "SYS_WaitForMutex(): Invalid handle.\n");
    return -1;
  }
  if (e->inUse == 0) {
    SYS_Trace(kTraceError, "SYS_WaitForMutex(): Not in use.\n");
    return -1;
  }
  if (timeoutMs == SYS_INFINITE) {
    int r = pthread_mutex_lock(&e->mutex);
    if (r != 0) {
      SYS_Trace(kTraceError, "SYS_WaitForMutex(): Lock error: %s.\n", ErrText(r));
      return -1;
    }
    SYS_Trace(kTraceInfo, "SYS_WaitForMutex() exit");
    return 0;
  }
  timespec deadline;
  if (ComputeDeadline(timeoutMs, &deadline) != 0) {
    SYS_Trace(kTraceError, "SYS_WaitForMutex(): Unspecified error while calculating timeout\n");
    return -1;
  }
  int r = pthread_mutex_timedlock(&e->mutex, &deadline);
  if (r == ETIMEDOUT) {
    SYS_Trace(kTraceInfo, "SYS_WaitForMutex(): Timeout while waiting for mutex\n");
    return SYS_WAIT_TIMEOUT;
  }
  if (r != 0) {
    SYS_Trace(kTraceError, "SYS_WaitForMutex(): Error while waiting for mutex: %s\n", ErrText(r));
    return -1;
  }
  SYS_Trace(kTraceInfo, "SYS_WaitForMutex() exit");
  return 0;
}

void SYS_LockMutex(SYS_HMUTEX h) {
  SYS_Trace(kTraceInfo, "SYS_WaitForMutex(hMutex = %p, TimeOut = %d) entry\n", h, -1);
  MutexEntry* e = AsMutex(h);
  if (e == nullptr) {
    SYS_Trace(kTraceError, "SYS_WaitForMutex(): Invalid handle.\n");
    return;
  }
  if (e->inUse == 0) {
    SYS_Trace(kTraceError, "SYS_WaitForMutex(): Not in use.\n");
    return;
  }
  int r = pthread_mutex_lock(&e->mutex);
  if (r != 0) {
    SYS_Trace(kTraceError, "SYS_WaitForMutex(): Lock error: %s.\n", ErrText(r));
    return;
  }
  SYS_Trace(kTraceInfo, "SYS_WaitForMutex() exit");
}

int SYS_ReleaseMutex(SYS_HMUTEX h) {
  SYS_Trace(kTraceInfo, "SYS_ReleaseMutex(hMutex = %p) entry\n", h);
  MutexEntry* e = AsMutex(h);
  if (e == nullptr) {
    SYS_Trace(kTraceError, "SYS_ReleaseMutex(): Invalid handle\n");
    return 1;
  }
  if (e->inUse == 0) {
    SYS_Trace(kTraceError, "SYS_ReleaseMutex(): Not in use\n");
    return 1;
  }
  int r = pthread_mutex_unlock(&e->mutex);
  if (r != 0) {
    SYS_Trace(kTraceError, "SYS_ReleaseMutex(): %s\n", ErrText(r));
    return 1;
  }
  SYS_Trace(kTraceInfo, "SYS_ReleaseMutex() exit\n");
  return 0;
}

void SYS_CloseMutex(SYS_HMUTEX* ph) {
  SYS_Trace(kTraceInfo, "SYS_CloseMutex(phMutex = %p) entry\n", static_cast<void*>(ph));
  if (ph == nullptr) {
    SYS_Trace(kTraceError, "Could not close mutex (Invalid value).\n");
    return;
  }
  SYS_Trace(kTraceInfo, "SYS_CloseMutex(): *phMutex = %p\n", *ph);
  MutexEntry* e = AsMutex(*ph);
  if (e == nullptr) {
    SYS_Trace(kTraceError, "SYS_CloseMutex(): Could not close mutex (Invalid handle).\n");
    return;
  }
  if (e->inUse == 0) {
    SYS_Trace(kTraceError, "SYS_CloseMutex(): Could not close mutex (Not in use).\n");
    return;
  }
  e->inUse = 0;
  pthread_mutex_destroy(&e->mutex);
  pthread_mutexattr_destroy(&e->attr);
  *ph = nullptr;
  SYS_Trace(kTraceInfo, "SYS_CloseMutex() exit\n");
}

// ---------------------------------------------------------------- events

SYS_HEVENT SYS_CreateEvent(int manualReset, int initialState) {
  if (manualReset != 0) {
    SYS_Trace(kTraceError, "Cannot create event (Manual reset not supported)!\n");
    return -1;
  }
  EventEntry* e = FirstFree(g_events);
  if (e == nullptr) {
    SYS_Trace(kTraceError, "Cannot create event (No more entries)!\n");
    return -1;
  }
  int r = pthread_mutex_init(&e->mutex, nullptr);
  if (r != 0) {
    SYS_Trace(kTraceError, "Cannot create event (Init error: %s)!\n", ErrText(r));
    return -1;
  }
  r = pthread_cond_init(&e->cond, nullptr);
  if (r != 0) {
    pthread_mutex_destroy(&e->mutex);
    SYS_Trace(kTraceError, "Cannot create event (Init error: %s)!\n", ErrText(r));
    return -1;
  }
  e->signalled = initialState != 0 ? 1 : 0;
  e->inUse = 1;
  return reinterpret_cast<SYS_HEVENT>(e);
}

void SYS_SetEvent(SYS_HEVENT h) {
  EventEntry* e = AsEvent(h);
  if (e == nullptr || e->inUse == 0) {
    return;
  }
  int r = pthread_mutex_lock(&e->mutex);
  if (r != 0) {
    SYS_Trace(kTraceError, "Cannot set event (Lock error: %s)!\n", ErrText(r));
    return;
  }
  e->signalled = 1;
  r = pthread_mutex_unlock(&e->mutex);
  if (r != 0) {
    SYS_Trace(kTraceError, "Cannot set event (Unlock error: %s)!\n", ErrText(r));
    return;
  }
  r = pthread_cond_signal(&e->cond);
  if (r != 0) {
    SYS_Trace(kTraceError, "Cannot set event (Signal error: %s)!\n", ErrText(r));
  }
}

int SYS_WaitForEvent(SYS_HEVENT h, uint32_t timeoutMs) {
  EventEntry* e = AsEvent(h);
  if (e == nullptr || e->inUse == 0) {
    return -1;
  }
  int r = pthread_mutex_lock(&e->mutex);
  if (r != 0) {
    SYS_Trace(kTraceError, "Cannot wait for event (Lock error: %s)!\n", ErrText(r));
    return -1;
  }
  int result = 0;
  for (;;) {
    if (e->signalled != 0) {
      e->signalled = 0;  // auto-reset: one set satisfies one wait
      result = 0;
      break;
    }
    if (timeoutMs == SYS_INFINITE) {
      r = pthread_cond_wait(&e->cond, &e->mutex);
      if (r != 0) {
        SYS_Trace(kTraceError, "Cannot wait for event (Wait error: %s)!\n", ErrText(r));
        result = -1;
        break;
      }
      continue;
    }
    // The deadline is taken anew on every pass, so a wake-up without the
    // signal starts the full time-out again.
    timespec deadline;
    if (ComputeDeadline(timeoutMs, &deadline) != 0) {
      result = -1;
      break;
    }
    r = pthread_cond_timedwait(&e->cond, &e->mutex, &deadline);
    if (r == ETIMEDOUT) {
      result = e->signalled != 0 ? 0 : SYS_WAIT_TIMEOUT;
      e->signalled = 0;
      break;
    }
    if (r != 0) {
      SYS_Trace(kTraceError, "Cannot wait for event (Wait with timeout error: %s)!\n", ErrText(r));
      result = -1;
      break;
    }
  }
  r = pthread_mutex_unlock(&e->mutex);
  if (r != 0) {
    SYS_Trace(kTraceError, "Cannot wait for event (Unlock error: %s)!\n", ErrText(r));
    return -1;
  }
  return result;
}

void SYS_CloseEvent(SYS_HEVENT h) {
  EventEntry* e = AsEvent(h);
  if (e == nullptr || e->inUse == 0) {
    return;
  }
  pthread_mutex_destroy(&e->mutex);
  pthread_cond_destroy(&e->cond);
  e->signalled = 0;
  e->inUse = 0;
}

// ---------------------------------------------------------------- threads

uint64_t SYS_CreateThread(SYS_THREAD_FUNC func, void* arg, uint64_t* threadId) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  pthread_t id{};
  pthread_create(&id, &attr, func, arg);
  pthread_attr_destroy(&attr);
  if (threadId != nullptr) {
    *threadId = static_cast<uint64_t>(id);
  }
  return static_cast<uint64_t>(id);
}

int SYS_CancelThread(uint64_t threadId) { return pthread_cancel(static_cast<pthread_t>(threadId)); }

int SYS_SetThreadPriority(uint64_t threadId, int priority) {
  return pthread_setschedprio(static_cast<pthread_t>(threadId), priority);
}

uint64_t SYS_GetCurrentThreadId(void) { return static_cast<uint64_t>(pthread_self()); }

int SYS_GetNumProcessors(void) { return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)); }

// ---------------------------------------------------------------- time

void SYS_Sleep(uint32_t ms) {
  // usleep takes at most about 4295 s per call; longer sleeps go in pieces.
  uint64_t us = static_cast<uint64_t>(ms) * 1000u;
  while (us > 0) {
    useconds_t part = us > 1000000000u ? 1000000000u : static_cast<useconds_t>(us);
    usleep(part);
    us -= part;
  }
}

uint32_t SYS_GetTickCount(void) {
  static SinceFirstCall<uint32_t> clock;
  return clock.Read(MonotonicMs());
}

uint32_t SYS_GetTickCountAbs(void) { return MonotonicMs(); }

uint64_t SYS_GetTimeUs(void) {
  static SinceFirstCall<uint64_t> clock;
  return clock.Read(MonotonicUs());
}

uint64_t SYS_GetTimeUsRel(uint64_t offset) { return SYS_GetTimeUs() - offset; }

namespace {
void FillDateTime(SYS_DATETIME* t, bool utc) {
  if (t == nullptr) {
    return;
  }
  time_t now = time(nullptr);
  tm parts{};
  if (utc) {
    gmtime_r(&now, &parts);
  } else {
    localtime_r(&now, &parts);
  }
  t->year = static_cast<uint16_t>(parts.tm_year + 1900);
  t->month = static_cast<uint16_t>(parts.tm_mon + 1);
  t->day = static_cast<uint16_t>(parts.tm_mday);
  t->hour = static_cast<uint16_t>(parts.tm_hour);
  t->minute = static_cast<uint16_t>(parts.tm_min);
  t->second = static_cast<uint16_t>(parts.tm_sec);
  t->milliseconds = 0;
}
}  // namespace

void SYS_GetUTCTime(SYS_DATETIME* t) { FillDateTime(t, true); }
void SYS_GetLocalTime(SYS_DATETIME* t) { FillDateTime(t, false); }

// ---------------------------------------------------------------- init / exit

void SYS_Init(int closeHandles) {
  openlog("SYS", LOG_PID | LOG_CONS, LOG_USER);
  const char* level = getenv("SYS_DEBUG_LEVEL");
  if (level != nullptr) {
    g_debugLevel = static_cast<int>(strtol(level, nullptr, 10));
  }
  if (closeHandles != 0) {
    long maxOpen = sysconf(_SC_OPEN_MAX);
    rlimit lim{};
    if (getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_max != RLIM_INFINITY &&
        static_cast<long>(lim.rlim_max) > maxOpen) {
      maxOpen = static_cast<long>(lim.rlim_max);
    }
    // One call where the kernel offers it; the loop is the fallback.
    if (maxOpen > 3 && close_range(3, static_cast<unsigned>(maxOpen - 1), 0) != 0) {
      for (long fd = 3; fd < maxOpen; ++fd) {
        close(static_cast<int>(fd));
      }
    }
  }
}

void SYS_Exit(void) {
  // The layer caches no configuration files in this program; only the
  // system log needs closing.
  closelog();
}

int SYS_AtExit(void (*func)(void)) {
  if (func == nullptr) {
    return -1;
  }
  return atexit(func);
}

namespace {
void (*ConsoleHook)(const char* text, int length) = nullptr;
}  // namespace

void SYS_SetConsoleHook(void (*hook)(const char* text, int length)) { ConsoleHook = hook; }

void SYS_ConsoleWrite(const char* text, int length) {
  if (text == nullptr || length <= 0) {
    return;
  }
  if (ConsoleHook != nullptr) {
    ConsoleHook(text, length);
  }
  while (length > 0) {
    ssize_t n = write(1, text, static_cast<size_t>(length));
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return;
    }
    text += n;
    length -= static_cast<int>(n);
  }
}
