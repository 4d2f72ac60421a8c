// The project file's keys: one table gives every regular key's section,
// value form, record field, defaults and clamp, and drives loading, storing
// and the values of a new project. The few keys that follow other rules
// (older keys, the steps, the chip ID written only for a fixed chip, the
// sector selection) are handled beside it.
#include <cstring>

#include "project/project.h"
#include "project/project_internal.h"
#include "project/settings.h"
#include "util/util.h"
#include "util/version.h"

namespace projectio {
namespace {

// The version as the project files store it: 6.80 is 68000.
constexpr uint32_t kAppVersion = UTIL_VERSION_MAJOR * 10000 + UTIL_VERSION_MINOR * 100;
constexpr const char* kGeneral = "GENERAL";
constexpr const char* kJtag = "JTAG";
constexpr const char* kFlash = "FLASH";
constexpr const char* kCpu = "CPU";
constexpr const char* kSpi = "SPI";
constexpr const char* kProduction = "PRODUCTION";
constexpr const char* kPerformance = "PERFORMANCE";
constexpr uint32_t kAny = 0xFFFFFFFFu;

// ---- where a key's value lives ----

// The record of a given type within a set of records (the pointer only picks it).
ProjectGeneral& RecordIn(Records& r, ProjectGeneral*) { return r.general; }
ProjectSequences& RecordIn(Records& r, ProjectSequences*) { return r.sequences; }
FlashParams& RecordIn(Records& r, FlashParams*) { return r.flash; }
ProjectProduction& RecordIn(Records& r, ProjectProduction*) { return r.production; }
ProjectPerformance& RecordIn(Records& r, ProjectPerformance*) { return r.performance; }

template <auto M>
struct MemberOf;
template <typename R, typename T, T R::*M>
struct MemberOf<M> {
  using Record = R;
  using Type = T;
};

// One field of the records: its address in a given set of records and its size.
struct Field {
  void* (*at)(Records&);
  uint32_t size;
};

template <auto M>
constexpr Field Of() {
  using Info = MemberOf<M>;
  using Record = typename Info::Record;
  return {[](Records& r) -> void* { return &(RecordIn(r, static_cast<Record*>(nullptr)).*M); },
          sizeof(typename Info::Type)};
}

constexpr Field kNoField{nullptr, 0};

enum class Kind : uint8_t {
  Dec,       // "  %s = %d"
  Hex8,      // "  %s = 0x%.2X"
  Hex32,     // "  %s = 0x%.8X"
  String,    // "  %s = \"%s\""
  Bytes,     // "  %s[%d] = " and "0x%.2X" items
  IndexSet,  // "  %s[%d] = " and runs "a" or "a-b"; only the sector selection, kept
             // apart from the records and written only when one was made
};

// What a key does beyond its row; each is handled by name below the table.
enum class Rule : uint8_t {
  Plain,
  NotRead,         // written only (AppVersion)
  OrConnectIP,     // missing: taken from the older key ConnectIP
  OrAddrBytes,     // missing: taken from the four older AddrBytes* keys
  UnlessDetected,  // written only when AutoDetect is 0 (abID)
  InitSteps,       // followed by the init steps
  ExitSteps,       // followed by the exit steps
};

struct KeyRow {
  const char* section;  // null: before the first header
  const char* key;
  Kind kind;
  Field field;
  uint32_t missing;  // when the key is missing or does not parse
  uint32_t fresh;    // in a new project
  uint32_t min;      // a read value is clamped into min..max
  uint32_t max;
  Rule rule;
};

// In the order of storing; loading takes the sections in kLoadOrder.
constexpr KeyRow kKeys[] = {
    {nullptr, "AppVersion", Kind::Dec, kNoField, kAppVersion, kAppVersion, 0, kAny, Rule::NotRead},
    {kGeneral, "CurrentFile", Kind::String, Of<&ProjectGeneral::CurrentFile>(), 0, 0, 0, 0, Rule::Plain},
    {kGeneral, "DataFileSAddr", Kind::Hex32, Of<&ProjectGeneral::DataFileSAddr>(), 0, 0, 0, kAny, Rule::Plain},
    {kGeneral, "HostName", Kind::String, Of<&ProjectGeneral::HostName>(), 0, 0, 0, 0, Rule::Plain},
    {kGeneral, "ConnectMode", Kind::Dec, Of<&ProjectGeneral::ConnectMode>(), 0, PROJECT_CONNECT_USB_INDEX, 0,
     PROJECT_CONNECT_TCPIP, Rule::OrConnectIP},
    {kGeneral, "USBPort", Kind::Dec, Of<&ProjectGeneral::USBPort>(), 0, 0, 0, 3, Rule::Plain},
    {kGeneral, "USBSerialNo", Kind::Hex32, Of<&ProjectGeneral::USBSerialNo>(), 0, 0, 0, kAny, Rule::Plain},
    {kGeneral, "GUIMode", Kind::Dec, Of<&ProjectGeneral::GUIMode>(), 0, 0, 0, 1, Rule::Plain},
    {kJtag, "Speed0", Kind::Dec, Of<&ProjectSequences::Speed0>(), 4000, 12000, 1000, 25000, Rule::Plain},
    // The clamp 1..2 reads a stored 0 (no type) as a plain flash.
    {kFlash, "FlashType", Kind::Hex32, Of<&FlashParams::FlashType>(), FLASHPARAMS_TYPE_FLASH, FLASHPARAMS_TYPE_FLASH,
     FLASHPARAMS_TYPE_FLASH, FLASHPARAMS_TYPE_NO_ERASE, Rule::Plain},
    {kFlash, "AutoDetect", Kind::Hex32, Of<&FlashParams::AutoDetect>(), 1, 1, 0, 1, Rule::Plain},
    {kFlash, "abID", Kind::Bytes, Of<&FlashParams::abID>(), 0, 0, 0, 0, Rule::UnlessDetected},
    {kFlash, "NumPages", Kind::Hex32, Of<&FlashParams::NumPages>(), 65536, 0, 0, kAny, Rule::Plain},
    {kFlash, "PageSizeShift", Kind::Hex32, Of<&FlashParams::PageSizeShift>(), 8, 0, 0, 32, Rule::Plain},
    {kFlash, "SectorSizeShift", Kind::Hex32, Of<&FlashParams::SectorSizeShift>(), 16, 0, 0, 32, Rule::Plain},
    {kFlash, "SelectedSectors", Kind::IndexSet, kNoField, 0, 0, 0, 0, Rule::Plain},
    {kCpu, "NumInitSteps", Kind::Dec, Of<&ProjectSequences::NumInitSteps>(), 0, 0, 0, SEQ_MAX_STEPS, Rule::InitSteps},
    {kCpu, "NumExitSteps", Kind::Dec, Of<&ProjectSequences::NumExitSteps>(), 0, 0, 0, SEQ_MAX_STEPS, Rule::ExitSteps},
    {kSpi, "CmdWriteEnable", Kind::Hex8, Of<&FlashParams::CmdWriteEnable>(), 0x06, 0x06, 0, 255, Rule::Plain},
    {kSpi, "CmdWriteDisable", Kind::Hex8, Of<&FlashParams::CmdWriteDisable>(), 0x04, 0x04, 0, 255, Rule::Plain},
    {kSpi, "CmdReadID", Kind::Hex8, Of<&FlashParams::CmdReadID>(), FLASHPARAMS_OP_READ_JEDEC_ID,
     FLASHPARAMS_OP_READ_JEDEC_ID, 0, 255, Rule::Plain},
    {kSpi, "CmdReadStatus", Kind::Hex8, Of<&FlashParams::CmdReadStatus>(), 0x05, 0x05, 0, 255, Rule::Plain},
    {kSpi, "CmdWriteStatus", Kind::Hex8, Of<&FlashParams::CmdWriteStatus>(), 0x01, 0x01, 0, 255, Rule::Plain},
    {kSpi, "CmdReadData", Kind::Hex8, Of<&FlashParams::CmdReadData>(), 0x03, 0x03, 0, 255, Rule::Plain},
    {kSpi, "CmdWritePage", Kind::Hex8, Of<&FlashParams::CmdWritePage>(), 0x02, 0x02, 0, 255, Rule::Plain},
    {kSpi, "CmdEraseSector", Kind::Hex8, Of<&FlashParams::CmdEraseSector>(), 0xD8, 0xD8, 0, 255, Rule::Plain},
    {kSpi, "CmdEraseBulk", Kind::Hex8, Of<&FlashParams::CmdEraseBulk>(), 0xC7, 0xC7, 0, 255, Rule::Plain},
    {kSpi, "NumAddrBytes", Kind::Hex8, Of<&FlashParams::NumAddrBytes>(), 3, 3, 0, 32, Rule::OrAddrBytes},
    {kSpi, "CmdEnter4ByteMode", Kind::Hex8, Of<&FlashParams::CmdEnter4ByteMode>(), 0xB7, 0xB7, 0, 255, Rule::Plain},
    {kSpi, "CmdExit4ByteMode", Kind::Hex8, Of<&FlashParams::CmdExit4ByteMode>(), 0xE9, 0xE9, 0, 255, Rule::Plain},
    {kSpi, "Dedicated4BAddrMode", Kind::Hex8, Of<&FlashParams::Dedicated4BAddrMode>(), 0, 0, 0, 255, Rule::Plain},
    {kSpi, "StatusIsReadyBit", Kind::Hex8, Of<&FlashParams::StatusIsReadyBit>(), 0, 1, 0, 1, Rule::Plain},
    {kSpi, "StatusBitPos", Kind::Hex8, Of<&FlashParams::StatusBitPos>(), 0, 0, 0, 7, Rule::Plain},
    {kProduction, "EraseType", Kind::Dec, Of<&ProjectProduction::EraseType>(), 1, 2, 0, 4, Rule::Plain},
    {kProduction, "PerformCompare", Kind::Dec, Of<&ProjectProduction::PerformCompare>(), 1, 1, 0, 4, Rule::Plain},
    {kProduction, "AutoPerformsErase", Kind::Dec, Of<&ProjectProduction::AutoPerformsErase>(), 1, 1, 0, 1, Rule::Plain},
    {kProduction, "AutoPerformsProgram", Kind::Dec, Of<&ProjectProduction::AutoPerformsProgram>(), 1, 1, 0, 1,
     Rule::Plain},
    {kProduction, "AutoPerformsVerify", Kind::Dec, Of<&ProjectProduction::AutoPerformsVerify>(), 1, 1, 0, 1,
     Rule::Plain},
    {kProduction, "EnableTargetPower", Kind::Dec, Of<&ProjectProduction::EnableTargetPower>(), 0, 0, 0, 1, Rule::Plain},
    {kProduction, "TargetPowerDelay", Kind::Hex32, Of<&ProjectProduction::TargetPowerDelay>(), 0, 200, 0, 10000,
     Rule::Plain},
    {kPerformance, "DisableSkipBlankDataOnProgram", Kind::Hex32,
     Of<&ProjectPerformance::DisableSkipBlankDataOnProgram>(), 0, 0, 0, 1, Rule::Plain},
};

// Sections as loading reads them (parse messages come in this order).
constexpr const char* kLoadOrder[] = {kGeneral, kFlash, kSpi, kJtag, kCpu, kProduction, kPerformance};

bool SameSection(const char* a, const char* b) { return a == b || (a != nullptr && b != nullptr && strcmp(a, b) == 0); }

// ---- field values ----

uint32_t Value(const KeyRow& row, const Records& r) {
  const void* at = row.field.at(const_cast<Records&>(r));
  if (row.field.size == 1) return *static_cast<const uint8_t*>(at);
  return *static_cast<const uint32_t*>(at);
}

void SetValue(const KeyRow& row, Records& r, uint32_t v) {
  void* at = row.field.at(r);
  if (row.field.size == 1) {
    *static_cast<uint8_t*>(at) = static_cast<uint8_t>(v);
  } else {
    *static_cast<uint32_t*>(at) = v;
  }
}

// ---- reading ----

// Unsigned value, or `missing` when the key is missing or does not parse;
// a read value is clamped into min..max.
uint32_t ReadU32(const char* section, const char* key, uint32_t missing, uint32_t min, uint32_t max) {
  uint32_t v = 0;
  if (SETTINGS_GetU32(section, key, &v) != 0) return missing;
  return v > max ? max : v < min ? min : v;
}

// A byte array whose text does not parse takes its default (all zeros) as a
// whole: the elements read before the bad one are no value anybody wrote.
void ReadBytes(const char* section, const char* key, uint8_t* bytes, int size) {
  if (SETTINGS_GetByteArray(section, key, bytes, size) != 0) memset(bytes, 0, static_cast<size_t>(size));
}

void StepKey(char (&key)[64], const char* prefix, uint32_t i, const char* name) {
  UTIL_snprintf(key, sizeof key, "%s%d_%s", prefix, static_cast<int>(i), name);
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
    StepKey(key, prefix, i, "Action");
    SETTINGS_GetString(kCpu, key, action, sizeof action);
    // The lookup folds ASCII case as names in the file always were compared,
    // so any spelling of "Write data" is the Write Data step.
    const int index = SEQ_FindAction(action);
    StepKey(key, prefix, i, "Value0");
    s.Value0 = ReadU32(kCpu, key, 0, 0, kAny);
    StepKey(key, prefix, i, "Value1");
    if (index == SEQ_ACTION_WRITE_DATA) {
      ReadBytes(kCpu, key, s.Data, sizeof s.Data);
    } else {
      s.Value1 = ReadU32(kCpu, key, 0, 0, kAny);
    }
    StepKey(key, prefix, i, "Comment");
    SETTINGS_GetString(kCpu, key, s.Comment, sizeof s.Comment);
    if (index < 0) {
      s.Action = SEQ_ACTION_DELAY;
      s.Value0 = 0;
      s.Value1 = 0;
    } else {
      s.Action = static_cast<uint32_t>(index);
    }
  }
}

// A selection that does not parse selects nothing. Treating it as absent,
// as other keys are, would select every sector, and -erasesectors would then
// erase the whole chip because one item of the list was damaged.
void ReadSelection(const KeyRow& row, Records& r) {
  r.hasSelection = SETTINGS_HasKey(row.section, row.key) != 0;
  if (r.hasSelection && SETTINGS_GetIndexSet(row.section, row.key, r.selection, kMaxSelection) != 0) {
    memset(r.selection, 0, sizeof r.selection);
  }
}

uint32_t ReadRowValue(const KeyRow& row) { return ReadU32(row.section, row.key, row.missing, row.min, row.max); }

void ReadRow(const KeyRow& row, Records& r) {
  switch (row.kind) {
    case Kind::IndexSet:
      ReadSelection(row, r);
      return;
    case Kind::String:
      SETTINGS_GetString(row.section, row.key, static_cast<char*>(row.field.at(r)), static_cast<int>(row.field.size));
      return;
    case Kind::Bytes:
      ReadBytes(row.section, row.key, static_cast<uint8_t*>(row.field.at(r)), static_cast<int>(row.field.size));
      return;
    default:
      break;
  }
  switch (row.rule) {
    case Rule::OrConnectIP:
      if (SETTINGS_HasKey(row.section, row.key)) break;
      // Older files only knew whether to connect by network.
      SetValue(row, r,
               ReadU32(row.section, "ConnectIP", 0, 0, kAny) != 0 ? PROJECT_CONNECT_TCPIP : PROJECT_CONNECT_USB_INDEX);
      return;
    case Rule::OrAddrBytes: {
      if (SETTINGS_HasKey(row.section, row.key)) break;
      // Older files gave the address length per command.
      static constexpr const char* kOld[] = {"AddrBytesWritePage", "AddrBytesEraseSector", "AddrBytesReadData",
                                             "AddrBytesReadFast"};
      uint32_t bytes = 3;
      for (const char* key : kOld) {
        if (ReadU32(row.section, key, 3, 0, 255) == 4) bytes = 4;
      }
      SetValue(row, r, bytes);
      return;
    }
    default:
      break;
  }
  SetValue(row, r, ReadRowValue(row));
}

// ---- writing ----

void WriteSteps(const ProjectSequences& seq, bool init) {
  const char* prefix = init ? "InitStep" : "ExitStep";
  const uint32_t count = init ? seq.NumInitSteps : seq.NumExitSteps;
  const SeqStep* steps = init ? seq.InitSteps : seq.ExitSteps;
  char key[64];
  for (uint32_t i = 0; i < count; ++i) {
    const SeqStep& s = steps[i];
    const SeqAction* action = SEQ_GetAction(s.Action);
    if (action != nullptr) {
      StepKey(key, prefix, i, "Action");
      SETTINGS_SetString(kCpu, key, action->DisplayName);
    }
    auto comment = [&] {
      StepKey(key, prefix, i, "Comment");
      char text[sizeof s.Comment + 1] = {};
      memcpy(text, s.Comment, strnlen(s.Comment, sizeof s.Comment));
      SETTINGS_SetString(kCpu, key, text);
    };
    // Init steps keep the comment second, exit steps last: existing files
    // have them so, and a rewrite must not reorder them.
    if (init) comment();
    StepKey(key, prefix, i, "Value0");
    SETTINGS_SetHex32(kCpu, key, s.Value0);
    StepKey(key, prefix, i, "Value1");
    if (s.Action == SEQ_ACTION_WRITE_DATA) {
      const uint32_t bytes = s.Value0 > sizeof s.Data ? sizeof s.Data : s.Value0;
      SETTINGS_SetByteArray(kCpu, key, s.Data, static_cast<int>(bytes));
    } else {
      SETTINGS_SetHex32(kCpu, key, s.Value1);
    }
    if (!init) comment();
  }
}

void WriteRow(const KeyRow& row, const Records& r) {
  if (row.rule == Rule::UnlessDetected && r.flash.AutoDetect != 0) return;
  if (row.kind == Kind::IndexSet) {
    if (r.hasSelection) SETTINGS_SetIndexSet(row.section, row.key, r.selection, kMaxSelection);
    return;
  }
  if (row.field.at == nullptr) {
    SETTINGS_SetDec(row.section, row.key, static_cast<int32_t>(row.fresh));
    return;
  }
  auto& rw = const_cast<Records&>(r);
  switch (row.kind) {
    case Kind::Dec:
      SETTINGS_SetDec(row.section, row.key, static_cast<int32_t>(Value(row, r)));
      break;
    case Kind::Hex8:
      SETTINGS_SetHex8(row.section, row.key, Value(row, r));
      break;
    case Kind::Hex32:
      SETTINGS_SetHex32(row.section, row.key, Value(row, r));
      break;
    case Kind::String:
      SETTINGS_SetString(row.section, row.key, static_cast<const char*>(row.field.at(rw)));
      break;
    case Kind::Bytes:
      SETTINGS_SetByteArray(row.section, row.key, static_cast<const uint8_t*>(row.field.at(rw)),
                            static_cast<int>(row.field.size));
      break;
    case Kind::IndexSet:
      break;
  }
}

// What follows a row in both directions.
void ReadAfter(const KeyRow& row, Records& r) {
  if (row.rule == Rule::InitSteps) ReadSteps(r.sequences, true);
  if (row.rule == Rule::ExitSteps) ReadSteps(r.sequences, false);
}

void WriteAfter(const KeyRow& row, const Records& r) {
  if (row.rule == Rule::InitSteps) WriteSteps(r.sequences, true);
  if (row.rule == Rule::ExitSteps) WriteSteps(r.sequences, false);
}

// Fresh records for loading and for a new project (too large for the stack).
Records& Blank() {
  static Records r;
  memset(&r, 0, sizeof r);
  return r;
}

}  // namespace

void SetNewDefaults(void) {
  Records& r = Blank();
  for (const KeyRow& row : kKeys) {
    if (row.field.at != nullptr && row.kind != Kind::String && row.kind != Kind::Bytes) SetValue(row, r, row.fresh);
  }
  TakeRecords(r);
}

}  // namespace projectio

using namespace projectio;

void PROJECT_LoadKeys(void) {
  if (!RequireOpen()) return;
  Records& r = Blank();
  for (const char* section : kLoadOrder) {
    for (const KeyRow& row : kKeys) {
      if (!SameSection(row.section, section) || row.rule == Rule::NotRead) continue;
      ReadRow(row, r);
      ReadAfter(row, r);
    }
  }
  // ChipClass has no key: only chip detection sets it.
  r.flash.ChipClass = 0;
  TakeRecords(r);
}

void PROJECT_StoreKeys(void) {
  if (!RequireOpen()) return;
  SETTINGS_Clear();
  const Records& r = HeldRecords();
  for (const KeyRow& row : kKeys) {
    WriteRow(row, r);
    WriteAfter(row, r);
  }
}
