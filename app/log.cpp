// Console output and the nested operation log.
//
// Two kinds of output share standard output: the unconditional printers
// (LOG_Error, LOG_Warning, LOG_Printf) write their text with bare line feeds,
// while the operation log goes through one writer that turns line feeds into
// CR LF. The asymmetry is intended: the operation log looks the same on every
// platform the program ever ran on, the plain printers stay plain.
#include "app/log.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "sys/sys.h"
#include "util/util.h"

namespace {

constexpr int kErrorTextSize = 4096;
constexpr int kPrintfSize = 4096;
constexpr size_t kMaxFormatLength = 2048;

int32_t Verbosity = 3;
uint32_t OpDepth = 0;
uint32_t OpIndent = 0;
uint32_t OpErrorCount = 0;
char OpErrorText[kErrorTextSize];
uint32_t OpStartTime = 0;
bool LinePending = false;

void (*DisconnectHook)(void) = nullptr;
bool InDisconnectHook = false;

volatile sig_atomic_t AbortFlag = 0;

int CopyFd = -1;                                   // -pellamlog copy, or -1
const LOG_PROGRESS_DISPLAY* Progress = nullptr;
uint32_t ProgressDepth = 0;                        // 0: no phase running

void EndProgress() {
  if (ProgressDepth == 0) return;
  ProgressDepth = 0;
  if (Progress != nullptr) Progress->End();
}

// Sees every text on its way to standard output.
void OnConsoleWrite(const char* text, int length) {
  if (ProgressDepth != 0 && Progress != nullptr) Progress->Hide();
  while (CopyFd >= 0 && length > 0) {
    const ssize_t n = ::write(CopyFd, text, static_cast<size_t>(length));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;  // a full disk loses the copy, never the console
    text += n;
    length -= static_cast<int>(n);
  }
}

// Adds text to the operation's collected errors: the operation fails, and
// with it the run when it is the last.
void CollectError(const char* text) {
  const int used = UTIL_strlen(OpErrorText);
  if (used > 0 && OpErrorText[used - 1] != '\n') UTIL_strcat(OpErrorText, "\n", sizeof OpErrorText);
  UTIL_strcat(OpErrorText, text, sizeof OpErrorText);
  OpErrorCount++;
}

// A log line that could not be written leaves the output incomplete: told
// on the plain printer (which needs no memory) and counted as an error.
void ReportOutOfMemory() {
  LOG_Error("Out of memory");
  CollectError("Out of memory");
}

// Owns a malloc'd buffer; the writer must not throw when memory runs out.
struct MallocBuffer {
  char* p;
  explicit MallocBuffer(size_t size)
      : p(size <= 0xFFFFFFFFu ? static_cast<char*>(SYS_Alloc(static_cast<uint32_t>(size))) : nullptr) {}
  ~MallocBuffer() { SYS_Free(p); }
  MallocBuffer(const MallocBuffer&) = delete;
  MallocBuffer& operator=(const MallocBuffer&) = delete;
};

// The one writer of the operation log. A piece (text up to and including a
// line feed) keeps its bare line feed while a CR LF pair still follows
// somewhere in the text, so texts that already carry CR LF are left alone.
void WriteLog(const char* text, size_t length) {
  size_t numLF = 0;
  const char* lastCRLF = nullptr;
  for (size_t i = 0; i < length; i++) {
    if (text[i] == '\n') {
      numLF++;
      if (i > 0 && text[i - 1] == '\r') lastCRLF = text + i - 1;
    }
  }
  if (numLF == 0) {
    SYS_ConsoleWrite(text, static_cast<int>(length));
    return;
  }
  MallocBuffer copy(length + numLF + 1);
  if (copy.p == nullptr) {
    ReportOutOfMemory();
    return;
  }
  char* out = copy.p;
  const char* piece = text;
  const char* end = text + length;
  while (piece < end) {
    const char* lf = static_cast<const char*>(std::memchr(piece, '\n', end - piece));
    if (lf == nullptr) {
      std::memcpy(out, piece, end - piece);
      out += end - piece;
      break;
    }
    const size_t n = lf - piece;
    std::memcpy(out, piece, n);
    out += n;
    if (lastCRLF == nullptr || lastCRLF < piece) *out++ = '\r';
    *out++ = '\n';
    piece = lf + 1;
  }
  *out = '\0';
  SYS_ConsoleWrite(copy.p, static_cast<int>(out - copy.p));
}

enum class LineKind { Plain, Continuation, Part };

// Writes `prefix` + `text` as one line of the log at the current indent.
void ShowIndented(const char* prefix, const char* text, size_t textLength, LineKind kind) {
  const size_t prefixLength = std::strlen(prefix);
  const size_t indentLength = OpIndent >= 1 ? 2 * static_cast<size_t>(OpIndent) : 0;
  MallocBuffer line(1 + indentLength + 3 + prefixLength + textLength + 2);
  if (line.p == nullptr) {
    ReportOutOfMemory();
    return;
  }
  char* out = line.p;
  // The pending line is ended by a write of its own, so its line feed becomes
  // CR LF whatever the new line holds.
  if (LinePending) LOG_EndLine();
  if (OpIndent >= 1) {
    for (uint32_t i = 1; i < OpIndent; i++) {
      *out++ = ' ';
      *out++ = ' ';
    }
    *out++ = kind == LineKind::Continuation ? ' ' : '-';
    *out++ = ' ';
  }
  if (kind == LineKind::Continuation) {
    std::memcpy(out, "-> ", 3);
    out += 3;
  }
  std::memcpy(out, prefix, prefixLength);
  out += prefixLength;
  std::memcpy(out, text, textLength);
  out += textLength;
  if (kind == LineKind::Part) {
    LinePending = true;
  } else {
    *out++ = '\n';
  }
  WriteLog(line.p, out - line.p);
}

void ShowIndented(const char* prefix, const char* text) {
  if (text == nullptr) text = "";
  ShowIndented(prefix, text, std::strlen(text), LineKind::Plain);
}

int64_t V() { return Verbosity; }
int64_t D() { return OpDepth; }

bool PassesBeginTest() { return V() > 0 && (V() >= 9 || 2 * D() <= V()); }
bool PassesDetailTest() { return V() > 0 && (V() >= 9 || 2 * D() - 1 <= V()); }
bool PassesErrorTest() { return V() > 0 && (V() >= 9 || 2 * D() - 2 < V()); }

// Closes one level; a failed top-level operation leaves the probe
// disconnected and the error flag at exactly 1.
void CloseLevel() {
  if (OpDepth == 0) return;
  OpDepth--;
  if (OpIndent > 0) OpIndent--;
  if (OpDepth < ProgressDepth) EndProgress();
  if (OpDepth != 0 || OpErrorText[0] == '\0' || OpErrorCount == 0) return;
  if (DisconnectHook != nullptr && !InDisconnectHook) {
    // The disconnect may run operations of its own; keep the failed
    // operation's error text so it stays available afterwards.
    char saved[kErrorTextSize];
    std::memcpy(saved, OpErrorText, sizeof saved);
    InDisconnectHook = true;
    DisconnectHook();
    InDisconnectHook = false;
    std::memcpy(OpErrorText, saved, sizeof saved);
  }
  OpErrorCount = 1;
}

// "ERROR: " / "WARNING: " + text with a line feed at the end, in one write.
__attribute__((format(printf, 2, 0))) void PrintPrefixed(const char* prefix, const char* format, va_list args) {
  if (std::strlen(format) >= kMaxFormatLength) return;
  char text[kPrintfSize + 1];   // room for the added line feed
  char* end = UTIL_snprintf(text, kPrintfSize, "%s", prefix);
  end = UTIL_vsnprintf(end, kPrintfSize - static_cast<int>(end - text), format, args);
  if (end == text || end[-1] != '\n') *end++ = '\n';
  SYS_ConsoleWrite(text, static_cast<int>(end - text));
}

extern "C" void OnInterrupt(int) { AbortFlag = 1; }

}  // namespace

void LOG_Error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  PrintPrefixed("ERROR: ", format, args);
  va_end(args);
}

void LOG_Warning(const char* format, ...) {
  va_list args;
  va_start(args, format);
  PrintPrefixed("WARNING: ", format, args);
  va_end(args);
}

void LOG_Printf(const char* format, ...) {
  if (std::strlen(format) >= kMaxFormatLength) return;
  char text[kPrintfSize];
  va_list args;
  va_start(args, format);
  const char* end = UTIL_vsnprintf(text, sizeof text, format, args);
  va_end(args);
  SYS_ConsoleWrite(text, static_cast<int>(end - text));
}

void LOG_BeginOp(const char* text) {
  if (OpDepth == 0) {
    OpErrorText[0] = '\0';
    OpErrorCount = 0;
    OpStartTime = SYS_GetTickCount();
  }
  if (PassesBeginTest()) ShowIndented("", text);
  OpDepth++;
  OpIndent++;
}

void LOG_EndOp(const char* text) {
  if (OpDepth == 0) return;
  const int64_t after = D() - 1;
  if (text != nullptr && text[0] != '\0' && OpErrorCount == 0 && V() > 0 &&
      (V() >= 9 || 2 * after < V())) {
    ShowIndented("", text);
  }
  CloseLevel();
}

void LOG_EndOpTimed(const char* text) {
  if (OpErrorCount != 0 || V() <= 0) return;
  if (OpDepth == 1) {
    ShowIndented("", text);
    const uint32_t elapsed = SYS_GetTickCount() - OpStartTime;
    // No error was reported, so the error text buffer is free to hold the line.
    UTIL_snprintf(OpErrorText, sizeof OpErrorText, "Completed after %d.%.3d seconds.",
                  static_cast<int>(elapsed / 1000), static_cast<int>(elapsed % 1000));
    ShowIndented("", OpErrorText);
  } else if (V() >= 9 || V() > 2 * D() - 2) {
    ShowIndented("", text);
  }
}

void LOG_Pop(void) { CloseLevel(); }

void LOG_ReportError(const char* text) {
  if (text == nullptr) text = "";
  if (PassesErrorTest()) {
    size_t n = std::strlen(text);
    if (n > 0 && text[n - 1] == '\n') n--;
    ShowIndented("ERROR: ", text, n, LineKind::Plain);
  }
  CollectError(text);
}

void LOG_ReportWarning(const char* text) { ShowIndented("WARNING: ", text); }

void LOG_Info(const char* text) {
  if (PassesBeginTest()) ShowIndented("", text);
}

void LOG_InfoDetail(const char* text) {
  if (PassesDetailTest()) ShowIndented("", text);
}

void LOG_OutLine(const char* text) { ShowIndented("", text); }

void LOG_OutPart(const char* text) {
  if (text == nullptr) text = "";
  if (LinePending) {
    WriteLog(text, std::strlen(text));
    return;
  }
  ShowIndented("", text, std::strlen(text), LineKind::Part);
}

void LOG_EndLine(void) {
  if (!LinePending) return;
  LinePending = false;
  WriteLog("\n", 1);
}

void LOG_Message(const char* text) {
  if (text == nullptr || !PassesBeginTest()) return;
  size_t n = std::strlen(text);
  if (n > 0 && text[n - 1] == '\n') n--;
  ShowIndented("", text, n, LineKind::Plain);
}

void LOG_SetVerbosity(int32_t verbosity) { Verbosity = verbosity; }
int32_t LOG_GetVerbosity(void) { return Verbosity; }
uint32_t LOG_GetDepth(void) { return OpDepth; }
uint32_t LOG_GetErrorCount(void) { return OpErrorCount; }
const char* LOG_GetErrorText(void) { return OpErrorText; }
int LOG_HasError(void) { return OpErrorCount != 0; }

void LOG_InstallAbortHandler(void) {
  struct sigaction action = {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  // A second Ctrl-C ends the program the usual way, should the poll never come.
  action.sa_flags = SA_RESETHAND;
  sigaction(SIGINT, &action, nullptr);
}

int LOG_AbortRequested(void) { return AbortFlag != 0; }
void LOG_ClearAbort(void) {
  if (AbortFlag == 0) return;
  AbortFlag = 0;
  // The request was taken care of: the next Ctrl-C asks again instead of ending the program.
  LOG_InstallAbortHandler();
}

void LOG_SetDisconnectHook(void (*hook)(void)) { DisconnectHook = hook; }

int LOG_SetCopyFile(const char* path) {
  if (CopyFd >= 0) {
    ::close(CopyFd);
    CopyFd = -1;
  }
  if (path == nullptr || path[0] == '\0') return 0;
  const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  CopyFd = fd;
  SYS_SetConsoleHook(OnConsoleWrite);
  return 0;
}

void LOG_SetProgressDisplay(const LOG_PROGRESS_DISPLAY* display) {
  EndProgress();
  Progress = display;
  SYS_SetConsoleHook(OnConsoleWrite);
}

void LOG_ProgressBegin(const char* phase, uint64_t total, int unit) {
  if (Progress == nullptr) return;
  EndProgress();
  ProgressDepth = OpDepth;
  if (ProgressDepth == 0) return;  // outside any operation nothing would end it
  Progress->Begin(phase, total, unit);
}

void LOG_ProgressAdvance(uint64_t amount) {
  // A line of the log still open on the console would be overdrawn.
  if (ProgressDepth == 0 || Progress == nullptr || LinePending) return;
  Progress->Advance(amount);
}
