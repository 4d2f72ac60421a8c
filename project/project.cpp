// The open project (being filled in).
#include "project/project.h"
#include <cstring>

int  PROJECT_Open(const char*) { return -2; }
int  PROJECT_OpenDefault(const char*) { return -2; }
int  PROJECT_New(const char*) { return -2; }
int  PROJECT_Save(void) { return -1; }
int  PROJECT_SaveAs(const char*) { return -1; }
int  PROJECT_Close(void) { return 0; }
void PROJECT_Exit(void) {}
int  PROJECT_IsOpen(void) { return 0; }
int  PROJECT_IsModified(void) { return 0; }
const char* PROJECT_GetName(void) { return nullptr; }
void PROJECT_LoadKeys(void) {}
void PROJECT_StoreKeys(void) {}
void PROJECT_GetGeneral(ProjectGeneral* out) { if (out) memset(out, 0, sizeof *out); }
void PROJECT_SetGeneral(const ProjectGeneral*) {}
int  PROJECT_GeneralDiffers(const ProjectGeneral*) { return 0; }
const char* PROJECT_GetDataFile(uint32_t* address) { if (address) *address = 0; return ""; }
void PROJECT_SetDataFile(const char*, uint32_t) {}
void PROJECT_GetSequences(ProjectSequences* out) { if (out) memset(out, 0, sizeof *out); }
void PROJECT_SetSequences(const ProjectSequences*) {}
int  PROJECT_SequencesDiffer(const ProjectSequences*) { return 0; }
uint32_t PROJECT_GetStepCount(int) { return 0; }
void PROJECT_GetStep(int, uint32_t, SeqStep* out) { if (out) memset(out, 0, sizeof *out); }
void PROJECT_GetFlashParams(FlashParams* out) { if (out) memset(out, 0, sizeof *out); }
void PROJECT_SetFlashParams(const FlashParams*) {}
int  PROJECT_FlashParamsDiffer(const FlashParams*) { return 0; }
void PROJECT_GetProduction(ProjectProduction* out) { if (out) memset(out, 0, sizeof *out); }
void PROJECT_SetProduction(const ProjectProduction*) {}
int  PROJECT_ProductionDiffers(const ProjectProduction*) { return 0; }
void PROJECT_GetPerformance(ProjectPerformance* out) { if (out) memset(out, 0, sizeof *out); }
void PROJECT_SetPerformance(const ProjectPerformance*) {}
int  PROJECT_PerformanceDiffers(const ProjectPerformance*) { return 0; }
void PROJECT_SetDisconnectHook(void (*)(void)) {}
void PROJECT_SetTargetPowerHook(void (*)(uint32_t, uint32_t)) {}
uint32_t PROJECT_GetSectorSelection(uint8_t* flags, uint32_t count) { if (flags) memset(flags, 1, count); return count; }
void PROJECT_SetSectorSelection(const uint8_t*, uint32_t) {}
