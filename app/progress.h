// The live progress line on a terminal: one line on standard error for each
// long phase the flash layer reports through the operation log, redrawn at
// most ten times a second and taken away when the phase ends, so standard
// output carries exactly what it carries without a terminal.
#pragma once
#include <cstdint>

// Installs the display when standard error is a terminal; otherwise does
// nothing, so files, pipes and CI never see a progress byte. Nothing is
// shown either while the verbosity is 0.
void PROGRESS_Install(void);

// The text of one progress line (no line end, no terminal controls) into
// buffer: phase, done of total (bytes scaled to KiB or MiB, or sectors),
// percent, and the rate and time left once something is done, before that
// the time elapsed. `unit` is LOG_PROGRESS_BYTES or LOG_PROGRESS_SECTORS.
void PROGRESS_FormatLine(char* buffer, int size, const char* phase, uint64_t done, uint64_t total,
                         int unit, uint32_t elapsedMs);
