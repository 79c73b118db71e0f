#include "fwversion.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "debug.h"

namespace
{

bool IsDigit(TCHAR c)
{
    return c >= '0' && c <= '9';
}

bool IsHexDigit(TCHAR c)
{
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

bool AllHexDigits(const CStr& text)
{
    for (int i = 0; i < text.GetLength(); i++)
        if (!IsHexDigit(text[i])) return false;
    return true;
}

bool DigitsAt(const CStr& text, std::initializer_list<int> positions)
{
    for (int position : positions)
        if (!IsDigit(text[position])) return false;
    return true;
}

int Decimal(const CStr& text, int start, int count)
{
    return static_cast<int>(std::strtol(text.Mid(start, count).GetAnsiString(), nullptr, 10));
}

// 1 .. 12, or 0 when the text is no English month abbreviation.
int MonthNumber(const CStr& name)
{
    static const char* const szMonths[] = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                           "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
    const CStr upper = name.ToUpper();
    for (int i = 0; i < 12; i++)
        if (upper == szMonths[i]) return i + 1;
    return 0;
}

// "P70 v1.23 (09/12/2014)": a family tag before the version and the date.
bool IsTagged(const CStr& s)
{
    const auto isAlnum = [](TCHAR c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
    return s.GetLength() == 22 && s[3] == ' ' && s[4] == 'v' && s[6] == '.' && s[10] == '(' && s[21] == ')' &&
           std::isalpha(static_cast<unsigned char>(s[0])) && isAlnum(s[1]) && isAlnum(s[2]);
}

// "v1.23 (09/12/2014)"
bool IsPrefixed(const CStr& s)
{
    return s.GetLength() == 18 && s[0] == 'v' && s[2] == '.' && s[6] == '(' && s[17] == ')';
}

// "1.23 (09/12/2014)"
bool IsVersionAndDate(const CStr& s)
{
    return s.GetLength() == 17 && s[1] == '.' && s[4] == ' ' && s[5] == '(' && s[16] == ')' && DigitsAt(s, {0, 2, 3});
}

// "1.23_2014-09-12"
bool IsVersionUnderscoreDate(const CStr& s)
{
    return s.GetLength() == 15 && s[1] == '.' && s[4] == '_' && DigitsAt(s, {0, 2, 3});
}

// a - b, for any two values.
int Difference(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

}  // namespace

const char* CFwVersion::DefaultMajorMinorFormat = "%d.%02d";  // kept: two-digit-minor
CFwVersion CFwVersion::NullVersion;

CFwVersion::CFwVersion() : UseRevision(FALSE), CompareDateFirst(FALSE), MajorMinorFormat(DefaultMajorMinorFormat)
{
    Clear();
}

BOOL CFwVersion::SetVersion(const char* text)
{
    ClearVersion();
    int major = 0;
    int minor = 0;
    int revision = 0;
    const int converted = std::sscanf(text, MajorMinorFormat, &major, &minor, &revision);
    if (converted != 2 && converted != 3) return FALSE;
    Major = major;
    Minor = minor;
    Revision = converted == 3 ? revision : 0;
    return TRUE;
}

BOOL CFwVersion::SetVersionByte(const char* text)
{
    ClearVersion();
    unsigned int value = 0;
    if (std::sscanf(text, "%2x", &value) != 1) return FALSE;
    VersionByte = static_cast<int>(value);
    return TRUE;
}

BOOL CFwVersion::SetVersionWord(const char* text)
{
    ClearVersion();
    unsigned int value = 0;
    if (std::sscanf(text, "%4x", &value) != 1) return FALSE;
    VersionWord = static_cast<int>(value);
    return TRUE;
}

BOOL CFwVersion::SetDate(const char* text)
{
    ClearDate();
    const CStr s(text);
    const int length = s.GetLength();

    if (length == 10 && (s[4] == '.' || s[4] == '/' || s[4] == '-') && s[7] == s[4] && DigitsAt(s, {0, 2, 5, 8})) {
        Year = Decimal(s, 0, 4);
        Month = Decimal(s, 5, 2);
        Day = Decimal(s, 8, 2);
        return TRUE;
    }
    // kept: dots-year-first (no '.' here)
    if (length == 10 && (s[2] == '/' || s[2] == '-') && s[5] == s[2] && DigitsAt(s, {0, 3, 6, 8})) {
        Month = Decimal(s, 0, 2);
        Day = Decimal(s, 3, 2);
        Year = Decimal(s, 6, 4);
        return TRUE;
    }
    if (length == 11 && s[3] == ' ' && s[6] == s[3] && DigitsAt(s, {4, 7, 9})) {
        const int month = MonthNumber(s.Left(3));
        if (month == 0) return FALSE;
        Month = month;
        Day = Decimal(s, 4, 2);
        Year = Decimal(s, 7, 4);
        return TRUE;
    }
    return FALSE;
}

BOOL CFwVersion::Parse(const char* text)
{
    Clear();
    CStr s(text);
    if (IsTagged(s)) s = s.Mid(5);
    if (IsPrefixed(s)) s = s.Mid(1);

    if (IsVersionAndDate(s) || IsVersionUnderscoreDate(s)) {
        const int dateStart = s[4] == '_' ? 5 : 6;
        if (!SetDate(s.Mid(dateStart, 10))) return FALSE;
        Major = Decimal(s, 0, 1);
        Minor = Decimal(s, 2, 2);
        return TRUE;
    }
    if (SetDate(s)) return TRUE;

    const int prefix = s[0] == '0' && (s[1] == 'x' || s[1] == 'X') ? 2 : 0;
    const int digits = s.GetLength() - prefix;
    if (digits == 2 || digits == 4) {
        const CStr code = s.Mid(prefix);
        // kept: code-before-number
        if (AllHexDigits(code)) return digits == 2 ? SetVersionByte(code) : SetVersionWord(code);
    }
    return SetVersion(s);
}

int CFwVersion::GetSysRomIndex() const
{
    const unsigned index =
        static_cast<unsigned>(Month) << 5 | static_cast<unsigned>(Day) | (static_cast<unsigned>(Year) - 1992) << 9;
    return static_cast<int>(index);
}

BOOL CFwVersion::SetDateFromSysRomIndex(int index)
{
    // kept: rom-index-asymmetry
    Day = index & 0x1F;
    Month = index & 0x1E0;
    Year = index & 0xFE00;
    return TRUE;
}

CStr CFwVersion::ToString() const
{
    CStr version;
    if (Major != 0 || Minor != 0)
        version.Format(MajorMinorFormat, Major, Minor, Revision);
    else if (VersionByte != 0)
        version.Format("%02X", static_cast<unsigned>(VersionByte));
    else if (VersionWord != 0)
        version.Format("%04X", static_cast<unsigned>(VersionWord));
    else if (Year == 0)
        return "Unknown";

    CStr date;
    if (Year != 0) date.Format("%02d/%02d/%04d", Month, Day, Year);

    if (version.IsEmpty()) return date;
    return date.IsEmpty() ? version : version + " (" + date + ")";  // kept: long-major-with-date
}

// kept: open-log-without-end (none of these lines has one)
int CFwVersion::CompareVersion(const CFwVersion* a, const CFwVersion* b)
{
    if (a->Major == 0 && a->Minor == 0 && b->Major == 0 && b->Minor == 0) {
        // kept: byte-code-first (it hides the word codes of both sides)
        if (a->VersionByte != 0 || b->VersionByte != 0) return Difference(a->VersionByte, b->VersionByte);
        return Difference(a->VersionWord, b->VersionWord);
    }

    _DebugPrintf("fwversion::CompareVersion::Compare Major/Minor");
    if (a->Major != b->Major) {
        const int d = Difference(a->Major, b->Major);
        _DebugPrintf("fwversion::CompareVersion::Major difference %d", d);
        return d;
    }
    if (a->Minor != b->Minor) {
        const int d = Difference(a->Minor, b->Minor);
        _DebugPrintf("fwversion::CompareVersion::Minor difference %d", d);
        return d;
    }
    if (!a->UseRevision || !b->UseRevision) return 0;

    _DebugPrintf("fwversion::CompareVersion::compare revision");
    if (a->Revision == b->Revision) return 0;
    const int d = Difference(a->Revision, b->Revision);
    _DebugPrintf("fwversion::CompareVersion::Revision difference %d", d);
    return d;
}

int CFwVersion::CompareDate(const CFwVersion* a, const CFwVersion* b)
{
    if (a->Year == 0 || b->Year == 0) return 0;
    if (a->Year != b->Year) return Difference(a->Year, b->Year);
    if (a->Month != b->Month) return Difference(a->Month, b->Month);
    return Difference(a->Day, b->Day);
}

int CFwVersion::Compare(const CFwVersion* a, const CFwVersion* b)
{
    if (a == b) {
// kept: version-log-text (the format prints two numbers and a literal "d")
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
        _DebugPrintf("fwversoin::Compare: pver1:  %d:%d:d", a->Major, a->Minor, a->Revision);
        _DebugPrintf("fwversoin::Compare: pver2:  %d:%d:d", a->Major, a->Minor, a->Revision);
#pragma GCC diagnostic pop
        return 0;
    }
    const bool dateFirst = a->CompareDateFirst && b->CompareDateFirst;
    const int first = dateFirst ? CompareDate(a, b) : CompareVersion(a, b);
    if (first != 0) return first;
    return dateFirst ? CompareVersion(a, b) : CompareDate(a, b);
}

BOOL CFwVersion::operator<(const CFwVersion& other) const
{
    return Compare(this, &other) < 0;
}

BOOL CFwVersion::operator>(const CFwVersion& other) const
{
    return Compare(this, &other) > 0;
}

BOOL CFwVersion::operator==(const CFwVersion& other) const
{
    return Compare(this, &other) == 0;
}

CFwImage::CFwImage() : m_ImageSize(0), m_pImageBuffer(nullptr) {}

CFwImage::~CFwImage() = default;

const CStr& CFwImage::GetId() const
{
    return m_sImageId;
}

const CFwVersion& CFwImage::GetVersion() const
{
    return m_ImageVersion;
}

int CFwImage::GetImageSize() const
{
    return m_ImageSize;
}

const void* CFwImage::GetImageBuffer() const
{
    return m_pImageBuffer;
}

const CStr& CFwImage::GetErrorMessage() const
{
    return m_sErrorMessage;
}

void CFwImage::SetErrorMessage(const CStr& text)
{
    m_sErrorMessage = text;
}
