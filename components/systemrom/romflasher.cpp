#include "romflasher.h"

#include <algorithm>
#include <cstring>

#include "zalph/smbios.h"

namespace
{

const DWORD MaxRoom = 64 << 20;  // bytes

}  // namespace

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

// Makes room for the part before anything is done to it. It may be larger than the image, up to what the firmware
// reserves for a ROM.
void CRomFlasher::MakeRoom(const CFwImage& image)
{
    DWORD reserved = 0;
    CSMBIOS().GetFlashBuffer(reserved);
    m_Room = std::max(std::min(reserved, MaxRoom), static_cast<DWORD>(image.GetImageSize()));
    m_pPart.reset(new char[m_Room]());
}

// Reads the whole part into memory.
void CRomFlasher::ReadPart(const char* step)
{
    Show(step);
    m_PartSize = 0;
    TABLE_EXEC_REQUEST request = {};
    request.TableNumber = FlashTable_Backup;
    request.pBuffer = m_pPart.get();
    request.BufferSize = m_Room;
    const bool read = ExecuteTable(&request) && request.Status == 0 && request.BytesReturned <= m_Room;
    if (read) m_PartSize = static_cast<int>(request.BytesReturned);
}

BOOL CRomFlasher::Prepare(const CFwImage& image)
{
    if (!LoadTable()) return FALSE;
    MakeRoom(image);
    if (!Run(FlashTable_Setup, "Preparing the flash part")) return Fail("the Setup table failed");
    ReadPart("Reading the flash part");
    if (m_PartSize == 0 || m_PartSize == image.GetImageSize()) return TRUE;
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
    ReadPart("Reading the ROM back");
    return m_PartSize == 0 || Holds(image) || Fail("the flash part does not hold what was written");
}

BOOL CRomFlasher::CleanUp()
{
    const ULONG features = GetFeatureBits1();
    const bool done = (!(features & FlashFeature_Cleanup) || Run(FlashTable_Cleanup, "Cleaning up")) &&
                      (!(features & FlashFeature_OsCleanup) || Run(FlashTable_OsCleanup, "Cleaning up for the system"));
    return done || Fail("a Cleanup table failed");
}
