// The open project: fixed records held in memory and kept in a project file
// through the settings store. Records are compared byte-wise, so every record
// is normalised (zero padding, unused steps zeroed) before it is compared.
#include "project/project.h"

#include <cstring>

#include "app/log.h"
#include "project/appini.h"
#include "project/settings.h"
#include "project/settings_internal.h"
#include "sys/sys.h"
#include "util/util.h"
#include "util/version.h"

namespace {

constexpr uint32_t kMaxSelection = 32768;  // index sets name 0..32767
// The version as the project files store it: 6.80 is 68000.
constexpr uint32_t kAppVersion = UTIL_VERSION_MAJOR * 10000 + UTIL_VERSION_MINOR * 100;
constexpr const char* kGeneral = "GENERAL";
constexpr const char* kJtag = "JTAG";
constexpr const char* kFlash = "FLASH";
constexpr const char* kCpu = "CPU";
constexpr const char* kSpi = "SPI";
constexpr const char* kProduction = "PRODUCTION";
constexpr const char* kPerformance = "PERFORMANCE";

struct Project {
  uint32_t state = 0;  // 0 not started, 1 ready, 2 shut down
  int hasFileName = 0;
  int modified = 0;
  ProjectGeneral general{};
  ProjectSequences sequences{};
  FlashParams flash{};
  ProjectProduction production{};
  ProjectPerformance performance{};
  bool hasSelection = false;
  uint8_t selection[kMaxSelection]{};
  void (*disconnect)(void) = nullptr;
  void (*targetPower)(uint32_t, uint32_t) = nullptr;
};
Project p;

bool Ready() {
  if (p.state == 0) p.state = 1;
  return p.state == 1;
}

bool RequireOpen() {
  if (!Ready()) return false;
  if (SETTINGS_IsOpen() != 1) {
    SETTINGS_ReportError("No project file opened.");
    return false;
  }
  return true;
}

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

// ---- normalising copies (field by field, so padding stays zero) ----

ProjectGeneral Normal(const ProjectGeneral& in) {
  ProjectGeneral out;
  memset(&out, 0, sizeof out);
  CopyText(out.CurrentFile, sizeof out.CurrentFile, in.CurrentFile);
  CopyText(out.HostName, sizeof out.HostName, in.HostName);
  out.DataFileSAddr = in.DataFileSAddr;
  out.USBSerialNo = in.USBSerialNo;
  out.ConnectMode = in.ConnectMode;
  out.USBPort = in.USBPort;
  out.GUIMode = in.GUIMode;
  return out;
}

void NormalStep(SeqStep& out, const SeqStep& in) {
  CopyText(out.Comment, sizeof out.Comment, in.Comment);
  memcpy(out.Data, in.Data, sizeof out.Data);
  out.Value0 = in.Value0;
  out.Value1 = in.Value1;
  out.Action = in.Action;
}

// The sequence record is large; callers pass the destination.
void Normal(ProjectSequences& out, const ProjectSequences& in) {
  memset(&out, 0, sizeof out);
  out.NumInitSteps = in.NumInitSteps > SEQ_MAX_STEPS ? SEQ_MAX_STEPS : in.NumInitSteps;
  out.NumExitSteps = in.NumExitSteps > SEQ_MAX_STEPS ? SEQ_MAX_STEPS : in.NumExitSteps;
  out.Speed0 = in.Speed0;
  for (uint32_t i = 0; i < out.NumInitSteps; ++i) NormalStep(out.InitSteps[i], in.InitSteps[i]);
  for (uint32_t i = 0; i < out.NumExitSteps; ++i) NormalStep(out.ExitSteps[i], in.ExitSteps[i]);
}

FlashParams Normal(const FlashParams& in) {
  FlashParams out;
  memset(&out, 0, sizeof out);
  out.CmdWriteEnable = in.CmdWriteEnable;
  out.CmdWriteDisable = in.CmdWriteDisable;
  out.CmdReadID = in.CmdReadID;
  out.CmdReadStatus = in.CmdReadStatus;
  out.CmdWriteStatus = in.CmdWriteStatus;
  out.CmdReadData = in.CmdReadData;
  out.CmdWritePage = in.CmdWritePage;
  out.CmdEraseSector = in.CmdEraseSector;
  out.CmdEraseBulk = in.CmdEraseBulk;
  out.CmdEnter4ByteMode = in.CmdEnter4ByteMode;
  out.CmdExit4ByteMode = in.CmdExit4ByteMode;
  out.NumAddrBytes = in.NumAddrBytes;
  out.Dedicated4BAddrMode = in.Dedicated4BAddrMode;
  out.StatusIsReadyBit = in.StatusIsReadyBit;
  out.StatusBitPos = in.StatusBitPos;
  out.AutoDetect = in.AutoDetect;
  out.FlashType = in.FlashType;
  out.NumPages = in.NumPages;
  out.PageSizeShift = in.PageSizeShift;
  out.SectorSizeShift = in.SectorSizeShift;
  memcpy(out.abID, in.abID, sizeof out.abID);
  out.ChipClass = in.ChipClass;
  return out;
}

ProjectProduction Normal(const ProjectProduction& in) {
  ProjectProduction out;
  memset(&out, 0, sizeof out);
  out.TargetPowerDelay = in.TargetPowerDelay;
  out.EraseType = in.EraseType;
  out.AutoPerformsErase = in.AutoPerformsErase;
  out.AutoPerformsProgram = in.AutoPerformsProgram;
  out.AutoPerformsVerify = in.AutoPerformsVerify;
  out.EnableTargetPower = in.EnableTargetPower;
  out.PerformCompare = in.PerformCompare;
  return out;
}

// Takes a normalised record when it differs; counts the change.
template <typename T>
void Take(T& stored, const T& normal) {
  if (memcmp(&stored, &normal, sizeof normal) != 0) {
    memcpy(&stored, &normal, sizeof normal);
    ++p.modified;
  }
}

void HandOverTargetPower() {
  if (p.targetPower != nullptr) {
    p.targetPower(p.production.EnableTargetPower, p.production.TargetPowerDelay);
  }
}

// ---- reading keys ----

// Unsigned value with its missing-key default, clamped to at most `max`.
uint32_t ReadU32(const char* section, const char* key, uint32_t def, uint32_t max) {
  uint32_t v = 0;
  if (SETTINGS_GetU32(section, key, &v) != 0) return def;
  return v > max ? max : v;
}

// A byte array whose text does not parse takes its default (all zeros) as a
// whole: the elements read before the bad one are no value anybody wrote.
void ReadBytes(const char* section, const char* key, uint8_t* bytes, int size) {
  if (SETTINGS_GetByteArray(section, key, bytes, size) != 0) memset(bytes, 0, static_cast<size_t>(size));
}

void ReadSteps(ProjectSequences& seq, bool init) {
  const char* prefix = init ? "InitStep" : "ExitStep";
  const uint32_t count = init ? seq.NumInitSteps : seq.NumExitSteps;
  SeqStep* steps = init ? seq.InitSteps : seq.ExitSteps;
  for (uint32_t i = 0; i < count; ++i) {
    SeqStep& s = steps[i];
    memset(&s, 0, sizeof s);
    char key[64];
    char action[160];
    UTIL_snprintf(key, sizeof key, "%s%d_Action", prefix, static_cast<int>(i));
    SETTINGS_GetString(kCpu, key, action, sizeof action);
    UTIL_snprintf(key, sizeof key, "%s%d_Value0", prefix, static_cast<int>(i));
    s.Value0 = ReadU32(kCpu, key, 0, 0xFFFFFFFFu);
    UTIL_snprintf(key, sizeof key, "%s%d_Value1", prefix, static_cast<int>(i));
    if (UTIL_stricmp(action, "Write data") == 0) {
      ReadBytes(kCpu, key, s.Data, sizeof s.Data);
    } else {
      s.Value1 = ReadU32(kCpu, key, 0, 0xFFFFFFFFu);
    }
    UTIL_snprintf(key, sizeof key, "%s%d_Comment", prefix, static_cast<int>(i));
    SETTINGS_GetString(kCpu, key, s.Comment, sizeof s.Comment);
    const int index = SEQ_FindAction(action);
    if (index < 0) {
      s.Action = SEQ_ACTION_DELAY;
      s.Value0 = 0;
      s.Value1 = 0;
    } else {
      s.Action = static_cast<uint32_t>(index);
    }
  }
}

void WriteSteps(const ProjectSequences& seq, bool init) {
  const char* prefix = init ? "InitStep" : "ExitStep";
  const uint32_t count = init ? seq.NumInitSteps : seq.NumExitSteps;
  const SeqStep* steps = init ? seq.InitSteps : seq.ExitSteps;
  char key[64];
  for (uint32_t i = 0; i < count; ++i) {
    const SeqStep& s = steps[i];
    const int n = static_cast<int>(i);
    const SeqAction* action = SEQ_GetAction(s.Action);
    if (action != nullptr) {
      UTIL_snprintf(key, sizeof key, "%s%d_Action", prefix, n);
      SETTINGS_SetString(kCpu, key, action->DisplayName);
    }
    auto comment = [&] {
      UTIL_snprintf(key, sizeof key, "%s%d_Comment", prefix, n);
      char text[sizeof s.Comment + 1];
      CopyText(text, sizeof text, s.Comment);
      SETTINGS_SetString(kCpu, key, text);
    };
    // Init steps keep the comment second, exit steps last: existing files
    // have them so, and a rewrite must not reorder them.
    if (init) comment();
    UTIL_snprintf(key, sizeof key, "%s%d_Value0", prefix, n);
    SETTINGS_SetHex32(kCpu, key, s.Value0);
    UTIL_snprintf(key, sizeof key, "%s%d_Value1", prefix, n);
    if (s.Action == SEQ_ACTION_WRITE_DATA) {
      const uint32_t bytes = s.Value0 > sizeof s.Data ? sizeof s.Data : s.Value0;
      SETTINGS_SetByteArray(kCpu, key, s.Data, static_cast<int>(bytes));
    } else {
      SETTINGS_SetHex32(kCpu, key, s.Value1);
    }
    if (!init) comment();
  }
}

// ---- defaults of a new project ----

void SetNewDefaults() {
  ProjectGeneral general;
  memset(&general, 0, sizeof general);
  PROJECT_SetGeneral(&general);

  static ProjectSequences seq;
  memset(&seq, 0, sizeof seq);
  seq.Speed0 = 12000;
  PROJECT_SetSequences(&seq);

  FlashParams f;
  memset(&f, 0, sizeof f);
  f.CmdWriteEnable = 0x06;
  f.CmdWriteDisable = 0x04;
  f.CmdReadID = 0x9F;
  f.CmdReadStatus = 0x05;
  f.CmdWriteStatus = 0x01;
  f.CmdReadData = 0x03;
  f.CmdWritePage = 0x02;
  f.CmdEraseSector = 0xD8;
  f.CmdEraseBulk = 0xC7;
  f.CmdEnter4ByteMode = 0xB7;
  f.CmdExit4ByteMode = 0xE9;
  f.NumAddrBytes = 3;
  f.StatusIsReadyBit = 1;
  f.AutoDetect = 1;
  f.FlashType = 1;
  PROJECT_SetFlashParams(&f);

  ProjectProduction prod;
  memset(&prod, 0, sizeof prod);
  prod.EraseType = 2;
  prod.PerformCompare = 1;
  prod.AutoPerformsErase = 1;
  prod.AutoPerformsProgram = 1;
  prod.AutoPerformsVerify = 1;
  prod.TargetPowerDelay = 200;
  PROJECT_SetProduction(&prod);

  ProjectPerformance perf{};
  PROJECT_SetPerformance(&perf);
  PROJECT_SetSectorSelection(nullptr, 0);
}

void ReportErrorOut(const char* text) { SETTINGS_ReportError(text); }

// Remembers the project as the current one in the application settings.
void RecordCurrent(const char* fileName) {
  char dir[512];
  if (SYS_GetConfigDir(dir, sizeof dir) != 0) return;
  char path[600];
  SYS_MakePath(path, sizeof path, dir, "PellamSPI.ini");
  APPINI_SetFile(path, ReportErrorOut);
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
    SetNewDefaults();
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
  SETTINGS_ReportError("Failed to save project file");
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
    SETTINGS_ReportError("Failed to save project file");
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

// ---------------------------------------------------------------- keys

void PROJECT_LoadKeys(void) {
  if (!RequireOpen()) return;
  ProjectGeneral general;
  memset(&general, 0, sizeof general);
  SETTINGS_GetString(kGeneral, "CurrentFile", general.CurrentFile, sizeof general.CurrentFile);
  general.DataFileSAddr = ReadU32(kGeneral, "DataFileSAddr", 0, 0xFFFFFFFFu);
  SETTINGS_GetString(kGeneral, "HostName", general.HostName, sizeof general.HostName);
  if (SETTINGS_HasKey(kGeneral, "ConnectMode")) {
    general.ConnectMode = static_cast<uint8_t>(ReadU32(kGeneral, "ConnectMode", 0, 2));
  } else {
    // Older files only knew whether to connect by network.
    general.ConnectMode = ReadU32(kGeneral, "ConnectIP", 0, 0xFFFFFFFFu) != 0 ? 2 : 0;
  }
  general.USBPort = static_cast<uint8_t>(ReadU32(kGeneral, "USBPort", 0, 3));
  general.USBSerialNo = ReadU32(kGeneral, "USBSerialNo", 0, 0xFFFFFFFFu);
  general.GUIMode = static_cast<uint8_t>(ReadU32(kGeneral, "GUIMode", 0, 1));

  FlashParams f;
  memset(&f, 0, sizeof f);
  f.FlashType = ReadU32(kFlash, "FlashType", 1, 2);
  if (f.FlashType == 0) f.FlashType = 1;
  f.AutoDetect = ReadU32(kFlash, "AutoDetect", 1, 1);
  ReadBytes(kFlash, "abID", f.abID, sizeof f.abID);
  f.NumPages = ReadU32(kFlash, "NumPages", 65536, 0xFFFFFFFFu);
  f.PageSizeShift = ReadU32(kFlash, "PageSizeShift", 8, 32);
  f.SectorSizeShift = ReadU32(kFlash, "SectorSizeShift", 16, 32);
  static uint8_t selection[kMaxSelection];
  // A selection that does not parse selects nothing. Treating it as absent,
  // as other keys are, would select every sector, and -erasesectors would
  // then erase the whole chip because one item of the list was damaged.
  const bool hasSelection = SETTINGS_HasKey(kFlash, "SelectedSectors") != 0;
  if (hasSelection && SETTINGS_GetIndexSet(kFlash, "SelectedSectors", selection, kMaxSelection) != 0)
    memset(selection, 0, sizeof selection);

  auto hex8 = [](const char* key, uint32_t def, uint32_t max) {
    return static_cast<uint8_t>(ReadU32(kSpi, key, def, max));
  };
  f.CmdWriteEnable = hex8("CmdWriteEnable", 0x06, 255);
  f.CmdWriteDisable = hex8("CmdWriteDisable", 0x04, 255);
  f.CmdReadID = hex8("CmdReadID", 0x9F, 255);
  f.CmdReadStatus = hex8("CmdReadStatus", 0x05, 255);
  f.CmdWriteStatus = hex8("CmdWriteStatus", 0x01, 255);
  f.CmdReadData = hex8("CmdReadData", 0x03, 255);
  f.CmdWritePage = hex8("CmdWritePage", 0x02, 255);
  f.CmdEraseSector = hex8("CmdEraseSector", 0xD8, 255);
  f.CmdEraseBulk = hex8("CmdEraseBulk", 0xC7, 255);
  if (SETTINGS_HasKey(kSpi, "NumAddrBytes")) {
    f.NumAddrBytes = hex8("NumAddrBytes", 3, 32);
  } else {
    // Older files gave the address length per command.
    static constexpr const char* kOld[] = {"AddrBytesWritePage", "AddrBytesEraseSector",
                                           "AddrBytesReadData", "AddrBytesReadFast"};
    f.NumAddrBytes = 3;
    for (const char* key : kOld) {
      if (hex8(key, 3, 255) == 4) f.NumAddrBytes = 4;
    }
  }
  f.CmdEnter4ByteMode = hex8("CmdEnter4ByteMode", 0xB7, 255);
  f.CmdExit4ByteMode = hex8("CmdExit4ByteMode", 0xE9, 255);
  f.Dedicated4BAddrMode = hex8("Dedicated4BAddrMode", 0, 255);
  f.StatusIsReadyBit = hex8("StatusIsReadyBit", 0, 1);
  f.StatusBitPos = hex8("StatusBitPos", 0, 7);
  f.ChipClass = 0;

  static ProjectSequences seq;
  memset(&seq, 0, sizeof seq);
  seq.Speed0 = ReadU32(kJtag, "Speed0", 4000, 25000);
  if (seq.Speed0 < 1000) seq.Speed0 = 1000;
  seq.NumInitSteps = ReadU32(kCpu, "NumInitSteps", 0, SEQ_MAX_STEPS);
  ReadSteps(seq, true);
  seq.NumExitSteps = ReadU32(kCpu, "NumExitSteps", 0, SEQ_MAX_STEPS);
  ReadSteps(seq, false);

  ProjectProduction prod;
  memset(&prod, 0, sizeof prod);
  prod.EraseType = static_cast<uint8_t>(ReadU32(kProduction, "EraseType", 1, 4));
  prod.PerformCompare = static_cast<uint8_t>(ReadU32(kProduction, "PerformCompare", 1, 4));
  prod.AutoPerformsErase = static_cast<uint8_t>(ReadU32(kProduction, "AutoPerformsErase", 1, 1));
  prod.AutoPerformsProgram = static_cast<uint8_t>(ReadU32(kProduction, "AutoPerformsProgram", 1, 1));
  prod.AutoPerformsVerify = static_cast<uint8_t>(ReadU32(kProduction, "AutoPerformsVerify", 1, 1));
  prod.EnableTargetPower = static_cast<uint8_t>(ReadU32(kProduction, "EnableTargetPower", 0, 1));
  prod.TargetPowerDelay = ReadU32(kProduction, "TargetPowerDelay", 0, 10000);

  ProjectPerformance perf{};
  perf.DisableSkipBlankDataOnProgram =
      static_cast<uint8_t>(ReadU32(kPerformance, "DisableSkipBlankDataOnProgram", 0, 1));

  PROJECT_SetGeneral(&general);
  PROJECT_SetFlashParams(&f);
  PROJECT_SetSequences(&seq);
  PROJECT_SetProduction(&prod);
  PROJECT_SetPerformance(&perf);
  PROJECT_SetSectorSelection(hasSelection ? selection : nullptr, hasSelection ? kMaxSelection : 0);
}

void PROJECT_StoreKeys(void) {
  if (!RequireOpen()) return;
  SETTINGS_Clear();
  SETTINGS_SetDec(nullptr, "AppVersion", static_cast<int32_t>(kAppVersion));

  const ProjectGeneral& g = p.general;
  SETTINGS_SetString(kGeneral, "CurrentFile", g.CurrentFile);
  SETTINGS_SetHex32(kGeneral, "DataFileSAddr", g.DataFileSAddr);
  SETTINGS_SetString(kGeneral, "HostName", g.HostName);
  SETTINGS_SetDec(kGeneral, "ConnectMode", g.ConnectMode);
  SETTINGS_SetDec(kGeneral, "USBPort", g.USBPort);
  SETTINGS_SetHex32(kGeneral, "USBSerialNo", g.USBSerialNo);
  SETTINGS_SetDec(kGeneral, "GUIMode", g.GUIMode);

  SETTINGS_SetDec(kJtag, "Speed0", static_cast<int32_t>(p.sequences.Speed0));

  const FlashParams& f = p.flash;
  SETTINGS_SetHex32(kFlash, "FlashType", f.FlashType);
  SETTINGS_SetHex32(kFlash, "AutoDetect", f.AutoDetect);
  if (f.AutoDetect == 0) SETTINGS_SetByteArray(kFlash, "abID", f.abID, sizeof f.abID);
  SETTINGS_SetHex32(kFlash, "NumPages", f.NumPages);
  SETTINGS_SetHex32(kFlash, "PageSizeShift", f.PageSizeShift);
  SETTINGS_SetHex32(kFlash, "SectorSizeShift", f.SectorSizeShift);
  if (p.hasSelection) SETTINGS_SetIndexSet(kFlash, "SelectedSectors", p.selection, kMaxSelection);

  SETTINGS_SetDec(kCpu, "NumInitSteps", static_cast<int32_t>(p.sequences.NumInitSteps));
  WriteSteps(p.sequences, true);
  SETTINGS_SetDec(kCpu, "NumExitSteps", static_cast<int32_t>(p.sequences.NumExitSteps));
  WriteSteps(p.sequences, false);

  SETTINGS_SetHex8(kSpi, "CmdWriteEnable", f.CmdWriteEnable);
  SETTINGS_SetHex8(kSpi, "CmdWriteDisable", f.CmdWriteDisable);
  SETTINGS_SetHex8(kSpi, "CmdReadID", f.CmdReadID);
  SETTINGS_SetHex8(kSpi, "CmdReadStatus", f.CmdReadStatus);
  SETTINGS_SetHex8(kSpi, "CmdWriteStatus", f.CmdWriteStatus);
  SETTINGS_SetHex8(kSpi, "CmdReadData", f.CmdReadData);
  SETTINGS_SetHex8(kSpi, "CmdWritePage", f.CmdWritePage);
  SETTINGS_SetHex8(kSpi, "CmdEraseSector", f.CmdEraseSector);
  SETTINGS_SetHex8(kSpi, "CmdEraseBulk", f.CmdEraseBulk);
  SETTINGS_SetHex8(kSpi, "NumAddrBytes", f.NumAddrBytes);
  SETTINGS_SetHex8(kSpi, "CmdEnter4ByteMode", f.CmdEnter4ByteMode);
  SETTINGS_SetHex8(kSpi, "CmdExit4ByteMode", f.CmdExit4ByteMode);
  SETTINGS_SetHex8(kSpi, "Dedicated4BAddrMode", f.Dedicated4BAddrMode);
  SETTINGS_SetHex8(kSpi, "StatusIsReadyBit", f.StatusIsReadyBit);
  SETTINGS_SetHex8(kSpi, "StatusBitPos", f.StatusBitPos);

  const ProjectProduction& pr = p.production;
  SETTINGS_SetDec(kProduction, "EraseType", pr.EraseType);
  SETTINGS_SetDec(kProduction, "PerformCompare", pr.PerformCompare);
  SETTINGS_SetDec(kProduction, "AutoPerformsErase", pr.AutoPerformsErase);
  SETTINGS_SetDec(kProduction, "AutoPerformsProgram", pr.AutoPerformsProgram);
  SETTINGS_SetDec(kProduction, "AutoPerformsVerify", pr.AutoPerformsVerify);
  SETTINGS_SetDec(kProduction, "EnableTargetPower", pr.EnableTargetPower);
  SETTINGS_SetHex32(kProduction, "TargetPowerDelay", pr.TargetPowerDelay);

  SETTINGS_SetHex32(kPerformance, "DisableSkipBlankDataOnProgram", p.performance.DisableSkipBlankDataOnProgram);
}

// ---------------------------------------------------------------- records

void PROJECT_GetGeneral(ProjectGeneral* out) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (RequireOpen()) *out = p.general;
}

void PROJECT_SetGeneral(const ProjectGeneral* in) {
  if (in == nullptr || !RequireOpen()) return;
  Take(p.general, Normal(*in));
}

int PROJECT_GeneralDiffers(const ProjectGeneral* in) {
  if (in == nullptr) return 0;
  const ProjectGeneral n = Normal(*in);
  return memcmp(&n, &p.general, sizeof n) != 0 ? 1 : 0;
}

const char* PROJECT_GetDataFile(uint32_t* address) {
  if (address != nullptr) *address = 0;
  if (!RequireOpen()) return "";
  if (address != nullptr) *address = p.general.DataFileSAddr;
  return p.general.CurrentFile;
}

void PROJECT_SetDataFile(const char* name, uint32_t address) {
  if (!RequireOpen()) return;
  if (address != p.general.DataFileSAddr) {
    p.general.DataFileSAddr = address;
    ++p.modified;
  }
  if (name == nullptr) return;
  if (strlen(name) >= sizeof p.general.CurrentFile) {
    SETTINGS_ReportError("Too large file name.");
    return;
  }
  if (strcmp(name, p.general.CurrentFile) != 0) {
    CopyText(p.general.CurrentFile, sizeof p.general.CurrentFile, name);
    ++p.modified;
  }
}

void PROJECT_GetSequences(ProjectSequences* out) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (RequireOpen()) memcpy(out, &p.sequences, sizeof *out);
}

void PROJECT_SetSequences(const ProjectSequences* in) {
  if (in == nullptr || !RequireOpen()) return;
  static ProjectSequences n;
  Normal(n, *in);
  Take(p.sequences, n);
}

int PROJECT_SequencesDiffer(const ProjectSequences* in) {
  if (in == nullptr) return 0;
  static ProjectSequences n;
  Normal(n, *in);
  return memcmp(&n, &p.sequences, sizeof n) != 0 ? 1 : 0;
}

uint32_t PROJECT_GetStepCount(int list) {
  if (SETTINGS_IsOpen() != 1) return 0;
  return list == 0 ? p.sequences.NumInitSteps : list == 1 ? p.sequences.NumExitSteps : 0;
}

void PROJECT_GetStep(int list, uint32_t index, SeqStep* out) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (index >= PROJECT_GetStepCount(list)) return;
  *out = list == 0 ? p.sequences.InitSteps[index] : p.sequences.ExitSteps[index];
}

void PROJECT_GetFlashParams(FlashParams* out) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (RequireOpen()) *out = p.flash;
}

void PROJECT_SetFlashParams(const FlashParams* in) {
  if (in == nullptr || !RequireOpen()) return;
  Take(p.flash, Normal(*in));
}

int PROJECT_FlashParamsDiffer(const FlashParams* in) {
  if (in == nullptr) return 0;
  const FlashParams n = Normal(*in);
  return memcmp(&n, &p.flash, sizeof n) != 0 ? 1 : 0;
}

void PROJECT_GetProduction(ProjectProduction* out) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (RequireOpen()) *out = p.production;
}

void PROJECT_SetProduction(const ProjectProduction* in) {
  if (in == nullptr || !RequireOpen()) return;
  Take(p.production, Normal(*in));
  HandOverTargetPower();
}

int PROJECT_ProductionDiffers(const ProjectProduction* in) {
  if (in == nullptr) return 0;
  const ProjectProduction n = Normal(*in);
  return memcmp(&n, &p.production, sizeof n) != 0 ? 1 : 0;
}

void PROJECT_GetPerformance(ProjectPerformance* out) {
  if (out == nullptr) return;
  memset(out, 0, sizeof *out);
  if (RequireOpen()) *out = p.performance;
}

void PROJECT_SetPerformance(const ProjectPerformance* in) {
  if (in == nullptr || !RequireOpen()) return;
  Take(p.performance, *in);
}

int PROJECT_PerformanceDiffers(const ProjectPerformance* in) {
  if (in == nullptr) return 0;
  return in->DisableSkipBlankDataOnProgram != p.performance.DisableSkipBlankDataOnProgram ? 1 : 0;
}

void PROJECT_SetDisconnectHook(void (*hook)(void)) { p.disconnect = hook; }

void PROJECT_SetTargetPowerHook(void (*hook)(uint32_t enabled, uint32_t delayMs)) { p.targetPower = hook; }

// ---------------------------------------------------------------- sector selection

uint32_t PROJECT_GetSectorSelection(uint8_t* flags, uint32_t count) {
  if (flags == nullptr || count == 0) return 0;
  if (!p.hasSelection || SETTINGS_IsOpen() != 1) {
    memset(flags, 1, count);
    return count;
  }
  uint32_t selected = 0;
  for (uint32_t i = 0; i < count; ++i) {
    flags[i] = i < kMaxSelection && p.selection[i] != 0 ? 1 : 0;
    selected += flags[i];
  }
  return selected;
}

void PROJECT_SetSectorSelection(const uint8_t* flags, uint32_t count) {
  if (!RequireOpen()) return;
  if (flags == nullptr || count == 0) {
    if (p.hasSelection) {
      p.hasSelection = false;
      memset(p.selection, 0, sizeof p.selection);
      ++p.modified;
    }
    return;
  }
  static uint8_t next[kMaxSelection];
  memset(next, 0, sizeof next);
  for (uint32_t i = 0; i < count && i < kMaxSelection; ++i) next[i] = flags[i] != 0 ? 1 : 0;
  if (!p.hasSelection || memcmp(next, p.selection, sizeof next) != 0) {
    memcpy(p.selection, next, sizeof next);
    p.hasSelection = true;
    ++p.modified;
  }
}
