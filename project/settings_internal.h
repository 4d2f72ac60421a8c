// Reporting shared by the settings stores and the project model (not part of
// the module's interface).
#pragma once

// An error: collected by the operation in progress, or printed on its own
// when no operation is open.
void SETTINGS_ReportError(const char* text);
void SETTINGS_ReportWarning(const char* text);
// "Could not <verb> file [<name>]\n<reason>", the reason chosen by the
// platform's error code.
void SETTINGS_FileMessage(char* buffer, int size, const char* verb, const char* name, int errorCode,
                          bool readOnly);

// Lookups go through an index of the text's header and key lines (default)
// or scan the text line by line (0). Both give the same answers; tests and
// benchmarks compare them.
void SETTINGS_SetIndexed(int on);
