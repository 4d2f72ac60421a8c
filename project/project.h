// The open project: general and connection values, the chip parameter
// record, the init/exit sequences, production and performance options, kept
// in a project file through the settings store. One project per process.
#pragma once
#include <cstdint>
#include "project/flashparams.h"
#include "project/seq.h"

// ConnectMode, also the mode of a connection choice.
constexpr uint8_t PROJECT_CONNECT_USB_INDEX = 0;
constexpr uint8_t PROJECT_CONNECT_USB_SERIAL = 1;
constexpr uint8_t PROJECT_CONNECT_TCPIP = 2;

// EraseType 3: erase the whole chip rather than the affected sectors.
constexpr uint8_t PROJECT_ERASE_TYPE_CHIP = 3;

struct ProjectGeneral {
  char     CurrentFile[512];
  char     HostName[128];
  uint32_t DataFileSAddr;
  uint32_t USBSerialNo;
  uint8_t  ConnectMode;   // PROJECT_CONNECT_*
  uint8_t  USBPort;
  uint8_t  GUIMode;

  bool operator==(const ProjectGeneral&) const = default;
};

struct ProjectSequences {
  SeqStep  InitSteps[SEQ_MAX_STEPS];
  SeqStep  ExitSteps[SEQ_MAX_STEPS];
  uint32_t NumInitSteps;
  uint32_t NumExitSteps;
  uint32_t Speed0;        // interface speed in kHz (the target-interface block)

  bool operator==(const ProjectSequences&) const = default;
};

struct ProjectProduction {
  uint32_t TargetPowerDelay;
  uint8_t  EraseType;
  uint8_t  AutoPerformsErase;
  uint8_t  AutoPerformsProgram;
  uint8_t  AutoPerformsVerify;
  uint8_t  EnableTargetPower;
  uint8_t  PerformCompare;

  bool operator==(const ProjectProduction&) const = default;
};

struct ProjectPerformance {
  uint8_t DisableSkipBlankDataOnProgram;

  bool operator==(const ProjectPerformance&) const = default;
};

int  PROJECT_Open(const char* fileName);     // 0, -2; -1 when the current project can't be closed
int  PROJECT_OpenDefault(const char* fileName); // open, or fall back to a new default project
int  PROJECT_New(const char* fileName);
int  PROJECT_Save(void);
int  PROJECT_SaveAs(const char* fileName);
int  PROJECT_Close(void);
void PROJECT_Exit(void);
int  PROJECT_IsOpen(void);
int  PROJECT_IsModified(void);
const char* PROJECT_GetName(void);
void PROJECT_LoadKeys(void);
void PROJECT_StoreKeys(void);

void PROJECT_GetGeneral(ProjectGeneral* out);
void PROJECT_SetGeneral(const ProjectGeneral* in);
int  PROJECT_GeneralDiffers(const ProjectGeneral* in);
const char* PROJECT_GetDataFile(uint32_t* address);
void PROJECT_SetDataFile(const char* name, uint32_t address);
void PROJECT_GetSequences(ProjectSequences* out);
void PROJECT_SetSequences(const ProjectSequences* in);
int  PROJECT_SequencesDiffer(const ProjectSequences* in);
uint32_t PROJECT_GetInterfaceSpeed(void);
void PROJECT_SetInterfaceSpeed(uint32_t kHz);
uint32_t PROJECT_GetStepCount(int list);     // 0 init, 1 exit
void PROJECT_GetStep(int list, uint32_t index, SeqStep* out);
void PROJECT_GetFlashParams(FlashParams* out);
void PROJECT_SetFlashParams(const FlashParams* in);
int  PROJECT_FlashParamsDiffer(const FlashParams* in);
void PROJECT_GetProduction(ProjectProduction* out);
void PROJECT_SetProduction(const ProjectProduction* in);
int  PROJECT_ProductionDiffers(const ProjectProduction* in);
void PROJECT_GetPerformance(ProjectPerformance* out);
void PROJECT_SetPerformance(const ProjectPerformance* in);
int  PROJECT_PerformanceDiffers(const ProjectPerformance* in);

// The project layer sits below the connection; these hooks let the
// application wire the two together without an upward include.
// Called by PROJECT_Close to disconnect from the probe.
void PROJECT_SetDisconnectHook(void (*hook)(void));
// Called whenever the production record is loaded or set, with the target power setting.
void PROJECT_SetTargetPowerHook(void (*hook)(uint32_t enabled, uint32_t delayMs));

// Sectors selected for "erase selected sectors", one flag byte per sector.
// Kept in the project file as the index set "SelectedSectors" of [FLASH],
// written only when a selection exists. A project without a selection has
// every sector selected ("Erase all sectors", as the help says).
// Fills flags[0..count-1] with 0/1 and returns the number of selected sectors.
uint32_t PROJECT_GetSectorSelection(uint8_t* flags, uint32_t count);
// Stores a selection (counts as a change when it differs); null/0 clears it.
void PROJECT_SetSectorSelection(const uint8_t* flags, uint32_t count);
