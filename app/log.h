// Console output and the nested operation log. The one module of app/ that
// lower layers may include: every layer reports through it.
#pragma once
#include <cstdint>

// Unconditional printers, whatever the verbosity, with bare line feeds.
// LOG_Error and LOG_Warning write "ERROR: " / "WARNING: " and the formatted
// text, adding a line feed when it has none; LOG_Printf writes the text as it
// is. Each is one write of at most 4095 characters. A format of 2048
// characters or more is dropped without a trace. None of them counts as an
// error of the operation log: only LOG_ReportError decides the exit status.
void LOG_Error(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LOG_Warning(const char* format, ...) __attribute__((format(printf, 1, 2)));
void LOG_Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Operation log: lines end in CR LF and are indented two spaces a level
// ("- " marks the line). Whether a line shows depends on the verbosity and
// the depth (verbosity 0 shows none of them, 9 and above all of them).

// Shows text when the depth test passes, then opens a level. Opening the top
// level starts a new operation: its error text and count are cleared and its
// clock starts.
void LOG_BeginOp(const char* text);
// Shows text (unless empty, or an error was reported) and closes a level. A
// top-level operation that reported errors closes by disconnecting the
// probe (the hook below) and leaves the error count at exactly 1.
void LOG_EndOp(const char* text);
// The result line without closing a level; at the top level with no error it
// is followed by "Completed after S.mmm seconds.". Nothing after an error.
void LOG_EndOpTimed(const char* text);
// Closes a level without a line.
void LOG_Pop(void);
// "ERROR: " + text (one trailing line feed dropped) when the depth test
// passes; always appended to the operation's error text (4096 bytes, lines
// joined by line feeds) and counted. Also the probe library's error handler.
void LOG_ReportError(const char* text);
// "WARNING: " + text, always shown; not counted.
void LOG_ReportWarning(const char* text);
// Information lines: LOG_Info by the depth test of LOG_BeginOp, LOG_InfoDetail
// by a test one level deeper, LOG_OutLine always.
void LOG_Info(const char* text);
void LOG_InfoDetail(const char* text);
void LOG_OutLine(const char* text);
// Starts a line (or continues the one started) without ending it; the next
// line shown, or LOG_EndLine, ends it.
void LOG_OutPart(const char* text);
void LOG_EndLine(void);
// The verbosity-gated message path (shown as an indented line when the
// begin-line depth test passes; one trailing line feed of `text` is taken as
// the line end). The banner lines and command-line parser messages use it.
void LOG_Message(const char* text);

// State. The verbosity starts at 3.
void     LOG_SetVerbosity(int32_t verbosity);
int32_t  LOG_GetVerbosity(void);
uint32_t LOG_GetDepth(void);                // levels open now
uint32_t LOG_GetErrorCount(void);           // the program's error flag: non-zero exits 1
const char* LOG_GetErrorText(void);         // the errors of the current or last operation
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
// Outside any operation nothing is started.
void LOG_ProgressBegin(const char* phase, uint64_t total, int unit);
// Reports `amount` more done in the running phase; ignored while a log line
// is half written (the display would overdraw it) or no phase runs.
void LOG_ProgressAdvance(uint64_t amount);
