// Program-wide state owned by the command line: the current data image and
// the addresses remembered between options; start-up and shutdown.
#pragma once
#include <cstdint>

struct MemImage;

// The one current data image, or null. Setting it frees the old one unless
// it is the same object.
MemImage* APP_GetCurrentImage(void);
void      APP_SetCurrentImage(MemImage* image);

// Addresses remembered from the last binary open and the last range save.
extern int32_t LastBinBaseAddress;
extern int32_t LastSaveStart;
extern int32_t LastSaveEnd;

// Start-up: the Ctrl-C handler and progress display, the banner with the
// probe-library version (loading the library; a missing library ends the
// process), the library's error handler, the hooks lower layers call, and
// the default project "Default.pellam". Returns 0.
int  APP_Init(void);
// Shutdown: disconnect, close the project, free the current image.
void APP_Exit(void);
