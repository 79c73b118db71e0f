// CRC-32 of IEEE 802.3.
#pragma once

#include "types.h"

// Continues a CRC-32 (reflected, polynomial 0xEDB88320) over length bytes. A crc of 0 starts a new one; the result of
// one piece is the crc to pass with the next. A length of 0 returns crc unchanged.
extern "C" FLASHLIB_API unsigned long rom_crc32(unsigned char* buffer, unsigned int length, unsigned long crc);
