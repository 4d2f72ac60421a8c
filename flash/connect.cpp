// Connection to the probe: selection, SPI interface and speed, target power,
// reset held low while connected, identity check or detection of the chip,
// 4-byte address mode, and the init sequence.
#include "flash/spi.h"

#include <cstring>

#include "app/log.h"
#include "flash/flash.h"
#include "flash/flashdb.h"
#include "project/seq.h"
#include "probe/tarlo_abi.h"
#include "project/project.h"
#include "sys/sys.h"
#include "util/util.h"

namespace {

// Program-wide connection state.
uint8_t ProbeOpen = 0;
uint8_t Connected = 0;
enum : uint32_t { kBeforeFirstOpen = 0, kExitHookRegistered = 1, kExitHookRan = 2 };
uint32_t ProbeExitState = kBeforeFirstOpen;
uint32_t TargetPowerEnabled = 0;
uint32_t TargetPowerDelay = 0;

// Set at the start of every connect. The first is kept for completeness; no
// operation waits on it.
constexpr uint32_t kConnectTimeoutMs = 10000;
constexpr uint32_t kSectorEraseTimeoutMs = 5000;
constexpr uint32_t kChipEraseTimeoutMs = 400000;
uint32_t ConnectTimeoutA = kConnectTimeoutMs;
uint32_t SectorEraseTimeout = kSectorEraseTimeoutMs;
uint32_t ChipEraseTimeout = kChipEraseTimeoutMs;

bool ConnectionOverrideSet = false;
ConnectionChoice ConnectionOverride = {};

// The -tarlolog file, owned here for the whole run; null: no library log.
SYS_Ptr<char[]> TarloLogPath;

constexpr int kSpiInterface = 5;
constexpr uint32_t kSpiInterfaceBit = 1u << kSpiInterface;
constexpr uint32_t kMinTargetMillivolts = 1000;
constexpr uint32_t kResetSettleMs = 20;
constexpr int kIdAnswerBytes = 13;

void SendCommandByte(uint8_t cmd) { TARLO_SPI_Transfer(&cmd, nullptr, 8, TARLO_SPI_FLAG_WHOLE); }

// A chip that needs a mode switch for 4-byte addresses is kept in that mode
// for the whole connection.
bool UsesDedicated4ByteMode(const FlashParams& p) {
  return p.Dedicated4BAddrMode != 0 && p.NumAddrBytes == 4;
}

void ExecPowerCommand(const char* command) {
  char result[128];
  result[0] = '\0';
  TARLOARM_ExecCommand(command, result, sizeof(result));
}

ConnectionChoice ChooseConnection(bool projectOpen, const ProjectGeneral& general) {
  if (ConnectionOverrideSet) return ConnectionOverride;
  ConnectionChoice c = {};
  if (!projectOpen) return c;
  c.mode = general.ConnectMode;
  UTIL_strcpy(c.hostName, general.HostName, sizeof(c.hostName));
  c.serialOrIndex = c.mode == PROJECT_CONNECT_USB_SERIAL ? general.USBSerialNo : general.USBPort;
  return c;
}

// No dialogs or firmware prompts from the library; its log goes where -tarlolog said.
void QuietLibrary() {
  TARLOARM_ExecCommand("SuppressEmuUSBDialog", nullptr, 0);
  TARLOARM_ExecCommand("SupressInfoUpdateFW", nullptr, 0);  // the library's own spelling
  TARLOARM_ExecCommand("SilentUpdateFW", nullptr, 0);
  char logPath[512];
  UTIL_strcpy(logPath, TarloLogPath != nullptr ? TarloLogPath.get() : "", sizeof(logPath));
  TARLOARM_SetLogFile(TarloLogPath != nullptr ? logPath : nullptr);
}

// Announces the selection (inside an operation) and selects the probe:
// 0, or -1 after reporting a serial number that was not found.
int SelectProbe(const ConnectionChoice& choice) {
  char text[512];
  const int serialOrIndex = static_cast<int>(choice.serialOrIndex);
  if (LOG_GetDepth() != 0) {
    if (choice.mode == PROJECT_CONNECT_USB_SERIAL) {
      UTIL_snprintf(text, sizeof(text), "Connecting via USB to Tarlo with SN %d", serialOrIndex);
    } else if (choice.mode == PROJECT_CONNECT_TCPIP) {
      UTIL_snprintf(text, sizeof(text), "Connecting via TCP/IP to %s", choice.hostName);
    } else {
      UTIL_snprintf(text, sizeof(text), "Connecting via USB to Tarlo device %d", serialOrIndex);
    }
    LOG_Info(text);
  }
  if (choice.mode == PROJECT_CONNECT_USB_SERIAL) {
    if (TARLOARM_EMU_SelectByUSBSN(choice.serialOrIndex) == -1) {
      UTIL_snprintf(text, sizeof(text),
                    "Tarlo with SN %d not found.\nCheck the project settings and your connected Tarlo.",
                    serialOrIndex);
      LOG_ReportError(text);
      return -1;
    }
  } else if (choice.mode == PROJECT_CONNECT_TCPIP) {
    TARLOARM_SelectIP(choice.hostName, 0);
  } else {
    TARLOARM_SelectUSB(serialOrIndex);
  }
  return 0;
}

// With the probe open and a project to take the settings from: SPI interface,
// speed, target power, reset held low. 0, or -261 (no SPI) / -259 (no target
// power) with the probe closed again.
int PrepareTarget() {
  char text[256];
  uint32_t mask = 0;
  TARLOARM_TIF_GetAvailable(&mask);
  if ((mask & kSpiInterfaceBit) == 0) {
    UTIL_snprintf(text, sizeof(text), "The connected probe (S/N %d) does not support the SPI interface",
                  TARLOARM_GetSN());
    LOG_ReportError(text);
    TARLOARM_Close();
    return -261;
  }
  TARLOARM_TIF_Select(kSpiInterface);
  TARLOARM_SetSpeed(PROJECT_GetInterfaceSpeed());
  if (TargetPowerEnabled) {
    ExecPowerCommand("SupplyPower = 1");
    SYS_Sleep(TargetPowerDelay);
  }
  TARLO_HW_STATUS status = {};
  TARLOARM_GetHWStatus(&status);
  if (status.VTarget < kMinTargetMillivolts) {
    LOG_ReportError("Target system has no power");
    if (TargetPowerEnabled) ExecPowerCommand("DisablePowerSupplyOnClose");
    TARLOARM_Close();
    if (TargetPowerEnabled) SYS_Sleep(TargetPowerDelay);
    return -259;
  }
  // The target's own code must not drive the flash while the probe does.
  TARLOARM_ClrRESET();
  SYS_Sleep(kResetSettleMs);
  return 0;
}

// Reads the ID the way detection does and compares it with abID.
int VerifyId(const FlashParams& p) {
  uint8_t id[kIdAnswerBytes];
  FLASHDB_ReadId(id);
  const bool same = std::memcmp(id, p.abID, sizeof(p.abID)) == 0;
  // The first part of the line names the bytes that were read.
  char read[128];
  FLASHDB_FormatId(read, sizeof(read), id);
  char line[256];
  UTIL_snprintf(line, sizeof(line), "%s (%s)", read, same ? "Verified" : "Failed");
  LOG_Info(line);
  if (same) return 0;
  LOG_ReportError("Failed to verify Flash Id");
  return -1;
}

}  // namespace

uint32_t SPI_GetSectorEraseTimeout(void) { return SectorEraseTimeout; }
uint32_t SPI_GetChipEraseTimeout(void) { return ChipEraseTimeout; }

void SPI_SetConnectionOverride(const ConnectionChoice* choice) {
  ConnectionOverrideSet = choice != nullptr;
  ConnectionOverride = choice ? *choice : ConnectionChoice{};
  ConnectionOverride.hostName[sizeof(ConnectionOverride.hostName) - 1] = '\0';
}

void SPI_SetTarloLogPath(const char* path) {
  TarloLogPath.reset();
  if (path != nullptr) TarloLogPath = SYS_CopyText(path);
}

void SPI_SetTargetPower(uint32_t enabled, uint32_t delayMs) {
  TargetPowerEnabled = enabled;
  TargetPowerDelay = delayMs;
}

int SPI_OpenProbe(void) {
  const bool projectOpen = PROJECT_IsOpen() != 0;
  ProjectGeneral general = {};
  if (projectOpen) PROJECT_GetGeneral(&general);

  if (ProbeExitState == kBeforeFirstOpen) {
    SYS_AtExit(SPI_OnExit);
    ProbeExitState = kExitHookRegistered;
  }
  if (ProbeExitState == kExitHookRan) return -1;
  if (ProbeOpen) return 0;

  QuietLibrary();
  if (SelectProbe(ChooseConnection(projectOpen, general)) != 0) return -1;
  const char* openError = TARLOARM_OpenEx(nullptr, LOG_ReportError);
  if (openError != nullptr) {
    LOG_ReportError(openError);
    return -256;
  }
  if (projectOpen) {
    const int result = PrepareTarget();
    if (result != 0) return result;
  }
  ProbeOpen = 1;
  return 0;
}

void SPI_CloseProbe(void) {
  if (!ProbeOpen) return;
  FlashParams p = {};
  // Without a project there is no chip mode to undo (and nothing to ask for).
  if (PROJECT_IsOpen()) PROJECT_GetFlashParams(&p);
  if (UsesDedicated4ByteMode(p)) {
    SendCommandByte(p.CmdWriteEnable);
    SendCommandByte(p.CmdExit4ByteMode);
  }
  if (TargetPowerEnabled) ExecPowerCommand("DisablePowerSupplyOnClose");
  TARLOARM_SetRESET();
  SYS_Sleep(kResetSettleMs);
  TARLOARM_Close();
  // Let the supply fall before anything else happens.
  if (TargetPowerEnabled) SYS_Sleep(TargetPowerDelay);
  ProbeOpen = 0;
}

int SPI_Connect(void) {
  ConnectTimeoutA = kConnectTimeoutMs;
  SectorEraseTimeout = kSectorEraseTimeoutMs;
  ChipEraseTimeout = kChipEraseTimeoutMs;
  if (Connected) return 0;

  LOG_BeginOp("Connecting ...");
  if (SPI_OpenProbe() < 0) {
    SPI_CloseProbe();
    // The result line is suppressed by the error reported on the way, except
    // after the exit hook has run, when nothing was reported.
    LOG_EndOp("Connected successfully");
    return 1;
  }
  TARLO_HW_STATUS status = {};
  if (TARLOARM_GetHWStatus(&status) == 0) {
    char text[64];
    UTIL_snprintf(text, sizeof(text), "VTarget = %d.%.3dV", status.VTarget / 1000,
                  status.VTarget % 1000);
    LOG_Info(text);
  }
  FLASHDB_SelectChip(-1);

  FlashParams p = {};
  PROJECT_GetFlashParams(&p);
  const int result = p.AutoDetect == 0 ? VerifyId(p) : FLASH_DetectChip();

  // Detection may have changed the parameters. The mode switch is sent even
  // when the identity check failed.
  PROJECT_GetFlashParams(&p);
  if (UsesDedicated4ByteMode(p)) {
    SendCommandByte(p.CmdWriteEnable);
    SendCommandByte(p.CmdEnter4ByteMode);
  }

  if (result == 0) {
    Connected = 1;
    LOG_EndOp("Connected successfully");
  } else {
    SPI_CloseProbe();
    LOG_EndOp("Connected successfully");
    if (result < 0) return 1;
  }

  TARLOARM_ClrRESET();
  SYS_Sleep(kResetSettleMs);
  // The init sequence runs after the connect operation has ended: a failure
  // is shown as information, the connection stays, the exit status is kept.
  if (SEQ_Run(SEQ_INIT) != 0) {
    LOG_Info("Failed to connect.\nCould not perform custom init sequence.");
    return 1;
  }
  return 0;
}

void SPI_Disconnect(void) {
  if (!Connected) return;
  LOG_BeginOp("Disconnecting ...");
  SPI_CloseProbe();
  Connected = 0;
  LOG_EndOp("Disconnected");
}

int SPI_DetectFlash(void) {
  LOG_BeginOp("Detecting SPI flash ...");
  int result = SPI_OpenProbe();
  if (result == 0) result = FLASH_DetectChip();
  SPI_CloseProbe();
  // The probe is never left open here; a connection it belonged to is gone.
  Connected = 0;
  if (result == 0) {
    LOG_EndOp("SPI flash detected successfully.");
    return result;
  }
  LOG_EndOp("Failed to detect SPI flash.");
  return result < 0 ? result : -1;
}

void SPI_OnExit(void) {
  if (Connected) SPI_Disconnect();
  ProbeExitState = kExitHookRan;
}
