// Console output and the nested operation log. The one module of app/ that
// lower layers may include: every layer reports through it.
#pragma once
#include <cstdint>

// Unconditional printers (bare line feeds).
void LOG_Error(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LOG_Warning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LOG_Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Operation log (CR LF line ends, indentation, depth test by verbosity).
void LOG_BeginOp(const char* text);
void LOG_EndOp(const char* text);
void LOG_EndOpTimed(const char* text);
void LOG_Pop(void);
void LOG_ReportError(const char* text);     // also the probe library's error handler
void LOG_ReportWarning(const char* text);
void LOG_Info(const char* text);
void LOG_InfoDetail(const char* text);
void LOG_OutLine(const char* text);
void LOG_OutPart(const char* text);
void LOG_EndLine(void);
// The verbosity-gated message path (shown as an indented line when the
// begin-line depth test passes; one trailing line feed of `text` is taken as
// the line end). The banner lines and command-line parser messages use it.
void LOG_Message(const char* text);

// State.
void     LOG_SetVerbosity(int32_t verbosity);
int32_t  LOG_GetVerbosity(void);
uint32_t LOG_GetDepth(void);
uint32_t LOG_GetErrorCount(void);           // the program's error flag
const char* LOG_GetErrorText(void);
int  LOG_HasError(void);                    // an error was reported in the current top-level op

// Abort request (raised by Ctrl-C); long loops such as sequences poll it.
// A second Ctrl-C before the request is cleared ends the program as usual;
// LOG_ClearAbort re-arms the handler.
void LOG_InstallAbortHandler(void);
int  LOG_AbortRequested(void);
void LOG_ClearAbort(void);

// Called when a failed top-level operation closes; the connection layer fills it.
void LOG_SetDisconnectHook(void (*hook)(void));

// Copy of the console: from now on every byte written to standard output, by
// any layer, also goes to `path`, created or truncated (permissions 0644);
// an earlier copy file is closed first, and null or "" only closes it. The
// copy is written unbuffered, so an operation that has ended is in the file
// even if the program dies afterwards. 0 on success; -1 when the file cannot
// be created (nothing is copied then, errno tells why).
int LOG_SetCopyFile(const char* path);

// Live progress of a long phase (read back, erase, program, verify, read).
// The flash layer reports; the application decides whether and how to show
// it (by default nothing is shown and these calls cost next to nothing).
enum { LOG_PROGRESS_BYTES = 0, LOG_PROGRESS_SECTORS = 1 };
struct LOG_PROGRESS_DISPLAY {
  void (*Begin)(const char* phase, uint64_t total, int unit);
  void (*Advance)(uint64_t amount);   // amount more is done (0: only time passed)
  void (*End)(void);                  // the phase is over: take its line away
  void (*Hide)(void);                 // standard output is about to be written
};
// Installs the display (null: none); the record must outlive its use.
void LOG_SetProgressDisplay(const LOG_PROGRESS_DISPLAY* display);
// Starts a phase of `total` bytes or sectors. It lasts until the operation
// that was open when it began closes, or until the next phase begins.
void LOG_ProgressBegin(const char* phase, uint64_t total, int unit);
void LOG_ProgressAdvance(uint64_t amount);
