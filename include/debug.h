// Debug log: one append-mode text file per process.
#pragma once

#include "types.h"

// Appends one printf-style message to the log and flushes it; the caller supplies the line end. A null format closes
// the log; the next message opens it again. The file is the one that the environment variable QVFLASHLOG names at the
// first call, else /var/zal/flash.debug.log. When it can't be opened, one line on standard error says so and all later
// messages are dropped. A message of 1024 bytes or more, or a path of 4096 bytes or more, ends the process.
extern "C" FLASHLIB_API void _DebugPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
