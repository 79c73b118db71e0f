// The system ROM component: offers the ROM image of its package to servers of the same ROM family.
#pragma once

#include "component.h"
#include "romimage.h"

class CSystemRom : public CComponent
{
  public:
    void Initialize() override;

  protected:
    BOOL PerformDiscovery() override;
    void InstallWorker(InstallParameters* params) override;

  private:
    void ReadRunningRom();
    int DecideInstallState();
    int CheckImage(const CFwVersion& offered);
    int Refuse(int state, const CStr& message);

    CStr m_sFamily;               // of the running ROM
    CFwVersion m_CurrentVersion;  // of the running ROM
    BOOL m_bVersionKnown = FALSE;
    BOOL m_bIncomplete = FALSE;  // an update was cut off: the server runs on its boot block
    CRomImage m_Image;
};
