#include "romflasher.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "host/signals.h"
#include "zalph/smbios.h"

BOOL CRomFlasher::FailWith(const CStr& message)
{
    SetErrorMessage(message);
    return FALSE;
}

void CRomFlasher::Show(const char* step) const
{
    if (m_pfnLogger) m_pfnLogger("  %s ...\n", step);
}

BOOL CRomFlasher::LoadTable()
{
    if (!Initialize() || !GetTableFromBootBlock(nullptr)) return FALSE;
    if (m_HeaderSize == 0 || m_TableSize == 0 || std::memcmp(m_pHeader->Signature, "$ZALFLSH", 8) != 0)
        return FailWith("the running ROM offers no flash table with a header");
    return TRUE;
}

// Runs a table that needs no buffer, and looks at its status.
BOOL CRomFlasher::Run(FlashTable table, const char* step, BOOL isSps)
{
    Show(step);
    TABLE_EXEC_REQUEST request = {};
    request.TableNumber = table;
    request.IsSpsFlash = static_cast<BYTE>(isSps);
    return ExecuteTable(&request) && request.Status == 0;
}

// Reads the whole part into memory and returns its size; 0 when it can't be read. The part may be larger than expected,
// up to what the firmware reserves for a ROM.
int CRomFlasher::ReadPart(int expectedSize)
{
    DWORD reserved = 0;
    CSMBIOS().GetFlashBuffer(reserved);
    const DWORD size = std::max(reserved, static_cast<DWORD>(expectedSize));
    m_pPart.reset(new (std::nothrow) char[size]());
    if (!m_pPart) return 0;
    TABLE_EXEC_REQUEST request = {};
    request.TableNumber = FlashTable_Backup;
    request.pBuffer = m_pPart.get();
    request.BufferSize = size;
    const bool read = ExecuteTable(&request) && request.Status == 0 && request.BytesReturned <= size;
    return read ? static_cast<int>(request.BytesReturned) : 0;
}

BOOL CRomFlasher::CheckSize(const CFwImage& image)
{
    Show("Reading the flash part");
    const int size = ReadPart(image.GetImageSize());
    if (size == 0 || size == image.GetImageSize()) return TRUE;
    CStr message;
    message.Format("the flash part has %d bytes and the image %d", size, image.GetImageSize());
    return FailWith(message);
}

// TRUE unless the part is known to differ.
BOOL CRomFlasher::Verify(const CFwImage& image)
{
    Show("Reading the ROM back");
    const int size = ReadPart(image.GetImageSize());
    m_bVerified = size != 0;
    return size == 0 || (size == image.GetImageSize() &&
                         std::memcmp(m_pPart.get(), image.GetImageBuffer(), static_cast<std::size_t>(size)) == 0);
}

BOOL CRomFlasher::DoFlash(CFwImage* image, BOOL isSps)
{
    const CIgnoreSignals ignore;
    if (m_TableSize == 0) return FailWith("there is no flash table");
    if (!Run(FlashTable_Setup, "Preparing the flash part", isSps)) return FailWith("the Setup table failed");
    if (!CheckSize(*image)) {
        RunCleanupTables();
        return FALSE;
    }

    m_State = RomState_Broken;
    if (!Run(FlashTable_Erase, "Erasing the flash part")) return FailWith("the Erase table failed");
    Show("Programming the new ROM");
    if (!ExecuteProgramTable(image)) return FailWith("the Program table failed");
    if (!Verify(*image)) return FailWith("the flash part does not hold what was written");
    m_State = RomState_Written;
    return RunCleanupTables() || FailWith("a Cleanup table failed");
}

BOOL CRomFlasher::RunCleanupTables()
{
    const ULONG features = GetFeatureBits1();
    return (!(features & FlashFeature_Cleanup) || Run(FlashTable_Cleanup, "Cleaning up")) &&
           (!(features & FlashFeature_OsCleanup) || Run(FlashTable_OsCleanup, "Cleaning up for the system"));
}

CStr CRomFlasher::GetRomState() const
{
    switch (m_State) {
        case RomState_Untouched:
            return "The ROM was not touched and runs as before.";
        case RomState_Broken:
            return "The flash part may hold no whole ROM: do not restart the server, run this installer again.";
        default:
            return "Run this installer with /f once more before the server is restarted.";
    }
}
