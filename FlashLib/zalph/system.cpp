#include "zalph/system.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include "debug.h"
#include "zalftbl.h"

namespace
{

const unsigned long ReadMemoryRequest = 2;

#pragma pack(push, 1)

// The ROM utility driver's read-memory request.
struct _pmemRead
{
    std::uint32_t startPhysicalMemAddress;
    std::uintptr_t userBuffer;
    std::uint32_t readSize;
};
FLASHLIB_LAYOUT(_pmemRead, 8 + sizeof(void*));
FLASHLIB_OFFSET(_pmemRead, userBuffer, 4);
FLASHLIB_OFFSET(_pmemRead, readSize, 4 + sizeof(void*));

#pragma pack(pop)

}  // namespace

CSystemCommon::~CSystemCommon() = default;

CStr CSystemCommon::GetOSNameAndVersion()
{
    const CStr version = GetOSVersionString();
    return GetOSName() + " version " + version;
}

CSystem::~CSystem() = default;

BOOL CSystem::ReadPhysicalMemory(DWORD address, BYTE* buffer, int size)
{
    if (cruFd < 0) {
        cruFd = open("/dev/qvrcru", O_RDWR);
        if (cruFd < 0) {
            _DebugPrintf("CSystem::ReadPhysicalMemory: CRU open failed.");
            return FALSE;
        }
    }
    _pmemRead request = {address, reinterpret_cast<std::uintptr_t>(buffer), static_cast<std::uint32_t>(size)};
    return ioctl(cruFd, ReadMemoryRequest, &request) == 0;
}

BOOL CSystem::GetEV(const char* name, BYTE* buffer, int size)
{
    int length = 0;
    return GetEV(name, buffer, size, length) && length == size;
}

BOOL CSystem::GetEV(const char*, BYTE*, int, int&)
{
    return FALSE;
}

BOOL CSystem::SetEV(const char*, const BYTE*, int)
{
    return FALSE;
}
