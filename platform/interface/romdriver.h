// The node of the ROM utility driver, /dev/qvrcru: its requests and what goes with them.
#pragma once

#include "types.h"

// Requests; their numbers do not carry the size of what goes with them.
enum RomDriverRequest : unsigned int
{
    RomDriverRequest_ReadMemory = 2,  // _pmemRead
    RomDriverRequest_Version = 10,    // _versioninfo, which the driver fills in
};

#pragma pack(push, 1)

// Asks for physical memory. The driver stores readSize bytes in the caller's memory at userBuffer.
struct _pmemRead
{
    std::uint32_t startPhysicalMemAddress;
    std::uintptr_t userBuffer;
    std::uint32_t readSize;
};
FLASHLIB_LAYOUT(_pmemRead, 8 + sizeof(void*));

#pragma pack(pop)
