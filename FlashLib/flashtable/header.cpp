#include <cstring>
#include <initializer_list>
#include <new>

#include "debug.h"
#include "flashtable.h"
#include "zalph/system.h"

namespace
{

const DWORD BiosAddress = 0xF0000;
const int BiosSize = 65536;
const int LastHeaderOffset = 65519;
const int Slack = 64;  // zeros behind the copy: the strings of a header at its end stop here

}  // namespace

CFlashTableHeader::CFlashTableHeader() : m_pBIOS(nullptr), m_pHeader(nullptr) {}

CFlashTableHeader::~CFlashTableHeader()
{
    delete[] m_pBIOS;
}

void CFlashTableHeader::FindHeader()
{
    delete[] m_pBIOS;
    m_pHeader = nullptr;
    m_pBIOS = new (std::nothrow) unsigned char[BiosSize + Slack]();
    if (!m_pBIOS) return;

    CSystem system;
    if (!system.ReadPhysicalMemory(BiosAddress, m_pBIOS, BiosSize)) return;

    for (int offset = 0; offset <= LastHeaderOffset; offset++) {
        if (std::memcmp(m_pBIOS + offset, "$ZALFLSH", 8) == 0) {
            m_pHeader = reinterpret_cast<FLASH_TABLE_HEADER*>(m_pBIOS + offset);
            return;
        }
    }
}

void CFlashTableHeader::GetStrings()
{
    if (!m_pHeader) {
        _DebugPrintf("CFlashTableHeader::GetStrings::m_pHeader=NULL\n");
        return;
    }
    const char* pszString = reinterpret_cast<const char*>(m_pHeader) + offsetof(FLASH_TABLE_HEADER, ImageName);
    for (CStr* pMember : {&m_sImageName, &m_sROMFamily, &m_sROMRevision}) {
        *pMember = pszString;
        pszString += std::strlen(pszString) + 1;
    }
    _DebugPrintf("CFlashTableHeader::GetStrings::ImageName::%s::ROMName::%s::ROMRevision::%s\n",
                 m_sImageName.GetAnsiString(), m_sROMFamily.GetAnsiString(), m_sROMRevision.GetAnsiString());
}

CStr CFlashTableHeader::GetImageName() const
{
    return m_sImageName;
}

CStr CFlashTableHeader::GetROMFamily() const
{
    return m_sROMFamily;
}

CStr CFlashTableHeader::GetROMRevision() const
{
    return m_sROMRevision;
}
