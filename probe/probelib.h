// Finding and loading the probe library, and resolving its functions by name.
// The wrappers themselves carry the library's own names (see tarlo_abi.h):
// the rest of the program calls TARLOARM_SetSpeed and the others directly.
#pragma once
#include "probe/tarlo_abi.h"

// Opens the library once: beside this module, beside the executable, then
// the install directory (plain name, then ".5"). 0 when open (also when it
// already was); 1 when not found, after printing why. With exitOnFailure
// set, not finding it prints "Could not open Tarlo shared library. Exiting
// now." and ends the process with status 1.
int   PROBELIB_Load(int exitOnFailure);
// PROBELIB_Load without exiting: 0 open, -1 not.
int   PROBELIB_TryLoad(void);
// The library's function of that name, loading the library first (a missing
// library ends the process as above). Null, after printing "Function not
// found: NAME (reason).", when the library lacks it. Every wrapper resolves
// its function once and keeps it.
void* PROBELIB_GetFunc(const char* name);
