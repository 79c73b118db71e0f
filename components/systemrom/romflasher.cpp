#include "romflasher.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "zalph/smbios.h"

BOOL CRomFlasher::Fail(const CStr& reason)
{
    SetErrorMessage(reason);
    return FALSE;
}

void CRomFlasher::Show(const char* step) const
{
    if (m_pfnLogger) m_pfnLogger("  %s ...\n", step);
}

BOOL CRomFlasher::LoadTable()
{
    if (!Initialize() || !GetTableFromBootBlock(nullptr)) return FALSE;
    const bool usable = m_HeaderSize != 0 && m_TableSize != 0 && std::memcmp(m_pHeader->Signature, "$ZALFLSH", 8) == 0;
    return usable || Fail("the running ROM offers no flash table with a header");
}

// Runs a table that needs no buffer, and looks at its status.
BOOL CRomFlasher::Run(FlashTable table, const char* step)
{
    Show(step);
    TABLE_EXEC_REQUEST request = {};
    request.TableNumber = table;
    return ExecuteTable(&request) && request.Status == 0;
}

// Reads the whole part into memory. It may be larger than the image, up to what the firmware reserves for a ROM.
void CRomFlasher::ReadPart(const char* step, const CFwImage& image)
{
    Show(step);
    m_PartSize = 0;
    DWORD reserved = 0;
    CSMBIOS().GetFlashBuffer(reserved);
    const DWORD size = std::max(reserved, static_cast<DWORD>(image.GetImageSize()));
    m_pPart.reset(new (std::nothrow) char[size]());
    if (!m_pPart) return;
    TABLE_EXEC_REQUEST request = {};
    request.TableNumber = FlashTable_Backup;
    request.pBuffer = m_pPart.get();
    request.BufferSize = size;
    const bool read = ExecuteTable(&request) && request.Status == 0 && request.BytesReturned <= size;
    if (read) m_PartSize = static_cast<int>(request.BytesReturned);
}

BOOL CRomFlasher::Prepare(const CFwImage& image)
{
    if (!LoadTable()) return FALSE;
    if (!Run(FlashTable_Setup, "Preparing the flash part")) return Fail("the Setup table failed");
    ReadPart("Reading the flash part", image);
    if (!IsRead() || m_PartSize == image.GetImageSize()) return TRUE;
    CleanUp();
    CStr reason;
    reason.Format("the flash part has %d bytes and the image %d", m_PartSize, image.GetImageSize());
    return Fail(reason);
}

BOOL CRomFlasher::Holds(const CFwImage& image) const
{
    return m_PartSize == image.GetImageSize() &&
           std::memcmp(m_pPart.get(), image.GetImageBuffer(), static_cast<std::size_t>(m_PartSize)) == 0;
}

BOOL CRomFlasher::Program(CFwImage& image)
{
    if (!Run(FlashTable_Erase, "Erasing the flash part")) return Fail("the Erase table failed");
    Show("Programming the new ROM");
    if (!ExecuteProgramTable(&image)) return Fail("the Program table failed");
    ReadPart("Reading the ROM back", image);
    return !IsRead() || Holds(image) || Fail("the flash part does not hold what was written");
}

BOOL CRomFlasher::CleanUp()
{
    const ULONG features = GetFeatureBits1();
    const bool done = (!(features & FlashFeature_Cleanup) || Run(FlashTable_Cleanup, "Cleaning up")) &&
                      (!(features & FlashFeature_OsCleanup) || Run(FlashTable_OsCleanup, "Cleaning up for the system"));
    return done || Fail("a Cleanup table failed");
}
