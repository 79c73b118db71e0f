// The firmware image of a package.
#pragma once

#include "fwversion.h"

// Loads the file that settings.ini names ([Image] File), and checks it against the checksum there ([Image] CRC32, eight
// hexadecimal digits). Derived classes look inside.
class CPackageImage : public CFwImage
{
  public:
    // what names the image to the user: "ROM image".
    explicit CPackageImage(const char* what) : m_pszWhat(what) {}
    ~CPackageImage() override;

    void SetFile(const CStr& fileName, const CStr& checksum);
    BOOL Initialize() override;

  protected:
    // Keeps the message for the user; FALSE.
    bool Fail(const CStr& message);

    // "The ROM image P70_2.40.rom".
    CStr Subject() const;

  private:
    bool CheckNames();
    bool Load();
    bool CheckWhole();

    const char* m_pszWhat;
    CStr m_sFile;
    CStr m_sChecksum;
};
