#include "romimage.h"

#include <cstring>

#include "flashtable.h"

namespace
{

const int BlockSize = 65536;  // images are whole blocks; the last one is mapped into the BIOS area

// The string at the start of [pText, pEnd); moves pText behind its terminator.
CStr NextString(const char*& pText, const char* pEnd)
{
    const std::size_t length = strnlen(pText, static_cast<std::size_t>(pEnd - pText));
    CStr text;
    if (pText + length < pEnd) {
        text = pText;
        pText += length + 1;
    }
    return text;
}

}  // namespace

BOOL CRomImage::Initialize()
{
    return CPackageImage::Initialize() && ReadHeader();
}

bool CRomImage::ReadHeader()
{
    if (m_ImageSize % BlockSize != 0) return Fail(Subject() + " is damaged: it is not made of whole blocks.");
    const char* pEnd = static_cast<const char*>(m_pImageBuffer) + m_ImageSize;
    const void* pHeader = memmem(pEnd - BlockSize, BlockSize, "$ZALFLSH", 8);
    const std::size_t stringsOffset = offsetof(FLASH_TABLE_HEADER, ImageName);
    if (pHeader && pEnd - static_cast<const char*>(pHeader) > static_cast<std::ptrdiff_t>(stringsOffset)) {
        const char* pText = static_cast<const char*>(pHeader) + stringsOffset;
        NextString(pText, pEnd);  // image name
        m_sImageId = NextString(pText, pEnd);
        const CStr revision = NextString(pText, pEnd);
        const bool usable = !m_sImageId.IsEmpty() && m_sImageId.GetLength() <= MaxFamilyLength;
        if (usable && m_ImageVersion.Parse(revision)) return true;
    }
    return Fail(Subject() + " is damaged: it has no usable flash image header.");
}
