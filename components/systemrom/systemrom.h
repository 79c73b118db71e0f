// The system ROM component: offers the ROM image of its package to servers of the same ROM family.
#pragma once

#include "host/samplecomponent.h"
#include "romimage.h"

class CSystemRom : public CSampleComponent
{
  public:
    CSystemRom() : CSampleComponent(Needs_RomDriver) {}

  protected:
    void ReadDevice() override;
    int DecideInstallState() override;
    BOOL PerformDiscovery() override;
    void InstallWorker(InstallParameters* params) override;

  private:
    int CheckImage();
    int CheckReservedMemory();

    CStr m_sFamily;               // of the running ROM; empty when it can't be read
    CFwVersion m_CurrentVersion;  // of the running ROM
    BOOL m_bVersionKnown = FALSE;
    BOOL m_bIncomplete = FALSE;  // an update was cut off: the server runs on its boot block
    CRomImage m_Image;
};
