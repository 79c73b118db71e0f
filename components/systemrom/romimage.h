// What a system ROM image tells of itself.
#pragma once

#include "fwversion.h"

// Longer ROM families are none.
const int MaxRomFamilyLength = 16;

// Images are whole blocks; the last one is mapped into the BIOS area.
const int RomBlockSize = 65536;

// Reads the family (the identifier) and the version from the flash image header in the last block of an image of whole
// blocks. FALSE when it has no usable one.
BOOL ReadRomHeader(const void* image, int size, CStr& family, CFwVersion& version);
