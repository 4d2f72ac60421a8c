// How the project layer reports: inside an operation the text is part of the
// operation's result (and decides the exit status); outside one it is printed.
#include <cerrno>

#include "app/log.h"
#include "project/settings_internal.h"
#include "util/util.h"

void SETTINGS_ReportError(const char* text) {
  if (LOG_GetDepth() > 0) {
    LOG_ReportError(text);
  } else {
    LOG_Error("%s", text);
  }
}

void SETTINGS_ReportWarning(const char* text) {
  if (LOG_GetDepth() > 0) {
    LOG_ReportWarning(text);
  } else {
    LOG_Warning("%s", text);
  }
}

void SETTINGS_FileMessage(char* buffer, int size, const char* verb, const char* name, int errorCode,
                          bool readOnly) {
  const char* reason;
  switch (errorCode) {
    case ENOENT: reason = "File not found!"; break;
    case ENOTDIR: reason = "Path not found!"; break;
    case EACCES:
    case EPERM:
    case EROFS: reason = readOnly ? "File has read only attribute!" : "Access is denied!"; break;
    case EINVAL:
    case ENAMETOOLONG: reason = "Filename syntax is incorrect!"; break;
    default: reason = "Invalid file handle!"; break;
  }
  UTIL_snprintf(buffer, size, "Could not %s file [%s]\n%s", verb, name, reason);
}
