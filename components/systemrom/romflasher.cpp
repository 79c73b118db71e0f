#include "romflasher.h"

#include <cstring>
#include <memory>
#include <new>

namespace
{

const ULONG Feature_Cleanup = 4;
const ULONG Feature_Cleanup2 = 8;

}  // namespace

BOOL CRomFlasher::LoadTable()
{
    if (!Initialize() || !GetTableFromBootBlock(nullptr)) return FALSE;
    if (m_HeaderSize == 0 || m_TableSize == 0) {
        SetErrorMessage("The running ROM offers no flash table with a header");
        return FALSE;
    }
    return TRUE;
}

void CRomFlasher::Show(const char* step) const
{
    if (m_pfnLogger) m_pfnLogger("  %s ...\n", step);
}

BOOL CRomFlasher::FailTable(const char* message)
{
    SetErrorMessage(message);
    return FALSE;
}

BOOL CRomFlasher::DoFlash(CFwImage* image, BOOL isSps)
{
    Show("Preparing the flash part");
    if (!ExecuteSetupTable(isSps)) return FailTable("The Setup table failed");

    Show("Erasing the flash part");
    m_State = RomState_Broken;
    if (!ExecuteEraseTable()) return FailTable("The Erase table failed");

    Show("Programming the new ROM");
    if (!ExecuteProgramTable(image)) return FailTable("The Program table failed");

    Show("Reading the ROM back");
    if (!Verify(image)) return FailTable("The flash part does not hold what was written");
    m_State = RomState_Written;

    if (GetFeatureBits1() & Feature_Cleanup) {
        Show("Cleaning up");
        if (!ExecuteCleanupTable()) return FailTable("The Cleanup table failed");
    }
    if (GetFeatureBits1() & Feature_Cleanup2) {
        Show("Cleaning up for the operating system");
        if (!ExecuteCleanupTable2()) return FailTable("The OS Cleanup table failed");
    }
    return TRUE;
}

// TRUE unless the part is known to differ.
BOOL CRomFlasher::Verify(CFwImage* image)
{
    const std::size_t size = static_cast<std::size_t>(image->GetImageSize());
    const std::unique_ptr<char[]> pCopy(new (std::nothrow) char[size]);
    if (!pCopy || !ExecuteBackupTable(pCopy.get(), image->GetImageSize())) return TRUE;
    m_bVerified = TRUE;
    return std::memcmp(pCopy.get(), image->GetImageBuffer(), size) == 0;
}

CStr CRomFlasher::GetRomState() const
{
    switch (m_State) {
        case RomState_Untouched:
            return "The ROM was not touched and runs as before.";
        case RomState_Broken:
            return "The flash part holds no whole ROM: do not restart the server, run this installer again.";
        default:
            return "The flash part holds the new ROM whole: run this installer again before the server is restarted.";
    }
}
