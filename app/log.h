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
