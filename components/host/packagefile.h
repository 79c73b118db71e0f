// Files of a package, looked at before anything reads them.
#pragma once

#include "zalph/str.h"

// What speaks against reading a file, in words that follow its name; limit says who sets maxSize: " has 70000 bytes,
// more than the 65536 that settings may have.". Empty when it is a regular file of at most maxSize bytes, and when it
// can't be looked at: whoever reads it will tell.
CStr CheckPackageFile(const CStr& path, long long maxSize, const char* limit);
