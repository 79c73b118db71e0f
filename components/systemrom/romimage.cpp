#include "romimage.h"

#include <cstring>

#include "flashtable.h"

namespace
{

// The string at the start of [pText, pEnd); moves pText behind its terminator. Empty when it has none.
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

BOOL ReadRomHeader(const void* image, int size, CStr& family, CFwVersion& version)
{
    const char* pEnd = static_cast<const char*>(image) + size;
    const void* pHeader = memmem(pEnd - RomBlockSize, RomBlockSize, "$ZALFLSH", 8);
    const std::ptrdiff_t stringsOffset = offsetof(FLASH_TABLE_HEADER, ImageName);
    if (!pHeader || pEnd - static_cast<const char*>(pHeader) <= stringsOffset) return FALSE;

    const char* pText = static_cast<const char*>(pHeader) + stringsOffset;
    NextString(pText, pEnd);  // image name
    family = NextString(pText, pEnd);
    const CStr revision = NextString(pText, pEnd);
    return !family.IsEmpty() && family.GetLength() <= MaxRomFamilyLength && version.Parse(revision);
}
