// How the project layer reports: inside an operation the text is part of the
// operation's result (and decides the exit status); outside one it is printed.
#include "app/log.h"
#include "project/settings_internal.h"

namespace projectlog {

void ReportError(const char* text) {
  if (LOG_GetDepth() > 0) {
    LOG_ReportError(text);
  } else {
    LOG_Error("%s", text);
  }
}

void ReportWarning(const char* text) {
  if (LOG_GetDepth() > 0) {
    LOG_ReportWarning(text);
  } else {
    LOG_Warning("%s", text);
  }
}

}  // namespace projectlog
