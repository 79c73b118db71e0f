#include "romimage.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "crc32.h"
#include "flashtable.h"
#include "util.h"
#include "zalxml.h"

namespace
{

const int BlockSize = 65536;  // images are whole blocks; the last one is mapped into the BIOS area
const int MaxFileNameLength = 255;
const int MaxFamilyLength = 16;

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

CRomImage::~CRomImage()
{
    delete[] static_cast<char*>(m_pImageBuffer);
}

BOOL CRomImage::Initialize()
{
    CStr fileName;
    CStr checksum;
    return FindInPackage(fileName, checksum) && Load(fileName) && CheckWhole(checksum) && ReadHeader();
}

bool CRomImage::Fail(const CStr& message)
{
    SetErrorMessage(message);
    return false;
}

bool CRomImage::FindInPackage(CStr& fileName, CStr& checksum)
{
    CStr path;
    CZalXMLReader reader;
    if (!FindFileInComponentDir("qx*.xml", path)) FindFileInComponentDir("*.xml", path);
    reader.ParseFile(path);
    if (CZalXMLNode* pImage = reader.FindFirstChildOf(nullptr, "rom_image", nullptr, nullptr)) {
        fileName = pImage->GetAttribute("file");
        checksum = pImage->GetAttribute("crc32");
    }
    if (fileName.IsEmpty() || fileName.GetLength() > MaxFileNameLength || checksum.GetLength() != 8)
        return Fail("The package description names no ROM image with its checksum.");
    return true;
}

bool CRomImage::Load(const CStr& fileName)
{
    m_sImageId = fileName;  // until the header tells the family
    int size = 0;
    void* pBuffer = nullptr;
    if (!ReadFileIntoMemory(FileInComponentDir(fileName), pBuffer, size))
        return Fail(CStr("The ROM image ") + fileName + " is missing or can't be read.");
    m_pImageBuffer = pBuffer;
    m_ImageSize = size;
    return true;
}

bool CRomImage::CheckWhole(const CStr& checksum)
{
    CStr message;
    if (m_ImageSize == 0 || m_ImageSize % BlockSize != 0) {
        message.Format("The ROM image %s is damaged: its size is %d bytes, not a multiple of %d.",
                       m_sImageId.GetAnsiString(), m_ImageSize, BlockSize);
        return Fail(message);
    }
    const unsigned long crc =
        rom_crc32(static_cast<unsigned char*>(m_pImageBuffer), static_cast<unsigned int>(m_ImageSize), 0);
    if (crc != std::strtoul(checksum, nullptr, 16)) {
        message.Format("The ROM image %s is damaged: its checksum is %08lX, the package states %s.",
                       m_sImageId.GetAnsiString(), crc, checksum.GetAnsiString());
        return Fail(message);
    }
    return true;
}

bool CRomImage::ReadHeader()
{
    const char* pEnd = static_cast<const char*>(m_pImageBuffer) + m_ImageSize;
    const void* pHeader = memmem(pEnd - BlockSize, BlockSize, "$ZALFLSH", 8);
    const std::size_t stringsOffset = offsetof(FLASH_TABLE_HEADER, ImageName);
    if (pHeader && pEnd - static_cast<const char*>(pHeader) > static_cast<std::ptrdiff_t>(stringsOffset)) {
        const char* pText = static_cast<const char*>(pHeader) + stringsOffset;
        NextString(pText, pEnd);  // image name
        const CStr family = NextString(pText, pEnd);
        const CStr revision = NextString(pText, pEnd);
        if (!family.IsEmpty() && family.GetLength() <= MaxFamilyLength && m_ImageVersion.Parse(revision)) {
            m_sImageId = family;
            return true;
        }
    }
    return Fail(CStr("The ROM image ") + m_sImageId + " is damaged: it has no usable flash image header.");
}
