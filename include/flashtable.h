// The running system ROM's flash image header.
#pragma once

#include "types.h"
#include "zalftbl.h"
#include "zalph/str.h"

// The header as it stands in the BIOS area; the flash engine knows the identical layout as ZALFLSH_HEADER.
using FLASH_TABLE_HEADER = ZALFLSH_HEADER;

// Finds the flash image header in the legacy BIOS area, physical addresses 0xF0000 to 0xFFFFF, and splits out its
// strings. Call FindHeader, then GetStrings, then the accessors.
class FLASHLIB_API CFlashTableHeader
{
  public:
    CFlashTableHeader();
    ~CFlashTableHeader();
    CFlashTableHeader(const CFlashTableHeader&) = delete;
    CFlashTableHeader& operator=(const CFlashTableHeader&) = delete;

    // Copies the BIOS area and looks for the header. Failure shows in GetStrings, which then finds nothing.
    void FindHeader();

    // Takes the strings from the header; leaves them as they are when there is none.
    void GetStrings();

    CStr GetImageName() const { return m_sImageName; }
    CStr GetROMFamily() const { return m_sROMFamily; }
    CStr GetROMRevision() const { return m_sROMRevision; }

  private:
    unsigned char* m_pBIOS;         // owned copy of the BIOS area
    FLASH_TABLE_HEADER* m_pHeader;  // inside m_pBIOS; null when not found
    CStr m_sImageName;
    CStr m_sROMFamily;
    CStr m_sROMRevision;
};
