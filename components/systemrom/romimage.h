// The system ROM image of a package.
#pragma once

#include "host/packageimage.h"

// An image with a flash image header, which tells its ROM family (the identifier) and its version.
class CRomImage : public CPackageImage
{
  public:
    CRomImage() : CPackageImage("ROM image") {}
    BOOL Initialize() override;

    // Longer families are none.
    static const int MaxFamilyLength = 16;

  private:
    bool ReadHeader();
};
