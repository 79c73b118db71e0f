// The system ROM image of a package.
#pragma once

#include "fwversion.h"

// Loads the image that the package description names and checks that it is whole. The identifier is the ROM family.
class CRomImage : public CFwImage
{
  public:
    ~CRomImage() override;
    BOOL Initialize() override;

  private:
    bool FindInPackage(CStr& fileName, CStr& checksum);
    bool Load(const CStr& fileName);
    bool CheckWhole(const CStr& checksum);
    bool ReadHeader();
    bool Fail(const CStr& message);
};
