// Finding and loading the probe library, and resolving its functions by name.
// The wrappers themselves carry the library's own names (see tarlo_abi.h):
// the rest of the program calls TARLOARM_SetSpeed and the others directly.
#pragma once
#include "probe/tarlo_abi.h"

int   PROBELIB_Load(int exitOnFailure);   // 0 open, 1 not opened
int   PROBELIB_TryLoad(void);             // 0 / -1
void* PROBELIB_GetFunc(const char* name);
