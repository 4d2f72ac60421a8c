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

// Every operation but the queries below prints nothing unless said; "needs
// a project" means: without an open project it reports the error "No
// project file opened." and does nothing (getters fill zeros). After
// PROJECT_Exit every operation fails or does nothing.

// ---- lifecycle (each prints its operation line and result) ----

// Closes any open project, then opens the named file and loads every key;
// modified is 0 afterwards and the name is recorded as the current project.
// 0; -2 when the file cannot be read (reported; no project is open);
// -1 for a null or empty name or when the open project cannot be closed.
int  PROJECT_Open(const char* fileName);
// Opens `fileName` when it exists and opens cleanly, else creates a new
// project without a name. The result of the open or of PROJECT_New.
int  PROJECT_OpenDefault(const char* fileName);
// Closes any open project and creates one with the values of a new project
// (modified 1). `fileName` may be null (no name); nothing is written yet.
// 0; -2 when the store refuses the name (exists, or 512 characters or more).
int  PROJECT_New(const char* fileName);
// Writes every key to the project's own file when there are unsaved changes.
// 0 when written (modified becomes 0) or nothing to do; -1 without a file
// name (nothing written), for a read-only file or a failed write (reported).
int  PROJECT_Save(void);
// Writes every key to `fileName`, which becomes the project's file and the
// current project. 0 (modified becomes 0); -1 when writing fails (reported)
// and, writing nothing, for a null or empty name. Needs a project.
int  PROJECT_SaveAs(const char* fileName);
// Drops unsaved changes (the save prompt is answered "No"), calls the
// disconnect hook and closes the store. Always 0 once started (also without
// a project, after reporting it); -1 after PROJECT_Exit.
int  PROJECT_Close(void);
// Drops unsaved changes, closes any project and shuts the module down.
void PROJECT_Exit(void);
// 1 with a project open, 0 without, -1 after the store shut down. Never prints.
int  PROJECT_IsOpen(void);
// 1 when there are changes since the last open or save, else 0. Never prints.
int  PROJECT_IsModified(void);
// The project's file name ("" for a project created without one), or null
// with no project open. Valid until the project closes. Never prints.
const char* PROJECT_GetName(void);
// Reads every key of the project file into the records, applying each key's
// clamp and its default when missing or unreadable (parse errors are
// printed), and hands each record to its setter: only records that differ
// count as changes. Needs a project.
void PROJECT_LoadKeys(void);
// Clears the store and writes every key from the records, in the file's
// order. Needs a project.
void PROJECT_StoreKeys(void);

// ---- records ----
// A getter copies the held record into *out (zero-filled without a project).
// A setter normalises *in (strings zero-padded after their terminator, step
// counts cut to 256, steps beyond them zeroed) and, only when it differs
// from the held record, takes it and counts one change. A query answers 1
// when *in, normalised, differs from the held record, else 0 (also for
// null); queries compare with the held record and never print. Null
// pointers are ignored. Getters and setters need a project.

void PROJECT_GetGeneral(ProjectGeneral* out);
void PROJECT_SetGeneral(const ProjectGeneral* in);
int  PROJECT_GeneralDiffers(const ProjectGeneral* in);
// The data file's name (valid until the next change; "" without a project,
// after reporting it) and, when `address` is not null, its start address.
const char* PROJECT_GetDataFile(uint32_t* address);
// Takes the address (one change when it differs), then the name unless it is
// null (one more change when it differs). A name of 512 characters or more
// is refused with the error "Too large file name." after the address was taken.
void PROJECT_SetDataFile(const char* name, uint32_t address);
void PROJECT_GetSequences(ProjectSequences* out);
void PROJECT_SetSequences(const ProjectSequences* in);
int  PROJECT_SequencesDiffer(const ProjectSequences* in);
// The interface speed in kHz (Speed0 of the sequence record) without copying
// the record; 0 without a project, after reporting it.
uint32_t PROJECT_GetInterfaceSpeed(void);
// Sets Speed0 as PROJECT_SetSequences would with only Speed0 changed: no
// clamp, one change counted when the value differs. Needs a project.
void PROJECT_SetInterfaceSpeed(uint32_t kHz);
// Steps in the init (list 0) or exit (list 1) sequence; 0 for any other
// list or without a project. Never prints.
uint32_t PROJECT_GetStepCount(int list);
// Copies step `index` of the list into *out; zero-filled when the index is
// at or beyond the list's step count. Never prints.
void PROJECT_GetStep(int list, uint32_t index, SeqStep* out);
void PROJECT_GetFlashParams(FlashParams* out);
void PROJECT_SetFlashParams(const FlashParams* in);
int  PROJECT_FlashParamsDiffer(const FlashParams* in);
void PROJECT_GetProduction(ProjectProduction* out);
// Also hands the target power setting to the target power hook, changed or not.
void PROJECT_SetProduction(const ProjectProduction* in);
int  PROJECT_ProductionDiffers(const ProjectProduction* in);
void PROJECT_GetPerformance(ProjectPerformance* out);
void PROJECT_SetPerformance(const ProjectPerformance* in);
int  PROJECT_PerformanceDiffers(const ProjectPerformance* in);

// The project layer sits below the connection; these hooks let the
// application wire the two together without an upward include. Null
// removes a hook.
// Called by PROJECT_Close, with a project open, to disconnect from the probe.
void PROJECT_SetDisconnectHook(void (*hook)(void));
// Called whenever the production record is loaded or set, with the target power setting.
void PROJECT_SetTargetPowerHook(void (*hook)(uint32_t enabled, uint32_t delayMs));

// Sectors selected for "erase selected sectors", one flag byte per sector.
// Kept in the project file as the index set "SelectedSectors" of [FLASH],
// written only when a selection exists. A project without a selection has
// every sector selected ("Erase all sectors", as the help says).
// Fills flags[0..count-1] with 0/1 (sectors from 32768 on are never
// selected) and returns the number of selected sectors; 0 for null or 0.
// Never prints.
uint32_t PROJECT_GetSectorSelection(uint8_t* flags, uint32_t count);
// Takes the first 32768 flags as the selection (one change when it differs
// or none existed); null or 0 removes the selection (one change when there
// was one). Needs a project.
void PROJECT_SetSectorSelection(const uint8_t* flags, uint32_t count);
