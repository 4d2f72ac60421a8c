// The command line: the walk over the arguments and the small parsers the
// options share. Each option runs the moment it is recognised.
#pragma once
#include <cstdint>

// Walks argv[1..argc-1] from left to right. 0 when every argument was
// consumed, -1 on the first syntax error (options before it have run).
int CMDLINE_Execute(int argc, char** argv);

// Reads a file name at *cursor (optionally in double quotes; outside quotes
// it ends at a comma) into buffer. 0 on success, -1 when the name is empty or
// too long (at most bufferSize / 2 characters). Returns 0 and does
// nothing when buffer is null or bufferSize is 0.
int CMDLINE_GetString(const char** cursor, char* buffer, int bufferSize);

// Reads a decimal or "0x" hexadecimal number (32-bit, wraps). On failure
// writes a complaint into errorText (256 bytes) and returns 0.
uint32_t CMDLINE_GetNumber(const char** cursor, char* errorText);

// 1 and the cursor moved past the keyword when the text at the cursor starts
// with it (case-insensitive) and no letter, digit or '_' follows; else 0 with
// the cursor on the first non-blank character.
int CMDLINE_IsKeyword(const char** cursor, const char* keyword);

// Prints the list of options, one unconditional write a line.
void CMDLINE_PrintHelp(void);
