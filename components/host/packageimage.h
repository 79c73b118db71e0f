// The firmware image of a package.
#pragma once

#include "fwversion.h"

// Loads the file that settings.ini names ([Image] File), and checks it against the checksum there ([Image] CRC32, eight
// hexadecimal digits).
class CPackageImage : public CFwImage
{
  public:
    // what names the image to the user: "ROM image". A file of more than maxSize bytes is not read.
    CPackageImage(const char* what, int maxSize) : m_pszWhat(what), m_MaxSize(maxSize) {}
    ~CPackageImage() override;

    void SetFile(const CStr& fileName, const CStr& checksum);

    // In its place an image that was kept when another replaced it, by its path; see keep.h.
    void SetKept(const CStr& path);

    // Another limit, and whose it is: "the firmware reserves for flashing".
    void SetMaxSize(long long maxSize, const char* limit);

    BOOL Initialize() override;

    // "The ROM image P70_2.40.rom".
    CStr Subject() const;

  private:
    bool CheckNames();
    bool CheckFile();
    bool Load();
    bool LoadKept();
    bool CheckWhole();

    // Keeps the message for the user; false.
    bool Fail(const CStr& message);

    const char* m_pszWhat;
    const char* m_pszLimit = "such an image may have";
    long long m_MaxSize;  // bytes
    CStr m_sFile;
    CStr m_sChecksum;
    bool m_bKept = false;
};
