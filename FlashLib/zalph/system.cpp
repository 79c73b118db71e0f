#include "zalph/system.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include "debug.h"
#include "romdriver.h"
#include "zalftbl.h"

CSystemCommon::~CSystemCommon() = default;

CStr CSystemCommon::GetOSNameAndVersion()
{
    const CStr version = GetOSVersionString();
    return GetOSName() + " version " + version;
}

CSystem::~CSystem() = default;

CStr CSystem::GetOSType()
{
    return "Linux";
}

CStr CSystem::GetOSName()
{
    return "Linux";
}

CStr CSystem::GetOSVersionString()
{
    return "0.0";
}

BOOL CSystem::Reboot()
{
    return TRUE;
}

BOOL CSystem::ReadPhysicalMemory(DWORD address, BYTE* buffer, int size)
{
    if (cruFd < 0) {
        cruFd = open("/dev/qvrcru", O_RDWR);
        if (cruFd < 0) {
            _DebugPrintf("CSystem::ReadPhysicalMemory: CRU open failed.");  // kept: open-log-without-end
            return FALSE;
        }
    }
    _pmemRead request = {address, reinterpret_cast<std::uintptr_t>(buffer), static_cast<std::uint32_t>(size)};
    return ioctl(cruFd, RomDriverRequest_ReadMemory, &request) == 0;
}

BOOL CSystem::GetEV(const char* name, BYTE* buffer, int size)
{
    int length = 0;
    return GetEV(name, buffer, size, length) && length == size;
}

// kept: no-environment-variables (this GetEV, which the other one asks, and SetEV are always FALSE)
BOOL CSystem::GetEV(const char*, BYTE*, int, int&)
{
    return FALSE;
}

BOOL CSystem::SetEV(const char*, const BYTE*, int)
{
    return FALSE;
}
