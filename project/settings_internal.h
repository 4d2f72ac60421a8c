// Reporting shared by the settings stores and the project model (not part of
// the module's interface).
#pragma once

namespace projectlog {

// An error: collected by the operation in progress, or printed on its own
// when no operation is open.
void ReportError(const char* text);
// A warning, likewise.
void ReportWarning(const char* text);

}  // namespace projectlog
