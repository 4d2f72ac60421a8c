// The open project: fixed records held in memory and kept in a project file
// through the settings store. A setter counts a change only when the
// normalised record differs from the held one.
#include "project/project.h"

#include <cstring>

#include "app/log.h"
#include "project/appini.h"
#include "project/project_internal.h"
#include "project/settings.h"
#include "project/settings_internal.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

using projectio::kMaxSelection;

struct Project {
  uint32_t state = 0;  // 0 not started, 1 ready, 2 shut down
  int hasFileName = 0;
  int modified = 0;
  projectio::Records r{};
  void (*disconnect)(void) = nullptr;
  void (*targetPower)(uint32_t, uint32_t) = nullptr;
};
Project p;

bool Ready() {
  if (p.state == 0) p.state = 1;
  return p.state == 1;
}

using projectio::RequireOpen;

// Every prompt of this program is answered with its default, "No".
bool AskYes(const char* question) {
  (void)question;
  return false;
}

void CopyText(char* dest, size_t size, const char* src) {
  memset(dest, 0, size);
  if (src != nullptr) {
    const size_t n = strnlen(src, size - 1);
    memcpy(dest, src, n);
  }
}

// ---- normalising copies ----
// Records compare field by field (padding is never looked at), but strings
// compare over their whole array: the bytes after the terminator are zeroed,
// and steps beyond the step counts too, so that only what a file can hold
// decides whether a record changed.

void PadText(char* text, size_t size) {
  const size_t n = strnlen(text, size - 1);
  memset(text + n, 0, size - n);
}

ProjectGeneral Normal(const ProjectGeneral& in) {
  ProjectGeneral out = in;
  PadText(out.CurrentFile, sizeof out.CurrentFile);
  PadText(out.HostName, sizeof out.HostName);
  return out;
}

// The sequence record is large: the result is a buffer of this function's,
// valid until its next call.
const ProjectSequences& Normal(const ProjectSequences& in) {
  static ProjectSequences out;
  memset(&out, 0, sizeof out);
  out.NumInitSteps = in.NumInitSteps > SEQ_MAX_STEPS ? SEQ_MAX_STEPS : in.NumInitSteps;
  out.NumExitSteps = in.NumExitSteps > SEQ_MAX_STEPS ? SEQ_MAX_STEPS : in.NumExitSteps;
  out.Speed0 = in.Speed0;
  for (uint32_t i = 0; i < out.NumInitSteps; ++i) {
    out.InitSteps[i] = in.InitSteps[i];
    PadText(out.InitSteps[i].Comment, sizeof out.InitSteps[i].Comment);
  }
  for (uint32_t i = 0; i < out.NumExitSteps; ++i) {
    out.ExitSteps[i] = in.ExitSteps[i];
    PadText(out.ExitSteps[i].Comment, sizeof out.ExitSteps[i].Comment);
  }
  return out;
}

// The records without strings or steps are compared as they are.
template <typename T>
const T& Normal(const T& in) {
  return in;
}

// Takes a normalised record when it differs; counts the change.
template <typename T>
void Take(T& stored, const T& normal) {
  if (stored == normal) return;
  stored = normal;
  ++p.modified;
}

// The common shape of a record's getter, setter and comparing query.
template <typename T>
void GetRecord(T* out, const T& held) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (RequireOpen()) *out = held;
}

template <typename T>
bool SetRecord(T& held, const T* in) {
  if (in == nullptr || !RequireOpen()) return false;
  Take(held, Normal(*in));
  return true;
}

template <typename T>
int RecordDiffers(const T* in, const T& held) {
  if (in == nullptr) return 0;
  return Normal(*in) == held ? 0 : 1;
}

void HandOverTargetPower() {
  if (p.targetPower != nullptr) {
    p.targetPower(p.r.production.EnableTargetPower, p.r.production.TargetPowerDelay);
  }
}

// Remembers the project as the current one in the application settings.
void RecordCurrent(const char* fileName) {
  char dir[512];
  if (SYS_GetConfigDir(dir, sizeof dir) != 0) return;
  char path[600];
  SYS_MakePath(path, sizeof path, dir, "PellamSPI.ini");
  APPINI_SetFile(path, projectlog::ReportError);
  APPINI_SetString("PROJECT", "Current", fileName);
}

// Ends the open or create with its failure line. The reason is collected
// already, which keeps LOG_EndOp from showing any result line; the user still
// gets the line, under the verbosity rule of result lines.
void EndFailed() {
  const int32_t verbosity = LOG_GetVerbosity();
  const int32_t after = static_cast<int32_t>(LOG_GetDepth()) - 1;  // the depth once closed
  if (verbosity > 0 && (verbosity >= 9 || 2 * after < verbosity)) LOG_OutLine("Failed");
  LOG_Pop();
}

int OpenOrNew(const char* fileName, bool open) {
  if (SETTINGS_IsOpen() == 1 && PROJECT_Close() != 0) return -1;
  const bool named = fileName != nullptr && fileName[0] != '\0';
  char line[700];
  const char* verb = open ? "Opening" : "Creating new";
  if (named) {
    UTIL_snprintf(line, sizeof line, "%s project file [%s] ...", verb, fileName);
  } else {
    UTIL_snprintf(line, sizeof line, "%s project ...", verb);
  }
  LOG_BeginOp(line);
  if ((open ? SETTINGS_Open(fileName) : SETTINGS_New(fileName)) != 0) {
    EndFailed();
    return -2;
  }
  p.modified = 0;
  p.hasFileName = named ? 1 : 0;
  if (named) RecordCurrent(fileName);
  if (open) {
    PROJECT_LoadKeys();
    p.modified = 0;
    LOG_EndOp("Project opened successfully");
  } else {
    projectio::SetNewDefaults();
    p.modified = 1;
    LOG_EndOp("New project created successfully");
  }
  return 0;
}

int WriteProject(const char* fileName) {
  char line[700];
  UTIL_snprintf(line, sizeof line, "Saving project file [%s] ...", fileName);
  LOG_BeginOp(line);
  if (SETTINGS_Save(fileName) == 0) {
    LOG_EndOp("Project saved successfully");
    return 0;
  }
  projectlog::ReportError("Failed to save project file");
  LOG_Pop();
  return -1;
}

}  // namespace

// ---------------------------------------------------------------- lifecycle

int PROJECT_Open(const char* fileName) {
  if (!Ready() || fileName == nullptr || fileName[0] == '\0') return -1;
  return OpenOrNew(fileName, true);
}

int PROJECT_New(const char* fileName) {
  if (!Ready()) return -1;
  return OpenOrNew(fileName, false);
}

int PROJECT_OpenDefault(const char* fileName) {
  if (!Ready()) return -1;
  if (fileName != nullptr && fileName[0] != '\0' && SYS_FILE_Exists(fileName) &&
      PROJECT_Open(fileName) == 0) {
    return 0;
  }
  return PROJECT_New(nullptr);
}

int PROJECT_Save(void) {
  if (!RequireOpen()) return -1;
  if (p.modified == 0) return 0;
  if (!p.hasFileName) return PROJECT_SaveAs(nullptr);
  char name[512];
  UTIL_strcpy(name, SETTINGS_GetFileName(), sizeof name);
  PROJECT_StoreKeys();
  if (SYS_FILE_IsReadOnly(name) == 1) {
    char line[700];
    UTIL_snprintf(line, sizeof line, "Saving project file [%s] ...", name);
    LOG_BeginOp(line);
    char question[700];
    UTIL_snprintf(question, sizeof question,
                  "Could not save project file [%s]\nFile has read only attribute!\nSave as new project?", name);
    if (AskYes(question)) {
      LOG_Pop();
      return PROJECT_SaveAs(nullptr);
    }
    projectlog::ReportError("Failed to save project file");
    LOG_Pop();
    return -1;
  }
  if (WriteProject(name) != 0) return -1;
  p.modified = 0;
  return 0;
}

int PROJECT_SaveAs(const char* fileName) {
  if (!RequireOpen()) return -1;
  if (fileName == nullptr || fileName[0] == '\0') {
    // Choosing a name needs a dialog; without one nothing is written.
    return -1;
  }
  PROJECT_StoreKeys();
  if (WriteProject(fileName) != 0) return -1;
  RecordCurrent(fileName);
  p.hasFileName = 1;
  p.modified = 0;
  return 0;
}

int PROJECT_Close(void) {
  if (!Ready()) return -1;
  LOG_BeginOp("Close project");
  if (SETTINGS_IsOpen() != 1) {
    // Printed, not collected: the result line still follows.
    LOG_Error("No project file opened.");
    LOG_EndOp("Project closed");
    return 0;
  }
  if (p.modified != 0 &&
      AskYes("The Pellam project has been modified.\nDo you want to save your changes?")) {
    PROJECT_Save();
  }
  if (p.disconnect != nullptr) p.disconnect();
  SETTINGS_Close();
  p.hasFileName = 0;
  p.modified = 0;
  LOG_EndOp("Project closed");
  return 0;
}

void PROJECT_Exit(void) {
  if (!Ready()) return;
  p.modified = 0;  // exit never asks
  if (SETTINGS_IsOpen() == 1) PROJECT_Close();
  p.state = 2;
}

int PROJECT_IsOpen(void) { return SETTINGS_IsOpen(); }

int PROJECT_IsModified(void) { return p.modified != 0 ? 1 : 0; }

const char* PROJECT_GetName(void) {
  if (SETTINGS_IsOpen() != 1) return nullptr;
  const char* name = SETTINGS_GetFileName();
  return name != nullptr ? name : "new project";
}

// ---------------------------------------------------------------- records

void PROJECT_GetGeneral(ProjectGeneral* out) { GetRecord(out, p.r.general); }

void PROJECT_SetGeneral(const ProjectGeneral* in) { SetRecord(p.r.general, in); }

int PROJECT_GeneralDiffers(const ProjectGeneral* in) { return RecordDiffers(in, p.r.general); }

const char* PROJECT_GetDataFile(uint32_t* address) {
  if (address != nullptr) *address = 0;
  if (!RequireOpen()) return "";
  if (address != nullptr) *address = p.r.general.DataFileSAddr;
  return p.r.general.CurrentFile;
}

void PROJECT_SetDataFile(const char* name, uint32_t address) {
  if (!RequireOpen()) return;
  if (address != p.r.general.DataFileSAddr) {
    p.r.general.DataFileSAddr = address;
    ++p.modified;
  }
  if (name == nullptr) return;
  if (strlen(name) >= sizeof p.r.general.CurrentFile) {
    projectlog::ReportError("Too large file name.");
    return;
  }
  if (strcmp(name, p.r.general.CurrentFile) != 0) {
    CopyText(p.r.general.CurrentFile, sizeof p.r.general.CurrentFile, name);
    ++p.modified;
  }
}

void PROJECT_GetSequences(ProjectSequences* out) { GetRecord(out, p.r.sequences); }

void PROJECT_SetSequences(const ProjectSequences* in) { SetRecord(p.r.sequences, in); }

int PROJECT_SequencesDiffer(const ProjectSequences* in) { return RecordDiffers(in, p.r.sequences); }

uint32_t PROJECT_GetInterfaceSpeed(void) {
  return RequireOpen() ? p.r.sequences.Speed0 : 0;
}

// The sequence setter with only Speed0 changed: no clamp (that is loading's),
// one change counted when the value differs.
void PROJECT_SetInterfaceSpeed(uint32_t kHz) {
  if (!RequireOpen() || p.r.sequences.Speed0 == kHz) return;
  p.r.sequences.Speed0 = kHz;
  ++p.modified;
}

uint32_t PROJECT_GetStepCount(int list) {
  if (SETTINGS_IsOpen() != 1) return 0;
  return list == 0 ? p.r.sequences.NumInitSteps : list == 1 ? p.r.sequences.NumExitSteps : 0;
}

void PROJECT_GetStep(int list, uint32_t index, SeqStep* out) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (index >= PROJECT_GetStepCount(list)) return;
  *out = list == 0 ? p.r.sequences.InitSteps[index] : p.r.sequences.ExitSteps[index];
}

void PROJECT_GetFlashParams(FlashParams* out) { GetRecord(out, p.r.flash); }

void PROJECT_SetFlashParams(const FlashParams* in) { SetRecord(p.r.flash, in); }

int PROJECT_FlashParamsDiffer(const FlashParams* in) { return RecordDiffers(in, p.r.flash); }

void PROJECT_GetProduction(ProjectProduction* out) { GetRecord(out, p.r.production); }

void PROJECT_SetProduction(const ProjectProduction* in) {
  if (SetRecord(p.r.production, in)) HandOverTargetPower();
}

int PROJECT_ProductionDiffers(const ProjectProduction* in) { return RecordDiffers(in, p.r.production); }

void PROJECT_GetPerformance(ProjectPerformance* out) { GetRecord(out, p.r.performance); }

void PROJECT_SetPerformance(const ProjectPerformance* in) { SetRecord(p.r.performance, in); }

int PROJECT_PerformanceDiffers(const ProjectPerformance* in) {
  return RecordDiffers(in, p.r.performance);
}

void PROJECT_SetDisconnectHook(void (*hook)(void)) { p.disconnect = hook; }

void PROJECT_SetTargetPowerHook(void (*hook)(uint32_t enabled, uint32_t delayMs)) { p.targetPower = hook; }

// ---------------------------------------------------------------- sector selection

uint32_t PROJECT_GetSectorSelection(uint8_t* flags, uint32_t count) {
  if (flags == nullptr || count == 0) return 0;
  if (!p.r.hasSelection || SETTINGS_IsOpen() != 1) {
    memset(flags, 1, count);
    return count;
  }
  uint32_t selected = 0;
  for (uint32_t i = 0; i < count; ++i) {
    flags[i] = i < kMaxSelection && p.r.selection[i] != 0 ? 1 : 0;
    selected += flags[i];
  }
  return selected;
}

void PROJECT_SetSectorSelection(const uint8_t* flags, uint32_t count) {
  if (!RequireOpen()) return;
  if (flags == nullptr || count == 0) {
    if (p.r.hasSelection) {
      p.r.hasSelection = false;
      memset(p.r.selection, 0, sizeof p.r.selection);
      ++p.modified;
    }
    return;
  }
  static uint8_t next[kMaxSelection];
  memset(next, 0, sizeof next);
  for (uint32_t i = 0; i < count && i < kMaxSelection; ++i) next[i] = flags[i] != 0 ? 1 : 0;
  if (!p.r.hasSelection || memcmp(next, p.r.selection, sizeof next) != 0) {
    memcpy(p.r.selection, next, sizeof next);
    p.r.hasSelection = true;
    ++p.modified;
  }
}

// ---------------------------------------------------------------- key input and output

namespace projectio {

bool RequireOpen(void) {
  if (!Ready()) return false;
  if (SETTINGS_IsOpen() != 1) {
    projectlog::ReportError("No project file opened.");
    return false;
  }
  return true;
}

const Records& HeldRecords(void) { return p.r; }

void TakeRecords(const Records& records) {
  PROJECT_SetGeneral(&records.general);
  PROJECT_SetFlashParams(&records.flash);
  PROJECT_SetSequences(&records.sequences);
  PROJECT_SetProduction(&records.production);
  PROJECT_SetPerformance(&records.performance);
  PROJECT_SetSectorSelection(records.hasSelection ? records.selection : nullptr,
                             records.hasSelection ? kMaxSelection : 0);
}

}  // namespace projectio
