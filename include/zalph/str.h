// CStr: owned 8-bit string.
#pragma once

#include "types.h"

// An owned, NUL-terminated 8-bit text with a wide copy made on demand. Every assignment allocates anew; copies never
// share. A null text counts as empty. Sub-strings that do not fit are empty, never clipped. Positions and lengths count
// bytes. No member reports errors.
class FLASHLIB_API CStr
{
  public:
    // A copy of the text.
    CStr(LPCTSTR text = nullptr);
    CStr(const CStr& other);
    ~CStr();

    // Returns a CStr that holds text; GetWideString() then gives its wide form.
    static CStr ConvertToWide(const char* text);

    // Takes a copy of the text, or the number as a text.
    CStr& operator=(LPCTSTR text);
    CStr& operator=(const CStr& other);
    CStr& operator=(int value);     // as "%d"
    CStr& operator=(double value);  // as "%f"
    // Stores the one-character text but leaves the length 0, so that IsEmpty() stays TRUE.
    CStr& operator=(TCHAR c);

    int GetLength() const;  // bytes
    BOOL IsEmpty() const;   // TRUE when there are none
    void Empty();           // makes it the empty text

    // The text, owned by the string and valid until its next change.
    LPCTSTR GetAnsiString() const;
    operator LPCTSTR() const;
    operator LPTSTR();

    // The text converted by the current locale, made anew by each call. Owned by the string; dies with its next change.
    // Empty where the text is no valid multibyte sequence.
    LPCWSTR GetWideString();
    operator LPCWSTR();

    // The byte at index, 0 when index is not inside the text.
    TCHAR GetAt(int index) const;
    TCHAR operator[](int index) const;

    // Stores c at index when that is inside the text, else does nothing. The length never changes, even when c is NUL.
    void SetAt(int index, TCHAR c);

    // Compare bytes, as strcmp does.
    BOOL operator==(LPCTSTR text) const;
    BOOL operator==(const CStr& other) const;
    BOOL operator!=(LPCTSTR text) const;
    BOOL operator!=(const CStr& other) const;
    BOOL operator<(LPCTSTR text) const;
    BOOL operator<(const CStr& other) const;
    BOOL operator>(LPCTSTR text) const;
    BOOL operator>(const CStr& other) const;

    // TRUE when the texts are equal: a test of equality, not an ordering.
    BOOL Compare(LPCTSTR text) const;
    BOOL Compare(const CStr& other) const;
    BOOL CompareNoCase(LPCTSTR text) const;
    BOOL CompareNoCase(const CStr& other) const;

    // This text followed by the other; an empty or null right side gives a copy of this.
    CStr operator+(const CStr& other) const;
    CStr operator+(LPCTSTR text) const;
    CStr& operator+=(const CStr& other);
    CStr& operator+=(LPCTSTR text);
    // Appends one character; NUL is ignored.
    CStr& operator+=(TCHAR c);

    // Change the case of all letters: in place (Make), in a copy (To).
    CStr& MakeUpper();
    CStr& MakeLower();
    CStr ToUpper() const;
    CStr ToLower() const;

    // The first, the last count bytes; empty when count is not in 1 .. length.
    CStr Left(int count) const;
    CStr Right(int count) const;

    // count bytes from start, all bytes from start; empty when that is not wholly inside the text.
    CStr Mid(int start, int count) const;
    CStr Mid(int start) const;

    // Position of the first, the first regardless of case, the last occurrence; -1 when there is none. An empty text is
    // found at 0, by ReverseFind at the end.
    int Find(LPCTSTR text) const;
    int FindNoCase(LPCTSTR text) const;
    int ReverseFind(LPCTSTR text) const;

    // Removes every leading, every trailing c.
    void TrimLeft(TCHAR c);
    void TrimRight(TCHAR c);

    // Assigns the printf-style text. 1024 bytes or more end the process; an empty text makes the call never return.
    void Format(LPCTSTR format, ...) __attribute__((format(printf, 2, 3)));

  private:
    static LPTSTR AllocStringBuffer(int length);
    static void FreeStringBuffer(LPTSTR& buffer);
    static void FreeStringBuffer(LPWSTR& buffer);
    void FreeBuffers();
    void Adopt(LPTSTR buffer, int length);
    CStr& ConvertCase(int (*convert)(int));

    int m_nLength;
    TCHAR* m_pchData;
    WCHAR* m_pWideString;
};
