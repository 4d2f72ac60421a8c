// Shared by the project's lifecycle and accessors (project.cpp) and its key
// input and output (project_keys.cpp); not part of the module's interface.
#pragma once
#include <cstdint>

#include "project/project.h"

namespace projectio {

constexpr uint32_t kMaxSelection = 32768;  // index sets name 0..32767

// Everything a project file holds, as the records the accessors hand out.
struct Records {
  ProjectGeneral general;
  ProjectSequences sequences;
  FlashParams flash;
  ProjectProduction production;
  ProjectPerformance performance;
  bool hasSelection;  // false: no "SelectedSectors" key, every sector selected
  uint8_t selection[kMaxSelection];
};

// True when the module is ready and a project is open; otherwise reports
// "No project file opened." (nothing after shutdown) and returns false.
bool RequireOpen(void);
// The open project's records (all zero when none is open).
const Records& HeldRecords(void);
// Hands every record to its setter, so that only records that differ count
// as changes; the production record also goes to the target power hook.
void TakeRecords(const Records& records);
// Sets every record to the values of a new project (through the setters).
void SetNewDefaults(void);

}  // namespace projectio
