// Program start-up and shutdown, and the current data image.
#include "app/app.h"

#include "app/log.h"
#include "app/progress.h"
#include "dataimage/memimage.h"
#include "flash/flash.h"
#include "flash/spi.h"
#include "probe/probelib.h"
#include "project/project.h"
#include "util/util.h"
#include "util/version.h"

namespace {

MemImage* CurrentImage = nullptr;

constexpr const char* kProductName = "Pellam SPI";
constexpr int kVersionMajor = UTIL_VERSION_MAJOR;
constexpr int kVersionMinor = UTIL_VERSION_MINOR;
constexpr const char* kVersionSuffix = "";

// The probe library's version N reads N / 10000 . (N / 100) % 100 with a
// letter for the revision N % 100 (a..z, then "z" and two digits).
void FormatRevision(char* buffer, int size, uint32_t version) {
  const uint32_t r = version % 100;
  if (r == 0) {
    buffer[0] = '\0';
  } else if (r <= 26) {
    UTIL_snprintf(buffer, size, "%c", static_cast<char>('a' + r - 1));
  } else {
    UTIL_snprintf(buffer, size, "z%.2d", static_cast<int>(r - 26));
  }
}

void PrintBanner() {
  char version[32];
  UTIL_snprintf(version, sizeof version, "V%d.%.2d", kVersionMajor, kVersionMinor);
  char product[128];
  UTIL_snprintf(product, sizeof product, "Valmik %s %s%s", kProductName, version, kVersionSuffix);
  char line[512];
  UTIL_snprintf(line, sizeof line, "%s Command Line Version", product);
  LOG_Message(line);

  // The first call into the probe library: it loads the library, and a
  // missing library ends the program here.
  const uint32_t dllVersion = TARLOARM_GetDLLVersion();
  const char* compiled = TARLOARM_GetCompileDateTime();
  char revision[8];
  FormatRevision(revision, sizeof revision, dllVersion);
  UTIL_snprintf(line, sizeof line, "TarloARM.dll V%d.%.2d%s (DLL compiled %s)\n",
                static_cast<int>(dllVersion / 10000), static_cast<int>((dllVersion / 100) % 100),
                revision, compiled != nullptr ? compiled : "");
  LOG_Message(line);
}

}  // namespace

MemImage* APP_GetCurrentImage(void) { return CurrentImage; }

void APP_SetCurrentImage(MemImage* image) {
  if (CurrentImage != nullptr && CurrentImage != image) MEMIMAGE_Delete(CurrentImage);
  CurrentImage = image;
}

int APP_Init(void) {
  LOG_InstallAbortHandler();
  PROGRESS_Install();
  PrintBanner();
  TARLOARM_SetErrorOutHandler(LOG_ReportError);
  // The hooks must be in place before the default project opens: loading it
  // already applies its target power setting.
  LOG_SetDisconnectHook(SPI_Disconnect);
  PROJECT_SetDisconnectHook(SPI_Disconnect);
  PROJECT_SetTargetPowerHook(SPI_SetTargetPower);
  PROJECT_OpenDefault("Default.pellam");
  return 0;
}

void APP_Exit(void) {
  SPI_Disconnect();
  PROJECT_Exit();
  APP_SetCurrentImage(nullptr);
}
