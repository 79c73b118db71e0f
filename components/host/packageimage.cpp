#include "packageimage.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "crc32.h"
#include "keep.h"
#include "packagefile.h"
#include "util.h"

namespace
{

const int MaxFileNameLength = 255;

bool IsChecksum(const CStr& text)
{
    for (int i = 0; i < text.GetLength(); i++)
        if (!std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
    return text.GetLength() == 8;
}

}  // namespace

CPackageImage::~CPackageImage()
{
    delete[] static_cast<char*>(m_pImageBuffer);
}

void CPackageImage::SetFile(const CStr& fileName, const CStr& checksum)
{
    m_sFile = fileName;
    m_sChecksum = checksum;
}

void CPackageImage::SetKept(const CStr& path)
{
    m_bKept = true;
    SetFile(path, KeptChecksum(path.GetAnsiString()).c_str());
}

void CPackageImage::SetMaxSize(long long maxSize, const char* limit)
{
    m_MaxSize = maxSize;
    m_pszLimit = limit;
}

BOOL CPackageImage::Initialize()
{
    return CheckNames() && CheckFile() && Load() && CheckWhole();
}

bool CPackageImage::Fail(const CStr& message)
{
    SetErrorMessage(message);
    return false;
}

CStr CPackageImage::Subject() const
{
    return CStr("The ") + m_pszWhat + " " + m_sFile;
}

// A file of another folder is none of the package.
bool CPackageImage::CheckNames()
{
    if (m_bKept) return !m_sChecksum.IsEmpty() || Fail(m_sFile + " is no kept image: its name tells no checksum.");
    if (m_sFile.IsEmpty() || m_sFile.GetLength() > MaxFileNameLength || m_sFile.Find("/") >= 0)
        return Fail(CStr("The settings name no ") + m_pszWhat +
                    " of this package: File must be a name without '/', and settings.ini must end in a setting, or its "
                    "last section does not count.");
    return IsChecksum(m_sChecksum) || Fail(CStr("The settings state no checksum of the ") + m_pszWhat + " " + m_sFile +
                                           ": CRC32 must have 8 hexadecimal digits.");
}

bool CPackageImage::CheckFile()
{
    if (m_bKept) return true;
    const CStr problem = CheckPackageFile(FileInComponentDir(m_sFile), m_MaxSize, m_pszLimit);
    return problem.IsEmpty() || Fail(Subject() + problem);
}

bool CPackageImage::Load()
{
    delete[] static_cast<char*>(m_pImageBuffer);
    m_pImageBuffer = nullptr;
    m_ImageSize = 0;
    if (m_bKept) return LoadKept();
    int size = 0;
    void* pBuffer = nullptr;
    if (!ReadFileIntoMemory(FileInComponentDir(m_sFile), pBuffer, size))
        return Fail(Subject() + " is missing or can't be read.");
    m_pImageBuffer = pBuffer;
    m_ImageSize = size;
    return true;
}

bool CPackageImage::LoadKept()
{
    const int maxSize = m_MaxSize < INT_MAX ? static_cast<int>(m_MaxSize) : INT_MAX;
    m_pImageBuffer = ReadKept(m_sFile.GetAnsiString(), maxSize, m_ImageSize).release();
    const char* pszProblem = errno == EINVAL ? "it is no regular file" : std::strerror(errno);
    return m_pImageBuffer || Fail(Subject() + " can't be read: " + pszProblem + ".");
}

bool CPackageImage::CheckWhole()
{
    if (m_ImageSize == 0) return Fail(Subject() + " is damaged: it is empty.");
    if (m_bKept)
        return KeepChecksum(m_pImageBuffer, m_ImageSize) == m_sChecksum.GetAnsiString() ||
               Fail(Subject() + " is damaged: it has not the checksum that its name tells.");
    const unsigned long crc =
        rom_crc32(static_cast<unsigned char*>(m_pImageBuffer), static_cast<unsigned int>(m_ImageSize), 0);
    if (crc == std::strtoul(m_sChecksum, nullptr, 16)) return true;
    CStr message;
    message.Format("%s is damaged: it has %d bytes with checksum %08lX, the package states %s.",
                   Subject().GetAnsiString(), m_ImageSize, crc, m_sChecksum.GetAnsiString());
    return Fail(message);
}
