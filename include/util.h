// Files of the component directory: the folder in which the installer's package lies.
#pragma once

#include "types.h"
#include "zalph/str.h"

// The component directory. Defined by the host program, never by the library.
FLASHLIB_API extern CStr g_InstallLocalDir;

// Returns g_InstallLocalDir + "/" + name, without any normalisation.
FLASHLIB_API CStr FileInComponentDir(const CStr& name);

// Stores in path the first entry of the component directory, in directory order, whose name matches the shell pattern
// regardless of case. Returns FALSE, with path empty, when there is none or the directory can't be read.
FLASHLIB_API BOOL FindFileInComponentDir(const CStr& pattern, CStr& path);

// Reads a whole file into a new buffer of size bytes, which the caller releases with delete[] as char*. Returns FALSE
// when the file can't be read whole; buffer must then not be used, and size may have changed.
FLASHLIB_API BOOL ReadFileIntoMemory(const char* path, void*& buffer, int& size);

// Replaces in place every occurrence of find (not empty) in line; what replacement brings in is not searched again.
// line must have room for the result; a result of 256 bytes or more ends the process.
FLASHLIB_API void ReplaceStr(char* line, const char* find, const char* replacement);
