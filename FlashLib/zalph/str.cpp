#include "zalph/str.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "../bounded.h"

CStr::CStr(LPCTSTR text) : m_nLength(0), m_pchData(nullptr), m_pWideString(nullptr)
{
    *this = text;
}

CStr::CStr(const CStr& other) : m_nLength(0), m_pchData(nullptr), m_pWideString(nullptr)
{
    *this = other;
}

CStr::~CStr()
{
    FreeBuffers();
}

CStr CStr::ConvertToWide(const char* text)
{
    return CStr(text);
}

LPTSTR CStr::AllocStringBuffer(int length)
{
    return new TCHAR[static_cast<std::size_t>(length) + 1];
}

void CStr::FreeStringBuffer(LPTSTR& buffer)
{
    delete[] buffer;
    buffer = nullptr;
}

void CStr::FreeStringBuffer(LPWSTR& buffer)
{
    delete[] buffer;
    buffer = nullptr;
}

void CStr::FreeBuffers()
{
    FreeStringBuffer(m_pchData);
    FreeStringBuffer(m_pWideString);
    m_nLength = 0;
}

// Takes over a finished buffer. Callers build it before the old one goes, since it may be made from the old text.
void CStr::Adopt(LPTSTR buffer, int length)
{
    FreeBuffers();
    m_pchData = buffer;
    m_nLength = length;
}

CStr& CStr::operator=(LPCTSTR text)
{
    if (!text) text = "";
    const int length = static_cast<int>(std::strlen(text));
    LPTSTR pBuffer = AllocStringBuffer(length);
    std::strcpy(pBuffer, text);
    Adopt(pBuffer, length);
    return *this;
}

CStr& CStr::operator=(const CStr& other)
{
    // The text can be longer than the length (an assigned character) or end before it (a NUL set inside).
    const int textLength = static_cast<int>(std::strlen(other.m_pchData));
    const int size = textLength > other.m_nLength ? textLength : other.m_nLength;
    LPTSTR pBuffer = AllocStringBuffer(size);
    std::memcpy(pBuffer, other.m_pchData, static_cast<std::size_t>(size) + 1);
    Adopt(pBuffer, other.m_nLength);
    return *this;
}

CStr& CStr::operator=(int value)
{
    Format("%d", value);
    return *this;
}

CStr& CStr::operator=(double value)
{
    Format("%f", value);
    return *this;
}

CStr& CStr::operator=(TCHAR c)
{
    LPTSTR pBuffer = AllocStringBuffer(1);
    pBuffer[0] = c;
    pBuffer[1] = '\0';
    Adopt(pBuffer, 0);  // kept: assigned-character
    return *this;
}

int CStr::GetLength() const
{
    return m_nLength;
}

BOOL CStr::IsEmpty() const
{
    return m_nLength == 0;
}

void CStr::Empty()
{
    *this = "";
}

LPCTSTR CStr::GetAnsiString() const
{
    return m_pchData;
}

CStr::operator LPCTSTR() const
{
    return m_pchData;
}

CStr::operator LPTSTR()
{
    return m_pchData;
}

LPCWSTR CStr::GetWideString()
{
    FreeStringBuffer(m_pWideString);
    const std::size_t converted = std::mbstowcs(nullptr, m_pchData, 0);
    const std::size_t length = converted == static_cast<std::size_t>(-1) ? 0 : converted;
    m_pWideString = new WCHAR[length + 1]();
    if (length > 0) std::mbstowcs(m_pWideString, m_pchData, length + 1);
    return m_pWideString;
}

CStr::operator LPCWSTR()
{
    return GetWideString();
}

TCHAR CStr::GetAt(int index) const
{
    return index < 0 || index > m_nLength - 1 ? '\0' : m_pchData[index];
}

TCHAR CStr::operator[](int index) const
{
    return GetAt(index);
}

void CStr::SetAt(int index, TCHAR c)
{
    if (index < 0 || index > m_nLength - 1) return;
    FreeStringBuffer(m_pWideString);
    m_pchData[index] = c;
}

BOOL CStr::operator==(LPCTSTR text) const
{
    return std::strcmp(m_pchData, text ? text : "") == 0;
}

BOOL CStr::operator==(const CStr& other) const
{
    return *this == other.m_pchData;
}

BOOL CStr::operator!=(LPCTSTR text) const
{
    return !(*this == text);
}

BOOL CStr::operator!=(const CStr& other) const
{
    return !(*this == other);
}

BOOL CStr::operator<(LPCTSTR text) const
{
    return std::strcmp(m_pchData, text ? text : "") < 0;
}

BOOL CStr::operator<(const CStr& other) const
{
    return *this < other.m_pchData;
}

BOOL CStr::operator>(LPCTSTR text) const
{
    return std::strcmp(m_pchData, text ? text : "") > 0;
}

BOOL CStr::operator>(const CStr& other) const
{
    return *this > other.m_pchData;
}

BOOL CStr::Compare(LPCTSTR text) const
{
    return *this == text;  // kept: compare-is-equality
}

BOOL CStr::Compare(const CStr& other) const
{
    return *this == other;
}

BOOL CStr::CompareNoCase(LPCTSTR text) const
{
    return strcasecmp(m_pchData, text ? text : "") == 0;
}

BOOL CStr::CompareNoCase(const CStr& other) const
{
    return CompareNoCase(other.m_pchData);
}

CStr CStr::operator+(const CStr& other) const
{
    return *this + (other.IsEmpty() ? nullptr : other.m_pchData);
}

CStr CStr::operator+(LPCTSTR text) const
{
    if (!text || text[0] == '\0') return *this;
    const int length = static_cast<int>(std::strlen(m_pchData) + std::strlen(text));
    LPTSTR pBuffer = AllocStringBuffer(length);
    std::strcpy(pBuffer, m_pchData);
    std::strcat(pBuffer, text);
    CStr result;
    result.Adopt(pBuffer, length);
    return result;
}

CStr& CStr::operator+=(const CStr& other)
{
    return *this = *this + other;
}

CStr& CStr::operator+=(LPCTSTR text)
{
    return *this = *this + text;
}

CStr& CStr::operator+=(TCHAR c)
{
    if (c == '\0') return *this;
    const int length = m_nLength + 1;
    LPTSTR pBuffer = AllocStringBuffer(length);
    std::memcpy(pBuffer, m_pchData, static_cast<std::size_t>(m_nLength));
    pBuffer[m_nLength] = c;
    pBuffer[length] = '\0';
    Adopt(pBuffer, length);
    return *this;
}

CStr& CStr::ConvertCase(int (*convert)(int))
{
    FreeStringBuffer(m_pWideString);
    for (int i = 0; i < m_nLength; i++)
        m_pchData[i] = static_cast<TCHAR>(convert(static_cast<unsigned char>(m_pchData[i])));
    return *this;
}

CStr& CStr::MakeUpper()
{
    return ConvertCase(std::toupper);
}

CStr& CStr::MakeLower()
{
    return ConvertCase(std::tolower);
}

CStr CStr::ToUpper() const
{
    return CStr(*this).MakeUpper();
}

CStr CStr::ToLower() const
{
    return CStr(*this).MakeLower();
}

CStr CStr::Left(int count) const
{
    return Mid(0, count);
}

CStr CStr::Right(int count) const
{
    return count > 0 ? Mid(m_nLength - count, count) : CStr();
}

// A NUL set inside is left out. kept: narrow-substrings (one that runs past the end is empty)
CStr CStr::Mid(int start, int count) const
{
    CStr result;
    if (start < 0 || start > m_nLength - 1 || count <= 0 || count > m_nLength - start) return result;
    LPTSTR pBuffer = AllocStringBuffer(count);
    TCHAR* pEnd = std::remove_copy(m_pchData + start, m_pchData + start + count, pBuffer, '\0');
    *pEnd = '\0';
    result.Adopt(pBuffer, static_cast<int>(pEnd - pBuffer));
    return result;
}

CStr CStr::Mid(int start) const
{
    return start < 0 ? CStr() : Mid(start, m_nLength - start);
}

// A NUL set inside matches nothing.
int CStr::Find(LPCTSTR text) const
{
    if (!text) text = "";
    const int count = static_cast<int>(std::strlen(text));
    for (int i = 0; i <= m_nLength - count; i++)
        if (std::equal(text, text + count, m_pchData + i)) return i;
    return -1;
}

int CStr::FindNoCase(LPCTSTR text) const
{
    return ToUpper().Find(CStr(text).MakeUpper());
}

int CStr::ReverseFind(LPCTSTR text) const
{
    if (!text) text = "";
    const int count = static_cast<int>(std::strlen(text));
    for (int i = m_nLength - count; i >= 0; i--)
        if (std::equal(text, text + count, m_pchData + i)) return i;
    return -1;
}

void CStr::TrimLeft(TCHAR c)
{
    CStr text(*this);
    while (!text.IsEmpty() && text[0] == c) {
        int count = 1;
        while (count < text.GetLength() && text[count] == c) count++;
        text = text.Mid(count);
    }
    *this = text;
}

void CStr::TrimRight(TCHAR c)
{
    CStr text(*this);
    while (!text.IsEmpty() && text[text.GetLength() - 1] == c) {
        int length = text.GetLength() - 1;
        while (length > 0 && text[length - 1] == c) length--;
        text = text.Left(length);
    }
    *this = text;
}

void CStr::Format(LPCTSTR format, ...)
{
    int size = 1024;
    TCHAR* pScratch = nullptr;
    // kept: format-to-nothing (an empty result is tried again with more room, for as long as it stays empty)
    for (;; size += 1024) {
        pScratch = AllocStringBuffer(size - 1);
        va_list arguments;
        va_start(arguments, format);
        BoundedFormatV("CStr::Format", pScratch, static_cast<std::size_t>(size), format, arguments);
        va_end(arguments);
        if (pScratch[0] != '\0') break;
    }
    *this = pScratch;  // kept: format-scratch-buffer
}
