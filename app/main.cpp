// Start-up, the walk over the command line, shutdown.
#include "app/app.h"
#include "app/cmdline.h"
#include "app/log.h"
#include "flash/flash.h"
#include "flash/spi.h"
#include "sys/sys.h"

int main(int argc, char** argv) {
  SYS_Init(0);
  APP_Init();
  const int walk = CMDLINE_Execute(argc, argv);
  // Taken before shutdown, whose own messages must not change the outcome.
  int status = walk < 0 ? -1 : (LOG_GetErrorCount() != 0 ? 1 : 0);
  // Except the closing of a probe still connected: an error reported there
  // (the probe could not keep what was written) fails an otherwise good run.
  SPI_Disconnect();
  if (status == 0 && LOG_GetErrorCount() != 0) status = 1;
  APP_Exit();
  SYS_Exit();
  return status;
}
