// The power controller component: reprograms the power controller's microcode from an Intel HEX image.
#pragma once

#include <memory>

#include "host/packageimage.h"
#include "host/samplecomponent.h"
#include "pwrmicro.h"

// Beyond what all components have, settings.ini says where the controller is and which one the image is for:
//
//     [Device]
//     Family = Zephyra
//     Bus = 3
//     Address = 48
//
// Families are Opal, Zephyra, Quillon and Brisk; numbers are decimal.
class CPowerController : public CSampleComponent
{
  public:
    CPowerController();

  protected:
    void ReadDevice() override;
    int DecideInstallState() override;
    BOOL PerformDiscovery() override;
    void InstallWorker(InstallParameters* params) override;

  private:
    BOOL Identify();
    int CheckImage();
    BOOL ReadVersion();
    BOOL Update(PLOGFN logger);
    BOOL Program(PLOGFN logger);
    BOOL Upload(PLOGFN logger);
    BOOL BringBack();
    BOOL Verify();
    CStr DescribeState();

    PowerControllerType m_Wanted = ControllerType_Unknown;
    std::unique_ptr<CPowerMicro> m_pMicro;  // null without a channel
    BOOL m_bFound = FALSE;
    BOOL m_bBootLoader = FALSE;  // an update was cut off, or is under way
    BOOL m_bTouched = FALSE;
    BOOL m_bStateSaved = FALSE;
    CFwVersion m_CurrentVersion;
    CPackageImage m_Image;
};
