// The command line walk. Options are carried out the moment they are
// recognised; a syntax error stops the walk at once, after every option
// before it has already run.
#include "app/cmdline.h"

#include <errno.h>

#include <cstring>
#include <memory>
#include <new>

#include "app/app.h"
#include "app/cmdline_lex.h"
#include "app/log.h"
#include "datafile/datafile.h"
#include "dataimage/memimage.h"
#include "flash/flash.h"
#include "flash/spi.h"
#include "project/project.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

using cmdline::IsDigit;
using cmdline::SkipSpace;

constexpr int kPathSize = 512;
constexpr int kErrorSize = CMDLINE_ERROR_SIZE;
constexpr int kExtSize = 256;

// ---- Program-wide state set by the options ----
char dataFilePath[kPathSize];   // -open / -saveas; -save writes here
char projectPath[kPathSize];    // -openprj
char extension[kExtSize];       // of the path just taken
SYS_Ptr<char[]> PellamLogPath;  // -pellamlog; null when none or not copied

// One walk over the arguments.
struct Walk {
  int argc;
  char** argv;
  int argIndex;                 // the argument being looked at
  const char* cursor;           // parse position inside it
  char parseError[kErrorSize];  // the number parser's complaint; non-empty means error

  const char* option;           // the option being carried out, as the table names it

  bool HasNext() const { return argIndex + 1 < argc; }
  const char* TakeNext() { return argv[++argIndex]; }
  bool Failed() const { return parseError[0] != '\0'; }
};

// The extension with its dot, as the data file dispatch sees it: a name
// that starts with its only dot (".bin", "dir/.pellam") has none, so the
// checks made here agree with what the dispatch will open.
void GetExtension(const char* path) { SYS_GetFileExt(path, extension, sizeof extension); }

bool ExtensionIs(const char* ext) { return UTIL_stricmp(extension, ext) == 0; }

// The file name of an option taking one: the next argument (copied whole,
// no quote handling) when the option stands alone, else the glued rest read
// with CMDLINE_GetString. 1 separate form, 0 glued form, -1 no usable name.
int TakeFileName(Walk& w, const char* arg, size_t nameLength, char* name) {
  if (arg[nameLength] == '\0') {
    if (!w.HasNext()) return -1;
    UTIL_strcpy(name, w.TakeNext(), kPathSize);
    return 1;
  }
  w.cursor = arg + nameLength;
  return CMDLINE_GetString(&w.cursor, name, kPathSize) == 0 ? 0 : -1;
}

// The value of an option taking a number or range: the next argument when
// the option stands alone, else the glued rest. Null when there is none.
const char* TakeValue(Walk& w, const char* arg, size_t nameLength) {
  if (arg[nameLength] != '\0') return SkipSpace(arg + nameLength);
  return w.HasNext() ? w.TakeNext() : nullptr;
}

// The complaint of an option whose parameter is missing; returns -1.
int MissingParameter(const Walk& w) {
  LOG_Error("Missing command line parameter after option \"%s\".\n", w.option);
  return -1;
}

// Reads a number at *c. False after reporting the parser's complaint
// followed by where it was found: "after option" and the option's name,
// or the given text.
bool ReadNumber(Walk& w, const char** c, uint32_t* value, const char* where = nullptr) {
  *value = CMDLINE_GetNumber(c, w.parseError);
  if (!w.Failed()) return true;
  if (where == nullptr) {
    LOG_Error("%s after option \"%s\".\n", w.parseError, w.option);
  } else {
    LOG_Error("%s %s.\n", w.parseError, where);
  }
  return false;
}

// The separate-argument range form: two numbers separated by white space or
// a single '-'. False after reporting as ReadNumber does.
bool ReadSeparateRange(Walk& w, const char* text, uint32_t* start, uint32_t* end) {
  const char* c = text;
  if (!ReadNumber(w, &c, start)) return false;
  c = SkipSpace(c);
  if (*c == '-') c++;
  return ReadNumber(w, &c, end);
}

// A save covers the whole current image unless a range is given.
void DefaultSaveRange(uint32_t* start, uint32_t* end) {
  MemImage* image = APP_GetCurrentImage();
  *start = image != nullptr ? MEMIMAGE_GetFirstAddrLocked(image) : 0;
  *end = image != nullptr ? MEMIMAGE_GetLastAddrLocked(image) : 0;
}

bool NextIsRange(const Walk& w) { return w.HasNext() && w.argv[w.argIndex + 1][0] != '-'; }

// The connection layer keeps the override; it is set, never read, here.
void SetOverride(const ConnectionChoice& choice) { SPI_SetConnectionOverride(&choice); }

// ---- Options; each returns 0, or -1 after reporting a syntax error ----

int OptOpenProject(Walk& w, const char* arg, size_t n) {
  char name[kPathSize];
  if (TakeFileName(w, arg, n, name) < 0) return MissingParameter(w);
  GetExtension(name);
  if (!ExtensionIs(".pellam")) {
    LOG_Error("Wrong file extension after option \"-openprj\".\n");
    return -1;
  }
  UTIL_strcpy(projectPath, name, sizeof projectPath);
  DATAFILE_Open(projectPath, 0);
  return 0;
}

int OptOpen(Walk& w, const char* arg, size_t n) {
  char name[kPathSize];
  const int form = TakeFileName(w, arg, n, name);
  if (form < 0) return MissingParameter(w);
  UTIL_strcpy(dataFilePath, name, sizeof dataFilePath);
  GetExtension(dataFilePath);
  uint32_t base = 0;
  if (ExtensionIs(".bin")) {
    const bool glued = form == 0;
    const char* text = nullptr;
    if (glued && *w.cursor == ',') text = w.cursor + 1;
    if (!glued && w.HasNext()) text = w.TakeNext();
    if (text == nullptr) {
      LOG_Error("Missing command line parameter after data file path.\n");
      return -1;
    }
    if (!ReadNumber(w, &text, &base, glued ? "after ',' for option \"-open\"" : nullptr)) return -1;
  }
  DATAFILE_Open(dataFilePath, static_cast<int32_t>(base));
  return 0;
}

int OptSaveAs(Walk& w, const char* arg, size_t n) {
  char name[kPathSize];
  const int form = TakeFileName(w, arg, n, name);
  if (form < 0) return MissingParameter(w);
  UTIL_strcpy(dataFilePath, name, sizeof dataFilePath);
  GetExtension(dataFilePath);
  uint32_t start, end;
  DefaultSaveRange(&start, &end);
  if (form == 0 && ExtensionIs(".bin")) {
    const char* c = w.cursor;
    if (*c != ',') {
      LOG_Error("Missing command line parameter after data file path.\n");
      return -1;
    }
    c++;
    if (!ReadNumber(w, &c, &start, "as SADDR for option \"-saveas\"")) return -1;
    c = SkipSpace(c);
    if (*c != ',') {
      LOG_Error("Missing second ',' after SADDR.\n");
      return -1;
    }
    c++;
    if (!ReadNumber(w, &c, &end, "as EADDR for option \"-saveas\"")) return -1;
  } else if (form == 1 && (ExtensionIs(".bin") || ExtensionIs(".c")) && NextIsRange(w)) {
    if (!ReadSeparateRange(w, w.TakeNext(), &start, &end)) return -1;
  }
  DATAFILE_Save(APP_GetCurrentImage(), dataFilePath, static_cast<int32_t>(start),
                static_cast<int32_t>(end));
  return 0;
}

int OptSave(Walk& w, const char* arg, size_t n) {
  uint32_t start, end;
  DefaultSaveRange(&start, &end);
  if (dataFilePath[0] == '\0') {
    LOG_Error("No data file opened to save to.\n");
    return -1;
  }
  GetExtension(dataFilePath);
  if (ExtensionIs(".bin") || ExtensionIs(".c")) {
    if (arg[n] != '\0') {
      const char* c = SkipSpace(arg + n);
      if (*c != '\0') {
        if (!ReadNumber(w, &c, &start)) return -1;
        c = SkipSpace(c);
        if (*c != ',') {
          LOG_Error("Unknown symbol after first address.\n");
          return -1;
        }
        c++;
        if (!ReadNumber(w, &c, &end, "after ',' for option \"-save\"")) return -1;
      }
    } else if (NextIsRange(w)) {
      uint32_t s, e;
      if (!ReadSeparateRange(w, w.argv[w.argIndex + 1], &s, &e)) return -1;
      w.argIndex++;
      start = s;
      end = e;
    }
  }
  DATAFILE_Save(APP_GetCurrentImage(), dataFilePath, static_cast<int32_t>(start),
                static_cast<int32_t>(end));
  return 0;
}

int OptPellamLog(Walk& w, const char* arg, size_t n) {
  char name[kPathSize];
  if (TakeFileName(w, arg, n, name) < 0) return MissingParameter(w);
  PellamLogPath.reset();
  PellamLogPath = SYS_CopyText(name);
  // From here on the file keeps a copy of everything printed on standard
  // output; an earlier log file is closed. A file that cannot be created
  // costs the copy, not the run.
  if (PellamLogPath == nullptr) {
    LOG_SetCopyFile(nullptr);
  } else if (LOG_SetCopyFile(PellamLogPath.get()) != 0) {
    LOG_Warning("Could not create Pellam log file [%s] (%s).", PellamLogPath.get(), std::strerror(errno));
  }
  return 0;
}

int OptTarloLog(Walk& w, const char* arg, size_t n) {
  char name[kPathSize];
  if (TakeFileName(w, arg, n, name) < 0) return MissingParameter(w);
  SPI_SetTarloLogPath(name);
  return 0;
}

// Options without a parameter that start one action; how it went is the
// operation log's business, not the walk's.
template <auto Action>
int Run(Walk&, const char*, size_t) {
  Action();
  return 0;
}

// The same for actions on the current data image.
template <int (*Action)(MemImage*)>
int RunOnImage(Walk&, const char*, size_t) {
  Action(APP_GetCurrentImage());
  return 0;
}

int OptReadRange(Walk& w, const char* arg, size_t n) {
  uint32_t start = 0, end = 0;
  if (arg[n] == '\0') {
    if (!w.HasNext()) return MissingParameter(w);
    if (!ReadSeparateRange(w, w.TakeNext(), &start, &end)) return -1;
  } else {
    const char* c = arg + n;
    if (!ReadNumber(w, &c, &start)) return -1;
    c = SkipSpace(c);
    if (*c != ',') {
      LOG_Error("Missing ',' after first address.\n");
      return -1;
    }
    c = SkipSpace(c + 1);
    if (*c == '\0') {
      LOG_Error("Missing end address after ','.\n");
      return -1;
    }
    if (!ReadNumber(w, &c, &end, "as second address parameter after option \"-readrange\"")) return -1;
  }
  // Even a failed read replaces the image: afterwards there is none.
  APP_SetCurrentImage(FLASH_ReadRange(start, end));
  return 0;
}

int OptReadChip(Walk&, const char*, size_t) {
  APP_SetCurrentImage(FLASH_ReadChip());
  return 0;
}

int OptSelect(Walk& w, const char*, size_t) {
  if (!w.HasNext()) return MissingParameter(w);
  const char* c = w.TakeNext();
  ConnectionChoice choice = {};
  if (CMDLINE_IsKeyword(&c, "USB")) {
    choice.mode = PROJECT_CONNECT_USB_SERIAL;
    c = SkipSpace(c);
    if (*c == '=') c++;
    c = SkipSpace(c);
    if (*c != '\0') {
      if (!ReadNumber(w, &c, &choice.serialOrIndex, "after option \"-select USB=\"")) return -1;
    }
  } else if (CMDLINE_IsKeyword(&c, "IP")) {
    choice.mode = PROJECT_CONNECT_TCPIP;
    c = SkipSpace(c);
    if (*c == '=') {
      c = SkipSpace(c + 1);
      UTIL_strcpy(choice.hostName, *c != '\0' ? c : "localhost", sizeof choice.hostName);
    }
  } else {
    LOG_Error("Invalid value for option \"-select\" found.\n");
    return -1;
  }
  // The project's connection block goes back unchanged: the choice lives
  // only as the override of this run.
  ProjectGeneral general;
  PROJECT_GetGeneral(&general);
  PROJECT_SetGeneral(&general);
  SetOverride(choice);
  return 0;
}

// -usb reads "0x" and "0X" alike; a bad number is taken as 0.
uint32_t ParseUsbNumber(const char* c) {
  c = SkipSpace(c);
  uint32_t value = 0;
  if (c[0] == '0' && (c[1] == 'x' || c[1] == 'X')) {
    for (c += 2; UTIL_HexDigitValue(*c) >= 0; c++) value = value * 16 + static_cast<uint32_t>(UTIL_HexDigitValue(*c));
  } else {
    for (; IsDigit(*c); c++) value = value * 10 + static_cast<uint32_t>(*c - '0');
  }
  return value;
}

int OptUsb(Walk&, const char* arg, size_t n) {
  ConnectionChoice choice = {};
  choice.serialOrIndex = ParseUsbNumber(arg + n);
  // Small numbers are probe indices, larger ones serial numbers.
  choice.mode = choice.serialOrIndex <= 3 ? PROJECT_CONNECT_USB_INDEX : PROJECT_CONNECT_USB_SERIAL;
  SetOverride(choice);
  return 0;
}

int OptIp(Walk&, const char* arg, size_t n) {
  ConnectionChoice choice = {};
  choice.mode = PROJECT_CONNECT_TCPIP;
  UTIL_strcpy(choice.hostName, SkipSpace(arg + n), sizeof choice.hostName);
  SetOverride(choice);
  return 0;
}

int OptSpeed(Walk& w, const char* arg, size_t n) {
  // The speed is read before the value is parsed, so a missing project is
  // reported ahead of a bad value (and once more by the setter).
  PROJECT_GetInterfaceSpeed();
  const char* c = TakeValue(w, arg, n);
  if (c == nullptr) return MissingParameter(w);
  uint32_t speed;
  if (!ReadNumber(w, &c, &speed)) return -1;
  PROJECT_SetInterfaceSpeed(speed);
  return 0;
}

int OptVerbose(Walk& w, const char* arg, size_t n) {
  const char* c = TakeValue(w, arg, n);
  if (c == nullptr) return MissingParameter(w);
  uint32_t level;
  if (!ReadNumber(w, &c, &level)) return -1;
  LOG_SetVerbosity(static_cast<int32_t>(level < 9 ? level : 9));
  return 0;
}

int OptHelp(Walk&, const char*, size_t) {
  CMDLINE_PrintHelp();
  return 0;
}

enum class Match { Prefix, Whole };

struct Option {
  const char* name;
  Match match;
  int (*run)(Walk& w, const char* arg, size_t nameLength);
};

// Tried in this order: longer names sharing a prefix come first.
constexpr Option kOptions[] = {
    {"-openprj", Match::Prefix, OptOpenProject},
    {"-open", Match::Prefix, OptOpen},
    {"-saveas", Match::Prefix, OptSaveAs},
    {"-save", Match::Prefix, OptSave},
    {"-pellamlog", Match::Prefix, OptPellamLog},
    {"-tarlolog", Match::Prefix, OptTarloLog},
    {"-connect", Match::Whole, Run<SPI_Connect>},
    {"-disconnect", Match::Whole, Run<SPI_Disconnect>},
    {"-erasesectors", Match::Whole, Run<FLASH_EraseSelectedSectors>},
    {"-erasechip", Match::Whole, Run<FLASH_EraseChip>},
    {"-program", Match::Whole, RunOnImage<FLASH_Program>},
    {"-programverify", Match::Whole, RunOnImage<FLASH_ProgramVerify>},
    {"-auto", Match::Whole, RunOnImage<FLASH_Auto>},
    {"-verify", Match::Whole, RunOnImage<FLASH_Verify>},
    {"-readrange", Match::Prefix, OptReadRange},
    {"-readchip", Match::Whole, OptReadChip},
    {"-select", Match::Whole, OptSelect},
    {"-usb", Match::Prefix, OptUsb},
    {"-ip", Match::Prefix, OptIp},
    {"-speed", Match::Prefix, OptSpeed},
    {"-verbose", Match::Prefix, OptVerbose},
    {"-help", Match::Whole, OptHelp},
    {"-?", Match::Whole, OptHelp},
    {"?", Match::Whole, OptHelp},
};

const Option* FindOption(const char* arg) {
  for (const Option& option : kOptions) {
    const int length = static_cast<int>(std::strlen(option.name));
    const bool matches = option.match == Match::Prefix
                             ? UTIL_strnicmp(arg, option.name, length) == 0
                             : UTIL_stricmp(arg, option.name) == 0;
    if (matches) return &option;
  }
  return nullptr;
}

}  // namespace

void CMDLINE_PrintHelp(void) {
  LOG_Printf("Available commands:\n");
  LOG_Printf(" -open<fname>[<saddr>]               Open data file\n");
  LOG_Printf(" -openprj<fname>                     Open an existing project\n");
  LOG_Printf(" -save[<saddr>,<eaddr>]              Save data file\n");
  LOG_Printf(" -saveas<fname>[,<saddr>,<eaddr>]    Save data in a different file\n");
  LOG_Printf(" -connect                            Connect to target\n");
  LOG_Printf(" -disconnect                         Disconnect from target\n");
  LOG_Printf(" -erasesectors                       Erase all sectors\n");
  LOG_Printf(" -erasechip                          Erase entire chip\n");
  LOG_Printf(" -program                            Program target\n");
  LOG_Printf(" -programverify                      Program and verify target\n");
  LOG_Printf(" -auto                               Erase, program and verify target\n");
  LOG_Printf(" -verify                             Verify target program\n");
  LOG_Printf(" -readrange[<saddr>,<eaddr>]         Read specified range\n");
  LOG_Printf(" -readchip                           Read entire chip\n");
  LOG_Printf(" -usb<SerialNumber>                  Select connection via USB\n");
  LOG_Printf(" -ip<hostname>                       Select connection via TCP/IP\n");
  LOG_Printf(" -speed<speed>                       Set interface speed\n");
  LOG_Printf(" -pellamlog<fname>                   Set a temporary Pellam log file\n");
  LOG_Printf(" -tarlolog<fname>                    Set a temporary Tarlo log file\n");
  LOG_Printf(" -verbose<level>                     Set verbosity level\n");
  LOG_Printf(" -help                               Show list of commands\n");
  LOG_Printf(" -?                                  Show list of commands\n");
}

int CMDLINE_Execute(int argc, char** argv) {
  if (argc < 2) {
    CMDLINE_PrintHelp();
    return 0;
  }
  Walk w = {};
  w.argc = argc;
  w.argv = argv;
  for (w.argIndex = 1; w.argIndex < argc; w.argIndex++) {
    const char* arg = argv[w.argIndex];
    w.parseError[0] = '\0';
    const Option* option = FindOption(arg);
    if (option == nullptr) {
      LOG_Warning("Unknown command line parameter %s found.", arg);
      continue;
    }
    w.option = option->name;
    if (option->run(w, arg, std::strlen(option->name)) < 0) return -1;
  }
  return 0;
}
