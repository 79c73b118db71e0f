// Firmware versions and firmware images.
#pragma once

#include "types.h"
#include "zalph/str.h"

// A firmware version in whichever form the firmware reports it: numbers, a hexadecimal code, a release date, or
// several of them. A plain value.
class FLASHLIB_API CFwVersion
{
  public:
    int VersionByte;        // one-byte hexadecimal code; 0: none
    int VersionWord;        // two-byte hexadecimal code; 0: none
    int Major;              // first number
    int Minor;              // second number
    int Revision;           // third number; 0: none
    int Year;               // four digits; 0: no date
    int Month;              // 1 .. 12
    int Day;                // 1 .. 31
    BOOL UseRevision;       // Revision takes part in comparison
    BOOL CompareDateFirst;  // the date decides, then the version
    // Scans and prints the numbers: up to three integer conversions (major, minor, revision). Not owned.
    const char* MajorMinorFormat;

    static const char* DefaultMajorMinorFormat;  // "%d.%02d"
    static CFwVersion NullVersion;               // no version is known

    CFwVersion();

    // Forget the numbers and codes, the date.
    void ClearVersion() { VersionByte = VersionWord = Major = Minor = Revision = 0; }
    void ClearDate() { Year = Month = Day = 0; }
    // Keeps the flags and the format.
    void Clear()
    {
        ClearVersion();
        ClearDate();
    }

    // Each of the following clears the fields it owns, sets them from text and returns TRUE; on text that it does not
    // accept they stay 0 and it returns FALSE. No month or day is checked for its range.

    // Any form: "1.23", "1A" or "0x1A" (byte code), "0215" (word code), a date, "1.23 (09/12/2014)",
    // "v1.23 (09/12/2014)", "P70 v1.23 (09/12/2014)", "1.23_2014-09-12". Owns the numbers and the date.
    BOOL Parse(const char* text);
    BOOL SetVersion(const char* text);  // by MajorMinorFormat; owns the numbers and codes, as the next two
    BOOL SetVersionByte(const char* text);
    BOOL SetVersionWord(const char* text);
    BOOL SetDate(const char* text);  // "2014-09-12", "09/12/2014" or "Sep 12 2014"; owns the date

    // The system ROM's packed date: day in bits 0 to 4, month in 5 to 8, years since 1992 in 9 to 15.
    int GetSysRomIndex() const;
    // Stores the masked fields as they stand, neither shifted nor with 1992 added, so it is not the inverse. TRUE.
    BOOL SetDateFromSysRomIndex(int index);

    // "1.23 (09/12/2014)", "1.23", "1A", "09/12/2014" or "Unknown".
    CStr ToString() const;

    // Difference in the manner of strcmp: below 0 when a is older than b. Only the sign counts. Compare goes by version
    // and then date, or the reverse when both ask for it. CompareVersion takes the numbers as they are, so one that a
    // side does not know counts as 0; the revision takes part when both sides ask for it. Where no side has numbers it
    // compares the codes: byte codes when either side has one, else word codes. CompareDate gives 0 when a side has no
    // date.
    static int Compare(const CFwVersion* a, const CFwVersion* b);
    static int CompareVersion(const CFwVersion* a, const CFwVersion* b);
    static int CompareDate(const CFwVersion* a, const CFwVersion* b);

    // By Compare.
    BOOL operator<(const CFwVersion& other) const;
    BOOL operator>(const CFwVersion& other) const;
    BOOL operator==(const CFwVersion& other) const;
};

// A firmware image: its bytes, identifier and version. Components derive from it and own what the members point to.
class FLASHLIB_API CFwImage
{
  public:
    virtual ~CFwImage();

    // Loads or prepares the image; FALSE with an error message when it can't.
    virtual BOOL Initialize() = 0;

    // What the image is, and its bytes, which stay the image's.
    const CStr& GetId() const;
    const CFwVersion& GetVersion() const;
    int GetImageSize() const;  // bytes
    const void* GetImageBuffer() const;
    const CStr& GetErrorMessage() const;

  protected:
    CFwImage();
    // Keeps why Initialize failed.
    void SetErrorMessage(const CStr& text);

    // What the accessors hand out.
    int m_ImageSize;       // bytes
    void* m_pImageBuffer;  // owned by the derived class
    CStr m_sImageId;
    CFwVersion m_ImageVersion;
    CStr m_sErrorMessage;
};
